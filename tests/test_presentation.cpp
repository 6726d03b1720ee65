// Presentation: graphic properties and materials, colours, views and viewpoints of the three
// kinds, and per-occurrence view properties.

#include "TestDocuments.h"

namespace kaltest {
namespace {

using P = KalVorlaParser;

const std::string F = std::to_string(E_FAIL), I = std::to_string(E_INVALIDARG);

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
const std::string kDocument = VorlaXml(
    "<ProductStructure>" + Aspect("1", "<GraphicProperties name='gp1'><SurfaceAttributes "
    "xsi:type='SurfaceAttributesType'><MaterialId>3</MaterialId><Color red='1' green='0' blue='0'/>"
    "</SurfaceAttributes><LineAttributes xsi:type='LineAttributesType' lineType='DASHED' "
    "thickness='0.5'><Color xsi:type='Color' red='0.25' green='0.25' blue='0.25'/></LineAttributes>"
    "<GeneralAttributes xsi:type='GeneralAttributesType' visible='false' selectable='true'/>"
    "</GraphicProperties>") + Aspect("1", "<GraphicProperties name='later'/>") +
    "<A xsi:type='GraphicPropertiesAspectType' id='9' aspectOwner='2'><GraphicProperties "
    "name='with-id'/></A>" + Aspect("2", "<Other/>") + Aspect("", "<GraphicProperties "
    "name='ownerless'><SurfaceAttributes xsi:type='SurfaceAttributesType'/></GraphicProperties>") +
    Aspect("3", "<GraphicProperties name='gp3'><SurfaceAttributes xsi:type='SurfaceAttributesType'>"
    "<MaterialApplication/></SurfaceAttributes><LineAttributes xsi:type='LineAttributesType' "
    "lineType='solid' thickness='abc'><Color xsi:type='RGBAColorType' red='1' green='1' blue='1'/>"
    "</LineAttributes><GeneralAttributes xsi:type='GeneralAttributesType' visible='FALSE'/>"
    "</GraphicProperties>") + "</ProductStructure><GraphicMaterialSet><GraphicMaterial id='4' "
    "name='adv' xsi:type='AdvancedMaterialType'/></GraphicMaterialSet>"
    "<DefaultView name='Front'><Description>first</Description><Description>second</Description>"
    "<Viewpoint xsi:type='PerspectiveViewpointType' targetDistance='5' fieldOfView='0.8'><Position>"
    "1 2 3</Position><Sight>0 1 0</Sight><Up>0 0 1</Up></Viewpoint><DefaultViewProperty name='p5'>"
    "<OccurenceId>5</OccurenceId><OccurenceId>9</OccurenceId><RelativePosition>1 0 0 0 1 0 0 0 1 7 "
    "8 9</RelativePosition><GraphicProperties name='gp'/><AlternateRepresentation>"
    "urn:VORLA:Representation:loc:2</AlternateRepresentation></DefaultViewProperty>"
    "<AlternateViewProperty name='p2'><OccurenceId>2</OccurenceId><GraphicProperties name='only'/>"
    "</AlternateViewProperty><AlternateViewProperty name='p5b'><OccurenceId>5</OccurenceId>"
    "<RelativePosition/></AlternateViewProperty></DefaultView><AlternateViewSet><AlternateView "
    "id='3' name='Top'><Viewpoint xsi:type='ParallelViewpointType' targetDistance='2' "
    "nearPlaneDistance='0.5' visualizedHeight='4' fieldOfView='x'><Position>0 0 9</Position>"
    "</Viewpoint></AlternateView><Other/><AlternateView id='1' name='Custom'><Viewpoint "
    "xsi:type='CustomViewpoint3DType'><ViewMatrix>1 2 3 4 5 6 7 8 9 10 11 12</ViewMatrix>"
    "</Viewpoint></AlternateView><AlternateView id='7' name='Odd'><Viewpoint xsi:type='Odd'/>"
    "</AlternateView><AlternateView id='8' name='Blind'><Description>d</Description>"
    "</AlternateView><AlternateView id='9' name='NoTarget'><Viewpoint "
    "xsi:type='PerspectiveViewpointType' fieldOfView='1'><Position>1 2 3</Position></Viewpoint>"
    "</AlternateView><AlternateView id='8' name='Blind again'/></AlternateViewSet>");
// clang-format on

// Outputs are preset (to _Stale, 7 or "none") so that what a reader leaves alone shows.
class Presentation : public ::testing::Test {
 protected:
  void SetUp() override { Load(kDocument); }
  void Load(const std::string& xml) {
    WriteFile(_Dir.File("doc.xml"), xml);
    _Parser = std::make_unique<P>();
    ASSERT_EQ(_Parser->InitParsing(_Dir.File("doc.xml").c_str()), S_OK);
  }
  // The code and name of the graphic properties of a node with attribute id=`id` ("": none,
  // null: no node), then what the readers make of them.
  std::string Properties(const char* id) {
    FakeElement node("Node", {}, "", "", "", id ? id : "");
    Element* gp = &_Stale;
    const HRESULT code = _Parser->GetGraphicPropertiesNode(id ? &node : nullptr, &gp);
    return std::to_string(code) + " " + NameOf(gp) + (code == S_OK ? " " + Attributes(gp) : "");
  }
  // Surface code:element, line code:type:thickness:sum of rgb, behaviour code:visible,selectable.
  std::string Attributes(Element* gp) {
    Element* surface = nullptr;
    double rgb[3] = {7, 7, 7};
    unsigned int type = 7;
    float thickness = 7;
    unsigned char visible = 7, selectable = 7;
    std::ostringstream out;
    out << _Parser->GetSurfaceAttributesElement(gp, &surface) << ":"
        << (surface ? Str(surface->GetType()) : "-") << " "
        << _Parser->GetLineAttributes(gp, rgb[0], rgb[1], rgb[2], type, thickness) << ":" << type
        << ":" << thickness << ":" << rgb[0] + rgb[1] + rgb[2] << " "
        << _Parser->GetBehaviourAttributes(gp, visible, selectable) << ":" << int(visible)
        << int(selectable);
    return out.str();
  }
  // What the reader of its kind makes of `viewpoint`: the code, then for cameras the four
  // vectors ("-": unwritten; every written array is released) and the distances, for custom
  // ones the view matrix and whether the projection was written.
  std::string Camera(HRESULT kind, Element* viewpoint) {
    float *v[4] = {nullptr, nullptr, nullptr, nullptr}, d[4] = {7, 7, 7, 7}, *projection = d;
    std::ostringstream out;
    const auto read =
        kind == kVorlaParallelViewpoint ? &P::GetCylindricViewpointData : &P::GetConicViewpointData;
    if (kind == kVorlaCustomViewpoint || kind == E_FAIL)
      out << _Parser->GetCustomViewpointData(viewpoint, &v[0], &projection);
    else
      out << ((*_Parser).*read)(viewpoint, &v[0], &v[1], &v[2], &v[3], d[0], d[1], d[2], d[3]);
    const int size = kind == kVorlaCustomViewpoint || kind == E_FAIL ? 12 : 3;
    for (float* values : v) {
      for (int i = 0; values != nullptr && i < size; ++i) out << (i ? "," : " ") << values[i];
      out << (values ? "" : " -");
      delete[] values;
    }
    for (float x : d) out << " " << x;
    const std::unique_ptr<float[]> written(projection != d ? projection : nullptr);
    return out.str() + (written ? " projection" : "");
  }
  // A view's code and name/description, then its viewpoint's code and what Camera makes of it.
  std::string ViewSummary(int id) {
    Element *view = nullptr, *viewpoint = &_Stale;
    KalUnicodeString name, description("none");
    const HRESULT code = _Parser->GetAlternateView(id, &view, name, description);
    const std::string got = std::to_string(code) + " " + Str(name) + "/" + Str(description);
    if (view == nullptr) return got;
    const HRESULT kind = _Parser->GetAlternateViewViewpoint(view, &viewpoint);
    return got + " | " + std::to_string(kind) +
           (viewpoint == &_Stale ? "" : " " + Camera(kind, viewpoint));
  }
  // A view property's code, position ("-": unwritten; a written one is released), graphic
  // properties and representation.
  std::string PropertyData(Element* property) {
    double* position = nullptr;
    Element* gp = nullptr;
    KalUnicodeString representation("none");
    std::ostringstream out;
    out << _Parser->GetAlternateViewPropertyData(property, &position, &gp, representation);
    for (int i = 0; position != nullptr && i < 12; ++i) out << " " << position[i];
    out << (position ? " " : " - ") << NameOf(gp) << " " << Str(representation);
    delete[] position;
    return out.str();
  }

  TempDir _Dir;
  std::unique_ptr<P> _Parser;
  FakeElement _Stale{"Stale", {}, "stale"};
};

// The first aspect naming the node's id wins (aspects with an id of their own are not
// collected); a node without an id takes the ownerless one. Surface data is found by tag in a
// fixed order, line colour by type, never read.
TEST_F(Presentation, GraphicPropertiesTheirAttributesAndMaterials) {
  EXPECT_EQ(Properties("1"), "0 gp1 9:Color 0:3:0.5:21 0:01");
  EXPECT_EQ(Properties("3"), "0 gp3 11:MaterialApplication 16:4294967295:-1:21 0:11");
  EXPECT_EQ(Properties(""), "0 ownerless " + F + ":- " + F + ":7:7:21 " + F + ":77");
  EXPECT_EQ(Properties("2") + " | " + Properties("4") + " | " + Properties("-1") + " | " +
                Properties(nullptr),
            "5 <null> | 5 <null> | " + F + " <null> | " + I + " stale");
  const auto materialIdOnly = ParseXml(
      "<GraphicProperties><SurfaceAttributes xsi:type='SurfaceAttributesType'><MaterialId>3"
      "</MaterialId></SurfaceAttributes></GraphicProperties>");
  EXPECT_EQ(Attributes(materialIdOnly.get()), "10:MaterialId " + F + ":7:7:21 " + F + ":77");
  EXPECT_EQ(Attributes(&_Stale), "8:- " + F + ":7:7:21 " + F + ":77");  // no children
  EXPECT_EQ(Attributes(nullptr), I + ":- " + I + ":7:7:21 " + I + ":77");
  EXPECT_EQ(_Parser->GetSurfaceAttributesElement(materialIdOnly.get(), nullptr), E_FAIL);

  Element* advanced = nullptr;  // the other kinds and ids: IndexedLookups
  EXPECT_EQ((Codes{_Parser->GetGraphicMaterialNode(4, &advanced),
                   _Parser->GetGraphicMaterialNode(3, nullptr)}),
            (Codes{kVorlaAdvancedMaterial, E_INVALIDARG}));
  EXPECT_EQ(NameOf(advanced), "adv");
}

// Unset components are exactly -1; the alpha-only test looks at red and blue alone; nothing
// is clamped, out of range is as strtod reads it; a component that is no number leaves the
// output as it was.
TEST_F(Presentation, ColorComponentsAndTheCodeOfWhatIsSet) {
  const std::tuple<const char*, HRESULT, const char*> cases[] = {
      {"red='1' green='0' blue='0'", kVorlaColorWithoutAlpha, "1 0 0 9"},
      {"red='-1' green='-1' blue='-1'", kVorlaAbsent, "-1 -1 -1 9"},
      {"red='-1' green='0.5' blue='-1' alpha='0.3'", kVorlaAlphaOnly, "-1 0.5 -1 0.3"},
      {"red='x' green='0' blue='0'", kVorlaColorWithoutAlpha, "9 0 0 9"},
      {"red='1' blue='0'", E_FAIL, "1 9 9 9"},
      {"red='1e999' green='nan' blue='-1e400' alpha='99999999999999999999'", kVorlaColorWithAlpha,
       "inf nan -inf 1e+20"}};
  for (const auto& [attributes, code, want] : cases) {  // components preset to 9
    auto color = ParseXml(std::string("<Color ") + attributes + "/>");
    double rgba[4] = {9, 9, 9, 9};
    std::ostringstream read;  // 12 digits: -1 is exactly -1
    read.precision(12);
    read << _Parser->GetColor(color.get(), rgba[0], rgba[1], rgba[2], rgba[3]) << " | " << rgba[0]
         << " " << rgba[1] << " " << rgba[2] << " " << rgba[3];
    EXPECT_EQ(read.str(), std::to_string(code) + " | " + want) << attributes;
  }
  double v = 0;
  EXPECT_EQ(_Parser->GetColor(nullptr, v, v, v, v), E_INVALIDARG);
}

// The default view comes first as 0; the list appends on every call; a repeated id finds the
// later view. Descriptions: the last one wins. Optional distances take their defaults; a
// required one missing fails after the vectors were handed over. Documents with one kind of
// view or none.
TEST_F(Presentation, ViewsAndTheirViewpoints) {
  EXPECT_EQ(ViewSummary(0), F + " /none");  // no list yet
  KalRawCollint ids;
  EXPECT_EQ(_Parser->GetAlternateViewList(ids), S_OK);
  EXPECT_EQ(_Parser->GetAlternateViewList(ids), S_OK);
  EXPECT_EQ(Ints(ids), "0 3 1 7 8 9 8 0 3 1 7 8 9 8");
  // clang-format off
  const std::pair<int, std::string> views[] = {  // view code name/description | viewpoint code
      {0, "0 Front/second | 18 0 1,2,3 0,1,0 - 0,0,1 5 1 10000 0.8"},
      {3, "0 Top/none | 19 0 0,0,9 - - - 2 0.5 10000 4"},
      {1, "0 Custom/none | 17 0 1,2,3,4,5,6,7,8,9,10,11,12 - - - 7 7 7 7"},
      {7, "0 Odd/none | " + F + " " + F + " - - - - 7 7 7 7"},
      {9, "0 NoTarget/none | 18 " + F + " 1,2,3 - - - 7 7 7 7"},
      {8, "0 Blind again/none | 8"}, {2, F + " /none"}};
  // clang-format on
  for (const auto& [id, want] : views) EXPECT_EQ(ViewSummary(id), want);
  KalUnicodeString name, description;
  EXPECT_EQ(_Parser->GetAlternateView(3, nullptr, name, description), E_FAIL);
  EXPECT_EQ(_Parser->GetAlternateViewViewpoint(&_Stale, nullptr), E_FAIL);
  EXPECT_EQ(Camera(kVorlaPerspectiveViewpoint, nullptr), I + " - - - - 7 7 7 7");

  // The default view alone lists 0; alternate views alone list 0 first too, with no view
  // behind it; a document with neither has no list.
  const std::pair<const char*, std::string> cases[] = {
      {"<DefaultView/>", "0 0: 0 /none | 8"},
      {"", "8 : " + F + " /none"},
      {"<AlternateViewSet><AlternateView id='4'/></AlternateViewSet>", "0 0 4: " + F + " /none"}};
  for (const auto& [body, want] : cases) {
    Load(VorlaXml(std::string("<ProductStructure/>") + body));
    ids.RemoveAll(1);
    const HRESULT code = _Parser->GetAlternateViewList(ids);
    EXPECT_EQ(std::to_string(code) + " " + Ints(ids) + ": " + ViewSummary(0), want) << body;
  }
}

// Either tag of property under either view; only the first "OccurenceId" counts; the first
// property with the id wins; outputs without data stay as the caller set them. An empty
// position fails with its zeroed array already the caller's.
TEST_F(Presentation, ViewPropertiesOverrideOccurrences) {
  KalRawCollint ids, none;
  Element* front = nullptr;
  ASSERT_EQ(_Parser->GetDefaultViewNode(&front), S_OK);
  ASSERT_EQ(_Parser->GetOccurenceIdList(front, ids), S_OK);
  EXPECT_EQ(_Parser->GetOccurenceIdList(nullptr, ids), E_FAIL);
  EXPECT_EQ(_Parser->GetOccurenceIdList(&_Stale, none), S_OK);
  EXPECT_EQ(Ints(ids) + "/" + Ints(none), "5 2 5/");
  const std::pair<int, std::string> lookups[] = {
      {5, "0 p5 0 1 0 0 0 1 0 0 0 1 7 8 9 gp urn:VORLA:Representation:loc:2"},
      {2, "0 p2 0 - only none"},
      {9, "8 stale"}};
  for (const auto& [occurrence, want] : lookups) {
    Element* property = &_Stale;
    const HRESULT code = _Parser->GetAlternateViewProperty(front, occurrence, &property);
    EXPECT_EQ(std::to_string(code) + " " + NameOf(property) +
                  (code == S_OK ? " " + PropertyData(property) : ""),
              want);
  }
  EXPECT_EQ(_Parser->GetAlternateViewProperty(&_Stale, 5, nullptr), kVorlaAbsent);  // childless
  EXPECT_EQ(_Parser->GetAlternateViewProperty(nullptr, 5, nullptr), E_FAIL);
  Element* p5b = nullptr;
  for (KalPosition cursor = front->GetHeadPosition(); cursor != nullptr;)
    p5b = front->GetNextChild(cursor);  // the last child, behind p5 with the same id
  EXPECT_EQ(PropertyData(p5b), F + " 0 0 0 0 0 0 0 0 0 0 0 0 <null> none");
  EXPECT_EQ(PropertyData(nullptr), F + " - <null> none");
}

}  // namespace
}  // namespace kaltest
