// Presentation: graphic properties and materials, colours, views and viewpoints of the three
// kinds, and per-occurrence view properties.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

using P = KalVorlaParser;
using kaltest::FakeElement;
using kaltest::NameOf;
using kaltest::Str;

std::string Aspect(const std::string& owner, const std::string& content) {
  return "<GraphicPropertiesAspect xsi:type='GraphicPropertiesAspectType' aspectOwner='" + owner +
         "'>" + content + "</GraphicPropertiesAspect>";
}

std::string Ints(const KalRawCollint& ints) {
  std::string text;
  for (int i = 1; i <= ints.Size(); ++i) text += (i > 1 ? " " : "") + std::to_string(ints[i]);
  return text;
}

// clang-format off
const std::string kDocument = kaltest::VorlaXml(
    "<ProductStructure>" +
    Aspect("1", "<GraphicProperties name='gp1'><SurfaceAttributes xsi:type='SurfaceAttributesType'>"
                "<MaterialId>3</MaterialId><Color red='1' green='0' blue='0'/></SurfaceAttributes>"
                "<LineAttributes xsi:type='LineAttributesType' lineType='DASHED' thickness='0.5'>"
                "<Color xsi:type='Color' red='0.25' green='0.25' blue='0.25'/></LineAttributes>"
                "<GeneralAttributes xsi:type='GeneralAttributesType' visible='false' "
                "selectable='true'/></GraphicProperties>") +
    Aspect("1", "<GraphicProperties name='later'/>") +
    "<A xsi:type='GraphicPropertiesAspectType' id='9' aspectOwner='2'><GraphicProperties "
    "name='with-id'/></A>" + Aspect("2", "<Other/>") +
    Aspect("", "<GraphicProperties name='ownerless'><SurfaceAttributes "
               "xsi:type='SurfaceAttributesType'/></GraphicProperties>") +
    Aspect("3", "<GraphicProperties name='gp3'><SurfaceAttributes "
                "xsi:type='SurfaceAttributesType'><MaterialApplication/></SurfaceAttributes>"
                "<LineAttributes xsi:type='LineAttributesType' lineType='solid' thickness='abc'>"
                "<Color xsi:type='RGBAColorType' red='1' green='1' blue='1'/></LineAttributes>"
                "<GeneralAttributes xsi:type='GeneralAttributesType' visible='FALSE'/>"
                "</GraphicProperties>") +
    "</ProductStructure><GraphicMaterialSet>"
    "<GraphicMaterial id='3' xsi:type='ColorMaterialType'/>"
    "<GraphicMaterial id='4' xsi:type='AdvancedMaterialType'/>"
    "<GraphicMaterial id='5' xsi:type='TextureMaterialType'/>"
    "<GraphicMaterial id='6' name='untyped'/><GraphicMaterial id='0' xsi:type='ColorMaterialType'/>"
    "</GraphicMaterialSet>"
    "<DefaultView name='Front'><Description>first</Description><Description>second</Description>"
    "<Viewpoint xsi:type='PerspectiveViewpointType' targetDistance='5' fieldOfView='0.8'>"
    "<Position>1 2 3</Position><Sight>0 1 0</Sight><Up>0 0 1</Up></Viewpoint>"
    "<DefaultViewProperty name='p5'><OccurenceId>5</OccurenceId><OccurenceId>9</OccurenceId>"
    "<RelativePosition>1 0 0 0 1 0 0 0 1 7 8 9</RelativePosition><GraphicProperties name='gp'/>"
    "<AlternateRepresentation>urn:VORLA:Representation:loc:2</AlternateRepresentation>"
    "</DefaultViewProperty><AlternateViewProperty name='p2'><OccurenceId>2</OccurenceId>"
    "<GraphicProperties name='only'/></AlternateViewProperty><AlternateViewProperty name='p5b'>"
    "<OccurenceId>5</OccurenceId><RelativePosition/></AlternateViewProperty></DefaultView>"
    "<AlternateViewSet><AlternateView id='3' name='Top'><Viewpoint "
    "xsi:type='ParallelViewpointType' targetDistance='2' nearPlaneDistance='0.5' "
    "visualizedHeight='4' fieldOfView='x'><Position>0 0 9</Position></Viewpoint></AlternateView>"
    "<Other/><AlternateView id='1' name='Custom'><Viewpoint xsi:type='CustomViewpoint3DType'>"
    "<ViewMatrix>1 2 3 4 5 6 7 8 9 10 11 12</ViewMatrix></Viewpoint></AlternateView>"
    "<AlternateView id='7' name='Odd'><Viewpoint xsi:type='Odd'/></AlternateView>"
    "<AlternateView id='8' name='Blind'><Description>d</Description></AlternateView>"
    "<AlternateView id='9' name='NoTarget'><Viewpoint xsi:type='PerspectiveViewpointType' "
    "fieldOfView='1'><Position>1 2 3</Position></Viewpoint></AlternateView>"
    "<AlternateView id='8' name='Blind again'/></AlternateViewSet>");
// clang-format on

class Presentation : public ::testing::Test {
 protected:
  void SetUp() override {
    kaltest::WriteFile(_Dir.File("doc.xml"), kDocument);
    ASSERT_EQ(_Parser.InitParsing(_Dir.File("doc.xml").c_str()), S_OK);
  }
  KalLightXmlElementItf* Properties(KalLightXmlElementItf* node) {
    KalLightXmlElementItf* found = &_Stale;
    _Code = _Parser.GetGraphicPropertiesNode(node, &found);
    return found;
  }
  KalLightXmlElementItf* View(int id) {
    KalLightXmlElementItf* view = nullptr;
    KalUnicodeString name, description;
    _Parser.GetAlternateView(id, &view, name, description);
    return view;
  }

  kaltest::TempDir _Dir;
  P _Parser;
  FakeElement _Stale{"Stale", {}, "stale"};
  HRESULT _Code = 0;
};

// The first aspect naming the node's id wins (aspects with an id of their own are not
// collected); a node without an id takes the ownerless one. Surface data is found by tag in a
// fixed order, line colour by type, never read.
TEST_F(Presentation, GraphicPropertiesAndTheirAttributes) {
  FakeElement noId("Node"), minusOne("Node", {}, "", "", "", "-1");
  FakeElement r1("Node", {}, "", "", "", "1"), r2("Node", {}, "", "", "", "2");
  FakeElement r3("Node", {}, "", "", "", "3"), four("Node", {}, "", "", "", "4");
  const std::tuple<KalLightXmlElementItf*, HRESULT, const char*> owners[] = {
      {&r1, S_OK, "gp1"},
      {&r2, kVorlaNoGraphicProperties, "<null>"},
      {&noId, S_OK, "ownerless"},
      {&four, kVorlaNoGraphicProperties, "<null>"},
      {&minusOne, E_FAIL, "<null>"},
      {nullptr, E_INVALIDARG, "stale"}};
  for (const auto& [node, code, found] : owners) {
    EXPECT_EQ(NameOf(Properties(node)), found);
    EXPECT_EQ(_Code, code) << found;
  }
  // What each reader makes of a graphic-properties element: codes and outputs, preset to 7.
  const auto attributes = [&](KalLightXmlElementItf* gp) {
    KalLightXmlElementItf* surface = nullptr;
    const HRESULT surfaceCode = _Parser.GetSurfaceAttributesElement(gp, &surface);
    double rgb[3] = {7, 7, 7};
    unsigned int type = 7;
    float thickness = 7;
    unsigned char visible = 7, selectable = 7;
    std::ostringstream out;
    out << surfaceCode << ":" << (surface ? Str(surface->GetType()) : "-") << " "
        << _Parser.GetLineAttributes(gp, rgb[0], rgb[1], rgb[2], type, thickness) << ":" << type
        << ":" << thickness << ":" << rgb[0] + rgb[1] + rgb[2] << " "
        << _Parser.GetBehaviourAttributes(gp, visible, selectable) << ":" << int(visible)
        << int(selectable);
    return out.str();
  };
  const std::string fail = std::to_string(E_FAIL), invalid = std::to_string(E_INVALIDARG);
  const std::pair<KalLightXmlElementItf*, std::string> readers[] = {
      {Properties(&r1), "9:Color 0:3:0.5:21 0:01"},
      {Properties(&r3), "11:MaterialApplication 16:4294967295:-1:21 0:11"},
      {Properties(&noId), fail + ":- " + fail + ":7:7:21 " + fail + ":77"},
      {&_Stale, "8:- " + fail + ":7:7:21 " + fail + ":77"},
      {nullptr, invalid + ":- " + invalid + ":7:7:21 " + invalid + ":77"}};
  for (const auto& [gp, want] : readers) EXPECT_EQ(attributes(gp), want) << NameOf(gp);
  EXPECT_EQ(_Parser.GetSurfaceAttributesElement(Properties(&r1), nullptr), E_FAIL);

  // Materials need a positive id; one of another type is handed out with a failure.
  const std::pair<unsigned int, HRESULT> materials[] = {
      {3, kVorlaColorMaterial},   {4, kVorlaAdvancedMaterial},
      {5, kVorlaTextureMaterial}, {6, E_FAIL},
      {0, kVorlaNoSuchMaterial},  {99, kVorlaNoSuchMaterial}};
  for (const auto& [id, code] : materials) {
    KalLightXmlElementItf* found = nullptr;
    EXPECT_EQ(_Parser.GetGraphicMaterialNode(id, &found), code) << id;
    EXPECT_EQ(found != nullptr, code != kVorlaNoSuchMaterial) << id;
  }
  EXPECT_EQ(_Parser.GetGraphicMaterialNode(3, nullptr), E_INVALIDARG);
}

// Unset components are exactly -1; the alpha-only test looks at red and blue alone; nothing
// is clamped; a component that is no number leaves the output as it was.
TEST(Colors, ComponentsAndTheCodeOfWhatIsSet) {
  const std::tuple<const char*, HRESULT, std::vector<double>> cases[] = {
      {"red='1' green='0' blue='0'", kVorlaColorWithoutAlpha, {1, 0, 0, 9}},
      {"red='0.5' green='1e999' blue='2' alpha='0.3'", kVorlaColorWithAlpha, {.5, HUGE_VAL, 2, .3}},
      {"red='-1' green='-1' blue='-1'", kVorlaAbsent, {-1, -1, -1, 9}},
      {"red='-1' green='-1' blue='-1' alpha='1'", kVorlaAlphaOnly, {-1, -1, -1, 1}},
      {"red='-1' green='0.5' blue='-1' alpha='0.3'", kVorlaAlphaOnly, {-1, 0.5, -1, 0.3}},
      {"red='x' green='0' blue='0'", kVorlaColorWithoutAlpha, {9, 0, 0, 9}},
      {"red='1' blue='0'", E_FAIL, {1, 9, 9, 9}},
      {"", E_FAIL, {9, 9, 9, 9}}};
  P parser;
  for (const auto& [attributes, code, want] : cases) {  // components preset to 9
    auto color = kaltest::ParseXml(std::string("<Color ") + attributes + "/>");
    std::vector<double> rgba(4, 9.0);
    EXPECT_EQ(parser.GetColor(color.get(), rgba[0], rgba[1], rgba[2], rgba[3]), code) << attributes;
    EXPECT_EQ(rgba, want) << attributes;
  }
  double v = 0;
  EXPECT_EQ(parser.GetColor(nullptr, v, v, v, v), E_INVALIDARG);
}

// The default view comes first as 0; the list appends on every call; a repeated id finds the
// later view. Descriptions: the last one wins.
TEST_F(Presentation, ViewsAndTheirViewpoints) {
  KalLightXmlElementItf* view = nullptr;
  KalUnicodeString name, description("none");
  EXPECT_EQ(_Parser.GetAlternateView(0, &view, name, description), E_FAIL);  // no list yet
  KalRawCollint ids;
  EXPECT_EQ(_Parser.GetAlternateViewList(ids), S_OK);
  EXPECT_EQ(_Parser.GetAlternateViewList(ids), S_OK);
  EXPECT_EQ(Ints(ids), "0 3 1 7 8 9 8 0 3 1 7 8 9 8");
  EXPECT_EQ(_Parser.GetAlternateView(0, &view, name, description), S_OK);
  EXPECT_EQ(Str(name) + "/" + Str(description), "Front/second");
  EXPECT_EQ(_Parser.GetAlternateView(8, &view, name, description), S_OK);
  EXPECT_EQ(Str(name) + "/" + Str(description), "Blind again/second");
  EXPECT_EQ(_Parser.GetAlternateView(2, &view, name, description), E_FAIL);
  EXPECT_EQ(_Parser.GetAlternateView(3, nullptr, name, description), E_FAIL);

  const std::pair<int, HRESULT> kinds[] = {{0, kVorlaPerspectiveViewpoint},
                                           {3, kVorlaParallelViewpoint},
                                           {1, kVorlaCustomViewpoint},
                                           {7, E_FAIL},
                                           {8, kVorlaAbsent}};
  for (const auto& [id, code] : kinds) {
    KalLightXmlElementItf* viewpoint = &_Stale;
    EXPECT_EQ(_Parser.GetAlternateViewViewpoint(View(id), &viewpoint), code) << id;
    EXPECT_EQ(viewpoint != &_Stale, code != kVorlaAbsent) << id;
  }
  EXPECT_EQ(_Parser.GetAlternateViewViewpoint(View(0), nullptr), E_FAIL);

  const auto viewpoint = [&](int id) {
    KalLightXmlElementItf* v = nullptr;
    _Parser.GetAlternateViewViewpoint(View(id), &v);
    return v;
  };
  // A camera's code, its four vectors ("-" when unwritten; every written one is released) and
  // its distances. A required distance missing fails after the vectors were handed over.
  const auto camera = [&](bool conic, KalLightXmlElementItf* viewpoint) {
    float* vectors[4] = {nullptr, nullptr, nullptr, nullptr};
    float d[4] = {7, 7, 7, 7};
    const auto read = conic ? &P::GetConicViewpointData : &P::GetCylindricViewpointData;
    std::ostringstream out;
    out << (_Parser.*read)(viewpoint, &vectors[0], &vectors[1], &vectors[2], &vectors[3], d[0],
                           d[1], d[2], d[3]);
    for (float* v : vectors) {
      out << " " << (v ? std::to_string(v[0] + 10 * v[1] + 100 * v[2]) : "-");
      delete[] v;
    }
    for (float x : d) out << " " << x;
    return out.str();
  };
  EXPECT_EQ(camera(true, viewpoint(0)), "0 321.000000 10.000000 - 100.000000 5 1 10000 0.8");
  EXPECT_EQ(camera(false, viewpoint(3)), "0 900.000000 - - - 2 0.5 10000 4");
  EXPECT_EQ(camera(true, viewpoint(9)), std::to_string(E_FAIL) + " 321.000000 - - - 7 7 7 7");
  EXPECT_EQ(camera(true, nullptr), std::to_string(E_INVALIDARG) + " - - - - 7 7 7 7");

  float spare = 0, *matrix = nullptr, *projection = &spare;
  EXPECT_EQ(_Parser.GetCustomViewpointData(viewpoint(1), &matrix, &projection), S_OK);
  ASSERT_NE(matrix, nullptr);
  EXPECT_EQ(std::vector<float>(matrix, matrix + 12),
            (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(projection, &spare);
  delete[] matrix;
  EXPECT_EQ(_Parser.GetCustomViewpointData(viewpoint(7), &matrix, &projection), E_FAIL);
}

// The default view alone lists 0; alternate views alone list 0 first too, with no view
// behind it; a document with neither has no list.
TEST(ViewList, DocumentsWithOneKindOfViewOrNone) {
  kaltest::TempDir dir;
  const std::tuple<const char*, HRESULT, const char*, HRESULT> cases[] = {
      {"<DefaultView/>", S_OK, "0", S_OK},
      {"<AlternateViewSet><AlternateView id='4'/></AlternateViewSet>", S_OK, "0 4", E_FAIL},
      {"", kVorlaAbsent, "", E_FAIL}};
  for (const auto& [body, code, listed, defaultView] : cases) {
    kaltest::WriteFile(dir.File("doc.xml"),
                       kaltest::VorlaXml(std::string("<ProductStructure/>") + body));
    P parser;
    ASSERT_EQ(parser.InitParsing(dir.File("doc.xml").c_str()), S_OK);
    KalRawCollint ids;
    EXPECT_EQ(parser.GetAlternateViewList(ids), code) << body;
    EXPECT_EQ(Ints(ids), listed) << body;
    KalLightXmlElementItf* view = nullptr;
    KalUnicodeString name, description;
    EXPECT_EQ(parser.GetAlternateView(0, &view, name, description), defaultView) << body;
  }
}

// Either tag of property under either view; only the first "OccurenceId" counts; the first
// property with the id wins; outputs without data stay as the caller set them. An empty
// position fails with its zeroed array already the caller's.
TEST_F(Presentation, ViewPropertiesOverrideOccurrences) {
  KalRawCollint views, ids, empty;
  ASSERT_EQ(_Parser.GetAlternateViewList(views), S_OK);
  ASSERT_EQ(_Parser.GetOccurenceIdList(View(0), ids), S_OK);
  EXPECT_EQ(Ints(ids), "5 2 5");
  EXPECT_EQ(_Parser.GetOccurenceIdList(nullptr, ids), E_FAIL);
  EXPECT_EQ(_Parser.GetOccurenceIdList(&_Stale, empty), S_OK);

  const std::tuple<int, HRESULT, const char*> lookups[] = {
      {5, S_OK, "p5"}, {2, S_OK, "p2"}, {9, kVorlaAbsent, "stale"}};
  for (const auto& [occurrence, code, found] : lookups) {
    KalLightXmlElementItf* property = &_Stale;
    EXPECT_EQ(_Parser.GetAlternateViewProperty(View(0), occurrence, &property), code);
    EXPECT_EQ(NameOf(property), found);
  }
  EXPECT_EQ(_Parser.GetAlternateViewProperty(&_Stale, 5, nullptr), kVorlaAbsent);  // childless
  EXPECT_EQ(_Parser.GetAlternateViewProperty(nullptr, 5, nullptr), E_FAIL);

  // A property's code, position ("-": unwritten; a written one is released), graphic
  // properties and representation.
  KalLightXmlElementItf *p5 = nullptr, *p2 = nullptr, *p5b = nullptr;
  const auto data = [&](KalLightXmlElementItf* property) {
    double* position = nullptr;
    KalLightXmlElementItf* gp = nullptr;
    KalUnicodeString representation("none");
    std::ostringstream out;
    out << _Parser.GetAlternateViewPropertyData(property, &position, &gp, representation);
    for (int i = 0; position != nullptr && i < 12; ++i) out << " " << position[i];
    out << (position ? " " : " - ") << NameOf(gp) << " " << Str(representation);
    delete[] position;
    return out.str();
  };
  _Parser.GetAlternateViewProperty(View(0), 5, &p5);
  _Parser.GetAlternateViewProperty(View(0), 2, &p2);
  for (KalPosition cursor = View(0)->GetHeadPosition(); cursor != nullptr;)
    p5b = View(0)->GetNextChild(cursor);  // the last child, behind p5 with the same id
  EXPECT_EQ(data(p5), "0 1 0 0 0 1 0 0 0 1 7 8 9 gp urn:VORLA:Representation:loc:2");
  EXPECT_EQ(data(p2), "0 - only none");
  EXPECT_EQ(data(p5b), std::to_string(E_FAIL) + " 0 0 0 0 0 0 0 0 0 0 0 0 <null> none");
  KalUnicodeString representation;
  EXPECT_EQ(_Parser.GetAlternateViewPropertyData(p2, nullptr, &p5, representation), E_FAIL);
}

}  // namespace
