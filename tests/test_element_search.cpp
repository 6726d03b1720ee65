// The five element search and read methods of KalVorlaParser: which child they find and the
// exact code of every path.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "KalVorlaParser.h"
#include "ParserInspector.h"
#include "TestDocuments.h"

namespace {

using Inspector = KalVorlaParserInspector;
using kaltest::ChildByTag;
using kaltest::FakeElement;
using kaltest::NameOf;
using kaltest::Str;

// Probe holds the children the tag and type searches look at; ProductStructure holds the
// candidates of the id-attribute search, with a decoy of another tag first.
const char kBody[] =
    "<ProductStructure root=\"1\">"
    "<Other owner=\"7\" name=\"decoy\"/>"
    "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"r1\"/>"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"2\" owner=\"007\" name=\"i2\">"
    "<IsAggregatedBy ref=\"1\" name=\"grandchild\">1</IsAggregatedBy></Instance3D>"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"3\" owner=\"7\" name=\"i3\">"
    "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"4\" owner=\"abc\" name=\"i4\">"
    "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"5\" name=\"i5\">"
    "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
    "</ProductStructure>"
    "<Probe name=\"probe\" xsi:type=\"ProbeType\">"
    "<Empty name=\"empty\"/>"
    "<Item xsi:type=\"A\" name=\"a1\">first</Item>"
    "<Item xsi:type=\"B\" name=\"b1\">second</Item>"
    "<Other xsi:type=\"A\" name=\"a2\"></Other>"
    "<Wrapper name=\"wrapper\"><Deep xsi:type=\"Deep\" name=\"deep\">deep text</Deep></Wrapper>"
    "</Probe>";

class ElementSearch : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(Inspector::ArchiveOpen());
    const std::string path = _Dir.File("search.xml");
    kaltest::WriteFile(path, kaltest::VorlaXml(kBody));
    ASSERT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
    KalLightXmlElementItf* root = nullptr;
    ASSERT_EQ(_Parser.GetVorlaRootNode(&root), S_OK);
    _pProbe = ChildByTag(root, "Probe");
    ASSERT_NE(_pProbe, nullptr);
    _pEmpty = ChildByTag(_pProbe, "Empty");
    ASSERT_NE(_pEmpty, nullptr);
  }

  kaltest::TempDir _Dir;
  KalVorlaParser _Parser;
  KalLightXmlElementItf* _pProbe = nullptr;
  KalLightXmlElementItf* _pEmpty = nullptr;
  // A non-null address to preset outputs with, so that clearing is visible.
  FakeElement _Stale;
};

// A parent whose walk meets a null child after a non-matching one.
struct NullChildParent {
  FakeElement miss{"Miss"};
  FakeElement parent{"Parent"};
  NullChildParent() {
    miss.Set("xsi:type", "Miss");
    parent.Add(&miss).Add(nullptr);
  }
};

using ChildSearch = HRESULT (KalVorlaParser::*)(KalLightXmlElementItf*, const KalUnicodeString&,
                                                KalLightXmlElementItf**);

TEST_F(ElementSearch, FromTypeMatchesTheTypeAttributeOfDirectChildrenFirstWins) {
  const struct {
    const char* type;
    HRESULT code;
    const char* found;
  } cases[] = {
      {"A", S_OK, "a1"},  // the Item and the Other both carry A: first in order
      {"B", S_OK, "b1"},
      {"Deep", S_FALSE, "<null>"},  // a grandchild
      {"ProbeType", S_FALSE, "<null>"},
      {"a", S_FALSE, "<null>"},
      {"Item", S_FALSE, "<null>"},  // a tag is not a type
      {"", S_OK, "empty"},          // an absent attribute reads as the empty string
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    KalLightXmlElementItf* child = &_Stale;
    EXPECT_EQ(_Parser.GetVorlaChildNodeFromType(_pProbe, c.type, &child), c.code);
    EXPECT_EQ(NameOf(child), c.found);
  }
}

TEST_F(ElementSearch, FromNameMatchesTheTagOfDirectChildrenFirstWins) {
  const struct {
    const char* tag;
    HRESULT code;
    const char* found;
  } cases[] = {
      {"Item", S_OK, "a1"},        {"Other", S_OK, "a2"},       {"Wrapper", S_OK, "wrapper"},
      {"Deep", S_FALSE, "<null>"}, {"item", S_FALSE, "<null>"}, {"A", S_FALSE, "<null>"},
      {"", S_FALSE, "<null>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tag);
    KalLightXmlElementItf* child = &_Stale;
    EXPECT_EQ(_Parser.GetVorlaChildNodeFromName(_pProbe, c.tag, &child), c.code);
    EXPECT_EQ(NameOf(child), c.found);
  }
}

TEST_F(ElementSearch, ChildlessParentIsNoMatchByTypeButFailureByName) {
  KalLightXmlElementItf* child = &_Stale;
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromType(_pEmpty, "A", &child), S_FALSE);
  EXPECT_EQ(child, nullptr);
  child = &_Stale;
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromName(_pEmpty, "Item", &child), E_FAIL);
  EXPECT_EQ(child, nullptr);
}

TEST_F(ElementSearch, ChildSearchesFailOnNullArgumentsAndNullChildren) {
  const ChildSearch searches[] = {&KalVorlaParser::GetVorlaChildNodeFromType,
                                  &KalVorlaParser::GetVorlaChildNodeFromName};
  for (ChildSearch search : searches) {
    SCOPED_TRACE(search == searches[0] ? "FromType" : "FromName");
    KalLightXmlElementItf* child = &_Stale;
    EXPECT_EQ((_Parser.*search)(nullptr, "A", &child), E_FAIL);
    EXPECT_EQ(child, &_Stale);
    EXPECT_EQ((_Parser.*search)(_pProbe, "A", nullptr), E_FAIL);

    NullChildParent withNull;
    EXPECT_EQ((_Parser.*search)(&withNull.parent, "Wanted", &child), E_FAIL);
    EXPECT_EQ(child, nullptr);
    // A match met before the null child ends the walk first.
    child = &_Stale;
    EXPECT_EQ((_Parser.*search)(&withNull.parent, "Miss", &child), S_OK);
    EXPECT_EQ(child, &withNull.miss);
  }
}

TEST_F(ElementSearch, IdAttributeSearchComparesNumbersAmongChildrenOfTheGivenTag) {
  const struct {
    int id;
    const char* tag;
    const char* attribute;
    const char* found;
  } cases[] = {
      {7, "Instance3D", "owner", "i2"},  // "007" is 7 and comes before "7"; the decoy has
                                         // another tag
      {7, "Other", "owner", "decoy"},
      {3, "Instance3D", "id", "i3"},
      {1, "Reference3D", "id", "r1"},
      {8, "Instance3D", "owner", "<null>"},
      {1, "Instance3D", "owner", "<null>"},
      {2, "Reference3D", "id", "<null>"},
      {1, "IsAggregatedBy", "ref", "<null>"},  // a grandchild
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.id) + " " + c.tag + " " + c.attribute);
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(c.id, c.tag, c.attribute, &node), S_OK);
    EXPECT_EQ(NameOf(node), c.found);
  }
}

// "abc" and a missing attribute do not convert; neither must pass for id 0.
TEST_F(ElementSearch, IdAttributeSearchLetsNonNumericValuesMatchNoId) {
  KalLightXmlElementItf* node = &_Stale;
  EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(0, "Instance3D", "owner", &node), S_OK);
  EXPECT_EQ(NameOf(node), "<null>");
}

TEST_F(ElementSearch, IdAttributeSearchRefusesANullOutput) {
  EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(7, "Instance3D", "owner", nullptr),
            E_INVALIDARG);
}

TEST(ElementSearchWithoutDocument, IdAttributeSearchNeedsAProductStructure) {
  KalVorlaParser parser;
  FakeElement stale;
  KalLightXmlElementItf* node = &stale;
  EXPECT_EQ(parser.GetVorlaNodeFromOtherIDAttribute(7, "Instance3D", "owner", &node), E_INVALIDARG);
  EXPECT_EQ(node, &stale);
}

TEST(ElementSearchWithoutDocument, IdAttributeSearchFailsOnAnEmptyOrBrokenProductStructure) {
  KalVorlaParser parser;
  FakeElement stale;
  FakeElement childless("ProductStructure");
  FakeElement match("Instance3D");
  match.Set("owner", "7");
  FakeElement broken("ProductStructure");
  broken.Add(nullptr).Add(&match);
  for (FakeElement* structure : {&childless, &broken}) {
    Inspector::SetProductStructureNode(parser, structure);
    KalLightXmlElementItf* node = &stale;
    EXPECT_EQ(parser.GetVorlaNodeFromOtherIDAttribute(7, "Instance3D", "owner", &node), E_FAIL);
    EXPECT_EQ(node, nullptr);
  }
  Inspector::SetProductStructureNode(parser, nullptr);
}

TEST_F(ElementSearch, ValueStringReadsTheTextOfTheFirstDirectChildWithTheTag) {
  const struct {
    const char* tag;
    const char* value;
  } cases[] = {
      {"Item", "first"}, {"Other", ""},  // present with empty text
      {"Deep", ""},                      // a grandchild
      {"Missing", ""},   {"item", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tag);
    KalUnicodeString value("stale");
    EXPECT_EQ(_Parser.GetValueString(c.tag, _pProbe, value), S_OK);
    EXPECT_EQ(Str(value), c.value);
  }
}

TEST_F(ElementSearch, ValueStringCodesForNullChildlessAndBrokenParents) {
  KalUnicodeString value("stale");
  EXPECT_EQ(_Parser.GetValueString("Item", nullptr, value), E_INVALIDARG);
  EXPECT_EQ(Str(value), "stale");

  EXPECT_EQ(_Parser.GetValueString("Item", _pEmpty, value), E_FAIL);
  EXPECT_EQ(Str(value), "");

  NullChildParent withNull;
  value = "stale";
  EXPECT_EQ(_Parser.GetValueString("Wanted", &withNull.parent, value), E_FAIL);
  EXPECT_EQ(Str(value), "");
}

TEST_F(ElementSearch, AttributeStringReadsOneAttributeAndEmptyWhenAbsent) {
  KalLightXmlElementItf* item = ChildByTag(_pProbe, "Item");
  const struct {
    KalLightXmlElementItf* element;
    const char* attribute;
    const char* value;
  } cases[] = {
      {_pProbe, "name", "probe"}, {item, "xsi:type", "A"}, {item, "type", ""},
      {item, "missing", ""},      {item, "Name", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.attribute);
    KalUnicodeString value("stale");
    EXPECT_EQ(_Parser.GetAttributeString(c.attribute, c.element, value), S_OK);
    EXPECT_EQ(Str(value), c.value);
  }
}

TEST_F(ElementSearch, AttributeStringRefusesANullElementWithoutTouchingTheValue) {
  KalUnicodeString value("stale");
  EXPECT_EQ(_Parser.GetAttributeString("name", nullptr, value), E_INVALIDARG);
  EXPECT_EQ(Str(value), "stale");
}

}  // namespace
