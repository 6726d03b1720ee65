#include "KalCodePage.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "KalHResult.h"
#include "KalMemory.h"


#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define KAL_BASE64_AVX2 1
#endif

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

#ifdef KAL_BASE64_AVX2

// Characters left before a block is decoded: the block's 32 bytes are stored whole, so the
// text must still promise 32 bytes of output beyond the 24 the block gives at most.
constexpr ptrdiff_t kAvx2Reach = 48;

// Decodes blocks of 32 characters while they are alphabet characters only; stops at the
// whole group before the first other character. Returns where decoding stopped.
__attribute__((target("avx2"))) const char* DecodeBlocksAvx2(const char* p, const char* end,
                                                             unsigned char*& out) {
  // Each high nibble has a class bit, each low nibble the bits of the classes it is foreign
  // in; the valid low nibbles are B F under 2, 0-9 under 3, 1-F under 4 and 6, 0-A under 5
  // and 7, none under the others.
  const __m256i lowBits =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A));
  const __m256i highBits =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                                0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10));
  // What turns a character into its six bits, by high nibble; '/' shares its high nibble
  // with '+' and is sent to the entry before.
  const __m256i offsets = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0));
  const __m256i pack = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
  const __m256i nibble = _mm256_set1_epi8(0x0F), slash = _mm256_set1_epi8('/');
  while (end - p >= kAvx2Reach) {
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i high = _mm256_and_si256(_mm256_srli_epi32(c, 4), nibble);
    const __m256i low = _mm256_and_si256(c, nibble);
    const __m256i foreign =
        _mm256_and_si256(_mm256_shuffle_epi8(lowBits, low), _mm256_shuffle_epi8(highBits, high));
    const unsigned valid = static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_cmpeq_epi8(foreign, _mm256_setzero_si256())));
    const __m256i six = _mm256_add_epi8(
        c, _mm256_shuffle_epi8(offsets, _mm256_add_epi8(high, _mm256_cmpeq_epi8(c, slash))));
    // Pairs of six bits into twelve, pairs of twelve into the group's 24, then the three
    // bytes of each group in order and the two lanes' twelve bytes side by side.
    const __m256i twelve = _mm256_maddubs_epi16(six, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(twelve, _mm256_set1_epi32(0x00011000));
    const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, pack),
                                                      _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), bytes);
    if (valid == 0xFFFFFFFFu) {
      out += 24;
      p += 32;
      continue;
    }
    // Groups past the first foreign character were stored too; they are written again.
    const int first = __builtin_ctz(~valid);
    out += first / 4 * 3;
    p += first / 4 * 4;
    // White space opening a group, as after a line, is dropped and the blocks go on; any
    // other stop is the general path's.
    if (Lookup(p) != kSpace) return p;
    while (p < end && Lookup(p) == kSpace) ++p;
  }
  return p;
}

bool HasAvx2() {
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return has;
}

#endif

// Decodes the text into `out`, which has room for every byte the text can give; the count
// of bytes written, or -1 when the text is not base64.
long long Decode(const char* p, const char* end, unsigned char* out) {
  unsigned char* const start = out;
#ifdef KAL_BASE64_AVX2
  const bool avx2 = HasAvx2();
#endif
  for (;;) {
    // Blocks are tried only after a clean group, so that text with white space in every
    // group does not pay for a block each time.
    while (end - p >= 4) {
      const unsigned a = Lookup(p), b = Lookup(p + 1), c = Lookup(p + 2), d = Lookup(p + 3);
      if ((a | b | c | d) & 0xC0) break;
      const unsigned bits = a << 18 | b << 12 | c << 6 | d;
      out[0] = static_cast<unsigned char>(bits >> 16);
      out[1] = static_cast<unsigned char>(bits >> 8);
      out[2] = static_cast<unsigned char>(bits);
      out += 3;
      p += 4;
#ifdef KAL_BASE64_AVX2
      if (avx2) p = DecodeBlocksAvx2(p, end, out);
#endif
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
  KalAdviseHugePages(out, capacity);
  const long long written = Decode(text, text + size, out);
  if (written < 0) {
    delete[] out;
    return E_FAIL;
  }
  data = out;
  length = static_cast<unsigned int>(written);
  return S_OK;
}
