#include "KalCodePage.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <new>

#include "KalHResult.h"

namespace {

// Table values: 0..63 are the characters' six bits; the others all have a bit of 0xC0 set,
// so that a single test on four ORed entries tells a whole group of data characters apart.
constexpr unsigned char kSpace = 0x40;
constexpr unsigned char kPad = 0x41;
constexpr unsigned char kBad = 0x80;

struct DecodeTable {
  unsigned char value[256];
  constexpr DecodeTable() : value() {
    for (int i = 0; i < 256; ++i) value[i] = kBad;
    const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int i = 0; i < 64; ++i) value[static_cast<unsigned char>(alphabet[i])] = i;
    for (const char* c = " \t\n\r\f\v"; *c != '\0'; ++c)
      value[static_cast<unsigned char>(*c)] = kSpace;
    value[static_cast<unsigned char>('=')] = kPad;
  }
};

constexpr DecodeTable kTable;

inline unsigned char Lookup(const char* p) { return kTable.value[static_cast<unsigned char>(*p)]; }

// Decodes the text into `out`, which has room for every byte the text can give; the count
// of bytes written, or -1 when the text is not base64.
long long Decode(const char* p, const char* end, unsigned char* out) {
  unsigned char* const start = out;
  for (;;) {
    while (end - p >= 4) {
      const unsigned a = Lookup(p), b = Lookup(p + 1), c = Lookup(p + 2), d = Lookup(p + 3);
      if ((a | b | c | d) & 0xC0) break;
      const unsigned bits = a << 18 | b << 12 | c << 6 | d;
      out[0] = static_cast<unsigned char>(bits >> 16);
      out[1] = static_cast<unsigned char>(bits >> 8);
      out[2] = static_cast<unsigned char>(bits);
      out += 3;
      p += 4;
    }
    // One group gathered around white space, or the text's last, short or padded group.
    unsigned char group[4];
    int n = 0;
    while (n < 4 && p < end) {
      const unsigned char v = Lookup(p++);
      if (v == kSpace) continue;
      if (v == kBad) return -1;
      group[n++] = v;
    }
    if (n == 0) return out - start;
    int significant = 0;
    while (significant < n && group[significant] != kPad) ++significant;
    if (significant < 2) return -1;
    if (significant < n) {
      // Padding closes a whole group, and only the text's last one.
      if (n < 4) return -1;
      for (int i = significant; i < 4; ++i)
        if (group[i] != kPad) return -1;
      while (p < end && Lookup(p) == kSpace) ++p;
      if (p != end) return -1;
    }
    unsigned bits = 0;
    for (int i = 0; i < 4; ++i) bits = bits << 6 | (i < significant ? group[i] : 0);
    const int bytes = significant - 1;
    for (int i = 0; i < bytes; ++i) out[i] = static_cast<unsigned char>(bits >> (16 - 8 * i));
    out += bytes;
    if (bytes < 3) return out - start;
  }
}

}  // namespace

int KalCodePage::ConvertFromBase64(const char* text, unsigned char*& data, unsigned int& length) {
  data = nullptr;
  length = 0;
  if (text == nullptr) return E_FAIL;
  const size_t size = std::strlen(text);
  // Four characters never give more than three bytes; a short last group gives fewer bytes
  // than it has characters.
  const size_t capacity = size / 4 * 3 + size % 4;
  if (capacity > UINT_MAX) return E_OUTOFMEMORY;
  unsigned char* out = new (std::nothrow) unsigned char[capacity > 0 ? capacity : 1];
  if (out == nullptr) return E_OUTOFMEMORY;
  const long long written = Decode(text, text + size, out);
  if (written < 0) {
    delete[] out;
    return E_FAIL;
  }
  data = out;
  length = static_cast<unsigned int>(written);
  return S_OK;
}
