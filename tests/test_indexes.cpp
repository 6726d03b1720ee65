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

using Accessor = HRESULT (KalVorlaParser::*)(KalLightXmlElementItf**);
using Lookup = HRESULT (KalVorlaParser::*)(int, KalLightXmlElementItf**);

struct NamedAccessor {
  const char* label;
  Accessor get;
};

const NamedAccessor kAccessors[] = {
    {"root reference", &KalVorlaParser::GetProductStructureRootReference},
    {"default view", &KalVorlaParser::GetDefaultViewNode},
    {"presentation set", &KalVorlaParser::GetPresentationSetNode},
    {"measure set", &KalVorlaParser::GetMeasureSetNode},
    {"section set", &KalVorlaParser::GetSectionSetNode},
    {"animation set", &KalVorlaParser::GetAnimationSetNode},
    {"root element", &KalVorlaParser::GetVorlaRootNode},
    {"specific extension set", &KalVorlaParser::GetSpecificExtensionSetNode},
    {"graphic material set", &KalVorlaParser::GetGraphicMaterialSetNode},
};

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
  std::vector<std::string> Names(const KalListPtrKalLightXmlElementItf& list) {
    std::vector<std::string> names;
    for (int i = 1; i <= list.Size(); ++i) names.push_back(NameOf(list[i]));
    return names;
  }

  kaltest::TempDir _Dir;
  KalVorlaParser _Parser;
  FakeElement _Stale;
};

TEST_F(Indexes, RootChildrenAreRecognisedByTheirNameAfterTheFirstColonLastOneWins) {
  Load(
      "<ProductStructure root=\"1\">"
      "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"root-ref\"/>"
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
  for (size_t i = 0; i < std::size(kAccessors); ++i) {
    SCOPED_TRACE(kAccessors[i].label);
    EXPECT_EQ(Get(kAccessors[i].get), expected[i]);
  }
  KalLightXmlElementItf* root = nullptr;
  ASSERT_EQ(_Parser.GetVorlaRootNode(&root), S_OK);
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(kaltest::Str(root->GetType()), "Model");
}

TEST(IndexesWithoutDocument, AccessorsGiveNullBeforeLoadingAndRefuseANullOutput) {
  KalVorlaParser parser;
  FakeElement stale;
  for (const NamedAccessor& a : kAccessors) {
    SCOPED_TRACE(a.label);
    KalLightXmlElementItf* node = &stale;
    EXPECT_EQ((parser.*a.get)(&node), S_OK);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ((parser.*a.get)(nullptr), E_FAIL);
  }
}

TEST(IndexesWithoutDocument, PassesOverTheDocumentFailWithoutOne) {
  KalVorlaParser parser;
  EXPECT_EQ(parser.RetrieveContainerNodes(), E_FAIL);
  EXPECT_EQ(parser.RetrieveRootReferenceNode(), E_FAIL);
  EXPECT_EQ(parser.RetrieveApplicativeSetNodes(), E_FAIL);
}

TEST_F(Indexes, ReferencePassNeedsAllFourTables) {
  Load(
      "<ProductStructure root=\"1\"><Reference3D xsi:type=\"Reference3DType\" id=\"1\"/>"
      "</ProductStructure>");
  ASSERT_EQ(Inspector::TableOf(_Parser, Inspector::kInstances), nullptr);
  EXPECT_EQ(_Parser.RetrieveRootReferenceNode(), E_FAIL);
}

TEST_F(Indexes, GraphicMaterialsWithAPositiveIdAreCollectedInParallel) {
  Load(
      "<ProductStructure/>"
      "<GraphicMaterialSet>"
      "<GraphicMaterial id=\"5\" name=\"m5\"/>"
      "<GraphicMaterial id=\"0\" name=\"zero\"/>"
      "<GraphicMaterial name=\"no-id\"/>"
      "<GraphicMaterial id=\"-3\" name=\"negative\"/>"
      "<GraphicMaterial id=\"abc\" name=\"text\"/>"
      "<m:GraphicMaterial id=\"6\" name=\"prefixed\"/>"
      "<Other id=\"8\" name=\"other\"/>"
      "<GraphicMaterial id=\"2\" name=\"m2\"><GraphicMaterial id=\"9\" name=\"nested\"/>"
      "</GraphicMaterial>"
      "<GraphicMaterial id=\"5\" name=\"m5-again\"/>"
      "</GraphicMaterialSet>");
  EXPECT_EQ(Names(Inspector::GraphicMaterials(_Parser)),
            (std::vector<std::string>{"m5", "m2", "m5-again"}));
  const KalRawCollint& ids = Inspector::GraphicMaterialIds(_Parser);
  std::vector<int> idList;
  for (int i = 1; i <= ids.Size(); ++i) idList.push_back(ids[i]);
  EXPECT_EQ(idList, (std::vector<int>{5, 2, 5}));
}

class SpecificExtensions : public Indexes {
 protected:
  void SetUp() override {
    Load(
        "<ProductStructure/>"
        "<SpecificExtensionSet>"
        "<SpecificExtension id=\"4\" name=\"e4\"/>"
        "<SpecificExtension name=\"no-id\"/>"
        "<SpecificExtension id=\"0\" name=\"e0\"/>"
        "<Other id=\"7\" name=\"other\"/>"
        "<x:SpecificExtension id=\"8\" name=\"prefixed\"/>"
        "<SpecificExtension id=\"3\" name=\"e3\"><SpecificExtension id=\"9\" name=\"nested\"/>"
        "</SpecificExtension>"
        "</SpecificExtensionSet>");
  }
};

TEST_F(SpecificExtensions, AreIndexedByIdWithoutPositivityFilter) {
  EXPECT_EQ(Inspector::TableSize(_Parser, Inspector::kExtensions), 4);
  const struct {
    unsigned int id;
    const char* found;
  } found[] = {{4, "e4"}, {3, "e3"}, {4294967295u, "no-id"}};
  for (const auto& c : found) {
    SCOPED_TRACE(c.id);
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ(_Parser.GetSpecificExtensionNode(c.id, &node), S_OK);
    EXPECT_EQ(NameOf(node), c.found);
  }
}

// Unlike the lookups by local id, a failed extension lookup leaves the output alone; id 0
// is refused before the table is asked, although an extension is indexed under 0.
TEST_F(SpecificExtensions, FailedLookupsLeaveTheOutputAsItWas) {
  for (unsigned int id : {0u, 7u, 8u, 9u, 5u}) {
    SCOPED_TRACE(id);
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ(_Parser.GetSpecificExtensionNode(id, &node), E_FAIL);
    EXPECT_EQ(node, &_Stale);
  }
  EXPECT_EQ(_Parser.GetSpecificExtensionNode(4, nullptr), E_FAIL);
}

TEST(IndexesWithoutDocument, ExtensionLookupWithAnEmptyOrMissingTableFails) {
  kaltest::TempDir dir;
  const std::string path = dir.File("doc.xml");
  kaltest::WriteFile(path, kaltest::VorlaXml("<ProductStructure/>"));
  KalVorlaParser unloaded;
  KalVorlaParser loaded;
  ASSERT_EQ(loaded.InitParsing(path.c_str()), S_OK);
  ASSERT_EQ(Inspector::TableOf(loaded, Inspector::kExtensions), nullptr);
  FakeElement stale;
  for (KalVorlaParser* parser : {&unloaded, &loaded}) {
    KalLightXmlElementItf* node = &stale;
    EXPECT_EQ(parser->GetSpecificExtensionNode(4, &node), E_FAIL);
    EXPECT_EQ(node, &stale);
  }
}

// Kinds come from the type attribute, not the tag. The instance 2 comes before the
// reference that aggregates it; instance 4 names a parent no reference has.
const char kStructure[] =
    "<ProductStructure root=\"1\">"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"2\" name=\"i2\">"
    "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
    "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"r1\"/>"
    "<InstanceRep xsi:type=\"InstanceRepType\" id=\"5\" name=\"ir5\">"
    "<IsAggregatedBy>1</IsAggregatedBy></InstanceRep>"
    "<ReferenceRep xsi:type=\"ReferenceRepType\" id=\"6\" name=\"rr6\"/>"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"3\" name=\"i3\">"
    "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"4\" name=\"i4\">"
    "<IsAggregatedBy>9</IsAggregatedBy></Instance3D>"
    "<Thing xsi:type=\"Reference3DType\" id=\"10\" name=\"typed-thing\"/>"
    "<Reference3D xsi:type=\"Other\" id=\"11\" name=\"other-type\"/>"
    "<Instance3D id=\"12\" name=\"no-type\"><IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
    "<Instance3D xsi:type=\"Instance3DType\" name=\"no-id\">"
    "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
    "<Instance3D xsi:type=\"Instance3DType\" id=\"13\" name=\"orphan\"/>"
    "<Wrapper><Reference3D xsi:type=\"Reference3DType\" id=\"14\" name=\"nested\"/></Wrapper>"
    "</ProductStructure>";

const struct {
  const char* label;
  Lookup lookup;
} kLookups[] = {{"Instance3D", &KalVorlaParser::GetInstance3DFromLocalID},
                {"Reference3D", &KalVorlaParser::GetReference3DFromLocalID},
                {"InstanceRep", &KalVorlaParser::GetInstanceRepFromLocalID},
                {"ReferenceRep", &KalVorlaParser::GetReferenceRepFromLocalID}};

TEST_F(Indexes, LookupsByLocalIdFindTypedElementsOfTheirKind) {
  Load(kStructure);
  const struct {
    int kind;  // index in kLookups
    int id;
    HRESULT code;
    const char* found;
  } cases[] = {
      {0, 2, S_OK, "i2"},        {0, 3, S_OK, "i3"},
      {0, 13, S_OK, "orphan"},   {0, 1, E_FAIL, "<null>"},
      {0, 12, E_FAIL, "<null>"}, {0, 5, E_FAIL, "<null>"},
      {1, 1, S_OK, "r1"},        {1, 10, S_OK, "typed-thing"},
      {1, 9, S_OK, "<null>"},  // the placeholder of a parent that never came
      {1, 11, E_FAIL, "<null>"}, {1, 14, E_FAIL, "<null>"},
      {1, 2, E_FAIL, "<null>"},  {2, 5, S_OK, "ir5"},
      {2, 2, E_FAIL, "<null>"},  {3, 6, S_OK, "rr6"},
      {3, 5, E_FAIL, "<null>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(kLookups[c.kind].label) + " " + std::to_string(c.id));
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ((_Parser.*kLookups[c.kind].lookup)(c.id, &node), c.code);
    EXPECT_EQ(NameOf(node), c.found);
  }
  EXPECT_EQ(Inspector::TableSize(_Parser, Inspector::kInstances), 4);
  EXPECT_EQ(Inspector::TableSize(_Parser, Inspector::kReferences), 3);
  EXPECT_EQ(Inspector::TableSize(_Parser, Inspector::kInstanceReps), 1);
  EXPECT_EQ(Inspector::TableSize(_Parser, Inspector::kReferenceReps), 1);
  EXPECT_EQ(Get(&KalVorlaParser::GetProductStructureRootReference), "r1");
}

TEST_F(Indexes, ReferencesListInstanceAndInstanceRepIdsInDocumentOrder) {
  Load(kStructure);
  EXPECT_EQ(Inspector::ReferenceChildren(_Parser, 1), (std::vector<int>{2, 5, 3}));
  EXPECT_EQ(Inspector::ReferenceChildren(_Parser, 9), (std::vector<int>{4}));
  EXPECT_TRUE(Inspector::ReferenceChildren(_Parser, 10).empty());
  const KalVorlaReferenceAndChild* placeholder = Inspector::ReferenceRecord(_Parser, 9);
  ASSERT_NE(placeholder, nullptr);
  EXPECT_EQ(placeholder->node, nullptr);
  EXPECT_EQ(placeholder->id, 9);
}

// Before loading the tables exist but are empty, so the output is cleared; after loading a
// document that dropped them, the output is not touched.
TEST(IndexesWithoutDocument, LookupsClearTheOutputOnlyWhenTheTableExists) {
  kaltest::TempDir dir;
  const std::string path = dir.File("doc.xml");
  kaltest::WriteFile(path, kaltest::VorlaXml("<ProductStructure/>"));
  KalVorlaParser unloaded;
  KalVorlaParser loaded;
  ASSERT_EQ(loaded.InitParsing(path.c_str()), S_OK);
  FakeElement stale;
  for (const auto& l : kLookups) {
    SCOPED_TRACE(l.label);
    KalLightXmlElementItf* node = &stale;
    EXPECT_EQ((unloaded.*l.lookup)(1, &node), E_FAIL);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ((unloaded.*l.lookup)(1, nullptr), E_FAIL);
    node = &stale;
    EXPECT_EQ((loaded.*l.lookup)(1, &node), E_FAIL);
    EXPECT_EQ(node, &stale);
  }
}

TEST_F(Indexes, LaterReferenceWithTheSameIdReplacesTheElementAndKeepsTheChildren) {
  Load(
      "<ProductStructure root=\"1\">"
      "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"first\"/>"
      "<Instance3D xsi:type=\"Instance3DType\" id=\"2\"><IsAggregatedBy>1</IsAggregatedBy>"
      "</Instance3D>"
      "<Reference3D xsi:type=\"Reference3DType\" id=\"01\" name=\"second\"/>"
      "</ProductStructure>");
  EXPECT_EQ(Get(&KalVorlaParser::GetProductStructureRootReference), "second");
  KalLightXmlElementItf* node = nullptr;
  EXPECT_EQ(_Parser.GetReference3DFromLocalID(1, &node), S_OK);
  EXPECT_EQ(NameOf(node), "second");
  EXPECT_EQ(Inspector::TableSize(_Parser, Inspector::kReferences), 1);
  EXPECT_EQ(Inspector::ReferenceChildren(_Parser, 1), (std::vector<int>{2}));
}

TEST(IndexesRootReference, IsTheReferenceWhoseIdTheRootAttributeNames) {
  const struct {
    const char* label;
    const char* structure;
    const char* root;
  } cases[] = {
      {"numeric comparison",
       "<ProductStructure root=\"007\">"
       "<Reference3D xsi:type=\"Reference3DType\" id=\"6\" name=\"six\"/>"
       "<Reference3D xsi:type=\"Reference3DType\" id=\"7\" name=\"seven\"/></ProductStructure>",
       "seven"},
      {"absent root attribute reads as 0",
       "<ProductStructure>"
       "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"one\"/>"
       "<Reference3D xsi:type=\"Reference3DType\" id=\"0\" name=\"zero\"/></ProductStructure>",
       "zero"},
      {"no reference carries the root id",
       "<ProductStructure root=\"7\">"
       "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"one\"/></ProductStructure>",
       "<null>"},
      {"only typed direct children count",
       "<ProductStructure root=\"7\">"
       "<Reference3D xsi:type=\"Other\" id=\"7\" name=\"untyped\"/>"
       "<Wrapper><Reference3D xsi:type=\"Reference3DType\" id=\"7\" name=\"nested\"/></Wrapper>"
       "</ProductStructure>",
       "<null>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    kaltest::TempDir dir;
    const std::string path = dir.File("doc.xml");
    kaltest::WriteFile(path, kaltest::VorlaXml(c.structure));
    KalVorlaParser parser;
    ASSERT_EQ(parser.InitParsing(path.c_str()), S_OK);
    KalLightXmlElementItf* root = nullptr;
    EXPECT_EQ(parser.GetProductStructureRootReference(&root), S_OK);
    EXPECT_EQ(NameOf(root), c.root);
  }
}

TEST_F(Indexes, FormatAndGraphicPropertyElementsAreCollectedOnlyWithoutId) {
  Load(
      "<ProductStructure root=\"1\">"
      "<RepFormat xsi:type=\"RepFormatType\" name=\"f1\"/>"
      "<RepFormat xsi:type=\"RepFormatType\" id=\"3\" name=\"f-with-id\"/>"
      "<GraphicProperties xsi:type=\"GraphicPropertiesAspectType\" name=\"g1\"/>"
      "<GraphicProperties xsi:type=\"GraphicPropertiesAspectType\" id=\"4\" name=\"g-id\"/>"
      "<Other xsi:type=\"RepFormatType\" name=\"f2\"/>"
      "<RepFormat xsi:type=\"RepFormatType\" id=\"\" name=\"f-empty-id\"/>"
      "<Wrapper><RepFormat xsi:type=\"RepFormatType\" name=\"nested\"/></Wrapper>"
      "<RepFormat name=\"untyped\"/>"
      "<Instance3D xsi:type=\"GraphicPropertiesAspectType\" name=\"g2\"/>"
      "</ProductStructure>");
  EXPECT_EQ(Names(Inspector::RepFormats(_Parser)),
            (std::vector<std::string>{"f1", "f2", "f-empty-id"}));
  EXPECT_EQ(Names(Inspector::GraphicProperties(_Parser)), (std::vector<std::string>{"g1", "g2"}));
}

TEST_F(Indexes, CountsCompareTagsOfDirectProductStructureChildren) {
  Load(
      "<ProductStructure root=\"1\">"
      "<Reference3D xsi:type=\"Reference3DType\" id=\"1\"/>"
      "<Reference3D xsi:type=\"Other\" id=\"11\"/>"
      "<Instance3D xsi:type=\"Instance3DType\" id=\"2\"><IsAggregatedBy>1</IsAggregatedBy>"
      "<Instance3D/></Instance3D>"
      "<ReferenceRep xsi:type=\"ReferenceRepType\" id=\"6\"/>"
      "<RepFormat xsi:type=\"RepFormatType\"/><RepFormat xsi:type=\"RepFormatType\"/>"
      "<RepFormat/>"
      "</ProductStructure>");
  int instances = -1, references = -1, representations = -1;
  EXPECT_EQ(_Parser.GetNumberOfInstances(instances), S_OK);
  EXPECT_EQ(_Parser.GetNumberOfReferences(references), S_OK);
  EXPECT_EQ(_Parser.GetNumberOfRepresentations(representations), S_OK);
  EXPECT_EQ(instances, 1);
  EXPECT_EQ(references, 2);
  EXPECT_EQ(representations, 3);
}

TEST(IndexesWithoutDocument, CountsFailWithoutAProductStructure) {
  KalVorlaParser parser;
  int count = 42;
  EXPECT_EQ(parser.GetNumberOfInstances(count), E_FAIL);
  EXPECT_EQ(parser.GetNumberOfReferences(count), E_FAIL);
  EXPECT_EQ(parser.GetNumberOfRepresentations(count), E_FAIL);
  EXPECT_EQ(count, 42);
}

}  // namespace
