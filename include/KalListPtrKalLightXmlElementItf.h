// Typed list of borrowed element pointers.
#ifndef KAL_LIST_PTR_KAL_LIGHT_XML_ELEMENT_ITF_H
#define KAL_LIST_PTR_KAL_LIGHT_XML_ELEMENT_ITF_H

#include "KalLightXmlElementItf.h"
#include "KalRawColl.h"

// The list never deletes what it holds: the elements belong to their document.
class KalListPtrKalLightXmlElementItf : public KalRawCollPV {
 public:
  explicit KalListPtrKalLightXmlElementItf(int initialSize = 0);
  KalListPtrKalLightXmlElementItf(const KalListPtrKalLightXmlElementItf& other);
  KalListPtrKalLightXmlElementItf(KalLightXmlElementItf** array, int count);
  virtual ~KalListPtrKalLightXmlElementItf();
  KalListPtrKalLightXmlElementItf& operator=(const KalListPtrKalLightXmlElementItf& other);

  // 1-based; null when out of range.
  KalLightXmlElementItf* operator[](int index) const {
    return static_cast<KalLightXmlElementItf*>(KalRawCollPV::operator[](index));
  }
  void Append(KalLightXmlElementItf* element) { KalRawCollPV::Append(element); }

  void RemoveDuplicates(KalListPtrKalLightXmlElementItf* removed);
  static int Compare(const KalListPtrKalLightXmlElementItf& a,
                     const KalListPtrKalLightXmlElementItf& b,
                     int (*compare)(KalLightXmlElementItf*,
                                    const KalListPtrKalLightXmlElementItf&));
};

#endif
