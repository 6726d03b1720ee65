// Where a representation lives, and the representation elements found by id.
#include "KalFormatConstants.h"
#include "KalLightXml.h"
#include "KalVorlaParser.h"
#include "loading/ChildWalk.h"
#include "loading/LookupIndexes.h"
#include "representation/UrnParsing.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

namespace {

const char kRepresentationKind[] = "Representation:";
const char kLocalLocality[] = "loc";
constexpr int kPrefixLength = 2;  // "./" or ".\"

// The first direct child of `container` whose id, read as unsigned ("%u", 0 when it does not
// convert), equals `id`. The one lookup behind both lookups by id.
HRESULT FindById(KalLightXmlElementItf* container, unsigned int id, KalLightXmlElementItf** out,
                 long mode, kalvorla::FlatFirst<unsigned int>* index) {
  if (out == nullptr || container == nullptr) return E_FAIL;
  KalLightXmlElementItf* match = nullptr;
  const auto idOf = [](const KalLightXmlElementItf& c, unsigned int& value) {
    value = 0;
    c.GetAttribute(ID_S).ConvertToNum(&value, "%u");
    return true;
  };
  const WalkEnd end = kalvorla::FirstByKey(container, id, idOf, index, match);
  if (end == WalkEnd::kNullChild) return E_FAIL;
  if (end != WalkEnd::kStopped) return S_FALSE;
  if (mode != kVorlaCopyMode) {
    *out = match;
    return static_cast<HRESULT>(mode);
  }
  // A copy independent of this tree, so it outlives the parser that found it.
  KalLightXmlElementFactory factory;
  KalLightXmlElementItf* copy = factory.CreateElement();
  if (copy == nullptr || copy->CopyFrom(match) == 0) {
    delete copy;
    return E_OUTOFMEMORY;
  }
  *out = copy;
  return kVorlaCopyMode;
}

}  // namespace

HRESULT KalVorlaParser::GetRepLocationFromRepFormat(KalLightXmlElementItf* repFormat,
                                                    KalUnicodeString& location) {
  if (repFormat == nullptr) return E_FAIL;
  const KalUnicodeString* urnText = kalvorla::RepFormatUrn(repFormat);
  if (urnText == nullptr) return E_FAIL;
  const KalUnicodeString& urn = *urnText;
  // Without the kind, the cut starts at the URN's first colon all the same.
  const int kind = urn.SearchSubString(kRepresentationKind, 0, 1);
  const int c1 = urn.SearchSubString(":", kind + 1, 1);
  const int c2 = urn.SearchSubString(":", c1 + 1, 1);
  location = urn.SubString(c2 + 1, urn.GetLengthInChar() - (c2 + 1));
  if (kalvorla::Piece(urn, c1 + 1, c2 - c1 - 1) == kLocalLocality) return kVorlaLocationLocal;

  const bool prefixed =
      location.SearchSubString("./", 0, 1) == 0 || location.SearchSubString(".\\", 0, 1) == 0;
  if (!prefixed || _pZippedFiles == nullptr) return kVorlaLocationExternal;
  // The prefix goes only when the file is an entry of the open archive.
  const int slash = location.SearchSubString("/", 0, 2);
  const KalUnicodeString name =
      location.SubString(slash + 1, location.GetLengthInChar() - (slash + 1));
  for (unsigned int i = 0; i < _NbZippedFiles; ++i) {
    if (_pZippedFiles[i] == name) {
      location = location.SubString(kPrefixLength, location.GetLengthInChar() - kPrefixLength);
      break;
    }
  }
  return kVorlaLocationExternal;
}

HRESULT KalVorlaParser::GetRepresentationNode(unsigned int id,
                                              KalLightXmlElementItf** representation) {
  if (_pGeometricRepresentationSetNode == nullptr || representation == nullptr) return E_FAIL;
  // Read as signed ("%d"); a child whose id does not convert is taken to carry the last id
  // read before it, and before any is read it matches nothing.
  int value = 0;
  bool valueRead = false;
  const auto idOf = [&](const KalLightXmlElementItf& c, unsigned int& key) {
    if (c.GetAttribute(ID_S).ConvertToNum(&value, "%d") >= 0) valueRead = true;
    key = static_cast<unsigned int>(value);
    return valueRead;
  };
  KalVorlaLookupIndexes* indexes = Indexes();
  KalLightXmlElementItf* match = nullptr;
  const WalkEnd end =
      kalvorla::FirstByKey(_pGeometricRepresentationSetNode, id, idOf,
                           indexes ? &indexes->representationsBySignedId : nullptr, match);
  if (end == WalkEnd::kStopped) *representation = match;
  return kalvorla::SearchResult(end);
}

HRESULT KalVorlaParser::GetRepresentationNodeFromId(unsigned int id,
                                                    KalLightXmlElementItf** representation,
                                                    long mode) {
  KalVorlaLookupIndexes* indexes = Indexes();
  return FindById(_pGeometricRepresentationSetNode, id, representation, mode,
                  indexes ? &indexes->representationsById : nullptr);
}

HRESULT KalVorlaParser::GetTechRepNodeFromId(unsigned int id, KalLightXmlElementItf** techRep,
                                             long mode) {
  KalVorlaLookupIndexes* indexes = Indexes();
  return FindById(_pSpecificExtensionSetNode, id, techRep, mode,
                  indexes ? &indexes->techRepsById : nullptr);
}
