// Presentation: graphic properties and materials, colours, views and viewpoints of the three
// kinds, and per-occurrence view properties.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
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

const std::string kDocument = kaltest::VorlaXml(
    "<ProductStructure root='1'>"
    "<Reference3D xsi:type='Reference3DType' id='1'/><Reference3D xsi:type='Reference3DType' "
    "id='2'/><Reference3D xsi:type='Reference3DType' id='3'/>" +
    Aspect("1", "<GraphicProperties name='gp1'><SurfaceAttributes xsi:type='SurfaceAttributesType'>"
                "<MaterialId>3</MaterialId><Color red='1' green='0' blue='0'/></SurfaceAttributes>"
                "<LineAttributes xsi:type='LineAttributesType' lineType='DASHED' thickness='0.5'>"
                "<Color xsi:type='Color' red='0.25' green='0.25' blue='0.25'/></LineAttributes>"
                "<GeneralAttributes xsi:type='GeneralAttributesType' visible='false' "
                "selectable='true'/></GraphicProperties>") +
    Aspect("1", "<GraphicProperties name='later'/>") + Aspect("2", "<Other/>") +
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
  KalLightXmlElementItf* Reference(int id) {
    KalLightXmlElementItf* e = nullptr;
    _Parser.GetReference3DFromLocalID(id, &e);
    return e;
  }
  KalLightXmlElementItf* View(int id) {
    KalLightXmlElementItf* view = nullptr;
    KalUnicodeString name, description;
    _Parser.GetAlternateView(id, &view, name, description);
    return view;
  }
  static std::vector<float> Floats(const float* values, int n) {
    return values ? std::vector<float>(values, values + n) : std::vector<float>{};
  }

  kaltest::TempDir _Dir;
  P _Parser;
  FakeElement _Stale{"Stale", {}, "stale"};
  HRESULT _Code = 0;
};

// The first aspect naming the node's id wins; a node without an id takes the ownerless one.
// Surface data is found by tag in a fixed order, line colour by type, never read.
TEST_F(Presentation, GraphicPropertiesAndTheirAttributes) {
  FakeElement noId("Node"), minusOne("Node", {}, "", "", "", "-1");
  FakeElement four("Node", {}, "", "", "", "4");
  const struct {
    KalLightXmlElementItf* node;
    HRESULT code;
    const char* found;
  } owners[] = {{Reference(1), S_OK, "gp1"},    {Reference(2), kVorlaNoGraphicProperties, "<null>"},
                {&noId, S_OK, "ownerless"},     {&four, kVorlaNoGraphicProperties, "<null>"},
                {&minusOne, E_FAIL, "<null>"},  {nullptr, E_INVALIDARG, "stale"}};
  for (const auto& o : owners) {
    EXPECT_EQ(NameOf(Properties(o.node)), o.found);
    EXPECT_EQ(_Code, o.code) << o.found;
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
  const struct {
    KalLightXmlElementItf* gp;
    std::string want;
  } readers[] = {{Properties(Reference(1)), "9:Color 0:3:0.5:21 0:01"},
                 {Properties(Reference(3)), "11:MaterialApplication 16:4294967295:-1:21 0:11"},
                 {Properties(&noId), fail + ":- " + fail + ":7:7:21 " + fail + ":77"},
                 {&_Stale, "8:- " + fail + ":7:7:21 " + fail + ":77"},
                 {nullptr, invalid + ":- " + invalid + ":7:7:21 " + invalid + ":77"}};
  for (const auto& r : readers) EXPECT_EQ(attributes(r.gp), r.want) << NameOf(r.gp);
  KalLightXmlElementItf* found = nullptr;
  EXPECT_EQ(_Parser.GetSurfaceAttributesElement(Properties(Reference(1)), nullptr), E_FAIL);

  // Materials need a positive id; one of another type is handed out with a failure.
  const struct {
    unsigned int id;
    HRESULT code;
  } materials[] = {{3, kVorlaColorMaterial}, {4, kVorlaAdvancedMaterial},
                   {5, kVorlaTextureMaterial}, {6, E_FAIL},
                   {0, kVorlaNoSuchMaterial}, {99, kVorlaNoSuchMaterial}};
  for (const auto& m : materials) {
    found = nullptr;
    EXPECT_EQ(_Parser.GetGraphicMaterialNode(m.id, &found), m.code) << m.id;
    EXPECT_EQ(found != nullptr, m.code != kVorlaNoSuchMaterial) << m.id;
  }
  EXPECT_EQ(_Parser.GetGraphicMaterialNode(3, nullptr), E_INVALIDARG);
}

// Unset components are exactly -1; the alpha-only test looks at red and blue alone; nothing
// is clamped; a component that is no number leaves the output as it was.
TEST(Colors, ComponentsAndTheCodeOfWhatIsSet) {
  const struct {
    const char* attributes;
    HRESULT code;
    std::vector<double> rgba;  // preset 9 9 9 9
  } cases[] = {{"red='1' green='0' blue='0'", kVorlaColorWithoutAlpha, {1, 0, 0, 9}},
               {"red='0.5' green='1e999' blue='2' alpha='0.3'", kVorlaColorWithAlpha,
                {0.5, HUGE_VAL, 2, 0.3}},
               {"red='-1' green='-1' blue='-1'", kVorlaAbsent, {-1, -1, -1, 9}},
               {"red='-1' green='-1' blue='-1' alpha='1'", kVorlaAlphaOnly, {-1, -1, -1, 1}},
               {"red='-1' green='0.5' blue='-1' alpha='0.3'", kVorlaAlphaOnly, {-1, 0.5, -1, 0.3}},
               {"red='x' green='0' blue='0'", kVorlaColorWithoutAlpha, {9, 0, 0, 9}},
               {"red='1' blue='0'", E_FAIL, {1, 9, 9, 9}},
               {"", E_FAIL, {9, 9, 9, 9}}};
  P parser;
  for (const auto& c : cases) {
    auto color = kaltest::ParseXml(std::string("<Color ") + c.attributes + "/>");
    std::vector<double> rgba(4, 9.0);
    EXPECT_EQ(parser.GetColor(color.get(), rgba[0], rgba[1], rgba[2], rgba[3]), c.code)
        << c.attributes;
    EXPECT_EQ(rgba, c.rgba) << c.attributes;
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
  std::vector<int> listed;
  for (int i = 1; i <= ids.Size(); ++i) listed.push_back(ids[i]);
  EXPECT_EQ(listed, (std::vector<int>{0, 3, 1, 7, 8, 9, 8, 0, 3, 1, 7, 8, 9, 8}));
  EXPECT_EQ(_Parser.GetAlternateView(0, &view, name, description), S_OK);
  EXPECT_EQ(Str(name) + "/" + Str(description), "Front/second");
  EXPECT_EQ(_Parser.GetAlternateView(8, &view, name, description), S_OK);
  EXPECT_EQ(Str(name) + "/" + Str(description), "Blind again/second");
  EXPECT_EQ(_Parser.GetAlternateView(2, &view, name, description), E_FAIL);
  EXPECT_EQ(_Parser.GetAlternateView(3, nullptr, name, description), E_FAIL);

  const struct {
    int view;
    HRESULT code;
  } kinds[] = {{0, kVorlaPerspectiveViewpoint}, {3, kVorlaParallelViewpoint},
               {1, kVorlaCustomViewpoint},      {7, E_FAIL},
               {8, kVorlaAbsent}};
  for (const auto& k : kinds) {
    KalLightXmlElementItf* viewpoint = &_Stale;
    EXPECT_EQ(_Parser.GetAlternateViewViewpoint(View(k.view), &viewpoint), k.code) << k.view;
    EXPECT_EQ(viewpoint != &_Stale, k.code != kVorlaAbsent) << k.view;
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

  float d[1] = {0};
  float *matrix = nullptr, *projection = &d[0];
  EXPECT_EQ(_Parser.GetCustomViewpointData(viewpoint(1), &matrix, &projection), S_OK);
  EXPECT_EQ(Floats(matrix, 12), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(projection, &d[0]);
  delete[] matrix;
  EXPECT_EQ(_Parser.GetCustomViewpointData(viewpoint(7), &matrix, &projection), E_FAIL);
}

TEST(ViewList, DocumentsWithOneKindOfViewOrNone) {
  kaltest::TempDir dir;
  const struct {
    const char* body;
    HRESULT code;
    int count;
    HRESULT defaultView;
  } cases[] = {{"<DefaultView/>", S_OK, 1, S_OK},
               {"<AlternateViewSet><AlternateView id='4'/></AlternateViewSet>", S_OK, 2, E_FAIL},
               {"", kVorlaAbsent, 0, E_FAIL}};
  for (const auto& c : cases) {
    kaltest::WriteFile(dir.File("doc.xml"),
                       kaltest::VorlaXml(std::string("<ProductStructure/>") + c.body));
    P parser;
    ASSERT_EQ(parser.InitParsing(dir.File("doc.xml").c_str()), S_OK);
    KalRawCollint ids;
    EXPECT_EQ(parser.GetAlternateViewList(ids), c.code) << c.body;
    EXPECT_EQ(ids.Size(), c.count) << c.body;
    KalLightXmlElementItf* view = nullptr;
    KalUnicodeString name, description;
    EXPECT_EQ(parser.GetAlternateView(0, &view, name, description), c.defaultView) << c.body;
  }
}

// Either tag of property under either view; only the first "OccurenceId" counts; the first
// property with the id wins; outputs without data stay as the caller set them.
TEST_F(Presentation, ViewPropertiesOverrideOccurrences) {
  KalRawCollint views, ids, empty;
  ASSERT_EQ(_Parser.GetAlternateViewList(views), S_OK);
  ASSERT_EQ(_Parser.GetOccurenceIdList(View(0), ids), S_OK);
  EXPECT_EQ((std::vector<int>{ids[1], ids[2], ids[3]}), (std::vector<int>{5, 2, 5}));
  EXPECT_EQ(ids.Size(), 3);
  EXPECT_EQ(_Parser.GetOccurenceIdList(nullptr, ids), E_FAIL);
  EXPECT_EQ(_Parser.GetOccurenceIdList(&_Stale, empty), S_OK);

  const struct {
    int occurrence;
    HRESULT code;
    const char* found;
  } lookups[] = {{5, S_OK, "p5"}, {2, S_OK, "p2"}, {9, kVorlaAbsent, "stale"}};
  for (const auto& l : lookups) {
    KalLightXmlElementItf* property = &_Stale;
    EXPECT_EQ(_Parser.GetAlternateViewProperty(View(0), l.occurrence, &property), l.code);
    EXPECT_EQ(NameOf(property), l.found);
  }
  EXPECT_EQ(_Parser.GetAlternateViewProperty(&_Stale, 5, nullptr), kVorlaAbsent);  // childless
  EXPECT_EQ(_Parser.GetAlternateViewProperty(nullptr, 5, nullptr), E_FAIL);

  KalLightXmlElementItf* property = nullptr;
  _Parser.GetAlternateViewProperty(View(0), 5, &property);
  double* position = nullptr;
  KalLightXmlElementItf* gp = nullptr;
  KalUnicodeString representation("none");
  EXPECT_EQ(_Parser.GetAlternateViewPropertyData(property, &position, &gp, representation), S_OK);
  ASSERT_NE(position, nullptr);
  EXPECT_EQ(std::vector<double>(position, position + 12),
            (std::vector<double>{1, 0, 0, 0, 1, 0, 0, 0, 1, 7, 8, 9}));
  EXPECT_EQ(NameOf(gp) + " " + Str(representation), "gp urn:VORLA:Representation:loc:2");
  delete[] position;
  position = nullptr;
  representation = "none";
  _Parser.GetAlternateViewProperty(View(0), 2, &property);
  EXPECT_EQ(_Parser.GetAlternateViewPropertyData(property, &position, &gp, representation), S_OK);
  EXPECT_EQ(NameOf(gp) + " " + Str(representation), "only none");
  EXPECT_EQ(position, nullptr);
  // An empty position fails with its zeroed array already the caller's.
  KalPosition cursor = View(0)->GetHeadPosition();
  KalLightXmlElementItf* last = nullptr;
  while (cursor != nullptr) last = View(0)->GetNextChild(cursor);
  EXPECT_EQ(_Parser.GetAlternateViewPropertyData(last, &position, &gp, representation), E_FAIL);
  ASSERT_NE(position, nullptr);
  EXPECT_EQ(std::vector<double>(position, position + 12), std::vector<double>(12, 0.0));
  delete[] position;
  EXPECT_EQ(_Parser.GetAlternateViewPropertyData(property, nullptr, &gp, representation), E_FAIL);
}

}  // namespace
