#include "KalListPtrKalLightXmlElementItf.h"

namespace {

using ElementCompare = int (*)(KalLightXmlElementItf*, const KalListPtrKalLightXmlElementItf&);

// The base calls back with untyped entries and the base list type, so the typed callback is
// kept here while one Compare runs on this thread; calling it through a converted function
// pointer would be a call through the wrong type.
thread_local ElementCompare tCurrentCompare = nullptr;

int CompareThunk(void* item, const KalRawCollPV& other) {
  // Both lists handed to the base are element lists, so the downcast is exact.
  return tCurrentCompare(static_cast<KalLightXmlElementItf*>(item),
                         static_cast<const KalListPtrKalLightXmlElementItf&>(other));
}

// Restores the outer callback when a callback itself compares lists.
class CurrentCompareScope {
 public:
  explicit CurrentCompareScope(ElementCompare compare) : _Saved(tCurrentCompare) {
    tCurrentCompare = compare;
  }
  ~CurrentCompareScope() { tCurrentCompare = _Saved; }
  CurrentCompareScope(const CurrentCompareScope&) = delete;
  CurrentCompareScope& operator=(const CurrentCompareScope&) = delete;

 private:
  ElementCompare _Saved;
};

}  // namespace

KalListPtrKalLightXmlElementItf::KalListPtrKalLightXmlElementItf(int initialSize)
    : KalRawCollPV(initialSize) {}

KalListPtrKalLightXmlElementItf::KalListPtrKalLightXmlElementItf(
    const KalListPtrKalLightXmlElementItf& other)
    : KalRawCollPV(other) {}

// Appended one by one: reading the element pointers through a void** would alias them with
// the wrong type.
KalListPtrKalLightXmlElementItf::KalListPtrKalLightXmlElementItf(KalLightXmlElementItf** array,
                                                                 int count)
    : KalRawCollPV(array != nullptr && count > 0 ? count : 0) {
  if (array == nullptr) return;
  for (int i = 0; i < count; ++i) Append(array[i]);
}

KalListPtrKalLightXmlElementItf::~KalListPtrKalLightXmlElementItf() = default;

KalListPtrKalLightXmlElementItf& KalListPtrKalLightXmlElementItf::operator=(
    const KalListPtrKalLightXmlElementItf& other) {
  if (this != &other) KalRawCollPV::operator=(other);
  return *this;
}

void KalListPtrKalLightXmlElementItf::RemoveDuplicates(KalListPtrKalLightXmlElementItf* removed) {
  KalRawCollPV::RemoveDuplicates(removed);
}

int KalListPtrKalLightXmlElementItf::Compare(const KalListPtrKalLightXmlElementItf& a,
                                             const KalListPtrKalLightXmlElementItf& b,
                                             ElementCompare compare) {
  if (compare == nullptr) return KalRawCollPV::Compare(a, b, nullptr);
  CurrentCompareScope scope(compare);
  return KalRawCollPV::Compare(a, b, &CompareThunk);
}
