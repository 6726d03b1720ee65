// The vorla command: its output on the bundled sample, exit codes, extraction, and glTF that
// the Khronos validator accepts and that stores a part placed many times once.
#include "TestDocuments.h"

namespace kaltest {
namespace {

// Whether `piece` is in `text`, showing `text` when it is not.
::testing::AssertionResult Has(const std::string& text, const std::string& piece) {
  if (text.find(piece) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "no \"" << piece << "\" in:\n" << text;
}

// Exports `input` to `output` with `flags`: the export must succeed and the Khronos validator
// find no error and no warning. Gives the tool's standard error and the validator's report.
std::pair<std::string, std::string> Export(const std::string& input, const std::string& output,
                                           const TempDir& dir, const char* flags = "") {
  const ToolRun r = RunVorla("export " + input + " -o " + output + flags, dir);
  EXPECT_EQ(r.exit, 0) << r.err;
  const std::string report =
      RunVorla(KAL_SOURCE_DIR "/scripts/validate-gltf.js " + output, dir, "node").out;
  EXPECT_EQ(report.substr(0, report.find(",\"infos\"")),
            "{\"file\":\"" + output + "\",\"errors\":0,\"warnings\":0")
      << report;  // nothing when the validator is not installed: run scripts/setup.sh
  return {r.err, report};
}

const std::string kSample = std::string(KAL_SOURCE_DIR) + "/examples/sample.vorla";
const std::string kRef = "urn:VORLA:Reference:loc:", kRep = "urn:VORLA:Representation:loc:";

TEST(Tool, SampleTreeExportAndInfo) {
  TempDir dir;
  const ToolRun tree = RunVorla("tree " + kSample + " --depth 2", dir);
  const std::string& t = tree.out;
  EXPECT_EQ(tree.exit, 0) << tree.err;
  EXPECT_EQ(t.substr(0, t.find("    instance \"Foot.1\"")),
            "reference \"Desk lamp\" [1]\n"
            "  instance \"Base assembly.1\" [100] -> reference \"Base assembly\" [2]\n");
  EXPECT_TRUE(Has(t,
                  "\n    instance \"Screw.1\" [106] -> Fasteners.vorla: reference \"Socket "
                  "head cap screw M5x16\" [2]\n      representation \"Screw shape\" "
                  "REP_DOC_TYPE_TG1\n"));
  EXPECT_EQ(t.substr(t.rfind("\n    instance")),  // the last line, cut by --depth 2
            "\n    instance \"Head assembly.1\" [112] -> reference \"Head assembly\" [7] ...\n");
  EXPECT_EQ(Export(kSample, dir.File("lamp.glb"), dir).first,
            "vorla: wrote " + dir.File("lamp.glb") +
                ": 19 nodes, 6 meshes, 567 vertices stored, 3 cameras, 30804 bytes\n");
  const ToolRun info = RunVorla("info --json " + kSample, dir);
  EXPECT_EQ(info.exit, 0);
  EXPECT_TRUE(Has(info.out, "\"instances\": 15,\n  \"references\": 9,\n  \"representations\": 5"));
}

// Part `id` named NAME: its InstanceRep id+1 places ReferenceRep id+2 "NAME shape", whose
// format points at representation `rep`.
std::string Part(int id, const std::string& name, int rep) {
  const auto n = [id](int plus) { return std::to_string(id + plus); };
  return Entity("Reference3D", "id='" + n(0) + "' name='" + name + "'") +
         Entity("InstanceRep", "id='" + n(1) + "'", n(0), kRef + n(2)) +
         Entity("ReferenceRep", "id='" + n(2) + "' name='" + name + " shape'") +
         Entity("RepFormat",
                "owner='" + n(2) + "' associatedFile='" + kRep + std::to_string(rep) + "'", "", "",
                "<format>TESSELLATED</format><version>1.0</version>");
}

// Reference 1 placing the part "Tile" (reference 2, a square in representation 9) `count`
// times along X; `structure` ends the product structure, `reps` starts the representations.
std::string Placements(int count, const std::string& structure = "", const std::string& reps = "") {
  std::string xml = "<ProductStructure root='1'>" + Entity("Reference3D", "id='1' name='Row'") +
                    Part(2, "Tile", 9);
  for (int i = 0; i < count; ++i) {
    const std::string x = std::to_string(20 * i);
    xml += Entity("Instance3D", "id='" + std::to_string(100 + i) + "' name='t'", "1", kRef + "2",
                  "<RelativeMatrix>1 0 0 0 1 0 0 0 1 " + x + " 0 0</RelativeMatrix>");
  }
  return VorlaXml(
      xml + structure + "</ProductStructure><GeometricRepresentationSet>" + reps +
      "<Representation id='9' format='TESSELLATED' version='1.0'><AssociatedXML><Mesh><Positions>"
      "0 0 0 10 0 0 10 10 0 0 10 0</Positions><Triangles>0 1 2 0 2 3</Triangles></Mesh>"
      "</AssociatedXML></Representation></GeometricRepresentationSet>");
}

// 1,000 placements store the part's four vertices once, with or without GPU instancing; a
// colour on one placement makes a second mesh over the same four stored vertices. What cannot
// be converted is named in one warning; a part without geometry is a node without a mesh.
TEST(Tool, ExportStoresAPartOnceAndReportsWhatItCannotConvert) {
  TempDir dir;
  WriteFile(dir.File("row.xml"), Placements(1000));
  for (const char* flag : {"", " --gpu-instancing"}) {
    const std::string glb = dir.File(*flag ? "instanced.glb" : "row.glb");
    const auto [err, report] = Export(dir.File("row.xml"), glb, dir, flag);
    EXPECT_TRUE(Has(err, *flag ? ": 1002 nodes, 1 meshes, 4 vertices stored"
                               : ": 1001 nodes, 1 meshes, 4 vertices stored"));
    // The validator does not know the instancing extension: it says so as information only.
    EXPECT_EQ(bool(Has(report, "UNSUPPORTED_EXTENSION")), *flag != 0);
    EXPECT_EQ(bool(Has(ReadFile(glb), "EXT_mesh_gpu_instancing")), *flag != 0);
  }
  WriteFile(dir.File("coloured.xml"),
            Placements(3, Entity("GraphicPropertiesAspect", "aspectOwner='101'", "", "",
                                 "<GraphicProperties><SurfaceAttributes xsi:type='Surface"
                                 "AttributesType'><Color red='1' green='0' blue='0'/>"
                                 "</SurfaceAttributes></GraphicProperties>")));
  EXPECT_TRUE(Has(Export(dir.File("coloured.xml"), dir.File("c.glb"), dir).first,
                  ": 4 nodes, 2 meshes, 4 vertices stored"));
  // The tile's representation 9 is now first an exact one; the part "Empty" has an empty one.
  WriteFile(dir.File("odd.xml"),
            Placements(1, Part(5, "Empty", 8) + Entity("Instance3D", "id='50'", "1", kRef + "5"),
                       "<Representation id='9' format='EXACT' version='1.2'/>"
                       "<Representation id='8' format='TESSELLATED' version='1.0'>"
                       "<AssociatedXML/></Representation>"));
  const std::string err = Export(dir.File("odd.xml"), dir.File("odd.glb"), dir).first;
  EXPECT_EQ(err.substr(0, err.find("vorla: wrote")),
            "vorla: warning: 1 representation(s) without geometry that can be converted:\n  " +
                dir.File("odd.xml") + "#9 (Tile shape): format or version not supported\n");
  EXPECT_TRUE(Has(err, ": 3 nodes, 0 meshes, 0 vertices stored"));
}

// Usage 2, unreadable documents 1 (also one whose reference instantiates itself), outputs that
// cannot or must not be written and a port taken 3; extract writes the bytes.
TEST(Tool, ExitCodesCyclesAndExtraction) {
  TempDir dir;
  const std::string loop = dir.File("loop.xml"), none = dir.File("none.vorla"), S = " " + kSample;
  const std::string glb = dir.File("taken.glb");
  WriteFile(loop, Placements(2, Entity("Instance3D", "id='99' name='loop'", "2", kRef + "2"),
                             "<Representation id='7' format='TESSELLATED' version='1.0'>"
                             "<AssociatedData> AAEC\n/w== </AssociatedData></Representation>"));
  WriteFile(glb, "old");
  HttpServer busy;  // holds a port `view` cannot serve on
  const std::string taken = busy.Url("").substr(busy.Url("").rfind(':') + 1);
  // Arguments, exit code, the start of standard error.
  const std::tuple<std::string, int, std::string> cases[] = {
      {"", 2, "A subcommand is required"},
      {"tree", 2, "FILE is required"},
      {"export" + S + " -o " + dir.File("x.obj"), 2, "vorla: the output must end in"},
      {"export" + S + " -o " + glb, 3, "vorla: " + glb + " exists; use --force to replace it"},
      {"export" + S + " -o " + dir.File("no/such/dir.glb"), 3, "vorla: cannot write "},
      {"extract" + S + " --id 999 -o -", 1, "vorla:" + S + " has no representation 999 with data"},
      {"view --no-open", 2, "FILE is required"},
      {"view --no-open --port 65536" + S, 2, "--port: Value 65536 not in range 0 to 65535"},
      {"view --no-open --port -1" + S, 2, "--port: Value -1 not in range 0 to 65535"},
      {"view --no-open " + none, 1, "vorla: cannot read " + none},
      {"view --no-open --port " + taken + S, 3, "vorla: cannot serve on 127.0.0.1:" + taken + "\n"},
      {"tree " + loop, 1,
       "vorla: cannot walk " + loop + ": reference \"Tile\" [2] of " + loop +
           " instantiates itself\n"}};
  for (const auto& [args, exit, err] : cases) {
    const ToolRun r = RunVorla(args, dir);
    EXPECT_EQ(r.exit, exit) << args;
    EXPECT_EQ(r.err.substr(0, err.size()), err) << args;
  }
  const ToolRun extracted = RunVorla("extract " + loop + " --id 7 -o -", dir);
  EXPECT_EQ(extracted.exit, 0);
  EXPECT_EQ(extracted.out, std::string("\0\1\2\xFF", 4));
  EXPECT_EQ(ReadFile(glb), "old");
}

}  // namespace
}  // namespace kaltest
