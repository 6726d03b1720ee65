// One pass over the product structure: the root reference, the four identifier tables, the
// instances each reference aggregates, and the format and graphic-properties lists.
#include <new>

#include "ChildWalk.h"
#include "IdTables.h"
#include "KalFormatConstants.h"
#include "KalVorlaParser.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

namespace {

// Stores a new record, or deletes it when the table will not take it. False when the record
// could not be allocated.
template <class Record>
Record* AddRecord(KalHashTable* table, KalLightXmlElementItf* node, int id) {
  auto* record = new (std::nothrow) Record();
  if (record == nullptr) return nullptr;
  record->node = node;
  record->id = id;
  if (table->Insert(record) < 0) {
    delete record;
    return nullptr;
  }
  return record;
}

}  // namespace

HRESULT KalVorlaParser::RetrieveRootReferenceNode() {
  if (_pProductStructureNode == nullptr || _pInstanceTable == nullptr ||
      _pReferenceTable == nullptr || _pInstanceRepTable == nullptr ||
      _pReferenceRepTable == nullptr) {
    return E_FAIL;
  }
  int rootId = 0;
  _pProductStructureNode->GetAttribute(ROOT_S).ConvertToNum(&rootId, "%d");

  bool outOfMemory = false;
  // An instance joins the children of the reference that aggregates it, creating a
  // placeholder record when that reference has not been met yet.
  auto linkToParent = [&](KalLightXmlElementItf* instance, int id) {
    KalUnicodeString text;
    if (FAILED(GetValueString(IS_AGGREGATED_BY_S, instance, text))) return;
    int parentId = 0;
    // Without a parent number there is no reference to link to.
    if (text.ConvertToNum(&parentId, "%d") < 0) return;
    KalVorlaReferenceAndChild* parent = kalvorla::FindReferenceRecord(_pReferenceTable, parentId);
    if (parent == nullptr) {
      parent = AddRecord<KalVorlaReferenceAndChild>(_pReferenceTable, nullptr, parentId);
      if (parent == nullptr) {
        outOfMemory = true;
        return;
      }
    }
    parent->children.Append(id);
  };

  WalkEnd end =
      WalkChildren(_pProductStructureNode, NullChild::kFail, [&](KalLightXmlElementItf* child) {
        const KalUnicodeString& type = child->GetAttribute(XSI_TYPE_S);
        const KalUnicodeString& idText = child->GetAttribute(ID_S);
        if (idText.IsEmpty()) {
          if (type == "RepFormatType") {
            _RepFormatList.Append(child);
          } else if (type == "GraphicPropertiesAspectType") {
            _GraphicPropertiesList.Append(child);
          }
          return false;
        }
        int id = 0;
        idText.ConvertToNum(&id, "%d");
        if (type == REFERENCE_3D_TYPE_S) {
          if (id == rootId) _pRootReferenceNode = child;
          KalVorlaReferenceAndChild* record = kalvorla::FindReferenceRecord(_pReferenceTable, id);
          if (record != nullptr) {
            record->node = child;
          } else if (AddRecord<KalVorlaReferenceAndChild>(_pReferenceTable, child, id) == nullptr) {
            outOfMemory = true;
          }
        } else if (type == INSTANCE_3D_TYPE_S) {
          if (AddRecord<KalVorlaNodeAndId>(_pInstanceTable, child, id) == nullptr) {
            outOfMemory = true;
          } else {
            linkToParent(child, id);
          }
        } else if (type == INSTANCE_REP_TYPE_S) {
          if (AddRecord<KalVorlaNodeAndId>(_pInstanceRepTable, child, id) == nullptr) {
            outOfMemory = true;
          } else {
            linkToParent(child, id);
          }
        } else if (type == REFERENCE_REP_TYPE_S) {
          if (AddRecord<KalVorlaReferenceAndChild>(_pReferenceRepTable, child, id) == nullptr) {
            outOfMemory = true;
          }
        }
        return outOfMemory;
      });
  if (outOfMemory) return E_OUTOFMEMORY;
  if (end == WalkEnd::kNullChild) return E_FAIL;
  return S_OK;
}
