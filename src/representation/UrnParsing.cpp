// Splitting "urn:VORLA:" strings into kind, locality, id and file name.
#include "UrnParsing.h"

#include <string_view>

namespace {

const char kUrnPrefix[] = "urn:VORLA:";
constexpr int kKindStart = 10;  // length of the prefix, which is assumed to start the URN
const char kFileMarker[] = ".vorla#";
constexpr int kFileMarkerLength = 7;

}  // namespace

std::string_view kalvorla::Piece(const KalUnicodeString& text, int start, int length) {
  const int size = text.GetLengthInChar();
  if (start < 0) start = 0;
  if (length < 0) length = 0;
  if (start >= size) return {};
  if (length > size - start) length = size - start;
  return {text.ConvertToChar() + start, static_cast<size_t>(length)};
}

namespace {

using kalvorla::Piece;

// The common part of both overloads: sets type and isLocal, gives the id text (always the
// rest of the URN, so it stays NUL-terminated where the URN ends) and the file name. False
// when the prefix is missing (nothing is written then).
bool SplitUrn(const KalUnicodeString& urn, KalVorlaUrnType& type, unsigned char& isLocal,
              std::string_view& idText, KalUnicodeString& fileName) {
  if (urn.SearchSubString(kUrnPrefix, 0, 1) == -1) return false;
  const int length = urn.GetLengthInChar();
  const int c1 = urn.SearchSubString(":", kKindStart, 1);
  const std::string_view kind = Piece(urn, kKindStart, c1 - kKindStart);
  if (kind == "Reference") {
    type = KalVorlaUrnReference;
  } else if (kind == "Representation") {
    type = KalVorlaUrnRepresentation;
  } else if (kind == "TechRep") {
    type = KalVorlaUrnTechRep;
  }
  const int c2 = urn.SearchSubString(":", c1 + 1, 1);
  if (Piece(urn, c1 + 1, c2 - c1 - 1) == "loc") {
    isLocal = 1;
    idText = Piece(urn, c2 + 1, length - c2 - 1);
    fileName = "";
  } else {
    isLocal = 0;
    const int h = urn.SearchSubString(kFileMarker, c2 + 1, 1);
    fileName = urn.SubString(c2 + 1, h - c2 + 5);
    idText = Piece(urn, h + kFileMarkerLength, length - (h + kFileMarkerLength));
  }
  return true;
}

}  // namespace

HRESULT kalvorla::ExtractUrn(const KalUnicodeString& urn, KalVorlaUrnType& type,
                             unsigned char& isLocal, int& id, bool& idSet,
                             KalUnicodeString& fileName) {
  std::string_view idText;
  idSet = false;
  if (!SplitUrn(urn, type, isLocal, idText, fileName)) return E_FAIL;
  idSet = KalUnicodeString::Borrow(idText.data(), static_cast<int>(idText.size()))
              .ConvertToNum(&id, "%d") >= 0;
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
  std::string_view idText;
  if (!SplitUrn(urn, type, isLocal, idText, fileName)) return E_FAIL;
  id = KalUnicodeString(idText.data(), static_cast<int>(idText.size()));
  return S_OK;
}
