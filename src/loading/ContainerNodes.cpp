// The container elements under the document's root, the identifier tables' records and
// callbacks, lookups by local id, counts and plain accessors.
#include <new>

#include "ChildWalk.h"
#include "KalFormatConstants.h"
#include "KalHashTable.h"
#include "KalVorlaParser.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

unsigned int KalVorlaHashVorlaNodeAndId(const void* record) {
  if (record == nullptr) return 0;
  return static_cast<unsigned int>(static_cast<const KalVorlaNodeAndId*>(record)->id);
}

int KalVorlaCompareVorlaNodeAndId(const void* a, const void* b) {
  if (a == nullptr || b == nullptr) return 1;
  return static_cast<const KalVorlaNodeAndId*>(a)->id ==
                 static_cast<const KalVorlaNodeAndId*>(b)->id
             ? 0
             : 1;
}

int DeleteVorlaNodeAndId(KalVorlaNodeAndId* record) {
  delete record;
  return 0;
}

int DeleteVorlaReferenceAndChild(KalVorlaReferenceAndChild* record) {
  delete record;
  return 0;
}

namespace {

// The element of the record with this id in `table`, probing with a record of the table's
// own type.
template <class Record>
HRESULT LookUp(KalHashTable* table, int id, KalLightXmlElementItf** node) {
  if (node == nullptr || table == nullptr) return E_FAIL;
  *node = nullptr;
  Record probe;
  probe.id = id;
  auto* found = static_cast<Record*>(table->Locate(&probe));
  if (found == nullptr) return E_FAIL;
  *node = found->node;
  return S_OK;
}

HRESULT CopyMember(KalLightXmlElementItf* member, KalLightXmlElementItf** node) {
  if (node == nullptr) return E_FAIL;
  *node = member;
  return S_OK;
}

}  // namespace

HRESULT KalVorlaParser::RetrieveContainerNodes() {
  if (_pRootNode == nullptr) return E_FAIL;
  bool outOfMemory = false;
  bool nullMaterial = false;
  WalkEnd end = WalkChildren(_pRootNode, NullChild::kFail, [&](KalLightXmlElementItf* child) {
    const KalUnicodeString name = kalvorla::LocalName(child->GetType());
    if (name == PRODUCT_STRUCTURE_S) {
      _pProductStructureNode = child;
    } else if (name == GEOMETRIC_REPRESENTATION_SET_S) {
      _pGeometricRepresentationSetNode = child;
    } else if (name == GRAPHIC_MATERIAL_SET_S) {
      _pGraphicMaterialSetNode = child;
      WalkEnd materials = WalkChildren(child, NullChild::kFail, [&](KalLightXmlElementItf* m) {
        if (m->GetType() != "GraphicMaterial") return false;
        int id = -1;
        m->GetAttribute(ID_S).ConvertToNum(&id, "%d");
        if (id > 0) {
          _GraphicMaterialIds.Append(id);
          _GraphicMaterialList.Append(m);
        }
        return false;
      });
      nullMaterial = materials == WalkEnd::kNullChild;
      return nullMaterial;
    } else if (name == "AlternateViewSet") {
      _pAlternateViewSetNode = child;
    } else if (name == "AnimationSet") {
      _pAnimationSetNode = child;
    } else if (name == "DefaultView") {
      _pDefaultViewNode = child;
    } else if (name == SPECIFIC_EXTENSION_SET_S) {
      _pSpecificExtensionSetNode = child;
      WalkChildren(child, NullChild::kSkip, [&](KalLightXmlElementItf* extension) {
        if (extension->GetType() != "SpecificExtension") return false;
        int id = -1;
        extension->GetAttribute(ID_S).ConvertToNum(&id, "%d");
        auto* record = new (std::nothrow) KalVorlaNodeAndId();
        if (record == nullptr) {
          outOfMemory = true;
          return true;
        }
        record->node = extension;
        record->id = id;
        if (_pSpecificExtensionTable == nullptr || _pSpecificExtensionTable->Insert(record) < 0) {
          delete record;
        }
        return false;
      });
      return outOfMemory;
    }
    return false;
  });
  if (outOfMemory) return E_OUTOFMEMORY;
  if (end == WalkEnd::kNullChild || nullMaterial) return E_FAIL;
  return S_OK;
}

HRESULT KalVorlaParser::GetInstance3DFromLocalID(int id, KalLightXmlElementItf** node) {
  return LookUp<KalVorlaNodeAndId>(_pInstanceTable, id, node);
}

HRESULT KalVorlaParser::GetReference3DFromLocalID(int id, KalLightXmlElementItf** node) {
  return LookUp<KalVorlaReferenceAndChild>(_pReferenceTable, id, node);
}

HRESULT KalVorlaParser::GetInstanceRepFromLocalID(int id, KalLightXmlElementItf** node) {
  return LookUp<KalVorlaNodeAndId>(_pInstanceRepTable, id, node);
}

HRESULT KalVorlaParser::GetReferenceRepFromLocalID(int id, KalLightXmlElementItf** node) {
  return LookUp<KalVorlaReferenceAndChild>(_pReferenceRepTable, id, node);
}

HRESULT KalVorlaParser::GetNumberOfInstances(int& count) {
  return CountOccurences("Instance3D", count);
}

HRESULT KalVorlaParser::GetNumberOfReferences(int& count) {
  return CountOccurences("Reference3D", count);
}

HRESULT KalVorlaParser::GetNumberOfRepresentations(int& count) {
  return CountOccurences("RepFormat", count);
}

HRESULT KalVorlaParser::GetProductStructureRootReference(KalLightXmlElementItf** node) {
  return CopyMember(_pRootReferenceNode, node);
}

HRESULT KalVorlaParser::GetDefaultViewNode(KalLightXmlElementItf** node) {
  return CopyMember(_pDefaultViewNode, node);
}

HRESULT KalVorlaParser::GetPresentationSetNode(KalLightXmlElementItf** node) {
  return CopyMember(_pPresentationSetNode, node);
}

HRESULT KalVorlaParser::GetMeasureSetNode(KalLightXmlElementItf** node) {
  return CopyMember(_pMeasureSetNode, node);
}

HRESULT KalVorlaParser::GetSectionSetNode(KalLightXmlElementItf** node) {
  return CopyMember(_pSectionSetNode, node);
}

HRESULT KalVorlaParser::GetAnimationSetNode(KalLightXmlElementItf** node) {
  return CopyMember(_pAnimationSetNode, node);
}

HRESULT KalVorlaParser::GetVorlaRootNode(KalLightXmlElementItf** node) {
  return CopyMember(_pRootNode, node);
}

HRESULT KalVorlaParser::GetSpecificExtensionSetNode(KalLightXmlElementItf** node) {
  return CopyMember(_pSpecificExtensionSetNode, node);
}

HRESULT KalVorlaParser::GetGraphicMaterialSetNode(KalLightXmlElementItf** node) {
  return CopyMember(_pGraphicMaterialSetNode, node);
}
