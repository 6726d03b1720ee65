// The markup of a document outside its elements' content: the XML declaration, comments,
// processing instructions and the document type declaration. The internal subset is read
// by its grammar; what it declares and the reader uses are internal general entities
// (expanded in text and attribute values) and attribute-list declarations (default values,
// and blank collapsing for every type but CDATA). External subsets and entities are never
// fetched.
#include <cstring>
#include <string>

#include "KalXmlBuilder.h"
#include "KalXmlChars.h"
#include "KalXmlEncoding.h"

using kalxml::IsSpace;

namespace {

bool SkipSpace(const char*& p, const char* end) {
  const char* start = p;
  while (p < end && IsSpace(*p)) ++p;
  return p != start;
}

// The word at p, not followed by another name character.
bool Keyword(const char* p, const char* end, const char* word) {
  const size_t n = std::strlen(word);
  if (static_cast<size_t>(end - p) < n || std::memcmp(p, word, n) != 0) return false;
  return kalxml::ScanNameToken(p + n, end) == p + n;
}

bool Starts(const char* p, const char* end, const char* text) {
  const size_t n = std::strlen(text);
  return static_cast<size_t>(end - p) >= n && std::memcmp(p, text, n) == 0;
}

bool Equals(const char*& p, const char* end) {
  SkipSpace(p, end);
  if (p >= end || *p != '=') return false;
  ++p;
  SkipSpace(p, end);
  return true;
}

bool IsPubidChar(char c, char quote) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  if (c == '\'') return quote != '\'';
  return std::strchr(" \r\n-()+,./:=?;!*#@$_%", c) != nullptr && c != '\0';
}

// '(' token ('|' token)* ')', blanks allowed around the tokens; names or name tokens.
bool Enumeration(const char*& p, const char* end, bool names) {
  if (p >= end || *p != '(') return false;
  ++p;
  for (;;) {
    SkipSpace(p, end);
    const char* tokenEnd = names ? kalxml::ScanName(p, end) : kalxml::ScanNameToken(p, end);
    if (tokenEnd == nullptr || tokenEnd == p) return false;
    p = tokenEnd;
    SkipSpace(p, end);
    if (p >= end) return false;
    if (*p == ')') {
      ++p;
      return true;
    }
    if (*p != '|') return false;
    ++p;
  }
}

}  // namespace

bool KalXmlBuilder::Quoted(const char*& p, const char* end, const char*& b, const char*& e) {
  if (p >= end || (*p != '"' && *p != '\'')) return false;
  const char* close = static_cast<const char*>(std::memchr(p + 1, *p, end - p - 1));
  if (close == nullptr) return false;
  b = p + 1;
  e = close;
  p = close + 1;
  return true;
}

// <?xml version="1.x" encoding="..." standalone="yes|no"?>, the last two optional, in this
// order. The encoding itself has been dealt with before the text got here.
bool KalXmlBuilder::XmlDeclaration(const char*& p, const char* end) {
  p += 5;
  const char* b;
  const char* e;
  SkipSpace(p, end);
  if (!Keyword(p, end, "version")) return false;
  p += 7;
  if (!Equals(p, end) || !Quoted(p, end, b, e)) return false;
  if (e - b < 3 || b[0] != '1' || b[1] != '.') return false;
  for (const char* d = b + 2; d < e; ++d) {
    if (*d < '0' || *d > '9') return false;
  }
  bool encoding = false;
  bool standalone = false;
  for (;;) {
    const bool space = SkipSpace(p, end);
    if (Starts(p, end, "?>")) {
      p += 2;
      return true;
    }
    if (!space) return false;
    if (!encoding && !standalone && Keyword(p, end, "encoding")) {
      p += 8;
      if (!Equals(p, end) || !Quoted(p, end, b, e)) return false;
      if (!kalxml::IsEncodingName(std::string(b, e))) return false;
      encoding = true;
    } else if (!standalone && Keyword(p, end, "standalone")) {
      p += 10;
      if (!Equals(p, end) || !Quoted(p, end, b, e)) return false;
      const std::string value(b, e);
      if (value != "yes" && value != "no") return false;
      standalone = true;
    } else {
      return false;
    }
  }
}

// "--" may only end a comment.
bool KalXmlBuilder::Comment(const char*& p, const char* end) {
  if (!Starts(p, end, "<!--")) return false;
  const char* dashes = static_cast<const char*>(memmem(p + 4, end - p - 4, "--", 2));
  if (dashes == nullptr || dashes + 2 >= end || dashes[2] != '>') return false;
  if (!kalxml::IsValidText(p + 4, dashes)) return false;
  p = dashes + 3;
  return true;
}

// A processing instruction's target is a name other than "xml" in any case: a declaration
// anywhere but at the very start is refused here.
bool KalXmlBuilder::ProcessingInstruction(const char*& p, const char* end) {
  const char* target = p + 2;
  const char* targetEnd = kalxml::ScanName(target, end);
  if (targetEnd == nullptr) return false;
  if (targetEnd - target == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
      (target[2] | 0x20) == 'l') {
    return false;
  }
  p = targetEnd;
  if (Starts(p, end, "?>")) {
    p += 2;
    return true;
  }
  if (!SkipSpace(p, end)) return false;
  const char* close = static_cast<const char*>(memmem(p, end - p, "?>", 2));
  if (close == nullptr || !kalxml::IsValidText(p, close)) return false;
  p = close + 2;
  return true;
}

bool KalXmlBuilder::ExternalId(const char*& p, const char* end, bool systemOptional) {
  const char* b;
  const char* e;
  if (Keyword(p, end, "SYSTEM")) {
    p += 6;
    return SkipSpace(p, end) && Quoted(p, end, b, e);
  }
  if (!Keyword(p, end, "PUBLIC")) return false;
  p += 6;
  if (!SkipSpace(p, end)) return false;
  const char quote = p < end ? *p : 0;
  if (!Quoted(p, end, b, e)) return false;
  for (const char* c = b; c < e; ++c) {
    if (!IsPubidChar(*c, quote)) return false;
  }
  const char* save = p;
  if (SkipSpace(p, end) && p < end && (*p == '"' || *p == '\'')) return Quoted(p, end, b, e);
  p = save;
  return systemOptional;
}

// <!DOCTYPE name (SYSTEM ... | PUBLIC ...)? ([ subset ])? >
bool KalXmlBuilder::Doctype(const char*& p, const char* end) {
  const char* start = p;
  p += 9;
  if (!SkipSpace(p, end)) return false;
  p = kalxml::ScanName(p, end);
  if (p == nullptr) return false;
  if (SkipSpace(p, end) && (Keyword(p, end, "SYSTEM") || Keyword(p, end, "PUBLIC"))) {
    if (!ExternalId(p, end, false)) return false;
    SkipSpace(p, end);
  }
  if (p < end && *p == '[') {
    ++p;
    if (!Subset(p, end, false)) return false;
    ++p;  // the ']'
    SkipSpace(p, end);
  }
  if (p >= end || *p != '>') return false;
  ++p;
  return kalxml::IsValidText(start, p);
}

// Markup declarations, comments, processing instructions and parameter-entity references,
// up to the ']' that closes the internal subset, or over a whole parameter entity's text.
bool KalXmlBuilder::Subset(const char*& p, const char* end, bool nested) {
  for (;;) {
    SkipSpace(p, end);
    if (p >= end) return nested;
    if (*p == ']') return !nested;
    bool ok;
    if (*p == '%') {
      const char* nameEnd = kalxml::ScanName(p + 1, end);
      if (nameEnd == nullptr || nameEnd >= end || *nameEnd != ';') return false;
      auto it = _ParameterEntities.find(std::string(p + 1, nameEnd));
      p = nameEnd + 1;
      if (it == _ParameterEntities.end() || it->second.kind != Entity::kInternal) {
        _DeclarationsStopped = true;
        continue;
      }
      Entity& entity = it->second;
      if (!EnterEntity(entity)) return false;
      const char* text = entity.text.data();
      ok = Subset(text, text + entity.text.size(), true);
      LeaveEntity(entity);
    } else if (Starts(p, end, "<!--")) {
      ok = Comment(p, end);
    } else if (Starts(p, end, "<?")) {
      ok = ProcessingInstruction(p, end);
    } else if (Starts(p, end, "<!ENTITY")) {
      ok = EntityDeclaration(p, end);
    } else if (Starts(p, end, "<!ATTLIST")) {
      ok = AttlistDeclaration(p, end);
    } else if (Starts(p, end, "<!ELEMENT")) {
      ok = ElementDeclaration(p, end);
    } else if (Starts(p, end, "<!NOTATION")) {
      ok = NotationDeclaration(p, end);
    } else {
      ok = false;
    }
    if (!ok) return false;
  }
}

// A literal entity value: character references are replaced now, entity references are
// kept for expansion where the entity is used, and parameter-entity references cannot
// stand inside a declaration of the internal subset.
bool KalXmlBuilder::EntityValue(const char*& p, const char* end, std::string& out) {
  const char* b;
  const char* e;
  if (!Quoted(p, end, b, e)) return false;
  std::string name;
  for (const char* q = b; q < e;) {
    const char c = *q;
    if (c == '%') return false;
    if (c == '&') {
      const char* at = q;
      uint32_t cp = 0;
      switch (ReadReference(q, e, cp, name)) {
        case Reference::kCharacter:
          kalxml::AppendUtf8(out, cp);
          break;
        case Reference::kEntity:
          out.append(at, q);
          break;
        default:
          return false;
      }
      continue;
    }
    if (c == '\r' && _EntityDepth == 0) {
      out.push_back('\n');
      q += (q + 1 < e && q[1] == '\n') ? 2 : 1;
      continue;
    }
    out.push_back(c);
    ++q;
  }
  return true;
}

// <!ENTITY name "value">, <!ENTITY % name "value">, or an external identifier, with NDATA for
// an unparsed general entity. The first declaration of a name binds.
bool KalXmlBuilder::EntityDeclaration(const char*& p, const char* end) {
  p += 8;
  if (!SkipSpace(p, end)) return false;
  bool parameter = false;
  if (p < end && *p == '%') {
    ++p;
    if (!SkipSpace(p, end)) return false;
    parameter = true;
  }
  const char* name = p;
  p = kalxml::ScanName(p, end);
  if (p == nullptr) return false;
  const char* nameEnd = p;
  if (!SkipSpace(p, end)) return false;
  Entity entity{Entity::kInternal, std::string(), false};
  if (p < end && (*p == '"' || *p == '\'')) {
    if (!EntityValue(p, end, entity.text)) return false;
  } else {
    if (!ExternalId(p, end, false)) return false;
    entity.kind = Entity::kExternal;
    const char* save = p;
    if (!parameter && SkipSpace(p, end) && Keyword(p, end, "NDATA")) {
      p += 5;
      if (!SkipSpace(p, end)) return false;
      p = kalxml::ScanName(p, end);
      if (p == nullptr) return false;
      entity.kind = Entity::kUnparsed;
    } else {
      p = save;
    }
  }
  SkipSpace(p, end);
  if (p >= end || *p != '>') return false;
  ++p;
  if (!_DeclarationsStopped) {
    (parameter ? _ParameterEntities : _Entities)
        .emplace(std::string(name, nameEnd), std::move(entity));
  }
  return true;
}

// <!ATTLIST element (name type default)*>. The first declaration of an attribute binds.
bool KalXmlBuilder::AttlistDeclaration(const char*& p, const char* end) {
  p += 9;
  if (!SkipSpace(p, end)) return false;
  const char* element = p;
  p = kalxml::ScanName(p, end);
  if (p == nullptr) return false;
  const char* elementEnd = p;
  static const char* const kTokenizedTypes[] = {"IDREFS", "IDREF",    "ID",     "ENTITIES",
                                                "ENTITY", "NMTOKENS", "NMTOKEN"};
  for (;;) {
    const bool space = SkipSpace(p, end);
    if (p >= end) return false;
    if (*p == '>') {
      ++p;
      return true;
    }
    if (!space) return false;
    const char* name = p;
    p = kalxml::ScanName(p, end);
    if (p == nullptr) return false;
    const char* nameEnd = p;
    if (!SkipSpace(p, end)) return false;

    bool tokenized = true;
    if (Keyword(p, end, "CDATA")) {
      tokenized = false;
      p += 5;
    } else if (Keyword(p, end, "NOTATION")) {
      p += 8;
      if (!SkipSpace(p, end) || !Enumeration(p, end, true)) return false;
    } else if (p < end && *p == '(') {
      if (!Enumeration(p, end, false)) return false;
    } else {
      bool known = false;
      for (const char* type : kTokenizedTypes) {
        if (Keyword(p, end, type)) {
          p += std::strlen(type);
          known = true;
          break;
        }
      }
      if (!known) return false;
    }
    if (!SkipSpace(p, end)) return false;

    AttributeDeclaration declaration{tokenized, false, std::string(), 0};
    const bool hash = p < end && *p == '#';
    if (hash && Keyword(p + 1, end, "REQUIRED")) {
      p += 9;
    } else if (hash && Keyword(p + 1, end, "IMPLIED")) {
      p += 8;
    } else {
      if (hash && Keyword(p + 1, end, "FIXED")) {
        p += 6;
        if (!SkipSpace(p, end)) return false;
      }
      const char* b;
      const char* e;
      if (!Quoted(p, end, b, e)) return false;
      if (!DecodeAttribute(b, e, _EntityDepth == 0, declaration.value)) return false;
      if (tokenized) {
        std::string& v = declaration.value;
        v.resize(kalxml::CollapseBlanks(&v[0], v.size()));
      }
      declaration.hasDefault = true;
    }
    if (_DeclarationsStopped) continue;
    const KalUnicodeString* type = _Doc.Intern(element, elementEnd - element);
    const KalUnicodeString* attribute = _Doc.Intern(name, nameEnd - name);
    if (type == nullptr || attribute == nullptr) return false;
    ElementDeclarations& declarations = _Declarations[type];
    const bool hasDefault = declaration.hasDefault;
    if (declarations.attributes.emplace(attribute, std::move(declaration)).second && hasDefault) {
      declarations.defaults.push_back(attribute);
    }
  }
}

// <!ELEMENT name EMPTY|ANY|(content model)>. The model is checked by its grammar (mixed
// content, or nested choices and sequences), without recursion; the reader does not
// validate documents against it.
bool KalXmlBuilder::ElementDeclaration(const char*& p, const char* end) {
  p += 9;
  if (!SkipSpace(p, end)) return false;
  p = kalxml::ScanName(p, end);
  if (p == nullptr || !SkipSpace(p, end)) return false;
  auto repeat = [&]() {
    if (p < end && (*p == '?' || *p == '*' || *p == '+')) ++p;
  };
  if (Keyword(p, end, "EMPTY")) {
    p += 5;
  } else if (Keyword(p, end, "ANY")) {
    p += 3;
  } else if (p >= end || *p != '(') {
    return false;
  } else {
    const char* open = ++p;
    SkipSpace(p, end);
    if (Starts(p, end, "#PCDATA")) {
      // (#PCDATA) or (#PCDATA | name | ...)*
      p += 7;
      bool names = false;
      for (;;) {
        SkipSpace(p, end);
        if (p >= end) return false;
        if (*p == ')') break;
        if (*p != '|') return false;
        ++p;
        SkipSpace(p, end);
        p = kalxml::ScanName(p, end);
        if (p == nullptr) return false;
        names = true;
      }
      ++p;
      if (p < end && *p == '*') {
        ++p;
      } else if (names) {
        return false;
      }
    } else {
      p = open;
      // Separators of the open groups: 0 until a group's first '|' or ',' decides it.
      std::vector<char> groups(1, 0);
      bool wantParticle = true;
      while (!groups.empty()) {
        SkipSpace(p, end);
        if (p >= end) return false;
        if (wantParticle) {
          if (*p == '(') {
            groups.push_back(0);
            ++p;
            continue;
          }
          p = kalxml::ScanName(p, end);
          if (p == nullptr) return false;
          repeat();
          wantParticle = false;
        } else if (*p == '|' || *p == ',') {
          if (groups.back() != 0 && groups.back() != *p) return false;
          groups.back() = *p++;
          wantParticle = true;
        } else if (*p == ')') {
          groups.pop_back();
          ++p;
          repeat();
        } else {
          return false;
        }
      }
    }
  }
  SkipSpace(p, end);
  if (p >= end || *p != '>') return false;
  ++p;
  return true;
}

// <!NOTATION name SYSTEM "..." | PUBLIC "..." ("...")?>
bool KalXmlBuilder::NotationDeclaration(const char*& p, const char* end) {
  p += 10;
  if (!SkipSpace(p, end)) return false;
  p = kalxml::ScanName(p, end);
  if (p == nullptr || !SkipSpace(p, end) || !ExternalId(p, end, true)) return false;
  SkipSpace(p, end);
  if (p >= end || *p != '>') return false;
  ++p;
  return true;
}
