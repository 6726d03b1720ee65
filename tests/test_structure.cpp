// Product structure navigation: instances and references (local and in other files), ids,
// names, matrices, and the chain from a reference to its representation formats.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

using P = KalVorlaParser;
using kaltest::FakeElement;
using kaltest::NameOf;
using kaltest::Str;

std::vector<std::string> Names(const KalRawCollPV& collection) {
  std::vector<std::string> names;
  for (int i = 1; i <= collection.Size(); ++i) {
    names.push_back(NameOf(static_cast<KalLightXmlElementItf*>(collection[i])));
  }
  return names;
}

std::string Instance(int id, const char* name, const char* urn, const char* matrix = nullptr) {
  std::string xml = "<Instance3D xsi:type='Instance3DType' id='" + std::to_string(id) + "' name='" +
                    name + "'><IsAggregatedBy>1</IsAggregatedBy>";
  if (urn) xml += std::string("<IsInstanceOf>") + urn + "</IsInstanceOf>";
  if (matrix) xml += std::string("<RelativeMatrix>") + matrix + "</RelativeMatrix>";
  return xml + "</Instance3D>";
}

std::string RepFormat(const char* name, const char* owner, const char* format = "TESSELLATED",
                      const char* version = "1.0") {
  return std::string("<RepFormat xsi:type='RepFormatType' name='") + name + "'" +
         (owner ? std::string(" owner='") + owner + "'" : "") +
         " associatedFile='urn:VORLA:Representation:loc:20'><format>" + format +
         "</format><version>" + version + "</version></RepFormat>";
}

// Instances 7, 3, 5, 6, 8, 11 and representation instances 4 and 2 under reference 1.
const std::string kStructure = kaltest::VorlaXml(
    "<ProductStructure root='1'><Reference3D xsi:type='Reference3DType' id='1' name='Root'/>" +
    Instance(7, "local", "urn:VORLA:Reference:loc:2", "1 0 0 0 1 0 0 0 1 10 20 30") +
    Instance(3, "relative", "urn:VORLA:Reference:ext:part.vorla#2", "") +
    Instance(5, "absolute", "urn:VORLA:Reference:ext:/abs/other.vorla#9") +
    Instance(6, "bare", nullptr) + Instance(8, "no-prefix", "2") +
    Instance(11, "dangling", "urn:VORLA:Reference:loc:99") +
    "<InstanceRep xsi:type='InstanceRepType' id='4' name='rep-local'><IsAggregatedBy>1"
    "</IsAggregatedBy><IsInstanceOf>urn:VORLA:ReferenceRep:loc:10</IsInstanceOf></InstanceRep>"
    "<InstanceRep xsi:type='InstanceRepType' id='2' name='rep-external'><IsAggregatedBy>1"
    "</IsAggregatedBy><IsInstanceOf>urn:VORLA:ReferenceRep:ext:/abs/x.vorla#12</IsInstanceOf>"
    "</InstanceRep>"
    "<Reference3D xsi:type='Reference3DType' id='2' name='Part'/>"
    "<ReferenceRep xsi:type='ReferenceRepType' id='10' name='rr10'/>"
    "<ReferenceRep xsi:type='ReferenceRepType' id='12' name='rr12'/>" +
    RepFormat("f0", nullptr) + RepFormat("f1", "10") + RepFormat("f2", nullptr) +
    RepFormat("f3", "12") + RepFormat("f4", "x") + "</ProductStructure>");

// The same document, loaded as a plain file and as an archive's root file.
class Structure : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    const std::string path = _Dir.File(GetParam() ? "doc.vorla" : "doc.xml");
    if (GetParam()) {
      kaltest::WriteVorlaArchive(path, "Root.xml", kStructure);
    } else {
      kaltest::WriteFile(path, kStructure);
    }
    ASSERT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
    ASSERT_EQ(_Parser.GetProductStructureRootReference(&_Root), S_OK);
  }
  KalLightXmlElementItf* Element(HRESULT (P::*lookUp)(int, KalLightXmlElementItf**), int id) {
    KalLightXmlElementItf* e = nullptr;
    EXPECT_EQ((_Parser.*lookUp)(id, &e), S_OK) << id;
    return e;
  }

  kaltest::TempDir _Dir;
  P _Parser;
  KalLightXmlElementItf* _Root = nullptr;
  FakeElement _Stale{"Stale", {}, "stale"};
};

// An external URN gives its file beside the document when nothing is open, as named inside
// an archive; the first overload looks the external id up here all the same.
TEST_P(Structure, InstancesLeadToTheirReferencesHereOrInAnotherFile) {
  const std::string relative = GetParam() ? "part.vorla" : _Dir.Path() + "/part.vorla";
  const struct {
    int instance;
    HRESULT code1;
    const char* found1;  // "stale": untouched
    HRESULT code2;
    const char *found2, *file;
    int id;
  } cases[] = {{7, S_OK, "Part", S_OK, "Part", "", -1},
               {3, S_OK, "Part", S_OK, "<null>", relative.c_str(), 2},
               {5, E_FAIL, "<null>", S_OK, "<null>", "/abs/other.vorla", 9},
               {6, E_FAIL, "<null>", S_OK, "<null>", "", -1},
               {8, E_FAIL, "<null>", E_FAIL, "<null>", "", -1},
               {11, E_FAIL, "<null>", E_FAIL, "<null>", "", -1},
               {99, E_FAIL, "stale", E_FAIL, "<null>", "", -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.instance);
    KalLightXmlElementItf *first = &_Stale, *second = &_Stale;
    KalUnicodeString file("stale");
    int id = 77;
    EXPECT_EQ(_Parser.GetReference3DFromInstance3D(c.instance, &first), c.code1);
    EXPECT_EQ(_Parser.GetReference3DFromInstance3D(c.instance, &second, file, id), c.code2);
    EXPECT_EQ(NameOf(first), c.found1);
    EXPECT_EQ(NameOf(second), c.found2);
    EXPECT_EQ(Str(file), c.file);
    EXPECT_EQ(id, c.id);
  }
  KalUnicodeString file;
  int id = 0;
  EXPECT_EQ(_Parser.GetReference3DFromInstance3D(7, nullptr), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetReference3DFromInstance3D(7, nullptr, file, id), E_INVALIDARG);
}

// Instances come in ascending id order, other aggregated kinds skipped; the collection is
// emptied first unless the arguments are refused.
TEST_P(Structure, ReferencesListTheirInstancesByAscendingId) {
  KalRawCollPV instances;
  const std::vector<std::string> sorted = {"relative", "absolute",  "bare",
                                           "local",    "no-prefix", "dangling"};
  for (int round = 0; round < 2; ++round) {
    instances.Append(&_Stale);
    EXPECT_EQ(_Parser.GetInstancesFromReference3D(1, &instances), S_OK);
    EXPECT_EQ(Names(instances), sorted);
  }
  EXPECT_EQ(_Parser.GetInstancesFromReference3D(2, &instances), S_OK);  // aggregates nothing
  EXPECT_EQ(instances.Size(), 0);
  instances.Append(&_Stale);
  EXPECT_EQ(_Parser.GetInstancesFromReference3D(99, &instances), E_FAIL);  // emptied all the same
  EXPECT_EQ(instances.Size(), 0);
  instances.Append(&_Stale);
  EXPECT_EQ(_Parser.GetInstancesFromReference3D(0, &instances), E_FAIL);
  EXPECT_EQ(_Parser.GetInstancesFromReference3D(1, nullptr), E_FAIL);
  EXPECT_EQ(Names(instances), std::vector<std::string>{"stale"});
}

TEST_P(Structure, IdsNamesAndMatricesOfElements) {
  KalLightXmlElementItf* local = Element(&P::GetInstance3DFromLocalID, 7);
  int id = 0;
  KalUnicodeString text, name;
  EXPECT_EQ(_Parser.GetEntityLocalID(local, id), S_OK);
  EXPECT_EQ(_Parser.GetEntityLocalID(local, text), S_OK);
  EXPECT_EQ(_Parser.GetEntityName(local, name), S_OK);
  EXPECT_EQ(id, 7);
  EXPECT_EQ(Str(text) + "/" + Str(name), "7/local");
  EXPECT_EQ(_Parser.GetEntityLocalID(&_Stale, id), S_OK);  // no id attribute
  EXPECT_EQ(id, -1);
  EXPECT_EQ(_Parser.GetEntityLocalID(nullptr, id), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetEntityLocalID(nullptr, text), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetEntityName(nullptr, name), E_INVALIDARG);

  float* floats = nullptr;
  double* doubles = nullptr;
  EXPECT_EQ(_Parser.GetInstanceMatrix(local, &floats), S_OK);
  EXPECT_EQ(_Parser.GetInstanceMatrix(local, &doubles), S_OK);
  const std::vector<double> want = {1, 0, 0, 0, 1, 0, 0, 0, 1, 10, 20, 30};
  EXPECT_EQ(std::vector<float>(floats, floats + 12), std::vector<float>(want.begin(), want.end()));
  EXPECT_EQ(std::vector<double>(doubles, doubles + 12), want);
  delete[] floats;
  delete[] doubles;
  // An empty matrix fails with the zeroed array already the caller's; none at all is fine.
  EXPECT_EQ(_Parser.GetInstanceMatrix(Element(&P::GetInstance3DFromLocalID, 3), &doubles), E_FAIL);
  ASSERT_NE(doubles, nullptr);
  EXPECT_EQ(std::vector<double>(doubles, doubles + 12), std::vector<double>(12, 0.0));
  delete[] doubles;
  EXPECT_EQ(_Parser.GetInstanceMatrix(Element(&P::GetInstance3DFromLocalID, 5), &floats), S_OK);
  EXPECT_EQ(floats, nullptr);
  EXPECT_EQ(_Parser.GetInstanceMatrix(&_Stale, &floats), E_FAIL);  // no children
  EXPECT_EQ(_Parser.GetInstanceMatrix(local, static_cast<float**>(nullptr)), E_INVALIDARG);
}

// Representation instances are appended; an external representation reference is joined to
// the document's directory with a plain "/", whatever the name and the archive.
TEST_P(Structure, ReferencesLeadToRepresentationReferencesAndTheirFormats) {
  KalRawCollPV reps;
  reps.Append(&_Stale);
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(_Root, &reps), S_OK);
  EXPECT_EQ(Names(reps), (std::vector<std::string>{"stale", "rep-external", "rep-local"}));
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(nullptr, &reps), kVorlaBadArguments);
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(_Root, nullptr), kVorlaBadArguments);
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(&_Stale, &reps), E_FAIL);  // id -1

  const struct {
    KalLightXmlElementItf* rep;
    HRESULT code;
    const char *found, *path;
    int id;
  } links[] = {{static_cast<KalLightXmlElementItf*>(reps[3]), S_OK, "rr10", "", -1},
               {static_cast<KalLightXmlElementItf*>(reps[2]), S_OK, "<null>", "//abs/x.vorla", 12},
               {&_Stale, E_FAIL, "<null>", "", -1}};
  for (const auto& l : links) {
    KalLightXmlElementItf* found = &_Stale;
    KalUnicodeString path("stale");
    int id = 0;
    EXPECT_EQ(_Parser.GetReferenceRepFromInstanceRep(l.rep, &found, path, id), l.code);
    EXPECT_EQ(NameOf(found), l.found);
    EXPECT_EQ(Str(path), *l.path ? _Dir.Path() + l.path : "");
    EXPECT_EQ(id, l.id);
  }
  FakeElement other("Other"), noLink("InstanceRep", {&other}), broken("InstanceRep", {nullptr});
  KalLightXmlElementItf* found = nullptr;
  KalUnicodeString path;
  int id = 0;
  EXPECT_EQ(_Parser.GetReferenceRepFromInstanceRep(&noLink, &found, path, id), S_OK);
  EXPECT_EQ(_Parser.GetReferenceRepFromInstanceRep(&broken, &found, path, id), E_FAIL);
  EXPECT_EQ(_Parser.GetReferenceRepFromInstanceRep(nullptr, &found, path, id), E_INVALIDARG);

  // A format without an owner belongs to the last owner read before it, and to none before
  // the first one; calls append.
  KalRawCollPV formats;
  EXPECT_EQ(
      _Parser.GetRepFormatsFromRepReference(Element(&P::GetReferenceRepFromLocalID, 10), &formats),
      S_OK);
  EXPECT_EQ(
      _Parser.GetRepFormatsFromRepReference(Element(&P::GetReferenceRepFromLocalID, 12), &formats),
      S_OK);
  FakeElement zero("ReferenceRep", {}, "", "", "", "0");
  EXPECT_EQ(_Parser.GetRepFormatsFromRepReference(&zero, &formats), S_OK);
  EXPECT_EQ(_Parser.GetRepFormatsFromRepReference(&_Stale, &formats), S_OK);
  EXPECT_EQ(Names(formats), (std::vector<std::string>{"f1", "f2", "f3", "f4"}));
  EXPECT_EQ(_Parser.GetRepFormatsFromRepReference(nullptr, &formats), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetRepFormatsFromRepReference(_Root, nullptr), E_INVALIDARG);
}

INSTANTIATE_TEST_SUITE_P(PlainAndArchive, Structure, ::testing::Bool());

// Bounds are inclusive; exact geometry has no lower bound; a version that does not convert
// matches nothing.
TEST(RepresentationDocType, FormatAndVersionDecideTheTag) {
  const struct {
    std::string xml;
    HRESULT code;
    const char* type;  // "stale": untouched
  } cases[] = {{RepFormat("", "", "TESSELLATED", "2.05"), S_OK, "REP_DOC_TYPE_TG2"},
               {RepFormat("", "", "TESSELLATED", "2.1"), S_OK, "REP_DOC_TYPE_TG2"},
               {RepFormat("", "", "TESSELLATED", "1"), S_OK, "REP_DOC_TYPE_TG1"},
               {RepFormat("", "", "TESSELLATED", "1.5"), E_FAIL, "stale"},
               {RepFormat("", "", "TESSELLATED", "v2"), E_FAIL, "stale"},
               {RepFormat("", "", "EXACT", "-3"), S_OK, "REP_DOC_TYPE_EG1"},
               {RepFormat("", "", "EXACT", "1.1"), S_OK, "REP_DOC_TYPE_EG1"},
               {RepFormat("", "", "EXACT", "2.0"), E_FAIL, "stale"},
               {RepFormat("", "", "exact", "1.0"), E_FAIL, "stale"},
               {"<RepFormat><format>EXACT</format></RepFormat>", E_FAIL, "stale"},
               {"<RepFormat/>", E_FAIL, "stale"},
               {"<Other><format>EXACT</format><version>1</version></Other>", E_FAIL, "stale"}};
  P parser;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xml);
    auto element = kaltest::ParseXml(c.xml);
    KalUnicodeString type("stale");
    EXPECT_EQ(parser.GetRepresentationDocType(element.get(), type), c.code);
    EXPECT_EQ(Str(type), c.type);
  }
  KalUnicodeString type;
  EXPECT_EQ(parser.GetRepresentationDocType(nullptr, type), E_INVALIDARG);
  EXPECT_EQ(parser.GetRepresentationUrn(nullptr, type), E_INVALIDARG);
}

}  // namespace
