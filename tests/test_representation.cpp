// Representation data: a walk of an assembly spread over two documents down to every buffer,
// geometry buffers and locations.
#include "KalViz.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

using P = KalVorlaParser;

std::string RepFormat(const std::string& name, const std::string& urn, const char* version) {
  return "<RepFormat xsi:type='RepFormatType' owner='5' name='" + name + "' associatedFile='" +
         urn + "'><format>TESSELLATED</format><version>" + version + "</version></RepFormat>";
}

std::string Rep(const std::string& id, const std::string& format, const std::string& version,
                const std::string& content, const std::string& name = "") {
  return "<Representation id='" + id + "' name='" + name + "' format='" + format + "' version='" +
         version + "'>" + content + "</Representation>";
}

std::string Data(const std::string& base64) {
  return "<AssociatedData>" + base64 + "</AssociatedData>";
}

// Four vertices; one triangle, a strip of four and a fan of four; one polyline.
const std::string kMesh =
    "<AssociatedXML><Mesh name='m'><Positions>0 0 0 1 0 0 0 1 0 1 1 0</Positions>"
    "<Triangles>0 1 2</Triangles><Strip>0 1 2 3</Strip><Fan>0 1 2 3</Fan>"
    "<Polyline>0 1 3</Polyline></Mesh></AssociatedXML>";
const std::string kMeshSummary = "qsr 4v tri 0 1 2 0 1 2 2 1 3 0 1 2 0 2 3 line 0 1 3";

// What a buffer holds: a Qsr buffer read back, other bytes as they are, "<null>" for none.
std::string Describe(const char* buffer, unsigned int size) {
  if (buffer == nullptr) return "<null>";
  const std::string bytes(buffer, size);
  if (bytes.compare(0, 4, "QSR1") != 0) return bytes;
  KalRep* rep = nullptr;
  if (KalReadQsr(buffer, static_cast<int>(size), rep) != 0) return "bad qsr";
  std::string text;
  for (const KalMesh& m : rep->meshes) {
    text += "qsr " + std::to_string(m.VertexCount()) + "v tri";
    for (uint32_t i : m.triangles) text += " " + std::to_string(i);
    text += " line";
    for (uint32_t i : m.polylineIndices) text += " " + std::to_string(i);
  }
  rep->Release();
  return text;
}

// The code, format tag and buffer of a URN ("size" when no buffer came with a size written).
std::string BufferOf(P& parser, const std::string& urn) {
  char* buffer = nullptr;
  unsigned int size = 77;
  KalUnicodeString format("stale");
  const HRESULT code = parser.GetRepBufferFromUrn(urn.c_str(), &buffer, size, format);
  std::string text = std::to_string(code) + " " + Str(format) + " " + Describe(buffer, size);
  if (buffer == nullptr && size != 77) text += " size " + std::to_string(size);
  delete[] buffer;
  return text;
}

// An assembly whose part lives in a second document: inside one archive, or as a file beside
// a plain root file (with a file that is no document); its root also holds representations.
class Assembly : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    const std::string T = "TESSELLATED", E = "EXACT";
    const std::string root = VorlaXml(
        "<ProductStructure root='1'>" + Entity("Reference3D", "id='1' name='Asm'") +
        Entity("Instance3D", "id='2' name='wheel'", "1", "urn:VORLA:Reference:loc:3") +
        Entity("Instance3D", "id='6' name='bracket'", "1", "urn:VORLA:Reference:ext:Part.vorla#1") +
        Entity("Reference3D", "id='3' name='Wheel'") +
        Entity("InstanceRep", "id='4'", "3", "urn:VORLA:ReferenceRep:loc:5") +
        Entity("ReferenceRep", "id='5'") +
        RepFormat("inline", "urn:VORLA:Representation:loc:20", "1.0") +
        RepFormat("shared", "urn:VORLA:Representation:ext:Part.vorla#30", "2.1") +
        "</ProductStructure><GeometricRepresentationSet>" +
        Rep("20", T, "1.0", Data("aGVs\nbG8="), "hello") +
        Rep("1", T, "1.0", Data("AAEC/f7/\n +w==")) + Rep("2", E, "1.2", Data("QQ==")) +
        Rep("3", T, "2.1", kMesh) + Rep("4", T, "2.2", Data("QQ==")) +
        Rep("5", E, "1.1", Data("QUJD")) + Rep("6", T, "1.0", Data("QU!=")) +
        Rep("7", T, "1.0",
            "<AssociatedXML><Mesh><Positions>0 0</Positions></Mesh></AssociatedXML>") +
        Rep("8", T, "1.0", kMesh + Data("QUI=") + kMesh) + Rep("9", T, "1.1", "<Other/>") +
        Rep("10", T, "1.0", kMesh) + Rep("10", T, "1.0", Data("QQ==")) +
        Rep("11", T, "1.0", kMesh) + Rep("11", E, "3.0", "") + "</GeometricRepresentationSet>");
    const std::string part =
        VorlaXml("<ProductStructure root='1'>" + Entity("Reference3D", "id='1' name='Part'") +
                 Entity("InstanceRep", "id='2'", "1", "urn:VORLA:ReferenceRep:loc:5") +
                 Entity("ReferenceRep", "id='5'") +
                 RepFormat("own", "urn:VORLA:Representation:loc:30", "2.1") +
                 "</ProductStructure><GeometricRepresentationSet>" +
                 Rep("30", T, "2.1", kMesh, "mesh") + "</GeometricRepresentationSet>");
    const std::string path = _Dir.File(GetParam() ? "assembly.vorla" : "Root.vorla");
    const std::vector<Entry> more = {{"Part.vorla", part}, {"junk.vorla", "not xml"}, {"g", ""}};
    GetParam() ? WriteVorlaArchive(path, "Root.vorla", root, more) : WriteFile(path, root);
    for (const auto& file : more) {
      if (!GetParam()) WriteFile(_Dir.File(file.name), file.content);
    }
    ASSERT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
  }
  // Walks down from `reference` with only what a caller has, describing every format met.
  void Walk(P& parser, Element* reference, const std::string& at) {
    Element* child = nullptr;
    KalUnicodeString file;
    int id = 0, childId = 0;
    parser.GetEntityLocalID(reference, id);
    KalRawCollPV instances, reps;
    ASSERT_EQ(parser.GetInstancesFromReference3D(id, &instances), S_OK);
    for (int i = 1; i <= instances.Size(); ++i) {
      auto* instance = static_cast<Element*>(instances[i]);
      parser.GetEntityLocalID(instance, id);
      ASSERT_EQ(parser.GetReference3DFromInstance3D(id, &child, file, childId), S_OK);
      P other;  // reads a reference that lives in another file
      P& owner = child ? parser : other;
      if (child == nullptr) {
        ASSERT_EQ(other.InitParsing(file), S_OK) << Str(file);
        ASSERT_EQ(other.GetReference3DFromLocalID(childId, &child), S_OK);
      }
      Walk(owner, child, at + "/" + NameOf(instance));
    }
    ASSERT_EQ(parser.GetRepInstancesFromReference3D(reference, &reps), S_OK);
    for (int i = 1; i <= reps.Size(); ++i) {
      auto* rep = static_cast<Element*>(reps[i]);
      ASSERT_EQ(parser.GetReferenceRepFromInstanceRep(rep, &child, file, childId), S_OK);
      KalRawCollPV formats;
      ASSERT_EQ(parser.GetRepFormatsFromRepReference(child, &formats), S_OK);
      for (int f = 1; f <= formats.Size(); ++f) {
        auto* format = static_cast<Element*>(formats[f]);
        KalUnicodeString docType, location, tag;
        Element* representation = nullptr;
        const HRESULT found = parser.GetRepresentationFromRepFormat(format, &representation);
        const HRESULT where = parser.GetRepLocationFromRepFormat(format, location);
        EXPECT_EQ(parser.GetRepresentationDocType(format, docType), S_OK);
        char* buffer = nullptr;
        unsigned int size = 0;
        EXPECT_EQ(parser.GetGeometricRepresentationBuffer(format, &buffer, size, tag), S_OK);
        // One of the other file is a copy, children included, that outlives its parser.
        KalPosition first = representation ? representation->GetHeadPosition() : nullptr;
        _Seen.push_back(at + " " + NameOf(format) + " " + std::to_string(where) + ":" +
                        Str(location) + " " + std::to_string(found) + ":" + NameOf(representation) +
                        "/" + (first ? Str(representation->GetNextChild(first)->GetType()) : "") +
                        " " + Str(docType) + "=" + Str(tag) + " " + Describe(buffer, size));
        delete[] buffer;
        if (found == kVorlaCopyMode) delete representation;
      }
    }
  }
  TempDir _Dir;
  P _Parser;
  std::vector<std::string> _Seen;
};

// The walk reaches every buffer of both documents, decoded or as Qsr, whichever the layout.
TEST_P(Assembly, WalkReachesEveryBufferInBothDocuments) {
  Element* top = nullptr;
  ASSERT_EQ(_Parser.GetProductStructureRootReference(&top), S_OK);
  Walk(_Parser, top, "Asm");
  const std::string tg1 = "REP_DOC_TYPE_TG1=REP_DOC_TYPE_TG1 ",
                    tg2 = "REP_DOC_TYPE_TG2=REP_DOC_TYPE_TG2 ";
  EXPECT_EQ(_Seen,
            (std::vector<std::string>{
                "Asm/wheel inline 4:20 0:hello/AssociatedData " + tg1 + "hello",
                "Asm/wheel shared 3:Part.vorla#30 25:mesh/AssociatedXML " + tg2 + kMeshSummary,
                "Asm/bracket own 4:30 0:mesh/AssociatedXML " + tg2 + kMeshSummary}));
}

// Buffers: decoded data ends the search, a later tessellation or representation replaces one;
// locations: a local id, or a file name losing "./" when it names an entry of the open archive.
TEST_P(Assembly, BuffersAreDecodedOrTessellatedAndLocationsFollowTheArchive) {
  const std::string loc = "urn:VORLA:Representation:loc:", ext = "urn:VORLA:Representation:ext:";
  const std::string tg1 = "0 REP_DOC_TYPE_TG1 ", none = std::to_string(E_FAIL) + " stale <null>";
  // clang-format off
  const std::pair<std::string, std::string> cases[] = {
      {loc + "1", tg1 + std::string("\x00\x01\x02\xfd\xfe\xff\xfb", 7)},
      {loc + "2", "24 stale <null>"}, {loc + "3", "0 REP_DOC_TYPE_TG2 " + kMeshSummary},
      {loc + "4", "24 stale <null>"}, {loc + "5", "0 REP_DOC_TYPE_EG1 ABC"},
      {loc + "6", tg1 + "<null> size 0"}, {loc + "7", tg1 + "<null> size 0"},
      {loc + "8", tg1 + "AB"}, {loc + "9", tg1 + "<null>"}, {loc + "10", tg1 + "A"},
      {loc + "11", "24 REP_DOC_TYPE_TG1 " + kMeshSummary}, {loc + "12", "0 stale <null>"},
      {"urn:VORLA:TechRep:loc:1", none}, {"1", none},
      {ext + "missing.vorla#1", none}, {ext + "junk.vorla#1", none}};
  // clang-format on
  for (const auto& [urn, want] : cases) EXPECT_EQ(BufferOf(_Parser, urn), want) << urn;

  // clang-format off
  const std::tuple<std::string, HRESULT, const char*, const char*> locations[] = {
      {loc + "12", 4, "12", "12"}, {ext + "./g", 3, "./g", "g"}, {ext + "./s/g", 3, "./s/g", "s/g"},
      {ext + ".\\g", 3, ".\\g", ".\\g"}, {ext + "x/./g", 3, "x/./g", "x/./g"},
      {ext + "./g#3", 3, "./g#3", "./g#3"}, {"", E_FAIL, "stale", "stale"},  // "": an Other element
      {"urn:VORLA:TechRep:loc:5", 3, "TechRep:loc:5", "TechRep:loc:5"}};
  // clang-format on
  for (const auto& [urn, code, plain, inArchive] : locations) {
    auto format = ParseXml(urn.empty() ? "<Other associatedFile='" + loc + "1'/>"
                                       : "<RepFormat associatedFile='" + urn + "'/>");
    KalUnicodeString location("stale");
    EXPECT_EQ(_Parser.GetRepLocationFromRepFormat(format.get(), location), code) << urn;
    EXPECT_EQ(Str(location), GetParam() ? inArchive : plain) << urn;
  }

  auto other = ParseXml("<Other associatedFile='" + loc + "1'/>");
  char* buffer = nullptr;
  unsigned int size = 9, otherSize = 9, unset = 9;
  KalUnicodeString text("stale");
  EXPECT_EQ((Codes{_Parser.GetRepBufferFromUrn((loc + "1").c_str(), nullptr, unset, text),
                   _Parser.GetGeometricRepresentationBuffer(nullptr, &buffer, size, text),
                   _Parser.GetGeometricRepresentationBuffer(other.get(), &buffer, otherSize, text),
                   _Parser.GetRepLocationFromRepFormat(nullptr, text)}),
            (Codes{E_FAIL, kVorlaBadArguments, E_FAIL, E_FAIL}));
  EXPECT_EQ(std::to_string(unset) + std::to_string(size) + std::to_string(otherSize) + Str(text),
            "900stale");
}

INSTANTIATE_TEST_SUITE_P(ArchiveAndSiblingFile, Assembly, ::testing::Bool());

}  // namespace
}  // namespace kaltest
