// The platform's XML element model: what a parsed tree holds, what is refused, and how the
// tree behaves as memory (outliving its input, deep nesting, copies).
#include <gtest/gtest.h>

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

TEST(XmlTree, TextIsKeptAsWrittenWithoutTrimming) {
  auto root = ParseText("<r><v>  1 2\t3  </v><w>   </w><e></e></r>");
  ASSERT_NE(root, nullptr);
  std::vector<Element*> kids = Children(root.get());
  ASSERT_EQ(kids.size(), 3u);
  EXPECT_EQ(Text(kids[0]->GetValue()), "  1 2\t3  ");
  EXPECT_EQ(Text(kids[1]->GetValue()), "   ");  // white space alone is the whole content
  EXPECT_EQ(Text(kids[2]->GetValue()), "");
}

TEST(XmlTree, IndentationBetweenChildElementsIsNotText) {
  auto root = ParseText("<r>\n  <a>x</a>\n  <b/>\n</r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetValue()), "");
}

TEST(XmlTree, CharacterDataAndCdataPiecesAreConcatenated) {
  auto root = ParseText("<r>a &lt; b<![CDATA[ <raw> & ]]>c<x/>d</r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetValue()), "a < b <raw> & cd");
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

TEST(XmlTree, ReferencesAreResolvedAndUnknownOnesKept) {
  auto root = ParseText(
      "<r a=\"&quot;q&quot; &amp; &apos;\" b=\"&#65;&#x42;&#x263A;\">&gt;&amp;&unknown;&#x263a;</r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetAttribute("a")), "\"q\" & '");
  EXPECT_EQ(Text(root->GetAttribute("b")), "AB\xE2\x98\xBA");
  EXPECT_EQ(Text(root->GetValue()), ">&&unknown;\xE2\x98\xBA");
}

TEST(XmlTree, LineEndsAreNormalisedAndAttributeWhiteSpaceBecomesBlanks) {
  auto root = ParseText("<r a=\"x\ty\r\nz\nw\">l1\r\nl2\rl3</r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetAttribute("a")), "x y z w");
  EXPECT_EQ(Text(root->GetValue()), "l1\nl2\nl3");
}

TEST(XmlTree, DoctypeWithInternalSubsetIsSkipped) {
  auto root = ParseText(
      "<?xml version=\"1.0\"?><!DOCTYPE r [ <!ELEMENT r ANY> <!ATTLIST r a CDATA \"]>\"> ]><r a=\"1\"/>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(Text(root->GetType()), "r");
}

TEST(XmlTree, ByteOrderMarksUtf16AndLatin1Documents) {
  auto utf8 = ParseText("\xEF\xBB\xBF<r>\xC3\xA9</r>");
  ASSERT_NE(utf8, nullptr);
  EXPECT_EQ(Text(utf8->GetValue()), "\xC3\xA9");

  // "<r n="é">€𝄞</r>" in UTF-16 little endian with its mark.
  std::u16string text = u"<r n=\"\u00E9\">\u20AC\U0001D11E</r>";
  std::string bytes = "\xFF\xFE";
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  auto utf16 = ParseText(bytes);
  ASSERT_NE(utf16, nullptr);
  EXPECT_EQ(Text(utf16->GetAttribute("n")), "\xC3\xA9");
  EXPECT_EQ(Text(utf16->GetValue()), "\xE2\x82\xAC\xF0\x9D\x84\x9E");

  auto latin1 = ParseText("<?xml version=\"1.0\" encoding=\"iso-8859-1\"?><r n=\"\xE9\">\xFC</r>");
  ASSERT_NE(latin1, nullptr);
  EXPECT_EQ(Text(latin1->GetAttribute("n")), "\xC3\xA9");
  EXPECT_EQ(Text(latin1->GetValue()), "\xC3\xBC");
}

TEST(XmlMalformed, ParseReturnsZeroAndTheRootCanStillBeDeleted) {
  const char* bad[] = {
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
  };
  for (const char* xml : bad) {
    KalLightXmlElementFactory factory;
    Element* root = factory.CreateElement();
    ASSERT_NE(root, nullptr);
    KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml),
                                       static_cast<int>(std::strlen(xml)));
    KalLightXmlParser parser;
    EXPECT_EQ(parser.Parse(input, *root), 0) << xml;
    delete root;
  }
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

}  // namespace
