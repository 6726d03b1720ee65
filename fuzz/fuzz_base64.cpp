// Decodes the bytes (up to the first NUL) as base64 and checks what decoding promises: white
// space anywhere changes nothing, so the text with a blank after every character (which the
// block decoder never sees whole) decodes the same, byte for byte, failures included; the
// byte count is three quarters of the data characters; and the bytes, encoded again, decode
// to themselves.
#include <cstring>
#include <string>
#include <utility>

#include "FuzzSupport.h"
#include "KalCodePage.h"

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The result code and the bytes; a failure must hand out neither a buffer nor a length.
std::pair<int, std::string> Decode(const std::string& text) {
  unsigned char* data = nullptr;
  unsigned int length = 0;
  const int rc = KalCodePage::ConvertFromBase64(text.c_str(), data, length);
  if ((rc == 0) != (data != nullptr) || (rc != 0 && length != 0)) std::abort();
  const std::string bytes(reinterpret_cast<const char*>(data), data != nullptr ? length : 0);
  delete[] data;
  return {rc, bytes};
}

std::string Encode(const std::string& bytes) {
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t n = bytes.size() - i < 3 ? bytes.size() - i : 3;
    unsigned bits = 0;
    for (size_t k = 0; k < 3; ++k)
      bits = bits << 8 | (k < n ? static_cast<unsigned char>(bytes[i + k]) : 0);
    for (size_t k = 0; k < 4; ++k) text += k <= n ? kAlphabet[bits >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* chars = reinterpret_cast<const char*>(data);
  const std::string text(chars, strnlen(chars, size));
  std::string spread;
  for (char c : text) (spread += c) += ' ';
  const auto plain = Decode(text);
  if (Decode(spread) != plain) std::abort();
  if (plain.first != 0) return 0;
  size_t characters = 0;
  for (char c : text) characters += std::strchr(kAlphabet, c) != nullptr;
  if (plain.second.size() != characters * 3 / 4) std::abort();
  if (Decode(Encode(plain.second)) != std::make_pair(0, plain.second)) std::abort();
  return 0;
}
