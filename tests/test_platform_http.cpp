// Downloads of "http://" names from a server on 127.0.0.1: whole bodies, error statuses,
// refused connections and bodies cut short.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "KalFiles.h"
#include "KalHttp.h"
#include "TestDocuments.h"

namespace {

using kaltest::HttpServer;
using kaltest::TempDir;

std::vector<std::string> Listing(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Every byte value, in an order that is not a simple cycle.
std::string BinaryBody(size_t size) {
  std::string out(size, '\0');
  uint32_t state = 12345u;
  for (size_t i = 0; i < size; ++i) {
    state = state * 1103515245u + 12345u;
    out[i] = static_cast<char>(state >> 16);
  }
  return out;
}

HttpServer::Route Ok(const std::string& body) {
  HttpServer::Route route;
  route.body = body;
  return route;
}

int Copy(const std::string& from, const std::string& to, int overwrite) {
  const KalUnicodeString source(from.c_str());
  const KalUnicodeString target(to.c_str());
  return KalFCopy(&source, &target, overwrite);
}

TEST(PlatformHttp, DownloadWritesTheWholeBodyByteForByte) {
  TempDir dir;
  HttpServer server;
  const std::string xml = "<?xml version=\"1.0\"?><Root>text</Root>";
  const std::string binary = BinaryBody(1u << 20);
  server.Set("/doc.xml", Ok(xml));
  server.Set("/geo/big.bin", Ok(binary));
  server.Set("/empty", Ok(""));

  EXPECT_EQ(KalHttpDownload(server.Url("/doc.xml").c_str(), dir.File("doc.xml").c_str()), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("doc.xml")), xml);
  EXPECT_EQ(KalHttpDownload(server.Url("/geo/big.bin").c_str(), dir.File("big.bin").c_str()), 0);
  const std::string got = kaltest::ReadFile(dir.File("big.bin"));
  EXPECT_EQ(got.size(), binary.size());
  EXPECT_TRUE(got == binary);
  EXPECT_EQ(KalHttpDownload(server.Url("/empty").c_str(), dir.File("empty").c_str()), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("empty")), "");

  EXPECT_EQ(server.RequestCount(), 3);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"big.bin", "doc.xml", "empty"}));
}

TEST(PlatformHttp, ErrorStatusFailsAndLeavesNoFile) {
  TempDir dir;
  HttpServer server;
  HttpServer::Route broken;
  broken.status = 500;
  broken.body = "server trouble";
  server.Set("/broken", broken);

  EXPECT_LT(KalHttpDownload(server.Url("/missing.vorla").c_str(), dir.File("a").c_str()), 0);
  EXPECT_LT(KalHttpDownload(server.Url("/broken").c_str(), dir.File("b").c_str()), 0);
  EXPECT_EQ(server.RequestCount(), 2) << "the server was reached and answered";
  EXPECT_TRUE(Listing(dir.Path()).empty());
}

TEST(PlatformHttp, RefusedConnectionFailsPromptlyAndLeavesNoFile) {
  TempDir dir;
  const std::string url =
      "http://127.0.0.1:" + std::to_string(kaltest::UnusedLoopbackPort()) + "/doc.vorla";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_LT(KalHttpDownload(url.c_str(), dir.File("doc.vorla").c_str()), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_TRUE(Listing(dir.Path()).empty());
}

TEST(PlatformHttp, BodyCutShortFailsAndLeavesNoPartialFile) {
  TempDir dir;
  HttpServer server;
  for (long cut : {0L, 1000L, 99999L}) {
    SCOPED_TRACE(cut);
    HttpServer::Route route = Ok(BinaryBody(100000));
    route.cutAfter = cut;
    server.Set("/cut", route);
    EXPECT_LT(KalHttpDownload(server.Url("/cut").c_str(), dir.File("cut.bin").c_str()), 0);
    EXPECT_TRUE(Listing(dir.Path()).empty());
  }
}

TEST(PlatformHttp, FailedDownloadKeepsAnExistingFileAsItWas) {
  TempDir dir;
  HttpServer server;
  HttpServer::Route route = Ok(std::string(5000, 'n'));
  route.cutAfter = 100;
  server.Set("/cut", route);
  kaltest::WriteFile(dir.File("local.vorla"), "previous");
  EXPECT_LT(KalHttpDownload(server.Url("/cut").c_str(), dir.File("local.vorla").c_str()), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("local.vorla")), "previous");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"local.vorla"}));
}

TEST(PlatformHttp, FCopyDownloadsHttpNamesAndHonoursOverwrite) {
  TempDir dir;
  HttpServer server;
  server.Set("/docs/root.vorla", Ok("downloaded"));
  const std::string url = server.Url("/docs/root.vorla");

  EXPECT_EQ(Copy(url, dir.File("local.vorla"), 1), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("local.vorla")), "downloaded");

  kaltest::WriteFile(dir.File("kept.vorla"), "kept");
  EXPECT_LT(Copy(url, dir.File("kept.vorla"), 0), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("kept.vorla")), "kept");

  kaltest::WriteFile(dir.File("replaced.vorla"), "stale");
  EXPECT_EQ(Copy(url, dir.File("replaced.vorla"), 1), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("replaced.vorla")), "downloaded");

  EXPECT_EQ(Copy(url, dir.File("fresh.vorla"), 0), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("fresh.vorla")), "downloaded");

  EXPECT_LT(Copy(server.Url("/missing.vorla"), dir.File("missing.vorla"), 1), 0);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"fresh.vorla", "kept.vorla",
                                                           "local.vorla", "replaced.vorla"}));
}

}  // namespace
