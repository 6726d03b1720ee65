// Representation data: formats of two documents down to their buffers, geometry buffers and
// locations.
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

// Two documents, each with formats owned by ReferenceRep 5, one pointing into the other: in one
// archive, or as files side by side.
class Assembly : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    const std::string T = "TESSELLATED", E = "EXACT";
    const std::string root = VorlaXml(
        "<ProductStructure root='1'>" + Entity("Reference3D", "id='1' name='Asm'") +
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
                 Entity("ReferenceRep", "id='5'") +
                 RepFormat("own", "urn:VORLA:Representation:loc:30", "2.1") +
                 "</ProductStructure><GeometricRepresentationSet>" +
                 Rep("30", T, "2.1", kMesh, "mesh") + "</GeometricRepresentationSet>");
    const std::string path = _Dir.File(GetParam() ? "assembly.vorla" : "Root.vorla");
    const std::vector<Entry> more = {{"Part.vorla", part}, {"g", ""}};
    GetParam() ? WriteVorlaArchive(path, "Root.vorla", root, more) : WriteFile(path, root);
    for (const auto& file : more)
      if (!GetParam()) WriteFile(_Dir.File(file.name), file.content);
    ASSERT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
  }
  TempDir _Dir;
  P _Parser;
};

// The formats of both documents, found as a caller finds them, lead to their representation
// (from the other document a copy, children included, that outlives its parser), location,
// document type and buffer, decoded or as Qsr, whichever the layout.
TEST_P(Assembly, FormatsLeadToBuffersDecodedOrTessellatedAndLocationsFollowTheArchive) {
  P part;
  const std::string partPath = GetParam() ? "Part.vorla" : _Dir.File("Part.vorla");
  ASSERT_EQ(part.InitParsing(partPath.c_str()), S_OK);
  std::vector<std::string> seen;
  for (P* parser : {&_Parser, &part}) {
    Element *shape = nullptr, *representation = nullptr;
    KalRawCollPV formats;
    ASSERT_EQ(parser->GetReferenceRepFromLocalID(5, &shape), S_OK);
    ASSERT_EQ(parser->GetRepFormatsFromRepReference(shape, &formats), S_OK);
    for (int f = 1; f <= formats.Size(); ++f) {
      auto* format = static_cast<Element*>(formats[f]);
      KalUnicodeString docType, location, tag;
      char* buffer = nullptr;
      unsigned int size = 0;
      const HRESULT found = parser->GetRepresentationFromRepFormat(format, &representation);
      const HRESULT where = parser->GetRepLocationFromRepFormat(format, location);
      EXPECT_EQ(parser->GetRepresentationDocType(format, docType), S_OK);
      EXPECT_EQ(parser->GetGeometricRepresentationBuffer(format, &buffer, size, tag), S_OK);
      KalPosition first = representation ? representation->GetHeadPosition() : nullptr;
      seen.push_back(NameOf(format) + " " + std::to_string(where) + ":" + Str(location) + " " +
                     std::to_string(found) + ":" + NameOf(representation) + "/" +
                     (first ? Str(representation->GetNextChild(first)->GetType()) : "") + " " +
                     Str(docType) + "=" + Str(tag) + " " + Describe(buffer, size));
      delete[] buffer;
      if (found == kVorlaCopyMode) delete representation;
    }
  }
  const std::string both1 = "REP_DOC_TYPE_TG1=REP_DOC_TYPE_TG1 ",
                    both2 = "REP_DOC_TYPE_TG2=REP_DOC_TYPE_TG2 ";
  EXPECT_EQ(seen, (std::vector<std::string>{
                      "inline 4:20 0:hello/AssociatedData " + both1 + "hello",
                      "shared 3:Part.vorla#30 25:mesh/AssociatedXML " + both2 + kMeshSummary,
                      "own 4:30 0:mesh/AssociatedXML " + both2 + kMeshSummary}));

  // Buffers: decoded data ends the search, a later tessellation or representation replaces one;
  // locations: a local id, or a file name losing "./" when it names an entry of the open archive.
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
      {"urn:VORLA:TechRep:loc:1", none}, {"1", none}};
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
