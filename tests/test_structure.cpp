// Product structure navigation: instances and references (local and in other files), ids,
// names, matrices, and the chain from a reference to its representation formats.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

using P = KalVorlaParser;
using kaltest::FakeElement;
using kaltest::NameOf;
using kaltest::Names;
using kaltest::Str;

std::string Instance(int id, const char* name, const char* urn, const char* matrix = nullptr) {
  return kaltest::Entity(
      "Instance3D", "id='" + std::to_string(id) + "' name='" + name + "'", "1", urn ? urn : "",
      matrix ? std::string("<RelativeMatrix>") + matrix + "</RelativeMatrix>" : "");
}

std::string RepFormat(const char* name, const char* owner = nullptr,
                      const char* tag = "RepFormat") {
  return std::string("<") + tag + " xsi:type='RepFormatType' name='" + name + "'" +
         (owner ? std::string(" owner='") + owner + "'" : "") + "/>";
}

// Instances 7, 3, 5, 6, 8, 11 and representation instances 4 and 2 under reference 1.
const std::string kStructure = kaltest::VorlaXml(
    "<ProductStructure root='1'><Reference3D xsi:type='Reference3DType' id='1' name='Root'/>" +
    Instance(7, "local", "urn:VORLA:Reference:loc:2", "1 0 0 0 1 0 0 0 1 10 20 30") +
    Instance(3, "relative", "urn:VORLA:Reference:ext:part.vorla#2", "") +
    Instance(5, "absolute", "urn:VORLA:Reference:ext:/abs/other.vorla#9") +
    Instance(6, "bare", nullptr) + Instance(8, "no-prefix", "2") +
    Instance(11, "dangling", "urn:VORLA:Reference:loc:99") +
    kaltest::Entity("InstanceRep", "id='4' name='rep-local'", "1",
                    "urn:VORLA:ReferenceRep:loc:10") +
    kaltest::Entity("InstanceRep", "id='2' name='rep-external'", "1",
                    "urn:VORLA:ReferenceRep:ext:/abs/x.vorla#12") +
    "<Reference3D xsi:type='Reference3DType' id='2' name='Part'/>"
    "<ReferenceRep xsi:type='ReferenceRepType' id='10' name='rr10'/>"
    "<ReferenceRep xsi:type='ReferenceRepType' id='12' name='rr12'/>" +
    RepFormat("f0") + RepFormat("f1", "10") + RepFormat("f2") + RepFormat("f3", "12") +
    RepFormat("f4", "x") + RepFormat("f5", nullptr, "Other") +
    "<RepFormat name='untyped'/><RepFormat xsi:type='RepFormatType' id='3' name='with-id'/>"
    "<Wrapper><RepFormat xsi:type='RepFormatType' name='nested'/></Wrapper></ProductStructure>");

// The same document, loaded as a plain file and as an archive's root file.
class Structure : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    const std::string path = _Dir.File(GetParam() ? "doc.vorla" : "doc.xml");
    GetParam() ? kaltest::WriteVorlaArchive(path, "Root.xml", kStructure)
               : kaltest::WriteFile(path, kStructure);
    ASSERT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
    ASSERT_EQ(_Parser.GetProductStructureRootReference(&_Root), S_OK);
  }
  KalLightXmlElementItf* InstanceElement(int id) {
    KalLightXmlElementItf* e = nullptr;
    EXPECT_EQ(_Parser.GetInstance3DFromLocalID(id, &e), S_OK) << id;
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
  const std::tuple<int, HRESULT, HRESULT, std::string> cases[] = {
      {7, S_OK, S_OK, "Part | Part  -1"},
      {3, S_OK, S_OK, "Part | <null> " + relative + " 2"},
      {5, E_FAIL, S_OK, "<null> | <null> /abs/other.vorla 9"},
      {6, E_FAIL, S_OK, "<null> | <null>  -1"},
      {8, E_FAIL, E_FAIL, "<null> | <null>  -1"},
      {11, E_FAIL, E_FAIL, "<null> | <null>  -1"},
      {99, E_FAIL, E_FAIL, "stale | <null>  -1"}};
  // The codes of both overloads; the first's element ("stale": untouched), then the second's
  // element, file and id.
  for (const auto& [instance, code1, code2, want] : cases) {
    KalLightXmlElementItf *first = &_Stale, *second = &_Stale;
    KalUnicodeString file("stale");
    int id = 77;
    EXPECT_EQ(_Parser.GetReference3DFromInstance3D(instance, &first), code1) << instance;
    EXPECT_EQ(_Parser.GetReference3DFromInstance3D(instance, &second, file, id), code2) << instance;
    EXPECT_EQ(NameOf(first) + " | " + NameOf(second) + " " + Str(file) + " " + std::to_string(id),
              want);
  }
  KalUnicodeString file;
  int id = 0;
  EXPECT_EQ(_Parser.GetReference3DFromInstance3D(7, nullptr), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetReference3DFromInstance3D(7, nullptr, file, id), E_INVALIDARG);
}

// Instances come in ascending id order (twice: the first call sorts the stored ids), other
// aggregated kinds skipped; the collection is emptied first unless the arguments are refused.
TEST_P(Structure, ReferencesListTheirInstancesByAscendingId) {
  const char* const all = "relative absolute bare local no-prefix dangling";
  const std::tuple<int, HRESULT, const char*> cases[] = {
      {1, S_OK, all}, {1, S_OK, all}, {2, S_OK, ""}, {99, E_FAIL, ""}, {0, E_FAIL, "stale"}};
  KalRawCollPV instances;
  for (const auto& [reference, code, names] : cases) {
    instances.Append(&_Stale);
    EXPECT_EQ(_Parser.GetInstancesFromReference3D(reference, &instances), code) << reference;
    EXPECT_EQ(Names(instances), names) << reference;
  }
  EXPECT_EQ(_Parser.GetInstancesFromReference3D(1, nullptr), E_FAIL);
}

// Ids read as numbers (-1 without one) or as text; names as written; matrices as 12 values.
TEST_P(Structure, IdsNamesAndMatricesOfElements) {
  KalLightXmlElementItf* local = InstanceElement(7);
  int id = 0, none = 0;
  KalUnicodeString text, name;
  EXPECT_EQ(_Parser.GetEntityLocalID(local, id), S_OK);
  EXPECT_EQ(_Parser.GetEntityLocalID(local, text), S_OK);
  EXPECT_EQ(_Parser.GetEntityName(local, name), S_OK);
  EXPECT_EQ(_Parser.GetEntityLocalID(&_Stale, none), S_OK);  // no id attribute
  EXPECT_EQ(std::to_string(id) + " " + Str(text) + " " + Str(name) + " " + std::to_string(none),
            "7 7 local -1");
  EXPECT_EQ(_Parser.GetEntityLocalID(nullptr, id), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetEntityLocalID(nullptr, text), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetEntityName(nullptr, name), E_INVALIDARG);

  // An empty matrix fails with the zeroed array already the caller's; none at all is fine.
  float* floats = nullptr;
  double *doubles = nullptr, *zeros = nullptr;
  EXPECT_EQ(_Parser.GetInstanceMatrix(local, &floats), S_OK);
  EXPECT_EQ(_Parser.GetInstanceMatrix(local, &doubles), S_OK);
  EXPECT_EQ(_Parser.GetInstanceMatrix(InstanceElement(3), &zeros), E_FAIL);
  ASSERT_TRUE(floats && doubles && zeros);
  const std::vector<double> want = {1, 0, 0, 0, 1, 0, 0, 0, 1, 10, 20, 30};
  EXPECT_EQ(std::vector<float>(floats, floats + 12), std::vector<float>(want.begin(), want.end()));
  EXPECT_EQ(std::vector<double>(doubles, doubles + 12), want);
  EXPECT_EQ(std::vector<double>(zeros, zeros + 12), std::vector<double>(12, 0.0));
  delete[] floats;
  delete[] doubles;
  delete[] zeros;
  EXPECT_EQ(_Parser.GetInstanceMatrix(InstanceElement(5), &floats), S_OK);
  EXPECT_EQ(floats, nullptr);
  EXPECT_EQ(_Parser.GetInstanceMatrix(&_Stale, &floats), E_FAIL);  // no children
  EXPECT_EQ(_Parser.GetInstanceMatrix(local, static_cast<float**>(nullptr)), E_INVALIDARG);
}

// Representation instances are appended; an external representation reference is joined to
// the document's directory with a plain "/", whatever the name and the archive. Formats are the
// typed direct children without an id, whatever their tag; one without an owner belongs to the
// last owner read before it, and to none before the first one; calls append.
TEST_P(Structure, ReferencesLeadToRepresentationReferencesAndTheirFormats) {
  KalRawCollPV reps;
  reps.Append(&_Stale);
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(_Root, &reps), S_OK);
  EXPECT_EQ(Names(reps), "stale rep-external rep-local");
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(nullptr, &reps), kVorlaBadArguments);
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(_Root, nullptr), kVorlaBadArguments);
  EXPECT_EQ(_Parser.GetRepInstancesFromReference3D(&_Stale, &reps), E_FAIL);  // id -1

  FakeElement other("Other"), noLink("InstanceRep", {&other}), broken("InstanceRep", {nullptr});
  const auto rep = [&](int i) { return static_cast<KalLightXmlElementItf*>(reps[i]); };
  const std::tuple<KalLightXmlElementItf*, HRESULT, std::string> links[] = {
      {rep(3), S_OK, "rr10  -1"},      {rep(2), S_OK, "<null> " + _Dir.Path() + "//abs/x.vorla 12"},
      {&_Stale, E_FAIL, "<null>  -1"}, {&noLink, S_OK, "<null>  -1"},
      {&broken, E_FAIL, "<null>  -1"}, {nullptr, E_INVALIDARG, "stale stale 0"}};
  for (const auto& [instance, code, want] : links) {  // want: the element, the path and the id
    KalLightXmlElementItf* found = &_Stale;
    KalUnicodeString path("stale");
    int id = 0;
    EXPECT_EQ(_Parser.GetReferenceRepFromInstanceRep(instance, &found, path, id), code) << want;
    EXPECT_EQ(NameOf(found) + " " + Str(path) + " " + std::to_string(id), want);
  }

  KalRawCollPV formats;
  FakeElement r10("ReferenceRep", {}, "", "", "", "10"), r12("ReferenceRep", {}, "", "", "", "12");
  FakeElement zero("ReferenceRep", {}, "", "", "", "0");
  for (KalLightXmlElementItf* reference : {&r10, &r12, &zero, &_Stale})
    EXPECT_EQ(_Parser.GetRepFormatsFromRepReference(reference, &formats), S_OK);
  EXPECT_EQ(Names(formats), "f1 f2 f3 f4 f5");
  EXPECT_EQ(_Parser.GetRepFormatsFromRepReference(nullptr, &formats), E_INVALIDARG);
  EXPECT_EQ(_Parser.GetRepFormatsFromRepReference(_Root, nullptr), E_INVALIDARG);
}

INSTANTIATE_TEST_SUITE_P(PlainAndArchive, Structure, ::testing::Bool());

// Bounds are inclusive; exact geometry has no lower bound; a version that does not convert
// matches nothing; only a RepFormat element with both children has a tag.
TEST(RepresentationDocType, FormatAndVersionDecideTheTag) {
  const auto xml = [](const char* format, const char* version, const char* tag = "RepFormat") {
    return std::string("<") + tag + "><format>" + format + "</format><version>" + version +
           "</version></" + tag + ">";
  };
  const char *T = "TESSELLATED", *E = "EXACT";
  // clang-format off
  const std::pair<std::string, const char*> cases[] = {
      {xml(T, "2.05"), "TG2"}, {xml(T, "2.1"), "TG2"}, {xml(T, "1"), "TG1"}, {xml(T, "1.5"), ""},
      {xml(T, "v2"), ""}, {xml(E, "-3"), "EG1"}, {xml(E, "1.1"), "EG1"}, {xml(E, "2.0"), ""},
      {xml("exact", "1.0"), ""}, {xml(E, "1", "Other"), ""},
      {"<RepFormat><format>EXACT</format></RepFormat>", ""}, {"<RepFormat/>", ""}};
  // clang-format on
  P parser;
  for (const auto& [format, suffix] : cases) {  // suffix "": E_FAIL, the output untouched
    auto element = kaltest::ParseXml(format);
    KalUnicodeString type("stale");
    EXPECT_EQ(parser.GetRepresentationDocType(element.get(), type), *suffix ? S_OK : E_FAIL)
        << format;
    EXPECT_EQ(Str(type), *suffix ? "REP_DOC_TYPE_" + std::string(suffix) : "stale") << format;
  }
  KalUnicodeString type;
  EXPECT_EQ(parser.GetRepresentationDocType(nullptr, type), E_INVALIDARG);
  EXPECT_EQ(parser.GetRepresentationUrn(nullptr, type), E_INVALIDARG);
}

}  // namespace
