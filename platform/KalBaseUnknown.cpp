#include "KalBaseUnknown.h"

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

namespace {

// A meta-object with its own copies of the names it points to, so callers may pass
// temporary strings.
struct RegisteredClass {
  KalMetaClass meta{};
  std::string className;
  std::string extraName;
  std::string componentName;
};

struct Registry {
  std::mutex lock;
  std::map<std::string, std::unique_ptr<RegisteredClass>> classes;
  KalClassId lastId = 0;
};

Registry& TheRegistry() {
  // Never destroyed: meta-objects cached in class statics must outlive every other static.
  static Registry& registry = *new Registry;
  return registry;
}

}  // namespace

int KalMetaClass::IsAKindOf(const char* name) const {
  if (name == nullptr) return 0;
  for (const KalMetaClass* meta = this; meta != nullptr; meta = meta->_pBaseMeta) {
    if (meta->_ClassName != nullptr && std::strcmp(meta->_ClassName, name) == 0) return 1;
  }
  return 0;
}

KalMetaClass* fct_RetrieveMetaObject(const char* className, int classKind, KalMetaClass* baseMeta,
                                     const char* extraName, const char* componentName,
                                     size_t instanceSize) {
  if (className == nullptr) return nullptr;
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  try {
    auto found = registry.classes.find(className);
    if (found != registry.classes.end()) return &found->second->meta;

    auto entry = std::make_unique<RegisteredClass>();
    entry->className = className;
    entry->extraName = extraName != nullptr ? extraName : "";
    entry->componentName = componentName != nullptr ? componentName : "";
    KalMetaClass& meta = entry->meta;
    meta._ClassId = registry.lastId + 1;
    meta._ClassName = entry->className.c_str();
    meta._ClassKind = classKind;
    meta._pBaseMeta = baseMeta;
    meta._ExtraName = extraName != nullptr ? entry->extraName.c_str() : nullptr;
    meta._ComponentName = componentName != nullptr ? entry->componentName.c_str() : nullptr;
    meta._InstanceSize = instanceSize;

    KalMetaClass* result = &meta;
    registry.classes.emplace(className, std::move(entry));
    ++registry.lastId;
    return result;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

KalMetaClass* KalBaseUnknown::meta_object = nullptr;

KalMetaClass* KalBaseUnknown::MetaObject() {
  if (meta_object == nullptr) {
    meta_object = fct_RetrieveMetaObject("KalBaseUnknown", 1, nullptr, "KalNull", "KalPlatform",
                                         sizeof(KalBaseUnknown));
  }
  return meta_object;
}

const char* KalBaseUnknown::ClassName() {
  KalMetaClass* meta = MetaObject();
  return meta != nullptr ? meta->GetClassName() : nullptr;
}

KalClassId KalBaseUnknown::ClassId() {
  KalMetaClass* meta = MetaObject();
  return meta != nullptr ? meta->GetClassId() : 0;
}

KalBaseUnknown* KalBaseUnknown::CreateItself() { return new (std::nothrow) KalBaseUnknown; }

KalMetaClass* KalBaseUnknown::GetMetaObject() const { return MetaObject(); }

// Through the virtual GetMetaObject, so a derived class that only overrides that one still
// answers with its own name.
const char* KalBaseUnknown::IsA() const {
  KalMetaClass* meta = GetMetaObject();
  return meta != nullptr ? meta->GetClassName() : nullptr;
}

int KalBaseUnknown::IsAKindOf(const char* name) const {
  KalMetaClass* meta = GetMetaObject();
  return meta != nullptr ? meta->IsAKindOf(name) : 0;
}
