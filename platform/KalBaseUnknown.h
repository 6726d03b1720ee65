// Base object model of the platform: meta-objects and the common base class.
#ifndef KAL_BASE_UNKNOWN_H
#define KAL_BASE_UNKNOWN_H

#include <cstddef>

typedef unsigned int KalClassId;

class KalMetaClass {
 public:
  KalClassId _ClassId;  // first field: the class identifier
  const char* _ClassName;
  int _ClassKind;
  KalMetaClass* _pBaseMeta;
  const char* _ExtraName;
  const char* _ComponentName;
  size_t _InstanceSize;

  KalClassId GetClassId() const { return _ClassId; }
  const char* GetClassName() const { return _ClassName; }
  const char* GetComponentName() const { return _ComponentName; }
  KalMetaClass* GetBaseMetaObject() const { return _pBaseMeta; }
  // 1 when this class or one of its bases is called `name`, 0 otherwise.
  int IsAKindOf(const char* name) const;
};

// Registers a class (once per class name; later calls return the same meta-object).
// Class identifiers are given out in order of registration, from 1.
KalMetaClass* fct_RetrieveMetaObject(const char* className, int classKind, KalMetaClass* baseMeta,
                                     const char* extraName, const char* componentName,
                                     size_t instanceSize);

class KalBaseUnknown {
 public:
  KalBaseUnknown() = default;
  virtual ~KalBaseUnknown() = default;
  virtual KalMetaClass* GetMetaObject() const;
  virtual const char* IsA() const;
  virtual int IsAKindOf(const char* name) const;

  static KalMetaClass* MetaObject();
  static const char* ClassName();
  static KalClassId ClassId();
  static KalBaseUnknown* CreateItself();

 private:
  static KalMetaClass* meta_object;
};

#endif
