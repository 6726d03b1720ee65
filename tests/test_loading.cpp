// InitParsing end to end: plain files, archives and their manifest, the class-wide archive
// shared between parsers, "http://" names, the schema version check and the dropping of
// empty indexes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "KalFiles.h"
#include "KalFormatConstants.h"
#include "KalVorlaParser.h"
#include "ParserInspector.h"
#include "TestDocuments.h"

namespace {

using Inspector = KalVorlaParserInspector;
using kaltest::Entry;
using kaltest::Str;
using kaltest::TempDir;

// A document whose root reference carries `name`, so a test can tell which file it loaded.
std::string Doc(const std::string& name, const std::string& version = "1.0") {
  return kaltest::VorlaXml(
      "<ProductStructure root=\"1\"><Reference3D xsi:type=\"Reference3DType\""
      " id=\"1\" name=\"" +
          name + "\"/></ProductStructure>",
      version);
}

std::string RootName(KalVorlaParser& parser) {
  KalLightXmlElementItf* root = nullptr;
  parser.GetProductStructureRootReference(&root);
  return kaltest::NameOf(root);
}

std::string FilePath(KalVorlaParser& parser) {
  KalUnicodeString path;
  parser.GetFilePath(path);
  return Str(path);
}

std::string RealPath(const std::string& path) {
  char buffer[PATH_MAX];
  return ::realpath(path.c_str(), buffer) ? buffer : path;
}

// Sets (or unsets, with null) an environment variable for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : _Name(name) {
    const char* old = std::getenv(name);
    _Had = old != nullptr;
    if (_Had) _Old = old;
    if (value)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~ScopedEnv() {
    if (_Had)
      setenv(_Name.c_str(), _Old.c_str(), 1);
    else
      unsetenv(_Name.c_str());
  }

 private:
  std::string _Name, _Old;
  bool _Had = false;
};

// Every test starts and must end with no archive open: a parser that opened one closes it.
class Loading : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(Inspector::ArchiveOpen()); }
  void TearDown() override {
    EXPECT_FALSE(Inspector::ArchiveOpen());
    EXPECT_EQ(Inspector::EntryCount(), 0u);
  }
  std::string Write(const std::string& name, const std::string& content) {
    kaltest::WriteFile(_Dir.File(name), content);
    return _Dir.File(name);
  }

  TempDir _Dir;
};

TEST_F(Loading, PlainXmlFileLoadsWithoutKeepingAnArchive) {
  const std::string path = Write("doc.xml", Doc("plain"));
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(path.c_str()), S_OK);
  EXPECT_EQ(RootName(parser), "plain");
  EXPECT_FALSE(Inspector::ArchiveOpen());
  EXPECT_FALSE(Inspector::OwnsArchive(parser));
  EXPECT_EQ(FilePath(parser), path);
  EXPECT_EQ(Inspector::DocumentDirectory(parser), _Dir.Path());
}

TEST_F(Loading, PlainXmlPathsAreKeptAsGivenNotResolved) {
  Write("doc.xml", Doc("plain"));
  const std::string given = _Dir.Path() + "/./doc.xml";
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(given.c_str()), S_OK);
  EXPECT_EQ(FilePath(parser), given);
  EXPECT_EQ(Inspector::DocumentDirectory(parser), _Dir.Path() + "/.");
}

// Only an unset KalTemp falls back to the platform's directory; a set one is taken as it is,
// even empty.
TEST_F(Loading, TemporaryDirectoryComesFromKalTemp) {
  TempDir temp;
  const std::string path = Write("doc.xml", Doc("plain"));
  const struct {
    const char* value;
    std::string expected;
  } cases[] = {{temp.Path().c_str(), temp.Path()}, {"", ""}, {nullptr, Str(KalGetTempDirectory())}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value ? std::string("KalTemp=\"") + c.value + "\"" : "KalTemp unset");
    ScopedEnv kalTemp("KalTemp", c.value);
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), S_OK);
    EXPECT_EQ(Inspector::TempDirectory(parser), c.expected);
  }
}

TEST_F(Loading, ArchiveLoadsTheRootNamedByItsManifestAndKeepsTheArchiveOpen) {
  const std::string archive = _Dir.File("pack.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("main"), {{"other.xml", Doc("other")}});
  auto parser = std::make_unique<KalVorlaParser>();
  EXPECT_EQ(parser->InitParsing(archive.c_str()), S_OK);
  EXPECT_EQ(RootName(*parser), "main");
  EXPECT_EQ(FilePath(*parser), "root.xml");
  EXPECT_TRUE(Inspector::OwnsArchive(*parser));
  EXPECT_TRUE(Inspector::ArchiveOpen());
  EXPECT_TRUE(Inspector::HasEntryTable());
  EXPECT_EQ(Inspector::EntryNames(),
            (std::vector<std::string>{"Manifest.xml", "root.xml", "other.xml"}));
  EXPECT_EQ(Inspector::DocumentDirectory(*parser), RealPath(_Dir.Path()));
  EXPECT_EQ(Str(KalVorlaImportUtilities::_VorlaArchiveFile), "pack.vorla");

  parser.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
  EXPECT_FALSE(Inspector::HasEntryTable());
  EXPECT_EQ(Inspector::EntryCount(), 0u);
}

// Every archive holds the same entries; the cases differ by their manifest and by whether an
// entry bears the archive's own name.
TEST_F(Loading, ManifestDecidesTheRootEntryAndFallsBackToTheArchiveName) {
  const struct {
    const char* label;
    const char* manifestEntry;  // null: no manifest
    std::string manifest;
    bool selfEntry;
    HRESULT code;
    const char* filePath;
    const char* rootName;
  } cases[] = {
      {"named root", "Manifest.xml", kaltest::ManifestXml("a.xml"), false, S_OK, "a.xml", "a"},
      {"root in a folder, name kept whole", "Manifest.xml", kaltest::ManifestXml("docs/a.xml"),
       false, S_OK, "docs/a.xml", "docs-a"},
      {"first of two Root children", "Manifest.xml",
       "<Manifest><Root>b.xml</Root><Root>a.xml</Root></Manifest>", false, S_OK, "b.xml", "b"},
      {"named entry missing", "Manifest.xml", kaltest::ManifestXml("gone.xml"), false, E_FAIL,
       "gone.xml", "<null>"},
      {"entry names compare case-sensitively", "Manifest.xml", kaltest::ManifestXml("A.xml"), false,
       E_FAIL, "A.xml", "<null>"},
      {"Root text not trimmed", "Manifest.xml", "<Manifest><Root> a.xml </Root></Manifest>", false,
       E_FAIL, " a.xml ", "<null>"},
      {"malformed root entry", "Manifest.xml", kaltest::ManifestXml("broken.xml"), false, E_FAIL,
       "broken.xml", "<null>"},
      {"no manifest, no entry of the archive's name", nullptr, "", false, E_FAIL, "pack.vorla",
       "<null>"},
      {"no manifest, an entry of the archive's name", nullptr, "", true, S_OK, "pack.vorla",
       "self"},
      {"manifest entry name is case-sensitive", "manifest.xml", kaltest::ManifestXml("a.xml"), true,
       S_OK, "pack.vorla", "self"},
      {"manifest that is not XML", "Manifest.xml", "Root=a.xml <<<", true, S_OK, "pack.vorla",
       "self"},
      {"manifest without Root child", "Manifest.xml", "<Manifest><Other>a.xml</Other></Manifest>",
       true, S_OK, "pack.vorla", "self"},
      {"Root deeper than a child", "Manifest.xml",
       "<Manifest><Group><Root>a.xml</Root></Group></Manifest>", true, S_OK, "pack.vorla", "self"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<Entry> entries = {{"a.xml", Doc("a")},
                                  {"b.xml", Doc("b")},
                                  {"docs/a.xml", Doc("docs-a")},
                                  {"broken.xml", "<Model><Header>"}};
    if (c.manifestEntry != nullptr) entries.insert(entries.begin(), {c.manifestEntry, c.manifest});
    if (c.selfEntry) entries.push_back({"pack.vorla", Doc("self")});
    TempDir dir;
    const std::string archive = dir.File("pack.vorla");
    kaltest::WriteArchive(archive, entries);
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(archive.c_str()), c.code);
    EXPECT_EQ(FilePath(parser), c.filePath);
    EXPECT_EQ(RootName(parser), c.rootName);
    EXPECT_TRUE(Inspector::OwnsArchive(parser));
    EXPECT_TRUE(Inspector::ArchiveOpen());
    EXPECT_EQ(Inspector::DocumentDirectory(parser), RealPath(dir.Path()));
  }
}

TEST_F(Loading, ArchiveMadeByTheZipProgramLoads) {
  ASSERT_EQ(::mkdir(_Dir.File("src").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(_Dir.File("src/docs").c_str(), 0755), 0);
  kaltest::WriteFile(_Dir.File("src/Manifest.xml"), kaltest::ManifestXml("docs/main.xml"));
  kaltest::WriteFile(_Dir.File("src/docs/main.xml"), Doc("zipped"));
  const std::string command =
      "cd '" + _Dir.File("src") + "' && zip -q -r ../cli.vorla Manifest.xml docs >/dev/null 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0) << "the zip program is needed";
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(_Dir.File("cli.vorla").c_str()), S_OK);
  EXPECT_EQ(RootName(parser), "zipped");
  EXPECT_EQ(FilePath(parser), "docs/main.xml");
  const std::vector<std::string> names = Inspector::EntryNames();
  EXPECT_NE(std::find(names.begin(), names.end(), "docs/"), names.end());
  EXPECT_NE(std::find(names.begin(), names.end(), "docs/main.xml"), names.end());
}

TEST_F(Loading, UnresolvablePathFailsBeforeAnythingIsSet) {
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(""), E_FAIL);
  EXPECT_EQ(Inspector::TempDirectory(parser), "");
  EXPECT_EQ(FilePath(parser), "");
  EXPECT_FALSE(Inspector::OwnsArchive(parser));
}

TEST_F(Loading, MissingDamagedOrIncompleteFilesFail) {
  const std::string archive = _Dir.File("whole.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("main"));
  const std::string bytes = kaltest::ReadFile(archive);
  const struct {
    const char* name;
    std::string content;  // written unless the file is meant to be missing
    bool exists;
  } cases[] = {
      {"missing.xml", "", false},
      {"empty.xml", "", true},
      {"binary.vorla", std::string("PK\3\4\0\0junk\xff\xfe", 12), true},
      {"truncated.vorla", bytes.substr(0, bytes.size() / 2), true},
      {"no-product-structure.xml", kaltest::VorlaXml("<DefaultView/>"), true},
      {"root-without-children.xml", "<Model/>", true},
      {"no-header.xml", "<Model><ProductStructure root=\"1\"/></Model>", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = c.exists ? Write(c.name, c.content) : _Dir.File(c.name);
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), E_FAIL);
    EXPECT_EQ(FilePath(parser), path);
  }
}

TEST_F(Loading, MalformedXmlFailsAndKeepsThePartialTree) {
  const std::string path = Write("broken.xml", "<Model><Header><SchemaVersion>1.0");
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(path.c_str()), E_FAIL);
  KalLightXmlElementItf* root = nullptr;
  EXPECT_EQ(parser.GetVorlaRootNode(&root), S_OK);
  EXPECT_NE(root, nullptr);
}

// Stored entries hold their text verbatim; changing one byte of it breaks the checksum, so
// the entry reads short. A broken manifest stops the load before the file path is set.
TEST_F(Loading, EntryWithABadChecksumFails) {
  const struct {
    const char* label;
    const char* original;
    const char* replacement;
    const char* filePath;
  } cases[] = {{"root entry", "name=\"main\"", "name=\"mair\"", "root.xml"},
               {"manifest", "<Root>root.xml", "<Root>ROOT.xml", ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    TempDir dir;
    const std::string archive = dir.File("pack.vorla");
    kaltest::WriteArchive(archive, {{"Manifest.xml", kaltest::ManifestXml("root.xml"), false},
                                    {"root.xml", Doc("main"), false}});
    std::string bytes = kaltest::ReadFile(archive);
    const size_t at = bytes.find(c.original);
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at, std::string(c.original).size(), c.replacement);
    kaltest::WriteFile(archive, bytes);
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(archive.c_str()), E_FAIL);
    EXPECT_EQ(FilePath(parser), c.filePath);
    EXPECT_TRUE(Inspector::OwnsArchive(parser));
    EXPECT_EQ(Inspector::DocumentDirectory(parser), RealPath(dir.Path()));
  }
}

TEST_F(Loading, RootFilePathWithoutAnArchiveIsTheFileName) {
  KalVorlaParser parser;
  const char* const paths[] = {"/some/where/doc.vorla", "doc.vorla"};
  for (const char* path : paths) {
    KalUnicodeString root("stale");
    EXPECT_EQ(parser.GetVorlaRootFilePath(path, root), S_OK);
    EXPECT_EQ(Str(root), "doc.vorla");
  }
}

TEST_F(Loading, RootFilePathWithTheArchiveOpenComesFromTheManifest) {
  const std::string archive = _Dir.File("pack.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("main"));
  KalVorlaParser parser;
  ASSERT_EQ(parser.InitParsing(archive.c_str()), S_OK);
  KalUnicodeString root;
  EXPECT_EQ(parser.GetVorlaRootFilePath("/else/where.vorla", root), S_OK);
  EXPECT_EQ(Str(root), "root.xml");
}

// While one parser holds the archive open, every other parser's path names an entry of it;
// the owner closes the archive when it goes, whoever still uses it.
TEST_F(Loading, OtherParsersReadEntriesOfTheArchiveTheOwnerKeepsOpen) {
  const std::string archive = _Dir.File("pack.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("main"), {{"part.vorla", Doc("part")}});
  auto owner = std::make_unique<KalVorlaParser>();
  ASSERT_EQ(owner->InitParsing(archive.c_str()), S_OK);

  auto reader = std::make_unique<KalVorlaParser>();
  EXPECT_EQ(reader->InitParsing("part.vorla"), S_OK);
  EXPECT_EQ(RootName(*reader), "part");
  EXPECT_EQ(FilePath(*reader), "part.vorla");
  EXPECT_FALSE(Inspector::OwnsArchive(*reader));
  EXPECT_EQ(Inspector::DocumentDirectory(*reader), "");

  const std::string notEntries[] = {"nothing.vorla", archive};
  for (const std::string& name : notEntries) {
    SCOPED_TRACE(name);
    KalVorlaParser stranger;
    EXPECT_EQ(stranger.InitParsing(name.c_str()), E_FAIL);
    EXPECT_EQ(FilePath(stranger), name);
    EXPECT_FALSE(Inspector::OwnsArchive(stranger));
  }
  EXPECT_TRUE(Inspector::ArchiveOpen());

  owner.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
  EXPECT_EQ(Inspector::EntryCount(), 0u);
  EXPECT_EQ(RootName(*reader), "part");

  const std::string second = _Dir.File("second.vorla");
  kaltest::WriteVorlaArchive(second, "next.xml", Doc("next"));
  auto newOwner = std::make_unique<KalVorlaParser>();
  EXPECT_EQ(newOwner->InitParsing(second.c_str()), S_OK);
  EXPECT_TRUE(Inspector::OwnsArchive(*newOwner));
  EXPECT_EQ(RootName(*newOwner), "next");
  EXPECT_EQ(Inspector::EntryNames(), (std::vector<std::string>{"Manifest.xml", "next.xml"}));

  reader.reset();
  EXPECT_TRUE(Inspector::ArchiveOpen());
  newOwner.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
}

TEST_F(Loading, SchemaVersionDecidesAcceptance) {
  const struct {
    const char* header;
    HRESULT code;
  } cases[] = {
      {"<Header><SchemaVersion>1.0</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>1.1</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>2.0</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>2.00</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>0.9</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>2.1</SchemaVersion></Header>", kVorlaVersionNewerAccepted},
      {"<Header><SchemaVersion>2.3</SchemaVersion></Header>", kVorlaVersionNewerAccepted},
      {"<Header><SchemaVersion>2.10</SchemaVersion></Header>", kVorlaVersionNewerAccepted},
      {"<Header><SchemaVersion>3.0</SchemaVersion></Header>", kVorlaVersionRefused},
      {"<Header><SchemaVersion>10.5</SchemaVersion></Header>", kVorlaVersionRefused},
      // Texts that do not convert count as 0.
      {"<Header><SchemaVersion>v3.0</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>2.x</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>-4.2</SchemaVersion></Header>", S_OK},
      // Where the version is looked for.
      {"<Header/>", S_OK},
      {"<Header><Author>me</Author></Header>", S_OK},
      {"<Header><Info><SchemaVersion>3.0</SchemaVersion></Info></Header>", S_OK},
      {"<Header><Author/><SchemaVersion>3.0</SchemaVersion></Header>", kVorlaVersionRefused},
      {"<Header><SchemaVersion>2.1</SchemaVersion><SchemaVersion>3.0</SchemaVersion></Header>",
       kVorlaVersionNewerAccepted},
      {"<Other/><Header><SchemaVersion>3.0</SchemaVersion></Header>", kVorlaVersionRefused},
      {"<Header><SchemaVersion>1.0</SchemaVersion></Header>"
       "<Header><SchemaVersion>3.0</SchemaVersion></Header>",
       S_OK},
      {"<Header/><Header><SchemaVersion>3.0</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>3.0</SchemaVersion></Header>"
       "<Header><SchemaVersion>1.0</SchemaVersion></Header>",
       kVorlaVersionRefused},
      {"<h:Header><SchemaVersion>1.0</SchemaVersion></h:Header>", E_FAIL},
      {"", E_FAIL},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.header);
    const std::string path = Write(
        "v" + std::to_string(n++) + ".xml",
        std::string("<Model>") + c.header + "<ProductStructure root=\"1\"/><DefaultView/></Model>");
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), c.code);
    EXPECT_EQ(parser.CheckVorlaVersion(), c.code);
    // A refused document stops before the containers are recorded and the empty indexes
    // dropped.
    KalLightXmlElementItf* view = nullptr;
    parser.GetDefaultViewNode(&view);
    EXPECT_EQ(view != nullptr, c.code >= 0);
    EXPECT_EQ(Inspector::TableOf(parser, Inspector::kInstances) == nullptr, c.code >= 0);
  }
}

TEST_F(Loading, VersionCheckWithoutADocumentFails) {
  KalVorlaParser parser;
  EXPECT_EQ(parser.CheckVorlaVersion(), E_FAIL);
}

TEST_F(Loading, EmptyIndexesAreDroppedAfterLoading) {
  using T = Inspector::Table;
  const T all[] = {Inspector::kInstances,     Inspector::kReferences, Inspector::kInstanceReps,
                   Inspector::kReferenceReps, Inspector::kExtensions, Inspector::kViews};
  const struct {
    const char* label;
    const char* body;
    std::vector<T> kept;
  } cases[] = {
      {"nothing indexed", "<ProductStructure root=\"1\"/>", {}},
      {"a reference",
       "<ProductStructure root=\"1\"><Reference3D xsi:type=\"Reference3DType\" id=\"1\"/>"
       "</ProductStructure>",
       {Inspector::kReferences}},
      {"an instance and the placeholder of its parent",
       "<ProductStructure><Instance3D xsi:type=\"Instance3DType\" id=\"2\">"
       "<IsAggregatedBy>1</IsAggregatedBy></Instance3D></ProductStructure>",
       {Inspector::kInstances, Inspector::kReferences}},
      {"representations",
       "<ProductStructure><ReferenceRep xsi:type=\"ReferenceRepType\" id=\"5\"/>"
       "<InstanceRep xsi:type=\"InstanceRepType\" id=\"6\"><IsAggregatedBy>1</IsAggregatedBy>"
       "</InstanceRep></ProductStructure>",
       {Inspector::kReferences, Inspector::kInstanceReps, Inspector::kReferenceReps}},
      {"an extension only",
       "<ProductStructure/><SpecificExtensionSet><SpecificExtension id=\"3\"/>"
       "</SpecificExtensionSet>",
       {Inspector::kExtensions}},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string path = Write("i" + std::to_string(n++) + ".xml", kaltest::VorlaXml(c.body));
    KalVorlaParser parser;
    ASSERT_EQ(parser.InitParsing(path.c_str()), S_OK);
    for (T table : all) {
      const bool kept = std::find(c.kept.begin(), c.kept.end(), table) != c.kept.end();
      EXPECT_EQ(Inspector::TableOf(parser, table) != nullptr, kept) << "table " << table;
    }
  }
}

// "http://" names are first copied to "local.vorla" in the KalTemp directory; the copy is
// deleted once the document is read, but a failure before that leaves it behind.
class HttpLoading : public Loading {
 protected:
  HttpLoading() : _KalTemp("KalTemp", _Temp.Path().c_str()) {}
  std::string LocalCopy() const { return _Temp.File("local.vorla"); }

  TempDir _Temp;
  ScopedEnv _KalTemp;
  kaltest::HttpServer _Server;
};

TEST_F(HttpLoading, ServedArchiveIsCopiedLoadedAndTheCopyDeleted) {
  const std::string archive = _Dir.File("served.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("served"));
  _Server.Set("/doc.vorla", {200, kaltest::ReadFile(archive), -1});
  const std::string url = _Server.Url("/doc.vorla");
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(url.c_str()), S_OK);
  EXPECT_EQ(_Server.RequestCount(), 1);
  EXPECT_EQ(RootName(parser), "served");
  EXPECT_EQ(FilePath(parser), "root.xml");
  EXPECT_TRUE(Inspector::OwnsArchive(parser));
  EXPECT_EQ(Inspector::TempDirectory(parser), _Temp.Path());
  EXPECT_EQ(Inspector::DocumentDirectory(parser), _Temp.Path());
  EXPECT_FALSE(kaltest::FileExists(LocalCopy()));
}

TEST_F(HttpLoading, CopyIsDeletedBeforeTheVersionIsChecked) {
  const std::string archive = _Dir.File("served.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("served", "3.0"));
  _Server.Set("/doc.vorla", {200, kaltest::ReadFile(archive), -1});
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(_Server.Url("/doc.vorla").c_str()), kVorlaVersionRefused);
  EXPECT_FALSE(kaltest::FileExists(LocalCopy()));
}

TEST_F(HttpLoading, FailedDownloadsFailAndLeaveNoCopy) {
  const std::string body = Doc("never");
  const struct {
    const char* label;
    kaltest::HttpServer::Route route;
  } cases[] = {{"not found", {404, "no such document", -1}},
               {"server error", {500, body, -1}},
               {"body cut short", {200, body, 10}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    _Server.Set("/doc.vorla", c.route);
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(_Server.Url("/doc.vorla").c_str()), E_FAIL);
    EXPECT_EQ(Inspector::TempDirectory(parser), _Temp.Path());
    EXPECT_EQ(FilePath(parser), "");
    EXPECT_FALSE(kaltest::FileExists(LocalCopy()));
  }
}

TEST_F(HttpLoading, RefusedConnectionFailsAndLeavesNoCopy) {
  const std::string url =
      "http://127.0.0.1:" + std::to_string(kaltest::UnusedLoopbackPort()) + "/doc.vorla";
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(url.c_str()), E_FAIL);
  EXPECT_FALSE(kaltest::FileExists(LocalCopy()));
}

TEST_F(HttpLoading, CopyIntoAMissingDirectoryFails) {
  const std::string missing = _Temp.File("absent");
  ScopedEnv kalTemp("KalTemp", missing.c_str());
  _Server.Set("/doc.vorla", {200, Doc("never"), -1});
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(_Server.Url("/doc.vorla").c_str()), E_FAIL);
  EXPECT_EQ(Inspector::TempDirectory(parser), missing);
}

// A served plain XML file is not an archive, so the XML is read from the given name, which
// is no file: the load fails before the copy would be deleted.
TEST_F(HttpLoading, ServedPlainXmlFailsAndLeavesTheCopy) {
  const std::string body = Doc("plain");
  _Server.Set("/doc.xml", {200, body, -1});
  const std::string url = _Server.Url("/doc.xml");
  KalVorlaParser parser;
  EXPECT_EQ(parser.InitParsing(url.c_str()), E_FAIL);
  EXPECT_EQ(FilePath(parser), url);
  EXPECT_EQ(Inspector::DocumentDirectory(parser), url.substr(0, url.rfind('/')));
  ASSERT_TRUE(kaltest::FileExists(LocalCopy()));
  EXPECT_EQ(kaltest::ReadFile(LocalCopy()), body);
}

}  // namespace
