// Hostile content: nesting a million deep, a 100 MB value, bytes that are not text, numbers out
// of range; product structures the vorla tool cannot walk.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>

#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

using kaltest::Entity;
using kaltest::VorlaXml;

const std::string kRef = "urn:VORLA:Reference:loc:";

// A document whose root reference 1 is named `name` and holds `content`, followed by `more`.
std::string Structure(const std::string& name, const std::string& content = "",
                      const std::string& attributes = "", const std::string& more = "") {
  return VorlaXml(
      "<ProductStructure root='1'>" +
      Entity("Reference3D", "id='1' name='" + name + "'" + attributes, "", "", content) + more +
      "</ProductStructure>");
}

std::string Nested(int depth) {
  std::string xml;
  for (int i = 0; i < depth; ++i) xml += "<n>";
  for (int i = 0; i < depth; ++i) xml += "</n>";
  return xml;
}

// The reader keeps its open elements on a stack of its own and the tree in one arena, so any
// nesting loads and is released without deep calls, and a value is bounded by memory only.
// Bytes that are not UTF-8 text, and NUL anywhere, make a document malformed.
TEST(HostileXml, AnyNestingAndHugeValuesLoadBytesThatAreNotTextAreRefused) {
  const std::string huge(100u << 20, 'v');
  const std::tuple<const char*, std::string, HRESULT, std::string> cases[] = {
      {"a million deep", Structure("top", Nested(1000000)), S_OK, "top"},
      {"100 MB attribute", Structure(huge), S_OK, huge},
      {"0xFF in a value", Structure("a\xFF"), E_FAIL, "<null>"},
      {"overlong in a value", Structure("a\xC0\xAF"), E_FAIL, "<null>"},
      {"surrogate in a value", Structure("\xED\xA0\x80"), E_FAIL, "<null>"},
      {"0xFE in a tag", Structure("top", "<bad\xFE/>"), E_FAIL, "<null>"},
      {"0xF8 in an attribute name", Structure("top", "", " b\xF8='1'"), E_FAIL, "<null>"},
      {"cut sequence in text", Structure("top", "t\xE2\x82"), E_FAIL, "<null>"},
      {"NUL in a value", Structure(std::string("a\0b", 3)), E_FAIL, "<null>"},
      {"NUL in a tag", Structure("top", std::string("<n\0m/>", 6)), E_FAIL, "<null>"},
      {"NUL in text", Structure("top", std::string("t\0t", 3)), E_FAIL, "<null>"}};
  kaltest::TempDir dir;
  for (const auto& [what, xml, code, name] : cases) {
    SCOPED_TRACE(what);
    kaltest::WriteFile(dir.File("doc.xml"), xml);
    KalVorlaParser parser;  // its end releases the tree, without recursion too
    EXPECT_EQ(parser.InitParsing(dir.File("doc.xml").c_str()), code);
    KalLightXmlElementItf* root = nullptr;
    parser.GetProductStructureRootReference(&root);
    EXPECT_TRUE(kaltest::NameOf(root) == name) << kaltest::NameOf(root).size();
  }
}

// Numbers out of range read as strtod gives them, narrowed to float by rounding to nearest
// (past the float range: infinity). Tessellations refuse them: see VizTessellation.
TEST(HostileNumbers, MatricesAndColoursReadAsTheConversionsGiveThem) {
  kaltest::TempDir dir;
  kaltest::WriteFile(dir.File("doc.xml"),
                     Structure("top", "", "",
                               Entity("Instance3D", "id='2'", "1", "",
                                      "<RelativeMatrix>1e999 -1e999 nan 1e39 -1e39 99999999999999"
                                      "999999 4e-400 -0 0x10 1 2 3</RelativeMatrix>")));
  KalVorlaParser parser;
  ASSERT_EQ(parser.InitParsing(dir.File("doc.xml").c_str()), S_OK);
  KalLightXmlElementItf* instance = nullptr;
  float* floats = nullptr;
  double* doubles = nullptr;
  ASSERT_EQ(parser.GetInstance3DFromLocalID(2, &instance), S_OK);
  ASSERT_EQ(parser.GetInstanceMatrix(instance, &floats), S_OK);
  ASSERT_EQ(parser.GetInstanceMatrix(instance, &doubles), S_OK);
  std::string read;
  for (int i = 0; i < 12; ++i)
    read += std::to_string(doubles[i]) + "/" + std::to_string(floats[i]) + " ";
  EXPECT_EQ(read, "inf/inf -inf/-inf nan/nan " + std::to_string(1e39) + "/inf " +
                      std::to_string(-1e39) + "/-inf " + std::to_string(1e20) + "/" +
                      std::to_string(1e20f) +
                      " 0.000000/0.000000 -0.000000/-0.000000 16.000000/16.000000 "
                      "1.000000/1.000000 2.000000/2.000000 3.000000/3.000000 ");
  delete[] floats;
  delete[] doubles;
  auto color = kaltest::ParseXml(
      "<Color red='1e999' green='nan' blue='-1e400' alpha='99999999999999999999'/>");
  double rgba[4] = {};
  EXPECT_EQ(parser.GetColor(color.get(), rgba[0], rgba[1], rgba[2], rgba[3]), kVorlaColorWithAlpha);
  EXPECT_EQ(std::to_string(rgba[0]) + " " + std::to_string(rgba[1]) + " " +
                std::to_string(rgba[2]) + " " + std::to_string(rgba[3]),
            "inf nan -inf " + std::to_string(1e20));
}

// Product structures vorla cannot walk: a reference that instantiates itself, through a
// reference of its own document or of another; instances nested past 1000 levels; a placement
// or a colour holding an infinity or NaN. A reference reached twice without a cycle is shown
// twice, and any XML nesting is harmless.
TEST(HostileTool, WalksThatCannotEndOrHoldNoNumbersStopADiamondDoesNot) {
  kaltest::TempDir dir;
  const auto doc = [&](const std::string& file, const std::string& structure) {
    kaltest::WriteFile(dir.File(file),
                       VorlaXml("<ProductStructure root='1'>" + structure + "</ProductStructure>"));
    return dir.File(file);
  };
  const auto ref = [](int id, const std::string& name, const std::string& content = "") {
    return Entity("Reference3D", "id='" + std::to_string(id) + "' name='" + name + "'", "", "",
                  content);
  };
  const auto inst = [](int id, int parent, const std::string& urn, const std::string& more = "") {
    return Entity("Instance3D", "id='" + std::to_string(id) + "' name='i'", std::to_string(parent),
                  urn, more);
  };
  const auto chain = [&](int levels) {
    std::string xml;
    for (int i = 1; i <= levels; ++i)
      xml += ref(i, "r") + (i < levels ? inst(5000 + i, i, kRef + std::to_string(i + 1)) : "");
    return xml;
  };
  const std::string
      self = doc("self.xml", ref(1, "Top") + ref(2, "Loop") + ref(3, "Back") +
                                 inst(10, 1, kRef + "2") + inst(11, 2, kRef + "3") +
                                 inst(12, 3, kRef + "2")),
      a = doc("a.vorla", ref(1, "A") + inst(10, 1, "urn:VORLA:Reference:ext:b.vorla#1")),
      b = doc("b.vorla", ref(1, "B") + inst(20, 1, "urn:VORLA:Reference:ext:a.vorla#1")),
      deep = doc("deep.xml", chain(1002)), fine = doc("fine.xml", chain(1001)),
      matrix = doc("matrix.xml",
                   ref(1, "Top") + ref(2, "P") +
                       inst(10, 1, kRef + "2",
                            "<RelativeMatrix>1 0 0 0 1 0 0 0 1 1e999 0 0</RelativeMatrix>")),
      colour =
          doc("colour.xml",
              ref(1, "Top") + Entity("GraphicPropertiesAspect", "aspectOwner='1'", "", "",
                                     "<GraphicProperties><SurfaceAttributes "
                                     "xsi:type='SurfaceAttributesType'><Color red='nan' green='0' "
                                     "blue='0'/></SurfaceAttributes></GraphicProperties>")),
      diamond = doc("diamond.xml", ref(1, "Top") + ref(2, "L") + ref(3, "R") + ref(4, "Shared") +
                                       inst(10, 1, kRef + "2") + inst(11, 1, kRef + "3") +
                                       inst(12, 2, kRef + "4") + inst(13, 3, kRef + "4")),
      nested = doc("nested.xml", ref(1, "Top", Nested(1000000)));
  const std::string walk = "vorla: cannot walk ", glb = " -q -o " + dir.File("out.glb");
  // Arguments, exit code, standard error, standard output.
  const std::tuple<std::string, int, std::string, std::string> cases[] = {
      {"export " + self + glb, 1,
       walk + self + ": reference \"Loop\" [2] of " + self + " instantiates itself\n", ""},
      {"export " + a + glb, 1,
       walk + a + ": reference \"A\" [1] of " + a + " instantiates itself\n", ""},
      {"tree " + deep, 1, walk + deep + ": instances are nested more than 1000 levels deep\n", ""},
      {"export " + matrix + glb, 1,
       walk + matrix + ": instance \"i\" [10] of " + matrix + " has a placement out of range\n",
       ""},
      {"export " + colour + glb, 1,
       walk + colour + ": reference \"Top\" [1] of " + colour +
           " or its instance has a colour out of range\n",
       ""},
      {"export " + fine + " -q -o " + dir.File("fine.glb"), 0, "", ""},
      {"tree " + diamond, 0, "",
       "reference \"Top\" [1]\n  instance \"i\" [10] -> reference \"L\" [2]\n"
       "    instance \"i\" [12] -> reference \"Shared\" [4]\n"
       "  instance \"i\" [11] -> reference \"R\" [3]\n"
       "    instance \"i\" [13] -> reference \"Shared\" [4]\n"},
      {"tree " + nested, 0, "", "reference \"Top\" [1]\n"}};
  for (const auto& [args, exit, err, out] : cases) {
    const int rc = std::system(
        (KAL_VORLA_PATH " " + args + " >" + dir.File("stdout") + " 2>" + dir.File("stderr"))
            .c_str());
    EXPECT_EQ(WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, exit) << args;
    EXPECT_EQ(kaltest::ReadFile(dir.File("stderr")), err) << args;
    EXPECT_EQ(kaltest::ReadFile(dir.File("stdout")), out) << args;
  }
  EXPECT_FALSE(kaltest::FileExists(dir.File("out.glb")));
}

}  // namespace
