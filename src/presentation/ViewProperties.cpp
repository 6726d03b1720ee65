// Per-occurrence overrides of a view: occurrence ids, positions, graphic properties and
// alternate representations.
#include "KalVorlaParser.h"
#include "loading/CallerArrays.h"
#include "loading/ChildWalk.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

namespace {

constexpr int kMatrixSize = 12;

bool IsViewProperty(const KalLightXmlElementItf& element) {
  const KalUnicodeString& tag = element.GetType();
  return tag == "AlternateViewProperty" || tag == "DefaultViewProperty";
}

// The occurrence id of a view property, from its first "OccurenceId" child; false when it has
// none (or its walk meets a null child). Text that is no number reads as 0, both when ids are
// listed and when they are looked up, so the two always agree.
bool OccurrenceIdOf(const KalLightXmlElementItf& property, int& id) {
  KalLightXmlElementItf* child = nullptr;
  if (kalvorla::FindChildByTag(&property, "OccurenceId", child) != WalkEnd::kStopped) return false;
  id = 0;
  child->GetValue().ConvertToNum(&id, "%d");
  return true;
}

}  // namespace

HRESULT KalVorlaParser::GetOccurenceIdList(KalLightXmlElementItf* view,
                                           KalRawCollint& occurrenceIds) {
  if (view == nullptr) return E_FAIL;
  const WalkEnd end = WalkChildren(view, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    int id = 0;
    if (IsViewProperty(*c) && OccurrenceIdOf(*c, id)) occurrenceIds.Append(id);
    return false;
  });
  return end == WalkEnd::kNullChild ? E_FAIL : S_OK;
}

HRESULT KalVorlaParser::GetAlternateViewProperty(KalLightXmlElementItf* view, int occurrenceId,
                                                 KalLightXmlElementItf** property) {
  if (view == nullptr) return E_FAIL;
  KalLightXmlElementItf* match = nullptr;
  const WalkEnd end = WalkChildren(view, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    int id = 0;
    if (!IsViewProperty(*c) || !OccurrenceIdOf(*c, id) || id != occurrenceId) return false;
    match = c;
    return true;
  });
  if (end == WalkEnd::kNullChild) return E_FAIL;
  if (match == nullptr) return kVorlaAbsent;
  if (property == nullptr) return E_FAIL;
  *property = match;
  return S_OK;
}

HRESULT KalVorlaParser::GetAlternateViewPropertyData(KalLightXmlElementItf* property,
                                                     double** relativePosition,
                                                     KalLightXmlElementItf** graphicProperties,
                                                     KalUnicodeString& alternateRepresentation) {
  if (property == nullptr || relativePosition == nullptr || graphicProperties == nullptr) {
    return E_FAIL;
  }
  double* made = nullptr;
  HRESULT rc = S_OK;
  const WalkEnd end = WalkChildren(property, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    const KalUnicodeString& tag = c->GetType();
    if (tag == "RelativePosition") {
      double* values = kalvorla::HandOver(relativePosition, made, kMatrixSize);
      if (values == nullptr || FAILED(ConvertMatrix(c, values))) rc = E_FAIL;
    } else if (tag == "GraphicProperties") {
      *graphicProperties = c;
    } else if (tag == "AlternateRepresentation") {
      alternateRepresentation = c->GetValue();
    }
    return FAILED(rc);
  });
  if (end == WalkEnd::kNullChild) return E_FAIL;
  return rc;
}
