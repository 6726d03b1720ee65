// A single-pass XML reader that builds the element tree of KalLightXmlElement.
//
// It reads the input once and copies into the document's arena only what the tree keeps:
// each distinct name once, attribute values and text. Markup, indentation and repeated names
// are never copied, which keeps a loaded document near the size of its text and the load
// near the cost of one pass over it. The walk keeps its open elements on an explicit stack,
// so nesting depth is bounded by memory, never by the call stack.
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "KalLightXml.h"
#include "KalLightXmlElement.h"
#include "KalXmlDocument.h"

namespace {

enum CharClass : unsigned char {
  kSpace = 1,     // XML white space
  kNameStop = 2,  // ends a name
};

struct CharTable {
  unsigned char c[256];
  CharTable() {
    std::memset(c, 0, sizeof(c));
    for (unsigned char s : {' ', '\t', '\n', '\r'}) c[s] = kSpace | kNameStop;
    for (unsigned char s : {'/', '>', '=', '<', '"', '\'', '&', '?', '!', '\0'}) c[s] |= kNameStop;
  }
};
const CharTable kChars;

inline bool IsSpace(char c) { return (kChars.c[static_cast<unsigned char>(c)] & kSpace) != 0; }
inline bool IsNameStop(char c) { return (kChars.c[static_cast<unsigned char>(c)] & kNameStop) != 0; }

size_t EncodeUtf8(unsigned long cp, char* out) {
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

// Decodes the reference starting at p ('&') into out. Returns the bytes consumed, or 0 when
// this is no reference we know: the '&' is then kept as written, as lenient readers do.
size_t DecodeReference(const char* p, const char* end, char* out, size_t* written) {
  const char* semi = static_cast<const char*>(std::memchr(p, ';', end - p < 12 ? end - p : 12));
  if (semi == nullptr) return 0;
  const size_t n = semi - p - 1;
  const char* name = p + 1;
  char c = 0;
  if (n == 2 && name[0] == 'l' && name[1] == 't') c = '<';
  else if (n == 2 && name[0] == 'g' && name[1] == 't') c = '>';
  else if (n == 3 && std::memcmp(name, "amp", 3) == 0) c = '&';
  else if (n == 4 && std::memcmp(name, "apos", 4) == 0) c = '\'';
  else if (n == 4 && std::memcmp(name, "quot", 4) == 0) c = '"';
  if (c != 0) {
    out[0] = c;
    *written = 1;
    return n + 2;
  }
  if (n < 2 || name[0] != '#') return 0;
  unsigned long cp = 0;
  const bool hex = name[1] == 'x';
  const char* d = name + (hex ? 2 : 1);
  if (d == semi) return 0;
  for (; d < semi; ++d) {
    int v;
    if (*d >= '0' && *d <= '9') v = *d - '0';
    else if (hex && *d >= 'a' && *d <= 'f') v = *d - 'a' + 10;
    else if (hex && *d >= 'A' && *d <= 'F') v = *d - 'A' + 10;
    else return 0;
    cp = cp * (hex ? 16 : 10) + v;
    if (cp > 0x10FFFF) return 0;
  }
  if (cp == 0 || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  *written = EncodeUtf8(cp, out);
  return n + 2;
}

// Copies raw text into out, resolving references and normalising line ends ("\r\n" and a
// lone "\r" become "\n"); in attribute values every white-space character becomes a blank.
// The output is never longer than the input. Returns the output length.
size_t DecodeText(const char* b, const char* e, char* out, bool references, bool attribute) {
  char* o = out;
  while (b < e) {
    const char c = *b;
    if (c == '&' && references) {
      size_t written = 0;
      size_t used = DecodeReference(b, e, o, &written);
      if (used != 0) {
        o += written;
        b += used;
        continue;
      }
    } else if (c == '\r') {
      *o++ = attribute ? ' ' : '\n';
      b += (b + 1 < e && b[1] == '\n') ? 2 : 1;
      continue;
    } else if (attribute && (c == '\n' || c == '\t')) {
      *o++ = ' ';
      ++b;
      continue;
    }
    *o++ = c;
    ++b;
  }
  return o - out;
}

bool NeedsDecoding(const char* b, const char* e, bool attribute) {
  const size_t n = e - b;
  if (std::memchr(b, '&', n) != nullptr || std::memchr(b, '\r', n) != nullptr) return true;
  return attribute && (std::memchr(b, '\n', n) != nullptr || std::memchr(b, '\t', n) != nullptr);
}

void AppendUtf8(std::string& out, unsigned long cp) {
  char buffer[4];
  out.append(buffer, EncodeUtf8(cp, buffer));
}

// Documents are UTF-8; a UTF-16 one (by its byte-order mark or its first characters) is
// converted first.
bool ConvertUtf16(const unsigned char* data, size_t size, std::string& out) {
  bool big;
  size_t i = 0;
  if (size >= 2 && data[0] == 0xFF && data[1] == 0xFE) {
    big = false;
    i = 2;
  } else if (size >= 2 && data[0] == 0xFE && data[1] == 0xFF) {
    big = true;
    i = 2;
  } else if (size >= 4 && data[0] == '<' && data[1] == 0 && data[2] != 0 && data[3] == 0) {
    big = false;
  } else if (size >= 4 && data[0] == 0 && data[1] == '<' && data[2] == 0 && data[3] != 0) {
    big = true;
  } else {
    return false;
  }
  out.reserve(size);
  auto unit = [&](size_t k) -> unsigned {
    return big ? (data[k] << 8) | data[k + 1] : (data[k + 1] << 8) | data[k];
  };
  for (; i + 1 < size; i += 2) {
    unsigned long cp = unit(i);
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 3 < size) {
      unsigned low = unit(i + 2);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      } else {
        cp = 0xFFFD;
      }
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    AppendUtf8(out, cp);
  }
  return true;
}

// A document that declares ISO-8859-1 (Latin-1) is converted to UTF-8 first; every other
// declaration is read as UTF-8, its ASCII part being the same.
bool ConvertLatin1(const unsigned char* data, size_t size, std::string& out) {
  if (size < 6 || std::memcmp(data, "<?xml", 5) != 0) return false;
  const unsigned char* end = static_cast<const unsigned char*>(std::memchr(data, '>', size));
  if (end == nullptr) return false;
  std::string declaration(reinterpret_cast<const char*>(data), end - data);
  const size_t at = declaration.find("encoding");
  if (at == std::string::npos) return false;
  const size_t quote = declaration.find_first_of("\"'", at);
  if (quote == std::string::npos) return false;
  const size_t close = declaration.find(declaration[quote], quote + 1);
  if (close == std::string::npos) return false;
  std::string name = declaration.substr(quote + 1, close - quote - 1);
  for (char& c : name) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
  if (name != "ISO-8859-1" && name != "LATIN1" && name != "ISO_8859-1" && name != "L1") return false;
  out.reserve(size + size / 8);
  for (size_t i = 0; i < size; ++i) AppendUtf8(out, data[i]);
  return true;
}

}  // namespace

class KalXmlBuilder {
 public:
  KalXmlBuilder(KalXmlDocument& document, KalLightXmlRootElement& root)
      : _Doc(document), _Arena(document.Arena()), _Root(root) {}

  bool Parse(const char* begin, const char* end);

 private:
  struct Frame {
    KalLightXmlElement* element;
    KalLightXmlElement* lastChild;
    const char* wsBegin;  // first white-space-only run of text, kept only if it is all there is
    const char* wsEnd;
    char* growing;        // value buffer being appended to, when the value has several pieces
    size_t capacity;
  };
  struct PendingAttribute {
    const KalUnicodeString* name;
    const char* text;
    size_t length;
  };

  bool SkipMarkup(const char*& p, const char* end);
  bool StartTag(const char*& p, const char* end, bool isRoot);
  bool EndTag(const char*& p, const char* end);
  bool AddText(Frame& f, const char* b, const char* e, bool cdata);
  bool CloseFrame(Frame& f);
  const char* CopyDecoded(const char* b, const char* e, bool references, bool attribute,
                          size_t* length);

  KalXmlDocument& _Doc;
  KalXmlArena& _Arena;
  KalLightXmlRootElement& _Root;
  std::vector<Frame> _Stack;
  std::vector<PendingAttribute> _Attributes;
};

// Skips a comment, processing instruction, document type declaration or XML declaration
// starting at p ('<'). False when it is none of these or is not terminated.
bool KalXmlBuilder::SkipMarkup(const char*& p, const char* end) {
  const size_t left = end - p;
  if (left >= 4 && std::memcmp(p, "<!--", 4) == 0) {
    const void* q = memmem(p + 4, left - 4, "-->", 3);
    if (q == nullptr) return false;
    p = static_cast<const char*>(q) + 3;
    return true;
  }
  if (left >= 2 && p[1] == '?') {
    const void* q = memmem(p + 2, left - 2, "?>", 2);
    if (q == nullptr) return false;
    p = static_cast<const char*>(q) + 2;
    return true;
  }
  if (left >= 9 && std::memcmp(p, "<!DOCTYPE", 9) == 0) {
    int depth = 0;
    for (const char* q = p + 9; q < end; ++q) {
      if (*q == '"' || *q == '\'') {
        const void* close = std::memchr(q + 1, *q, end - q - 1);
        if (close == nullptr) return false;
        q = static_cast<const char*>(close);
      } else if (*q == '[') {
        ++depth;
      } else if (*q == ']') {
        --depth;
      } else if (*q == '>' && depth <= 0) {
        p = q + 1;
        return true;
      }
    }
    return false;
  }
  return false;
}

const char* KalXmlBuilder::CopyDecoded(const char* b, const char* e, bool references,
                                       bool attribute, size_t* length) {
  const size_t raw = e - b;
  if (raw == 0) {
    *length = 0;
    return "";
  }
  char* out = _Arena.AllocateText(raw + 1);
  if (out == nullptr) return nullptr;
  size_t n = raw;
  if (NeedsDecoding(b, e, attribute)) {
    n = DecodeText(b, e, out, references, attribute);
    _Arena.Shrink(out, n + 1);
  } else {
    std::memcpy(out, b, raw);
  }
  out[n] = '\0';
  *length = n;
  return out;
}

bool KalXmlBuilder::AddText(Frame& f, const char* b, const char* e, bool cdata) {
  if (!cdata) {
    const char* q = b;
    while (q < e && IsSpace(*q)) ++q;
    if (q == e) {
      if (f.wsBegin == nullptr) {
        f.wsBegin = b;
        f.wsEnd = e;
      }
      return true;
    }
  }
  KalLightXmlElement* el = f.element;
  if (el->_Value.IsEmpty() && f.growing == nullptr) {
    size_t n = 0;
    const char* text = CopyDecoded(b, e, !cdata, false, &n);
    if (text == nullptr) return false;
    el->_Value = KalUnicodeString::Borrow(text, static_cast<int>(n));
    return true;
  }
  // Several pieces (text around child elements, or split by comments or CDATA): append in a
  // buffer that doubles, so many pieces cost linear time.
  const size_t old = el->_Value.GetLengthInChar();
  const size_t need = old + (e - b) + 1;
  if (f.growing == nullptr || need > f.capacity) {
    size_t capacity = need < 2 * f.capacity ? 2 * f.capacity : need;
    if (capacity < 64) capacity = 64;
    char* grown = _Arena.AllocateText(capacity);
    if (grown == nullptr) return false;
    std::memcpy(grown, el->_Value.ConvertToChar(), old);
    f.growing = grown;
    f.capacity = capacity;
  }
  const size_t n = DecodeText(b, e, f.growing + old, !cdata, false);
  f.growing[old + n] = '\0';
  el->_Value = KalUnicodeString::Borrow(f.growing, static_cast<int>(old + n));
  return true;
}

bool KalXmlBuilder::CloseFrame(Frame& f) {
  KalLightXmlElement* el = f.element;
  if (el->_pFirstChild == nullptr && el->_Value.IsEmpty() && f.wsBegin != nullptr) {
    size_t n = 0;
    const char* text = CopyDecoded(f.wsBegin, f.wsEnd, true, false, &n);
    if (text == nullptr) return false;
    el->_Value = KalUnicodeString::Borrow(text, static_cast<int>(n));
  }
  return true;
}

bool KalXmlBuilder::StartTag(const char*& p, const char* end, bool isRoot) {
  const char* name = ++p;
  while (p < end && !IsNameStop(*p)) ++p;
  if (p == name || p >= end) return false;
  const KalUnicodeString* type = _Doc.Intern(name, p - name);
  if (type == nullptr) return false;

  _Attributes.clear();
  bool selfClosing = false;
  for (;;) {
    const char* before = p;
    while (p < end && IsSpace(*p)) ++p;
    if (p >= end) return false;
    if (*p == '/') {
      if (p + 1 >= end || p[1] != '>') return false;
      p += 2;
      selfClosing = true;
      break;
    }
    if (*p == '>') {
      ++p;
      break;
    }
    if (p == before) return false;  // attributes are separated by white space
    const char* an = p;
    while (p < end && !IsNameStop(*p)) ++p;
    if (p == an) return false;
    const char* anEnd = p;
    while (p < end && IsSpace(*p)) ++p;
    if (p >= end || *p != '=') return false;
    ++p;
    while (p < end && IsSpace(*p)) ++p;
    if (p >= end || (*p != '"' && *p != '\'')) return false;
    const char quote = *p++;
    const char* close = static_cast<const char*>(std::memchr(p, quote, end - p));
    if (close == nullptr) return false;
    const KalUnicodeString* attributeName = _Doc.Intern(an, anEnd - an);
    size_t length = 0;
    const char* text = CopyDecoded(p, close, true, true, &length);
    if (attributeName == nullptr || text == nullptr) return false;
    _Attributes.push_back({attributeName, text, length});
    p = close + 1;
  }

  KalLightXmlElement* el = isRoot ? &_Root : _Doc.NewElement();
  if (el == nullptr) return false;
  el->_pType = type;
  if (!_Attributes.empty()) {
    void* where = _Arena.Allocate(sizeof(KalXmlAttribute) * _Attributes.size());
    if (where == nullptr) return false;
    auto* attributes = static_cast<KalXmlAttribute*>(where);
    for (size_t i = 0; i < _Attributes.size(); ++i) {
      const PendingAttribute& a = _Attributes[i];
      new (&attributes[i])
          KalXmlAttribute{a.name, KalUnicodeString::Borrow(a.text, static_cast<int>(a.length))};
    }
    el->_pAttributes = attributes;
    el->_NbAttributes = static_cast<int>(_Attributes.size());
  }
  if (!isRoot) {
    Frame& parent = _Stack.back();
    if (parent.lastChild == nullptr) {
      parent.element->_pFirstChild = el;
    } else {
      parent.lastChild->_pNextSibling = el;
    }
    parent.lastChild = el;
  }
  Frame f{el, nullptr, nullptr, nullptr, nullptr, 0};
  if (selfClosing) return isRoot ? CloseFrame(f) : true;
  _Stack.push_back(f);
  return true;
}

bool KalXmlBuilder::EndTag(const char*& p, const char* end) {
  p += 2;
  const char* name = p;
  while (p < end && !IsNameStop(*p)) ++p;
  const KalUnicodeString& expected = _Stack.back().element->GetType();
  if (static_cast<size_t>(p - name) != static_cast<size_t>(expected.GetLengthInChar()) ||
      std::memcmp(name, expected.ConvertToChar(), p - name) != 0) {
    return false;
  }
  while (p < end && IsSpace(*p)) ++p;
  if (p >= end || *p != '>') return false;
  ++p;
  if (!CloseFrame(_Stack.back())) return false;
  _Stack.pop_back();
  return true;
}

bool KalXmlBuilder::Parse(const char* p, const char* end) {
  if (end - p >= 3 && std::memcmp(p, "\xEF\xBB\xBF", 3) == 0) p += 3;
  bool rootSeen = false;
  try {
    for (;;) {
      // Outside the document element: white space, comments, declarations.
      while (p < end && IsSpace(*p)) ++p;
      if (p >= end) return rootSeen;
      if (*p != '<' || end - p < 2) return false;
      if (p[1] == '?' || p[1] == '!') {
        if (!SkipMarkup(p, end)) return false;
        continue;
      }
      if (p[1] == '/' || rootSeen) return false;
      rootSeen = true;
      if (!StartTag(p, end, true)) return false;

      while (!_Stack.empty()) {
        const char* lt = static_cast<const char*>(std::memchr(p, '<', end - p));
        if (lt == nullptr) return false;
        if (lt != p && !AddText(_Stack.back(), p, lt, false)) return false;
        p = lt;
        if (end - p < 2) return false;
        const char next = p[1];
        if (next == '/') {
          if (!EndTag(p, end)) return false;
        } else if (next == '!' && end - p >= 9 && std::memcmp(p, "<![CDATA[", 9) == 0) {
          const void* close = memmem(p + 9, end - p - 9, "]]>", 3);
          if (close == nullptr) return false;
          if (!AddText(_Stack.back(), p + 9, static_cast<const char*>(close), true)) return false;
          p = static_cast<const char*>(close) + 3;
        } else if (next == '!' || next == '?') {
          if (next == '!' && (end - p < 4 || std::memcmp(p, "<!--", 4) != 0)) return false;
          if (!SkipMarkup(p, end)) return false;
        } else {
          if (!StartTag(p, end, false)) return false;
        }
      }
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
}

int KalLightXmlParser::Parse(KalLightXmlInputStream& input, KalLightXmlElementItf& root) {
  auto* target = dynamic_cast<KalLightXmlRootElement*>(&root);
  if (target == nullptr) return 0;
  const unsigned char* data = nullptr;
  size_t size = 0;
  if (!input.GetBytes(data, size)) {
    target->Reset(0);
    return 0;
  }
  std::string converted;
  if (ConvertUtf16(data, size, converted) || ConvertLatin1(data, size, converted)) {
    data = reinterpret_cast<const unsigned char*>(converted.data());
    size = converted.size();
  }
  // Mapped arena memory is free until touched, so reserving more than the tree can need
  // keeps a big document in one chunk at no cost.
  KalXmlDocument* document = target->Reset(size + size / 2 + 64 * 1024);
  if (document == nullptr) return 0;
  KalXmlBuilder builder(*document, *target);
  const char* begin = reinterpret_cast<const char*>(data);
  const bool ok = builder.Parse(begin, begin + size);
  document->ReleaseInternTable();
  return ok ? 1 : 0;
}
