// Characters of XML documents: which code points a document may hold, which make names,
// UTF-8 encoding and checking, and fast scans for the bytes the reader stops at.
#ifndef KAL_XML_CHARS_H
#define KAL_XML_CHARS_H

#include <cstddef>
#include <cstdint>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kalxml {

// A code point allowed anywhere in a document: tab, line feed, carriage return and the
// Unicode ranges minus surrogates and U+FFFE/U+FFFF.
inline bool IsChar(uint32_t cp) {
  if (cp < 0x20) return cp == 0x9 || cp == 0xA || cp == 0xD;
  if (cp < 0xD800) return true;
  if (cp < 0xE000) return false;
  if (cp < 0xFFFE) return true;
  return cp >= 0x10000 && cp <= 0x10FFFF;
}

inline bool IsSpace(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; }

// True when the bytes are well-formed UTF-8 (shortest forms, no surrogates) and every code
// point is allowed in a document.
bool IsValidText(const char* data, const char* end);
// The length of the allowed multi-byte character at p (a byte of 0x80 or more), 0 when the
// sequence is invalid UTF-8 or names a character a document may not hold.
size_t CheckSequence(const char* p, const char* end);
inline bool IsForbiddenControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t' && c != '\r';
}

// Trims blanks and collapses their runs to one, in place (text[length] is written too, as
// the new terminator); returns the new length.
size_t CollapseBlanks(char* text, size_t length);

// Appends the UTF-8 form of cp (at most 4 bytes) at out; returns the bytes written.
size_t EncodeUtf8(uint32_t cp, char* out);
inline void AppendUtf8(std::string& out, uint32_t cp) {
  char buffer[4];
  out.append(buffer, EncodeUtf8(cp, buffer));
}

// Name characters by byte: ASCII ones are decided by the table, bytes of multi-byte
// characters need the slow path.
enum : unsigned char { kNameStartByte = 1, kNameByte = 2, kMultiByte = 4 };
struct NameByteTable {
  unsigned char bits[256];
};
constexpr NameByteTable MakeNameByteTable() {
  NameByteTable t{};
  for (int c = 0; c < 256; ++c) {
    const bool start = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':';
    const bool other = (c >= '0' && c <= '9') || c == '-' || c == '.';
    t.bits[c] = c >= 0x80 ? kMultiByte
                : start   ? (kNameStartByte | kNameByte)
                : other   ? kNameByte
                          : 0;
  }
  return t;
}
inline constexpr NameByteTable kNameBytesTable = MakeNameByteTable();
inline constexpr const unsigned char* kNameBytes = kNameBytesTable.bits;

// Scans on from p, a multi-byte character, with the name's first character already read
// unless `first`.
const char* ScanNameSlow(const char* p, const char* end, bool first);

// The end of the name that starts at p, or null when no name starts there. Names start with
// a letter, '_', ':' or one of the other start characters, then continue with name
// characters; the text must already be valid UTF-8.
inline const char* ScanName(const char* p, const char* end) {
  if (p >= end) return nullptr;
  unsigned char c = static_cast<unsigned char>(*p);
  if ((kNameBytes[c] & kNameStartByte) == 0) {
    if ((kNameBytes[c] & kMultiByte) == 0) return nullptr;
    const char* name = ScanNameSlow(p, end, true);
    return name == p ? nullptr : name;
  }
  for (++p; p < end; ++p) {
    c = static_cast<unsigned char>(*p);
    if ((kNameBytes[c] & kNameByte) == 0) {
      return (kNameBytes[c] & kMultiByte) == 0 ? p : ScanNameSlow(p, end, false);
    }
  }
  return p;
}

// The end of the name token (name characters, any first one) at p; p itself when none.
inline const char* ScanNameToken(const char* p, const char* end) {
  for (; p < end; ++p) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if ((kNameBytes[c] & kNameByte) == 0) {
      return (kNameBytes[c] & kMultiByte) == 0 ? p : ScanNameSlow(p, end, false);
    }
  }
  return p;
}

// What a scan stops at besides the listed bytes.
enum class Stop {
  kListed,         // nothing else
  kUnchecked,      // control characters and bytes of multi-byte characters
  kUncheckedText,  // the same but tab and line feed, which text takes as they are
};

// The first byte in [p, end) that is one of Cs or else stops the scan, or end. Stopping at
// controls and multi-byte characters lets one pass both delimit plain text, which is most
// text, and find what in it needs checking.
template <Stop kStop, char... Cs>
inline const char* ScanTo(const char* p, const char* end) {
#if defined(__SSE2__)
  while (end - p >= 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i hit = _mm_setzero_si128();
    if (kStop != Stop::kListed) {
      // A signed compare with 0x20 catches both control characters and multi-byte bytes.
      hit = _mm_cmplt_epi8(v, _mm_set1_epi8(0x20));
    }
    if (kStop == Stop::kUncheckedText) {
      hit = _mm_andnot_si128(_mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\n')),
                                          _mm_cmpeq_epi8(v, _mm_set1_epi8('\t'))),
                             hit);
    }
    ((hit = _mm_or_si128(hit, _mm_cmpeq_epi8(v, _mm_set1_epi8(Cs)))), ...);
    const int bits = _mm_movemask_epi8(hit);
    if (bits != 0) return p + __builtin_ctz(static_cast<unsigned>(bits));
    p += 16;
  }
#endif
  for (; p < end; ++p) {
    if (((*p == Cs) || ...)) return p;
    if (kStop == Stop::kListed) continue;
    const auto c = static_cast<unsigned char>(*p);
    if (c >= 0x80) return p;
    if (c < 0x20 && !(kStop == Stop::kUncheckedText && (c == '\n' || c == '\t'))) return p;
  }
  return end;
}

template <char... Cs>
inline const char* FindFirstOf(const char* p, const char* end) {
  return ScanTo<Stop::kListed, Cs...>(p, end);
}

// Character data stops at '<', '&', ']' (for "]]>"), a carriage return (line ends are
// normalised), other controls and multi-byte characters.
inline const char* ScanText(const char* p, const char* end) {
  return ScanTo<Stop::kUncheckedText, '<', '&', ']'>(p, end);
}

// An attribute value stops at either quote, '&', '<', any control (white space becomes a
// blank) and multi-byte characters.
inline const char* ScanAttribute(const char* p, const char* end) {
  return ScanTo<Stop::kUnchecked, '"', '\'', '&', '<'>(p, end);
}

}  // namespace kalxml

#endif
