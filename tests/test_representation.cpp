// Representation data: locations, lookups by id (copies included), geometry buffers, and a
// walk of an assembly spread over two documents down to every buffer.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "KalViz.h"
#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

using P = KalVorlaParser;
using kaltest::Entity;
using kaltest::NameOf;
using kaltest::Str;

std::string RepFormat(const std::string& name, const std::string& urn,
                      const std::string& format = "TESSELLATED",
                      const std::string& version = "1.0") {
  return "<RepFormat xsi:type='RepFormatType' owner='5' name='" + name + "' associatedFile='" +
         urn + "'><format>" + format + "</format><version>" + version + "</version></RepFormat>";
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

// The buffer of a local URN, described, with the code and the format tag.
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

class Representations : public ::testing::Test {
 protected:
  void Load(const std::string& body) {
    kaltest::WriteFile(_Dir.File("doc.xml"), kaltest::VorlaXml(body));
    ASSERT_EQ(_Parser.InitParsing(_Dir.File("doc.xml").c_str()), S_OK);
  }
  kaltest::TempDir _Dir;
  P _Parser;
};

// Decoded data ends the search; tessellations become Qsr buffers and a later data child or a
// later representation of the same id replaces them; damaged content gives no buffer. Only
// representation URNs are followed; files that are missing or not documents give no
// representation set to search.
TEST_F(Representations, BuffersComeFromBase64DataOrTessellations) {
  const std::string T = "TESSELLATED", E = "EXACT";
  Load(
      "<ProductStructure root='1'/><GeometricRepresentationSet>" +
      Rep("1", T, "1.0", Data("AAEC/f7/\n +w==")) + Rep("2", E, "1.2", Data("QQ==")) +
      Rep("3", T, "2.1", kMesh) + Rep("4", T, "2.2", Data("QQ==")) +
      Rep("5", E, "1.1", Data("QUJD")) + Rep("6", T, "1.0", Data("QU!=")) +
      Rep("7", T, "1.0", "<AssociatedXML><Mesh><Positions>0 0</Positions></Mesh></AssociatedXML>") +
      Rep("8", T, "1.0", kMesh + Data("QUI=") + kMesh) + Rep("9", T, "1.1", "<Other/>") +
      Rep("10", T, "1.0", kMesh) + Rep("10", T, "1.0", Data("QQ==")) + Rep("11", T, "1.0", kMesh) +
      Rep("11", E, "3.0", "") + "</GeometricRepresentationSet>");
  kaltest::WriteFile(_Dir.File("junk.vorla"), "not xml");
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
  unsigned int size = 0;
  KalUnicodeString format;
  EXPECT_EQ(_Parser.GetRepBufferFromUrn("urn:VORLA:Representation:loc:1", nullptr, size, format),
            E_FAIL);
  size = 9;
  char* buffer = nullptr;
  EXPECT_EQ(_Parser.GetGeometricRepresentationBuffer(nullptr, &buffer, size, format),
            kVorlaBadArguments);
  EXPECT_EQ(size, 0u);
  auto notAFormat = kaltest::ParseXml("<Other associatedFile='urn:VORLA:Representation:loc:1'/>");
  EXPECT_EQ(_Parser.GetGeometricRepresentationBuffer(notAFormat.get(), &buffer, size, format),
            E_FAIL);
}

// Lookups by id read "%u", a missing id counting as 0; the older lookup reads "%d" and matches
// nothing before an id is read. The first match wins; copies outlive the parser.
TEST_F(Representations, LookupsByIdHandOutTheElementOrACopy) {
  Load("<ProductStructure root='1'/><GeometricRepresentationSet><Representation name='no-id'/>" +
       Rep("20", "", "", "<Child name='kept'/>", "a") + Rep("20", "", "", "", "second") +
       Rep("-1", "", "", "", "minus") +
       "</GeometricRepresentationSet><SpecificExtensionSet>"
       "<SpecificExtension id='5' name='t5'/></SpecificExtensionSet>");
  using Lookup = HRESULT (P::*)(unsigned int, KalLightXmlElementItf**, long);
  const Lookup rep = &P::GetRepresentationNodeFromId, tech = &P::GetTechRepNodeFromId;
  const std::tuple<Lookup, unsigned int, long, HRESULT, const char*> cases[] = {
      {rep, 20, 0, S_OK, "a"},       {rep, 0, 0, S_OK, "no-id"}, {rep, 0xFFFFFFFF, 7, 7, "minus"},
      {rep, 5, 0, S_FALSE, "stale"}, {tech, 5, 0, S_OK, "t5"},   {tech, 20, 0, S_FALSE, "stale"}};
  kaltest::FakeElement stale("Stale", {}, "stale");
  for (const auto& [lookUp, id, mode, code, name] : cases) {
    KalLightXmlElementItf* found = &stale;
    EXPECT_EQ((_Parser.*lookUp)(id, &found, mode), code) << id;
    EXPECT_EQ(NameOf(found), name) << id;
  }
  std::string older;
  for (unsigned int id : {20u, 0u, 0xFFFFFFFFu}) {
    KalLightXmlElementItf* found = &stale;
    const HRESULT code = _Parser.GetRepresentationNode(id, &found);
    older += std::to_string(code) + ":" + NameOf(found) + " ";
  }
  EXPECT_EQ(older, "0:a 1:stale 0:minus ");
  EXPECT_EQ(_Parser.GetRepresentationNode(20, nullptr), E_FAIL);
  EXPECT_EQ(_Parser.GetTechRepNodeFromId(5, nullptr, 0), E_FAIL);

  KalLightXmlElementItf* copy = nullptr;
  {
    P other;
    ASSERT_EQ(other.InitParsing(_Dir.File("doc.xml").c_str()), S_OK);
    EXPECT_EQ(other.GetRepresentationNodeFromId(20, &copy, kVorlaCopyMode), kVorlaCopyMode);
  }
  std::unique_ptr<KalLightXmlElementItf> owned(copy);
  KalPosition cursor = copy ? copy->GetHeadPosition() : nullptr;
  ASSERT_NE(cursor, nullptr);
  EXPECT_EQ(NameOf(copy) + "/" + NameOf(copy->GetNextChild(cursor)), "a/kept");

  P empty;  // no set loaded
  EXPECT_EQ(empty.GetRepresentationNodeFromId(20, &copy, 0), E_FAIL);
  EXPECT_EQ(empty.GetRepresentationNode(20, &copy), E_FAIL);
}

// "loc" gives 4 and the id; anything else 3 and the rest after the second colon, which loses
// a "./" prefix only when its last path part is an entry of the open archive.
TEST(RepresentationLocation, LocalIdsOrFileNamesNormalisedAgainstTheArchive) {
  kaltest::TempDir dir;
  const std::string doc = kaltest::VorlaXml("<ProductStructure root='1'/>");
  kaltest::WriteVorlaArchive(dir.File("a.vorla"), "Root.xml", doc, {{"geo.bin", "x"}});
  kaltest::WriteFile(dir.File("doc.xml"), doc);
  const std::string prefix = "urn:VORLA:Representation:";
  const std::tuple<std::string, HRESULT, const char*, const char*> cases[] = {
      {prefix + "loc:12", 4, "12", "12"},
      {prefix + "ext:./geo.bin", 3, "./geo.bin", "geo.bin"},
      {prefix + "ext:./sub/geo.bin", 3, "./sub/geo.bin", "sub/geo.bin"},
      {prefix + "ext:.\\geo.bin", 3, ".\\geo.bin", ".\\geo.bin"},
      {prefix + "ext:x/./geo.bin", 3, "x/./geo.bin", "x/./geo.bin"},
      {prefix + "ext:./geo.bin#3", 3, "./geo.bin#3", "./geo.bin#3"},
      {"urn:VORLA:TechRep:loc:5", 3, "TechRep:loc:5", "TechRep:loc:5"}};
  for (const bool archive : {false, true}) {
    P parser;
    ASSERT_EQ(parser.InitParsing(dir.File(archive ? "a.vorla" : "doc.xml").c_str()), S_OK);
    for (const auto& [urn, code, plain, inArchive] : cases) {
      auto format = kaltest::ParseXml("<RepFormat associatedFile='" + urn + "'/>");
      KalUnicodeString location;
      EXPECT_EQ(parser.GetRepLocationFromRepFormat(format.get(), location), code) << urn;
      EXPECT_EQ(Str(location), archive ? inArchive : plain) << urn;
    }
    KalUnicodeString location("stale");
    auto other = kaltest::ParseXml("<Other associatedFile='" + prefix + "loc:1'/>");
    EXPECT_EQ(parser.GetRepLocationFromRepFormat(other.get(), location), E_FAIL);
    EXPECT_EQ(parser.GetRepLocationFromRepFormat(nullptr, location), E_FAIL);
    EXPECT_EQ(Str(location), "stale");
  }
}

// An assembly whose part lives in a second document: inside one archive, or as a file beside
// a plain root file. The walk uses only what a caller has.
class Assembly : public ::testing::TestWithParam<bool> {
 protected:
  void Walk(P& parser, KalLightXmlElementItf* reference, const std::string& at) {
    KalLightXmlElementItf* child = nullptr;
    KalUnicodeString file;
    int id = 0, childId = 0;
    parser.GetEntityLocalID(reference, id);
    KalRawCollPV instances, reps;
    ASSERT_EQ(parser.GetInstancesFromReference3D(id, &instances), S_OK);
    for (int i = 1; i <= instances.Size(); ++i) {
      auto* instance = static_cast<KalLightXmlElementItf*>(instances[i]);
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
      auto* rep = static_cast<KalLightXmlElementItf*>(reps[i]);
      ASSERT_EQ(parser.GetReferenceRepFromInstanceRep(rep, &child, file, childId), S_OK);
      KalRawCollPV formats;
      ASSERT_EQ(parser.GetRepFormatsFromRepReference(child, &formats), S_OK);
      for (int f = 1; f <= formats.Size(); ++f) {
        auto* format = static_cast<KalLightXmlElementItf*>(formats[f]);
        KalUnicodeString docType, location, tag;
        KalLightXmlElementItf* representation = nullptr;
        const HRESULT found = parser.GetRepresentationFromRepFormat(format, &representation);
        const HRESULT where = parser.GetRepLocationFromRepFormat(format, location);
        EXPECT_EQ(parser.GetRepresentationDocType(format, docType), S_OK);
        char* buffer = nullptr;
        unsigned int size = 0;
        EXPECT_EQ(parser.GetGeometricRepresentationBuffer(format, &buffer, size, tag), S_OK);
        _Seen.push_back(at + " " + NameOf(format) + " " + std::to_string(where) + ":" +
                        Str(location) + " " + std::to_string(found) + ":" + NameOf(representation) +
                        " " + Str(docType) + "=" + Str(tag) + " " + Describe(buffer, size));
        delete[] buffer;
        if (found == kVorlaCopyMode) delete representation;
      }
    }
  }
  std::vector<std::string> _Seen;
};

TEST_P(Assembly, WalkReachesEveryBufferInBothDocuments) {
  const std::string root = kaltest::VorlaXml(
      "<ProductStructure root='1'><Reference3D xsi:type='Reference3DType' id='1' name='Asm'/>" +
      Entity("Instance3D", "id='2' name='wheel'", "1", "urn:VORLA:Reference:loc:3") +
      Entity("Instance3D", "id='6' name='bracket'", "1", "urn:VORLA:Reference:ext:Part.vorla#1") +
      "<Reference3D xsi:type='Reference3DType' id='3' name='Wheel'/>" +
      Entity("InstanceRep", "id='4'", "3", "urn:VORLA:ReferenceRep:loc:5") +
      "<ReferenceRep xsi:type='ReferenceRepType' id='5'/>" +
      RepFormat("inline", "urn:VORLA:Representation:loc:20") +
      RepFormat("shared", "urn:VORLA:Representation:ext:Part.vorla#30", "TESSELLATED", "2.1") +
      "</ProductStructure><GeometricRepresentationSet>" +
      Rep("20", "TESSELLATED", "1.0", Data("aGVs\nbG8="), "hello") +
      "</GeometricRepresentationSet>");
  const std::string part = kaltest::VorlaXml(
      "<ProductStructure root='1'><Reference3D xsi:type='Reference3DType' id='1' name='Part'/>" +
      Entity("InstanceRep", "id='2'", "1", "urn:VORLA:ReferenceRep:loc:5") +
      "<ReferenceRep xsi:type='ReferenceRepType' id='5'/>" +
      RepFormat("own", "urn:VORLA:Representation:loc:30", "TESSELLATED", "2.1") +
      "</ProductStructure><GeometricRepresentationSet>" +
      Rep("30", "TESSELLATED", "2.1", kMesh, "mesh") + "</GeometricRepresentationSet>");
  kaltest::TempDir dir;
  const std::string path = dir.File(GetParam() ? "assembly.vorla" : "Root.vorla");
  GetParam() ? kaltest::WriteVorlaArchive(path, "Root.vorla", root, {{"Part.vorla", part}})
             : kaltest::WriteFile(path, root);
  if (!GetParam()) kaltest::WriteFile(dir.File("Part.vorla"), part);
  P parser;
  ASSERT_EQ(parser.InitParsing(path.c_str()), S_OK);
  KalLightXmlElementItf* top = nullptr;
  ASSERT_EQ(parser.GetProductStructureRootReference(&top), S_OK);
  Walk(parser, top, "Asm");
  EXPECT_EQ(_Seen,
            (std::vector<std::string>{
                "Asm/wheel inline 4:20 0:hello REP_DOC_TYPE_TG1=REP_DOC_TYPE_TG1 hello",
                "Asm/wheel shared 3:Part.vorla#30 25:mesh REP_DOC_TYPE_TG2=REP_DOC_TYPE_TG2 " +
                    kMeshSummary,
                "Asm/bracket own 4:30 0:mesh REP_DOC_TYPE_TG2=REP_DOC_TYPE_TG2 " + kMeshSummary}));
}

INSTANTIATE_TEST_SUITE_P(ArchiveAndSiblingFile, Assembly, ::testing::Bool());

}  // namespace
