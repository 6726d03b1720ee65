// UTF-8 string of the platform. Positions and lengths count UTF-8 code units.
#ifndef KAL_UNICODE_STRING_H
#define KAL_UNICODE_STRING_H

#include <cstddef>

class KalUnicodeString {
 public:
  KalUnicodeString();
  KalUnicodeString(const char* utf8);  // NOLINT: implicit on purpose, like the host's string
  KalUnicodeString(const char* utf8, int length);
  KalUnicodeString(const KalUnicodeString& other);
  KalUnicodeString(KalUnicodeString&& other) noexcept;
  ~KalUnicodeString();

  KalUnicodeString& operator=(const KalUnicodeString& other);
  KalUnicodeString& operator=(KalUnicodeString&& other) noexcept;
  KalUnicodeString& operator=(const char* utf8);

  KalUnicodeString& operator+=(const KalUnicodeString& other);
  KalUnicodeString& operator+=(const char* utf8);
  friend KalUnicodeString operator+(const KalUnicodeString& a, const KalUnicodeString& b);
  friend KalUnicodeString operator+(const KalUnicodeString& a, const char* b);
  friend KalUnicodeString operator+(const char* a, const KalUnicodeString& b);

  bool operator==(const KalUnicodeString& other) const;
  bool operator==(const char* utf8) const;
  bool operator!=(const KalUnicodeString& other) const { return !(*this == other); }
  bool operator!=(const char* utf8) const { return !(*this == utf8); }
  bool operator<(const KalUnicodeString& other) const;

  // NUL-terminated UTF-8, valid while the string lives and is unchanged.
  const char* ConvertToChar() const { return _pData; }
  int GetLengthInChar() const { return _Length; }
  bool IsEmpty() const { return _Length == 0; }

  // mode 1: first occurrence starting at or after `start`;
  // mode 2: last occurrence ending at or before GetLengthInChar() - start (start 0 = whole text).
  // Returns the index of the occurrence, -1 when there is none.
  int SearchSubString(const KalUnicodeString& text, int start, int mode) const;
  int SearchSubString(const char* text, int start, int mode) const;

  // Negative start or length clamp to 0; a range past the end is cut at the end.
  KalUnicodeString SubString(int start, int length) const;

  // Conversions in the style of sscanf: "%d" (int), "%u" (unsigned int), "%le", "%lf" or
  // "%.2le" (double). Return 1 when a number was read; a negative status when nothing
  // converts, in which case the output is left untouched.
  int ConvertToNum(int* value, const char* format = "%d") const;
  int ConvertToNum(unsigned int* value, const char* format = "%u") const;
  int ConvertToNum(double* value, const char* format = "%le") const;

  // A string that refers to text it does not own. The text must be NUL-terminated at
  // `length`, outlive the string and stay unchanged. Copies of a borrowed string own their
  // text, so they stay valid when the borrowed text goes away.
  static KalUnicodeString Borrow(const char* utf8, int length);

  // The one shared empty string.
  static const KalUnicodeString& Empty();

 private:
  void Assign(const char* data, int length);
  void Append(const char* data, int length);
  void Release();
  bool IsBorrowed() const { return _Capacity < 0; }

  char* _pData;   // never null; NUL-terminated
  int _Length;    // bytes, without the terminator
  int _Capacity;  // bytes owned including the terminator; -1 when borrowed
};

#endif
