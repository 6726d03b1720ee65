// Hostile content: nesting a million deep, a 100 MB value; product structures the vorla tool
// cannot walk. (Numbers out of range: Structure and Presentation.)
#include "TestDocuments.h"

namespace kaltest {
namespace {

const std::string kRef = "urn:VORLA:Reference:loc:";

// A document whose root reference 1 is named `name` and holds `content`.
std::string Top(const std::string& name, const std::string& content = "") {
  return Structure(Entity("Reference3D", "id='1' name='" + name + "'", "", "", content));
}

std::string Nested(size_t depth) {
  std::string open, close;
  for (size_t i = 0; i < depth; ++i) open += "<n>", close += "</n>";
  return open + close;
}

// The reader keeps its open elements on a stack of its own and the tree in one arena, so any
// nesting loads and is released without deep calls, and a value is bounded by memory only.
// A NUL in a value makes a document malformed (other bytes that are not text: XmlRefused and
// the differential test).
TEST(HostileXml, AnyNestingAndHugeValuesLoadANulInAValueIsRefused) {
  const std::string huge(100u << 20, 'v');
  const std::tuple<const char*, std::string, HRESULT, std::string> cases[] = {
      {"a million deep", Top("top", Nested(1000000)), S_OK, "top"},
      {"100 MB attribute", Top(huge), S_OK, huge},
      {"NUL in a value", Top(std::string("a\0b", 3)), E_FAIL, "<null>"}};
  TempDir dir;
  for (const auto& [what, xml, code, name] : cases) {
    SCOPED_TRACE(what);
    WriteFile(dir.File("doc.xml"), xml);
    auto parser = std::make_unique<KalVorlaParser>();
    EXPECT_EQ(parser->InitParsing(dir.File("doc.xml").c_str()), code);
    Element* root = nullptr;
    parser->GetProductStructureRootReference(&root);
    EXPECT_TRUE(NameOf(root) == name) << NameOf(root).size();
    parser.reset();  // the deep tree goes without recursion
  }
}

// Product structures vorla cannot walk: a reference that instantiates itself through a
// reference of another document (of its own: Tool); instances nested past 1000 levels; a placement
// or a colour holding an infinity or NaN. A reference reached twice without a cycle is shown
// twice. (Deep XML nesting: HostileXml; nothing here walks past an element's children.)
TEST(HostileTool, WalksThatCannotEndOrHoldNoNumbersStopADiamondDoesNot) {
  TempDir dir;
  const auto doc = [&](const std::string& file, const std::string& structure) {
    return WriteFile(dir.File(file), Structure(structure)), dir.File(file);
  };
  const auto inst = [](int id, int parent, const std::string& urn, const std::string& more = "") {
    return Entity("Instance3D", "id='" + std::to_string(id) + "' name='i'", std::to_string(parent),
                  urn, more);
  };
  const auto chain = [&](int levels) {
    std::string xml;
    for (int i = 1; i <= levels; ++i)
      xml += Ref(i, "r") + (i < levels ? inst(5000 + i, i, kRef + std::to_string(i + 1)) : "");
    return xml;
  };
  const std::string
      a = doc("a.vorla", Ref(1, "A") + inst(10, 1, "urn:VORLA:Reference:ext:b.vorla#1")),
      b = doc("b.vorla", Ref(1, "B") + inst(20, 1, "urn:VORLA:Reference:ext:a.vorla#1")),
      deep = doc("deep.xml", chain(1002)), fine = doc("fine.xml", chain(1001)),
      matrix = doc("matrix.xml",
                   Ref(1, "Top") + Ref(2, "P") +
                       inst(10, 1, kRef + "2",
                            "<RelativeMatrix>1 0 0 0 1 0 0 0 1 1e999 0 0</RelativeMatrix>")),
      colour =
          doc("colour.xml",
              Ref(1, "Top") + Entity("GraphicPropertiesAspect", "aspectOwner='1'", "", "",
                                     "<GraphicProperties><SurfaceAttributes "
                                     "xsi:type='SurfaceAttributesType'><Color red='nan' green='0' "
                                     "blue='0'/></SurfaceAttributes></GraphicProperties>")),
      diamond = doc("diamond.xml", Ref(1, "Top") + Ref(2, "L") + Ref(3, "R") + Ref(4, "Shared") +
                                       inst(10, 1, kRef + "2") + inst(11, 1, kRef + "3") +
                                       inst(12, 2, kRef + "4") + inst(13, 3, kRef + "4"));
  const std::string walk = "vorla: cannot walk ", glb = " -q -o " + dir.File("out.glb");
  // Arguments, exit code, standard error, standard output.
  const std::tuple<std::string, int, std::string, std::string> cases[] = {
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
       "    instance \"i\" [13] -> reference \"Shared\" [4]\n"}};
  for (const auto& [args, exit, err, out] : cases) {
    const ToolRun run = RunVorla(args, dir);
    EXPECT_EQ(std::tie(run.exit, run.err, run.out), std::tie(exit, err, out)) << args;
  }
  EXPECT_FALSE(FileExists(dir.File("out.glb")));
}

}  // namespace
}  // namespace kaltest
