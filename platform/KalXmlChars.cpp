#include "KalXmlChars.h"

#include <cstring>

namespace kalxml {

namespace {

bool IsNameStartCodePoint(uint32_t cp) {
  return (cp >= 0xC0 && cp <= 0xD6) || (cp >= 0xD8 && cp <= 0xF6) || (cp >= 0xF8 && cp <= 0x2FF) ||
         (cp >= 0x370 && cp <= 0x37D) || (cp >= 0x37F && cp <= 0x1FFF) ||
         (cp >= 0x200C && cp <= 0x200D) || (cp >= 0x2070 && cp <= 0x218F) ||
         (cp >= 0x2C00 && cp <= 0x2FEF) || (cp >= 0x3001 && cp <= 0xD7FF) ||
         (cp >= 0xF900 && cp <= 0xFDCF) || (cp >= 0xFDF0 && cp <= 0xFFFD) ||
         (cp >= 0x10000 && cp <= 0xEFFFF);
}

bool IsNameCodePoint(uint32_t cp) {
  return IsNameStartCodePoint(cp) || cp == 0xB7 || (cp >= 0x300 && cp <= 0x36F) ||
         (cp >= 0x203F && cp <= 0x2040);
}

// Decodes a checked UTF-8 sequence of n bytes.
uint32_t DecodeUtf8(const unsigned char* p, size_t n) {
  if (n == 2) return ((p[0] & 0x1F) << 6) | (p[1] & 0x3F);
  if (n == 3) return ((p[0] & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F);
  return ((p[0] & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
}

}  // namespace

const char* ScanNameSlow(const char* p, const char* end, bool first) {
  while (p < end) {
    const auto b = static_cast<unsigned char>(*p);
    if (b < 0x80) {
      if ((kNameBytes[b] & (first ? kNameStartByte : kNameByte)) == 0) return p;
      ++p;
    } else {
      // Names are where a multi-byte character is first met, so it is checked here.
      const size_t n = CheckSequence(p, end);
      if (n == 0) return p;
      const uint32_t cp = DecodeUtf8(reinterpret_cast<const unsigned char*>(p), n);
      if (!(first ? IsNameStartCodePoint(cp) : IsNameCodePoint(cp))) return p;
      p += n;
    }
    first = false;
  }
  return p;
}

size_t CheckSequence(const char* text, const char* textEnd) {
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  const auto* end = reinterpret_cast<const unsigned char*>(textEnd);
  const unsigned char b = p[0];
  const size_t left = end - p;
  auto cont = [&](size_t i) { return i < left && (p[i] & 0xC0) == 0x80; };
  if (b >= 0xC2 && b <= 0xDF) return cont(1) ? 2 : 0;
  if (b >= 0xE0 && b <= 0xEF) {
    if (!cont(1) || !cont(2)) return 0;
    if (b == 0xE0 && p[1] < 0xA0) return 0;                   // overlong
    if (b == 0xED && p[1] >= 0xA0) return 0;                  // surrogate
    if (b == 0xEF && p[1] == 0xBF && p[2] >= 0xBE) return 0;  // U+FFFE, U+FFFF
    return 3;
  }
  if (b >= 0xF0 && b <= 0xF4) {
    if (!cont(1) || !cont(2) || !cont(3)) return 0;
    if (b == 0xF0 && p[1] < 0x90) return 0;   // overlong
    if (b == 0xF4 && p[1] >= 0x90) return 0;  // past U+10FFFF
    return 4;
  }
  return 0;
}

bool IsValidText(const char* p, const char* end) {
  while (p < end) {
    const char c = *p;
    if (static_cast<unsigned char>(c) < 0x80) {
      if (IsForbiddenControl(c)) return false;
      ++p;
    } else {
      const size_t n = CheckSequence(p, end);
      if (n == 0) return false;
      p += n;
    }
  }
  return true;
}

size_t CollapseBlanks(char* text, size_t length) {
  size_t out = 0;
  bool blank = true;
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == ' ') {
      blank = true;
      continue;
    }
    if (blank && out != 0) text[out++] = ' ';
    blank = false;
    text[out++] = text[i];
  }
  text[out] = '\0';
  return out;
}

size_t EncodeUtf8(uint32_t cp, char* out) {
  if (cp < 0x80) {
    out[0] = static_cast<char>(cp);
    return 1;
  }
  if (cp < 0x800) {
    out[0] = static_cast<char>(0xC0 | (cp >> 6));
    out[1] = static_cast<char>(0x80 | (cp & 0x3F));
    return 2;
  }
  if (cp < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (cp >> 12));
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (cp >> 18));
  out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (cp & 0x3F));
  return 4;
}

}  // namespace kalxml
