// Reads the bytes as a URN with both splitters, and as a value list with each reader; a
// vector or matrix read from an element must give what reading the list value by value
// gives, the in-place reading of plain lists included.
#include <cstring>

#include "FuzzSupport.h"
#include "KalVorlaParser.h"

namespace {

// An element with no child and no attribute, holding `text`.
struct TextElement : KalLightXmlElementItf {
  using S = KalUnicodeString;
  explicit TextElement(const S& text) : text(text) {}
  int CopyFrom(const KalLightXmlElementItf*) override { return 0; }
  KalPosition GetHeadPosition() const override { return nullptr; }
  KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const override {
    return cursor = nullptr, nullptr;
  }
  const S& GetType() const override { return tag; }
  const S& GetAttribute(const S&) const override { return S::Empty(); }
  const S& GetValue() const override { return text; }
  S tag{"Text"}, text;
};

// The two overloads split alike; they differ only in how the id is given.
void CheckUrn(KalVorlaParser& parser, const KalUnicodeString& urn) {
  KalVorlaUrnType type1 = KalVorlaUrnReference, type2 = KalVorlaUrnReference;
  unsigned char local1 = 2, local2 = 2;
  int id = 0;
  KalUnicodeString idText, file1, file2;
  const HRESULT rc1 = parser.ExtractVorlaUrnDatas(urn, type1, local1, id, file1);
  const HRESULT rc2 = parser.ExtractVorlaUrnDatas(urn, type2, local2, idText, file2);
  if (rc1 != rc2 || type1 != type2 || local1 != local2 || file1 != file2) std::abort();
}

// ConvertVector (count 3) or ConvertMatrix must give what reading the values one by one,
// in the documented calling order, gives.
template <class T>
void CheckSameValues(KalVorlaParser& parser, KalUnicodeString& list, int count,
                     HRESULT (KalVorlaParser::*read)(KalLightXmlElementItf*, T*)) {
  T fromElement[12], oneByOne[12];
  for (int i = 0; i < 12; ++i) fromElement[i] = oneByOne[i] = static_cast<T>(i + 0.5);
  TextElement element(list);
  if ((parser.*read)(&element, fromElement) != (list.IsEmpty() ? E_FAIL : S_OK)) std::abort();
  for (int i = 0, next = 0; i < count && !list.IsEmpty(); ++i)
    parser.GetNextValueInList(list, i == 0 ? 0 : next + 1, oneByOne[i], next);
  if (std::memcmp(fromElement, oneByOne, sizeof(T) * count) != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  KalVorlaParser parser;
  KalUnicodeString text(reinterpret_cast<const char*>(data), static_cast<int>(size));
  CheckUrn(parser, text);
  // A list without any blank read from its start never ends, as documented; that one case
  // is left out.
  if (text.SearchSubString(" ", 0, 1) == -1) return 0;
  int value = 0;
  for (int start = 0, next = 0, n = 0; start >= 0 && n < 64 && next >= 0; start = next + 1, ++n)
    parser.GetNextValueInList(text, start, value, next);
  CheckSameValues<float>(parser, text, 3, &KalVorlaParser::ConvertVector);
  CheckSameValues<float>(parser, text, 12, &KalVorlaParser::ConvertMatrix);
  CheckSameValues<double>(parser, text, 12, &KalVorlaParser::ConvertMatrix);
  return 0;
}
