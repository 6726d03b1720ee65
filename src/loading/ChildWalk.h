// The one shape of every walk over an element's direct children.
#ifndef KAL_VORLA_CHILD_WALK_H
#define KAL_VORLA_CHILD_WALK_H

#include "KalHResult.h"
#include "KalLightXmlElementItf.h"

namespace kalvorla {

// What a null child met during a walk means to the caller.
enum class NullChild { kFail, kSkip };

enum class WalkEnd {
  kNoChildren,  // the element has no child elements
  kExhausted,   // every child was visited
  kStopped,     // the visitor asked to stop
  kNullChild,   // a null child was met and the policy was kFail
};

// Visits the direct children of `parent` (not null) in document order. `visit(child)` returns
// true to stop the walk.
template <class Visit>
WalkEnd WalkChildren(const KalLightXmlElementItf* parent, NullChild policy, Visit&& visit) {
  KalPosition cursor = parent->GetHeadPosition();
  if (cursor == nullptr) return WalkEnd::kNoChildren;
  do {
    KalLightXmlElementItf* child = parent->GetNextChild(cursor);
    if (child == nullptr) {
      if (policy == NullChild::kFail) return WalkEnd::kNullChild;
      continue;
    }
    if (visit(child)) return WalkEnd::kStopped;
  } while (cursor != nullptr);
  return WalkEnd::kExhausted;
}

// The first direct child of `parent` tagged `tag`: kStopped with `found` set, or how the
// walk ended without it (null children fail the walk).
inline WalkEnd FindChildByTag(const KalLightXmlElementItf* parent, const KalUnicodeString& tag,
                              KalLightXmlElementItf*& found) {
  return WalkChildren(parent, NullChild::kFail, [&](KalLightXmlElementItf* child) {
    if (child->GetType() != tag) return false;
    found = child;
    return true;
  });
}

// The code of a search that stops at its match: S_OK when found, E_FAIL on a null child,
// S_FALSE otherwise (no children, or none matched).
inline HRESULT SearchResult(WalkEnd end) {
  if (end == WalkEnd::kStopped) return S_OK;
  return end == WalkEnd::kNullChild ? E_FAIL : S_FALSE;
}

// The text after the first ":" of a tag (the whole tag when it has none).
KalUnicodeString LocalName(const KalUnicodeString& tag);

}  // namespace kalvorla

#endif
