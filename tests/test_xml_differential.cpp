// Differential test of KalLightXmlParser against libxml2, the reference XML parser, over
// generated documents: both must accept the same documents with the same element tree (tags,
// attributes, values, children) and refuse the same malformed ones.
#include <gtest/gtest.h>
#include <iconv.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KalLightXml.h"

namespace {

using Element = KalLightXmlElementItf;
using Strings = std::vector<std::string>;
const size_t npos = std::string::npos;

// Every attribute name the generator writes: both trees are asked for each, so an attribute
// our reader invents shows in its dump.
const Strings kAttrPool = {"id", "name", "kind",     "toks",     "mode",  "lang",
                           "a",  "k",    "xml:lang", "\xC3\xBC", "v:ref", "xmlns:v"};

// Printable form: valid UTF-8 sequences kept, control and stray bytes escaped.
std::string Esc(const std::string& s) {
  std::string o;
  for (size_t i = 0, k; i < s.size(); ++i) {
    const unsigned char c = s[i];
    const size_t n = c >= 0xC2 && c < 0xF5 ? (c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4) : 1;
    for (k = 1; k < n && i + k < s.size() && (s[i + k] & 0xC0) == 0x80;) ++k;
    char b[8];
    snprintf(b, sizeof b,
             c == '\n'               ? "\\n"
             : c == '\r'             ? "\\r"
             : c == '\t'             ? "\\t"
             : c == '\\' || c == '"' ? "\\%c"
             : c < 0x20 || c >= 0x7F ? "\\x%02X"
                                     : "%c",
             c);
    if (n > 1 && k == n)
      o.append(s, i, n), i += n - 1;
    else
      o += b;
  }
  return o;
}

std::string Str(const xmlChar* s) { return s ? reinterpret_cast<const char*>(s) : ""; }
std::string Str(const KalUnicodeString& s) {
  return {s.ConvertToChar(), size_t(s.GetLengthInChar())};
}
std::string Name(const xmlChar* local, const xmlNs* ns) {
  return ns && ns->prefix ? Str(ns->prefix) + ":" + Str(local) : Str(local);
}

// libxml2's value: text and CDATA nodes, split into runs by element children; a run of white
// space only, without CDATA, is indentation when the element has children. `kids` gets them.
std::string LxValue(const xmlNode* n, std::vector<const xmlNode*>* kids) {
  std::string value, run;
  bool cdata = false;
  for (const xmlNode* c = n->children; c; c = c->next)
    if (c->type == XML_ELEMENT_NODE) kids->push_back(c);
  auto flush = [&] {
    if (kids->empty() || cdata || run.find_first_not_of(" \t\r\n") != npos) value += run;
    run.clear(), cdata = false;
  };
  for (const xmlNode* c = n->children; c; c = c->next) {
    if (c->type == XML_ELEMENT_NODE) flush();
    if (c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) run += Str(c->content);
    if (c->type == XML_ENTITY_REF_NODE) run += "&" + Str(c->name) + ";";  // undeclared
    cdata |= c->type == XML_CDATA_SECTION_NODE;
  }
  flush();
  return value;
}

// Appends the canonical dump of both trees, side by side: one line per element with depth,
// tag, non-empty attributes (libxml2's names in document order, then the rest of the pool)
// and value. Either side may be missing (refused, or the trees' shapes differ).
void Dump(const xmlNode* lx, const Element* our, int depth, std::string* lxOut,
          std::string* ourOut) {
  Strings names, lxValues;
  std::vector<const xmlNode*> lxKids;
  std::vector<const Element*> ourKids;
  for (const xmlNs* ns = lx ? lx->nsDef : nullptr; ns; ns = ns->next)
    names.push_back(ns->prefix ? "xmlns:" + Str(ns->prefix) : "xmlns"),
        lxValues.push_back(Str(ns->href));
  for (const xmlAttr* a = lx ? lx->properties : nullptr; a; a = a->next) {
    xmlChar* v = xmlNodeListGetString(lx->doc, a->children, 1);
    names.push_back(Name(a->name, a->ns)), lxValues.push_back(Str(v));
    xmlFree(v);
  }
  for (const std::string& p : kAttrPool)
    if (std::find(names.begin(), names.end(), p) == names.end())
      names.push_back(p), lxValues.emplace_back();
  auto line = [&](const std::string& tag, const Strings& values, const std::string& value) {
    std::string l = std::string(2 * depth, ' ') + tag;
    for (size_t i = 0; i < names.size(); ++i)
      if (!values[i].empty()) l += " " + names[i] + "=\"" + Esc(values[i]) + "\"";
    return l + " : \"" + Esc(value) + "\"\n";
  };
  if (lx) *lxOut += line(Name(lx->name, lx->ns), lxValues, LxValue(lx, &lxKids));
  if (our) {
    Strings values;
    for (const std::string& n : names) values.push_back(Str(our->GetAttribute(n.c_str())));
    *ourOut += line(Str(our->GetType()), values, Str(our->GetValue()));
    for (KalPosition p = our->GetHeadPosition(); p;) ourKids.push_back(our->GetNextChild(p));
  }
  for (size_t i = 0; i < std::max(lxKids.size(), ourKids.size()); ++i)
    Dump(i < lxKids.size() ? lxKids[i] : nullptr, i < ourKids.size() ? ourKids[i] : nullptr,
         depth + 1, lxOut, ourOut);
}

struct LxError {
  int domain, code, level;
  std::string message;
};
void OnLxError(void* sink, xmlErrorPtr e) {
  static_cast<std::vector<LxError>*>(sink)->push_back(
      {e->domain, e->code, e->level, Str(BAD_CAST e->message)});
}

// Errors where our reader is lenient on purpose and keeps the '&' as written: `&name;` with
// name undeclared, `&name` without ';', '&' followed by no name (in content, attribute values
// or replacement text), and a literal '&' starting no reference in an entity value. The
// documents are small, so no libxml2 size or depth limit is ever reached.
bool Lenient(const LxError& e) {
  return e.code == XML_ERR_UNDECLARED_ENTITY || e.code == XML_WAR_UNDECLARED_ENTITY ||
         e.code == XML_ERR_ENTITYREF_SEMICOL_MISSING ||
         (e.code == XML_ERR_NAME_REQUIRED && e.message.rfind("xmlParseEntityRef", 0) == 0) ||
         (e.code == XML_ERR_ENTITY_CHAR_ERROR && e.message.rfind("EntityValue: '&'", 0) == 0);
}

// Prolog faults libxml2 2.9 lets through, which ours must refuse: no space after "<!DOCTYPE",
// none between the XML declaration's pseudo-attributes (unchecked after a UTF-8 encoding),
// and version "1." (only a warning there).
bool Libxml2Lax(const std::string& doc, const std::vector<LxError>& errors) {
  for (const LxError& e : errors)
    if (e.code == XML_WAR_UNKNOWN_VERSION && e.message.find("'1.'") != npos) return true;
  const size_t d = doc.find("<!DOCTYPE"), start = doc.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
  if (d != npos && d + 9 < doc.size() && std::string(" \t\r\n").find(doc[d + 9]) == npos)
    return true;
  const size_t end = doc.compare(start, 6, "<?xml ") ? 0 : std::min(doc.find("?>"), doc.size() - 1);
  char quote = 0;  // looks for a closing quote followed by a letter
  for (size_t i = start; i < end; ++i)
    if (!quote && (doc[i] == '"' || doc[i] == '\''))
      quote = doc[i];
    else if (doc[i] == quote && (quote = 0, std::isalpha(static_cast<unsigned char>(doc[i + 1]))))
      return true;
  return false;
}

// clang-format off
enum Outcome { kSame, kBothRefused, kLax, kLenient, kNamespace, kOursRefused, kOursAccepted, kDiffers,
               kOutcomes };
const char* const kOutcomeNames[] = {"same tree", "both refuse", "ours refuses what libxml2 wrongly accepts",
    "lenient on '&' (skipped)", "namespace error (skipped)", "ours refuses, libxml2 accepts",
    "ours accepts, libxml2 refuses", "trees differ"};
// clang-format on

// Parses `doc` with ours and `lxDoc` with libxml2; `report` gets the document and both dumps.
Outcome Compare(const std::string& doc, const std::string& lxDoc, std::string* report) {
  std::vector<LxError> errors;
  xmlSetStructuredErrorFunc(&errors, OnLxError);
  xmlDocPtr lx = xmlReadMemory(lxDoc.data(), int(lxDoc.size()), "doc.xml", nullptr,
                               XML_PARSE_NOENT | XML_PARSE_DTDATTR | XML_PARSE_NONET |
                                   XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  std::unique_ptr<Element> ours(KalLightXmlElementFactory().CreateElement());
  KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(doc.data()),
                                     int(doc.size()));
  const int rc = KalLightXmlParser().Parse(input, *ours);
  std::string lxDump, ourDump;
  Dump(lx ? xmlDocGetRootElement(lx) : nullptr, rc == 1 ? ours.get() : nullptr, 0, &lxDump,
       &ourDump);
  const bool accepted = lx != nullptr;
  xmlFreeDoc(lx);
  auto first = std::find_if(errors.begin(), errors.end(), [&](const LxError& e) {
    return Lenient(e) || (!accepted && e.level == XML_ERR_FATAL);  // what made libxml2 refuse
  });
  const bool nsError = std::any_of(errors.begin(), errors.end(),
                                   [](const LxError& e) { return e.domain == XML_FROM_NAMESPACE; });
  const Outcome o = first != errors.end() && Lenient(*first) ? kLenient
                    : !accepted                              ? (rc ? kOursAccepted : kBothRefused)
                    : Libxml2Lax(doc, errors)                ? (rc ? kOursAccepted : kLax)
                    : nsError                                ? kNamespace
                    : rc != 1                                ? kOursRefused
                    : lxDump == ourDump                      ? kSame
                                                             : kDiffers;
  *report = "document: \"" + Esc(doc) + "\"\nlibxml2" +
            (first != errors.end() ? " (" + std::to_string(first->code) + ": " +
                                         first->message.substr(0, first->message.find('\n')) + ")"
                                   : "") +
            (accepted && o == kOursAccepted ? " accepts a malformed prolog" : "") + ":\n" +
            (accepted ? lxDump : "(refused)\n") + "ours:\n" + (rc == 1 ? ourDump : "(refused)\n");
  return o;
}

// Counts outcomes and reports the first few disagreements (KAL_DIFF_SHOW sets how many).
struct Tally {
  int n[kOutcomes] = {}, shown = 0;
  std::string report;
  int Disagreements() const { return n[kOursRefused] + n[kOursAccepted] + n[kDiffers]; }
  Outcome Add(const std::string& doc, const std::string& lxDoc = "") {
    const Outcome o = Compare(doc, lxDoc.empty() ? doc : lxDoc, &report);
    static const int limit =
        std::getenv("KAL_DIFF_SHOW") ? std::atoi(std::getenv("KAL_DIFF_SHOW")) : 3;
    ++n[o];
    if (o >= kOursRefused && shown++ < limit) ADD_FAILURE() << kOutcomeNames[o] << "\n" << report;
    return o;
  }
  std::string Summary() const {
    std::string s;
    for (int i = 0; i < kOutcomes; ++i)
      s += kOutcomeNames[i] + (": " + std::to_string(n[i])) + "\n";
    return s;
  }
};

// Bytes the generator leaves where a fault may be planted; stripped from every document.
const char kText = 14, kAttrValue = 15, kInTag = 16, kComment = 17, kBetween = 18, kProlog = 19,
           kEpilog = 20, kDtd = 21;

// The document without markers; `at` gets the clean offset of the pick-th `marker`.
std::string Strip(const std::string& doc, char marker = 0, int pick = -1, size_t* at = nullptr) {
  std::string clean;
  for (char c : doc) {
    if (c == marker && pick-- == 0) *at = clean.size();
    if (c < kText || c > kDtd) clean += c;
  }
  return clean;
}

// Declarations of the internal subset, each written with the given probability (percent). The
// first declaration of an entity or attribute binds.
// clang-format off
const std::vector<std::pair<int, std::string>> kDecls = {
    {40, "<!-- ' \" ] > -->"}, {40, "<?pi ]> '?>"}, {40, "<!ELEMENT item (#PCDATA|b|data)*>"},
    {40, "<!ELEMENT r ANY>"}, {40, "<!ELEMENT data (item?, (b | x.y)+)>"},
    {40, "<!NOTATION gif SYSTEM \"image/gif\">"}, {40, "<!NOTATION n PUBLIC '-//X//N' \"s]>'\">"},
    {40, "<!ENTITY % pe \"<!ENTITY pex 'v'>\">"}, {40, "<!ENTITY ext SYSTEM \"ext.xml\">"},
    {40, "<!ENTITY img SYSTEM 'a.gif' NDATA gif>"}, {70, "<!ENTITY e1 \"it's ]>\ta\r\nb\">"},
    {50, "<!ENTITY u 'caf&#233;&#9;&#x20AC;&lt;'>"}, {60, "<!ENTITY e2 '[&e1;] \"q\" &amp; &#x41;'>"},
    {25, "<!ENTITY m \"<b>x</b>\">"}, {25, "<!ENTITY m \"t<b k='1'>x&amp;y</b>\">"},
    {30, "<!ENTITY e1 'second'>"},
    {70, "<!ATTLIST item kind CDATA \"d'f]>\" toks NMTOKENS #IMPLIED\n mode (on|off) 'off'>"},
    {50, "<!ATTLIST data id ID #IMPLIED lang NMTOKEN 'en'>"},
    {50, "<!ATTLIST b k CDATA \"kb\" xml:lang CDATA 'fr'>"},
    {30, "<!ATTLIST item kind CDATA 'second' toks CDATA #IMPLIED>"}};
// clang-format on
const Strings kTags = {"r", "item", "data", "b", "x.y", "_u", "n-1", "caf\xC3\xA9", "v:node"};

// Random documents, holding literally only the non-ASCII characters of `lit` (those the target
// encoding has).
struct Gen {
  std::mt19937& rng;
  Strings lit, ents;  // ents: the text entities declared
  std::string o;
  bool ns = false, markup = false;
  int ids = 0;
  Gen(std::mt19937& r, Strings l) : rng(r), lit(std::move(l)) {}
  int R(int n) { return int(rng() % unsigned(n)); }
  bool P(int percent) { return R(100) < percent; }
  std::string Pick(const Strings& v) { return v[R(int(v.size()))]; }
  // Concatenation in order: the random choices of a braced list are made left to right.
  static std::string Cat(std::initializer_list<std::string> parts) {
    std::string s;
    for (const std::string& p : parts) s += p;
    return s;
  }
  std::string Ws() { return Pick({" ", "\t", "\n", "\r\n", "\r", "  "}); }
  std::string Word() {
    std::string w(1 + R(4), 'a');
    for (char& c : w) c = char('a' + R(26));
    return P(30) ? w + Pick(lit) : w;
  }
  // Character data for content or an attribute value within `quote`s. A white-space
  // reference always sits by a letter: libxml2 cannot tell a run that is white space by
  // reference alone from indentation.
  std::string Piece(char quote) {
    const int k = R(8);
    if (k == 0) return Ws();
    if (k < 3)
      return Pick({"x&#13;", "&#00000000065;", "&#x0000041;", "&#233;", "&#x20AC;", "&#x1D11E;",
                   "y&#9;", "z&#10;", "&lt;", "&gt;", "&amp;", "&quot;", "&apos;"});
    if (k == 3) return ents.empty() ? "q" : "&" + Pick(ents) + ";";
    if (k == 4) return quote == '"' ? "'>" : quote == '\'' ? "\">" : "'\">";
    return Cat({Word(), P(50) ? " " : ""});
  }
  // Values of the attributes declared with a tokenized type in some documents.
  std::string Tokens(const std::string& name) {
    const Strings values = name == "toks"   ? Strings{"a1", "b-2", "c.3", "_d", ":e", "9\xC3\xBC"}
                           : name == "mode" ? Strings{"on", "off"}
                                            : Strings{"en"};
    std::string v = P(60) ? Ws() : "";
    for (int i = name == "toks" ? R(3) : 0; i >= 0; --i)
      v += Cat({name == "id" ? "i" + std::to_string(++ids) : Pick(values),
                i ? Cat({Ws(), P(50) ? Ws() : ""}) : ""});
    return v + (P(60) ? Ws() : "");
  }
  std::string Comment() {
    return Cat({"<!--", {kComment}, Pick({"", " c ", "<&>'\"", "-x", Word()}), "-->"});
  }
  std::string Pi() {
    return Cat(
        {"<?", Pick({"pi", "php-x", "k.l"}), Pick({"", " d", " <&>?x ", " " + Word()}), "?>"});
  }
  std::string Cdata() {
    return Cat({"<![CDATA[", Pick({"", " ", "<c>&amp;", "]]", "a]b", "x\r\ny\rz", Word()}), "]]>"});
  }
  void Element(int depth, std::string tag) {
    Strings names(kAttrPool.begin(), kAttrPool.end() - (ns ? 1 : 2));  // no xmlns:v
    if (tag.empty()) tag = kTags[R(int(kTags.size()) - !ns)];
    o += "<" + tag + (ns && depth == 0 ? " xmlns:v=\"urn:v\"" : "");
    for (int i = R(4); i > 0; --i) {
      const std::string name = Pick(names), q = P(50) ? "\"" : "'";
      names.erase(std::remove(names.begin(), names.end(), name), names.end());
      o += Cat({Pick({" ", "\n\t", "  "}), name, Pick({"=", " = ", "\r\n="}), q, {kAttrValue}});
      if (name == "toks" || name == "mode" || name == "id" || name == "lang")
        o += Tokens(name);
      else
        for (int k = R(4); k > 0; --k) o += Piece(q[0]);
      o += q;
    }
    o += char(kInTag) + (P(20) ? Ws() : "");
    if (P(15)) return void(o += "/>");
    o += ">";
    const int kind = depth >= 6 ? 2 + R(2) : R(4);
    for (int i = 0, n = 1 + R(3); kind == 0 && i <= n; ++i) {  // indented children
      o += Pick({"\n  ", "\r\n\t", "\n", " "}) + char(kBetween);
      if (P(20)) o += Cat({P(50) ? Comment() : Pi(), Ws()});
      if (P(10)) o += Cat({Cdata(), Ws()});
      if (i < n && markup && P(15))
        o += "&m;";
      else if (i < n)
        Element(depth + 1, "");
    }
    for (int i = 0, n = 1 + R(6); (kind == 1 || kind == 2) && i < n; ++i) {  // mixed, or text only
      const int k = R(depth >= 6 || kind == 2 ? 6 : 8);
      o += char(kText);
      if (k == 7 || (k == 6 && !markup))
        Element(depth + 1, "");
      else
        o += k < 3 ? Piece(0) : k == 3 ? Cdata() : k == 4 ? Comment() : k == 5 ? Pi() : "&m;";
    }
    for (int i = kind == 3 ? R(3) : 0; i > 0; --i) {  // white space only, maybe with a comment
      o += Ws() + char(kText);
      if (P(30)) o += Comment();
    }
    o += "</" + tag + (P(10) ? Ws() : "") + ">";
  }
  // A whole document; `decl`, when given, is its XML declaration ("" for none).
  std::string Document(const char* decl = nullptr) {
    o.clear(), ents.clear(), ns = P(10), markup = false, ids = 0;
    if (decl) o += decl;
    if (!decl && P(75))
      o += Cat({"<?xml version=", Pick({"\"1.0\"", "'1.0'"}),
                Pick({"", " encoding=\"UTF-8\"", " encoding='utf-8'"}),
                Pick({"", " standalone=\"no\"", " standalone='yes'"}), P(30) ? " ?>" : "?>"});
    o += std::string(1, kProlog) + (P(50) ? "\n" : "");
    if (P(20)) o += Comment();
    const std::string root = P(60) ? "r" : "item";
    if (P(60)) {
      o += "<!DOCTYPE " + root +
           Pick({"", "", " SYSTEM \"r.dtd\"", " PUBLIC \"-//K//DTD r//EN\" 'r.dtd'"});
      if (P(90)) {
        o += " [" + Ws();
        for (const auto& d : kDecls)  // e2 refers to e1
          if (P(d.first) && (d.second.find("e2") == npos || o.find("ENTITY e1") != npos))
            o += d.second + (P(50) ? Ws() : "") + char(kDtd);
        o += "]" + (P(20) ? Ws() : "");
      }
      o += ">" + (char(kProlog) + Ws());
      for (const char* e : {"e1", "u", "e2"})
        if (o.find(std::string("ENTITY ") + e + " ") != npos) ents.push_back(e);
      markup = o.find("ENTITY m ") != npos;
    }
    if (P(20)) o += Pi() + "\n";
    Element(0, root);
    o += std::string(1, kEpilog) + (P(50) ? "\n" : "");
    if (P(20)) o += Comment();
    return o;
  }
};

// The document in another character set (through iconv), behind a byte-order mark if any.
std::string Encode(const std::string& utf8, const char* charset, const std::string& bom = "") {
  iconv_t cd = iconv_open(charset, "UTF-8");
  std::string out(4 * utf8.size(), '\0');
  char *in = const_cast<char*>(utf8.data()), *to = &out[0];
  size_t inLeft = utf8.size(), outLeft = out.size();
  const size_t rc = iconv(cd, &in, &inLeft, &to, &outLeft);
  iconv_close(cd);
  EXPECT_EQ(rc, 0u) << "cannot encode in " << charset << ": " << Esc(utf8);
  return bom + out.substr(0, out.size() - outLeft);
}

class Libxml2 : public testing::Environment {
  // No external DTD or entity is ever read: the documents are self-contained.
  static xmlParserInputPtr NoLoad(const char*, const char*, xmlParserCtxtPtr) { return nullptr; }
  void SetUp() override { xmlInitParser(), xmlSetExternalEntityLoader(NoLoad); }
  void TearDown() override { xmlCleanupParser(); }
};
testing::Environment* const kLibxml2 = testing::AddGlobalTestEnvironment(new Libxml2);

const Strings kUtf8Lit = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9D\x84\x9E",
                          "\xC3\x9F", "\xE4\xB8\xAD", "\xC3\xBC"};

// A generated document libxml2 must accept cleanly; true when ours gives the same tree.
bool WellFormed(Tally& tally, const std::string& doc) {
  const Outcome o = tally.Add(doc);
  if (o != kSame && o < kOursRefused)
    ADD_FAILURE() << "libxml2 does not accept cleanly\n" << tally.report;
  return o == kSame;
}
}  // namespace

TEST(XmlDifferential, WellFormedUtf8DocumentsGiveTheSameTree) {
  // The canonical dump pinned on one document, so that the comparison itself is known right.
  const std::string pinned =
      "<?xml version='1.0'?>\n<!DOCTYPE r [<!ENTITY e 'E&#9;'><!ATTLIST i t NMTOKENS #IMPLIED d "
      "CDATA 'dv'>]>\n"
      "<r a=\" x\r\n&#9;y&e; \"><!--c-->\n  <i t=\"  p\tq \">T<?p?>&amp;<![CDATA[<c>]]>\r\n</i>\n"
      "  <![CDATA[ ]]>\n  &#00000000065;</r>";
  xmlDocPtr lx = xmlReadMemory(pinned.data(), int(pinned.size()), "doc.xml", nullptr,
                               XML_PARSE_NOENT | XML_PARSE_DTDATTR | XML_PARSE_NONET);
  ASSERT_NE(lx, nullptr);
  std::string lxDump, none;
  Dump(xmlDocGetRootElement(lx), nullptr, 0, &lxDump, &none);
  xmlFreeDoc(lx);
  EXPECT_EQ(lxDump,
            "r a=\" x \\tyE  \" : \"\\n   \\n  A\"\n  i t=\"p q\" d=\"dv\" : \"T&<c>\\n\"\n");
  Tally tally;
  EXPECT_EQ(tally.Add(pinned), kSame) << tally.report;

  std::mt19937 rng(20240611);
  Gen gen{rng, kUtf8Lit};
  for (int i = 0; i < 1500; ++i) {
    const std::string bom = gen.P(10) ? "\xEF\xBB\xBF" : "";
    WellFormed(tally, bom + Strip(gen.Document()));
  }
  EXPECT_EQ(tally.Disagreements(), 0) << tally.Summary();
}

TEST(XmlDifferential, ReencodedDocumentsGiveTheSameTree) {
  // Each set: the charset, the encoding names a declaration gives it, its byte-order mark and
  // the non-ASCII characters it has.
  // clang-format off
  const struct { const char* charset; Strings names; std::string bom; Strings lit; } sets[] = {
      {"ISO-8859-1", {"ISO-8859-1", "iso-8859-1"}, "",
       {"\xC3\xA9", "\xC3\x9F", "\xC3\xBC", "\xC3\xBF", "\xC2\xA9", "\xC2\xA4"}},
      {"WINDOWS-1252", {"windows-1252", "WINDOWS-1252"}, "", {"\xC3\xA9", "\xC3\xBC", "\xE2\x82\xAC",
       "\xC5\xA0", "\xC5\x93", "\xE2\x80\x9C", "\xE2\x80\xA6", "\xC5\xB8"}},
      {"ISO-8859-15", {"ISO-8859-15", "iso-8859-15"}, "", {"\xC3\xA9", "\xC3\xBC", "\xE2\x82\xAC",
       "\xC5\xA0", "\xC5\xA1", "\xC5\x92", "\xC5\x93", "\xC5\xB8", "\xC5\xBD"}},
      {"UTF-16LE", {"UTF-16", "utf-16", ""}, "\xFF\xFE", kUtf8Lit},
      {"UTF-16BE", {"UTF-16", ""}, "\xFE\xFF", kUtf8Lit}};
  // clang-format on
  std::mt19937 rng(77);
  Tally tally;
  for (const auto& set : sets) {
    Gen gen{rng, set.lit};
    int same = 0;
    for (int i = 0; i < 100; ++i) {
      const std::string name = gen.Pick(set.names), bare = gen.P(50) ? "<?xml version='1.0'?>" : "";
      const std::string decl =
          name.empty() ? bare : "<?xml version='1.0' encoding='" + name + "'?>";
      same += WellFormed(tally, Encode(Strip(gen.Document(decl.c_str())), set.charset, set.bom));
    }
    EXPECT_EQ(same, 100) << set.charset;
  }
  EXPECT_EQ(tally.Disagreements(), 0) << tally.Summary();
}

TEST(XmlDifferential, MalformedDocumentsAreRefusedLikeLibxml2) {
  // Faults planted at a marked place; "dup" repeats the attribute written just before it.
  // clang-format off
  const std::vector<std::pair<char, Strings>> faults = {
      {kText, {"]]>", "<", "&#1;", "&#xFFFE;", "&#0;", "&#x110000;", "\x01", "\x1F", "\xFF", "\xC3(",
               "\xED\xA0\x80", "\xC0\xAF", "&#12a;", "&#x;", "</x>", "<![CDATA[x]]", "&", "&nope;"}},
      {kAttrValue, {"<", "&#1;", "\x01", "\xFE", "'\"", "&", "&nope;"}},
      {kInTag, {"dup", "dup", " 1a=\"x\"", " a", " a=b", "=\"x\"", "<"}},
      {kComment, {"--", "\x01", "\xF8"}},
      {kBetween, {"<1a/>", "<?xml version=\"1.0\"?>", "<!DOCTYPE r>", "<a></b>", "<a b='1' b='2'/>",
                  "<a", "<-a/>"}},
      {kProlog, {"<!DOCTYPE r>", "<?xml version=\"1.0\"?>", "t", "<!ELEMENT r ANY>", "&amp;",
                 "\xEF\xBB\xBF"}},
      {kEpilog, {"<!DOCTYPE r>", "<r2/>", "x", "<?xml version=\"1.0\"?>", "<!-- a -- -->", "&#65;"}},
      {kDtd, {"<!ELEMENT>", "<!ENTITY x '&#1;'>", "<!ATTLIST item q CDATA \"<\">", "]]>",
              "<!ENTITY e3 \"a\" junk>", "<!ENTITY 1x 'v'>", "<!-- -- -->", "<!ENTITY e1 \"[&e1;]\">"}}};
  // clang-format on
  const std::string bytes("<>&;#'\"]=/!?- a\x01\x80\xFF", 19);
  std::mt19937 rng(9001);
  Gen gen{rng, kUtf8Lit};
  Tally tally;
  int planted = 0, kept = 0;
  for (int i = 0; i < 3000; ++i) {
    const std::string marked = gen.Document();
    std::string doc = Strip(marked);
    if (gen.P(60)) {
      const std::pair<char, Strings>* fault;
      int count = 0;  // tags, prolog and epilog are always marked
      while (count == 0)
        fault = &faults[gen.R(int(faults.size()))],
        count = int(std::count(marked.begin(), marked.end(), fault->first));
      size_t at = npos;
      doc = Strip(marked, fault->first, gen.R(count), &at);
      std::string text = gen.Pick(fault->second);
      if (text == "dup") {  // the attribute just before the mark, if any: ` name = "value"`
        const char q = at > 1 ? doc[at - 1] : 0;
        const size_t open = q == '"' || q == '\'' ? doc.rfind(q, at - 2) : npos;
        const size_t name =
            open == npos ? 0
                         : doc.find_last_of(" \t\r\n", doc.find_last_not_of(" \t\r\n=", open - 1));
        text = open == npos ? " a='1' a='2'" : doc.substr(name, at - name);
      }
      ++planted;
      if (text[0] == '&' && text[1] != '#' &&
          (fault->first == kText || fault->first == kAttrValue)) {
        std::string escaped = doc;  // kept as written by ours: libxml2 reads the same text escaped
        ++kept, tally.Add(doc.insert(at, text), escaped.insert(at, "&amp;" + text.substr(1)));
        continue;
      }
      doc.insert(at, text);
    } else {  // blind edits: insert, delete or replace a byte
      for (int k = 1 + gen.R(2); k > 0; --k) {
        const size_t pos = gen.R(int(doc.size()));
        const char b = gen.P(70) ? bytes[gen.R(int(bytes.size()))] : char(gen.R(256));
        const int op = gen.R(3);  // 0 inserts, 1 deletes, 2 replaces
        doc.replace(pos, op != 0, op == 1 ? "" : std::string(1, b));
      }
    }
    if (gen.P(3) && doc.rfind("<?xml", 0) == 0)
      doc.insert(0, gen.P(50) ? "\n" : "<!---->");  // declaration not first
    tally.Add(doc);
  }
  std::printf(
      "malformed: %d planted faults (%d unknown references or lone '&'), %d blind edits\n%s",
      planted, kept, 3000 - planted, tally.Summary().c_str());
  EXPECT_GT(tally.n[kBothRefused] + tally.n[kOursAccepted], 1500)
      << "too few mutants are malformed";
  EXPECT_EQ(tally.Disagreements(), 0) << tally.Summary();
}
