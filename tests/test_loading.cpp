// InitParsing end to end: plain files, archives and their manifest, the archive shared
// between parsers, "http://" names, the version check and the dropping of empty indexes.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
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
using kaltest::Str;
using kaltest::TempDir;

// A document whose root reference carries `name`, so a test can tell which file it loaded.
std::string Doc(const std::string& name, const std::string& version = "1.0") {
  const std::string ref = "<Reference3D xsi:type=\"Reference3DType\" id=\"1\" name=\"" + name;
  return kaltest::VorlaXml("<ProductStructure root=\"1\">" + ref + "\"/></ProductStructure>",
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

// Sets (or unsets, with null) an environment variable for the life of the object.
struct ScopedEnv {
  ScopedEnv(const char* name, const char* value) : name(name), had(std::getenv(name) != nullptr) {
    if (had) old = std::getenv(name);
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { had ? setenv(name.c_str(), old.c_str(), 1) : unsetenv(name.c_str()); }
  std::string name, old;
  bool had;
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

// The paths are kept as given, not resolved. Only an unset KalTemp falls back to the
// platform's directory; a set one is taken as it is, even empty.
TEST_F(Loading, PlainXmlFileLoadsWithoutKeepingAnArchive) {
  Write("doc.xml", Doc("plain"));
  const std::string given = _Dir.Path() + "/./doc.xml";
  const struct {
    const char* value;
    std::string expected;
  } cases[] = {{_Dir.Path().c_str(), _Dir.Path()}, {"", ""}, {nullptr, Str(KalGetTempDirectory())}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value ? std::string("KalTemp=\"") + c.value + "\"" : "KalTemp unset");
    ScopedEnv kalTemp("KalTemp", c.value);
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(given.c_str()), S_OK);
    EXPECT_EQ(RootName(parser), "plain");
    EXPECT_FALSE(Inspector::ArchiveOpen());
    EXPECT_FALSE(Inspector::OwnsArchive(parser));
    EXPECT_EQ(FilePath(parser), given);
    EXPECT_EQ(Inspector::DocumentDir(parser), _Dir.Path() + "/.");
    EXPECT_EQ(Inspector::TempDirectory(parser), c.expected);
  }
}

TEST_F(Loading, ArchiveLoadsTheRootNamedByItsManifestUntilItsOwnerGoes) {
  const std::string archive = _Dir.File("pack.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("main"), {{"other.xml", Doc("other")}});
  auto parser = std::make_unique<KalVorlaParser>();
  EXPECT_EQ(parser->InitParsing(archive.c_str()), S_OK);
  EXPECT_EQ(RootName(*parser), "main");
  EXPECT_EQ(FilePath(*parser), "root.xml");
  EXPECT_TRUE(Inspector::OwnsArchive(*parser));
  EXPECT_EQ(Inspector::EntryCount(), 3u);
  char real[PATH_MAX];
  ASSERT_NE(::realpath(_Dir.Path().c_str(), real), nullptr);
  EXPECT_EQ(Inspector::DocumentDir(*parser), real);
  EXPECT_EQ(Str(KalVorlaImportUtilities::_VorlaArchiveFile), "pack.vorla");
  // Empty indexes are dropped after loading.
  EXPECT_NE(Inspector::TableOf(*parser, Inspector::kReferences), nullptr);
  for (auto table : {Inspector::kInstances, Inspector::kInstanceReps, Inspector::kReferenceReps,
                     Inspector::kExtensions})
    EXPECT_EQ(Inspector::TableOf(*parser, table), nullptr) << "table " << table;
  KalUnicodeString root;
  EXPECT_EQ(parser->GetVorlaRootFilePath("/else/where.vorla", root), S_OK);
  EXPECT_EQ(Str(root), "root.xml");

  parser.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
  // Without an open archive the root file is the file-name part of the path.
  KalVorlaParser unloaded;
  EXPECT_EQ(unloaded.GetVorlaRootFilePath("/some/where/doc.vorla", root), S_OK);
  EXPECT_EQ(Str(root), "doc.vorla");
}

// Every archive holds the same stored entries; the cases differ by their manifest, by whether
// an entry bears the archive's own name, and by a byte changed in an entry, which breaks its
// checksum so that it reads short. A manifest that is absent, no XML or without a Root child
// falls back to the archive's name; one that reads short stops before the file path is set.
TEST_F(Loading, ManifestDecidesTheRootEntryAndFallsBackToTheArchiveName) {
  const struct {
    const char* label;
    const char* manifest;  // null: no manifest entry
    bool selfEntry;
    const char* damage;  // null, or text of an entry whose first byte is changed
    HRESULT code;
    const char* filePath;
    const char* rootName;
  } cases[] = {
      {"named root, kept whole", "<Manifest><Root>docs/a.xml</Root></Manifest>", false, nullptr,
       S_OK, "docs/a.xml", "docs-a"},
      {"first Root wins", "<Manifest><Root>b.xml</Root><Root>a.xml</Root></Manifest>", false,
       nullptr, S_OK, "b.xml", "b"},
      {"named entry missing", "<Manifest><Root>gone.xml</Root></Manifest>", false, nullptr, E_FAIL,
       "gone.xml", "<null>"},
      {"root entry not XML", "<Manifest><Root>broken.xml</Root></Manifest>", false, nullptr, E_FAIL,
       "broken.xml", "<null>"},
      {"root entry short", "<Manifest><Root>a.xml</Root></Manifest>", false, "name=\"a\"", E_FAIL,
       "a.xml", "<null>"},
      {"manifest short", "<Manifest><Root>a.xml</Root></Manifest>", true, "<Root>", E_FAIL, "",
       "<null>"},
      {"no manifest, no entry", nullptr, false, nullptr, E_FAIL, "pack.vorla", "<null>"},
      {"no manifest", nullptr, true, nullptr, S_OK, "pack.vorla", "self"},
      {"manifest not XML", "Root=a.xml <<<", true, nullptr, S_OK, "pack.vorla", "self"},
      {"no Root child", "<Manifest><Other>a.xml</Other></Manifest>", true, nullptr, S_OK,
       "pack.vorla", "self"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<kaltest::Entry> entries = {{"a.xml", Doc("a"), false},
                                           {"b.xml", Doc("b"), false},
                                           {"docs/a.xml", Doc("docs-a"), false},
                                           {"broken.xml", "<Model><Header>", false}};
    if (c.manifest) entries.insert(entries.begin(), {"Manifest.xml", c.manifest, false});
    if (c.selfEntry) entries.push_back({"pack.vorla", Doc("self"), false});
    TempDir dir;
    const std::string archive = dir.File("pack.vorla");
    kaltest::WriteArchive(archive, entries);
    if (c.damage) {
      std::string bytes = kaltest::ReadFile(archive);
      const size_t at = bytes.find(c.damage);
      ASSERT_NE(at, std::string::npos);
      bytes[at] ^= 1;
      kaltest::WriteFile(archive, bytes);
    }
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(archive.c_str()), c.code);
    EXPECT_EQ(FilePath(parser), c.filePath);
    EXPECT_EQ(RootName(parser), c.rootName);
    EXPECT_TRUE(Inspector::OwnsArchive(parser));
  }
}

// An unresolvable (empty) path fails before anything is set. Parse failures keep the
// partial tree; the other cases fail after a complete parse.
TEST_F(Loading, MissingUnparsableOrIncompleteFilesFail) {
  const struct {
    const char* name;     // "": the empty path
    const char* content;  // null: the file is missing
  } cases[] = {{"", nullptr},
               {"missing.xml", nullptr},
               {"cut.xml", "<Model><Header><SchemaVersion>1.0"},
               {"childless-root.xml", "<Model/>"},
               {"no-product-structure.xml", "<Model><Header/><DefaultView/></Model>"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = c.content ? Write(c.name, c.content)
                             : *c.name ? _Dir.File(c.name)
                                       : "";
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), E_FAIL);
    EXPECT_EQ(FilePath(parser), path);
    KalLightXmlElementItf* root = nullptr;
    EXPECT_EQ(parser.GetVorlaRootNode(&root), S_OK);
    EXPECT_EQ(root != nullptr, !path.empty());
  }
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
  // Names that are no entry fail; these parsers do not own the archive and leave it open.
  for (const std::string& name : {std::string("nothing.vorla"), archive}) {
    SCOPED_TRACE(name);
    KalVorlaParser stranger;
    EXPECT_EQ(stranger.InitParsing(name.c_str()), E_FAIL);
    EXPECT_EQ(FilePath(stranger), name);
  }
  EXPECT_TRUE(Inspector::ArchiveOpen());

  owner.reset();
  EXPECT_FALSE(Inspector::ArchiveOpen());
  EXPECT_EQ(RootName(*reader), "part");
}

// Versions compare as integers; texts that do not convert count as 0. Only the first header
// is read, and a document without a version is accepted.
TEST_F(Loading, SchemaVersionDecidesAcceptance) {
  const struct {
    const char* header;
    HRESULT code;
  } cases[] = {
      {"<Header><SchemaVersion>2.00</SchemaVersion></Header>", S_OK},
      {"<Header><SchemaVersion>2.1</SchemaVersion></Header>", kVorlaVersionNewerAccepted},
      {"<Header><SchemaVersion>2.10</SchemaVersion></Header>", kVorlaVersionNewerAccepted},
      {"<Header><SchemaVersion>3.0</SchemaVersion></Header>", kVorlaVersionRefused},
      {"<Header><SchemaVersion>v3.0</SchemaVersion></Header>", S_OK},
      {"<Header/>", S_OK},
      {"<Other/><Header><Author/><SchemaVersion>3.0</SchemaVersion></Header>",
       kVorlaVersionRefused},
      {"<Header/><Header><SchemaVersion>3.0</SchemaVersion></Header>", S_OK},
      {"<h:Header><SchemaVersion>1.0</SchemaVersion></h:Header>", E_FAIL},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.header);
    const std::string path = Write(
        "v.xml", std::string("<Model>") + c.header + "<ProductStructure/><DefaultView/></Model>");
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(path.c_str()), c.code);
    EXPECT_EQ(parser.CheckVorlaVersion(), c.code);
    // A refused document stops before the containers are recorded and empty indexes dropped.
    KalLightXmlElementItf* view = nullptr;
    parser.GetDefaultViewNode(&view);
    EXPECT_EQ(view != nullptr, c.code >= 0);
    EXPECT_EQ(Inspector::TableOf(parser, Inspector::kInstances) == nullptr, c.code >= 0);
  }
  KalVorlaParser unloaded;
  EXPECT_EQ(unloaded.CheckVorlaVersion(), E_FAIL);
}

// "http://" names are first copied to "local.vorla" in the KalTemp directory; the copy is
// deleted once the document is read, before the version is checked. A failed copy leaves
// no file behind. A served plain XML file is read from the given name, which is no file, so
// the load fails before the copy would be deleted.
TEST_F(Loading, HttpNamesAreReadThroughALocalCopy) {
  TempDir temp;
  kaltest::HttpServer server;
  const std::string archive = _Dir.File("served.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("served"));
  const std::string served = kaltest::ReadFile(archive);
  kaltest::WriteVorlaArchive(archive, "root.xml", Doc("served", "3.0"));
  const std::string newer = kaltest::ReadFile(archive);
  const std::string url = server.Url("/doc"), copy = temp.File("local.vorla");
  const struct {
    const char* label;
    kaltest::HttpServer::Route route;
    std::string kalTemp;
    HRESULT code;
    const char* filePath;  // null: the URL
    bool copyLeft;
  } cases[] = {
      {"archive", {200, served, -1}, temp.Path(), S_OK, "root.xml", false},
      {"version 3", {200, newer, -1}, temp.Path(), kVorlaVersionRefused, "root.xml", false},
      {"body cut short", {200, served, 10}, temp.Path(), E_FAIL, "", false},
      {"not found", {404, "", -1}, temp.Path(), E_FAIL, "", false},
      {"KalTemp missing", {200, served, -1}, temp.File("absent"), E_FAIL, "", false},
      {"plain XML", {200, Doc("plain"), -1}, temp.Path(), E_FAIL, nullptr, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    server.Set("/doc", c.route);
    ScopedEnv kalTemp("KalTemp", c.kalTemp.c_str());
    KalVorlaParser parser;
    EXPECT_EQ(parser.InitParsing(url.c_str()), c.code);
    EXPECT_EQ(FilePath(parser), c.filePath ? c.filePath : url);
    EXPECT_EQ(Inspector::TempDirectory(parser), c.kalTemp);
    // The directory of the local copy, or, for plain XML, of the name as given.
    const std::string dir = c.copyLeft ? url.substr(0, url.rfind('/')) : temp.Path();
    EXPECT_EQ(Inspector::DocumentDir(parser), c.code == E_FAIL && !c.copyLeft ? "" : dir);
    ASSERT_EQ(kaltest::FileExists(copy), c.copyLeft);
  }
  EXPECT_EQ(kaltest::ReadFile(copy), Doc("plain"));  // left by the last case
  std::remove(copy.c_str());

  ScopedEnv kalTemp("KalTemp", temp.Path().c_str());
  KalVorlaParser refused;
  const std::string nowhere =
      "http://127.0.0.1:" + std::to_string(kaltest::UnusedLoopbackPort()) + "/doc.vorla";
  EXPECT_EQ(refused.InitParsing(nowhere.c_str()), E_FAIL);
  EXPECT_FALSE(kaltest::FileExists(copy));
}

// Once the owner is gone the next load opens an archive of its own. A second load on one
// parser reads another entry of its own archive but fails on the tables the first load
// dropped; the first document's elements, still indexed, stay readable.
TEST_F(Loading, ArchivesFollowTheirOwnersAndASecondLoadKeepsTheFirstDocument) {
  const std::string first = _Dir.File("first.vorla"), second = _Dir.File("second.vorla");
  kaltest::WriteVorlaArchive(first, "root.xml", Doc("first"), {{"next.xml", Doc("next")}});
  kaltest::WriteVorlaArchive(second, "root.xml", Doc("second"));
  {
    KalVorlaParser owner;
    ASSERT_EQ(owner.InitParsing(first.c_str()), S_OK);
    KalLightXmlElementItf* firstRoot = nullptr;
    owner.GetProductStructureRootReference(&firstRoot);
    EXPECT_EQ(owner.InitParsing("next.xml"), E_FAIL);
    EXPECT_EQ(FilePath(owner), "next.xml");
    EXPECT_EQ(RootName(owner), "first");
    EXPECT_EQ(kaltest::NameOf(firstRoot), "first");
    EXPECT_TRUE(Inspector::OwnsArchive(owner));
  }
  KalVorlaParser later;
  ASSERT_EQ(later.InitParsing(second.c_str()), S_OK);
  EXPECT_EQ(RootName(later), "second");
  EXPECT_TRUE(Inspector::OwnsArchive(later));
}

}  // namespace
