// Paths, real paths, local copies and deletion.
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "KalFiles.h"
#include "TestDocuments.h"

namespace {

std::string Text(const KalUnicodeString& s) { return std::string(s.ConvertToChar()); }

int Copy(const std::string& from, const std::string& to, int overwrite) {
  const KalUnicodeString source(from.c_str()), target(to.c_str());
  return KalFCopy(&source, &target, overwrite);
}

// The real path of `path`, "<null>" when none is given, after "error " when rc is not S_OK.
std::string RealPath(const std::string& path) {
  KalUnicodeString* result = nullptr;
  const HRESULT rc = KalGetRealPath(KalUnicodeString(path.c_str()), &result, 0);
  const std::string out = (rc == S_OK ? "" : "error ") + (result ? Text(*result) : "<null>");
  delete result;
  return out;
}

TEST(PlatformFilesPath, SplitCutsAtTheLastSlashMakeJoinsWithOneSlashAndTheyRoundTrip) {
  const char* cases[][3] = {{"/data/docs/root.vorla", "/data/docs", "root.vorla"},
                            {"root.vorla", "", "root.vorla"},
                            {"/root.vorla", "/", "root.vorla"},
                            {"docs/", "docs", ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c[0]);
    KalUnicodeString path(c[0]), directory("stale"), name("stale");
    KalSplitPath(&path, &directory, &name);
    EXPECT_EQ(Text(directory), c[1]);
    EXPECT_EQ(Text(name), c[2]);
    EXPECT_EQ(Text(KalMakePath(&directory, &name)), c[0]);
    KalSplitPath(&path, &name, &path);  // outputs may be the input itself
    EXPECT_EQ(Text(name) + "|" + Text(path), std::string(c[1]) + "|" + c[2]);
  }
  const KalUnicodeString slashed("docs/"), bare("docs"), rooted("/root.vorla");
  EXPECT_EQ(Text(KalMakePath(&slashed, &rooted)), "docs/root.vorla");
  EXPECT_EQ(Text(KalMakePath(&bare, &rooted)), "docs/root.vorla");
  EXPECT_EQ(KalIsAbsolutePath("/root.vorla", 0), S_OK);
  EXPECT_EQ(KalIsAbsolutePath("./root.vorla", 0), S_FALSE);
  EXPECT_EQ(KalIsAbsolutePath(nullptr, 0), E_INVALIDARG);
}

TEST(PlatformFilesRealPath, FilesGetTheirCanonicalPathOtherNamesComeBackUnchanged) {
  kaltest::TempDir dir;
  std::filesystem::create_directory(dir.File("sub"));
  kaltest::WriteFile(dir.File("sub/doc.xml"), "<Root/>");
  std::filesystem::create_directory_symlink(dir.File("sub"), dir.File("link"));
  const std::string expected = std::filesystem::canonical(dir.File("sub/doc.xml")).string();
  for (const std::string& name :
       {dir.File("sub/./doc.xml"), dir.File("link/doc.xml"), dir.File("sub/../sub/doc.xml"),
        std::filesystem::relative(dir.File("sub/doc.xml")).string()})
    EXPECT_EQ(RealPath(name), expected);
  for (const std::string& name :
       {std::string("http://127.0.0.1:8080/docs/root.vorla"), std::string("geo/part.3drep"),
        dir.File("missing.vorla"), dir.File("link")})
    EXPECT_EQ(RealPath(name), name);
  EXPECT_EQ(RealPath(""), "error <null>");
  EXPECT_EQ(KalGetRealPath(KalUnicodeString("/tmp"), nullptr, 0), E_FAIL);
}

TEST(PlatformFilesCopy, CopyIsByteExactReplacesOnlyWithOverwriteAndDeleteRemovesTheCopy) {
  kaltest::TempDir dir;
  std::string content(3u << 20, '\0');  // beyond one copy chunk
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>((i * 7919u) >> 3);
  kaltest::WriteFile(dir.File("source.vorla"), content);
  kaltest::WriteFile(dir.File("kept.vorla"), "old");
  kaltest::WriteFile(dir.File("replaced.vorla"), "old content that is longer");
  std::filesystem::create_directory(dir.File("folder"));

  EXPECT_EQ(Copy(dir.File("source.vorla"), dir.File("fresh.vorla"), 0), 0);
  EXPECT_TRUE(kaltest::ReadFile(dir.File("fresh.vorla")) == content);
  EXPECT_LT(Copy(dir.File("source.vorla"), dir.File("kept.vorla"), 0), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("kept.vorla")), "old");
  EXPECT_EQ(Copy(dir.File("source.vorla"), dir.File("replaced.vorla"), 1), 0);
  EXPECT_TRUE(kaltest::ReadFile(dir.File("replaced.vorla")) == content);
  // Failures: no source, a directory as source, no such target directory, an empty name.
  EXPECT_LT(Copy(dir.File("missing.vorla"), dir.File("copy.vorla"), 1), 0);
  EXPECT_LT(Copy(dir.File("folder"), dir.File("copy.vorla"), 1), 0);
  EXPECT_LT(Copy(dir.File("source.vorla"), dir.File("nowhere/copy.vorla"), 1), 0);
  EXPECT_LT(Copy(dir.File("source.vorla"), "", 1), 0);

  EXPECT_EQ(KalDeleteFile(dir.File("fresh.vorla").c_str()), 0);
  EXPECT_LT(KalDeleteFile(dir.File("fresh.vorla").c_str()), 0);
  EXPECT_LT(KalDeleteFile(""), 0);
  EXPECT_LT(KalDeleteFile(nullptr), 0);
  // No temporary file or failed copy is left behind.
  using It = std::filesystem::directory_iterator;
  EXPECT_EQ(std::distance(It(dir.Path()), It()), 4);  // source, kept, replaced, folder
}

}  // namespace
