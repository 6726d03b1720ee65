// Paths, real paths, downloads, copies (local and downloaded) and deletion.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "KalFiles.h"
#include "KalHttp.h"
#include "TestDocuments.h"

namespace {

std::set<std::string> Listing(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    names.insert(e.path().filename().string());
  return names;
}

std::string Text(const KalUnicodeString& s) { return std::string(s.ConvertToChar()); }

// The real path of `path` after the result code.
std::string RealPath(const std::string& path) {
  KalUnicodeString* result = nullptr;
  const HRESULT rc = KalGetRealPath(KalUnicodeString(path.c_str()), &result, 0);
  const std::string out = std::to_string(rc) + " " + (result ? Text(*result) : "<null>");
  delete result;
  return out;
}

TEST(PlatformFiles, SplitCutsAtTheLastSlashMakeJoinsWithOneSlashAndTheyRoundTrip) {
  const char* cases[][3] = {{"/data/docs/root.vorla", "/data/docs", "root.vorla"},
                            {"root.vorla", "", "root.vorla"},
                            {"/root.vorla", "/", "root.vorla"},
                            {"docs/", "docs", ""}};
  for (const auto& c : cases) {
    KalUnicodeString path(c[0]), directory("stale"), name("stale");
    KalSplitPath(&path, &directory, &name);
    EXPECT_EQ(Text(directory) + "|" + Text(name), std::string(c[1]) + "|" + c[2]);
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

TEST(PlatformFiles, FilesGetTheirCanonicalPathOtherNamesComeBackUnchanged) {
  kaltest::TempDir dir;
  std::filesystem::create_directory(dir.File("sub"));
  kaltest::WriteFile(dir.File("sub/doc.xml"), "<Root/>");
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

TEST(PlatformHttp, DownloadsWriteTheWholeBodyOrFailLeavingNoFileAndExistingOnesIntact) {
  kaltest::TempDir dir;
  kaltest::HttpServer server;
  const std::string binary = BinaryBody(1u << 20);
  server.Set("/geo/big.bin", {200, binary});
  server.Set("/empty", {200, ""});
  server.Set("/broken", {500, "server trouble"});
  for (long cut : {0L, 1000L, 99999L})
    server.Set("/cut" + std::to_string(cut), {200, BinaryBody(100000), cut});
  kaltest::WriteFile(dir.File("local.vorla"), "previous");
  const std::string refused =
      "http://127.0.0.1:" + std::to_string(kaltest::UnusedLoopbackPort()) + "/doc.vorla";
  for (const std::string& url :
       {server.Url("/missing.vorla"), server.Url("/broken"), refused, server.Url("/cut0"),
        server.Url("/cut1000"), server.Url("/cut99999")}) {
    EXPECT_EQ(KalHttpDownload(url.c_str(), dir.File("fresh.vorla").c_str()), E_FAIL) << url;
    EXPECT_EQ(KalHttpDownload(url.c_str(), dir.File("local.vorla").c_str()), E_FAIL) << url;
    EXPECT_EQ(kaltest::ReadFile(dir.File("local.vorla")), "previous");
    EXPECT_EQ(Listing(dir.Path()), std::set<std::string>{"local.vorla"});
  }
  EXPECT_EQ(server.RequestCount(), 10) << "the server was reached and answered";

  EXPECT_EQ(KalHttpDownload(server.Url("/geo/big.bin").c_str(), dir.File("big.bin").c_str()), S_OK);
  EXPECT_TRUE(kaltest::ReadFile(dir.File("big.bin")) == binary);
  EXPECT_EQ(KalHttpDownload(server.Url("/empty").c_str(), dir.File("local.vorla").c_str()), S_OK);
  EXPECT_EQ(kaltest::ReadFile(dir.File("local.vorla")), "");
  EXPECT_EQ(Listing(dir.Path()), (std::set<std::string>{"big.bin", "local.vorla"}));
}

TEST(PlatformFiles, CopiesAreByteExactReplaceOnlyWithOverwriteAndFailuresLeaveNothing) {
  kaltest::TempDir dir;
  kaltest::HttpServer server;
  server.Set("/root.vorla", {200, "downloaded"});
  const std::string content = BinaryBody(3u << 20);  // beyond one copy chunk
  kaltest::WriteFile(dir.File("source"), content);
  kaltest::WriteFile(dir.File("kept"), "old");
  kaltest::WriteFile(dir.File("replaced"), "old content that is longer");
  std::filesystem::create_directory(dir.File("folder"));
  const std::string source = dir.File("source"), url = server.Url("/root.vorla"),
                    missingUrl = server.Url("/missing");
  const struct {
    std::string from, to;
    int overwrite, rc;
    std::string after;  // what `to` holds then
  } cases[] = {
      {source, "fresh", 0, S_OK, content},
      {source, "kept", 0, E_FAIL, "old"},
      {source, "replaced", 1, S_OK, content},
      {dir.File("missing"), "copy", 1, E_FAIL, "<none>"},
      {dir.File("folder"), "copy", 1, E_FAIL, "<none>"},
      {source, "nowhere/copy", 1, E_FAIL, "<none>"},
      {"", "copy", 1, E_INVALIDARG, "<none>"},
      {url, "downloaded", 0, S_OK, "downloaded"},
      {url, "kept", 0, E_FAIL, "old"},
      {url, "replaced", 1, S_OK, "downloaded"},
      {missingUrl, "copy", 0, E_FAIL, "<none>"},
      {missingUrl, "copy", 1, E_FAIL, "<none>"},
  };
  for (const auto& c : cases) {
    const KalUnicodeString from(c.from.c_str()), to(dir.File(c.to).c_str());
    EXPECT_EQ(KalFCopy(&from, &to, c.overwrite), c.rc) << c.from << " to " << c.to;
    const bool exists = kaltest::FileExists(dir.File(c.to));
    EXPECT_TRUE((exists ? kaltest::ReadFile(dir.File(c.to)) : "<none>") == c.after) << c.to;
  }
  const KalUnicodeString from(source.c_str()), empty("");
  EXPECT_EQ(KalFCopy(&from, &empty, 1), E_INVALIDARG);
  EXPECT_EQ(KalDeleteFile(dir.File("fresh").c_str()), S_OK);
  EXPECT_EQ(KalDeleteFile(dir.File("fresh").c_str()), E_FAIL);
  EXPECT_EQ(KalDeleteFile(""), E_INVALIDARG);
  EXPECT_EQ(KalDeleteFile(nullptr), E_INVALIDARG);
  EXPECT_EQ(Listing(dir.Path()),  // no temporary file or failed copy is left behind
            (std::set<std::string>{"source", "kept", "replaced", "folder", "downloaded"}));
}

}  // namespace
