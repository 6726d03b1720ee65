// Paths, real paths, downloads, copies (local and downloaded) and deletion.
#include <filesystem>

#include "KalFiles.h"
#include "KalHttp.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

// The real path of `path` after the result code.
std::string RealPath(const std::string& path) {
  KalUnicodeString* result = nullptr;
  const HRESULT rc = KalGetRealPath(KalUnicodeString(path.c_str()), &result, 0);
  const std::string out = std::to_string(rc) + " " + (result ? Str(*result) : "<null>");
  delete result;
  return out;
}

TEST(PlatformFiles, SplitCutsAtTheLastSlashMakeJoinsWithOneSlashAndTheyRoundTrip) {
  const char* cases[][2] = {{"/data/docs/root.vorla", "/data/docs|root.vorla"},
                            {"root.vorla", "|root.vorla"},
                            {"/root.vorla", "/|root.vorla"},
                            {"docs/", "docs|"}};
  for (const auto& [whole, parts] : cases) {
    KalUnicodeString path(whole), directory("stale"), name("stale");
    KalSplitPath(&path, &directory, &name);
    EXPECT_EQ(Str(directory) + "|" + Str(name), parts);
    EXPECT_EQ(Str(KalMakePath(&directory, &name)), whole);
    KalSplitPath(&path, &name, &path);  // outputs may be the input itself
    EXPECT_EQ(Str(name) + "|" + Str(path), parts);
  }
  const KalUnicodeString slashed("docs/"), bare("docs"), rooted("/root.vorla");
  EXPECT_EQ(Str(KalMakePath(&slashed, &rooted)), "docs/root.vorla");
  EXPECT_EQ(Str(KalMakePath(&bare, &rooted)), "docs/root.vorla");
  EXPECT_EQ((std::vector<int>{KalIsAbsolutePath("/root.vorla", 0),
                              KalIsAbsolutePath("./root.vorla", 0), KalIsAbsolutePath(nullptr, 0)}),
            (std::vector<int>{S_OK, S_FALSE, E_INVALIDARG}));
}

TEST(PlatformFiles, FilesGetTheirCanonicalPathOtherNamesComeBackUnchanged) {
  TempDir dir;
  std::filesystem::create_directory(dir.File("sub"));
  WriteFile(dir.File("sub/doc.xml"), "<Root/>");
  std::filesystem::create_directory_symlink(dir.File("sub"), dir.File("link"));
  const std::string expected = "0 " + std::filesystem::canonical(dir.File("sub/doc.xml")).string();
  for (const std::string& name :
       {dir.File("sub/./doc.xml"), dir.File("link/doc.xml"), dir.File("sub/../sub/doc.xml"),
        std::filesystem::relative(dir.File("sub/doc.xml")).string()})
    EXPECT_EQ(RealPath(name), expected);
  for (const std::string& name :
       {std::string("http://127.0.0.1:8080/docs/root.vorla"), std::string("geo/mesh.3drep"),
        dir.File("missing.vorla"), dir.File("link")})
    EXPECT_EQ(RealPath(name), "0 " + name);
  EXPECT_EQ(RealPath(""), std::to_string(E_FAIL) + " <null>");
  EXPECT_EQ(KalGetRealPath(KalUnicodeString("/tmp"), nullptr, 0), E_FAIL);
}

// Every byte value, in an order that is not a simple cycle.
std::string BinaryBody(size_t size) {
  std::string out(size, '\0');
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 2654435761u) >> 13);
  return out;
}

TEST(PlatformFiles, CopiesAndDownloadsAreByteExactReplaceOnlyAsToldAndFailuresLeaveNothing) {
  TempDir dir;
  HttpServer server;
  const std::string content = BinaryBody(3u << 20), body = BinaryBody(1u << 20);
  server.Set("/big.bin", {200, body});
  server.Set("/empty", {200, ""});
  server.Set("/cut", {200, BinaryBody(100000), 1000});  // the connection closes mid-body
  WriteFile(dir.File("source"), content);               // beyond one copy chunk
  WriteFile(dir.File("kept"), "old");
  WriteFile(dir.File("replaced"), "old content that is longer");
  std::filesystem::create_directory(dir.File("folder"));
  const std::string refused =
      "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort()) + "/doc.vorla";
  for (const std::string& url : {server.Url("/missing.vorla"), refused, server.Url("/cut")})
    for (const char* to : {"none", "kept"})
      EXPECT_EQ(KalHttpDownload(url.c_str(), dir.File(to).c_str()), E_FAIL) << url << " " << to;
  EXPECT_EQ(server.RequestCount(), 4) << "the server was reached and answered";

  const std::string source = dir.File("source"), url = server.Url("/big.bin"),
                    missingUrl = server.Url("/missing");
  const struct {
    std::string from, to;
    int overwrite, rc;  // overwrite -1: KalHttpDownload, which always replaces
    std::string after;  // what `to` holds then
  } cases[] = {
      {source, "kept", 0, E_FAIL, "old"},  // also shows the failed downloads left it alone
      {source, "fresh", 0, S_OK, content},
      {source, "replaced", 1, S_OK, content},
      {dir.File("missing"), "copy", 1, E_FAIL, "<none>"},
      {dir.File("folder"), "copy", 1, E_FAIL, "<none>"},
      {source, "nowhere/copy", 1, E_FAIL, "<none>"},
      {"", "copy", 1, E_INVALIDARG, "<none>"},
      {url, "downloaded", 0, S_OK, body},
      {url, "kept", 0, E_FAIL, "old"},
      {url, "replaced", 1, S_OK, body},
      {missingUrl, "copy", 0, E_FAIL, "<none>"},
      {missingUrl, "copy", 1, E_FAIL, "<none>"},
      {url, "big.bin", -1, S_OK, body},
      {server.Url("/empty"), "kept", -1, S_OK, ""},
  };
  for (const auto& c : cases) {
    const KalUnicodeString from(c.from.c_str()), to(dir.File(c.to).c_str());
    EXPECT_EQ(c.overwrite < 0 ? KalHttpDownload(c.from.c_str(), to.ConvertToChar())
                              : KalFCopy(&from, &to, c.overwrite),
              c.rc)
        << c.from << " to " << c.to;
    const bool exists = FileExists(dir.File(c.to));
    EXPECT_TRUE((exists ? ReadFile(dir.File(c.to)) : "<none>") == c.after) << c.to;
  }
  const KalUnicodeString from(source.c_str()), empty("");
  EXPECT_EQ(KalFCopy(&from, &empty, 1), E_INVALIDARG);
  const std::string fresh = dir.File("fresh");
  EXPECT_EQ((std::vector<int>{KalDeleteFile(fresh.c_str()), KalDeleteFile(fresh.c_str()),
                              KalDeleteFile(""), KalDeleteFile(nullptr)}),
            (std::vector<int>{S_OK, E_FAIL, E_INVALIDARG, E_INVALIDARG}));
  EXPECT_EQ(
      Listing(dir.Path()),  // no temporary file or failed copy or download is left
      (std::set<std::string>{"source", "kept", "replaced", "folder", "downloaded", "big.bin"}));
}

}  // namespace
}  // namespace kaltest
