// Product structure navigation, from references down to representation references; format tags.
#include "TestDocuments.h"

namespace kaltest {
namespace {

using P = KalVorlaParser;

std::string Instance(int id, const char* name, const char* urn, const char* matrix = nullptr) {
  return Entity("Instance3D", "id='" + std::to_string(id) + "' name='" + name + "'", "1", urn,
                matrix ? std::string("<RelativeMatrix>") + matrix + "</RelativeMatrix>" : "");
}

class Structure : public ::testing::TestWithParam<bool> {};  // a plain file, or in an archive

// References list instances, which lead to references here or in another file, and on to
// representation instances and references; ids, names and matrices (numbers out of range read
// as strtod gives them, narrowed to float by rounding to nearest; tessellations refuse them).
TEST_P(Structure, ReferencesLeadToInstancesTheirReferencesAndRepresentationReferences) {
  const std::string xml = kaltest::Structure(
      Entity("Reference3D", "id='1' name='Root'") +
      Instance(7, "local", "urn:VORLA:Reference:loc:2",
               "1e999 -1e999 nan 1e39 -1e39 99999999999999999999 4e-400 -0 0x10 1 2 3") +
      Instance(3, "relative", "urn:VORLA:Reference:ext:part.vorla#2", "") +
      Instance(5, "absolute", "urn:VORLA:Reference:ext:/abs/other.vorla#9") +
      Instance(6, "bare", "") + Instance(8, "no-prefix", "2") +
      Instance(11, "dangling", "urn:VORLA:Reference:loc:99") +
      Entity("InstanceRep", "id='4' name='rep-local'", "1", "urn:VORLA:ReferenceRep:loc:10") +
      Entity("InstanceRep", "id='2' name='rep-external'", "1",
             "urn:VORLA:ReferenceRep:ext:/abs/x.vorla#12") +
      Entity("Reference3D", "id='2' name='Part'") + Entity("ReferenceRep", "id='10' name='rr10'"));
  TempDir dir;
  const std::string path = dir.File(GetParam() ? "doc.vorla" : "doc.xml");
  GetParam() ? WriteVorlaArchive(path, "Root.xml", xml) : WriteFile(path, xml);
  P parser;
  Element *root = nullptr, *local = nullptr, *empty = nullptr, *absent = nullptr;
  ASSERT_EQ(parser.InitParsing(path.c_str()), S_OK);
  ASSERT_EQ(
      (Codes{parser.GetProductStructureRootReference(&root),
             parser.GetInstance3DFromLocalID(7, &local), parser.GetInstance3DFromLocalID(3, &empty),
             parser.GetInstance3DFromLocalID(5, &absent)}),
      Codes(4, S_OK));
  FakeElement stale("Stale", {}, "stale");

  // Both overloads; a relative file lies beside the document or is an archive entry.
  const std::string relative = GetParam() ? "part.vorla" : dir.Path() + "/part.vorla";
  // clang-format off
  const std::tuple<int, HRESULT, HRESULT, std::string> cases[] = {
      {7, S_OK, S_OK, "Part | Part  -1"}, {3, S_OK, S_OK, "Part | <null> " + relative + " 2"},
      {5, E_FAIL, S_OK, "<null> | <null> /abs/other.vorla 9"},
      {6, E_FAIL, S_OK, "<null> | <null>  -1"},
      {8, E_FAIL, E_FAIL, "<null> | <null>  -1"}, {11, E_FAIL, E_FAIL, "<null> | <null>  -1"},
      {99, E_FAIL, E_FAIL, "stale | <null>  -1"}};
  // clang-format on
  for (const auto& [instance, code1, code2, want] : cases) {
    Element *first = &stale, *second = &stale;
    KalUnicodeString file("stale");
    int id = 77;
    EXPECT_EQ(parser.GetReference3DFromInstance3D(instance, &first), code1) << instance;
    EXPECT_EQ(parser.GetReference3DFromInstance3D(instance, &second, file, id), code2) << instance;
    EXPECT_EQ(NameOf(first) + " | " + NameOf(second) + " " + Str(file) + " " + std::to_string(id),
              want);
  }
  KalUnicodeString text;
  int id = 0;
  EXPECT_EQ(parser.GetReference3DFromInstance3D(7, nullptr), E_INVALIDARG);
  EXPECT_EQ(parser.GetReference3DFromInstance3D(7, nullptr, text, id), E_INVALIDARG);

  // By ascending id (sorted on the first call), emptied first unless the arguments are refused.
  const char* const all = "relative absolute bare local no-prefix dangling";
  const std::tuple<int, HRESULT, const char*> lists[] = {
      {1, S_OK, all}, {1, S_OK, all}, {2, S_OK, ""}, {99, E_FAIL, ""}, {0, E_FAIL, "stale"}};
  KalRawCollPV instances;
  for (const auto& [reference, code, names] : lists) {
    instances.Append(&stale);
    EXPECT_EQ(parser.GetInstancesFromReference3D(reference, &instances), code) << reference;
    EXPECT_EQ(Names(instances), names) << reference;
  }
  EXPECT_EQ(parser.GetInstancesFromReference3D(1, nullptr), E_FAIL);

  // An empty matrix fails with its zeroed array the caller's; none at all is S_OK with null.
  int noId = 0;
  KalUnicodeString name;
  float *floats = nullptr, *unread = nullptr;
  double spare = 0, *doubles = nullptr, *zeros = nullptr, *none = &spare;
  EXPECT_EQ(
      (Codes{parser.GetEntityLocalID(local, id), parser.GetEntityLocalID(local, text),
             parser.GetEntityName(local, name), parser.GetEntityLocalID(&stale, noId),
             parser.GetInstanceMatrix(local, &floats), parser.GetInstanceMatrix(local, &doubles),
             parser.GetInstanceMatrix(empty, &zeros), parser.GetInstanceMatrix(absent, &none),
             parser.GetInstanceMatrix(&stale, &unread), parser.GetEntityLocalID(nullptr, id),
             parser.GetEntityLocalID(nullptr, text), parser.GetEntityName(nullptr, name),
             parser.GetInstanceMatrix(local, static_cast<float**>(nullptr))}),
      (Codes{S_OK, S_OK, S_OK, S_OK, S_OK, S_OK, E_FAIL, S_OK, E_FAIL, E_INVALIDARG, E_INVALIDARG,
             E_INVALIDARG, E_INVALIDARG}));
  EXPECT_EQ(std::to_string(id) + " " + Str(text) + " " + Str(name) + " " + std::to_string(noId),
            "7 7 local -1");
  ASSERT_TRUE(floats && doubles && zeros);
  std::ostringstream read;  // 10 digits tell a float from the double it came from
  read.precision(10);
  for (int i = 0; i < 12; ++i) read << doubles[i] << "/" << floats[i] << "/" << zeros[i] << " ";
  EXPECT_EQ(read.str(),
            "inf/inf/0 -inf/-inf/0 nan/nan/0 1e+39/inf/0 -1e+39/-inf/0 1e+20/1.00000002e+20/0 "
            "0/0/0 -0/-0/0 16/16/0 1/1/0 2/2/0 3/3/0 ");
  EXPECT_TRUE(none == nullptr && unread == nullptr);
  delete[] floats;
  delete[] doubles;
  delete[] zeros;

  // Appended; an external representation reference is joined to the directory with "/".
  KalRawCollPV reps;
  reps.Append(&stale);
  EXPECT_EQ(parser.GetRepInstancesFromReference3D(root, &reps), S_OK);
  EXPECT_EQ(Names(reps), "stale rep-external rep-local");
  EXPECT_EQ(parser.GetRepInstancesFromReference3D(&stale, &reps), E_FAIL);  // id -1
  FakeElement other("Other"), noLink("InstanceRep", {&other}), broken("InstanceRep", {nullptr});
  const auto rep = [&](int i) { return static_cast<Element*>(reps[i]); };
  const std::tuple<Element*, HRESULT, std::string> links[] = {
      {rep(3), S_OK, "rr10  -1"},      {rep(2), S_OK, "<null> " + dir.Path() + "//abs/x.vorla 12"},
      {&stale, E_FAIL, "<null>  -1"},  {&noLink, S_OK, "<null>  -1"},
      {&broken, E_FAIL, "<null>  -1"}, {nullptr, E_INVALIDARG, "stale stale 0"}};
  for (const auto& [instance, code, want] : links) {  // the element, the path and the id
    Element* found = &stale;
    KalUnicodeString file("stale");
    int repId = 0;
    EXPECT_EQ(parser.GetReferenceRepFromInstanceRep(instance, &found, file, repId), code) << want;
    EXPECT_EQ(NameOf(found) + " " + Str(file) + " " + std::to_string(repId), want);
  }

  KalRawCollPV list;  // null arguments and outputs
  EXPECT_EQ((Codes{parser.GetRepInstancesFromReference3D(nullptr, &list),
                   parser.GetRepInstancesFromReference3D(root, nullptr),
                   parser.GetRepFormatsFromRepReference(nullptr, &list),
                   parser.GetRepFormatsFromRepReference(root, nullptr),
                   parser.GetRepresentationDocType(nullptr, text),
                   parser.GetRepresentationUrn(nullptr, text)}),
            (Codes{kVorlaBadArguments, kVorlaBadArguments, E_INVALIDARG, E_INVALIDARG, E_INVALIDARG,
                   E_INVALIDARG}));
}

INSTANTIATE_TEST_SUITE_P(PlainAndArchive, Structure, ::testing::Bool());

// Inclusive bounds (none below for exact geometry); a RepFormat needs both children ("": E_FAIL).
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
  for (const auto& [format, suffix] : cases) {
    auto element = ParseXml(format);
    KalUnicodeString type("stale");
    EXPECT_EQ(parser.GetRepresentationDocType(element.get(), type), *suffix ? S_OK : E_FAIL)
        << format;
    EXPECT_EQ(Str(type), *suffix ? "REP_DOC_TYPE_" + std::string(suffix) : "stale") << format;
  }
}

}  // namespace
}  // namespace kaltest
