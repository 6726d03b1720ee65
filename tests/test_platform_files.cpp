// Paths, the environment, real paths, local copies and deletion.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "KalFiles.h"
#include "TestDocuments.h"

namespace {

using kaltest::TempDir;

std::string Text(const KalUnicodeString& s) { return std::string(s.ConvertToChar()); }

// Sets or unsets an environment variable for the scope of a test.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : _Name(name) {
    const char* old = std::getenv(name);
    _Had = old != nullptr;
    if (_Had) _Old = old;
    if (value != nullptr) {
      setenv(name, value, 1);
    } else {
      unsetenv(name);
    }
  }
  ~ScopedEnv() {
    if (_Had) {
      setenv(_Name.c_str(), _Old.c_str(), 1);
    } else {
      unsetenv(_Name.c_str());
    }
  }

 private:
  std::string _Name;
  std::string _Old;
  bool _Had = false;
};

class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& dir) {
    char old[PATH_MAX];
    if (getcwd(old, sizeof old) == nullptr) throw std::runtime_error("no working directory");
    _Old = old;
    if (chdir(dir.c_str()) != 0) throw std::runtime_error("cannot enter " + dir);
  }
  ~ScopedWorkingDirectory() {
    if (chdir(_Old.c_str()) != 0) ADD_FAILURE() << "cannot return to " << _Old;
  }

 private:
  std::string _Old;
};

std::vector<std::string> Listing(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Canonical(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) throw std::runtime_error("cannot resolve " + path);
  std::string out(resolved);
  std::free(resolved);
  return out;
}

std::string BinaryContent(size_t size) {
  std::string out(size, '\0');
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 7919u) >> 3);
  return out;
}

int Copy(const std::string& from, const std::string& to, int overwrite) {
  const KalUnicodeString source(from.c_str());
  const KalUnicodeString target(to.c_str());
  return KalFCopy(&source, &target, overwrite);
}

// The real path of `path`, "<null>" when none was given, "<untouched>" when the output
// was not written; rc gets the result code.
std::string RealPath(const std::string& path, HRESULT* rc) {
  KalUnicodeString untouched;
  KalUnicodeString* result = &untouched;
  *rc = KalGetRealPath(KalUnicodeString(path.c_str()), &result, 0);
  if (result == nullptr) return "<null>";
  if (result == &untouched) return "<untouched>";
  std::string out = Text(*result);
  delete result;
  return out;
}

TEST(PlatformFilesPath, SplitPathCutsAtTheLastSlash) {
  struct Case {
    const char* path;
    const char* directory;
    const char* name;
  } cases[] = {{"/data/docs/root.vorla", "/data/docs", "root.vorla"},
               {"docs/geo/part.bin", "docs/geo", "part.bin"},
               {"root.vorla", "", "root.vorla"},
               {"/root.vorla", "/", "root.vorla"},
               {"docs/", "docs", ""},
               {"", "", ""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    const KalUnicodeString path(c.path);
    KalUnicodeString directory("stale"), name("stale");
    KalSplitPath(&path, &directory, &name);
    EXPECT_EQ(Text(directory), c.directory);
    EXPECT_EQ(Text(name), c.name);
  }
}

TEST(PlatformFilesPath, SplitPathTakesNullOutputsAndWritesOverItsOwnInput) {
  KalUnicodeString path("/a/b/c.xml");
  KalUnicodeString name;
  KalSplitPath(&path, nullptr, &name);
  EXPECT_EQ(Text(name), "c.xml");
  KalSplitPath(&path, &path, nullptr);
  EXPECT_EQ(Text(path), "/a/b");
  KalUnicodeString other("x/y");
  KalSplitPath(&other, &name, &other);
  EXPECT_EQ(Text(name), "x");
  EXPECT_EQ(Text(other), "y");
}

TEST(PlatformFilesPath, MakePathJoinsWithExactlyOneSlash) {
  struct Case {
    const char* directory;
    const char* name;
    const char* joined;
  } cases[] = {{"/data/docs", "root.vorla", "/data/docs/root.vorla"},
               {"/data/docs/", "root.vorla", "/data/docs/root.vorla"},
               {"docs", "/root.vorla", "docs/root.vorla"},
               {"docs/", "/root.vorla", "docs/root.vorla"},
               {"/", "root.vorla", "/root.vorla"},
               {"", "root.vorla", "root.vorla"},
               {"", "geo/part.bin", "geo/part.bin"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.directory) + " + " + c.name);
    const KalUnicodeString directory(c.directory), name(c.name);
    EXPECT_EQ(Text(KalMakePath(&directory, &name)), c.joined);
  }
  const KalUnicodeString name("root.vorla");
  EXPECT_EQ(Text(KalMakePath(nullptr, &name)), "root.vorla");
}

TEST(PlatformFilesPath, SplitThenMakeGivesBackThePath) {
  for (const char* text : {"/data/docs/root.vorla", "docs/root.vorla", "/root.vorla"}) {
    SCOPED_TRACE(text);
    const KalUnicodeString path(text);
    KalUnicodeString directory, name;
    KalSplitPath(&path, &directory, &name);
    EXPECT_EQ(Text(KalMakePath(&directory, &name)), text);
  }
}

TEST(PlatformFilesPath, IsAbsolutePathAnswersZeroForAbsoluteAndOneForRelative) {
  EXPECT_EQ(KalIsAbsolutePath("/data/root.vorla", 0), S_OK);
  EXPECT_EQ(KalIsAbsolutePath("/", 0), S_OK);
  EXPECT_EQ(KalIsAbsolutePath("root.vorla", 0), S_FALSE);
  EXPECT_EQ(KalIsAbsolutePath("./root.vorla", 0), S_FALSE);
  EXPECT_EQ(KalIsAbsolutePath("../geo/part.bin", 0), S_FALSE);
  EXPECT_EQ(KalIsAbsolutePath("", 0), S_FALSE);
  EXPECT_EQ(KalIsAbsolutePath(nullptr, 0), E_INVALIDARG);
}

TEST(PlatformFilesRealPath, ExistingFileGivesItsCanonicalAbsolutePath) {
  TempDir dir;
  std::filesystem::create_directory(dir.File("sub"));
  kaltest::WriteFile(dir.File("sub/doc.xml"), "<Root/>");
  std::filesystem::create_directory_symlink(dir.File("sub"), dir.File("link"));
  const std::string expected = Canonical(dir.Path()) + "/sub/doc.xml";

  HRESULT rc = E_FAIL;
  EXPECT_EQ(RealPath(dir.File("sub/./doc.xml"), &rc), expected);
  EXPECT_EQ(rc, S_OK);
  EXPECT_EQ(RealPath(dir.File("link/doc.xml"), &rc), expected);
  EXPECT_EQ(RealPath(dir.File("sub/../sub/doc.xml"), &rc), expected);
  EXPECT_EQ(rc, S_OK);
}

TEST(PlatformFilesRealPath, RelativeNameOfExistingFileBecomesAbsolute) {
  TempDir dir;
  kaltest::WriteFile(dir.File("doc.xml"), "<Root/>");
  const ScopedWorkingDirectory inside(dir.Path());
  HRESULT rc = E_FAIL;
  EXPECT_EQ(RealPath("doc.xml", &rc), Canonical(dir.Path()) + "/doc.xml");
  EXPECT_EQ(rc, S_OK);
  EXPECT_EQ(RealPath("missing.xml", &rc), "missing.xml") << "no file: the name as given";
  EXPECT_EQ(rc, S_OK);
}

TEST(PlatformFilesRealPath, NamesThatAreNoFileOnDiskComeBackUnchanged) {
  TempDir dir;
  for (const std::string& name :
       {std::string("http://127.0.0.1:8080/docs/root.vorla"), std::string("geo/part.3drep"),
        std::string("Manifest.xml"), dir.File("missing.vorla"), dir.Path()}) {
    SCOPED_TRACE(name);
    HRESULT rc = E_FAIL;
    EXPECT_EQ(RealPath(name, &rc), name);
    EXPECT_EQ(rc, S_OK);
  }
}

TEST(PlatformFilesRealPath, EmptyNameOrNullResultFailsWithNullResult) {
  HRESULT rc = S_OK;
  EXPECT_EQ(RealPath("", &rc), "<null>");
  EXPECT_EQ(rc, E_FAIL);
  EXPECT_EQ(KalGetRealPath(KalUnicodeString("/tmp"), nullptr, 0), E_FAIL);
}

TEST(PlatformFilesEnvironment, GetEnvGivesTheValueOrNull) {
  {
    const ScopedEnv set("KAL_PLATFORM_TEST_VARIABLE", "some value");
    ASSERT_NE(KalGetEnv("KAL_PLATFORM_TEST_VARIABLE"), nullptr);
    EXPECT_STREQ(KalGetEnv("KAL_PLATFORM_TEST_VARIABLE"), "some value");
  }
  EXPECT_EQ(KalGetEnv("KAL_PLATFORM_TEST_VARIABLE"), nullptr);
}

TEST(PlatformFilesEnvironment, TempDirectoryFollowsTmpdirElseTmp) {
  {
    const ScopedEnv set("TMPDIR", "/var/tmp/kal");
    EXPECT_EQ(Text(KalGetTempDirectory()), "/var/tmp/kal");
  }
  {
    const ScopedEnv empty("TMPDIR", "");
    EXPECT_EQ(Text(KalGetTempDirectory()), "/tmp");
  }
  const ScopedEnv unset("TMPDIR", nullptr);
  EXPECT_EQ(Text(KalGetTempDirectory()), "/tmp");
}

TEST(PlatformFilesCopy, LocalCopyIsByteExactAndLeavesNoOtherFile) {
  TempDir dir;
  const std::string content = BinaryContent(3u << 20);
  kaltest::WriteFile(dir.File("source.vorla"), content);
  EXPECT_EQ(Copy(dir.File("source.vorla"), dir.File("copy.vorla"), 1), 0);
  EXPECT_TRUE(kaltest::ReadFile(dir.File("copy.vorla")) == content);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"copy.vorla", "source.vorla"}));
}

TEST(PlatformFilesCopy, OverwriteReplacesAnExistingDestination) {
  TempDir dir;
  kaltest::WriteFile(dir.File("source.vorla"), "new content");
  kaltest::WriteFile(dir.File("copy.vorla"), "old content that is longer");
  EXPECT_EQ(Copy(dir.File("source.vorla"), dir.File("copy.vorla"), 1), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("copy.vorla")), "new content");
}

TEST(PlatformFilesCopy, WithoutOverwriteAnExistingDestinationIsKept) {
  TempDir dir;
  kaltest::WriteFile(dir.File("source.vorla"), "new content");
  kaltest::WriteFile(dir.File("copy.vorla"), "old content");
  EXPECT_LT(Copy(dir.File("source.vorla"), dir.File("copy.vorla"), 0), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("copy.vorla")), "old content");
  EXPECT_EQ(Copy(dir.File("source.vorla"), dir.File("fresh.vorla"), 0), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("fresh.vorla")), "new content");
  EXPECT_EQ(Listing(dir.Path()),
            (std::vector<std::string>{"copy.vorla", "fresh.vorla", "source.vorla"}));
}

TEST(PlatformFilesCopy, FailedCopyLeavesNothingBehind) {
  TempDir dir;
  std::filesystem::create_directory(dir.File("folder"));
  kaltest::WriteFile(dir.File("source.vorla"), "content");
  EXPECT_LT(Copy(dir.File("missing.vorla"), dir.File("copy.vorla"), 1), 0);
  EXPECT_LT(Copy(dir.File("folder"), dir.File("copy.vorla"), 1), 0) << "a directory";
  EXPECT_LT(Copy(dir.File("source.vorla"), dir.File("nowhere/copy.vorla"), 1), 0);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"folder", "source.vorla"}));
  EXPECT_TRUE(Listing(dir.File("folder")).empty());
}

TEST(PlatformFilesCopy, NullOrEmptyNamesFail) {
  TempDir dir;
  kaltest::WriteFile(dir.File("source.vorla"), "content");
  const KalUnicodeString source(dir.File("source.vorla").c_str());
  const KalUnicodeString empty("");
  EXPECT_LT(KalFCopy(nullptr, &source, 1), 0);
  EXPECT_LT(KalFCopy(&source, nullptr, 1), 0);
  EXPECT_LT(KalFCopy(&source, &empty, 1), 0);
  EXPECT_LT(KalFCopy(&empty, &source, 1), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("source.vorla")), "content");
}

TEST(PlatformFilesDelete, DeleteRemovesTheFileAndFailsWhenThereIsNone) {
  TempDir dir;
  kaltest::WriteFile(dir.File("local.vorla"), "content");
  EXPECT_EQ(KalDeleteFile(dir.File("local.vorla").c_str()), 0);
  EXPECT_FALSE(kaltest::FileExists(dir.File("local.vorla")));
  EXPECT_LT(KalDeleteFile(dir.File("local.vorla").c_str()), 0);
  EXPECT_LT(KalDeleteFile(""), 0);
  EXPECT_LT(KalDeleteFile(nullptr), 0);
}

}  // namespace
