// KalVorlaParser: locale, loading (files, archives, "http://"), what loading records, reads.
#include <algorithm>
#include <chrono>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstring>
#include <random>

#include "KalFiles.h"
#include "KalFormatConstants.h"
#include "TestDocuments.h"

using P = KalVorlaParser;

// White-box access (a friend of the parser); what it puts in a parser is never freed by it.
struct KalVorlaParserInspector {
  static bool ArchiveOpen() { return P::_pZipFile != nullptr; }
  static unsigned int EntryCount() { return P::_NbZippedFiles; }
  static bool OwnsArchive(const P& p) { return p._OwnsArchive != 0; }
  static std::string TempDirectory(const P& p) { return kaltest::Str(p._TempDirectory); }
  static std::string DocumentDir(const P& p) { return kaltest::Str(p._DocumentDirectory); }
  static void SetStructure(P& p, KalLightXmlElementItf* e) { p._pProductStructureNode = e; }
  static void SetRepSet(P& p, KalLightXmlElementItf* e) { p._pGeometricRepresentationSetNode = e; }
  static void AppendFormat(P& p, KalLightXmlElementItf* e) { p._RepFormatList.Append(e); }
  static void UsePlainScans(P& p) { p._PlainScans = true; }  // the lookups scan, unindexed
};

namespace kaltest {
namespace {

using Inspector = KalVorlaParserInspector;

// A document whose root reference carries `name`, so a test can tell which file it loaded.
std::string Doc(const std::string& name, const std::string& version = "1.0") {
  return Structure(Ref(1, name), version);
}

// The file path a parser reports and the name of its root reference.
std::string Loaded(P& parser) {
  KalUnicodeString path;
  Element* root = nullptr;
  parser.GetFilePath(path);
  parser.GetProductStructureRootReference(&root);
  return Str(path) + " " + NameOf(root);
}

using Lookup = HRESULT (P::*)(int, Element**);
// Instance3D, Reference3D, InstanceRep, ReferenceRep.
const Lookup kLookups[] = {&P::GetInstance3DFromLocalID, &P::GetReference3DFromLocalID,
                           &P::GetInstanceRepFromLocalID, &P::GetReferenceRepFromLocalID};

// A parser reads in "C" and restores the locale it saved (the second saves the first's "C").
TEST(ParserLocale, EachParserRestoresTheLocaleItSaved) {
  const std::string original = std::setlocale(LC_ALL, nullptr);
  if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
  auto first = std::make_unique<P>(), second = std::make_unique<P>();
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  first.reset();
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8");
  second.reset();
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  std::setlocale(LC_ALL, original.c_str());
}

// Every test starts and must end with no archive open: a parser that opened one closes it.
class Loading : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(Inspector::ArchiveOpen()); }
  void TearDown() override {
    EXPECT_FALSE(Inspector::ArchiveOpen());
    EXPECT_EQ(Inspector::EntryCount(), 0u);
  }
  TempDir _Dir;
};

// Paths kept, KalTemp as set; versions as integers, first Header only; empty tables dropped.
TEST_F(Loading, PlainFilesLoadByTheirSchemaVersionOrFailKeepingTheirTree) {
  const auto v = [](const std::string& header) {
    return "<Model>" + header + "<ProductStructure>" + Entity("Reference3D", "id='0' name='r0'") +
           "</ProductStructure><DefaultView name='view'/></Model>";
  };
  const auto s = [&](const char* version) {
    return v("<Header><SchemaVersion>" + std::string(version) + "</SchemaVersion></Header>");
  };
  const std::string none = "<null> <null> | <null> <null> <null> <null>";
  const std::string accepted = "r0 view | stale <null> stale stale";
  const std::tuple<std::string, const char*, HRESULT, std::string> cases[] = {
      {Doc("plain"), "/kal/temp", S_OK, "plain <null> | stale <null> stale stale"},
      {"", "/kal/temp", E_FAIL, none + " (no tree)"},  // the empty path
      {"<Model><Header><SchemaVersion>1.0", nullptr, E_FAIL, none},
      {"<Model/>", "", E_FAIL, none},
      {"<Model><Header/><DefaultView/></Model>", "", E_FAIL,
       "<null>  | <null> <null> <null> <null>"},
      {s("2.00"), nullptr, S_OK, accepted},
      {s("2.1"), nullptr, kVorlaVersionNewerAccepted, accepted},
      {s("3.0"), nullptr, kVorlaVersionRefused, none},
      {s("v3.0"), nullptr, S_OK, accepted},
      {v("<Header/>"), nullptr, S_OK, accepted},
      {v("<Header/><Header><SchemaVersion>3.0</SchemaVersion></Header>"), nullptr, S_OK, accepted},
      {v("<Other/><Header><Author/><SchemaVersion>3.0</SchemaVersion></Header>"), nullptr,
       kVorlaVersionRefused, none},
      {v("<h:Header><SchemaVersion>1.0</SchemaVersion></h:Header>"), nullptr, E_FAIL, none}};
  FakeElement stale("Stale", {}, "stale");
  for (const auto& [content, kalTemp, code, want] : cases) {  // kalTemp null: unset
    SCOPED_TRACE(content);
    const std::string path = content.empty() ? "" : _Dir.Path() + "/./doc.xml";
    if (!path.empty()) WriteFile(path, content);
    ScopedEnv scoped("KalTemp", kalTemp);
    P parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), code);
    EXPECT_EQ(parser.RetrieveRootReferenceNode(), E_FAIL);  // no structure read, or tables dropped
    Element *tree = nullptr, *view = nullptr;
    parser.GetVorlaRootNode(&tree);
    parser.GetDefaultViewNode(&view);
    std::string found = Loaded(parser) + " " + NameOf(view) + " |";
    for (Lookup lookup : kLookups) {
      Element* node = &stale;
      EXPECT_EQ((parser.*lookup)(2, &node), E_FAIL);
      found += " " + NameOf(node);
    }
    EXPECT_EQ(found + (tree ? "" : " (no tree)"), path + " " + want);
    EXPECT_FALSE(Inspector::OwnsArchive(parser));
    EXPECT_EQ(Inspector::DocumentDir(parser), path.empty() ? "" : _Dir.Path() + "/.");
    EXPECT_EQ(Inspector::TempDirectory(parser), path.empty() ? ""
                                                : kalTemp    ? kalTemp
                                                             : Str(KalGetTempDirectory()));
  }
}

// The manifest's first Root names the entry, else the archive's own name (an entry may bear it).
TEST_F(Loading, ArchivesLoadTheEntryTheManifestNamesElseTheOneOfTheArchivesName) {
  // Manifest, text changed to make its entry read short, entry of the archive's name, results.
  const std::tuple<const char*, const char*, bool, HRESULT, const char*, const char*> cases[] = {
      {"<Root>docs/a.xml</Root>", nullptr, false, S_OK, "docs/a.xml", "docs-a"},
      {"<Root>b.xml</Root><Root>a.xml</Root>", nullptr, false, S_OK, "b.xml", "b"},
      {"<Root>gone.xml</Root>", nullptr, false, E_FAIL, "gone.xml", "<null>"},
      {"<Root>broken.xml</Root>", nullptr, false, E_FAIL, "broken.xml", "<null>"},
      {"<Root>a.xml</Root>", "name='a'", false, E_FAIL, "a.xml", "<null>"},
      {"<Root>a.xml</Root>", "<Root>", true, E_FAIL, "", "<null>"},
      {nullptr, nullptr, false, E_FAIL, "pack.vorla", "<null>"},
      {nullptr, nullptr, true, S_OK, "pack.vorla", "self"},
      {"Root=a.xml <<<", nullptr, true, S_OK, "pack.vorla", "self"},
      {"<Other>a.xml</Other>", nullptr, true, S_OK, "pack.vorla", "self"}};
  char real[PATH_MAX];
  ASSERT_NE(::realpath(_Dir.Path().c_str(), real), nullptr);
  const std::string archive = _Dir.File("pack.vorla");
  for (const auto& [manifest, damage, selfEntry, code, filePath, rootName] : cases) {
    SCOPED_TRACE(std::string(manifest ? manifest : "none") + " " + (damage ? damage : ""));
    // clang-format off
    std::vector<Entry> entries = {{"a.xml", Doc("a"), false}, {"b.xml", Doc("b"), false},
        {"docs/a.xml", Doc("docs-a"), false}, {"broken.xml", "<Model><Header>", false}};
    // clang-format on
    if (manifest)
      entries.push_back({"Manifest.xml", std::string("<Manifest>") + manifest + "</Manifest>", 0});
    if (selfEntry) entries.push_back({"pack.vorla", Doc("self"), false});
    WriteArchive(archive, entries);
    std::string bytes = ReadFile(archive);
    ASSERT_NE(bytes.find(damage ? damage : ""), std::string::npos);
    if (damage) bytes[bytes.find(damage)] ^= 1;
    WriteFile(archive, bytes);
    KalVorlaImportUtilities::_VorlaArchiveFile = "";
    P parser;
    KalUnicodeString root;
    EXPECT_EQ(parser.InitParsing(archive.c_str()), code);
    EXPECT_EQ(parser.GetVorlaRootFilePath(archive.c_str(), root), *filePath ? S_OK : E_FAIL);
    EXPECT_EQ(Str(root) + " " + Loaded(parser),
              std::string(filePath) + " " + filePath + " " + rootName);
    EXPECT_TRUE(Inspector::OwnsArchive(parser));
    EXPECT_EQ(Inspector::EntryCount(), entries.size());
    EXPECT_EQ(Inspector::DocumentDir(parser), real);
    EXPECT_EQ(Str(KalVorlaImportUtilities::_VorlaArchiveFile), "pack.vorla");
  }
}

// While the owner keeps the archive open, paths name its entries; only the owner closes it.
TEST_F(Loading, OtherParsersReadEntriesOfTheArchiveTheOwnerKeepsOpen) {
  const std::string archive = _Dir.File("pack.vorla");
  WriteVorlaArchive(archive, "root.xml", Doc("main"), {{"child.vorla", Doc("child")}});
  auto owner = std::make_unique<P>(), reader = std::make_unique<P>(),
       stranger = std::make_unique<P>();
  // Even the archive's own path names no entry; the owner's second load fails.
  EXPECT_EQ((Codes{owner->InitParsing(archive.c_str()), reader->InitParsing("child.vorla"),
                   stranger->InitParsing(archive.c_str()), owner->InitParsing("child.vorla")}),
            (Codes{S_OK, S_OK, E_FAIL, E_FAIL}));
  EXPECT_EQ(Loaded(*reader) + " | " + Loaded(*stranger) + " | " + Loaded(*owner),
            "child.vorla child | " + archive + " <null> | child.vorla main");
  EXPECT_EQ((std::vector<bool>{Inspector::OwnsArchive(*reader), Inspector::OwnsArchive(*stranger),
                               Inspector::OwnsArchive(*owner)}),
            (std::vector<bool>{false, false, true}));
  stranger.reset();
  EXPECT_TRUE(Inspector::ArchiveOpen());
  owner.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
  EXPECT_EQ(Loaded(*reader), "child.vorla child");
}

// "http://" names: a copy in KalTemp, deleted once read; plain XML is read from the URL itself.
// A download that fails (here: redirected in a loop, stalled; cut and refused: PlatformFiles)
// leaves the copy already there as it was; stalling servers are given up on in time.
TEST_F(Loading, HttpNamesAreReadThroughALocalCopy) {
  HttpServer server;
  const std::string archive = _Dir.File("served.vorla");
  WriteVorlaArchive(archive, "root.xml", Doc("served", "3.0"));
  const std::string newer = ReadFile(archive);
  WriteVorlaArchive(archive, "root.xml", Doc("served"));
  const std::string served = ReadFile(archive);
  const std::string url = server.Url("/doc"), copy = _Dir.File("local.vorla");
  const std::string dir = _Dir.Path(), urlDir = url.substr(0, url.rfind('/'));
  const std::tuple<HttpServer::Route, HRESULT, const char*, std::string> cases[] = {
      {{200, served, -1}, S_OK, "root.xml served", dir},
      {{200, newer, -1}, kVorlaVersionRefused, "root.xml <null>", dir},
      {{302, "", -1, "/doc"}, E_FAIL, " <null>", ""},  // a redirection to itself
      {{200, served, -1, "", 0, true}, E_FAIL, " <null>", ""},
      {{200, served, -1, "", 100}, E_FAIL, " <null>", ""},  // ten bytes a second
      {{200, Doc("plain"), -1}, E_FAIL, nullptr, urlDir}};
  ScopedEnv kalTemp("KalTemp", dir.c_str()), timeout("KAL_HTTP_TIMEOUT", "1");
  for (const auto& [route, code, loaded, documentDir] : cases) {  // loaded null: read from the URL
    SCOPED_TRACE(std::to_string(route.status) + " " + (loaded ? loaded : "plain XML"));
    server.Set("/doc", route);
    WriteFile(copy, "old");
    P parser;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(parser.InitParsing(url.c_str()), code);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(Loaded(parser), loaded ? loaded : url + " <null>");
    EXPECT_EQ(Inspector::DocumentDir(parser), documentDir);
    const bool exists = FileExists(copy);
    const std::string want = !loaded ? Doc("plain") : code == E_FAIL ? "old" : "<none>";
    EXPECT_EQ(exists ? ReadFile(copy) : "<none>", want);
    EXPECT_EQ(Listing(dir).size(), 1u + exists);
  }
  EXPECT_EQ(server.RequestCount(), 11);  // a redirection is followed five times
}

// Elements of every kind; formats f0-f6 of any tag (owners carried over; untyped, with an id or
// nested: none); aspects a0-a5 (owners out of order); materials, extensions and representations.
std::string QueryDocument() {
  std::string formats, aspects;
  int n = 0;
  for (const char* owner : {"", " owner='5'", "", " owner='x'", " owner='6'", " owner='05'"})
    formats += "<RepFormat xsi:type='RepFormatType'" + std::string(owner) + " name='f" +
               std::to_string(n++) + "'/>";
  for (const char* owner :
       {" aspectOwner='1'", " aspectOwner='1'", "", " aspectOwner='01'", " aspectOwner=''",
        " aspectOwner='0'"})
    aspects += "<A xsi:type='GraphicPropertiesAspectType'" + std::string(owner) +
               "><GraphicProperties name='a" + std::to_string(n++ - 6) + "'/></A>";
  const auto rep = [](const std::string& attributes, const char* data = "") {
    return "<Representation format='TESSELLATED' version='1.0' " + attributes + ">" + data +
           "</Representation>";
  };
  return VorlaXml(
      "<ProductStructure root='001'>" + Entity("Instance3D", "id='2' name='i2'", "1") +
      Entity("Reference3D", "id='1' name='r1-first'") +
      Entity("InstanceRep", "id='5' name='ir5'", "1") +
      Entity("ReferenceRep", "id='6' name='rr6'") +
      Entity("Instance3D", "id='3' name='i3' owner='007'", "1") +
      Entity("Instance3D", "id='4' name='i4'", "9") +
      "<Thing xsi:type='Reference3DType' id='10' name='typed-thing'/>"
      "<Reference3D xsi:type='Other' id='11' name='other-type'/>" +
      Entity("Instance3D", "name='no-id'", "1") + Entity("Instance3D", "id='13' name='orphan'") +
      Entity("Reference3D", "id='01' name='r1'") + formats + aspects +
      "<Other xsi:type='RepFormatType' name='f6'/><RepFormat owner='5' name='untyped'/>"
      "<RepFormat xsi:type='RepFormatType' id='3' owner='5' name='with-id'/><Wrapper>"
      "<RepFormat xsi:type='RepFormatType' owner='5' name='nested'/>"
      "<Reference3D xsi:type='Reference3DType' id='14' name='nested'/></Wrapper></ProductStructure>"
      "<x:DefaultView name='view-1'/><DefaultView name='view-2'/>"
      "<g:GraphicMaterialSet name='materials'><GraphicMaterial id='5' name='m5'/>"
      "<GraphicMaterial id='0' name='zero'/><GraphicMaterial name='no-id'/>"
      "<GraphicMaterial id='-3' name='negative'/><m:GraphicMaterial id='6' name='prefixed'/>"
      "<Other id='8' name='other'/><GraphicMaterial id='2' name='m2'/>"
      "<GraphicMaterial id='5' name='m5-again'/><GraphicMaterial id='3' name='c3' "
      "xsi:type='ColorMaterialType'/><GraphicMaterial id='3' name='o3' xsi:type='Other'/>"
      "<GraphicMaterial id='4' name='t4' xsi:type='TextureMaterialType'/></g:GraphicMaterialSet>"
      "<AnimationSet name='anim'/><a:b:AnimationSet name='two-prefixes'/>"
      "<y:MeasureSet name='measures'/><PresentationSet name='pres-1'/>"
      "<p:PresentationSet name='pres-2'/><s:SpecificExtensionSet name='extensions'>"
      "<SpecificExtension id='4' name='e4'/><SpecificExtension name='no-id'/>"
      "<SpecificExtension id='0' name='e0'/><Other id='7' name='other'/>"
      "<x:SpecificExtension id='8' name='prefixed'/></s:SpecificExtensionSet>"
      "<Wrapper><SectionSet name='nested'/></Wrapper><GeometricRepresentationSet>" +
      rep("name='no-id'") + rep("id='2' name='two'", "<AssociatedXML/>") +
      rep("id='x' name='carry'") +
      rep("id='2' name='two-later'", "<AssociatedData>QQ==</AssociatedData>") +
      rep("id='-1' name='minus'") +
      rep("id='02' name='zero-two'", "<AssociatedData>QUI=</AssociatedData>") +
      "</GeometricRepresentationSet>");
}

using Accessor = HRESULT (P::*)(Element**);  // with what it finds in QueryDocument()
// clang-format off
const std::pair<Accessor, const char*> kAccessors[] = {
    {&P::GetProductStructureRootReference, "r1"}, {&P::GetDefaultViewNode, "view-2"},
    {&P::GetPresentationSetNode, "pres-2"}, {&P::GetMeasureSetNode, "measures"},
    {&P::GetSectionSetNode, "<null>"}, {&P::GetAnimationSetNode, "anim"},
    {&P::GetVorlaRootNode, ""}, {&P::GetSpecificExtensionSetNode, "extensions"},
    {&P::GetGraphicMaterialSetNode, "materials"}};
// clang-format on
const auto kCounters = {&P::GetNumberOfInstances, &P::GetNumberOfReferences,
                        &P::GetNumberOfRepresentations};

class Queries : public ::testing::Test {
 protected:
  // Checks the code of a call with an output preset to _Stale (named ""); gives its name.
  template <class Method, class... Args>
  std::string Found(HRESULT code, Method method, Args... args) {
    Element* node = &_Stale;
    EXPECT_EQ((_Parser.*method)(args..., &node), code);
    return NameOf(node);
  }
  TempDir _Dir;
  P _Parser;
  FakeElement _Stale;
};

// Before loading, accessors give null and the rest fails; loading records root children by
// local name (the last wins) and elements by kind, only direct children with an id.
TEST_F(Queries, LoadingRecordsRootChildrenAndElementsByKindAndId) {
  for (const auto& [get, found] : kAccessors) {
    EXPECT_EQ(Found(S_OK, get), "<null>");
    EXPECT_EQ((_Parser.*get)(nullptr), E_FAIL);
  }
  for (Lookup lookup : kLookups) EXPECT_EQ((_Parser.*lookup)(1, nullptr), E_FAIL);
  for (auto pass : {&P::RetrieveContainerNodes, &P::RetrieveRootReferenceNode,
                    &P::RetrieveApplicativeSetNodes, &P::CheckVorlaVersion})
    EXPECT_EQ((_Parser.*pass)(), E_FAIL);
  int count = 42;
  for (auto counter : kCounters) EXPECT_EQ((_Parser.*counter)(count), E_FAIL);
  EXPECT_EQ(count, 42);
  KalUnicodeString text("stale"), root("stale");
  Element* node = nullptr;
  EXPECT_EQ(
      (Codes{_Parser.GetFilePath(text), _Parser.GetVorlaRootFilePath("/some/where/doc.vorla", root),
             _Parser.GetRepresentationNodeFromId(20, &node, 0)}),
      (Codes{S_OK, S_OK, E_FAIL}));
  EXPECT_EQ(Str(text) + "|" + Str(root), "|doc.vorla");  // without an archive, the file name
  EXPECT_EQ(Found(E_INVALIDARG, &P::GetVorlaNodeFromOtherIDAttribute, 7, "Other", "owner") +
                Found(E_FAIL, &P::GetRepresentationNode, 20u),
            "");

  WriteFile(_Dir.File("doc.xml"), QueryDocument());
  ASSERT_EQ(_Parser.InitParsing(_Dir.File("doc.xml").c_str()), S_OK);
  for (const auto& [get, found] : kAccessors) EXPECT_EQ(Found(S_OK, get), found);
  const std::tuple<int, int, HRESULT, const char*> cases[] = {
      {0, 2, S_OK, "i2"},       {0, 13, S_OK, "orphan"},   {0, 5, E_FAIL, "<null>"},
      {0, 0, E_FAIL, "<null>"}, {1, 1, S_OK, "r1"},        {1, 10, S_OK, "typed-thing"},
      {1, 9, S_OK, "<null>"},   {1, 11, E_FAIL, "<null>"}, {1, 14, E_FAIL, "<null>"},
      {2, 5, S_OK, "ir5"},      {2, 2, E_FAIL, "<null>"},  {3, 6, S_OK, "rr6"},
      {3, 5, E_FAIL, "<null>"}};
  for (const auto& [kind, id, code, found] : cases)  // kind: index in kLookups
    EXPECT_EQ(Found(code, kLookups[kind], id), found) << kind << " " << id;
  KalRawCollPV one, nine;
  std::vector<int> counts;
  for (auto counter : kCounters) EXPECT_EQ((_Parser.*counter)(counts.emplace_back(-1)), S_OK);
  EXPECT_EQ((Codes{_Parser.GetInstancesFromReference3D(1, &one),
                   _Parser.GetInstancesFromReference3D(9, &nine)}),
            Codes(2, S_OK));
  EXPECT_EQ(Names(one) + " | " + Names(nine), "i2 i3 | i4");
  EXPECT_EQ(counts, (std::vector<int>{5, 3, 8}));

  const std::tuple<int, const char*, const char*, const char*> searches[] = {
      {7, "Instance3D", "owner", "i3"},
      {1, "Reference3D", "id", "r1-first"},
      {10, "Reference3D", "id", "<null>"},
      {14, "Reference3D", "id", "<null>"},
      {0, "Instance3D", "name", "<null>"}};
  for (const auto& [id, tag, attribute, found] : searches)
    EXPECT_EQ(Found(S_OK, &P::GetVorlaNodeFromOtherIDAttribute, id, tag, attribute), found) << id;

  EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(7, "Instance3D", "owner", nullptr),
            E_INVALIDARG);
  EXPECT_EQ((Codes{_Parser.GetSpecificExtensionNode(4, nullptr),
                   _Parser.GetRepresentationNode(2, nullptr),
                   _Parser.GetRepresentationNodeFromId(2, nullptr, 0),
                   _Parser.GetTechRepNodeFromId(4, nullptr, 0)}),
            Codes(4, E_FAIL));
}

// Counts skip null children; FromType matches the type attribute, FromName the tag (first wins).
TEST_F(Queries, DirectChildSearchesFindTheFirstMatchAndFailOnNullChildren) {
  FakeElement nested("Instance3D"), b("Instance3D"), a("Instance3D", {&nested});
  FakeElement prefixed("x:Instance3D"), childless("ProductStructure");
  FakeElement structure("ProductStructure", {&a, nullptr, &prefixed, nullptr, &b});
  std::string counts;
  for (FakeElement* fake : {&structure, &childless}) {
    Inspector::SetStructure(_Parser, fake);
    for (const char* tag : {"Instance3D", "x:Instance3D", "instance3d"}) {
      int count = 99;
      EXPECT_EQ(_Parser.CountOccurences(tag, count), S_OK);
      counts += std::to_string(count);
    }
    EXPECT_EQ(Found(E_FAIL, &P::GetVorlaNodeFromOtherIDAttribute, 7, "Other", "owner"), "<null>");
  }
  EXPECT_EQ(counts, "210000");

  FakeElement empty("Empty", {}, "empty"), a1("Item", {}, "a1", "A", "first");
  FakeElement b1("Item", {}, "b1", "B", "second"), a2("Other", {}, "a2", "A");
  FakeElement deep("Deep", {}, "deep", "Deep", "deep text"), wrapper("Wrapper", {&deep});
  FakeElement probe("Probe", {&empty, &a1, &b1, &a2, &wrapper}, "probe");
  FakeElement miss("Miss", {}, "miss", "Miss"), broken("Parent", {&miss, nullptr});
  using Node = Element*;
  Node p = &probe, e = &empty, br = &broken, n = nullptr;
  const auto T = &P::GetVorlaChildNodeFromType, N = &P::GetVorlaChildNodeFromName;
  const std::tuple<decltype(T), Node, const char*, HRESULT, const char*> cases[] = {
      {T, p, "A", S_OK, "a1"},           {T, p, "", S_OK, "empty"},
      {T, e, "A", S_FALSE, "<null>"},    {T, n, "A", E_FAIL, ""},
      {T, br, "B", E_FAIL, "<null>"},    {N, p, "Item", S_OK, "a1"},
      {N, p, "Deep", S_FALSE, "<null>"}, {N, e, "Item", E_FAIL, "<null>"},
      {N, n, "Item", E_FAIL, ""},        {N, br, "Miss", S_OK, "miss"},
      {N, br, "B", E_FAIL, "<null>"}};
  for (const auto& [search, parent, wanted, code, found] : cases)
    EXPECT_EQ(Found(code, search, parent, wanted), found) << (search == T) << wanted;
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromType(p, "A", nullptr), E_FAIL);
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromName(p, "Item", nullptr), E_FAIL);

  const auto V = &P::GetValueString, A = &P::GetAttributeString;
  // clang-format off
  const std::tuple<decltype(V), Node, HRESULT, const char*, const char*> reads[] = {
      {V, p, S_OK, "Item", "first"}, {V, p, S_OK, "Missing", ""}, {V, e, E_FAIL, "Item", ""},
      {V, br, E_FAIL, "Item", ""}, {V, n, E_INVALIDARG, "Item", "stale"},
      {A, n, E_INVALIDARG, "name", "stale"}, {A, p, S_OK, "name", "probe"}};
  // clang-format on
  for (const auto& [read, element, code, name, want] : reads) {
    KalUnicodeString value("stale");
    EXPECT_EQ((_Parser.*read)(name, element, value), code) << name;
    EXPECT_EQ(Str(value), want) << name;
  }
}

// Lists give a value (42: unconverted, left alone) and the blank after it; vectors and matrices
// wrap short lists. (One number without a blank, read from 0, loops for ever by design.)
TEST_F(Queries, ValueListsVectorsAndMatricesReadValuesInTextOrder) {
  const std::tuple<const char*, int, int, int> cases[] = {
      {"1 2 3", 0, 1, 1}, {"1 2 3", 4, 3, -1}, {"  7 8", 0, 7, 3}, {"1  2", 1, 2, -1},
      {"12 34", 1, 2, 2}, {"5 ", 0, 5, 1},     {"a b", 0, 42, 1},  {"1 2", 3, 42, -1}};
  for (const auto& [text, start, value, next] : cases) {
    SCOPED_TRACE(std::string("\"") + text + "\" from " + std::to_string(start));
    KalUnicodeString list(text);
    int asInt = 42, intNext = -9, doubleNext = -9, floatNext = -9;
    double asDouble = 42;
    float asFloat = 0;
    EXPECT_EQ((Codes{_Parser.GetNextValueInList(list, start, asInt, intNext),
                     _Parser.GetNextValueInList(list, start, asDouble, doubleNext),
                     _Parser.GetNextValueInList(list, start, asFloat, floatNext)}),
              Codes(3, S_OK));
    EXPECT_EQ((std::vector<double>{double(asInt), asDouble}), std::vector<double>(2, value));
    EXPECT_TRUE(value == 42 || asFloat == value) << asFloat;  // else unspecified
    EXPECT_EQ((std::vector<int>{intNext, doubleNext, floatNext}), std::vector<int>(3, next));
  }

  const float kStale = -777.0f;
  const std::pair<const char*, std::vector<double>> lists[] = {
      {"0.1 -2.5 3e-3 4 0.7 6.25 -0 8.125 1e10 10 0.333 12 13",
       {0.1, -2.5, 3e-3, 4, 0.7, 6.25, -0.0, 8.125, 1e10, 10, 0.333, 12}},
      // Hexadecimal, out of range, bare points, a sign and a tab inside pieces: as strtod reads.
      {"0x1p3 1e999 .5 5. 1e-310 -7e-1 2\t9 +4 0.1e1 1e 8 9",
       {8, HUGE_VAL, 0.5, 5, 1e-310, -0.7, 2, 4, 1, 1, 8, 9}},
      {"1\t2 3", {1, 3, 1, 3, 1, 3, 1, 3, 1, 3, 1, 3}},
      {" 5", {5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5}},
      {"", {}}};
  for (const auto& [text, values] : lists) {
    SCOPED_TRACE(text);
    FakeElement element("V", {}, "", "", text);
    std::vector<float> vector(13, kStale), floats(13, kStale);
    std::vector<double> doubles(13, kStale), want(values);
    want.resize(13, kStale);
    EXPECT_EQ((Codes{_Parser.ConvertVector(&element, vector.data()),
                     _Parser.ConvertMatrix(&element, floats.data()),
                     _Parser.ConvertMatrix(&element, doubles.data())}),
              Codes(3, *text ? S_OK : E_FAIL));
    EXPECT_EQ(doubles, want);
    EXPECT_EQ(floats, std::vector<float>(want.begin(), want.end()));
    std::fill(want.begin() + 3, want.end(), kStale);
    EXPECT_EQ(vector, std::vector<float>(want.begin(), want.end()));
    EXPECT_EQ((Codes{_Parser.ConvertVector(nullptr, vector.data()),
                     _Parser.ConvertMatrix(&element, static_cast<float*>(nullptr)),
                     _Parser.ConvertMatrix(nullptr, doubles.data())}),
              Codes(3, E_INVALIDARG));
  }
  // Decimals of up to 15 digits have a reader of their own: it rounds as strtod, to the bit.
  std::mt19937 random(1);
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    double want[12], got[12];
    for (double& w : want) {
      std::string piece = random() % 3 ? "" : "-";
      const int digits = 1 + random() % 17, point = random() % (digits + 1);
      for (int d = 0; d < digits; ++d) piece += (d == point ? "." : "") + std::to_string(random() % 10);
      w = std::strtod(piece.c_str(), nullptr);
      text += piece + " ";
    }
    FakeElement element("V", {}, "", "", text.c_str());
    ASSERT_EQ(_Parser.ConvertMatrix(&element, got), S_OK);
    ASSERT_EQ(std::memcmp(got, want, sizeof got), 0) << text;
  }
}

// Both overloads split alike; outputs preset to 77, 9, "stale" and -99 mean "left alone".
TEST_F(Queries, UrnsSplitIntoKindLocalityFileNameAndId) {
  const std::tuple<const char*, HRESULT, int, int, const char*, int, const char*> cases[] = {
      {"urn:VORLA:Reference:loc:12", S_OK, 0, 1, "12", 12, ""},
      {"urn:VORLA:Representation:ext:child.vorla#3", S_OK, 1, 0, "3", 3, "child.vorla"},
      {"urn:VORLA:TechRep:LOC:sub/x.vorla#0012", S_OK, 2, 0, "0012", 12, "sub/x.vorla"},
      {"urn:VORLA:reference:loc:007", S_OK, 77, 1, "007", 7, ""},
      {"urn:VORLA:Reference:loc:12:13", S_OK, 0, 1, "12:13", 12, ""},
      {"urn:VORLA:Representation:ext:a.vorla.b.vorla#3", S_OK, 1, 0, "3", 3, "a.vorla.b.vorla"},
      {"urn:VORLA:Representation:ext:child.xml#3", S_OK, 1, 0, nullptr, 0, nullptr},
      {"0123456789Reference:loc:4 urn:VORLA:", S_OK, 0, 1, "4 urn:VORLA:", 4, ""},
      {"urn:vorla:Reference:loc:1", E_FAIL, 77, 9, "stale", -99, "stale"}};
  for (const auto& [urn, code, type, local, idText, id, fileName] : cases) {
    SCOPED_TRACE(urn);
    KalVorlaUrnType types[2] = {static_cast<KalVorlaUrnType>(77), static_cast<KalVorlaUrnType>(77)};
    unsigned char isLocal[2] = {9, 9};
    KalUnicodeString text("stale"), files[2] = {"stale", "stale"};
    int number = -99;
    EXPECT_EQ(_Parser.ExtractVorlaUrnDatas(urn, types[0], isLocal[0], number, files[0]), code);
    EXPECT_EQ(_Parser.ExtractVorlaUrnDatas(urn, types[1], isLocal[1], text, files[1]), code);
    EXPECT_EQ((std::vector<int>{types[0], types[1], isLocal[0], isLocal[1]}),
              (std::vector<int>{type, type, local, local}));
    if (idText == nullptr) continue;
    EXPECT_EQ(Str(files[0]) + "|" + Str(files[1]) + "|" + Str(text) + "|" + std::to_string(number),
              std::string(fileName) + "|" + fileName + "|" + idText + "|" + std::to_string(id));
  }
}

// Every indexed lookup gives exactly the answers of the scan it replaces, past null entries too
// (materials need an id > 0 and the exact tag; extensions an id other than 0, none giving -1).
TEST(IndexedLookups, AnswerExactlyAsThePlainScans) {
  TempDir dir;
  WriteFile(dir.File("doc.xml"), QueryDocument());
  const auto c = [](HRESULT code) { return code == E_FAIL ? "F" : std::to_string(code); };
  FakeElement stale("Stale", {}, "~");  // "~": an output left alone
  FakeElement two("Representation", {}, "two", "", "", "2"), five("Node", {}, "", "", "", "5");
  FakeElement broken("Set", {&two, nullptr, &two});
  for (const bool scans : {false, true}) {
    SCOPED_TRACE(scans ? "plain scans" : "indexes");
    P p, withNulls;  // withNulls: a null entry ends its format list and its set
    for (P* parser : {&p, &withNulls}) {
      ASSERT_EQ(parser->InitParsing(dir.File("doc.xml").c_str()), S_OK);
      if (scans) Inspector::UsePlainScans(*parser);
    }
    std::ostringstream out;  // << sequences the calls before the outputs are read
    for (const char* id : {"", "-1", "0", "1", "01", "5", "05", "6", "x"}) {
      FakeElement node("Node", {}, "", "", "", id);
      KalRawCollPV formats;
      Element* found = nullptr;
      out << "[" << id << "] " << c(p.GetRepFormatsFromRepReference(&node, &formats)) << " "
          << Names(formats) << " " << c(p.GetGraphicPropertiesNode(&node, &found)) << " "
          << NameOf(found) << "; ";
    }
    for (unsigned int id : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 4294967293u, 4294967295u}) {
      Element *a = &stale, *b = &stale, *r = &stale, *m = &stale, *x = &stale;
      out << id << ": " << c(p.GetRepresentationNodeFromId(id, &a, 7)) << NameOf(a) << " "
          << c(p.GetTechRepNodeFromId(id, &b, 0)) << NameOf(b) << " "
          << c(p.GetRepresentationNode(id, &r)) << NameOf(r) << " "
          << c(p.GetGraphicMaterialNode(id, &m)) << NameOf(m) << " "
          << c(p.GetSpecificExtensionNode(id, &x)) << NameOf(x) << "; ";
    }
    char* buffer = nullptr;
    unsigned int size = 0;
    KalUnicodeString tag;
    for (const char* id : {"2", "02", "-1", "", "x", "9"}) {
      buffer = nullptr, size = 0, tag = "";
      out << "{" << id << "} " << c(p.GetBufferFromGeometricRepresentationID(id, buffer, size, tag))
          << " " << size << " " << Str(tag) << "; ";
      delete[] buffer;
    }
    Inspector::AppendFormat(withNulls, nullptr);
    Inspector::SetRepSet(withNulls, &broken);
    KalRawCollPV formats;
    formats.Append(&two);  // formats are appended
    Element* a = nullptr;
    out << c(withNulls.GetRepFormatsFromRepReference(&five, &formats)) << " " << Names(formats)
        << " | " << c(withNulls.GetRepresentationNodeFromId(2, &a, 0)) << NameOf(a) << " "
        << c(withNulls.GetRepresentationNodeFromId(3, &a, 0)) << " "
        << c(withNulls.GetRepresentationNode(3, &a)) << " "
        << c(withNulls.GetBufferFromGeometricRepresentationID("9", buffer, size, tag)) << " "
        << c(withNulls.GetBufferFromGeometricRepresentationID("2", buffer, size, tag));
    EXPECT_EQ(out.str(),
              "[] 0  0 a2; [-1] 0  F <null>; [0] 0  0 a5; [1] 0  0 a0; [01] 0  0 a3; "
              "[5] 0 f1 f2 f3 f5 f6 5 <null>; [05] 0 f1 f2 f3 f5 f6 5 <null>; [6] 0 f4 5 <null>; "
              "[x] 0  5 <null>; 0: 7no-id 0no-id 1~ 12~ F~; 1: 1~ 1~ 1~ 12~ F~; "
              "2: 7two 1~ 0two Fm2 F~; 3: 1~ 1~ 1~ 13c3 F~; 4: 1~ 0e4 1~ 15t4 0e4; "
              "5: 1~ 1~ 1~ Fm5 F~; 6: 1~ 1~ 1~ 12~ F~; "
              "7: 1~ 0other 1~ 12~ F~; 8: 1~ 0prefixed 1~ 12~ F~; 4294967293: 1~ 1~ 1~ 12~ F~; "
              "4294967295: 7minus 1~ 0minus 12~ 0no-id; {2} 0 1 REP_DOC_TYPE_TG1; "
              "{02} 0 2 REP_DOC_TYPE_TG1; {-1} 0 0 REP_DOC_TYPE_TG1; {} 0 0 REP_DOC_TYPE_TG1; "
              "{x} 0 0 REP_DOC_TYPE_TG1; {9} 0 0 ; F two f1 f2 f3 f5 f6 | 0two F F F 24");
  }
}

}  // namespace
}  // namespace kaltest
