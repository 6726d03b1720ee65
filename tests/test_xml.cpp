// The platform's XML element model: what a parsed tree holds, what is refused, and how the
// tree behaves as memory (outliving its input, deep nesting, copies).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KalLightXml.h"
#include "TestDocuments.h"

namespace {

using Element = KalLightXmlElementItf;

std::unique_ptr<Element> ParseText(const std::string& xml, int* result = nullptr) {
  KalLightXmlElementFactory factory;
  std::unique_ptr<Element> root(factory.CreateElement());
  KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml.data()),
                                     static_cast<int>(xml.size()));
  KalLightXmlParser parser;
  const int rc = parser.Parse(input, *root);
  if (result != nullptr) *result = rc;
  return rc == 1 ? std::move(root) : nullptr;
}

std::vector<Element*> Children(const Element* e) {
  std::vector<Element*> out;
  KalPosition cursor = e->GetHeadPosition();
  while (cursor != nullptr) out.push_back(e->GetNextChild(cursor));
  return out;
}

std::string Text(const KalUnicodeString& s) { return std::string(s.ConvertToChar(), s.GetLengthInChar()); }

TEST(XmlTree, RootTakesTheDocumentElementWithAttributesAndChildrenInOrder) {
  auto root = ParseText(
      "<?xml version=\"1.0\"?>\n<!-- lead -->\n<Model a=\"1\" xsi:type=\"T\">\n"
      "  <First id='7'/>\n  <?pi ignored?>\n  <Second>text</Second>\n  <!-- c -->\n  <Third/>\n</Model>\n");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetType()), "Model");
  EXPECT_EQ(Text(root->GetAttribute("a")), "1");
  EXPECT_EQ(Text(root->GetAttribute("xsi:type")), "T");
  std::vector<Element*> kids = Children(root.get());
  ASSERT_EQ(kids.size(), 3u);
  EXPECT_EQ(Text(kids[0]->GetType()), "First");
  EXPECT_EQ(Text(kids[0]->GetAttribute("id")), "7");
  EXPECT_EQ(Text(kids[1]->GetValue()), "text");
  EXPECT_EQ(Text(kids[2]->GetType()), "Third");
  EXPECT_EQ(kids[2]->GetHeadPosition(), nullptr);
}

TEST(XmlTree, CursorBecomesNullAfterTheLastChild) {
  auto root = ParseText("<r><a/><b/></r>");
  ASSERT_NE(root, nullptr);
  KalPosition cursor = root->GetHeadPosition();
  ASSERT_NE(cursor, nullptr);
  root->GetNextChild(cursor);
  EXPECT_NE(cursor, nullptr);
  root->GetNextChild(cursor);
  EXPECT_EQ(cursor, nullptr);
}

TEST(XmlTree, AbsentAttributeIsTheSharedEmptyString) {
  auto root = ParseText("<r id=\"1\"/>");
  ASSERT_NE(root, nullptr);
  const KalUnicodeString& missing = root->GetAttribute("name");
  EXPECT_EQ(&missing, &KalUnicodeString::Empty());
  EXPECT_EQ(missing.GetLengthInChar(), 0);
  // Names match whole: a prefix or a longer name is another attribute.
  EXPECT_EQ(root->GetAttribute("i").GetLengthInChar(), 0);
  EXPECT_EQ(root->GetAttribute("idx").GetLengthInChar(), 0);
}

TEST(XmlTree, ManyTextPiecesAroundChildrenStayComplete) {
  std::string xml = "<r>";
  std::string expected;
  for (int i = 0; i < 2000; ++i) {
    xml += "t" + std::to_string(i) + "<c/>";
    expected += "t" + std::to_string(i);
  }
  xml += "</r>";
  auto root = ParseText(xml);
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetValue()), expected);
  EXPECT_EQ(Children(root.get()).size(), 2000u);
}

TEST(XmlTree, LineEndsAreNormalisedAndAttributeWhiteSpaceBecomesBlanks) {
  auto root = ParseText("<r a=\"x\ty\r\nz\nw\">l1\r\nl2\rl3</r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetAttribute("a")), "x y z w");
  EXPECT_EQ(Text(root->GetValue()), "l1\nl2\nl3");
}

TEST(XmlMalformed, MutatedDocumentsNeverCrash) {
  const std::string good =
      "<?xml version=\"1.0\"?><Model><Header><SchemaVersion>2.0</SchemaVersion></Header>"
      "<ProductStructure root=\"1\"><Reference3D xsi:type=\"Reference3DType\" id=\"1\"/>"
      "<Instance3D id=\"2\"><IsAggregatedBy>1</IsAggregatedBy><![CDATA[x]]></Instance3D>"
      "</ProductStructure></Model>";
  std::mt19937 random(12345);
  int accepted = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string xml = good;
    const int edits = 1 + static_cast<int>(random() % 4);
    for (int e = 0; e < edits; ++e) {
      const size_t at = random() % xml.size();
      switch (random() % 3) {
        case 0: xml[at] = static_cast<char>(random() % 256); break;
        case 1: xml.erase(at, 1 + random() % 8); break;
        default: xml.resize(at); break;
      }
      if (xml.empty()) xml = "<";
    }
    int rc = -1;
    auto root = ParseText(xml, &rc);
    ASSERT_TRUE(rc == 0 || rc == 1);
    if (rc == 1) {
      ++accepted;
      Children(root.get());
    }
  }
  // Some single-byte edits leave a well-formed document: the parser must not refuse all.
  EXPECT_GT(accepted, 0);
}

TEST(XmlMemory, TreeOutlivesTheInputBuffer) {
  std::string xml = "<r name=\"kept\"><c>value</c></r>";
  std::unique_ptr<char[]> buffer(new char[xml.size()]);
  std::memcpy(buffer.get(), xml.data(), xml.size());
  KalLightXmlElementFactory factory;
  std::unique_ptr<Element> root(factory.CreateElement());
  {
    KalLightXmlInputStreamBuffer input(reinterpret_cast<unsigned char*>(buffer.get()),
                                       static_cast<int>(xml.size()));
    KalLightXmlParser parser;
    ASSERT_EQ(parser.Parse(input, *root), 1);
  }
  std::memset(buffer.get(), 'X', xml.size());
  buffer.reset();
  EXPECT_EQ(Text(root->GetType()), "r");
  EXPECT_EQ(Text(root->GetAttribute("name")), "kept");
  EXPECT_EQ(Text(Children(root.get())[0]->GetValue()), "value");
}

TEST(XmlMemory, HundredThousandNestedElementsParseWalkAndDelete) {
  const int depth = 100000;
  std::string xml;
  xml.reserve(depth * 8);
  for (int i = 0; i < depth; ++i) xml += "<n>";
  xml += "deep";
  for (int i = 0; i < depth; ++i) xml += "</n>";
  auto root = ParseText(xml);
  ASSERT_NE(root, nullptr);
  const Element* e = root.get();
  int levels = 1;
  for (;;) {
    KalPosition cursor = e->GetHeadPosition();
    if (cursor == nullptr) break;
    e = e->GetNextChild(cursor);
    ++levels;
  }
  EXPECT_EQ(levels, depth);
  EXPECT_EQ(Text(e->GetValue()), "deep");
  root.reset();  // must not recurse
}

TEST(XmlMemory, ReparsingARootReplacesItsDocument) {
  KalLightXmlElementFactory factory;
  std::unique_ptr<Element> root(factory.CreateElement());
  KalLightXmlParser parser;
  std::string first = "<a><x/><y/></a>";
  std::string second = "<b k=\"v\"/>";
  KalLightXmlInputStreamBuffer in1(reinterpret_cast<const unsigned char*>(first.data()),
                                   static_cast<int>(first.size()));
  ASSERT_EQ(parser.Parse(in1, *root), 1);
  KalLightXmlInputStreamBuffer in2(reinterpret_cast<const unsigned char*>(second.data()),
                                   static_cast<int>(second.size()));
  ASSERT_EQ(parser.Parse(in2, *root), 1);
  EXPECT_EQ(Text(root->GetType()), "b");
  EXPECT_EQ(Text(root->GetAttribute("k")), "v");
  EXPECT_EQ(root->GetHeadPosition(), nullptr);
}

TEST(XmlCopy, CopyIsDeepAndIndependentOfItsSource) {
  auto source = ParseText("<r><Rep id=\"3\" format=\"F\"><Data>abc</Data><More><Leaf/></More></Rep></r>");
  ASSERT_NE(source, nullptr);
  Element* rep = Children(source.get())[0];
  KalLightXmlElementFactory factory;
  std::unique_ptr<Element> copy(factory.CreateElement());
  ASSERT_EQ(copy->CopyFrom(rep), 1);
  source.reset();  // the copy must not point into the source document

  EXPECT_EQ(Text(copy->GetType()), "Rep");
  EXPECT_EQ(Text(copy->GetAttribute("id")), "3");
  EXPECT_EQ(Text(copy->GetAttribute("format")), "F");
  std::vector<Element*> kids = Children(copy.get());
  ASSERT_EQ(kids.size(), 2u);
  EXPECT_EQ(Text(kids[0]->GetValue()), "abc");
  std::vector<Element*> grand = Children(kids[1]);
  ASSERT_EQ(grand.size(), 1u);
  EXPECT_EQ(Text(grand[0]->GetType()), "Leaf");
  // A copy's own siblings are not copied: it is a root.
  KalPosition none = nullptr;
  EXPECT_EQ(copy->GetNextChild(none), nullptr);
}

TEST(XmlCopy, OnlyFactoryElementsReceiveCopies) {
  auto doc = ParseText("<r><a/><b/></r>");
  ASSERT_NE(doc, nullptr);
  std::vector<Element*> kids = Children(doc.get());
  EXPECT_EQ(kids[0]->CopyFrom(kids[1]), 0);
  EXPECT_EQ(Text(kids[0]->GetType()), "a");
  EXPECT_EQ(doc->CopyFrom(doc.get()), 0);
}

TEST(XmlInputFile, ReadsAFileAndRefusesMissingOrEmptyOnes) {
  kaltest::TempDir dir;
  kaltest::WriteFile(dir.File("doc.xml"), "<r><c>v</c></r>");
  kaltest::WriteFile(dir.File("empty.xml"), "");
  KalLightXmlParser parser;
  KalLightXmlElementFactory factory;

  std::unique_ptr<Element> root(factory.CreateElement());
  KalLightXmlInputFile file(dir.File("doc.xml").c_str());
  ASSERT_EQ(parser.Parse(file, *root), 1);
  EXPECT_EQ(Text(Children(root.get())[0]->GetValue()), "v");

  std::unique_ptr<Element> missingRoot(factory.CreateElement());
  KalLightXmlInputFile missing(dir.File("missing.xml").c_str());
  EXPECT_EQ(parser.Parse(missing, *missingRoot), 0);

  std::unique_ptr<Element> emptyRoot(factory.CreateElement());
  KalLightXmlInputFile empty(dir.File("empty.xml").c_str());
  EXPECT_EQ(parser.Parse(empty, *emptyRoot), 0);

  std::unique_ptr<Element> dirRoot(factory.CreateElement());
  KalLightXmlInputFile directory(dir.Path().c_str());
  EXPECT_EQ(parser.Parse(directory, *dirRoot), 0);
}

TEST(XmlTree, LargeTextValueIsCopiedWhole) {
  std::string payload(6 * 1024 * 1024, 'A');
  for (size_t i = 0; i < payload.size(); i += 77) payload[i] = static_cast<char>('a' + i % 26);
  auto root = ParseText("<r><Data>" + payload + "</Data></r>");
  ASSERT_NE(root, nullptr);
  const KalUnicodeString& v = Children(root.get())[0]->GetValue();
  ASSERT_EQ(static_cast<size_t>(v.GetLengthInChar()), payload.size());
  EXPECT_EQ(std::memcmp(v.ConvertToChar(), payload.data(), payload.size()), 0);
  EXPECT_EQ(v.ConvertToChar()[payload.size()], '\0');
}

// Failure messages show raw bytes escaped, so a refused control byte is readable.
std::string Shown(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02X", c);
    out += (c >= 0x20 && c < 0x7F) ? std::string(1, static_cast<char>(c)) : std::string(hex);
  }
  return out;
}

// Each document must be accepted, and the root's attribute `attr` (its text when null) must
// hold `expected` exactly.
struct ValueCase {
  std::string xml;
  const char* attr;
  const char* expected;
};

void ExpectValues(const std::vector<ValueCase>& cases) {
  for (const ValueCase& c : cases) {
    int rc = -1;
    auto root = ParseText(c.xml, &rc);
    EXPECT_EQ(rc, 1) << Shown(c.xml);
    if (rc != 1) continue;
    const KalUnicodeString& got = c.attr ? root->GetAttribute(c.attr) : root->GetValue();
    EXPECT_EQ(Text(got), c.expected) << Shown(c.xml);
  }
}

void ExpectRefused(const std::vector<std::string>& documents) {
  for (const std::string& xml : documents) {
    int rc = -1;
    ParseText(xml, &rc);
    EXPECT_EQ(rc, 0) << Shown(xml);
  }
}

// Serialises `text` with a byte order mark in UTF-16 (unit 2) or UTF-32 (unit 4).
std::string Encode(const std::u32string& text, int unit, bool bigEndian) {
  std::string out;
  auto put = [&](uint32_t v) {
    for (int i = 0; i < unit; ++i) {
      const int shift = 8 * (bigEndian ? unit - 1 - i : i);
      out.push_back(static_cast<char>((v >> shift) & 0xFF));
    }
  };
  put(0xFEFF);
  for (char32_t c : text) {
    if (unit == 2 && c > 0xFFFF) {
      put(0xD800 + ((c - 0x10000) >> 10));
      put(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      put(c);
    }
  }
  return out;
}

TEST(XmlWhiteSpace, ValueJoinsTextAndCdataAndDropsOnlyIndentationRuns) {
  ExpectValues({
      {"<v><![CDATA[1 2 3]]>\n<![CDATA[4 5 6]]></v>", nullptr, "1 2 3\n4 5 6"},
      {"<r>x<!--c--> <!--d-->y</r>", nullptr, "x y"},
      {"<r>a<?pi x?>b</r>", nullptr, "ab"},
      {"<r> <!--c--> </r>", nullptr, "  "},
      {"<r>\n <a/>\n</r>", nullptr, ""},
      {"<r><a/>\t<!--c-->\r\n</r>", nullptr, ""},
      {"<r> <![CDATA[x]]> <a/></r>", nullptr, " x "},
      {"<r>\n <!--c-->\n <a/>t</r>", nullptr, "t"},
      {"<r>&#32;<a/></r>", nullptr, " "},  // a reference is content, not indentation
      {"<r><a/> tail </r>", nullptr, " tail "},
      {"<r>a<a/> <b/>c</r>", nullptr, "ac"},  // runs are judged one by one
      {"<v>  1 2\t3  </v>", nullptr, "  1 2\t3  "},
      {"<w>   </w>", nullptr, "   "},
      {"<r>a &lt; b<![CDATA[ <raw> & ]]>c<x/>d</r>", nullptr, "a < b <raw> & cd"},
  });
}

TEST(XmlDoctype, InternalSubsetIsReadByItsGrammarNotByBracketCounting) {
  ExpectValues({
      {"<!DOCTYPE r [\n<!-- ' \" ]> -->\n<?p ]> ' ?>\n<!ENTITY q \"it's ]> here\">\n"
       "<!ENTITY q2 'say \"hi\" > ]'>\n<!ATTLIST r a CDATA \"x]>y\">\n]><r>&q;|&q2;</r>",
       nullptr, "it's ]> here|say \"hi\" > ]"},
      {"<!DOCTYPE r [<!-- ]> --><!ATTLIST r a CDATA \"x]>y\">]><r/>", "a", "x]>y"},
  });
}

TEST(XmlEntities, InternalEntitiesExpandInTextAndAttributes) {
  // e is declared twice: the first declaration binds.
  const std::string subset =
      "<!DOCTYPE r [<!ENTITY e \"text\"><!ENTITY f \"[&e;]\"><!ENTITY lt2 \"&#38;#60;\">"
      "<!ENTITY e \"other\">]>";
  ExpectValues({
      {subset + "<r a=\"&e;\">&e;</r>", nullptr, "text"},
      {subset + "<r a=\"&e;\">&e;</r>", "a", "text"},
      {subset + "<r a=\"&f;\">&f;</r>", nullptr, "[text]"},
      {subset + "<r a=\"&f;\">&f;</r>", "a", "[text]"},
      {subset + "<r>&lt2;</r>", nullptr, "<"},
      // The replacement text is "&#60;", which holds no literal '<', so it is legal here.
      {subset + "<r a=\"&lt2;\"/>", "a", "<"},
      // The reader does not fetch external entities; the reference stays visible.
      {"<!DOCTYPE r [<!ENTITY x SYSTEM \"x.xml\">]><r>&x;</r>", nullptr, "&x;"},
  });
}

TEST(XmlEntities, EntityWhoseTextIsMarkupBecomesAChildElement) {
  auto root = ParseText("<!DOCTYPE r [<!ENTITY m \"<b>x</b>\">]><r>&m;</r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetValue()), "");
  std::vector<Element*> kids = Children(root.get());
  ASSERT_EQ(kids.size(), 1u);
  EXPECT_EQ(Text(kids[0]->GetType()), "b");
  EXPECT_EQ(Text(kids[0]->GetValue()), "x");
}

TEST(XmlEntities, UnsafeEntityUsesAreRefused) {
  ExpectRefused({
      "<!DOCTYPE r [<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">]><r>&a;</r>",
      "<!DOCTYPE r [<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">]><r v=\"&a;\"/>",
      "<!DOCTYPE r [<!ENTITY a \"x&a;\">]><r>&a;</r>",
      "<!DOCTYPE r [<!ENTITY x SYSTEM \"x.xml\">]><r a=\"&x;\"/>",
      "<!DOCTYPE r [<!ENTITY m \"<b>x</b>\">]><r a=\"&m;\"/>",
      "<!DOCTYPE r [<!ENTITY l \"&#60;\">]><r a=\"&l;\"/>",  // replacement text is "<"
      "<!DOCTYPE r [<!ENTITY % p \"CDATA\"><!ATTLIST r a %p; #IMPLIED>]><r/>",
      "<!DOCTYPE r [<!ENTITY % p \"x\"><!ENTITY e \"%p;\">]><r/>",
  });
}

TEST(XmlEntities, ExpansionPastTheAllowanceIsRefused) {
  // Ten levels of ten references: 10^9 copies.
  std::string laughs = "<!DOCTYPE r [<!ENTITY l0 \"lol\">";
  for (int level = 1; level < 10; ++level) {
    laughs += "<!ENTITY l" + std::to_string(level) + " \"";
    for (int i = 0; i < 10; ++i) laughs += "&l" + std::to_string(level - 1) + ";";
    laughs += "\">";
  }
  laughs += "]><r>&l9;</r>";
  // One 100 KB entity used a thousand times: 100 MB.
  std::string repeated = "<!DOCTYPE r [<!ENTITY big \"" + std::string(100000, 'x') + "\">]><r>";
  for (int i = 0; i < 1000; ++i) repeated += "&big;";
  repeated += "</r>";
  // A hundred 10 KB defaults given to a thousand elements: 1 GB.
  std::string defaults = "<!DOCTYPE r [<!ATTLIST e";
  for (int i = 0; i < 100; ++i) defaults += " a" + std::to_string(i) + " CDATA \"" + std::string(10000, 'd') + "\"";
  defaults += ">]><r>";
  for (int i = 0; i < 1000; ++i) defaults += "<e/>";
  defaults += "</r>";
  ExpectRefused({laughs, repeated, defaults});
  // Below the allowance the same shapes are read.
  ExpectValues({{"<!DOCTYPE r [<!ENTITY big \"" + std::string(1000, 'x') + "\">]><r>&big;&big;</r>",
                 nullptr, std::string(2000, 'x').c_str()}});
}

TEST(XmlDoctype, AttributeDefaultsAreSuppliedAndTokenTypesNormalised) {
  auto root = ParseText(
      "<!DOCTYPE r [<!ATTLIST r d CDATA \"dv\" t NMTOKENS #IMPLIED n NMTOKEN #IMPLIED"
      " c CDATA #IMPLIED>]><r t=\"  a   b  \" n=\"\tk\n\" c=\"  a   b  \"><s/></r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetAttribute("d")), "dv");
  EXPECT_EQ(Text(root->GetAttribute("t")), "a b");
  EXPECT_EQ(Text(root->GetAttribute("n")), "k");
  EXPECT_EQ(Text(root->GetAttribute("c")), "  a   b  ");
  // Defaults belong to the declared element only.
  EXPECT_EQ(Text(Children(root.get())[0]->GetAttribute("d")), "");

  ExpectValues({{"<!DOCTYPE r [<!ATTLIST r d CDATA \"dv\">]><r d=\"own\"/>", "d", "own"}});
}

TEST(XmlEncoding, SingleByteEncodingsAreReadAsUtf8) {
  auto doc = [](const std::string& encoding, const std::string& byte) {
    return "<?xml version=\"1.0\" encoding=\"" + encoding + "\"?><r a=\"" + byte + "\">" + byte + "</r>";
  };
  const char* euro = "\xE2\x82\xAC";
  const char* eAcute = "\xC3\xA9";
  for (const char* attr : {static_cast<const char*>(nullptr), "a"}) {
    ExpectValues({
        {doc("windows-1252", "\x80"), attr, euro},
        {doc("latin-1", "\xE9"), attr, eAcute},
        {doc("ISO8859-1", "\xE9"), attr, eAcute},
        {doc("ISO-8859-1", "\xE9"), attr, eAcute},
        {doc("ISO-8859-15", "\xA4"), attr, euro},
    });
  }
}

TEST(XmlEncoding, Utf16AndUtf32WithByteOrderMarkAreReadAsUtf8) {
  const std::u32string text = U"<r a=\"\u00E9\">\u20AC\U0001D11E</r>";
  for (int unit : {2, 4}) {
    for (bool big : {false, true}) {
      SCOPED_TRACE("unit " + std::to_string(unit) + (big ? " big endian" : " little endian"));
      ExpectValues({
          {Encode(text, unit, big), nullptr, "\xE2\x82\xAC\xF0\x9D\x84\x9E"},
          {Encode(text, unit, big), "a", "\xC3\xA9"},
      });
    }
  }
  // Without a mark, UTF-16 shows in how "<" is laid out.
  ExpectValues({{std::string("<\0r\0>\0\xE9\0<\0/\0r\0>\0", 16), nullptr, "\xC3\xA9"}});
}

TEST(XmlRefused, BytesThatAreNotCharactersOfTheDocumentEncoding) {
  ExpectRefused({
      "<r>\x80</r>", "<r>\xC0\xAF</r>", "<r>\xED\xA0\x80</r>", "<r>\xE2\x82</r>",
      "<r a=\"\x80\"/>", "<r>\x01</r>", "<r>\x1F</r>", "<r a=\"\x01\"/>", "<r>\xFF</r>",
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><r>\xFF</r>",
      "<?xml version=\"1.0\" encoding=\"windows-1252\"?><r>\x81</r>",
      "<?xml version=\"1.0\" encoding=\"x-no-such\"?><r/>",
  });
}

TEST(XmlReferences, PredefinedAndCharacterReferencesOfAnyLengthResolve) {
  ExpectValues({
      {"<r a=\"&quot;q&quot; &amp; &apos;&lt;&gt;\"/>", "a", "\"q\" & '<>"},
      {"<r>&gt;&amp;&#65;&#x42;&#x263A;</r>", nullptr, ">&AB\xE2\x98\xBA"},
      {"<r>&#00000000065;</r>", nullptr, "A"},
      {"<r>&#x0000000041;</r>", nullptr, "A"},
      {"<r a=\"&#00000000065;&#x0000000041;\"/>", "a", "AA"},
  });
}

TEST(XmlReferences, IllegalCharacterReferencesAreRefusedInTextAndAttributes) {
  // 4294967361 and 0x100000041 wrap to 'A' in 32 bits: the value must not overflow.
  std::vector<std::string> documents;
  for (const char* ref : {"&#1;", "&#0;", "&#xFFFE;", "&#xFFFF;", "&#xD800;", "&#x110000;",
                          "&#xZZ;", "&#;", "&#4294967361;", "&#x100000041;"}) {
    documents.push_back(std::string("<r>") + ref + "</r>");
    documents.push_back(std::string("<r a=\"") + ref + "\"/>");
  }
  ExpectRefused(documents);
}

TEST(XmlLeniency, UnknownReferenceAndLoneAmpersandAreKeptAsWritten) {
  ExpectValues({
      {"<r>&unknown;</r>", nullptr, "&unknown;"},
      {"<r>a & b</r>", nullptr, "a & b"},
  });
}

TEST(XmlRefused, MalformedMarkup) {
  ExpectRefused({
      "",
      "   \n ",
      "<?xml version=\"1.0\"?>",
      "<r>",
      "<r></s>",
      "<r><a></r></a>",
      "<r/><s/>",
      "text<r/>",
      "<r/>trailing",
      "<r a=1/>",
      "<r a/>",
      "<r a=\"1\"b=\"2\"/>",
      "<r a=\"unterminated/>",
      "<r><!-- unterminated </r>",
      "<r><![CDATA[ unterminated </r>",
      "< r/>",
      "<r><</r>",
      "</r>",
      "<r><!bogus></r>",
      "<r/",
      "<r a=\"1\" a=\"2\"/>", "<r a=\"x<y\"/>",
      "<1r/>", "<-r/>", "<.r/>", "<r 1a=\"x\"/>", "<r -a=\"x\"/>", "<r .a=\"x\"/>",
      "<\xC2\xB7" "a/>",
      " <?xml version=\"1.0\"?><r/>", "\n<?xml version=\"1.0\"?><r/>",
      "<!--c--><?xml version=\"1.0\"?><r/>", "<r><?xml version=\"1.0\"?></r>",
      "<r><?XML x?></r>", "<r><?xMl?></r>", "<?XML version=\"1.0\"?><r/>",
      "<r/><?xml version=\"1.0\"?>",
      "<!DOCTYPE r><!DOCTYPE r><r/>", "<r/><!DOCTYPE r>",
      "<r><!-- a -- b --></r>", "<r><!-- a ---></r>",
      "<r>a]]>b</r>",
      "<?xml version=\"2.0\"?><r/>", "<?xml version=\"1\"?><r/>",
      "<?xml version=\"1.0\" standalone=\"maybe\"?><r/>",
      "<?xml version=\"1.0\" standalone=\"YES\"?><r/>",
  });
}

TEST(XmlAccepted, LookalikesOfRefusedMarkupAreAccepted) {
  ExpectValues({
      {"<r a=\"]]>\"/>", "a", "]]>"},
      {"<r>]></r>", nullptr, "]>"},
      {"<r>\x7F</r>", nullptr, "\x7F"},
      {"<r a=\"\x7F\"/>", "a", "\x7F"},
      {"\xEF\xBB\xBF<?xml version=\"1.0\"?><r>x</r>", nullptr, "x"},
      {"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?><r>x</r>", nullptr, "x"},
      {"<?xml version='1.0' standalone='yes'?><r>x</r>", nullptr, "x"},
      {"<?xml-stylesheet href=\"s\"?><r>x</r>", nullptr, "x"},
  });
}

TEST(XmlNames, NonAsciiNameCharactersAreAccepted) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"<\xC3\xA9>x</\xC3\xA9>", "\xC3\xA9"},
      {"<a\xC2\xB7" "b/>", "a\xC2\xB7" "b"},  // a middle dot may follow the first letter
  };
  for (const auto& c : cases) {
    auto root = ParseText(c.first);
    ASSERT_NE(root, nullptr) << Shown(c.first);
    EXPECT_EQ(Text(root->GetType()), c.second);
  }
}

}  // namespace
