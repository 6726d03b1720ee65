// The five element search and read methods of KalVorlaParser: which child they find and the
// exact code of every path.
#include <gtest/gtest.h>

#include <string>

#include "KalVorlaParser.h"
#include "ParserInspector.h"
#include "TestDocuments.h"

namespace {

using kaltest::ChildByTag;
using kaltest::FakeElement;
using kaltest::NameOf;
using kaltest::Str;

// Probe holds the children the tag and type searches look at; ProductStructure holds the
// candidates of the id-attribute search, with a decoy of another tag first.
const char kBody[] =
    "<ProductStructure root=\"1\"><Other owner=\"7\" name=\"decoy\"/>"
    "<Instance3D id=\"2\" owner=\"007\" name=\"i2\"><Sub owner=\"8\" name=\"grandchild\"/>"
    "</Instance3D><Instance3D id=\"3\" owner=\"7\" name=\"i3\"/>"
    "<Instance3D id=\"4\" owner=\"abc\" name=\"i4\"/><Instance3D id=\"5\" name=\"i5\"/>"
    "</ProductStructure><Probe name=\"probe\" xsi:type=\"ProbeType\"><Empty name=\"empty\"/>"
    "<Item xsi:type=\"A\" name=\"a1\">first</Item><Item xsi:type=\"B\" name=\"b1\">second</Item>"
    "<Other xsi:type=\"A\" name=\"a2\"></Other>"
    "<Wrapper name=\"wrapper\"><Deep xsi:type=\"Deep\" name=\"deep\">deep text</Deep></Wrapper>"
    "</Probe>";

class ElementSearch : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string path = _Dir.File("search.xml");
    kaltest::WriteFile(path, kaltest::VorlaXml(kBody));
    ASSERT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
    KalLightXmlElementItf* root = nullptr;
    ASSERT_EQ(_Parser.GetVorlaRootNode(&root), S_OK);
    ASSERT_NE(_pProbe = ChildByTag(root, "Probe"), nullptr);
    ASSERT_NE(_pEmpty = ChildByTag(_pProbe, "Empty"), nullptr);
  }

  kaltest::TempDir _Dir;
  KalVorlaParser _Parser;
  KalLightXmlElementItf* _pProbe = nullptr;
  KalLightXmlElementItf* _pEmpty = nullptr;
  FakeElement _Stale;  // a non-null address to preset outputs with, so clearing is visible
};

const auto kFromType = &KalVorlaParser::GetVorlaChildNodeFromType;
const auto kFromName = &KalVorlaParser::GetVorlaChildNodeFromName;

// FromType matches the type attribute, FromName the tag, of direct children; the first match
// wins. A childless parent is no match by type but a failure by name. A null parent, or a
// null child met before a match, fails; a null parent leaves the output untouched.
TEST_F(ElementSearch, ChildSearchesFindTheFirstDirectChildByTypeOrByTag) {
  FakeElement miss("Miss", {}, {{"xsi:type", "Miss"}, {"name", "miss"}});
  FakeElement broken("Parent", {&miss, nullptr});
  KalLightXmlElementItf *p = _pProbe, *e = _pEmpty, *b = &broken;  // p holds a1, b1, a2
  const auto T = kFromType, N = kFromName;
  const struct {
    decltype(kFromType) search;
    KalLightXmlElementItf* parent;
    const char* wanted;
    HRESULT code;
    const char* found;  // "": untouched
  } cases[] = {{T, p, "A", S_OK, "a1"},           {T, p, "Deep", S_FALSE, "<null>"},
               {T, p, "Item", S_FALSE, "<null>"}, {T, p, "", S_OK, "empty"},
               {T, e, "A", S_FALSE, "<null>"},    {T, nullptr, "A", E_FAIL, ""},
               {T, b, "Miss", S_OK, "miss"},      {T, b, "B", E_FAIL, "<null>"},
               {N, p, "Item", S_OK, "a1"},        {N, p, "Deep", S_FALSE, "<null>"},
               {N, p, "A", S_FALSE, "<null>"},    {N, e, "Item", E_FAIL, "<null>"},
               {N, nullptr, "Item", E_FAIL, ""},  {N, b, "Miss", S_OK, "miss"},
               {N, b, "B", E_FAIL, "<null>"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.search == kFromType ? "FromType " : "FromName ") + c.wanted);
    KalLightXmlElementItf* child = &_Stale;
    EXPECT_EQ((_Parser.*c.search)(c.parent, c.wanted, &child), c.code);
    EXPECT_EQ(NameOf(child), c.found);
  }
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromType(_pProbe, "A", nullptr), E_FAIL);
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromName(_pProbe, "Item", nullptr), E_FAIL);
}

// Numbers are compared, so "007" is 7; only children of the given tag are read. A miss is
// S_OK with a null node, and a value that is no number matches no id, not even 0.
TEST_F(ElementSearch, IdAttributeSearchComparesNumbersAmongChildrenOfTheGivenTag) {
  const struct {
    int id;
    const char* tag;
    const char* attribute;
    const char* found;
  } cases[] = {{7, "Instance3D", "owner", "i2"}, {7, "Other", "owner", "decoy"},
               {3, "Instance3D", "id", "i3"},    {1, "Instance3D", "owner", "<null>"},
               {8, "Sub", "owner", "<null>"},    {0, "Instance3D", "owner", "<null>"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.id) + " " + c.tag + " " + c.attribute);
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(c.id, c.tag, c.attribute, &node), S_OK);
    EXPECT_EQ(NameOf(node), c.found);
  }
  EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(7, "Instance3D", "owner", nullptr),
            E_INVALIDARG);
  // No product structure: refused. An empty one, or one with a null child: failure.
  KalVorlaParser parser;
  FakeElement childless("ProductStructure"), match("Other", {}, {{"owner", "7"}});
  FakeElement broken("ProductStructure", {nullptr, &match});
  KalLightXmlElementItf* node = &_Stale;
  EXPECT_EQ(parser.GetVorlaNodeFromOtherIDAttribute(7, "Other", "owner", &node), E_INVALIDARG);
  EXPECT_EQ(node, &_Stale);
  for (FakeElement* structure : {&childless, &broken}) {
    KalVorlaParserInspector::SetStructure(parser, structure);
    EXPECT_EQ(parser.GetVorlaNodeFromOtherIDAttribute(7, "Other", "owner", &node), E_FAIL);
    EXPECT_EQ(node, nullptr);
    node = &_Stale;
  }
  KalVorlaParserInspector::SetStructure(parser, nullptr);
}

// A missing child is no error: S_OK and an empty value, as for a child with empty text. A
// null parent leaves the value untouched; a childless parent or a null child empty it. A
// missing attribute reads as empty.
TEST_F(ElementSearch, ValueStringAndAttributeStringReadTextAndAttributes) {
  FakeElement broken("Parent", {nullptr});
  KalLightXmlElementItf *p = _pProbe, *e = _pEmpty, *b = &broken, *n = nullptr;
  const struct {
    KalLightXmlElementItf* parent;
    const char* tag;
    HRESULT code;
    const char* value;
  } cases[] = {{p, "Item", S_OK, "first"},        {p, "Other", S_OK, ""},  {p, "Deep", S_OK, ""},
               {p, "Missing", S_OK, ""},          {e, "Item", E_FAIL, ""}, {b, "Item", E_FAIL, ""},
               {n, "Item", E_INVALIDARG, "stale"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tag);
    KalUnicodeString value("stale");
    EXPECT_EQ(_Parser.GetValueString(c.tag, c.parent, value), c.code);
    EXPECT_EQ(Str(value), c.value);
  }
  KalUnicodeString value("stale");
  EXPECT_EQ(_Parser.GetAttributeString("name", nullptr, value), E_INVALIDARG);
  EXPECT_EQ(Str(value), "stale");
  EXPECT_EQ(_Parser.GetAttributeString("name", p, value), S_OK);
  EXPECT_EQ(Str(value), "probe");
  EXPECT_EQ(_Parser.GetAttributeString("missing", p, value), S_OK);
  EXPECT_EQ(Str(value), "");
}

}  // namespace
