#include "KalXmlEncoding.h"

#include <errno.h>
#include <iconv.h>

#include <cstring>

#include "KalXmlChars.h"

namespace kalxml {

namespace {

bool Starts(const unsigned char* data, size_t size, const char* bytes, size_t n) {
  return size >= n && std::memcmp(data, bytes, n) == 0;
}

// The wide encodings are recognised by their marks or by how "<" is laid out, before any
// declaration can be read.
const char* WideEncoding(const unsigned char* data, size_t size, size_t& skip) {
  static const struct {
    const char* mark;
    size_t length;
    const char* encoding;
  } kMarks[] = {{"\x00\x00\xFE\xFF", 4, "UTF-32BE"},
                {"\xFF\xFE\x00\x00", 4, "UTF-32LE"},
                {"\xFE\xFF", 2, "UTF-16BE"},
                {"\xFF\xFE", 2, "UTF-16LE"}};
  for (const auto& m : kMarks) {
    if (Starts(data, size, m.mark, m.length)) {
      skip = m.length;
      return m.encoding;
    }
  }
  skip = 0;
  if (Starts(data, size, "\x00\x00\x00<", 4)) return "UTF-32BE";
  if (Starts(data, size, "<\x00\x00\x00", 4)) return "UTF-32LE";
  if (size >= 4 && data[0] == 0 && data[1] == '<' && data[2] == 0 && data[3] != 0)
    return "UTF-16BE";
  if (size >= 4 && data[0] == '<' && data[1] == 0 && data[2] != 0 && data[3] == 0)
    return "UTF-16LE";
  return nullptr;
}

// The encoding name of a declaration at the start of an ASCII-compatible document; empty
// when there is none. The declaration's grammar is checked later, by the reader.
std::string DeclaredEncoding(const char* text, size_t size) {
  if (size < 6 || std::memcmp(text, "<?xml", 5) != 0 || !IsSpace(text[5])) return std::string();
  const void* close = memmem(text, size, "?>", 2);
  if (close == nullptr) return std::string();
  const std::string declaration(text, static_cast<const char*>(close) - text);
  size_t at = declaration.find("encoding");
  while (at != std::string::npos && !IsSpace(declaration[at - 1])) {
    at = declaration.find("encoding", at + 1);
  }
  if (at == std::string::npos) return std::string();
  size_t q = at + 8;
  while (q < declaration.size() && IsSpace(declaration[q])) ++q;
  if (q >= declaration.size() || declaration[q] != '=') return std::string();
  ++q;
  while (q < declaration.size() && IsSpace(declaration[q])) ++q;
  if (q >= declaration.size() || (declaration[q] != '"' && declaration[q] != '\'')) {
    return std::string();
  }
  const size_t end = declaration.find(declaration[q], q + 1);
  if (end == std::string::npos) return std::string();
  return declaration.substr(q + 1, end - q - 1);
}

}  // namespace

bool IsEncodingName(const std::string& name) {
  if (name.empty()) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    const bool other = (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
    if (!letter && (i == 0 || !other)) return false;
  }
  return true;
}

namespace {

std::string Upper(std::string name) {
  for (char& c : name) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
  return name;
}

bool Convert(const char* from, const char* data, size_t size, std::string& out) {
  iconv_t cd = iconv_open("UTF-8", from);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    // Common spellings such as "latin-1" differ from the C library's aliases only by
    // their separators.
    std::string plain;
    for (const char* c = from; *c != '\0'; ++c) {
      if (*c != '-' && *c != '_') plain.push_back(*c);
    }
    cd = iconv_open("UTF-8", plain.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  }
  out.clear();
  out.resize(size + size / 2 + 16);
  char* in = const_cast<char*>(data);
  size_t inLeft = size;
  size_t done = 0;
  bool ok = true;
  while (inLeft > 0) {
    char* o = &out[done];
    size_t outLeft = out.size() - done;
    const size_t rc = iconv(cd, &in, &inLeft, &o, &outLeft);
    done = out.size() - outLeft;
    if (rc != static_cast<size_t>(-1)) continue;
    if (errno == E2BIG) {
      out.resize(out.size() * 2);
    } else {
      ok = false;  // EILSEQ or EINVAL: bytes invalid in the encoding, or cut short
      break;
    }
  }
  iconv_close(cd);
  out.resize(ok ? done : 0);
  return ok;
}

}  // namespace

bool ToUtf8(const unsigned char* data, size_t size, std::string& converted, const char*& text,
            size_t& length) {
  const char* bytes = reinterpret_cast<const char*>(data);
  size_t skip = 0;
  if (const char* wide = WideEncoding(data, size, skip)) {
    if (!Convert(wide, bytes + skip, size - skip, converted)) return false;
    text = converted.data();
    length = converted.size();
    return true;
  }
  text = bytes;
  length = size;
  if (Starts(data, size, "\xEF\xBB\xBF", 3)) {
    text += 3;
    length -= 3;
    return true;
  }
  const std::string declared = Upper(DeclaredEncoding(text, length));
  if (!declared.empty() && !IsEncodingName(declared)) return false;
  // Eight-bit text labelled as a wide encoding cannot be what it says; it is read as UTF-8,
  // as other readers do.
  if (declared.empty() || declared == "UTF-8" || declared == "UTF8" ||
      declared.compare(0, 6, "UTF-16") == 0 || declared.compare(0, 6, "UTF-32") == 0 ||
      declared == "UCS-2" || declared == "UCS-4" || declared == "ISO-10646-UCS-2" ||
      declared == "ISO-10646-UCS-4") {
    return true;
  }
  if (!Convert(declared.c_str(), text, length, converted)) return false;
  text = converted.data();
  length = converted.size();
  return true;
}

}  // namespace kalxml
