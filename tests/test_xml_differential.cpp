// Differential test of KalLightXmlParser against libxml2, the reference XML parser, over
// generated documents: both must accept the same documents with the same element tree (tags,
// attributes, values, children) and refuse the same malformed ones.
#include <iconv.h>
#include <libxml/parser.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <regex>

#include "KalLightXml.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

using Strings = std::vector<std::string>;
const size_t npos = std::string::npos;
// Every attribute name generated (the first four get tokens), the names both trees are asked
// for: an attribute ours invents or loses shows.
const Strings kAttrs = {"toks", "mode", "id", "lang", "name", "kind", "k", "xml:lang", "\xC3\xBC"};

std::string Str(const xmlChar* s) { return s ? reinterpret_cast<const char*>(s) : ""; }
std::string Str(const KalUnicodeString& s) {
  return {s.ConvertToChar(), size_t(s.GetLengthInChar())};
}
// One line per element: depth, tag, non-empty attributes by name, value.
std::string Line(int depth, const std::string& tag, const std::map<std::string, std::string>& attrs,
                 const std::string& value) {
  std::string l = std::string(2 * depth, ' ') + tag;
  for (const auto& [name, v] : attrs)
    if (!v.empty() && std::count(kAttrs.begin(), kAttrs.end(), name))
      l += " " + name + "=\"" + v + "\"";
  return l + " : \"" + value + "\"\n";
}

// libxml2's tree; the value joins text and CDATA nodes, but a run of white space alone
// between element children (no CDATA) is indentation.
void LxDump(xmlNode* n, int depth, std::string& out) {
  std::map<std::string, std::string> attrs;
  for (const xmlAttr* a = n->properties; a; a = a->next) {
    std::unique_ptr<xmlChar, xmlFreeFunc> v(xmlNodeListGetString(n->doc, a->children, 1), xmlFree);
    attrs[(a->ns ? Str(a->ns->prefix) + ":" : "") + Str(a->name)] = Str(v.get());
  }
  std::string value, run;
  bool cdata = false, kids = xmlFirstElementChild(n) != nullptr;
  for (const xmlNode* c = n->children;; c = c->next) {
    if (!c || c->type == XML_ELEMENT_NODE) {
      if (!kids || cdata || run.find_first_not_of(" \t\r\n") != npos) value += run;
      run.clear(), cdata = false;
      if (!c) break;
    }
    if (c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) run += Str(c->content);
    if (c->type == XML_ENTITY_REF_NODE) run += "&" + Str(c->name) + ";";  // undeclared
    cdata |= c->type == XML_CDATA_SECTION_NODE;
  }
  out += Line(depth, Str(n->name), attrs, value);
  for (xmlNode* k = xmlFirstElementChild(n); k; k = xmlNextElementSibling(k))
    LxDump(k, depth + 1, out);
}

void OurDump(const KalLightXmlElementItf* e, int depth, std::string& out) {
  std::map<std::string, std::string> attrs;
  for (const std::string& name : kAttrs) attrs[name] = Str(e->GetAttribute(name.c_str()));
  out += Line(depth, Str(e->GetType()), attrs, Str(e->GetValue()));
  for (KalPosition p = e->GetHeadPosition(); p;) OurDump(e->GetNextChild(p), depth + 1, out);
}

struct LxError {
  int domain, code, level;
  std::string message;
};
const std::string kRefused = "(refused)\n";
xmlParserInputPtr NoLoad(const char*, const char*, xmlParserCtxtPtr) { return nullptr; }

// Errors that decide nothing: where ours is lenient on purpose and keeps the '&' as written
// (`&name;` with name undeclared, `&name` without ';', '&' followed by no name, a literal '&'
// starting no reference in an entity value), namespaces, which ours does not process, and a
// fragment in a system identifier, which XML does not count among the fatal errors.
bool Excused(const LxError& e) {
  return e.domain == XML_FROM_NAMESPACE || e.code == XML_NS_ERR_QNAME ||
         e.code == XML_ERR_URI_FRAGMENT || e.code == XML_ERR_UNDECLARED_ENTITY ||
         e.code == XML_WAR_UNDECLARED_ENTITY || e.code == XML_ERR_ENTITYREF_SEMICOL_MISSING ||
         (e.code == XML_ERR_NAME_REQUIRED && e.message.find("EntityRef: no name") != npos) ||
         (e.code == XML_ERR_ENTITY_CHAR_ERROR && e.message.rfind("EntityValue: '&'", 0) == 0);
}

// Faults libxml2 2.9 lets through, which ours must refuse: bytes invalid in a converted
// encoding (reported, then dropped), version "1." (only a warning), no space between the XML
// declaration's pseudo-attributes (unchecked after a UTF-8 encoding) or after "<!DOCTYPE", an
// encoding name with a '.' (read as UTF-8), an internal subset after the closing '>'.
bool Libxml2Lax(const std::string& doc, const std::vector<LxError>& errors) {
  static const std::regex lax(
      "^(\xEF\xBB\xBF)?<\\?xml "
      "[^?]*(version\\s*=\\s*[\"']1\\.[\"']|encoding\\s*=\\s*[\"'][^\"'.]*\\.|"
      "=\\s*(\"[^\"]*\"|'[^']*')[A-Za-z])|<!DOCTYPE(\\S|[^[>]*>\\s*\\[)");
  return std::any_of(errors.begin(), errors.end(),
                     [](const LxError& e) { return e.code == XML_I18N_CONV_FAILED; }) ||
         std::regex_search(doc, lax);
}

// Compares ours on `doc` with libxml2 (on `lxDoc` when given), which never reads an external
// DTD or entity; fails on a disagreement, or on anything but the same tree for a document that
// must be well-formed. Returns libxml2's tree.
struct Tally {
  int bothRefused = 0, shown = 0;
  std::string Add(const std::string& doc, bool wellFormed, std::string lxDoc = "") {
    static const bool ready = (xmlInitParser(), xmlSetExternalEntityLoader(NoLoad), true);
    std::vector<LxError> errors;
    xmlSetStructuredErrorFunc(&errors, [](void* sink, xmlErrorPtr e) {
      static_cast<std::vector<LxError>*>(sink)->push_back(
          {e->domain, e->code, e->level, Str(BAD_CAST e->message)});
    });
    if (lxDoc.empty()) lxDoc = doc;
    xmlDocPtr lx = xmlReadMemory(lxDoc.data(), int(lxDoc.size()), "doc.xml", nullptr,
                                 XML_PARSE_NOENT | XML_PARSE_DTDATTR | XML_PARSE_NONET);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    std::string lxDump = lx && ready ? "" : kRefused, ourDump = kRefused;
    if (lx) LxDump(xmlDocGetRootElement(lx), 0, lxDump);
    xmlFreeDoc(lx);
    std::unique_ptr<KalLightXmlElementItf> root(KalLightXmlElementFactory().CreateElement());
    KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(doc.data()),
                                       int(doc.size()));
    if (KalLightXmlParser().Parse(input, *root) == 1)
      ourDump.clear(), OurDump(root.get(), 0, ourDump);
    auto first = std::find_if(errors.begin(), errors.end(), [&](const LxError& e) {
      return Excused(e) || (!lx && e.level == XML_ERR_FATAL);  // what made libxml2 refuse
    });
    const bool skipped = first != errors.end() && Excused(*first);
    if (Libxml2Lax(doc, errors)) lxDump = kRefused;
    const bool differ = lxDump != ourDump;
    bothRefused += !skipped && !differ && lxDump == kRefused;
    if ((wellFormed ? skipped || lxDump == kRefused || differ : !skipped && differ) && shown++ < 3)
      ADD_FAILURE() << testing::PrintToString(doc) << "\nlibxml2"
                    << (first != errors.end() ? " (" + first->message + ")" : "") << ":\n"
                    << testing::PrintToString(lxDump) << "\nours:\n"
                    << testing::PrintToString(ourDump);
    return lxDump;
  }
};

// Bytes the generator leaves where a fault may be planted; stripped from every document.
enum : char { kText = 14, kAttr, kTag, kOutside, kDtd };

// The document without markers; `at` gets the clean offset of the pick-th `marker`.
std::string Strip(const std::string& doc, char marker = 0, int pick = -1, size_t* at = nullptr) {
  std::string clean;
  for (char c : doc) {
    if (c == marker && pick-- == 0) *at = clean.size();
    if (c < kText || c > kDtd) clean += c;
  }
  return clean;
}

// Declarations an internal subset may hold; the first of an entity or attribute binds.
// clang-format off
const Strings kDecls = {
    "<!-- ' \" ] > -->", "<?pi ]> '?>", "<!ELEMENT item (#PCDATA|b|data)*>",
    "<!ELEMENT data (item?, (b | x.y)+)>", "<!NOTATION gif PUBLIC '-//X//N' \"s]>'\">",
    "<!ENTITY % pe \"<!ENTITY pex 'v'>\">", "<!ENTITY ext SYSTEM \"ext.xml\">",
    "<!ENTITY img SYSTEM 'a.gif' NDATA gif>", "<!ENTITY e1 \"it's ]>\ta\r\nb\">",
    "<!ENTITY u 'caf&#233;&#9;&#x20AC;&lt;'>", "<!ENTITY e2 '[&e1;] \"q\" &amp; &#x41;'>",
    "<!ENTITY lt2 \"&#38;#60;\">", "<!ENTITY m \"<b>x</b>\">", "<!ENTITY e1 'second'>",
    "<!ENTITY m \"t<b k='1'>x&amp;y</b>\">", "<!ATTLIST data id ID #IMPLIED lang NMTOKEN 'en'>",
    "<!ATTLIST item kind CDATA \"d'f]>\" toks NMTOKENS #IMPLIED\n mode (on|off) 'off'>",
    "<!ATTLIST b k CDATA \"kb\" xml:lang CDATA 'fr'>",
    "<!ATTLIST item kind CDATA 'second' toks CDATA #IMPLIED>"};
// clang-format on

// Random documents, holding literally only the non-ASCII characters of `lit` (those the target
// encoding has). A braced list makes its random choices left to right.
struct Gen {
  std::mt19937 rng;
  Strings lit, ents, dups;  // the text entities declared; per kTag mark, the attribute before it
  std::string o;
  bool markup = false;
  Gen(unsigned seed, Strings l) : rng(seed), lit(std::move(l)) {}
  int R(size_t n) { return int(rng() % n); }
  bool P(int percent) { return R(100) < percent; }
  std::string Pick(const Strings& v) { return v[R(v.size())]; }
  static std::string Cat(std::initializer_list<std::string> p) {
    return std::accumulate(p.begin(), p.end(), std::string());
  }
  std::string Ws() { return Pick({" ", "\t", "\n", "\r\n", "\r", "  "}); }
  std::string Word() { return Cat({Pick({"a", "bc", "xyz", "Word"}), P(30) ? Pick(lit) : ""}); }
  // Character data; a white-space reference sits between letters, as libxml2 cannot tell
  // white space by reference alone from indentation.
  std::string Piece(char quote) {
    const int k = R(8);
    if (k < 2)
      return Pick({"x&#13;y", "&#00000000065;", "&#x0000041;", "&#233;", "&#x20AC;", "&#x1D11E;",
                   "y&#9;z", "z&#10;x", "]>", "&lt;", "&gt;", "&amp;", "&quot;", "&apos;"});
    if (k == 2) return ents.empty() ? "q" : "&" + Pick(ents) + ";";
    return k == 3 ? Ws() : k == 4 ? (quote == '"' ? "'>" : "\">") : Cat({Word(), P(50) ? " " : ""});
  }
  std::string Misc(int kinds) {  // a comment, a processing instruction or a CDATA section
    const int k = R(kinds);
    if (k == 0) return Cat({"<!--", Pick({"", " c ", "<&>'\"", "-x", Word()}), "-->"});
    if (k == 1)
      return Cat({"<?", Pick({"pi", "xml-s", "k.l"}), Pick({"", " <&>?x ", " " + Word()}), "?>"});
    return Cat({"<![CDATA[", Pick({"", " ", "<c>&amp;", "]]", "a]b", "x\r\ny\rz", Word()}), "]]>"});
  }
  void Element(int depth, const std::string& tag) {
    Strings names = kAttrs;
    std::string last = " a='1' a='2'";
    o += "<" + tag;
    for (int i = R(4); i > 0; --i) {
      const std::string name = Pick(names), q = P(50) ? "\"" : "'";
      const bool tokens = std::find(kAttrs.begin(), kAttrs.end(), name) < kAttrs.begin() + 4;
      names.erase(std::find(names.begin(), names.end(), name));
      std::string a =
          Cat({Pick({" ", "\n\t", "  "}), name, Pick({"=", " = ", "\r\n="}), q, {kAttr}});
      if (tokens)  // blanks around and between tokens, which tokenized types collapse
        a += Cat({P(60) ? Ws() : "", Pick({"on", "off", "b-2", "c.3", "_d", ":e", "9\xC3\xBC"}),
                  P(50) ? Ws() + " en" : "", P(60) ? Ws() : ""});
      for (int k = tokens ? 0 : R(4); k > 0; --k) a += Piece(q[0]);
      o += a + q, last = Strip(a + q);
    }
    dups.push_back(last);
    o += Cat({{kTag}, P(20) ? Ws() : ""});
    if (P(15)) return void(o += "/>");
    o += ">";
    for (int i = R(depth < 5 ? 7 : 4); i > 0; --i) {  // white space, text, markup, children
      o += char(kText);
      const int k = R(depth < 5 ? 7 : 4);
      if (k >= 5 || (k == 4 && !markup))
        Element(depth + 1,
                Pick({"r", "item", "data", "b", "x.y", "_u", "n-1", "caf\303\251", "a\302\267b"}));
      else
        o += k < 2 ? Ws() : k == 2 ? Piece(0) : k == 3 ? Misc(3) : "&m;";
    }
    o += Cat({{kText}, "</", tag, P(10) ? Ws() : "", ">"});
  }
  // A whole document; `decl`, when given, is its XML declaration ("" for none).
  std::string Document(const char* decl = nullptr) {
    o = kOutside, ents.clear(), dups.clear();
    o += decl ? decl
              : Pick({"", "<?xml version=\"1.0\"?>", "<?xml version='1.0' encoding='utf-8'?>",
                      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone='no' ?>",
                      "<?xml version='1.0' standalone=\"yes\"?>"});
    o += Cat({{kOutside}, P(50) ? "\n" : "", P(20) ? Misc(2) : ""});
    const std::string root = P(60) ? "r" : "item";
    if (P(60)) {
      o +=
          Cat({"<!DOCTYPE ", root,
               Pick({"", " SYSTEM \"r.dtd\"", " PUBLIC \"-//K//DTD r//EN\" 'r.dtd'"}), " [", Ws()});
      for (const std::string& d : kDecls)  // e2 refers to e1
        if (P(60) && (d.find("e2") == npos || o.find("ENTITY e1") != npos))
          o += Cat({d, P(50) ? Ws() : "", {kDtd}});
      o += Cat({"]", P(20) ? Ws() : "", ">", {kOutside}, Ws()});
      for (const char* e : {"e1", "u", "e2", "lt2"})
        if (o.find(std::string("ENTITY ") + e + " ") != npos) ents.push_back(e);
    }
    markup = o.find("ENTITY m ") != npos;
    Element(0, root);
    return o + Cat({{kOutside}, P(50) ? "\n" : "", P(20) ? Misc(2) : ""});
  }
};

// The document in another character set, behind a byte-order mark if any.
std::string Encode(const std::string& utf8, const char* charset, const std::string& bom) {
  std::string out(4 * utf8.size(), '\0');
  char *in = const_cast<char*>(utf8.data()), *to = &out[0];
  size_t inLeft = utf8.size(), outLeft = out.size();
  const iconv_t cd = iconv_open(charset, "UTF-8");
  EXPECT_EQ(iconv(cd, &in, &inLeft, &to, &outLeft), 0u) << charset << ": " << utf8;
  iconv_close(cd);
  return bom + out.substr(0, out.size() - outLeft);
}

const Strings kUtf8 = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9D\x84\x9E", "\xE4\xB8\xAD", "\x7F"};

TEST(XmlDifferential, WellFormedDocumentsInUtf8OrReencodedGiveTheSameTree) {
  // The canonical dump pinned on one document, so that the comparison itself is known right.
  const std::string pinned =
      "<?xml version='1.0'?>\n<!DOCTYPE r [<!ENTITY e 'E&#9;'><!ATTLIST i toks NMTOKENS #IMPLIED "
      "kind CDATA 'dv'>]>\n<r name=\" x\r\n&#9;y&e; \"><!--c-->\n  <i toks=\"  p\tq \">T<?p?>&amp;"
      "<![CDATA[<c>]]>\r\n</i>\n  <![CDATA[ ]]>\n  <i/>&#00000000065;</r>";
  Tally tally;
  EXPECT_EQ(tally.Add(pinned, true),
            "r name=\" x \tyE  \" : \"\n   \n  A\"\n"
            "  i kind=\"dv\" toks=\"p q\" : \"T&<c>\n\"\n  i kind=\"dv\" : \"\"\n");
  Gen gen(20240611, kUtf8);
  for (int i = 0; i < 1500; ++i) {
    const std::string bom = gen.P(10) ? "\xEF\xBB\xBF" : "";
    tally.Add(bom + Strip(gen.Document()), true);
  }
  // Re-encoded, each set: the charset, the encoding names a declaration gives it ("" for none),
  // its byte-order mark and the non-ASCII characters it has.
  // clang-format off
  const struct { const char* charset; Strings names; std::string bom; Strings lit; } sets[] = {
      {"ISO-8859-1", {"ISO-8859-1", "iso-8859-1"}, "", {"\xC3\xA9", "\xC3\xBF", "\xC2\xA4"}},
      {"WINDOWS-1252", {"windows-1252", "WINDOWS-1252"}, "",
       {"\xE2\x82\xAC", "\xC5\xA0", "\xC5\xB8", "\xE2\x80\xA6"}},
      {"UTF-16LE", {"UTF-16", "utf-16", ""}, "\xFF\xFE", kUtf8},
      {"UTF-16BE", {"UTF-16", ""}, "\xFE\xFF", kUtf8}};
  // clang-format on
  for (const auto& set : sets) {
    Gen re(77, set.lit);
    for (int i = 0; i < 100; ++i) {
      const std::string name = re.Pick(set.names);
      const std::string decl = !name.empty() ? "<?xml version='1.0' encoding='" + name + "'?>"
                               : re.P(50)    ? "<?xml version='1.0'?>"
                                             : "";
      tally.Add(Encode(Strip(re.Document(decl.c_str())), set.charset, set.bom), true);
    }
  }
}

TEST(XmlDifferential, MalformedDocumentsAreRefusedLikeLibxml2) {
  // Faults planted at a marked place: "dup" repeats the attribute just before it; "&" and
  // "&nope;" are kept as written by ours, so libxml2 reads them escaped.
  // clang-format off
  const std::vector<std::pair<char, Strings>> faults = {
      {kText, {"]]>", "<", "&#1;", "&#xFFFE;", "&#0;", "&#x110000;", "\x01", "\x1F", "\xFF",
               "\xC3(", "\xED\xA0\x80", "\xC0\xAF", "&#12a;", "&#x;", "</x>", "<![CDATA[x]]",
               "<!--a--b-->", "<!--\x01-->", "<!--\xF8-->", "<1a/>", "<?xml version=\"1.0\"?>",
               "<!DOCTYPE r>", "<a></b>", "<a b='1' b='2'/>", "<a", "<-a/>", "&", "&nope;"}},
      {kAttr, {"<", "&#1;", "\x01", "\xFE", "'\"", "&", "&nope;"}},
      {kTag, {"dup", "dup", " 1a=\"x\"", " a", " a=b", "=\"x\"", "<"}},
      {kOutside, {"<!DOCTYPE r>", "<?xml version=\"1.0\"?>", "t", "<r2/>", "&#65;", "\xEF\xBB\xBF",
                  "<!-- a -- -->", "<!ELEMENT r ANY>", "\n", "<!---->"}},
      {kDtd, {"<!ELEMENT>", "<!ENTITY x '&#1;'>", "<!ATTLIST item q CDATA \"<\">", "]]>",
              "<!ENTITY e3 \"a\" junk>", "<!ENTITY 1x 'v'>", "<!-- -- -->",
              "<!ENTITY e1 \"[&e1;]\">"}}};
  // clang-format on
  const std::string bytes("<>&;#'\"]=/!?- a\x01\x80\xFF");
  Gen gen(9001, kUtf8);
  Tally tally;
  for (int i = 0; i < 3000; ++i) {
    const std::string marked = gen.Document();
    std::string doc = Strip(marked), lxDoc;
    if (gen.P(60)) {
      const std::pair<char, Strings>* fault;
      int count = 0;  // tags and outside places are always marked
      while (count == 0)
        fault = &faults[gen.R(faults.size())],
        count = int(std::count(marked.begin(), marked.end(), fault->first));
      const int pick = gen.R(count);
      size_t at = npos;
      doc = Strip(marked, fault->first, pick, &at);
      const std::string text = gen.Pick(fault->second);
      if (text == "&" || text == "&nope;")
        lxDoc = std::string(doc).insert(at, "&amp;" + text.substr(1));
      doc.insert(at, text == "dup" ? gen.dups[pick] : text);
    } else {  // blind edits: insert, delete or replace a byte (not NUL, where libxml2 stops)
      for (int k = 1 + gen.R(2); k > 0; --k) {
        const size_t pos = gen.R(doc.size());
        const char b = gen.P(70) ? bytes[gen.R(bytes.size())] : char(1 + gen.R(255));
        const int op = gen.R(3);
        doc.replace(pos, op != 0, op == 1 ? "" : std::string(1, b));
      }
    }
    tally.Add(doc, false, lxDoc);
  }
  EXPECT_GT(tally.bothRefused, 1500) << "too few mutants are malformed";
}

}  // namespace
}  // namespace kaltest
