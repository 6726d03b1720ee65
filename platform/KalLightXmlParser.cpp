// A single-pass XML reader that builds the element tree of KalLightXmlElement.
//
// It reads the input once and copies into the document's arena only what the tree keeps:
// each distinct name once, attribute values and text. Markup, indentation and repeated names
// are never copied, which keeps a loaded document near the size of its text and the load
// near the cost of one pass over it. The walk keeps its open elements on an explicit stack,
// so nesting depth is bounded by memory, never by the call stack.
//
// Text is kept as XML defines it, with one exception: a run of white space between two tags
// of an element that has child elements is indentation and is dropped. Comments and
// processing instructions are invisible, so text on either side of them joins.
#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "KalLightXml.h"
#include "KalXmlBuilder.h"
#include "KalXmlChars.h"
#include "KalXmlEncoding.h"

using kalxml::FindFirstOf;
using kalxml::IsSpace;

namespace {

// The replacement texts that entities produce together may not exceed a fixed allowance
// plus a multiple of the document, so a few nested declarations cannot make the reader
// produce gigabytes.
constexpr size_t kExpansionAllowance = 8u << 20;
constexpr size_t kExpansionPerInputByte = 4;

char Predefined(const std::string& name) {
  if (name == "lt") return '<';
  if (name == "gt") return '>';
  if (name == "amp") return '&';
  if (name == "apos") return '\'';
  if (name == "quot") return '"';
  return 0;
}

}  // namespace

KalXmlBuilder::KalXmlBuilder(KalXmlDocument& document, KalLightXmlRootElement& root,
                             size_t inputSize)
    : _Doc(document),
      _Arena(document.Arena()),
      _Root(root),
      _ExpansionLeft(kExpansionAllowance + kExpansionPerInputByte * inputSize) {}

// An entity is expanded inside itself never, and only so deep and so much in all.
bool KalXmlBuilder::EnterEntity(Entity& entity) {
  if (entity.expanding || _EntityDepth >= kMaxEntityDepth) return false;
  if (entity.text.size() > _ExpansionLeft) return false;
  _ExpansionLeft -= entity.text.size();
  entity.expanding = true;
  ++_EntityDepth;
  return true;
}

void KalXmlBuilder::LeaveEntity(Entity& entity) {
  entity.expanding = false;
  --_EntityDepth;
}

KalXmlBuilder::Entity* KalXmlBuilder::FindEntity(const std::string& name) {
  if (_Entities.empty()) return nullptr;
  auto it = _Entities.find(name);
  return it == _Entities.end() ? nullptr : &it->second;
}

// Reads the reference at p ('&'). A character reference must be complete and name an
// allowed character; "&" followed by anything but a name and ';' is no reference and stays
// as written, as lenient readers keep it.
KalXmlBuilder::Reference KalXmlBuilder::ReadReference(const char*& p, const char* end, uint32_t& cp,
                                                      std::string& name) {
  const char* q = p + 1;
  if (q < end && *q == '#') {
    ++q;
    const bool hex = q < end && *q == 'x';
    if (hex) ++q;
    const char* digits = q;
    uint32_t value = 0;
    for (; q < end && *q != ';'; ++q) {
      int v;
      const char c = *q;
      if (c >= '0' && c <= '9')
        v = c - '0';
      else if (hex && c >= 'a' && c <= 'f')
        v = c - 'a' + 10;
      else if (hex && c >= 'A' && c <= 'F')
        v = c - 'A' + 10;
      else
        return Reference::kMalformed;
      value = value * (hex ? 16 : 10) + v;
      if (value > 0x10FFFF) return Reference::kMalformed;
    }
    if (q == digits || q >= end || !kalxml::IsChar(value)) return Reference::kMalformed;
    cp = value;
    p = q + 1;
    return Reference::kCharacter;
  }
  const char* nameEnd = kalxml::ScanName(q, end);
  if (nameEnd == nullptr || nameEnd >= end || *nameEnd != ';') return Reference::kNone;
  name.assign(q, nameEnd);
  p = nameEnd + 1;
  return Reference::kEntity;
}

// Reads the reference at q ('&') and appends what it stands for when that is plain text: a
// character, a predefined entity, or the reference as written (a lone '&', an unknown
// entity). A declared entity is left to the caller in `entity`. False when malformed.
bool KalXmlBuilder::ResolveReference(const char*& q, const char* end, std::string& out,
                                     Entity*& entity) {
  entity = nullptr;
  const char* at = q;
  uint32_t cp = 0;
  std::string name;
  switch (ReadReference(q, end, cp, name)) {
    case Reference::kMalformed:
      return false;
    case Reference::kNone:
      out.push_back('&');
      ++q;
      return true;
    case Reference::kCharacter:
      kalxml::AppendUtf8(out, cp);
      return true;
    case Reference::kEntity:
      break;
  }
  if (const char c = Predefined(name)) {
    out.push_back(c);
    return true;
  }
  entity = FindEntity(name);
  if (entity == nullptr) out.append(at, q);
  return true;
}

bool KalXmlBuilder::Append(const char* data, size_t length) {
  if (length == 0) return true;
  Frame& f = _Stack.back();
  KalLightXmlElement* el = f.element;
  if (el->_Value.IsEmpty() && f.growing == nullptr) {
    char* text = _Arena.CopyText(data, length);
    if (text == nullptr) return false;
    el->_Value = KalUnicodeString::Borrow(text, static_cast<int>(length));
    return true;
  }
  // Several pieces (text around child elements, or split by comments, CDATA or references):
  // append in a buffer that doubles, so many pieces cost linear time.
  const size_t old = el->_Value.GetLengthInChar();
  const size_t need = old + length + 1;
  if (f.growing == nullptr || need > f.capacity) {
    size_t capacity = need < 2 * f.capacity ? 2 * f.capacity : need;
    if (capacity < 64) capacity = 64;
    char* grown = _Arena.AllocateText(capacity);
    if (grown == nullptr) return false;
    std::memcpy(grown, el->_Value.ConvertToChar(), old);
    f.growing = grown;
    f.capacity = capacity;
  }
  std::memcpy(f.growing + old, data, length);
  f.growing[old + length] = '\0';
  el->_Value = KalUnicodeString::Borrow(f.growing, static_cast<int>(old + length));
  return true;
}

// Document text: "\r\n" and a lone "\r" become "\n".
bool KalXmlBuilder::AppendNormalised(const char* b, const char* e) {
  const char* cr = FindFirstOf<'\r'>(b, e);
  if (cr == e) return Append(b, e - b);
  _Scratch.assign(b, cr);
  for (const char* q = cr; q < e; ++q) {
    if (*q != '\r') {
      _Scratch.push_back(*q);
      continue;
    }
    _Scratch.push_back('\n');
    if (q + 1 < e && q[1] == '\n') ++q;
  }
  return Append(_Scratch.data(), _Scratch.size());
}

bool KalXmlBuilder::FlushWhiteSpace() {
  for (const WhiteSpace& w : _WhiteSpace) {
    if (!(w.normalise ? AppendNormalised(w.begin, w.end) : Append(w.begin, w.end - w.begin))) {
      return false;
    }
  }
  _WhiteSpace.clear();
  return true;
}

// A tag ends the current run of text. White space alone is dropped, unless it is all that a
// closing element without children held.
bool KalXmlBuilder::EndRun(bool closing) {
  const bool whole = closing && _Stack.back().element->_pFirstChild == nullptr;
  if (whole && !FlushWhiteSpace()) return false;
  _WhiteSpace.clear();
  _RunHasContent = false;
  return true;
}

// Finds the end of the character data at p (the next '<'), checking its characters on the
// way; plain tells whether it can be kept as it is (no reference, carriage return or ']').
bool KalXmlBuilder::CharacterData(const char* p, const char* end, const char*& stop, bool& plain) {
  plain = true;
  for (;;) {
    p = kalxml::ScanText(p, end);
    if (p == end || *p == '<') break;
    const char c = *p;
    if (static_cast<unsigned char>(c) >= 0x80) {
      const size_t n = kalxml::CheckSequence(p, end);
      if (n == 0) return false;
      p += n;
    } else if (kalxml::IsForbiddenControl(c)) {
      return false;
    } else {
      plain = false;
      ++p;
    }
  }
  stop = p;
  return true;
}

bool KalXmlBuilder::Text(const char* b, const char* e, bool plain) {
  while (b < e) {
    if (!_RunHasContent) {
      const char* q = b;
      while (q < e && IsSpace(*q)) ++q;
      if (q == e) {
        _WhiteSpace.push_back({b, e, _EntityDepth == 0});
        return true;
      }
      // An entity is read as if its text stood here: white space before it is indentation
      // when what it holds starts with a tag.
      if (*q == '&' && !_Entities.empty()) {
        const char* after = q;
        uint32_t cp = 0;
        std::string name;
        Entity* entity = nullptr;
        if (ReadReference(after, e, cp, name) == Reference::kEntity && Predefined(name) == 0) {
          entity = FindEntity(name);
        }
        if (entity != nullptr && entity->kind == Entity::kInternal) {
          if (q != b) _WhiteSpace.push_back({b, q, _EntityDepth == 0});
          if (!ExpandInContent(*entity)) return false;
          b = after;
          continue;
        }
      }
      if (!FlushWhiteSpace()) return false;
      _RunHasContent = true;
    }
    if (plain) return Append(b, e - b);
    const char* resume = nullptr;
    if (!TextPiece(b, e, resume)) return false;
    if (resume == nullptr) return true;
    b = resume;
  }
  return true;
}

// Decodes character data into the current element's value. An internal entity is expanded
// where it stands; its replacement may hold tags, so after it the rest of the text starts a
// new run (resume).
bool KalXmlBuilder::TextPiece(const char* b, const char* e, const char*& resume) {
  const bool document = _EntityDepth == 0;
  auto next = [&](const char* from) {
    return document ? FindFirstOf<'&', '\r', ']'>(from, e) : FindFirstOf<'&', ']'>(from, e);
  };
  const char* s = next(b);
  if (s == e) return Append(b, e - b);
  _Scratch.assign(b, s);
  for (const char* q = s; q < e;) {
    s = next(q);
    _Scratch.append(q, s);
    q = s;
    if (q == e) break;
    if (*q == '\r') {
      _Scratch.push_back('\n');
      q += (q + 1 < e && q[1] == '\n') ? 2 : 1;
      continue;
    }
    if (*q == ']') {
      if (e - q >= 3 && q[1] == ']' && q[2] == '>') return false;
      _Scratch.push_back(']');
      ++q;
      continue;
    }
    const char* at = q;
    Entity* entity = nullptr;
    if (!ResolveReference(q, e, _Scratch, entity)) return false;
    if (entity == nullptr) continue;
    if (entity->kind == Entity::kUnparsed) return false;
    if (entity->kind == Entity::kExternal) {
      _Scratch.append(at, q);  // not read: kept as written
      continue;
    }
    if (!Append(_Scratch.data(), _Scratch.size())) return false;
    _Scratch.clear();
    if (!ExpandInContent(*entity)) return false;
    resume = q;
    return true;
  }
  return Append(_Scratch.data(), _Scratch.size());
}

bool KalXmlBuilder::ExpandInContent(Entity& entity) {
  if (!EnterEntity(entity)) return false;
  const char* text = entity.text.data();
  const bool ok = Content(text, text + entity.text.size(), true) != nullptr;
  LeaveEntity(entity);
  return ok;
}

bool KalXmlBuilder::Cdata(const char* b, const char* e) {
  if (!FlushWhiteSpace()) return false;
  _RunHasContent = true;
  return _EntityDepth == 0 ? AppendNormalised(b, e) : Append(b, e - b);
}

// Decodes an attribute value: references resolved, every white-space character a blank
// (document text first folds "\r\n" into one), entities expanded recursively; '<' refused.
bool KalXmlBuilder::DecodeAttribute(const char* b, const char* e, bool document, std::string& out) {
  for (const char* q = b; q < e;) {
    const char* s = FindFirstOf<'&', '\r', '\n', '\t', '<'>(q, e);
    out.append(q, s);
    q = s;
    if (q == e) break;
    switch (*q) {
      case '<':
        return false;
      case '\r':
        out.push_back(' ');
        q += (document && q + 1 < e && q[1] == '\n') ? 2 : 1;
        continue;
      case '\n':
      case '\t':
        out.push_back(' ');
        ++q;
        continue;
      default:
        break;
    }
    Entity* entity = nullptr;
    if (!ResolveReference(q, e, out, entity)) return false;
    if (entity == nullptr) continue;
    // An attribute value cannot fetch another file.
    if (entity->kind != Entity::kInternal || !EnterEntity(*entity)) return false;
    const char* text = entity->text.data();
    const bool ok = DecodeAttribute(text, text + entity->text.size(), false, out);
    LeaveEntity(*entity);
    if (!ok) return false;
  }
  return true;
}

bool KalXmlBuilder::AttributeValue(const char* b, const char* e, bool plain,
                                   PendingAttribute& attribute) {
  const char* text = b;
  size_t length = e - b;
  if (!plain) {
    _Scratch.clear();
    if (!DecodeAttribute(b, e, true, _Scratch)) return false;
    text = _Scratch.data();
    length = _Scratch.size();
  }
  attribute.text = _Arena.CopyText(text, length);
  attribute.length = length;
  return attribute.text != nullptr;
}

bool KalXmlBuilder::HasRepeatedAttribute() {
  const size_t n = _Attributes.size();
  if (n <= 8) {
    for (size_t i = 1; i < n; ++i) {
      for (size_t j = 0; j < i; ++j) {
        if (_Attributes[i].name == _Attributes[j].name) return true;
      }
    }
    return false;
  }
  // Names are interned, so equal names are equal pointers.
  _Names.clear();
  for (const PendingAttribute& a : _Attributes) _Names.push_back(a.name);
  std::sort(_Names.begin(), _Names.end());
  return std::adjacent_find(_Names.begin(), _Names.end()) != _Names.end();
}

// Attributes declared for this element type: defaults for the absent ones, and blanks
// collapsed in the values of every type but CDATA. Default values count against the
// expansion allowance, since a few declarations could otherwise multiply a document.
bool KalXmlBuilder::ApplyDeclarations(const KalUnicodeString* type) {
  auto it = _Declarations.find(type);
  if (it == _Declarations.end()) return true;
  ElementDeclarations& declarations = it->second;
  const size_t element = ++_NbElements;
  for (PendingAttribute& a : _Attributes) {
    auto d = declarations.attributes.find(a.name);
    if (d == declarations.attributes.end()) continue;
    d->second.seen = element;
    if (d->second.tokenized) a.length = kalxml::CollapseBlanks(a.text, a.length);
  }
  for (const KalUnicodeString* name : declarations.defaults) {
    AttributeDeclaration& d = declarations.attributes.find(name)->second;
    if (d.seen == element) continue;
    const size_t cost = d.value.size() + sizeof(KalXmlAttribute);
    if (cost > _ExpansionLeft) return false;
    _ExpansionLeft -= cost;
    char* text = _Arena.CopyText(d.value.data(), d.value.size());
    if (text == nullptr) return false;
    _Attributes.push_back({name, text, d.value.size()});
  }
  return true;
}

bool KalXmlBuilder::StartTag(const char*& p, const char* end) {
  const char* name = p + 1;
  const char* nameEnd = kalxml::ScanName(name, end);
  if (nameEnd == nullptr) return false;
  const KalUnicodeString* type = _Doc.Intern(name, nameEnd - name);
  if (type == nullptr) return false;
  p = nameEnd;

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
    p = kalxml::ScanName(p, end);
    if (p == nullptr) return false;
    const char* anEnd = p;
    while (p < end && IsSpace(*p)) ++p;
    if (p >= end || *p != '=') return false;
    ++p;
    while (p < end && IsSpace(*p)) ++p;
    if (p >= end || (*p != '"' && *p != '\'')) return false;
    const char quote = *p++;
    const char* close = p;
    bool plain = true;
    for (;;) {
      close = kalxml::ScanAttribute(close, end);
      if (close == end) return false;
      const char c = *close;
      if (c == quote) break;
      if (static_cast<unsigned char>(c) >= 0x80) {
        const size_t n = kalxml::CheckSequence(close, end);
        if (n == 0) return false;
        close += n;
        continue;
      }
      if (c == '<' || kalxml::IsForbiddenControl(c)) return false;
      if (c != '"' && c != '\'') plain = false;
      ++close;
    }
    PendingAttribute attribute{_Doc.Intern(an, anEnd - an), nullptr, 0};
    if (attribute.name == nullptr || !AttributeValue(p, close, plain, attribute)) return false;
    _Attributes.push_back(attribute);
    p = close + 1;
  }
  if (_Attributes.size() > 1 && HasRepeatedAttribute()) return false;
  if (!_Declarations.empty() && !ApplyDeclarations(type)) return false;

  const bool isRoot = _Stack.empty();
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
    EndRun(false);  // cannot fail: nothing is kept
    Frame& parent = _Stack.back();
    if (parent.lastChild == nullptr) {
      parent.element->_pFirstChild = el;
    } else {
      parent.lastChild->_pNextSibling = el;
    }
    parent.lastChild = el;
  }
  if (!selfClosing) _Stack.push_back(Frame{el, nullptr, nullptr, 0});
  return true;
}

bool KalXmlBuilder::EndTag(const char*& p, const char* end) {
  // The name must be the open element's: compare it whole, then make sure it ends there.
  const KalUnicodeString& expected = _Stack.back().element->GetType();
  const size_t length = expected.GetLengthInChar();
  p += 2;
  if (static_cast<size_t>(end - p) <= length ||
      std::memcmp(p, expected.ConvertToChar(), length) != 0) {
    return false;
  }
  p += length;
  while (p < end && IsSpace(*p)) ++p;
  if (p >= end || *p != '>') return false;
  ++p;
  if (!EndRun(true)) return false;
  _Stack.pop_back();
  return true;
}

// Reads content up to the end of the document element (document text) or to the end of an
// entity's replacement text, which must close every element it opens. Returns where it
// stopped, null when the content is not well-formed.
const char* KalXmlBuilder::Content(const char* p, const char* end, bool inEntity) {
  const size_t base = _Stack.size();
  while (p < end) {
    if (*p != '<') {
      const char* lt;
      bool plain;
      if (!CharacterData(p, end, lt, plain) || !Text(p, lt, plain)) return nullptr;
      p = lt;
      continue;
    }
    if (end - p < 2) return nullptr;
    const char next = p[1];
    if (next == '/') {
      if (inEntity && _Stack.size() == base) return nullptr;
      if (!EndTag(p, end)) return nullptr;
      if (!inEntity && _Stack.empty()) return p;
    } else if (next == '!') {
      if (end - p >= 9 && std::memcmp(p, "<![CDATA[", 9) == 0) {
        const char* close = static_cast<const char*>(memmem(p + 9, end - p - 9, "]]>", 3));
        if (close == nullptr || !kalxml::IsValidText(p + 9, close) || !Cdata(p + 9, close)) {
          return nullptr;
        }
        p = static_cast<const char*>(close) + 3;
      } else if (!Comment(p, end)) {
        return nullptr;
      }
    } else if (next == '?') {
      if (!ProcessingInstruction(p, end)) return nullptr;
    } else if (!StartTag(p, end)) {
      return nullptr;
    }
  }
  return inEntity && _Stack.size() == base ? p : nullptr;
}

bool KalXmlBuilder::Parse(const char* p, const char* end) {
  try {
    if (end - p >= 6 && std::memcmp(p, "<?xml", 5) == 0 && IsSpace(p[5]) &&
        !XmlDeclaration(p, end)) {
      return false;
    }
    bool doctypeSeen = false;
    bool rootSeen = false;
    for (;;) {
      // Outside the document element: white space, comments, processing instructions and
      // one document type declaration before the element.
      while (p < end && IsSpace(*p)) ++p;
      if (p >= end) return rootSeen;
      if (*p != '<' || end - p < 2) return false;
      if (p[1] == '?') {
        if (!ProcessingInstruction(p, end)) return false;
      } else if (end - p >= 9 && std::memcmp(p, "<!DOCTYPE", 9) == 0) {
        if (doctypeSeen || rootSeen || !Doctype(p, end)) return false;
        doctypeSeen = true;
      } else if (p[1] == '!') {
        if (!Comment(p, end)) return false;
      } else {
        if (p[1] == '/' || rootSeen) return false;
        rootSeen = true;
        if (!StartTag(p, end)) return false;
        if (!_Stack.empty()) {
          p = Content(p, end, false);
          if (p == nullptr) return false;
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
  std::string converted;
  const char* text = nullptr;
  size_t length = 0;
  try {
    if (!input.GetBytes(data, size) || !kalxml::ToUtf8(data, size, converted, text, length)) {
      target->Reset(0);
      return 0;
    }
  } catch (const std::bad_alloc&) {
    target->Reset(0);
    return 0;
  }
  // Mapped arena memory is free until touched, so reserving more than the tree can need
  // keeps a big document in one chunk at no cost.
  KalXmlDocument* document = target->Reset(length + length / 2 + 64 * 1024);
  if (document == nullptr) return 0;
  KalXmlBuilder builder(*document, *target, length);
  const bool ok = builder.Parse(text, text + length);
  document->ReleaseInternTable();
  return ok ? 1 : 0;
}
