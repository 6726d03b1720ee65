// What loading records: container and applicative-set elements under the root, the
// material and specific-extension indexes, the four identifier tables with their child
// lists, the root reference, the id-less format and graphic-property lists, and the counts.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "KalVorlaParser.h"
#include "ParserInspector.h"
#include "TestDocuments.h"

namespace {

using Inspector = KalVorlaParserInspector;
using kaltest::FakeElement;
using kaltest::NameOf;

using P = KalVorlaParser;
using Accessor = HRESULT (P::*)(KalLightXmlElementItf**);
using Lookup = HRESULT (P::*)(int, KalLightXmlElementItf**);

const Accessor kAccessors[] = {&P::GetProductStructureRootReference,
                               &P::GetDefaultViewNode,
                               &P::GetPresentationSetNode,
                               &P::GetMeasureSetNode,
                               &P::GetSectionSetNode,
                               &P::GetAnimationSetNode,
                               &P::GetVorlaRootNode,
                               &P::GetSpecificExtensionSetNode,
                               &P::GetGraphicMaterialSetNode};
// Instance3D, Reference3D, InstanceRep, ReferenceRep.
const Lookup kLookups[] = {&P::GetInstance3DFromLocalID, &P::GetReference3DFromLocalID,
                           &P::GetInstanceRepFromLocalID, &P::GetReferenceRepFromLocalID};

class Indexes : public ::testing::Test {
 protected:
  void Load(const std::string& body) {
    ASSERT_FALSE(Inspector::ArchiveOpen());
    const std::string path = _Dir.File("doc.xml");
    kaltest::WriteFile(path, kaltest::VorlaXml(body));
    ASSERT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
  }
  std::string Get(Accessor get) {
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ((_Parser.*get)(&node), S_OK);
    return NameOf(node);
  }
  static std::vector<std::string> Names(const KalListPtrKalLightXmlElementItf& list) {
    std::vector<std::string> names;
    for (int i = 1; i <= list.Size(); ++i) names.push_back(NameOf(list[i]));
    return names;
  }

  kaltest::TempDir _Dir;
  KalVorlaParser _Parser;
  FakeElement _Stale;  // a non-null address to preset outputs with
};

// Root children are known by their name after the first colon; the last one wins. Without
// a root attribute the root reference is the one with id 0.
TEST_F(Indexes, RootChildrenAreRecognisedByTheirLocalNameLastOneWins) {
  Load(
      "<ProductStructure><Reference3D xsi:type=\"Reference3DType\" id=\"0\" name=\"root-ref\"/>"
      "</ProductStructure>"
      "<x:DefaultView name=\"view-1\"/><DefaultView name=\"view-2\"/>"
      "<g:GraphicMaterialSet name=\"materials\"/>"
      "<AnimationSet name=\"anim\"/><a:b:AnimationSet name=\"two-prefixes\"/>"
      "<y:MeasureSet name=\"measures\"/>"
      "<PresentationSet name=\"pres-1\"/><p:PresentationSet name=\"pres-2\"/>"
      "<s:SpecificExtensionSet name=\"extensions\"/>"
      "<Wrapper><SectionSet name=\"nested\"/></Wrapper>");
  const char* const expected[] = {"root-ref", "view-2", "pres-2",     "measures", "<null>",
                                  "anim",     "",       "extensions", "materials"};
  for (size_t i = 0; i < std::size(kAccessors); ++i)
    EXPECT_EQ(Get(kAccessors[i]), expected[i]) << i;
}

// Before loading, the accessors give null, the passes and counts fail, and the lookups find
// empty tables: the output is cleared.
TEST(IndexesWithoutDocument, AccessorsLookupsPassesAndCountsBeforeLoading) {
  KalVorlaParser parser;
  FakeElement stale;
  for (Accessor get : kAccessors) {
    KalLightXmlElementItf* node = &stale;
    EXPECT_EQ((parser.*get)(&node), S_OK);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ((parser.*get)(nullptr), E_FAIL);
  }
  for (Lookup lookup : kLookups) {
    KalLightXmlElementItf* node = &stale;
    EXPECT_EQ((parser.*lookup)(1, &node), E_FAIL);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ((parser.*lookup)(1, nullptr), E_FAIL);
  }
  EXPECT_EQ(parser.RetrieveContainerNodes(), E_FAIL);
  EXPECT_EQ(parser.RetrieveRootReferenceNode(), E_FAIL);
  EXPECT_EQ(parser.RetrieveApplicativeSetNodes(), E_FAIL);
  int count = 42;
  EXPECT_EQ(parser.GetNumberOfInstances(count), E_FAIL);
  EXPECT_EQ(parser.GetNumberOfReferences(count), E_FAIL);
  EXPECT_EQ(parser.GetNumberOfRepresentations(count), E_FAIL);
  EXPECT_EQ(count, 42);
}

// The product structure holds no child, so its four tables are dropped: lookups leave the
// output alone and the reference pass, which needs all four tables, fails. Materials need a
// positive id; extensions are indexed as written (no id is -1), but id 0 is refused, and a
// failed extension lookup leaves the output alone.
TEST_F(Indexes, MaterialsAndExtensionsAreIndexedTheOtherTablesDropped) {
  Load(
      "<ProductStructure/><GraphicMaterialSet>"
      "<GraphicMaterial id=\"5\" name=\"m5\"/><GraphicMaterial id=\"0\" name=\"zero\"/>"
      "<GraphicMaterial name=\"no-id\"/><GraphicMaterial id=\"-3\" name=\"negative\"/>"
      "<m:GraphicMaterial id=\"6\" name=\"prefixed\"/><Other id=\"8\" name=\"other\"/>"
      "<GraphicMaterial id=\"2\" name=\"m2\"/><GraphicMaterial id=\"5\" name=\"m5-again\"/>"
      "</GraphicMaterialSet><SpecificExtensionSet>"
      "<SpecificExtension id=\"4\" name=\"e4\"/><SpecificExtension name=\"no-id\"/>"
      "<SpecificExtension id=\"0\" name=\"e0\"/><Other id=\"7\" name=\"other\"/>"
      "<x:SpecificExtension id=\"8\" name=\"prefixed\"/></SpecificExtensionSet>");
  EXPECT_EQ(Names(Inspector::GraphicMaterials(_Parser)),
            (std::vector<std::string>{"m5", "m2", "m5-again"}));
  EXPECT_EQ(Inspector::Ints(Inspector::GraphicMaterialIds(_Parser)), (std::vector<int>{5, 2, 5}));

  EXPECT_EQ(Inspector::SizeOf(_Parser, Inspector::kExtensions), 3);
  const struct {
    unsigned int id;
    const char* found;  // null: E_FAIL and the output untouched
  } cases[] = {{4, "e4"}, {4294967295u, "no-id"}, {0, nullptr}, {7, nullptr}, {8, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.id);
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ(_Parser.GetSpecificExtensionNode(c.id, &node), c.found ? S_OK : E_FAIL);
    EXPECT_EQ(NameOf(node), c.found ? c.found : "");
  }
  EXPECT_EQ(_Parser.GetSpecificExtensionNode(4, nullptr), E_FAIL);

  for (Lookup lookup : kLookups) {
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ((_Parser.*lookup)(1, &node), E_FAIL);
    EXPECT_EQ(node, &_Stale);
  }
  EXPECT_EQ(_Parser.RetrieveRootReferenceNode(), E_FAIL);
}

// Kinds come from the type attribute, not the tag; counts compare tags of direct children.
// Instance 2 comes before the reference that aggregates it; instance 4 names a parent that
// no reference has. The root attribute is read as a number, and of two references with the
// root id the later one is the root; it replaces the element and keeps the children.
TEST_F(Indexes, ProductStructurePassFillsTablesChildListsAndLists) {
  Load(
      "<ProductStructure root=\"001\">"
      "<Instance3D xsi:type=\"Instance3DType\" id=\"2\" name=\"i2\">"
      "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
      "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"r1-first\"/>"
      "<InstanceRep xsi:type=\"InstanceRepType\" id=\"5\" name=\"ir5\">"
      "<IsAggregatedBy>1</IsAggregatedBy></InstanceRep>"
      "<ReferenceRep xsi:type=\"ReferenceRepType\" id=\"6\" name=\"rr6\"/>"
      "<Instance3D xsi:type=\"Instance3DType\" id=\"3\" name=\"i3\">"
      "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
      "<Instance3D xsi:type=\"Instance3DType\" id=\"4\" name=\"i4\">"
      "<IsAggregatedBy>9</IsAggregatedBy></Instance3D>"
      "<Thing xsi:type=\"Reference3DType\" id=\"10\" name=\"typed-thing\"/>"
      "<Reference3D xsi:type=\"Other\" id=\"11\" name=\"other-type\"/>"
      "<Instance3D xsi:type=\"Instance3DType\" name=\"no-id\">"
      "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
      "<Instance3D xsi:type=\"Instance3DType\" id=\"13\" name=\"orphan\"/>"
      "<Reference3D xsi:type=\"Reference3DType\" id=\"01\" name=\"r1\"/>"
      "<RepFormat xsi:type=\"RepFormatType\" name=\"f1\"/>"
      "<RepFormat xsi:type=\"RepFormatType\" id=\"3\" name=\"f-with-id\"/>"
      "<GraphicProperties xsi:type=\"GraphicPropertiesAspectType\" name=\"g1\"/>"
      "<GraphicProperties xsi:type=\"GraphicPropertiesAspectType\" id=\"4\" name=\"g-id\"/>"
      "<Other xsi:type=\"RepFormatType\" name=\"f2\"/><RepFormat name=\"untyped\"/>"
      "<Wrapper><Reference3D xsi:type=\"Reference3DType\" id=\"14\" name=\"nested\"/>"
      "<RepFormat xsi:type=\"RepFormatType\" name=\"nested\"/></Wrapper>"
      "</ProductStructure>");
  const struct {
    int kind;  // index in kLookups
    int id;
    HRESULT code;
    const char* found;
  } cases[] = {{0, 2, S_OK, "i2"},        {0, 13, S_OK, "orphan"},      {0, 5, E_FAIL, "<null>"},
               {1, 1, S_OK, "r1"},        {1, 10, S_OK, "typed-thing"}, {1, 9, S_OK, "<null>"},
               {1, 11, E_FAIL, "<null>"}, {1, 14, E_FAIL, "<null>"},    {2, 5, S_OK, "ir5"},
               {2, 2, E_FAIL, "<null>"},  {3, 6, S_OK, "rr6"},          {3, 5, E_FAIL, "<null>"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.kind) + " " + std::to_string(c.id));
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ((_Parser.*kLookups[c.kind])(c.id, &node), c.code);
    EXPECT_EQ(NameOf(node), c.found);
  }
  EXPECT_EQ(Get(&P::GetProductStructureRootReference), "r1");
  EXPECT_EQ(Inspector::SizeOf(_Parser, Inspector::kInstances), 4);
  EXPECT_EQ(Inspector::SizeOf(_Parser, Inspector::kReferences), 3);
  // Instance3D and InstanceRep ids share one list, in document order; 9 is a placeholder.
  EXPECT_EQ(Inspector::ReferenceChildren(_Parser, 1), (std::vector<int>{2, 5, 3}));
  EXPECT_EQ(Inspector::ReferenceChildren(_Parser, 9), (std::vector<int>{4}));
  // Only typed elements without an id are collected.
  EXPECT_EQ(Names(Inspector::RepFormats(_Parser)), (std::vector<std::string>{"f1", "f2"}));
  EXPECT_EQ(Names(Inspector::GraphicProperties(_Parser)), (std::vector<std::string>{"g1"}));
  std::vector<int> counts(3, -1);
  EXPECT_EQ(_Parser.GetNumberOfInstances(counts[0]), S_OK);
  EXPECT_EQ(_Parser.GetNumberOfReferences(counts[1]), S_OK);
  EXPECT_EQ(_Parser.GetNumberOfRepresentations(counts[2]), S_OK);
  EXPECT_EQ(counts, (std::vector<int>{5, 3, 3}));
}

}  // namespace
