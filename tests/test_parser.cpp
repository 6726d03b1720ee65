// KalVorlaParser: its locale switch, loading (plain files, archives, manifests, the shared
// archive, "http://" names, versions), what loading records, and the reads over it.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "KalFiles.h"
#include "KalFormatConstants.h"
#include "KalVorlaParser.h"
#include "TestDocuments.h"

using P = KalVorlaParser;

// White-box access to the parser, which names this struct its friend.
struct KalVorlaParserInspector {
  static bool ArchiveOpen() { return P::_pZipFile != nullptr; }
  static unsigned int EntryCount() { return P::_NbZippedFiles; }
  static bool OwnsArchive(const P& p) { return p._OwnsArchive != 0; }
  static std::string TempDirectory(const P& p) { return kaltest::Str(p._TempDirectory); }
  static std::string DocumentDir(const P& p) { return kaltest::Str(p._DocumentDirectory); }
  // Puts a hand-made element where the parser keeps its product structure (never freed).
  static void SetStructure(P& p, KalLightXmlElementItf* e) { p._pProductStructureNode = e; }
  // Makes the lookups scan instead of using their indexes.
  static void UsePlainScans(P& p) { p._PlainScans = true; }
  // Hand-made containers and list entries, null ones included (never freed by the parser).
  static void SetRepresentationSet(P& p, KalLightXmlElementItf* e) {
    p._pGeometricRepresentationSetNode = e;
  }
  static void AppendFormat(P& p, KalLightXmlElementItf* e) { p._RepFormatList.Append(e); }
};

namespace {

using Inspector = KalVorlaParserInspector;
using kaltest::Entity;
using kaltest::FakeElement;
using kaltest::NameOf;
using kaltest::Str;
using kaltest::VorlaXml;

// A document whose root reference carries `name`, so a test can tell which file it loaded.
std::string Doc(const std::string& name, const std::string& version = "1.0") {
  const std::string ref = "<Reference3D xsi:type='Reference3DType' id='1' name='" + name + "'/>";
  return VorlaXml("<ProductStructure root='1'>" + ref + "</ProductStructure>", version);
}

// The file path a parser reports and the name of its root reference.
std::string Loaded(P& parser) {
  KalUnicodeString path;
  KalLightXmlElementItf* root = nullptr;
  parser.GetFilePath(path);
  parser.GetProductStructureRootReference(&root);
  return Str(path) + " " + NameOf(root);
}

// Sets (or, with null, unsets) an environment variable for the life of the object.
struct ScopedEnv {
  ScopedEnv(const char* n, const char* value) : name(n), had(std::getenv(n) != nullptr) {
    if (had) old = std::getenv(n);
    value ? setenv(n, value, 1) : unsetenv(n);
  }
  ~ScopedEnv() { had ? setenv(name.c_str(), old.c_str(), 1) : unsetenv(name.c_str()); }
  std::string name, old;
  bool had;
};

// The process reads in "C" while a parser lives. The second parser saves the "C" set by the
// first, so the order of destruction decides which locale the process is left in.
TEST(ParserLocale, EachParserRestoresTheLocaleItSaved) {
  const std::string original = std::setlocale(LC_ALL, nullptr);
  for (const bool firstDiesFirst : {false, true}) {
    SCOPED_TRACE(firstDiesFirst ? "creation order" : "reverse order");
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    auto first = std::make_unique<P>(), second = std::make_unique<P>();
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
    (firstDiesFirst ? first : second).reset();
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), firstDiesFirst ? "C.UTF-8" : "C");
    (firstDiesFirst ? second : first).reset();
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), firstDiesFirst ? "C" : "C.UTF-8");
  }
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
  kaltest::TempDir _Dir;
};

// Paths are kept as given. KalTemp is taken as it is, even empty; only an unset one falls back
// to the platform's directory. An empty path fails before anything is set; any later failure
// keeps the tree.
TEST_F(Loading, PlainFilesLoadWithoutAnArchiveOrFailKeepingTheirTree) {
  const std::string plain = Doc("plain");
  const std::tuple<const char*, const char*, const char*, HRESULT> cases[] = {
      {"doc.xml", plain.c_str(), "/kal/temp", S_OK},
      {"", nullptr, "/kal/temp", E_FAIL},
      {"cut.xml", "<Model><Header><SchemaVersion>1.0", nullptr, E_FAIL},
      {"childless-root.xml", "<Model/>", "", E_FAIL},
      {"no-product-structure.xml", "<Model><Header/><DefaultView/></Model>", "", E_FAIL}};
  // name "": the empty path; content null: no file; kalTemp null: unset
  for (const auto& [name, content, kalTemp, code] : cases) {
    SCOPED_TRACE(name);
    if (content) kaltest::WriteFile(_Dir.File(name), content);
    const std::string path = *name ? _Dir.Path() + "/./" + name : "";
    ScopedEnv scoped("KalTemp", kalTemp);
    P parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), code);
    EXPECT_EQ(Loaded(parser), path + (code == S_OK ? " plain" : " <null>"));
    EXPECT_FALSE(Inspector::OwnsArchive(parser));
    EXPECT_EQ(Inspector::DocumentDir(parser), path.empty() ? "" : _Dir.Path() + "/.");
    EXPECT_EQ(Inspector::TempDirectory(parser), path.empty() ? ""
                                                : kalTemp    ? kalTemp
                                                             : Str(KalGetTempDirectory()));
    KalLightXmlElementItf* root = nullptr;
    EXPECT_EQ(parser.GetVorlaRootNode(&root), S_OK);
    EXPECT_EQ(root != nullptr, !path.empty());
  }
}

// Archives of stored entries; a changed byte breaks an entry's checksum so that it reads short.
// A manifest that is absent, no XML or without Root falls back to the archive's name (an entry
// may bear it); one that reads short fails before the file path is set.
TEST_F(Loading, ArchivesLoadTheEntryTheManifestNamesElseTheOneOfTheArchivesName) {
  using Case =
      std::tuple<const char*, const char*, const char*, bool, HRESULT, const char*, const char*>;
  const Case cases[] = {
      {"named root", "<Root>docs/a.xml</Root>", nullptr, false, S_OK, "docs/a.xml", "docs-a"},
      {"first Root", "<Root>b.xml</Root><Root>a.xml</Root>", nullptr, false, S_OK, "b.xml", "b"},
      {"no such entry", "<Root>gone.xml</Root>", nullptr, false, E_FAIL, "gone.xml", "<null>"},
      {"root not XML", "<Root>broken.xml</Root>", nullptr, false, E_FAIL, "broken.xml", "<null>"},
      {"root short", "<Root>a.xml</Root>", "name='a'", false, E_FAIL, "a.xml", "<null>"},
      {"manifest short", "<Root>a.xml</Root>", "<Root>", true, E_FAIL, "", "<null>"},
      {"no manifest, no entry", nullptr, nullptr, false, E_FAIL, "pack.vorla", "<null>"},
      {"no manifest", nullptr, nullptr, true, S_OK, "pack.vorla", "self"},
      {"manifest not XML", "Root=a.xml <<<", nullptr, true, S_OK, "pack.vorla", "self"},
      {"no Root child", "<Other>a.xml</Other>", nullptr, true, S_OK, "pack.vorla", "self"}};
  char real[PATH_MAX];
  ASSERT_NE(::realpath(_Dir.Path().c_str(), real), nullptr);
  const std::string archive = _Dir.File("pack.vorla");
  // manifest: its content, null for none; damage: the text whose first byte is changed
  for (const auto& [label, manifest, damage, selfEntry, code, filePath, rootName] : cases) {
    SCOPED_TRACE(label);
    std::vector<kaltest::Entry> entries = {{"a.xml", Doc("a"), false},
                                           {"b.xml", Doc("b"), false},
                                           {"docs/a.xml", Doc("docs-a"), false},
                                           {"broken.xml", "<Model><Header>", false}};
    if (manifest)
      entries.push_back(
          {"Manifest.xml", std::string("<Manifest>") + manifest + "</Manifest>", false});
    if (selfEntry) entries.push_back({"pack.vorla", Doc("self"), false});
    kaltest::WriteArchive(archive, entries);
    if (damage) {
      std::string bytes = kaltest::ReadFile(archive);
      ASSERT_NE(bytes.find(damage), std::string::npos);
      bytes[bytes.find(damage)] ^= 1;
      kaltest::WriteFile(archive, bytes);
    }
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

// While the archive is open, other parsers' paths name its entries; only its owner closes it.
// A second load on the owner fails on the tables the first dropped; the first tree lives on.
TEST_F(Loading, OtherParsersReadEntriesOfTheArchiveTheOwnerKeepsOpen) {
  const std::string archive = _Dir.File("pack.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("main"), {{"child.vorla", Doc("child")}});
  auto owner = std::make_unique<P>();
  ASSERT_EQ(owner->InitParsing(archive.c_str()), S_OK);
  auto reader = std::make_unique<P>();
  EXPECT_EQ(reader->InitParsing("child.vorla"), S_OK);
  EXPECT_EQ(Loaded(*reader), "child.vorla child");
  EXPECT_FALSE(Inspector::OwnsArchive(*reader));
  {  // Even the archive's own path names no entry.
    P stranger;
    EXPECT_EQ(stranger.InitParsing(archive.c_str()), E_FAIL);
    EXPECT_EQ(Loaded(stranger), archive + " <null>");
  }
  EXPECT_TRUE(Inspector::ArchiveOpen());
  EXPECT_EQ(owner->InitParsing("child.vorla"), E_FAIL);
  EXPECT_EQ(Loaded(*owner), "child.vorla main");
  EXPECT_TRUE(Inspector::OwnsArchive(*owner));
  owner.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
  EXPECT_EQ(Loaded(*reader), "child.vorla child");
}

// Versions compare as integers, text that does not convert as 0; only the first Header counts.
// A refused document stops before the containers and the dropping of empty tables (a lookup
// in a kept empty table clears its output, in a dropped one leaves it alone).
TEST_F(Loading, SchemaVersionDecidesAcceptance) {
  auto v = [](const char* version) {
    return std::string("<Header><SchemaVersion>") + version + "</SchemaVersion></Header>";
  };
  // clang-format off
  const std::pair<std::string, HRESULT> cases[] = {
      {v("2.00"), S_OK}, {v("2.1"), kVorlaVersionNewerAccepted}, {v("3.0"), kVorlaVersionRefused},
      {v("v3.0"), S_OK}, {"<Header/>", S_OK}, {"<Header/>" + v("3.0"), S_OK},
      {"<Other/><Header><Author/><SchemaVersion>3.0</SchemaVersion></Header>", kVorlaVersionRefused},
      {"<h:Header><SchemaVersion>1.0</SchemaVersion></h:Header>", E_FAIL}};
  // clang-format on
  const std::string path = _Dir.File("v.xml");
  FakeElement stale;
  for (const auto& [header, code] : cases) {
    SCOPED_TRACE(header);
    kaltest::WriteFile(path, "<Model>" + header + "<ProductStructure/><DefaultView/></Model>");
    P parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), code);
    EXPECT_EQ(parser.CheckVorlaVersion(), code);
    KalLightXmlElementItf *view = nullptr, *instance = &stale;
    parser.GetDefaultViewNode(&view);
    EXPECT_EQ(view != nullptr, code >= 0);
    EXPECT_EQ(parser.GetInstance3DFromLocalID(1, &instance), E_FAIL);
    EXPECT_EQ(instance == nullptr, code < 0);
  }
}

// "http://" names are copied to KalTemp/local.vorla, deleted once read, before the version
// check; a failed copy leaves nothing. Plain XML is read from the URL itself, so it fails and
// the copy stays.
TEST_F(Loading, HttpNamesAreReadThroughALocalCopy) {
  kaltest::HttpServer server;
  const std::string archive = _Dir.File("served.vorla");
  auto pack = [&](const std::string& xml) {
    kaltest::WriteVorlaArchive(archive, "root.xml", xml);
    return kaltest::ReadFile(archive);
  };
  const std::string served = pack(Doc("served")), newer = pack(Doc("served", "3.0"));
  const std::string url = server.Url("/doc"), copy = _Dir.File("local.vorla");
  const std::string dir = _Dir.Path(), urlDir = url.substr(0, url.rfind('/'));
  const std::tuple<kaltest::HttpServer::Route, HRESULT, const char*, std::string> cases[] = {
      {{200, served, -1}, S_OK, "root.xml served", dir},
      {{200, newer, -1}, kVorlaVersionRefused, "root.xml <null>", dir},
      {{200, served, 10}, E_FAIL, " <null>", ""},
      {{200, Doc("plain"), -1}, E_FAIL, nullptr, urlDir}};
  ScopedEnv kalTemp("KalTemp", dir.c_str());
  for (const auto& [route, code, loaded, documentDir] : cases) {  // loaded null: read from the URL
    SCOPED_TRACE(loaded ? loaded : "plain XML");
    server.Set("/doc", route);
    P parser;
    EXPECT_EQ(parser.InitParsing(url.c_str()), code);
    EXPECT_EQ(Loaded(parser), loaded ? loaded : url + " <null>");
    EXPECT_EQ(Inspector::DocumentDir(parser), documentDir);
    ASSERT_EQ(kaltest::FileExists(copy), !loaded);
  }
  EXPECT_EQ(kaltest::ReadFile(copy), Doc("plain"));  // left by the last case
}

using Accessor = HRESULT (P::*)(KalLightXmlElementItf**);
using Lookup = HRESULT (P::*)(int, KalLightXmlElementItf**);
// The accessors, with what each finds in the document of RootChildrenMaterialsAndExtensions.
// clang-format off
const std::pair<Accessor, const char*> kAccessors[] = {
    {&P::GetProductStructureRootReference, "root-ref"}, {&P::GetDefaultViewNode, "view-2"},
    {&P::GetPresentationSetNode, "pres-2"}, {&P::GetMeasureSetNode, "measures"},
    {&P::GetSectionSetNode, "<null>"}, {&P::GetAnimationSetNode, "anim"},
    {&P::GetVorlaRootNode, ""}, {&P::GetSpecificExtensionSetNode, "extensions"},
    {&P::GetGraphicMaterialSetNode, "materials"}};
// clang-format on
// Instance3D, Reference3D, InstanceRep, ReferenceRep.
const Lookup kLookups[] = {&P::GetInstance3DFromLocalID, &P::GetReference3DFromLocalID,
                           &P::GetInstanceRepFromLocalID, &P::GetReferenceRepFromLocalID};
const auto kCounters = {&P::GetNumberOfInstances, &P::GetNumberOfReferences,
                        &P::GetNumberOfRepresentations};

// Outputs are preset to _Stale, named "", so that clearing them ("<null>") shows.
class Queries : public ::testing::Test {
 protected:
  void Load(const std::string& body) {
    kaltest::WriteFile(_Dir.File("doc.xml"), VorlaXml(body));
    ASSERT_EQ(_Parser.InitParsing(_Dir.File("doc.xml").c_str()), S_OK);
  }
  // Checks the code of `method` called with `args` and an output; gives the output's name.
  template <class Method, class... Args>
  std::string Found(HRESULT code, Method method, Args... args) {
    KalLightXmlElementItf* node = &_Stale;
    EXPECT_EQ((_Parser.*method)(args..., &node), code);
    return NameOf(node);
  }

  kaltest::TempDir _Dir;
  P _Parser;
  FakeElement _Stale;
};

// Before loading: lookups find empty tables and clear their output; without an archive the
// root file is the path's file name; without a product structure the id search is refused.
TEST_F(Queries, BeforeLoadingAccessorsGiveNullAndPassesLookupsAndCountsFail) {
  for (const auto& [get, found] : kAccessors) {
    EXPECT_EQ(Found(S_OK, get), "<null>");
    EXPECT_EQ((_Parser.*get)(nullptr), E_FAIL);
  }
  for (Lookup lookup : kLookups) {
    EXPECT_EQ(Found(E_FAIL, lookup, 1), "<null>");
    EXPECT_EQ((_Parser.*lookup)(1, nullptr), E_FAIL);
  }
  for (auto pass : {&P::RetrieveContainerNodes, &P::RetrieveRootReferenceNode,
                    &P::RetrieveApplicativeSetNodes, &P::CheckVorlaVersion})
    EXPECT_EQ((_Parser.*pass)(), E_FAIL);
  int count = 42;
  for (auto counter : kCounters) EXPECT_EQ((_Parser.*counter)(count), E_FAIL);
  EXPECT_EQ(count, 42);
  KalUnicodeString text("stale"), root("stale");
  EXPECT_EQ(_Parser.GetFilePath(text), S_OK);
  EXPECT_EQ(_Parser.GetVorlaRootFilePath("/some/where/doc.vorla", root), S_OK);
  EXPECT_EQ(Str(text) + "|" + Str(root), "|doc.vorla");
  EXPECT_EQ(Found(E_INVALIDARG, &P::GetVorlaNodeFromOtherIDAttribute, 7, "Other", "owner"), "");
}

// Root children are known by the name after the first colon, the last one winning; without a
// root attribute the root reference has id 0. Materials need a positive id and the exact tag,
// the first with an id winning. Extensions are indexed as written (none: -1), id 0 is refused.
// A miss leaves the output alone. Empty tables are dropped: their lookups leave the output
// alone; the pass that needs them fails.
TEST_F(Queries, RootChildrenMaterialsAndExtensionsAreRecorded) {
  Load(
      "<ProductStructure><Reference3D xsi:type='Reference3DType' id='0' name='root-ref'/>"
      "</ProductStructure><x:DefaultView name='view-1'/><DefaultView name='view-2'/>"
      "<g:GraphicMaterialSet name='materials'><GraphicMaterial id='5' name='m5'/>"
      "<GraphicMaterial id='0' name='zero'/><GraphicMaterial name='no-id'/>"
      "<GraphicMaterial id='-3' name='negative'/><m:GraphicMaterial id='6' name='prefixed'/>"
      "<Other id='8' name='other'/><GraphicMaterial id='2' name='m2'/>"
      "<GraphicMaterial id='5' name='m5-again'/></g:GraphicMaterialSet>"
      "<AnimationSet name='anim'/><a:b:AnimationSet name='two-prefixes'/>"
      "<y:MeasureSet name='measures'/><PresentationSet name='pres-1'/>"
      "<p:PresentationSet name='pres-2'/><s:SpecificExtensionSet name='extensions'>"
      "<SpecificExtension id='4' name='e4'/><SpecificExtension name='no-id'/>"
      "<SpecificExtension id='0' name='e0'/><Other id='7' name='other'/>"
      "<x:SpecificExtension id='8' name='prefixed'/></s:SpecificExtensionSet>"
      "<Wrapper><SectionSet name='nested'/></Wrapper>");
  for (const auto& [get, found] : kAccessors) EXPECT_EQ(Found(S_OK, get), found);
  const auto M = &P::GetGraphicMaterialNode, X = &P::GetSpecificExtensionNode;
  const HRESULT none = kVorlaNoSuchMaterial;  // untyped materials are handed out with E_FAIL
  const std::tuple<decltype(M), unsigned int, HRESULT, const char*> cases[] = {
      {M, 5, E_FAIL, "m5"},       {M, 2, E_FAIL, "m2"},       {M, 0, none, ""},
      {M, 4294967295u, none, ""}, {M, 4294967293u, none, ""}, {M, 6, none, ""},
      {M, 8, none, ""},           {X, 4, S_OK, "e4"},         {X, 4294967295u, S_OK, "no-id"},
      {X, 0, E_FAIL, ""},         {X, 7, E_FAIL, ""},         {X, 8, E_FAIL, ""}};
  for (const auto& [lookUp, id, code, found] : cases)
    EXPECT_EQ(Found(code, lookUp, id), found) << id;
  EXPECT_EQ(_Parser.GetSpecificExtensionNode(4, nullptr), E_FAIL);
  for (Lookup lookup : {kLookups[0], kLookups[2], kLookups[3]})
    EXPECT_EQ(Found(E_FAIL, lookup, 0), "");
  EXPECT_EQ(_Parser.RetrieveRootReferenceNode(), E_FAIL);
}

// Kinds come from the type attribute; elements without an id are not indexed; counts compare
// tags. Instance 2 precedes its reference; instance 4's parent 9 gets a placeholder. The root
// id is a number; the later reference with it wins, keeping the children. The id-attribute
// search compares numbers among direct children of a tag: the first match wins, a miss is S_OK
// with null, text that is no number matches no id.
TEST_F(Queries, ProductStructurePassIndexesElementsAndChildLists) {
  Load("<ProductStructure root='001'>" + Entity("Instance3D", "id='2' name='i2'", "1") +
       "<Reference3D xsi:type='Reference3DType' id='1' name='r1-first'/>" +
       Entity("InstanceRep", "id='5' name='ir5'", "1") +
       "<ReferenceRep xsi:type='ReferenceRepType' id='6' name='rr6'/>" +
       Entity("Instance3D", "id='3' name='i3' owner='007'", "1") +
       Entity("Instance3D", "id='4' name='i4'", "9") +
       "<Thing xsi:type='Reference3DType' id='10' name='typed-thing'/>"
       "<Reference3D xsi:type='Other' id='11' name='other-type'/>" +
       Entity("Instance3D", "name='no-id'", "1") + Entity("Instance3D", "id='13' name='orphan'") +
       "<Reference3D xsi:type='Reference3DType' id='01' name='r1'/>"
       "<RepFormat xsi:type='RepFormatType' name='f1'/><RepFormat id='3' name='f-with-id'/>"
       "<Other xsi:type='RepFormatType' name='f2'/><RepFormat name='untyped'/>"
       "<Wrapper><Reference3D xsi:type='Reference3DType' id='14' name='nested'/>"
       "<RepFormat xsi:type='RepFormatType' name='nested'/></Wrapper></ProductStructure>");
  const std::tuple<int, int, HRESULT, const char*> cases[] = {
      {0, 2, S_OK, "i2"},       {0, 13, S_OK, "orphan"},   {0, 5, E_FAIL, "<null>"},
      {0, 0, E_FAIL, "<null>"}, {1, 1, S_OK, "r1"},        {1, 10, S_OK, "typed-thing"},
      {1, 9, S_OK, "<null>"},   {1, 11, E_FAIL, "<null>"}, {1, 14, E_FAIL, "<null>"},
      {2, 5, S_OK, "ir5"},      {2, 2, E_FAIL, "<null>"},  {3, 6, S_OK, "rr6"},
      {3, 5, E_FAIL, "<null>"}};
  for (const auto& [kind, id, code, found] : cases)  // kind: index in kLookups
    EXPECT_EQ(Found(code, kLookups[kind], id), found) << kind << " " << id;
  EXPECT_EQ(Found(S_OK, &P::GetProductStructureRootReference), "r1");
  KalRawCollPV children;
  EXPECT_EQ(_Parser.GetInstancesFromReference3D(1, &children), S_OK);
  EXPECT_EQ(kaltest::Names(children), "i2 i3");
  EXPECT_EQ(_Parser.GetInstancesFromReference3D(9, &children), S_OK);
  EXPECT_EQ(kaltest::Names(children), "i4");
  std::vector<int> counts;
  for (auto counter : kCounters) EXPECT_EQ((_Parser.*counter)(counts.emplace_back(-1)), S_OK);
  EXPECT_EQ(counts, (std::vector<int>{5, 3, 3}));

  const std::tuple<int, const char*, const char*, const char*> searches[] = {
      {7, "Instance3D", "owner", "i3"},
      {1, "Reference3D", "id", "r1-first"},
      {10, "Reference3D", "id", "<null>"},
      {14, "Reference3D", "id", "<null>"},
      {0, "Instance3D", "name", "<null>"}};
  for (const auto& [id, tag, attribute, found] : searches)
    EXPECT_EQ(Found(S_OK, &P::GetVorlaNodeFromOtherIDAttribute, id, tag, attribute), found)
        << id << " " << tag << " " << attribute;
  EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(7, "Instance3D", "owner", nullptr),
            E_INVALIDARG);
}

// Null children (never in a parsed document): counts skip them, comparing whole tags; the id
// search fails on them, as on a childless structure, clearing its output.
TEST_F(Queries, CountsSkipNullChildrenTheIdSearchFailsOnThem) {
  FakeElement nested("Instance3D"), b("Instance3D"), a("Instance3D", {&nested});
  FakeElement prefixed("x:Instance3D"), childless("ProductStructure");
  FakeElement structure("ProductStructure", {&a, nullptr, &prefixed, nullptr, &b});
  const std::tuple<FakeElement*, const char*, int> cases[] = {{&structure, "Instance3D", 2},
                                                              {&structure, "x:Instance3D", 1},
                                                              {&structure, "instance3d", 0},
                                                              {&childless, "Instance3D", 0}};
  for (const auto& [fake, tag, want] : cases) {
    SCOPED_TRACE(tag);
    Inspector::SetStructure(_Parser, fake);
    int count = 99;
    EXPECT_EQ(_Parser.CountOccurences(tag, count), S_OK);
    EXPECT_EQ(count, want);
    EXPECT_EQ(Found(E_FAIL, &P::GetVorlaNodeFromOtherIDAttribute, 7, "Other", "owner"), "<null>");
  }
}

// FromType matches the type attribute, FromName the tag, of direct children; the first wins.
// A childless parent is no match by type but a failure by name; a null child met first fails;
// a null parent fails leaving the output alone. A value is the text of the first child of a
// tag; a missing child reads as empty.
TEST_F(Queries, ChildSearchesFindTheFirstDirectChildByTypeOrByTag) {
  FakeElement empty("Empty", {}, "empty"), a1("Item", {}, "a1", "A", "first");
  FakeElement b1("Item", {}, "b1", "B", "second"), a2("Other", {}, "a2", "A");
  FakeElement deep("Deep", {}, "deep", "Deep", "deep text"), wrapper("Wrapper", {&deep});
  FakeElement probe("Probe", {&empty, &a1, &b1, &a2, &wrapper}, "probe");
  FakeElement miss("Miss", {}, "miss", "Miss"), broken("Parent", {&miss, nullptr});
  using Node = KalLightXmlElementItf*;
  Node p = &probe, e = &empty, b = &broken, n = nullptr;
  const auto T = &P::GetVorlaChildNodeFromType, N = &P::GetVorlaChildNodeFromName;
  const std::tuple<decltype(T), Node, const char*, HRESULT, const char*> cases[] = {
      {T, p, "A", S_OK, "a1"},           {T, p, "Deep", S_FALSE, "<null>"},
      {T, p, "Item", S_FALSE, "<null>"}, {T, p, "", S_OK, "empty"},
      {T, e, "A", S_FALSE, "<null>"},    {T, n, "A", E_FAIL, ""},
      {T, b, "Miss", S_OK, "miss"},      {T, b, "B", E_FAIL, "<null>"},
      {N, p, "Item", S_OK, "a1"},        {N, p, "Deep", S_FALSE, "<null>"},
      {N, p, "A", S_FALSE, "<null>"},    {N, e, "Item", E_FAIL, "<null>"},
      {N, n, "Item", E_FAIL, ""},        {N, b, "Miss", S_OK, "miss"},
      {N, b, "B", E_FAIL, "<null>"}};
  for (const auto& [search, parent, wanted, code, found] : cases)  // found "": untouched
    EXPECT_EQ(Found(code, search, parent, wanted), found)
        << (search == T ? "Type " : "Name ") << wanted;
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromType(p, "A", nullptr), E_FAIL);
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromName(p, "Item", nullptr), E_FAIL);

  const auto V = &P::GetValueString, A = &P::GetAttributeString;  // a missing attribute is ""
  // clang-format off
  const std::tuple<decltype(V), Node, HRESULT, const char*, const char*> reads[] = {
      {V, p, S_OK, "Item", "first"}, {V, p, S_OK, "Deep", ""}, {V, p, S_OK, "Missing", ""},
      {V, e, E_FAIL, "Item", ""}, {V, b, E_FAIL, "Item", ""},
      {V, n, E_INVALIDARG, "Item", "stale"}, {A, n, E_INVALIDARG, "name", "stale"},
      {A, p, S_OK, "name", "probe"}, {A, p, S_OK, "missing", ""}};
  // clang-format on
  for (const auto& [read, element, code, name, want] : reads) {
    KalUnicodeString value("stale");
    EXPECT_EQ((_Parser.*read)(name, element, value), code) << name;
    EXPECT_EQ(Str(value), want) << name;
  }
}

// Blanks before a value are skipped; next is the blank after it, -1 at the end. A piece that
// does not convert (or is empty) gives S_OK and leaves int and double alone. A list of one
// number without a blank, read from 0, loops for ever by design, so none is read.
TEST_F(Queries, ListReaderCutsOneValueAndReportsTheBlankAfterItInAllThreeTypes) {
  const std::tuple<const char*, int, int, int> cases[] = {
      {"1 2 3", 0, 1, 1}, {"1 2 3", 4, 3, -1}, {"  7 8", 0, 7, 3}, {"1  2", 1, 2, -1},
      {"12 34", 1, 2, 2}, {"5 ", 0, 5, 1},     {"a b", 0, 42, 1},  {"1 2", 3, 42, -1}};
  for (const auto& [text, start, value, next] : cases) {  // value 42: the piece does not convert
    SCOPED_TRACE(std::string("\"") + text + "\" from " + std::to_string(start));
    KalUnicodeString list(text);
    int asInt = 42, intNext = -9, doubleNext = -9, floatNext = -9;
    double asDouble = 42;
    float asFloat = 0;
    EXPECT_EQ(_Parser.GetNextValueInList(list, start, asInt, intNext), S_OK);
    EXPECT_EQ(_Parser.GetNextValueInList(list, start, asDouble, doubleNext), S_OK);
    EXPECT_EQ(_Parser.GetNextValueInList(list, start, asFloat, floatNext), S_OK);
    EXPECT_EQ(asInt, value);
    EXPECT_EQ(asDouble, value);
    EXPECT_TRUE(value == 42 || asFloat == value) << asFloat;  // else unspecified
    EXPECT_EQ((std::vector<int>{intNext, doubleNext, floatNext}), std::vector<int>(3, next));
  }
}

// Vectors take 3 values, matrices 12, reading on from next + 1, so short lists wrap around; a
// tab stays inside a piece; doubles are converted directly. An empty text writes nothing.
TEST_F(Queries, VectorAndMatricesReadValuesInTextOrderWrappingAroundShortLists) {
  const float kStale = -777.0f;
  const std::pair<const char*, std::vector<double>> cases[] = {
      {"0.1 -2.5 3e-3 4 0.7 6.25 -0 8.125 1e10 10 0.333 12 13",
       {0.1, -2.5, 3e-3, 4, 0.7, 6.25, -0.0, 8.125, 1e10, 10, 0.333, 12}},
      // Hexadecimal, out of range, bare points, a sign and a tab inside pieces: as strtod reads.
      {"0x1p3 1e999 .5 5. 1e-310 -7e-1 2\t9 +4 0.1e1 1e 8 9",
       {8, HUGE_VAL, 0.5, 5, 1e-310, -0.7, 2, 4, 1, 1, 8, 9}},
      {"1\t2 3", {1, 3, 1, 3, 1, 3, 1, 3, 1, 3, 1, 3}},
      {" 5", {5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5}},
      {"", {}}};
  for (const auto& [text, values] : cases) {
    SCOPED_TRACE(text);
    FakeElement element("V", {}, "", "", text);
    std::vector<float> vector(13, kStale), floats(13, kStale);
    std::vector<double> doubles(13, kStale), want(values);
    want.resize(13, kStale);
    EXPECT_EQ(_Parser.ConvertVector(&element, vector.data()), *text ? S_OK : E_FAIL);
    EXPECT_EQ(_Parser.ConvertMatrix(&element, floats.data()), *text ? S_OK : E_FAIL);
    EXPECT_EQ(_Parser.ConvertMatrix(&element, doubles.data()), *text ? S_OK : E_FAIL);
    EXPECT_EQ(doubles, want);
    EXPECT_EQ(floats, std::vector<float>(want.begin(), want.end()));
    std::fill(want.begin() + 3, want.end(), kStale);
    EXPECT_EQ(vector, std::vector<float>(want.begin(), want.end()));
    EXPECT_EQ(_Parser.ConvertVector(nullptr, vector.data()), E_INVALIDARG);
    EXPECT_EQ(_Parser.ConvertMatrix(&element, static_cast<float*>(nullptr)), E_INVALIDARG);
    EXPECT_EQ(_Parser.ConvertMatrix(nullptr, doubles.data()), E_INVALIDARG);
  }
}

// Both overloads split alike, the string one keeping the id as written. Outputs are preset to
// type 77, locality 9, id -99 and "stale"; expecting these means "left alone". Any locality
// but "loc" is external; an unknown or miscased kind leaves the type alone and parsing goes
// on; the local id is the whole rest; the file name runs to the first ".vorla" followed by
// "#"; no ".vorla#" is still a success; the prefix may be anywhere, as parsing starts at index
// 10; without it nothing is written.
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
      {"urn:vorla:Reference:loc:1", E_FAIL, 77, 9, "stale", -99, "stale"},
      {"", E_FAIL, 77, 9, "stale", -99, "stale"}};
  // The id as text (string overload; null: neither id nor file name is pinned), then as number.
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

// Every indexed lookup answers as the scan it replaces: first matches, matches in order,
// carried-over owners and ids, ids that do not convert, and null entries met on the way.
TEST(IndexedLookups, AnswerExactlyAsThePlainScans) {
  kaltest::TempDir dir;
  const auto format = [](const char* owner, const char* name) {
    return std::string("<RepFormat xsi:type='RepFormatType' name='") + name + "'" + owner +
           "><format>TESSELLATED</format><version>1.0</version></RepFormat>";
  };
  const auto aspect = [](const char* owner, const char* name) {
    return std::string("<A xsi:type='GraphicPropertiesAspectType'") + owner +
           "><GraphicProperties name='" + name + "'/></A>";
  };
  const auto rep = [](const char* id, const char* name, const char* data) {
    return std::string("<Representation") + id + " name='" + name +
           "' format='TESSELLATED' version='1.0'>" + data + "</Representation>";
  };
  kaltest::WriteFile(
      dir.File("doc.xml"),
      VorlaXml("<ProductStructure root='1'>" + format("", "f0") + format(" owner='5'", "f1") +
               format("", "f2") + format(" owner='x'", "f3") + format(" owner='6'", "f4") +
               format(" owner='05'", "f5") + aspect(" aspectOwner='1'", "a1") +
               aspect(" aspectOwner='1'", "a1-later") + aspect("", "a-none") +
               aspect(" aspectOwner='01'", "a01") + aspect(" aspectOwner=''", "a-empty") +
               "</ProductStructure><GraphicMaterialSet><GraphicMaterial id='3' "
               "xsi:type='ColorMaterialType'/><GraphicMaterial id='3' xsi:type='Other'/>"
               "<GraphicMaterial id='4' xsi:type='TextureMaterialType'/></GraphicMaterialSet>"
               "<GeometricRepresentationSet>" + rep("", "no-id", "") +
               rep(" id='2'", "two", "<AssociatedXML/>") + rep(" id='x'", "carry", "") +
               rep(" id='2'", "two-later", "<AssociatedData>QQ==</AssociatedData>") +
               rep(" id='-1'", "minus", "") + rep(" id='02'", "zero-two", "<AssociatedData>QUI="
                                                                     "</AssociatedData>") +
               "</GeometricRepresentationSet><SpecificExtensionSet><SpecificExtension id='7' "
               "name='t7'/><SpecificExtension name='t-none'/></SpecificExtensionSet>"));
  // Everything the lookups give for a run of questions, as one text.
  const auto ask = [&](P& p) {
    std::ostringstream out;
    for (const char* id : {"", "-1", "0", "1", "01", "5", "05", "6", "x"}) {
      FakeElement node("Node", {}, "", "", "", id);
      KalRawCollPV formats;
      KalLightXmlElementItf* found = nullptr;
      out << "[" << id << "] " << p.GetRepFormatsFromRepReference(&node, &formats) << " "
          << kaltest::Names(formats) << " | " << p.GetGraphicPropertiesNode(&node, &found) << " "
          << NameOf(found) << "\n";
    }
    for (unsigned int id : {0u, 1u, 2u, 3u, 4u, 7u, 0xFFFFFFFFu}) {
      KalLightXmlElementItf *a = nullptr, *b = nullptr, *c = nullptr, *m = nullptr;
      out << id << ": " << p.GetRepresentationNodeFromId(id, &a, 7) << NameOf(a) << " "
          << p.GetTechRepNodeFromId(id, &b, 0) << NameOf(b) << " "
          << p.GetRepresentationNode(id, &c) << NameOf(c) << " "
          << p.GetGraphicMaterialNode(id, &m) << (m != nullptr) << "\n";
    }
    for (const char* id : {"2", "02", "-1", "", "x", "9"}) {
      char* buffer = nullptr;
      unsigned int size = 0;
      KalUnicodeString tag;
      out << id << " " << p.GetBufferFromGeometricRepresentationID(id, buffer, size, tag) << " "
          << size << Str(tag) << "\n";
      delete[] buffer;
    }
    return out.str();
  };
  FakeElement two("Representation", {}, "two", "", "", "2");
  FakeElement broken("Set", {&two, nullptr, &two}), formatNode("Node", {}, "", "", "", "5");
  std::string answers[2];
  for (int scans = 0; scans < 2; ++scans) {
    P parser, withNulls;
    ASSERT_EQ(parser.InitParsing(dir.File("doc.xml").c_str()), S_OK);
    ASSERT_EQ(withNulls.InitParsing(dir.File("doc.xml").c_str()), S_OK);
    if (scans) {
      Inspector::UsePlainScans(parser);
      Inspector::UsePlainScans(withNulls);
    }
    answers[scans] = ask(parser);
    // A null entry: in the format list it ends the search in failure, in the set likewise
    // unless a match comes before it.
    Inspector::AppendFormat(withNulls, nullptr);
    Inspector::SetRepresentationSet(withNulls, &broken);
    KalRawCollPV formats;
    KalLightXmlElementItf *a = nullptr, *b = nullptr;
    std::ostringstream out;  // << sequences the calls before the outputs are read
    out << withNulls.GetRepFormatsFromRepReference(&formatNode, &formats) << " "
        << kaltest::Names(formats) << " | " << withNulls.GetRepresentationNodeFromId(2, &a, 0)
        << NameOf(a) << " " << withNulls.GetRepresentationNodeFromId(3, &b, 0) << "\n";
    answers[scans] += out.str();
  }
  EXPECT_EQ(answers[0], answers[1]);
  // A few answers pinned, so that both cannot drift together.
  for (const char* line :
       {"[5] 0 f1 f2 f3 f5 | 5 <null>\n", "[1] 0  | 0 a1\n", "[] 0  | 0 a-none\n",
        "2: 7two 1<null> 0two 120\n", "2 0 1REP_DOC_TYPE_TG1\n", "02 0 2REP_DOC_TYPE_TG1\n"}) {
    EXPECT_NE(answers[0].find(line), std::string::npos) << line << answers[0];
  }
  EXPECT_NE(answers[0].find(std::to_string(E_FAIL) + " f1 f2 f3 f5 | 0two " +
                            std::to_string(E_FAIL)),
            std::string::npos)
      << answers[0];
}

}  // namespace

