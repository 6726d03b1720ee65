// Searches among an element's direct children, and attribute and text reads.
#include "ChildWalk.h"
#include "KalFormatConstants.h"
#include "KalVorlaParser.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

KalUnicodeString kalvorla::LocalName(const KalUnicodeString& tag) {
  const int colon = tag.SearchSubString(":", 0, 1);
  return tag.SubString(colon + 1, tag.GetLengthInChar() - colon - 1);
}

HRESULT KalVorlaParser::GetVorlaChildNodeFromType(KalLightXmlElementItf* parent,
                                                  const KalUnicodeString& type,
                                                  KalLightXmlElementItf** child) {
  if (parent == nullptr || child == nullptr) return E_FAIL;
  *child = nullptr;
  WalkEnd end = WalkChildren(parent, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    if (c->GetAttribute(XSI_TYPE_S) != type) return false;
    *child = c;
    return true;
  });
  return kalvorla::SearchResult(end);
}

HRESULT KalVorlaParser::GetVorlaChildNodeFromName(KalLightXmlElementItf* parent,
                                                  const KalUnicodeString& name,
                                                  KalLightXmlElementItf** child) {
  if (parent == nullptr || child == nullptr) return E_FAIL;
  *child = nullptr;
  switch (kalvorla::FindChildByTag(parent, name, *child)) {
    case WalkEnd::kStopped:
      return S_OK;
    case WalkEnd::kExhausted:
      return S_FALSE;
    default:
      return E_FAIL;  // unlike the search by type, a childless parent is a failure
  }
}

HRESULT KalVorlaParser::GetVorlaNodeFromOtherIDAttribute(int id,
                                                         const KalUnicodeString& elementType,
                                                         const KalUnicodeString& attributeName,
                                                         KalLightXmlElementItf** node) {
  if (node == nullptr || _pProductStructureNode == nullptr) return E_INVALIDARG;
  *node = nullptr;
  WalkEnd end =
      WalkChildren(_pProductStructureNode, NullChild::kFail, [&](KalLightXmlElementItf* c) {
        if (c->GetType() != elementType) return false;
        const KalUnicodeString& text = c->GetAttribute(attributeName);
        // Text that is no number must match no id, so start from a value no id can equal
        // unless the conversion writes it.
        int value = 0;
        if (text.ConvertToNum(&value, "%d") < 0 || value != id) return false;
        *node = c;
        return true;
      });
  switch (end) {
    case WalkEnd::kNoChildren:
    case WalkEnd::kNullChild:
      return E_FAIL;
    default:
      return S_OK;  // a miss is a success with a null node
  }
}

HRESULT KalVorlaParser::GetValueString(KalUnicodeString childType, KalLightXmlElementItf* parent,
                                       KalUnicodeString& value) {
  if (parent == nullptr) return E_INVALIDARG;
  value = "";
  WalkEnd end = WalkChildren(parent, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    if (c->GetType() != childType) return false;
    value = c->GetValue();
    return true;
  });
  switch (end) {
    case WalkEnd::kNoChildren:
    case WalkEnd::kNullChild:
      return E_FAIL;
    default:
      return S_OK;  // a missing child reads as an empty value
  }
}

HRESULT KalVorlaParser::GetAttributeString(KalUnicodeString attributeName,
                                           KalLightXmlElementItf* element,
                                           KalUnicodeString& value) {
  if (element == nullptr) return E_INVALIDARG;
  value = "";
  value = element->GetAttribute(attributeName);
  return S_OK;
}
