// The XML element model (a tree outliving its input, copies; files: see Hostile), and what the
// libxml2 differential test cannot pin: limits, encodings and refusals it does not reach.
#include "KalLightXml.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

using Root = std::unique_ptr<Element>;
const std::string kRefused = "(refused)";

Root NewRoot() { return Root(KalLightXmlElementFactory().CreateElement()); }

// Parses into `root`; the input is overwritten and freed at once, so the tree must own copies.
int ParseInto(Element& root, std::string xml) {
  KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml.data()),
                                     static_cast<int>(xml.size()));
  const int rc = KalLightXmlParser().Parse(input, root);
  xml.assign(xml.size(), 'X');
  return rc;
}

std::string Text(const KalUnicodeString& s) {
  return {s.ConvertToChar(), size_t(s.GetLengthInChar())};
}

std::vector<Element*> Children(const Element* e) {
  std::vector<Element*> out;
  for (KalPosition at = e->GetHeadPosition(); at != nullptr;) out.push_back(e->GetNextChild(at));
  return out;
}

// Tag, ":value" when there is one, and the children in braces.
std::string Tree(const Element* e) {
  std::string out = Text(e->GetType()) + (e->GetValue().IsEmpty() ? "" : ":" + Text(e->GetValue()));
  const std::vector<Element*> kids = Children(e);
  for (size_t i = 0; i < kids.size(); ++i) out += (i ? "," : "{") + Tree(kids[i]);
  return out + (kids.empty() ? "" : "}");
}

// The root's value (or its attribute `attr`); kRefused when the parser answers 0.
std::string Read(const std::string& xml, const char* attr = nullptr) {
  Root root = NewRoot();
  const int rc = ParseInto(*root, xml);
  if (rc != 1) return rc == 0 ? kRefused : "rc " + std::to_string(rc);
  return Text(attr ? root->GetAttribute(attr) : root->GetValue());
}

TEST(XmlTree, TextIsKeptWholeReparsingReplacesTheTreeAbsentAttributesAreTheSharedEmpty) {
  std::string xml = "<r name='old'>", pieces, kids, huge(6 << 20, 'A');
  for (int i = 0; i < 2000; ++i) {
    const std::string text = "t" + std::to_string(i);
    xml += text + "<c/>", pieces += text, kids += i ? ",c" : "{c";
  }
  for (size_t i = 0; i < huge.size(); i += 77) huge[i] = static_cast<char>('a' + i % 26);
  Root root = NewRoot();
  ASSERT_EQ(ParseInto(*root, xml + "<d>" + huge + "</d></r>"), 1);
  EXPECT_TRUE(Tree(root.get()) == "r:" + pieces + kids + ",d:" + huge + "}");
  EXPECT_EQ(Children(root.get()).back()->GetValue().ConvertToChar()[huge.size()], '\0');
  ASSERT_EQ(ParseInto(*root, "<b xsi:type=\"T\"/>"), 1);
  EXPECT_EQ(Tree(root.get()) + "|" + Text(root->GetAttribute("xsi:type")), "b|T");
  for (const char* absent : {"name", "xsi", "type"})
    EXPECT_EQ(&root->GetAttribute(absent), &KalUnicodeString::Empty()) << absent;
}

TEST(XmlCopy, OnlyFactoryElementsReceiveDeepCopiesIndependentOfTheirSource) {
  Root source = ParseXml("<r><Rep id='3' f='F'><Data>abc</Data><More><Leaf/></More></Rep><b/></r>"),
       copy = NewRoot();
  std::vector<Element*> reps = Children(source.get());
  EXPECT_EQ(reps[1]->CopyFrom(reps[0]), 0);  // a parsed element is not a factory element
  EXPECT_EQ(source->CopyFrom(source.get()), 0);
  EXPECT_EQ(Tree(source.get()), "r{Rep{Data:abc,More{Leaf}},b}");
  ASSERT_EQ(copy->CopyFrom(reps[0]), 1);
  source.reset();  // the copy must not point into the source document
  EXPECT_EQ(Tree(copy.get()) + Text(copy->GetAttribute("id")) + Text(copy->GetAttribute("f")),
            "Rep{Data:abc,More{Leaf}}3F");
}

TEST(XmlValues, ReferencesAndEncodingsTheDifferentialTestCannotCompare) {
  std::string le, be;  // UTF-32 behind a byte-order mark
  for (char32_t c : std::u32string(U"\uFEFF<r>\u20AC\U0001D11E</r>"))
    for (int i = 0; i < 4; ++i) le += char(c >> 8 * i), be += char(c >> 8 * (3 - i));
  const std::string decl = "<?xml version=\"1.0\" encoding=";
  // clang-format off
  const struct { std::string xml, value; const char* attr = nullptr; } cases[] = {
      {"<r>&#32;<a/></r>", " "},  // a reference is content, not indentation
      {"<!DOCTYPE r [<!ENTITY x SYSTEM \"x.xml\">]><r>&x;</r>", "&x;"},  // never fetched
      {"<r a=\"]]>\"/>", "]]>", "a"},
      {decl + "\"latin-1\"?><r>\xE9</r>", "\xC3\xA9"},
      {decl + "\"ISO8859-1\"?><r>\xE9</r>", "\xC3\xA9"},
      {decl + "\"ISO-8859-15\"?><r>\xA4</r>", "\xE2\x82\xAC"},
      {le, "\xE2\x82\xAC\xF0\x9D\x84\x9E"},
      {be, "\xE2\x82\xAC\xF0\x9D\x84\x9E"},
      {std::string("<\0r\0>\0\xE9\0<\0/\0r\0>\0", 16), "\xC3\xA9"}};  // UTF-16 without a mark
  // clang-format on
  for (const auto& c : cases)
    EXPECT_EQ(Read(c.xml, c.attr), c.value) << testing::PrintToString(c.xml);
}

TEST(XmlEntities, UnsafeUsesAndExpansionPastTheAllowanceAreRefused) {
  // Ten levels of ten references (10^9 copies); one 100 KB entity used a thousand times
  // (100 MB); a hundred 10 KB defaults given to a thousand elements (1 GB).
  std::string laughs = "<!DOCTYPE r [<!ENTITY l0 \"lol\">";
  for (int level = 1; level < 10; ++level) {
    laughs += "<!ENTITY l" + std::to_string(level) + " \"";
    for (int i = 0; i < 10; ++i) laughs += "&l" + std::to_string(level - 1) + ";";
    laughs += "\">";
  }
  std::string repeated = "<!DOCTYPE r [<!ENTITY big \"" + std::string(100000, 'x') + "\">]><r>";
  std::string defaults = "<!DOCTYPE r [<!ATTLIST e";
  for (int i = 0; i < 100; ++i)
    defaults += " a" + std::to_string(i) + " CDATA \"" + std::string(10000, 'd') + "\"";
  defaults += ">]><r>";
  for (int i = 0; i < 1000; ++i) repeated += "&big;", defaults += "<e/>";
  // clang-format off
  const std::vector<std::string> documents = {
      laughs + "]><r>&l9;</r>", repeated + "</r>", defaults + "</r>",
      "<!DOCTYPE r [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><r>&a;</r>",
      "<!DOCTYPE r [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><r v='&a;'/>",
      "<!DOCTYPE r [<!ENTITY a 'x&a;'>]><r>&a;</r>",
      "<!DOCTYPE r [<!ENTITY l '&#60;'>]><r a='&l;'/>",  // its text is "<"
      "<!DOCTYPE r [<!ENTITY m '<b>x</b>'>]><r a='&m;'/>",
      "<!DOCTYPE r [<!ENTITY x SYSTEM 'x.xml'>]><r a='&x;'/>",
      "<!DOCTYPE r [<!ENTITY % p 'CDATA'><!ATTLIST r a %p; #IMPLIED>]><r/>",
      "<!DOCTYPE r [<!ENTITY % p 'x'><!ENTITY e '%p;'>]><r/>"};
  // clang-format on
  for (const std::string& xml : documents) EXPECT_EQ(Read(xml), kRefused) << xml.substr(0, 80);
  // Below the allowance the same shapes are read.
  EXPECT_EQ(
      Read("<!DOCTYPE r [<!ENTITY big \"" + std::string(1000, 'x') + "\">]><r>&big;&big;</r>"),
      std::string(2000, 'x'));
}

TEST(XmlRefused, MalformedDocumentsTheDifferentialTestDoesNotReach) {
  // clang-format off
  std::vector<std::string> documents = {
      "", "   \n ", "<?xml version='1.0'?>", "<r>", "<r/", "</r>", "< r/>", "<r a='1'b='2'/>",
      "<r a='unterminated/>", "<r><!-- unterminated </r>", "<r><!bogus></r>", "<r><!-- a ---></r>",
      "<.r/>", "<r -a='x'/>", "<\302\267a/>", "<r><?xMl?></r>", "<?XML version='1.0'?><r/>",
      "<?xml version='2.0'?><r/>", "<?xml version='1'?><r/>", "<bad\xFE/>", "<r b\xF8='1'/>",
      "<?xml version='1.0' standalone='maybe'?><r/>", "<?xml version='1.0' standalone='YES'?><r/>",
      "<?xml version='1.0' encoding='windows-1252'?><r>\x81</r>",
      "<?xml version='1.0' encoding='x-no-such'?><r/>", std::string("<r>\0</r>", 8),
      std::string("<n\0m/>", 6), std::string("<r/>\0", 5)};  // libxml2 stops reading at a NUL
  // clang-format on
  // 4294967361 and 0x100000041 wrap to 'A' in 32 bits: the value must not overflow.
  for (const char* ref : {"&#xD800;", "&#xFFFF;", "&#;", "&#4294967361;", "&#x100000041;"})
    documents.push_back(std::string("<r>") + ref + "</r>"),
        documents.push_back(std::string("<r a=\"") + ref + "\"/>");
  for (const std::string& xml : documents)
    EXPECT_EQ(Read(xml), kRefused) << testing::PrintToString(xml);
}

}  // namespace
}  // namespace kaltest
