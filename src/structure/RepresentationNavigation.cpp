// From a reference to its representation instances, representation references, formats and
// the representation elements the formats point at.
#include <cmath>

#include "KalFormatConstants.h"
#include "loading/ChildWalk.h"
#include "loading/IdTables.h"
#include "loading/LookupIndexes.h"
#include "representation/UrnParsing.h"

using kalvorla::WalkEnd;

namespace {

const char kRepFormatTag[] = "RepFormat";
const KalUnicodeString kFormatChild = KalUnicodeString::Borrow("format", 6);
const KalUnicodeString kVersionChild = KalUnicodeString::Borrow("version", 7);
const KalUnicodeString kAssociatedFileAttribute =
    KalUnicodeString::Borrow("associatedFile", sizeof "associatedFile" - 1);

// The text of the first child tagged `tag`, the empty string when there is none; false when
// the element has no children or a null child comes first.
bool ChildText(const KalLightXmlElementItf* parent, const KalUnicodeString& tag,
               const KalUnicodeString*& text) {
  KalLightXmlElementItf* child = nullptr;
  switch (kalvorla::FindChildByTag(parent, tag, child)) {
    case WalkEnd::kStopped:
      text = &child->GetValue();
      return true;
    case WalkEnd::kExhausted:
      text = &KalUnicodeString::Empty();
      return true;
    default:
      return false;
  }
}

// A URN kind no URN can yield, so a text without the URN prefix is told apart.
constexpr auto kNoUrnKind = static_cast<KalVorlaUrnType>(-1);

}  // namespace

HRESULT KalVorlaParser::GetRepresentationDocType(KalLightXmlElementItf* repFormat,
                                                 KalUnicodeString& docType) {
  if (repFormat == nullptr) return E_INVALIDARG;
  if (repFormat->GetType() != kRepFormatTag) return E_FAIL;
  // Read as GetValueString reads them (a missing child is empty text, a childless element
  // or a null child met first a failure), without copying the texts.
  const KalUnicodeString *format = nullptr, *versionText = nullptr;
  if (!ChildText(repFormat, kFormatChild, format) ||
      !ChildText(repFormat, kVersionChild, versionText)) {
    return E_FAIL;
  }
  // A version that does not convert compares false with every bound, so no rule takes it.
  double version = std::nan("");
  versionText->ConvertToNum(&version, "%.2le");
  if (*format == TESSELLATED_S && version >= 2.0 && version <= 2.1) {
    docType = kVorlaDocTypeTg2;
  } else if (*format == TESSELLATED_S && version >= 1.0 && version <= 1.1) {
    docType = kVorlaDocTypeTg1;
  } else if (*format == EXACT_S && version <= 1.1) {  // no lower bound for exact geometry
    docType = kVorlaDocTypeEg1;
  } else {
    return E_FAIL;
  }
  return S_OK;
}

const KalUnicodeString* kalvorla::RepFormatUrn(const KalLightXmlElementItf* repFormat) {
  if (repFormat == nullptr || repFormat->GetType() != kRepFormatTag) return nullptr;
  return &repFormat->GetAttribute(kAssociatedFileAttribute);
}

HRESULT KalVorlaParser::GetRepresentationUrn(KalLightXmlElementItf* repFormat,
                                             KalUnicodeString& urn) {
  if (repFormat == nullptr) return E_INVALIDARG;
  const KalUnicodeString* found = kalvorla::RepFormatUrn(repFormat);
  if (found == nullptr) return E_FAIL;
  urn = *found;
  return S_OK;
}

HRESULT KalVorlaParser::GetRepInstancesFromReference3D(KalLightXmlElementItf* reference,
                                                       KalRawCollPV* repInstances) {
  if (reference == nullptr || repInstances == nullptr || _pReferenceTable == nullptr) {
    return kVorlaBadArguments;
  }
  if (_pInstanceRepTable == nullptr) return S_OK;
  int id = -1;
  GetEntityLocalID(reference, id);
  KalVorlaReferenceAndChild* record = kalvorla::FindReferenceRecord(_pReferenceTable, id);
  if (record == nullptr) return E_FAIL;
  kalvorla::AppendAggregated(record, _pInstanceRepTable, repInstances);
  return S_OK;
}

HRESULT KalVorlaParser::GetReferenceRepFromInstanceRep(KalLightXmlElementItf* repInstance,
                                                       KalLightXmlElementItf** repReference,
                                                       KalUnicodeString& path,
                                                       int& repReferenceId) {
  if (repInstance == nullptr || repReference == nullptr) return E_INVALIDARG;
  *repReference = nullptr;
  path = "";
  repReferenceId = -1;
  KalLightXmlElementItf* child = nullptr;
  const WalkEnd end = kalvorla::FindChildByTag(repInstance, IS_INSTANCE_OF_S, child);
  if (end == WalkEnd::kExhausted) return S_OK;
  if (end != WalkEnd::kStopped) return E_FAIL;
  KalVorlaUrnType type = KalVorlaUrnReference;
  unsigned char isLocal = 1;
  int id = 0;
  bool idSet = false;
  KalUnicodeString fileName;
  kalvorla::ExtractUrn(child->GetValue(), type, isLocal, id, idSet, fileName);
  if (isLocal == 1) {
    if (!idSet) return E_FAIL;
    return FAILED(GetReferenceRepFromLocalID(id, repReference)) ? E_FAIL : S_OK;
  }
  // A plain join, archive or not, absolute name or not: callers of this query expect it.
  path = _DocumentDirectory + "/" + fileName;
  if (idSet) repReferenceId = id;
  return S_OK;
}

HRESULT KalVorlaParser::GetRepFormatsFromRepReference(KalLightXmlElementItf* repReference,
                                                      KalRawCollPV* repFormats) {
  if (repReference == nullptr || repFormats == nullptr) return E_INVALIDARG;
  int id = -1;
  repReference->GetAttribute(ID_S).ConvertToNum(&id, "%d");
  // An entry without an owner of its own is taken as owned by the last owner read before it;
  // before any owner is read, it belongs to nobody. A null entry ends the list in failure.
  int owner = 0;
  bool ownerRead = false;
  const auto ownerOf = [&](KalLightXmlElementItf* entry) {
    if (entry->GetAttribute(OWNER_S).ConvertToNum(&owner, "%d") >= 0) ownerRead = true;
    return ownerRead;
  };
  KalVorlaLookupIndexes* indexes = Indexes();
  if (indexes == nullptr) {
    for (int i = 1; i <= _RepFormatList.Size(); ++i) {
      KalLightXmlElementItf* entry = _RepFormatList[i];
      if (entry == nullptr) return E_FAIL;
      if (ownerOf(entry) && owner == id) repFormats->Append(entry);
    }
    return S_OK;
  }
  kalvorla::EntriesByKey<int>& byOwner = indexes->formatsByOwner;
  if (!byOwner.built) {
    byOwner.built = true;
    for (int i = 1; i <= _RepFormatList.Size() && !byOwner.endsAtNull; ++i) {
      KalLightXmlElementItf* entry = _RepFormatList[i];
      byOwner.endsAtNull = entry == nullptr;
      if (entry != nullptr && ownerOf(entry)) byOwner.entries[owner].push_back(entry);
    }
  }
  if (const auto* owned = byOwner.Find(id)) {
    for (KalLightXmlElementItf* entry : *owned) repFormats->Append(entry);
  }
  return byOwner.endsAtNull ? E_FAIL : S_OK;
}

HRESULT KalVorlaParser::GetRepresentationFromRepFormat(KalLightXmlElementItf* repFormat,
                                                       KalLightXmlElementItf** representation) {
  if (repFormat == nullptr || representation == nullptr) return E_INVALIDARG;
  const KalUnicodeString* urnText = kalvorla::RepFormatUrn(repFormat);
  if (urnText == nullptr) return E_FAIL;
  const KalUnicodeString& urn = *urnText;
  KalVorlaUrnType type = kNoUrnKind;
  unsigned char isLocal = 0;
  int id = -1;
  bool idSet = false;
  KalUnicodeString fileName;
  kalvorla::ExtractUrn(urn, type, isLocal, id, idSet, fileName);
  if (type != KalVorlaUrnRepresentation && type != KalVorlaUrnTechRep) return E_FAIL;
  const auto lookUp = [&](KalVorlaParser& parser, long mode) {
    return type == KalVorlaUrnTechRep
               ? parser.GetTechRepNodeFromId(static_cast<unsigned int>(id), representation, mode)
               : parser.GetRepresentationNodeFromId(static_cast<unsigned int>(id), representation,
                                                    mode);
  };
  if (isLocal == 1) return lookUp(*this, 0);
  // The other document lives only for this call: what it finds comes back as a copy.
  KalVorlaParser other;
  other.InitParsing(PathOfOtherFile(fileName));
  return lookUp(other, kVorlaCopyMode);
}
