// Blank-separated numbers in element text, vectors and 12-value matrices.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "KalVorlaParser.h"
#include "loading/ChildWalk.h"

namespace {

constexpr int kVectorSize = 3;
constexpr int kMatrixSize = 12;

// The piece of `list` holding the next value at or after `start`; `next` gets the index of
// the blank that ends it, -1 at the end of the list. False when that blank does not lie past
// the value's start.
bool NextPiece(const KalUnicodeString& list, int start, KalUnicodeString& piece, int& next) {
  // The exit test compares with the advanced start: a list without any blank read from 0
  // never leaves this loop, a behaviour callers rely on being kept as it is.
  int pos;
  do {
    pos = list.SearchSubString(" ", start, 1);
    if (pos == start) ++start;
  } while (pos + 1 == start);
  next = list.SearchSubString(" ", start, 1);
  if (next == -1) {
    piece = list.SubString(start, list.GetLengthInChar() - start);
    return true;
  }
  if (next <= start) return false;
  piece = list.SubString(start, next - start);
  return true;
}

constexpr double kExactPowersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7,
                                        1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
constexpr int kShortDigits = 15;  // below 2^53: the digits make an exact double

// A piece "[-]digits[.digits]" of at most 15 digits, as strtod reads it: the digits and the
// power of ten are exact doubles, so the one division rounds exactly as strtod rounds. False
// for any other piece. Placements are written so, and read here without from_chars' set-up.
bool ReadShortDecimal(const char* p, const char* pieceEnd, double& value) {
  const bool negative = p < pieceEnd && *p == '-';
  p += negative;
  uint64_t digits = 0;
  int count = 0, decimals = -1;  // -1: no point met
  for (; p < pieceEnd; ++p) {
    if (*p >= '0' && *p <= '9') {
      if (++count > kShortDigits) return false;
      digits = digits * 10 + static_cast<uint64_t>(*p - '0');
      decimals += decimals >= 0;
    } else if (*p == '.' && decimals < 0) {
      decimals = 0;
    } else {
      return false;
    }
  }
  if (count == 0) return false;
  double read = static_cast<double>(digits);
  if (decimals > 0) read /= kExactPowersOfTen[decimals];
  value = negative ? -read : read;
  return true;
}

// strtod's reading of the number at `p` (where it stopped, `p` when nothing converts): short
// decimals by the division above, other plain decimal pieces by from_chars, which rounds them
// as strtod does, only faster.
const char* ParseNumber(const char* p, const char* pieceEnd, double& value) {
  if (ReadShortDecimal(p, pieceEnd, value)) return pieceEnd;
  const char* q = p + (p < pieceEnd && *p == '-');
  if (q < pieceEnd && ((*q >= '0' && *q <= '9') || *q == '.')) {
    const std::from_chars_result read = std::from_chars(p, pieceEnd, value);
    // A hexadecimal or out-of-range piece, or one with more after the number, is strtod's.
    const bool plain = read.ec == std::errc() && read.ptr == pieceEnd &&
                       !(pieceEnd - q > 1 && q[0] == '0' && (q[1] == 'x' || q[1] == 'X'));
    if (plain) return read.ptr;
  }
  char* stop = nullptr;
  value = std::strtod(p, &stop);
  return stop;
}

// The common case read in place: `count` values, each followed by one blank or, for the last,
// by a blank or the end. It gives what the piece-by-piece reader gives: the same pieces, and
// strtod stopping at the blank that ends a piece as it stops at the piece's end. False, with
// nothing written, for any other shape (leading or doubled blanks, fewer values), which the
// piece-by-piece reader handles with its wrap-around.
template <class T>
bool ReadPlainList(const KalUnicodeString& text, T* values, int count) {
  const char* p = text.ConvertToChar();
  const char* const end = p + text.GetLengthInChar();
  T read[kMatrixSize];
  for (int i = 0; i < count; ++i) {
    if (p >= end || *p == ' ') return false;
    const char* blank = static_cast<const char*>(std::memchr(p, ' ', end - p));
    const char* pieceEnd = blank != nullptr ? blank : end;
    if (blank == nullptr && i + 1 < count) return false;
    double d = 0;
    const char* stop = ParseNumber(p, pieceEnd, d);
    // A piece that does not convert (white space alone, say) leaves a double as it was and
    // gives a float zero.
    const bool converted = stop != p && stop <= pieceEnd;
    if (std::is_same_v<T, float>) {
      read[i] = converted ? static_cast<T>(d) : T(0);
    } else {
      read[i] = converted ? static_cast<T>(d) : values[i];
    }
    p = pieceEnd + 1;
  }
  std::copy(read, read + count, values);
  return true;
}

template <class T>
HRESULT ReadValues(KalVorlaParser& parser, KalLightXmlElementItf* element, T* values, int count) {
  if (element == nullptr || values == nullptr) return E_INVALIDARG;
  if (element->GetValue().GetLengthInChar() < 1) return E_FAIL;
  if (ReadPlainList(element->GetValue(), values, count)) return S_OK;
  KalUnicodeString text = element->GetValue();
  int next = 0;
  for (int i = 0; i < count; ++i) {
    const int start = i == 0 ? 0 : next + 1;
    if (FAILED(parser.GetNextValueInList(text, start, values[i], next))) return E_FAIL;
  }
  return S_OK;
}

}  // namespace

HRESULT KalVorlaParser::CountOccurences(KalUnicodeString tag, int& count) {
  if (_pProductStructureNode == nullptr) return E_FAIL;
  count = 0;
  kalvorla::WalkChildren(_pProductStructureNode, kalvorla::NullChild::kSkip,
                         [&](KalLightXmlElementItf* c) {
                           if (c->GetType() == tag) ++count;
                           return false;
                         });
  return S_OK;
}

HRESULT KalVorlaParser::GetNextValueInList(KalUnicodeString& list, int start, int& value,
                                           int& next) {
  KalUnicodeString piece;
  if (!NextPiece(list, start, piece, next)) return E_FAIL;
  piece.ConvertToNum(&value, "%d");
  return S_OK;
}

HRESULT KalVorlaParser::GetNextValueInList(KalUnicodeString& list, int start, float& value,
                                           int& next) {
  KalUnicodeString piece;
  if (!NextPiece(list, start, piece, next)) return E_FAIL;
  // A piece that does not convert stores an unspecified value; zero is ours.
  double d = 0.0;
  piece.ConvertToNum(&d, "%le");
  value = static_cast<float>(d);
  return S_OK;
}

HRESULT KalVorlaParser::GetNextValueInList(KalUnicodeString& list, int start, double& value,
                                           int& next) {
  KalUnicodeString piece;
  if (!NextPiece(list, start, piece, next)) return E_FAIL;
  piece.ConvertToNum(&value, "%le");
  return S_OK;
}

HRESULT KalVorlaParser::ConvertVector(KalLightXmlElementItf* element, float* values) {
  return ReadValues(*this, element, values, kVectorSize);
}

HRESULT KalVorlaParser::ConvertMatrix(KalLightXmlElementItf* element, float* values) {
  return ReadValues(*this, element, values, kMatrixSize);
}

HRESULT KalVorlaParser::ConvertMatrix(KalLightXmlElementItf* element, double* values) {
  return ReadValues(*this, element, values, kMatrixSize);
}
