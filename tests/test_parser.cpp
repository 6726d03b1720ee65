// KalVorlaParser: its locale switch, loading (plain files, archives, manifests, the shared
// archive, "http://" names, versions), what loading records, and the reads over it.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KalFiles.h"
#include "KalFormatConstants.h"
#include "KalHashTable.h"
#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

using P = KalVorlaParser;
using kaltest::FakeElement;
using kaltest::NameOf;
using kaltest::Str;
using kaltest::VorlaXml;

std::vector<int> Ints(const KalRawCollint& collection) {
  std::vector<int> ints;
  for (int i = 1; i <= collection.Size(); ++i) ints.push_back(collection[i]);
  return ints;
}

}  // namespace

// White-box access to the parser, which names this struct its friend.
struct KalVorlaParserInspector {
  static bool ArchiveOpen() { return P::_pZipFile != nullptr; }
  static unsigned int EntryCount() { return P::_NbZippedFiles; }
  static bool OwnsArchive(const P& p) { return p._OwnsArchive != 0; }
  static std::string TempDirectory(const P& p) { return Str(p._TempDirectory); }
  static std::string DocumentDir(const P& p) { return Str(p._DocumentDirectory); }
  // Puts a hand-made element where the parser keeps its product structure (never freed).
  static void SetStructure(P& p, KalLightXmlElementItf* e) { p._pProductStructureNode = e; }

  using List = KalListPtrKalLightXmlElementItf P::*;
  static constexpr List kGraphicProperties = &P::_GraphicPropertiesList,
                        kRepFormats = &P::_RepFormatList, kMaterials = &P::_GraphicMaterialList;
  static std::vector<std::string> Names(const P& p, List l) {
    std::vector<std::string> names;
    for (int i = 1; i <= (p.*l).Size(); ++i) names.push_back(NameOf((p.*l)[i]));
    return names;
  }
  static std::vector<int> MaterialIds(const P& p) { return Ints(p._GraphicMaterialIds); }
  // The child ids of the Reference3D record of `id`, found the way the parser finds it.
  static std::vector<int> ReferenceChildren(const P& p, int id) {
    KalVorlaReferenceAndChild probe;
    probe.id = id;
    auto* r = static_cast<const KalVorlaReferenceAndChild*>(p._pReferenceTable->Locate(&probe));
    return r != nullptr ? Ints(r->children) : std::vector<int>();
  }
};

namespace {

using Inspector = KalVorlaParserInspector;

// A document whose root reference carries `name`, so a test can tell which file it loaded.
std::string Doc(const std::string& name, const std::string& version = "1.0") {
  const std::string ref = "<Reference3D xsi:type='Reference3DType' id='1' name='" + name + "'/>";
  return VorlaXml("<ProductStructure root='1'>" + ref + "</ProductStructure>", version);
}

std::string RootName(P& parser) {
  KalLightXmlElementItf* root = nullptr;
  parser.GetProductStructureRootReference(&root);
  return NameOf(root);
}

std::string FilePath(P& parser) {
  KalUnicodeString path;
  parser.GetFilePath(path);
  return Str(path);
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
    auto first = std::make_unique<P>();
    auto second = std::make_unique<P>();
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
  const struct {
    const char *name, *content, *kalTemp;  // name "": the empty path; null: missing, unset
    HRESULT code;
  } cases[] = {{"doc.xml", plain.c_str(), "/kal/temp", S_OK},
               {"", nullptr, "/kal/temp", E_FAIL},
               {"cut.xml", "<Model><Header><SchemaVersion>1.0", nullptr, E_FAIL},
               {"childless-root.xml", "<Model/>", "", E_FAIL},
               {"no-product-structure.xml", "<Model><Header/><DefaultView/></Model>", "", E_FAIL}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.content) kaltest::WriteFile(_Dir.File(c.name), c.content);
    const std::string path = *c.name ? _Dir.Path() + "/./" + c.name : "";
    ScopedEnv kalTemp("KalTemp", c.kalTemp);
    P parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), c.code);
    EXPECT_EQ(FilePath(parser), path);
    EXPECT_EQ(RootName(parser), c.code == S_OK ? "plain" : "<null>");
    EXPECT_FALSE(Inspector::OwnsArchive(parser));
    EXPECT_EQ(Inspector::DocumentDir(parser), path.empty() ? "" : _Dir.Path() + "/.");
    EXPECT_EQ(Inspector::TempDirectory(parser), path.empty() ? ""
                                                : c.kalTemp  ? c.kalTemp
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
  const struct {
    const char *label, *manifest, *damage;  // manifest content, null: none; damaged text
    bool selfEntry;
    HRESULT code;
    const char *filePath, *rootName;
  } cases[] = {
      {"named root", "<Root>docs/a.xml</Root>", nullptr, false, S_OK, "docs/a.xml", "docs-a"},
      {"first Root", "<Root>b.xml</Root><Root>a.xml</Root>", nullptr, false, S_OK, "b.xml", "b"},
      {"no such entry", "<Root>gone.xml</Root>", nullptr, false, E_FAIL, "gone.xml", "<null>"},
      {"root not XML", "<Root>broken.xml</Root>", nullptr, false, E_FAIL, "broken.xml", "<null>"},
      {"root short", "<Root>a.xml</Root>", "name='a'", false, E_FAIL, "a.xml", "<null>"},
      {"manifest short", "<Root>a.xml</Root>", "<Root>", true, E_FAIL, "", "<null>"},
      {"no manifest, no entry", nullptr, nullptr, false, E_FAIL, "pack.vorla", "<null>"},
      {"no manifest", nullptr, nullptr, true, S_OK, "pack.vorla", "self"},
      {"manifest not XML", "Root=a.xml <<<", nullptr, true, S_OK, "pack.vorla", "self"},
      {"no Root child", "<Other>a.xml</Other>", nullptr, true, S_OK, "pack.vorla", "self"},
  };
  char real[PATH_MAX];
  ASSERT_NE(::realpath(_Dir.Path().c_str(), real), nullptr);
  const std::string archive = _Dir.File("pack.vorla");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<kaltest::Entry> entries = {{"a.xml", Doc("a"), false},
                                           {"b.xml", Doc("b"), false},
                                           {"docs/a.xml", Doc("docs-a"), false},
                                           {"broken.xml", "<Model><Header>", false}};
    const std::string manifest = c.manifest ? c.manifest : "";
    if (c.manifest)
      entries.push_back({"Manifest.xml", "<Manifest>" + manifest + "</Manifest>", false});
    if (c.selfEntry) entries.push_back({"pack.vorla", Doc("self"), false});
    kaltest::WriteArchive(archive, entries);
    if (c.damage) {
      std::string bytes = kaltest::ReadFile(archive);
      ASSERT_NE(bytes.find(c.damage), std::string::npos);
      bytes[bytes.find(c.damage)] ^= 1;
      kaltest::WriteFile(archive, bytes);
    }
    KalVorlaImportUtilities::_VorlaArchiveFile = "";
    P parser;
    EXPECT_EQ(parser.InitParsing(archive.c_str()), c.code);
    EXPECT_EQ(FilePath(parser), c.filePath);
    EXPECT_EQ(RootName(parser), c.rootName);
    EXPECT_TRUE(Inspector::OwnsArchive(parser));
    EXPECT_EQ(Inspector::EntryCount(), entries.size());
    EXPECT_EQ(Inspector::DocumentDir(parser), real);
    EXPECT_EQ(Str(KalVorlaImportUtilities::_VorlaArchiveFile), "pack.vorla");
    KalUnicodeString root;
    EXPECT_EQ(parser.GetVorlaRootFilePath(archive.c_str(), root), *c.filePath ? S_OK : E_FAIL);
    EXPECT_EQ(Str(root), c.filePath);
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
  EXPECT_EQ(RootName(*reader), "child");
  EXPECT_EQ(FilePath(*reader), "child.vorla");
  EXPECT_FALSE(Inspector::OwnsArchive(*reader));
  {  // Even the archive's own path names no entry.
    P stranger;
    EXPECT_EQ(stranger.InitParsing(archive.c_str()), E_FAIL);
    EXPECT_EQ(FilePath(stranger), archive);
  }
  EXPECT_TRUE(Inspector::ArchiveOpen());
  EXPECT_EQ(owner->InitParsing("child.vorla"), E_FAIL);
  EXPECT_EQ(FilePath(*owner), "child.vorla");
  EXPECT_EQ(RootName(*owner), "main");
  EXPECT_TRUE(Inspector::OwnsArchive(*owner));
  owner.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
  EXPECT_EQ(RootName(*reader), "child");
}

// Versions compare as integers, text that does not convert as 0; only the first Header counts.
// A refused document stops before the containers and the dropping of empty tables (a lookup
// in a kept empty table clears its output, in a dropped one leaves it alone).
TEST_F(Loading, SchemaVersionDecidesAcceptance) {
  auto v = [](const char* version) {
    return std::string("<Header><SchemaVersion>") + version + "</SchemaVersion></Header>";
  };
  const struct {
    std::string header;
    HRESULT code;
  } cases[] = {{v("2.00"), S_OK},
               {v("2.1"), kVorlaVersionNewerAccepted},
               {v("3.0"), kVorlaVersionRefused},
               {v("v3.0"), S_OK},
               {"<Header/>", S_OK},
               {"<Other/><Header><Author/><SchemaVersion>3.0</SchemaVersion></Header>",
                kVorlaVersionRefused},
               {"<Header/>" + v("3.0"), S_OK},
               {"<h:Header><SchemaVersion>1.0</SchemaVersion></h:Header>", E_FAIL}};
  const std::string path = _Dir.File("v.xml");
  FakeElement stale;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.header);
    kaltest::WriteFile(path, "<Model>" + c.header + "<ProductStructure/><DefaultView/></Model>");
    P parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), c.code);
    EXPECT_EQ(parser.CheckVorlaVersion(), c.code);
    KalLightXmlElementItf *view = nullptr, *instance = &stale;
    parser.GetDefaultViewNode(&view);
    EXPECT_EQ(view != nullptr, c.code >= 0);
    EXPECT_EQ(parser.GetInstance3DFromLocalID(1, &instance), E_FAIL);
    EXPECT_EQ(instance == nullptr, c.code < 0);
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
  const struct {
    kaltest::HttpServer::Route route;
    HRESULT code;
    const char* filePath;  // null: the URL
  } cases[] = {{{200, served, -1}, S_OK, "root.xml"},
               {{200, newer, -1}, kVorlaVersionRefused, "root.xml"},
               {{200, served, 10}, E_FAIL, ""},
               {{200, Doc("plain"), -1}, E_FAIL, nullptr}};
  ScopedEnv kalTemp("KalTemp", _Dir.Path().c_str());
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    server.Set("/doc", c.route);
    P parser;
    EXPECT_EQ(parser.InitParsing(url.c_str()), c.code);
    EXPECT_EQ(FilePath(parser), c.filePath ? c.filePath : url);
    EXPECT_EQ(Inspector::DocumentDir(parser), !c.filePath   ? url.substr(0, url.rfind('/'))
                                              : *c.filePath ? _Dir.Path()
                                                            : "");
    ASSERT_EQ(kaltest::FileExists(copy), !c.filePath);
  }
  EXPECT_EQ(kaltest::ReadFile(copy), Doc("plain"));  // left by the last case
}

using Accessor = HRESULT (P::*)(KalLightXmlElementItf**);
using Lookup = HRESULT (P::*)(int, KalLightXmlElementItf**);
// The accessors, with what each finds in the document of RootChildrenMaterialsAndExtensions.
const struct {
  Accessor get;
  const char* found;
} kAccessors[] = {{&P::GetProductStructureRootReference, "root-ref"},
                  {&P::GetDefaultViewNode, "view-2"},
                  {&P::GetPresentationSetNode, "pres-2"},
                  {&P::GetMeasureSetNode, "measures"},
                  {&P::GetSectionSetNode, "<null>"},
                  {&P::GetAnimationSetNode, "anim"},
                  {&P::GetVorlaRootNode, ""},
                  {&P::GetSpecificExtensionSetNode, "extensions"},
                  {&P::GetGraphicMaterialSetNode, "materials"}};
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
  for (const auto& a : kAccessors) {
    EXPECT_EQ(Found(S_OK, a.get), "<null>");
    EXPECT_EQ((_Parser.*a.get)(nullptr), E_FAIL);
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
  KalUnicodeString text("stale");
  EXPECT_EQ(_Parser.GetFilePath(text), S_OK);
  EXPECT_EQ(Str(text), "");
  EXPECT_EQ(_Parser.GetVorlaRootFilePath("/some/where/doc.vorla", text), S_OK);
  EXPECT_EQ(Str(text), "doc.vorla");
  EXPECT_EQ(Found(E_INVALIDARG, &P::GetVorlaNodeFromOtherIDAttribute, 7, "Other", "owner"), "");
}

// Root children are known by the name after the first colon, the last one winning; without a
// root attribute the root reference has id 0. Materials need a positive id; extensions are
// indexed as written (none: -1), id 0 is refused, a miss leaves the output alone. Empty tables
// are dropped: their lookups leave the output alone; the pass that needs them fails.
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
  for (const auto& a : kAccessors) EXPECT_EQ(Found(S_OK, a.get), a.found);
  EXPECT_EQ(Inspector::Names(_Parser, Inspector::kMaterials),
            (std::vector<std::string>{"m5", "m2", "m5-again"}));
  EXPECT_EQ(Inspector::MaterialIds(_Parser), (std::vector<int>{5, 2, 5}));
  const struct {
    unsigned int id;
    const char* found;  // null: E_FAIL and the output untouched
  } cases[] = {{4, "e4"}, {4294967295u, "no-id"}, {0, nullptr}, {7, nullptr}, {8, nullptr}};
  for (const auto& c : cases) {
    EXPECT_EQ(Found(c.found ? S_OK : E_FAIL, &P::GetSpecificExtensionNode, c.id),
              c.found ? c.found : "")
        << c.id;
  }
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
TEST_F(Queries, ProductStructurePassFillsTablesChildListsAndLists) {
  Load(
      "<ProductStructure root='001'><Instance3D xsi:type='Instance3DType' id='2' name='i2'>"
      "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
      "<Reference3D xsi:type='Reference3DType' id='1' name='r1-first'/>"
      "<InstanceRep xsi:type='InstanceRepType' id='5' name='ir5'>"
      "<IsAggregatedBy>1</IsAggregatedBy></InstanceRep>"
      "<ReferenceRep xsi:type='ReferenceRepType' id='6' name='rr6'/>"
      "<Instance3D xsi:type='Instance3DType' id='3' name='i3' owner='007'>"
      "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
      "<Instance3D xsi:type='Instance3DType' id='4' name='i4'>"
      "<IsAggregatedBy>9</IsAggregatedBy></Instance3D>"
      "<Thing xsi:type='Reference3DType' id='10' name='typed-thing'/>"
      "<Reference3D xsi:type='Other' id='11' name='other-type'/>"
      "<Instance3D xsi:type='Instance3DType' name='no-id'>"
      "<IsAggregatedBy>1</IsAggregatedBy></Instance3D>"
      "<Instance3D xsi:type='Instance3DType' id='13' name='orphan'/>"
      "<Reference3D xsi:type='Reference3DType' id='01' name='r1'/>"
      "<RepFormat xsi:type='RepFormatType' name='f1'/>"
      "<RepFormat xsi:type='RepFormatType' id='3' name='f-with-id'/>"
      "<GraphicProperties xsi:type='GraphicPropertiesAspectType' name='g1'/>"
      "<GraphicProperties xsi:type='GraphicPropertiesAspectType' id='4' name='g-id'/>"
      "<Other xsi:type='RepFormatType' name='f2'/><RepFormat name='untyped'/>"
      "<Wrapper><Reference3D xsi:type='Reference3DType' id='14' name='nested'/>"
      "<RepFormat xsi:type='RepFormatType' name='nested'/></Wrapper></ProductStructure>");
  const struct {
    int kind, id;  // kind: index in kLookups
    HRESULT code;
    const char* found;
  } cases[] = {{0, 2, S_OK, "i2"},       {0, 13, S_OK, "orphan"},   {0, 5, E_FAIL, "<null>"},
               {0, 0, E_FAIL, "<null>"}, {1, 1, S_OK, "r1"},        {1, 10, S_OK, "typed-thing"},
               {1, 9, S_OK, "<null>"},   {1, 11, E_FAIL, "<null>"}, {1, 14, E_FAIL, "<null>"},
               {2, 5, S_OK, "ir5"},      {2, 2, E_FAIL, "<null>"},  {3, 6, S_OK, "rr6"},
               {3, 5, E_FAIL, "<null>"}};
  for (const auto& c : cases)
    EXPECT_EQ(Found(c.code, kLookups[c.kind], c.id), c.found) << c.kind << " " << c.id;
  EXPECT_EQ(Found(S_OK, &P::GetProductStructureRootReference), "r1");
  // Instance3D and InstanceRep ids share one list, in document order.
  EXPECT_EQ(Inspector::ReferenceChildren(_Parser, 1), (std::vector<int>{2, 5, 3}));
  EXPECT_EQ(Inspector::ReferenceChildren(_Parser, 9), (std::vector<int>{4}));
  // Only typed elements without an id are collected.
  EXPECT_EQ(Inspector::Names(_Parser, Inspector::kRepFormats),
            (std::vector<std::string>{"f1", "f2"}));
  EXPECT_EQ(Inspector::Names(_Parser, Inspector::kGraphicProperties),
            (std::vector<std::string>{"g1"}));
  std::vector<int> counts;
  for (auto counter : kCounters) EXPECT_EQ((_Parser.*counter)(counts.emplace_back(-1)), S_OK);
  EXPECT_EQ(counts, (std::vector<int>{5, 3, 3}));

  const struct {
    int id;
    const char *tag, *attribute, *found;
  } searches[] = {{7, "Instance3D", "owner", "i3"},
                  {1, "Reference3D", "id", "r1-first"},
                  {10, "Reference3D", "id", "<null>"},
                  {14, "Reference3D", "id", "<null>"},
                  {0, "Instance3D", "name", "<null>"}};
  for (const auto& s : searches)
    EXPECT_EQ(Found(S_OK, &P::GetVorlaNodeFromOtherIDAttribute, s.id, s.tag, s.attribute), s.found)
        << s.id << " " << s.tag << " " << s.attribute;
  EXPECT_EQ(_Parser.GetVorlaNodeFromOtherIDAttribute(7, "Instance3D", "owner", nullptr),
            E_INVALIDARG);
}

// Null children (never in a parsed document): counts skip them, comparing whole tags; the id
// search fails on them, as on a childless structure, clearing its output.
TEST_F(Queries, CountsSkipNullChildrenTheIdSearchFailsOnThem) {
  FakeElement nested("Instance3D"), b("Instance3D"), a("Instance3D", {&nested});
  FakeElement prefixed("x:Instance3D"), childless("ProductStructure");
  FakeElement structure("ProductStructure", {&a, nullptr, &prefixed, nullptr, &b});
  const struct {
    FakeElement* structure;
    const char* tag;
    int count;
  } cases[] = {{&structure, "Instance3D", 2},
               {&structure, "x:Instance3D", 1},
               {&structure, "instance3d", 0},
               {&childless, "Instance3D", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tag);
    Inspector::SetStructure(_Parser, c.structure);
    int count = 99;
    EXPECT_EQ(_Parser.CountOccurences(c.tag, count), S_OK);
    EXPECT_EQ(count, c.count);
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
  KalLightXmlElementItf *p = &probe, *e = &empty, *b = &broken, *n = nullptr;
  const auto T = &P::GetVorlaChildNodeFromType, N = &P::GetVorlaChildNodeFromName;
  const struct {
    decltype(T) search;
    KalLightXmlElementItf* parent;
    const char* wanted;
    HRESULT code;
    const char* found;  // "": untouched
  } cases[] = {{T, p, "A", S_OK, "a1"},           {T, p, "Deep", S_FALSE, "<null>"},
               {T, p, "Item", S_FALSE, "<null>"}, {T, p, "", S_OK, "empty"},
               {T, e, "A", S_FALSE, "<null>"},    {T, n, "A", E_FAIL, ""},
               {T, b, "Miss", S_OK, "miss"},      {T, b, "B", E_FAIL, "<null>"},
               {N, p, "Item", S_OK, "a1"},        {N, p, "Deep", S_FALSE, "<null>"},
               {N, p, "A", S_FALSE, "<null>"},    {N, e, "Item", E_FAIL, "<null>"},
               {N, n, "Item", E_FAIL, ""},        {N, b, "Miss", S_OK, "miss"},
               {N, b, "B", E_FAIL, "<null>"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Found(c.code, c.search, c.parent, c.wanted), c.found)
        << (c.search == T ? "FromType " : "FromName ") << c.wanted;
  }
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromType(p, "A", nullptr), E_FAIL);
  EXPECT_EQ(_Parser.GetVorlaChildNodeFromName(p, "Item", nullptr), E_FAIL);

  const auto V = &P::GetValueString, A = &P::GetAttributeString;  // a missing attribute is ""
  const struct {
    decltype(V) read;
    KalLightXmlElementItf* element;
    const char* name;
    HRESULT code;
    const char* value;
  } reads[] = {{V, p, "Item", S_OK, "first"},
               {V, p, "Deep", S_OK, ""},
               {V, p, "Missing", S_OK, ""},
               {V, e, "Item", E_FAIL, ""},
               {V, b, "Item", E_FAIL, ""},
               {V, n, "Item", E_INVALIDARG, "stale"},
               {A, n, "name", E_INVALIDARG, "stale"},
               {A, p, "name", S_OK, "probe"},
               {A, p, "missing", S_OK, ""}};
  for (const auto& r : reads) {
    KalUnicodeString value("stale");
    EXPECT_EQ((_Parser.*r.read)(r.name, r.element, value), r.code) << r.name;
    EXPECT_EQ(Str(value), r.value) << r.name;
  }
}

// Blanks before a value are skipped; next is the blank after it, -1 at the end. A piece that
// does not convert (or is empty) gives S_OK and leaves int and double alone. A list of one
// number without a blank, read from 0, loops for ever by design, so none is read.
TEST_F(Queries, ListReaderCutsOneValueAndReportsTheBlankAfterItInAllThreeTypes) {
  const struct {
    const char* list;
    int start, value, next;  // value 42: the piece does not convert
  } cases[] = {{"1 2 3", 0, 1, 1}, {"1 2 3", 4, 3, -1}, {"  7 8", 0, 7, 3}, {"1  2", 1, 2, -1},
               {"12 34", 1, 2, 2}, {"5 ", 0, 5, 1},     {"a b", 0, 42, 1},  {"1 2", 3, 42, -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string("\"") + c.list + "\" from " + std::to_string(c.start));
    KalUnicodeString list(c.list);
    int asInt = 42, intNext = -9, doubleNext = -9, floatNext = -9;
    double asDouble = 42;
    float asFloat = 0;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asInt, intNext), S_OK);
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asDouble, doubleNext), S_OK);
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asFloat, floatNext), S_OK);
    EXPECT_EQ(asInt, c.value);
    EXPECT_EQ(asDouble, c.value);
    EXPECT_TRUE(c.value == 42 || asFloat == c.value) << asFloat;  // else unspecified
    EXPECT_EQ((std::vector<int>{intNext, doubleNext, floatNext}), std::vector<int>(3, c.next));
  }
}

// Vectors take 3 values, matrices 12, reading on from next + 1, so short lists wrap around; a
// tab stays inside a piece; doubles are converted directly. An empty text writes nothing.
TEST_F(Queries, VectorAndMatricesReadValuesInTextOrderWrappingAroundShortLists) {
  const float kStale = -777.0f;
  const struct {
    const char* text;
    double values[12];
  } cases[] = {{"0.1 -2.5 3e-3 4 0.7 6.25 -0 8.125 1e10 10 0.333 12 13",
                {0.1, -2.5, 3e-3, 4, 0.7, 6.25, -0.0, 8.125, 1e10, 10, 0.333, 12}},
               {"1\t2 3", {1, 3, 1, 3, 1, 3, 1, 3, 1, 3, 1, 3}},
               {" 5", {5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5}},
               {"", {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    FakeElement element("V", {}, "", "", c.text);
    float vector[13], floats[13];
    double doubles[13];
    std::fill(vector, vector + 13, kStale);
    std::fill(floats, floats + 13, kStale);
    std::fill(doubles, doubles + 13, kStale);
    EXPECT_EQ(_Parser.ConvertVector(&element, vector), *c.text ? S_OK : E_FAIL);
    EXPECT_EQ(_Parser.ConvertMatrix(&element, floats), *c.text ? S_OK : E_FAIL);
    EXPECT_EQ(_Parser.ConvertMatrix(&element, doubles), *c.text ? S_OK : E_FAIL);
    for (int k = 0; k < 13; ++k) {
      const double want = *c.text && k < 12 ? c.values[k] : kStale;
      EXPECT_EQ(doubles[k], want) << "entry " << k;
      EXPECT_EQ(floats[k], static_cast<float>(want)) << "entry " << k;
      EXPECT_EQ(vector[k], static_cast<float>(k < 3 ? want : kStale)) << "entry " << k;
    }
    EXPECT_EQ(_Parser.ConvertVector(nullptr, vector), E_INVALIDARG);
    EXPECT_EQ(_Parser.ConvertMatrix(&element, static_cast<float*>(nullptr)), E_INVALIDARG);
    EXPECT_EQ(_Parser.ConvertMatrix(nullptr, doubles), E_INVALIDARG);
  }
}

// Both overloads split alike, the string one keeping the id as written. Outputs are preset to
// type 77, locality 9, id -99 and "stale"; expecting these means "left alone".
TEST_F(Queries, UrnsSplitIntoKindLocalityFileNameAndId) {
  const struct {
    const char* urn;
    HRESULT code;
    int type, isLocal;
    const char* idText;  // string overload; null: neither id nor file name is pinned
    int id;              // integer overload
    const char* fileName;
  } cases[] = {
      {"urn:VORLA:Reference:loc:12", S_OK, 0, 1, "12", 12, ""},
      {"urn:VORLA:Representation:ext:child.vorla#3", S_OK, 1, 0, "3", 3, "child.vorla"},
      // Any locality other than "loc" is external.
      {"urn:VORLA:TechRep:LOC:sub/x.vorla#0012", S_OK, 2, 0, "0012", 12, "sub/x.vorla"},
      // An unknown or miscased kind leaves the type alone and parsing goes on.
      {"urn:VORLA:reference:loc:007", S_OK, 77, 1, "007", 7, ""},
      // The local id is the whole rest of the string.
      {"urn:VORLA:Reference:loc:12:13", S_OK, 0, 1, "12:13", 12, ""},
      // The file name runs to the first ".vorla" that is followed by "#".
      {"urn:VORLA:Representation:ext:a.vorla.b.vorla#3", S_OK, 1, 0, "3", 3, "a.vorla.b.vorla"},
      // Malformed beyond the prefix (no ".vorla#"): still a success.
      {"urn:VORLA:Representation:ext:child.xml#3", S_OK, 1, 0, nullptr, 0, nullptr},
      // The prefix only has to occur somewhere; parsing always starts at index 10.
      {"0123456789Reference:loc:4 urn:VORLA:", S_OK, 0, 1, "4 urn:VORLA:", 4, ""},
      // Without the prefix nothing is written.
      {"urn:vorla:Reference:loc:1", E_FAIL, 77, 9, "stale", -99, "stale"},
      {"", E_FAIL, 77, 9, "stale", -99, "stale"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.urn);
    KalVorlaUrnType types[2] = {static_cast<KalVorlaUrnType>(77), static_cast<KalVorlaUrnType>(77)};
    unsigned char isLocal[2] = {9, 9};
    KalUnicodeString idText("stale"), fileNames[2] = {"stale", "stale"};
    int id = -99;
    EXPECT_EQ(_Parser.ExtractVorlaUrnDatas(c.urn, types[0], isLocal[0], id, fileNames[0]), c.code);
    EXPECT_EQ(_Parser.ExtractVorlaUrnDatas(c.urn, types[1], isLocal[1], idText, fileNames[1]),
              c.code);
    EXPECT_EQ((std::vector<int>{types[0], types[1], isLocal[0], isLocal[1]}),
              (std::vector<int>{c.type, c.type, c.isLocal, c.isLocal}));
    if (c.idText == nullptr) continue;
    EXPECT_EQ((std::vector<std::string>{Str(fileNames[0]), Str(fileNames[1]), Str(idText)}),
              (std::vector<std::string>{c.fileName, c.fileName, c.idText}));
    EXPECT_EQ(id, c.id);
  }
}

}  // namespace
