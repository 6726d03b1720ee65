// Splitting "urn:VORLA:" strings into kind, locality, id and file name.
#include "UrnParsing.h"

namespace {

const char kUrnPrefix[] = "urn:VORLA:";
constexpr int kKindStart = 10;  // length of the prefix, which is assumed to start the URN
const char kFileMarker[] = ".vorla#";
constexpr int kFileMarkerLength = 7;

// The common part of both overloads: sets type and isLocal, gives the id text and the file
// name. False when the prefix is missing (nothing is written then).
bool SplitUrn(const KalUnicodeString& urn, KalVorlaUrnType& type, unsigned char& isLocal,
              KalUnicodeString& idText, KalUnicodeString& fileName) {
  if (urn.SearchSubString(kUrnPrefix, 0, 1) == -1) return false;
  const int length = urn.GetLengthInChar();
  const int c1 = urn.SearchSubString(":", kKindStart, 1);
  const KalUnicodeString kind = urn.SubString(kKindStart, c1 - kKindStart);
  if (kind == "Reference") {
    type = KalVorlaUrnReference;
  } else if (kind == "Representation") {
    type = KalVorlaUrnRepresentation;
  } else if (kind == "TechRep") {
    type = KalVorlaUrnTechRep;
  }
  const int c2 = urn.SearchSubString(":", c1 + 1, 1);
  const KalUnicodeString locality = urn.SubString(c1 + 1, c2 - c1 - 1);
  if (locality == "loc") {
    isLocal = 1;
    idText = urn.SubString(c2 + 1, length - c2 - 1);
    fileName = "";
  } else {
    isLocal = 0;
    const int h = urn.SearchSubString(kFileMarker, c2 + 1, 1);
    fileName = urn.SubString(c2 + 1, h - c2 + 5);
    idText = urn.SubString(h + kFileMarkerLength, length - (h + kFileMarkerLength));
  }
  return true;
}

}  // namespace

HRESULT kalvorla::ExtractUrn(const KalUnicodeString& urn, KalVorlaUrnType& type,
                             unsigned char& isLocal, int& id, bool& idSet,
                             KalUnicodeString& fileName) {
  KalUnicodeString idText;
  idSet = false;
  if (!SplitUrn(urn, type, isLocal, idText, fileName)) return E_FAIL;
  idSet = idText.ConvertToNum(&id, "%d") >= 0;
  return S_OK;
}

HRESULT KalVorlaParser::ExtractVorlaUrnDatas(const KalUnicodeString& urn, KalVorlaUrnType& type,
                                             unsigned char& isLocal, int& id,
                                             KalUnicodeString& fileName) {
  bool idSet = false;
  return kalvorla::ExtractUrn(urn, type, isLocal, id, idSet, fileName);
}

HRESULT KalVorlaParser::ExtractVorlaUrnDatas(const KalUnicodeString& urn, KalVorlaUrnType& type,
                                             unsigned char& isLocal, KalUnicodeString& id,
                                             KalUnicodeString& fileName) {
  KalUnicodeString idText;
  if (!SplitUrn(urn, type, isLocal, idText, fileName)) return E_FAIL;
  id = idText;
  return S_OK;
}
