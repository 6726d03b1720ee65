#include "KalUnicodeString.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

char kEmptyText[1] = {'\0'};

int LengthOf(const char* text) {
  if (text == nullptr) return 0;
  size_t n = std::strlen(text);
  return n > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(n);
}

// sscanf's "%d", "%u" and "%le" skip leading white space and then need at least one digit;
// strtoll/strtoull/strtod agree with them on what they accept, and run much faster, which
// matters when a load converts the ids of hundreds of thousands of elements.
bool IsIntegerFormat(const char* f) { return f != nullptr && std::strcmp(f, "%d") == 0; }
bool IsUnsignedFormat(const char* f) { return f != nullptr && std::strcmp(f, "%u") == 0; }
bool IsDoubleFormat(const char* f) {
  return f != nullptr && (std::strcmp(f, "%le") == 0 || std::strcmp(f, "%lf") == 0 ||
                          std::strcmp(f, "%.2le") == 0 || std::strcmp(f, "%lg") == 0);
}

// Ids are mostly a short run of plain digits: read those directly, with the value the
// strto* family gives (at most 18 digits cannot overflow), and leave the rest to it.
bool PlainDigits(const char* text, unsigned long long& value) {
  value = 0;
  int count = 0;
  for (; text[count] >= '0' && text[count] <= '9'; ++count) {
    if (count == 18) return false;
    value = value * 10 + static_cast<unsigned>(text[count] - '0');
  }
  return count > 0;
}

}  // namespace

KalUnicodeString::KalUnicodeString() : _pData(kEmptyText), _Length(0), _Capacity(-1) {}

KalUnicodeString::KalUnicodeString(const char* utf8) : KalUnicodeString() {
  Assign(utf8, LengthOf(utf8));
}

KalUnicodeString::KalUnicodeString(const char* utf8, int length) : KalUnicodeString() {
  if (utf8 == nullptr || length < 0) length = 0;
  Assign(utf8, length);
}

KalUnicodeString::KalUnicodeString(const KalUnicodeString& other) : KalUnicodeString() {
  Assign(other._pData, other._Length);
}

KalUnicodeString::KalUnicodeString(KalUnicodeString&& other) noexcept
    : _pData(other._pData), _Length(other._Length), _Capacity(other._Capacity) {
  // A moved borrowed string stays borrowed: the referred text is just as valid for us.
  other._pData = kEmptyText;
  other._Length = 0;
  other._Capacity = -1;
}

KalUnicodeString::~KalUnicodeString() { Release(); }

KalUnicodeString& KalUnicodeString::operator=(const KalUnicodeString& other) {
  if (this != &other) Assign(other._pData, other._Length);
  return *this;
}

KalUnicodeString& KalUnicodeString::operator=(KalUnicodeString&& other) noexcept {
  if (this != &other) {
    Release();
    _pData = other._pData;
    _Length = other._Length;
    _Capacity = other._Capacity;
    other._pData = kEmptyText;
    other._Length = 0;
    other._Capacity = -1;
  }
  return *this;
}

KalUnicodeString& KalUnicodeString::operator=(const char* utf8) {
  Assign(utf8, LengthOf(utf8));
  return *this;
}

KalUnicodeString& KalUnicodeString::operator+=(const KalUnicodeString& other) {
  Append(other._pData, other._Length);
  return *this;
}

KalUnicodeString& KalUnicodeString::operator+=(const char* utf8) {
  Append(utf8, LengthOf(utf8));
  return *this;
}

KalUnicodeString operator+(const KalUnicodeString& a, const KalUnicodeString& b) {
  KalUnicodeString r(a);
  r += b;
  return r;
}

KalUnicodeString operator+(const KalUnicodeString& a, const char* b) {
  KalUnicodeString r(a);
  r += b;
  return r;
}

KalUnicodeString operator+(const char* a, const KalUnicodeString& b) {
  KalUnicodeString r(a);
  r += b;
  return r;
}

bool KalUnicodeString::operator==(const KalUnicodeString& other) const {
  return _Length == other._Length && std::memcmp(_pData, other._pData, _Length) == 0;
}

bool KalUnicodeString::operator==(const char* utf8) const {
  if (utf8 == nullptr) return _Length == 0;
  return std::strlen(utf8) == static_cast<size_t>(_Length) &&
         std::memcmp(_pData, utf8, _Length) == 0;
}

bool KalUnicodeString::operator<(const KalUnicodeString& other) const {
  int n = _Length < other._Length ? _Length : other._Length;
  int c = std::memcmp(_pData, other._pData, n);
  return c < 0 || (c == 0 && _Length < other._Length);
}

int KalUnicodeString::SearchSubString(const KalUnicodeString& text, int start, int mode) const {
  const int n = text._Length;
  if (mode == 2) {
    // Backward: the last occurrence that ends at or before _Length - start.
    if (start < 0) start = 0;
    int end = _Length - start;
    if (end < n) return -1;
    for (int i = end - n; i >= 0; --i) {
      if (std::memcmp(_pData + i, text._pData, n) == 0) return i;
    }
    return -1;
  }
  if (start < 0) start = 0;
  if (start > _Length || n > _Length - start) return -1;
  if (n == 0) return start;
  const char* from = _pData + start;
  const char* last = _pData + _Length - n;
  while (from <= last) {
    const void* hit = std::memchr(from, text._pData[0], static_cast<size_t>(last - from) + 1);
    if (hit == nullptr) return -1;
    const char* p = static_cast<const char*>(hit);
    if (std::memcmp(p, text._pData, n) == 0) return static_cast<int>(p - _pData);
    from = p + 1;
  }
  return -1;
}

int KalUnicodeString::SearchSubString(const char* text, int start, int mode) const {
  return SearchSubString(Borrow(text ? text : kEmptyText, LengthOf(text)), start, mode);
}

KalUnicodeString KalUnicodeString::SubString(int start, int length) const {
  if (start < 0) start = 0;
  if (length < 0) length = 0;
  if (start >= _Length) return KalUnicodeString();
  if (length > _Length - start) length = _Length - start;
  return KalUnicodeString(_pData + start, length);
}

int KalUnicodeString::ConvertToNum(int* value, const char* format) const {
  if (value == nullptr || !IsIntegerFormat(format)) return -1;
  unsigned long long digits = 0;
  if (PlainDigits(_pData, digits)) {
    *value = static_cast<int>(digits);
    return 1;
  }
  char* end = nullptr;
  errno = 0;
  long long n = std::strtoll(_pData, &end, 10);
  if (end == _pData) return -1;
  // Out-of-range text keeps the low bits, as the scanf family does.
  *value = static_cast<int>(static_cast<unsigned long long>(n));
  return 1;
}

int KalUnicodeString::ConvertToNum(unsigned int* value, const char* format) const {
  if (value == nullptr || !IsUnsignedFormat(format)) return -1;
  unsigned long long digits = 0;
  if (PlainDigits(_pData, digits)) {
    *value = static_cast<unsigned int>(digits);
    return 1;
  }
  char* end = nullptr;
  errno = 0;
  unsigned long long n = std::strtoull(_pData, &end, 10);
  if (end == _pData) return -1;
  *value = static_cast<unsigned int>(n);
  return 1;
}

int KalUnicodeString::ConvertToNum(double* value, const char* format) const {
  if (value == nullptr || !IsDoubleFormat(format)) return -1;
  char* end = nullptr;
  double d = std::strtod(_pData, &end);
  if (end == _pData) return -1;
  *value = d;
  return 1;
}

KalUnicodeString KalUnicodeString::Borrow(const char* utf8, int length) {
  KalUnicodeString s;
  if (utf8 != nullptr && length > 0) {
    s._pData = const_cast<char*>(utf8);
    s._Length = length;
  }
  return s;
}

const KalUnicodeString& KalUnicodeString::Empty() {
  static const KalUnicodeString empty;
  return empty;
}

void KalUnicodeString::Assign(const char* data, int length) {
  if (length <= 0 || data == nullptr) {
    if (!IsBorrowed()) {
      _pData[0] = '\0';
      _Length = 0;
    } else {
      _pData = kEmptyText;
      _Length = 0;
    }
    return;
  }
  if (!IsBorrowed() && length < _Capacity && (data < _pData || data >= _pData + _Capacity)) {
    std::memcpy(_pData, data, length);
  } else {
    char* p = new char[static_cast<size_t>(length) + 1];
    std::memcpy(p, data, length);
    Release();
    _pData = p;
    _Capacity = length + 1;
  }
  _pData[length] = '\0';
  _Length = length;
}

void KalUnicodeString::Append(const char* data, int length) {
  if (data == nullptr || length <= 0) return;
  const int total = _Length + length;
  if (!IsBorrowed() && total < _Capacity) {
    std::memmove(_pData + _Length, data, length);
  } else {
    int capacity = total + 1;
    if (!IsBorrowed() && capacity < 2 * _Capacity) capacity = 2 * _Capacity;  // amortised growth
    char* p = new char[capacity];
    std::memcpy(p, _pData, _Length);
    std::memcpy(p + _Length, data, length);
    Release();
    _pData = p;
    _Capacity = capacity;
  }
  _Length = total;
  _pData[total] = '\0';
}

void KalUnicodeString::Release() {
  if (!IsBorrowed()) delete[] _pData;
  _pData = kEmptyText;
  _Length = 0;
  _Capacity = -1;
}
