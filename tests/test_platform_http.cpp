// Downloads of "http://" names from a server on 127.0.0.1: whole bodies, error statuses,
// refused connections and bodies cut short.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "KalFiles.h"
#include "KalHttp.h"
#include "TestDocuments.h"

namespace {

using kaltest::HttpServer;

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
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 2654435761u) >> 13);
  return out;
}

HttpServer::Route Answer(const std::string& body, int status = 200, long cutAfter = -1) {
  HttpServer::Route route;
  route.body = body;
  route.status = status;
  route.cutAfter = cutAfter;
  return route;
}

int Copy(const std::string& from, const std::string& to, int overwrite) {
  const KalUnicodeString source(from.c_str()), target(to.c_str());
  return KalFCopy(&source, &target, overwrite);
}

TEST(PlatformHttp, DownloadWritesTheWholeBodyByteForByte) {
  kaltest::TempDir dir;
  HttpServer server;
  const std::string binary = BinaryBody(1u << 20);
  server.Set("/geo/big.bin", Answer(binary));
  server.Set("/empty", Answer(""));
  EXPECT_EQ(KalHttpDownload(server.Url("/geo/big.bin").c_str(), dir.File("big.bin").c_str()), 0);
  EXPECT_TRUE(kaltest::ReadFile(dir.File("big.bin")) == binary);
  EXPECT_EQ(KalHttpDownload(server.Url("/empty").c_str(), dir.File("empty").c_str()), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("empty")), "");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"big.bin", "empty"}));
}

TEST(PlatformHttp, ErrorStatusRefusalOrCutBodyFailsLeavingNoFileAndExistingOnesIntact) {
  kaltest::TempDir dir;
  HttpServer server;
  server.Set("/broken", Answer("server trouble", 500));
  for (long cut : {0L, 1000L, 99999L}) {
    server.Set("/cut" + std::to_string(cut), Answer(BinaryBody(100000), 200, cut));
  }
  kaltest::WriteFile(dir.File("local.vorla"), "previous");
  const std::string refused =
      "http://127.0.0.1:" + std::to_string(kaltest::UnusedLoopbackPort()) + "/doc.vorla";
  for (const std::string& url :
       {server.Url("/missing.vorla"), server.Url("/broken"), refused, server.Url("/cut0"),
        server.Url("/cut1000"), server.Url("/cut99999")}) {
    SCOPED_TRACE(url);
    EXPECT_LT(KalHttpDownload(url.c_str(), dir.File("fresh.vorla").c_str()), 0);
    EXPECT_LT(KalHttpDownload(url.c_str(), dir.File("local.vorla").c_str()), 0);
    EXPECT_EQ(kaltest::ReadFile(dir.File("local.vorla")), "previous");
    EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"local.vorla"}));
  }
  EXPECT_EQ(server.RequestCount(), 10) << "the server was reached and answered";
}

TEST(PlatformHttp, FCopyDownloadsHttpNamesAndHonoursOverwrite) {
  kaltest::TempDir dir;
  HttpServer server;
  server.Set("/docs/root.vorla", Answer("downloaded"));
  const std::string url = server.Url("/docs/root.vorla");
  kaltest::WriteFile(dir.File("kept.vorla"), "kept");
  kaltest::WriteFile(dir.File("replaced.vorla"), "stale");
  EXPECT_EQ(Copy(url, dir.File("fresh.vorla"), 0), 0);
  EXPECT_LT(Copy(url, dir.File("kept.vorla"), 0), 0);
  EXPECT_EQ(Copy(url, dir.File("replaced.vorla"), 1), 0);
  EXPECT_LT(Copy(server.Url("/missing.vorla"), dir.File("missing.vorla"), 1), 0);
  EXPECT_EQ(kaltest::ReadFile(dir.File("fresh.vorla")), "downloaded");
  EXPECT_EQ(kaltest::ReadFile(dir.File("kept.vorla")), "kept");
  EXPECT_EQ(kaltest::ReadFile(dir.File("replaced.vorla")), "downloaded");
  EXPECT_EQ(Listing(dir.Path()),
            (std::vector<std::string>{"fresh.vorla", "kept.vorla", "replaced.vorla"}));
}

}  // namespace
