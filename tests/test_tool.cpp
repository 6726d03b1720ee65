// The vorla command: its output on the bundled sample, exit codes, extraction, and glTF that
// the Khronos validator accepts and that stores a part placed many times once.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "TestDocuments.h"

namespace {

struct Result {
  int exit;
  std::string out, err;
};

// Runs the shell command line `command` with stdout and stderr captured.
Result Shell(const std::string& command, const kaltest::TempDir& dir) {
  const std::string out = dir.File("stdout"), err = dir.File("stderr");
  const int status = std::system((command + " >" + out + " 2>" + err).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, kaltest::ReadFile(out),
          kaltest::ReadFile(err)};
}

Result Vorla(const std::string& args, const kaltest::TempDir& dir) {
  return Shell(std::string(KAL_VORLA_PATH) + " " + args, dir);
}

// The validator's one-line JSON report of `file`.
std::string Validate(const std::string& file, const kaltest::TempDir& dir) {
  const std::string root = KAL_SOURCE_DIR;
  if (!kaltest::FileExists(root + "/node_modules/gltf-validator/package.json")) {
    ADD_FAILURE() << "the glTF validator is not installed: run scripts/setup.sh";
    return "";
  }
  return Shell("node " + root + "/scripts/validate-gltf.js " + file, dir).out;
}

const std::string kSample = std::string(KAL_SOURCE_DIR) + "/examples/sample.vorla";

std::string Clean(const std::string& file) {
  return "{\"file\":\"" + file + "\",\"errors\":0,\"warnings\":0,\"infos\":0,\"messages\":[]}\n";
}

TEST(Tool, SampleTreeExportAndInfo) {
  kaltest::TempDir dir;
  const Result tree = Vorla("tree " + kSample + " --depth 2", dir);
  EXPECT_EQ(tree.exit, 0) << tree.err;
  EXPECT_EQ(tree.out.substr(0, tree.out.find("\n", tree.out.find("Screw.1"))),
            "reference \"Desk lamp\" [1]\n"
            "  instance \"Base assembly.1\" [100] -> reference \"Base assembly\" [2]\n"
            "    instance \"Foot.1\" [101] -> reference \"Foot\" [3]\n"
            "      representation \"Foot shape\" REP_DOC_TYPE_TG1\n"
            "    instance \"Foot.2\" [102] -> reference \"Foot\" [3]\n"
            "      representation \"Foot shape\" REP_DOC_TYPE_TG1\n"
            "    instance \"Foot.3\" [103] -> reference \"Foot\" [3]\n"
            "      representation \"Foot shape\" REP_DOC_TYPE_TG1\n"
            "    instance \"Foot.4\" [104] -> reference \"Foot\" [3]\n"
            "      representation \"Foot shape\" REP_DOC_TYPE_TG1\n"
            "    instance \"Base plate.1\" [105] -> reference \"Base plate\" [4]\n"
            "      representation \"Base plate shape\" REP_DOC_TYPE_TG1\n"
            "    instance \"Screw.1\" [106] -> Fasteners.vorla: reference \"Socket head cap "
            "screw M5x16\" [2]");
  EXPECT_NE(tree.out.find("  instance \"Arm assembly.1\" [110] -> reference \"Arm assembly\" [5]"
                          "\n    instance \"Pillar.1\" [111]"),
            std::string::npos);
  EXPECT_NE(tree.out.find("instance \"Head assembly.1\" [112] -> reference \"Head assembly\" [7]"
                          " ...\n"),
            std::string::npos);  // cut by --depth 2

  const Result exported = Vorla("export " + kSample + " -o " + dir.File("lamp.glb"), dir);
  EXPECT_EQ(exported.exit, 0) << exported.err;
  EXPECT_EQ(exported.err, "vorla: wrote " + dir.File("lamp.glb") +
                              ": 19 nodes, 6 meshes, 567 vertices stored, 3 cameras, 31324 bytes\n");
  const std::string report = Validate(dir.File("lamp.glb"), dir);
  if (!report.empty()) {
    EXPECT_EQ(report, Clean(dir.File("lamp.glb")));
  }

  const Result info = Vorla("info --json " + kSample, dir);
  EXPECT_EQ(info.exit, 0);
  EXPECT_NE(info.out.find("\"instances\": 15,\n  \"references\": 9,\n  \"representations\": 5"),
            std::string::npos)
      << info.out;
}

// A document with one part placed `count` times along X, and the part's reference instantiating
// `loop` when it is not 0.
std::string Placements(int count, int loop = 0) {
  std::string xml =
      "<ProductStructure root='1'><Reference3D xsi:type='Reference3DType' id='1' name='Row'/>"
      "<Reference3D xsi:type='Reference3DType' id='2' name='Tile'/>"
      "<InstanceRep xsi:type='InstanceRepType' id='3'><IsAggregatedBy>2</IsAggregatedBy>"
      "<IsInstanceOf>urn:VORLA:Reference:loc:4</IsInstanceOf></InstanceRep>"
      "<ReferenceRep xsi:type='ReferenceRepType' id='4' name='Tile shape'/>"
      "<RepFormat xsi:type='RepFormatType' owner='4' associatedFile='urn:VORLA:Representation:"
      "loc:9'><format>TESSELLATED</format><version>1.0</version></RepFormat>";
  for (int i = 0; i < count; ++i) {
    xml += "<Instance3D xsi:type='Instance3DType' id='" + std::to_string(100 + i) +
           "' name='t'><IsAggregatedBy>1</IsAggregatedBy><IsInstanceOf>urn:VORLA:Reference:loc:2"
           "</IsInstanceOf><RelativeMatrix>1 0 0 0 1 0 0 0 1 " + std::to_string(20 * i) +
           " 0 0</RelativeMatrix></Instance3D>";
  }
  if (loop) {
    xml += "<Instance3D xsi:type='Instance3DType' id='99' name='loop'><IsAggregatedBy>2"
           "</IsAggregatedBy><IsInstanceOf>urn:VORLA:Reference:loc:" + std::to_string(loop) +
           "</IsInstanceOf></Instance3D>";
  }
  return kaltest::VorlaXml(xml + "</ProductStructure><GeometricRepresentationSet>"
                                 "<Representation id='9' format='TESSELLATED' version='1.0'>"
                                 "<AssociatedXML><Mesh><Positions>0 0 0 10 0 0 10 10 0 0 10 0"
                                 "</Positions><Triangles>0 1 2 0 2 3</Triangles></Mesh>"
                                 "</AssociatedXML></Representation></GeometricRepresentationSet>");
}

// 1,000 placements store the part's four vertices once, with or without GPU instancing.
TEST(Tool, APartPlacedManyTimesIsStoredOnce) {
  kaltest::TempDir dir;
  kaltest::WriteFile(dir.File("row.xml"), Placements(1000));
  for (const char* flag : {"", " --gpu-instancing"}) {
    const std::string out = dir.File(*flag ? "instanced.glb" : "row.glb");
    const Result exported = Vorla("export " + dir.File("row.xml") + " -o " + out + flag, dir);
    EXPECT_EQ(exported.exit, 0) << exported.err;
    const bool instanced = *flag != '\0';
    EXPECT_NE(exported.err.find(instanced ? ": 1002 nodes, 1 meshes, 4 vertices stored"
                                          : ": 1001 nodes, 1 meshes, 4 vertices stored"),
              std::string::npos)
        << exported.err;
    // The validator does not know the instancing extension: it says so as information only.
    const std::string report = Validate(out, dir);
    if (!report.empty()) {
      EXPECT_EQ(report.substr(0, report.find(",\"infos\"")),
                Clean(out).substr(0, Clean(out).find(",\"infos\"")));
      EXPECT_EQ(report.find("UNSUPPORTED_EXTENSION") != std::string::npos, instanced);
    }
    EXPECT_EQ(kaltest::ReadFile(out).find("EXT_mesh_gpu_instancing") != std::string::npos,
              instanced);
  }
  // A colour on one placement makes a second mesh over the same four stored vertices.
  std::string coloured = Placements(3);
  coloured.replace(coloured.find("</ProductStructure>"), 0,
                   "<GraphicPropertiesAspect xsi:type='GraphicPropertiesAspectType' "
                   "aspectOwner='101'><GraphicProperties><SurfaceAttributes xsi:type="
                   "'SurfaceAttributesType'><Color red='1' green='0' blue='0'/>"
                   "</SurfaceAttributes></GraphicProperties></GraphicPropertiesAspect>");
  kaltest::WriteFile(dir.File("coloured.xml"), coloured);
  const Result r = Vorla("export " + dir.File("coloured.xml") + " -o " + dir.File("c.glb"), dir);
  EXPECT_NE(r.err.find(": 4 nodes, 2 meshes, 4 vertices stored"), std::string::npos) << r.err;
  EXPECT_EQ(Validate(dir.File("c.glb"), dir), Clean(dir.File("c.glb")));
}

// What cannot be converted is named in one warning; a part without geometry is a node without
// a mesh, and the file stays valid.
TEST(Tool, UnconvertibleAndEmptyPartsAreReportedNotDropped) {
  kaltest::TempDir dir;
  std::string xml = Placements(1);
  const std::string set = "<GeometricRepresentationSet>";
  xml.replace(xml.find(set), set.size(),
              set + "<Representation id='9' format='EXACT' version='1.2'/>"
                    "<Representation id='8' format='TESSELLATED' version='1.0'>"
                    "<AssociatedXML/></Representation>");
  // The tile's first format now points at the exact representation; a second reference
  // places the empty one.
  xml.replace(xml.find("</ProductStructure>"), 0,
              "<Reference3D xsi:type='Reference3DType' id='5' name='Empty'/>"
              "<Instance3D xsi:type='Instance3DType' id='6' name='e'><IsAggregatedBy>1"
              "</IsAggregatedBy><IsInstanceOf>urn:VORLA:Reference:loc:5</IsInstanceOf>"
              "</Instance3D><InstanceRep xsi:type='InstanceRepType' id='7'><IsAggregatedBy>5"
              "</IsAggregatedBy><IsInstanceOf>urn:VORLA:Reference:loc:10</IsInstanceOf>"
              "</InstanceRep><ReferenceRep xsi:type='ReferenceRepType' id='10' name='Nothing'/>"
              "<RepFormat xsi:type='RepFormatType' owner='10' associatedFile='urn:VORLA:"
              "Representation:loc:8'><format>TESSELLATED</format><version>1.0</version>"
              "</RepFormat>");
  kaltest::WriteFile(dir.File("odd.xml"), xml);
  const Result r = Vorla("export " + dir.File("odd.xml") + " -o " + dir.File("odd.glb"), dir);
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(r.err.substr(0, r.err.find("vorla: wrote")),
            "vorla: warning: 1 representation(s) without geometry that can be converted:\n"
            "  " + dir.File("odd.xml") + "#9 (Tile shape): format or version not supported\n");
  EXPECT_NE(r.err.find(": 3 nodes, 0 meshes, 0 vertices stored"), std::string::npos) << r.err;
  const std::string report = Validate(dir.File("odd.glb"), dir);
  EXPECT_EQ(report.substr(0, report.find(",\"infos\"")),
            Clean(dir.File("odd.glb")).substr(0, Clean(dir.File("odd.glb")).find(",\"infos\"")));
}

// Usage 2, unreadable documents 1, outputs that cannot or must not be written 3; a reference
// that instantiates itself is reported once and the walk goes on.
TEST(Tool, ExitCodesAndCycles) {
  kaltest::TempDir dir;
  kaltest::WriteFile(dir.File("loop.xml"), Placements(2, 2));
  kaltest::WriteFile(dir.File("taken.glb"), "old");
  const struct {
    std::string args;
    int exit;
    std::string err;  // the start of standard error
  } cases[] = {
      {"", 2, "A subcommand is required"},
      {"tree", 2, "FILE is required"},
      {"tree " + dir.File("none.vorla"), 1,
       "vorla: cannot read " + dir.File("none.vorla") +
           ": it is missing, not a Vorla document, or damaged (code 0x80004005)"},
      {"export " + kSample + " -o " + dir.File("x.obj"), 2, "vorla: the output must end in"},
      {"export " + kSample + " -o " + dir.File("taken.glb"), 3,
       "vorla: " + dir.File("taken.glb") + " exists; use --force to replace it"},
      {"export " + kSample + " -o " + dir.File("no/such/dir.glb"), 3, "vorla: cannot write "},
      {"extract " + kSample + " --id 999 -o -", 1, "vorla: " + kSample +
                                                       " has no representation 999 with data"},
      {"tree " + dir.File("loop.xml"), 0,
       "vorla: warning: reference 2 of " + dir.File("loop.xml") + " instantiates itself"}};
  for (const auto& c : cases) {
    const Result r = Vorla(c.args, dir);
    EXPECT_EQ(r.exit, c.exit) << c.args;
    EXPECT_EQ(r.err.substr(0, c.err.size()), c.err) << c.args;
  }
  EXPECT_EQ(kaltest::ReadFile(dir.File("taken.glb")), "old");
  const Result loop = Vorla("tree " + dir.File("loop.xml"), dir);
  EXPECT_NE(loop.out.find("instance \"loop\" [99] -> reference \"Tile\" [2]: instantiates "
                          "itself\n"), std::string::npos) << loop.out;
  const Result extracted = Vorla("extract " + kSample + " --id 401 -o -", dir);
  EXPECT_EQ(extracted.exit, 0);
  EXPECT_EQ(extracted.out.size(), 2484u);
  EXPECT_EQ(extracted.out.substr(0, 4), "QSR1");
}

}  // namespace
