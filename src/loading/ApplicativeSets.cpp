// Presentation, measure and section sets, and specific extensions by id.
#include "ChildWalk.h"
#include "KalHashTable.h"
#include "KalVorlaParser.h"

HRESULT KalVorlaParser::RetrieveApplicativeSetNodes() {
  if (_pRootNode == nullptr) return E_FAIL;
  kalvorla::WalkEnd end = kalvorla::WalkChildren(
      _pRootNode, kalvorla::NullChild::kFail, [&](KalLightXmlElementItf* child) {
        const KalUnicodeString name = kalvorla::LocalName(child->GetType());
        if (name == "PresentationSet") {
          _pPresentationSetNode = child;
        } else if (name == "SectionSet") {
          _pSectionSetNode = child;
        } else if (name == "MeasureSet") {
          _pMeasureSetNode = child;
        }
        // The animation set is recorded with the containers, never here.
        return false;
      });
  return end == kalvorla::WalkEnd::kNullChild ? E_FAIL : S_OK;
}

HRESULT KalVorlaParser::GetSpecificExtensionNode(unsigned int id, KalLightXmlElementItf** node) {
  if (_pSpecificExtensionTable == nullptr || node == nullptr || id == 0) return E_FAIL;
  KalVorlaNodeAndId probe;
  probe.id = static_cast<int>(id);
  auto* found = static_cast<KalVorlaNodeAndId*>(_pSpecificExtensionTable->Locate(&probe));
  if (found == nullptr) return E_FAIL;
  *node = found->node;
  return S_OK;
}
