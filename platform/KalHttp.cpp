#include "KalHttp.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "KalHResult.h"

namespace {

constexpr long kConnectTimeoutSeconds = 10;
// A transfer slower than this for this long is taken as a stalled server.
constexpr long kLowSpeedBytesPerSecond = 1;
constexpr long kLowSpeedSeconds = 20;
// The whole download, however the server paces it: one dripping a byte a second never looks
// stalled.
constexpr long kTotalSeconds = 300;
// Whole seconds, read at each download: the bound on the whole download, and on the connection
// and a stall when they would be longer. Lets a caller wait less (or more) than the defaults.
constexpr char kTimeoutVariable[] = "KAL_HTTP_TIMEOUT";
constexpr long kMaxRedirects = 5;
constexpr char kAllowedProtocols[] = "http,https";

// libcurl and the libraries it pulls in (TLS, Kerberos, LDAP, ...) cost every process that
// links this library tens of milliseconds of start-up, and few documents are "http://" names:
// libcurl is opened the first time one is, and stays open.
struct Curl {
  decltype(&curl_easy_init) init = nullptr;
  decltype(&curl_easy_setopt) setopt = nullptr;
  decltype(&curl_easy_perform) perform = nullptr;
  decltype(&curl_easy_cleanup) cleanup = nullptr;
};

template <class Function>
bool Resolve(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

// Null when libcurl cannot be opened. curl_global_init is not thread-safe; a function-local
// static runs it exactly once.
const Curl* OpenCurl() {
  static const Curl* const curl = []() -> const Curl* {
    void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return nullptr;
    static Curl functions;
    decltype(&curl_global_init) globalInit = nullptr;
    const bool resolved = Resolve(library, "curl_global_init", globalInit) &&
                          Resolve(library, "curl_easy_init", functions.init) &&
                          Resolve(library, "curl_easy_setopt", functions.setopt) &&
                          Resolve(library, "curl_easy_perform", functions.perform) &&
                          Resolve(library, "curl_easy_cleanup", functions.cleanup);
    if (!resolved || globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) return nullptr;
    return &functions;
  }();
  return curl;
}

size_t WriteToFile(char* data, size_t size, size_t count, void* file) {
  return std::fwrite(data, 1, size * count, static_cast<FILE*>(file));
}

struct Bounds {
  long connect = kConnectTimeoutSeconds, stall = kLowSpeedSeconds, total = kTotalSeconds;
};

Bounds DownloadBounds() {
  Bounds bounds;
  const char* text = std::getenv(kTimeoutVariable);
  if (text == nullptr) return bounds;
  char* end = nullptr;
  errno = 0;
  const long seconds = std::strtol(text, &end, 10);
  // Anything but a positive whole number keeps the defaults.
  if (end == text || *end != '\0' || errno != 0 || seconds <= 0) return bounds;
  bounds.total = seconds;
  bounds.connect = std::min(bounds.connect, seconds);
  bounds.stall = std::min(bounds.stall, seconds);
  return bounds;
}

bool Fetch(const char* url, FILE* out) {
  const Curl* library = OpenCurl();
  if (library == nullptr) return false;
  const auto cleanup = [library](CURL* c) { library->cleanup(c); };
  std::unique_ptr<CURL, decltype(cleanup)> curl(library->init(), cleanup);
  if (!curl) return false;
  CURL* c = curl.get();
  const auto set = library->setopt;
  const Bounds bounds = DownloadBounds();
  const bool configured =
      set(c, CURLOPT_URL, url) == CURLE_OK &&
      set(c, CURLOPT_PROTOCOLS_STR, kAllowedProtocols) == CURLE_OK &&
      set(c, CURLOPT_REDIR_PROTOCOLS_STR, kAllowedProtocols) == CURLE_OK &&
      set(c, CURLOPT_FOLLOWLOCATION, 1L) == CURLE_OK &&
      set(c, CURLOPT_MAXREDIRS, kMaxRedirects) == CURLE_OK &&
      set(c, CURLOPT_FAILONERROR, 1L) == CURLE_OK &&
      set(c, CURLOPT_NOSIGNAL, 1L) == CURLE_OK &&
      set(c, CURLOPT_CONNECTTIMEOUT, bounds.connect) == CURLE_OK &&
      set(c, CURLOPT_TIMEOUT, bounds.total) == CURLE_OK &&
      set(c, CURLOPT_LOW_SPEED_LIMIT, kLowSpeedBytesPerSecond) == CURLE_OK &&
      set(c, CURLOPT_LOW_SPEED_TIME, bounds.stall) == CURLE_OK &&
      set(c, CURLOPT_WRITEFUNCTION, WriteToFile) == CURLE_OK &&
      set(c, CURLOPT_WRITEDATA, out) == CURLE_OK;
  // A body shorter than its Content-Length ends in CURLE_PARTIAL_FILE, so only a complete
  // response gives CURLE_OK.
  return configured && library->perform(c) == CURLE_OK;
}

}  // namespace

int KalHttpDownload(const char* url, const char* localPath) {
  if (url == nullptr || *url == '\0' || localPath == nullptr || *localPath == '\0') {
    return E_INVALIDARG;
  }
  // The body goes to a sibling first, so `localPath` only ever appears complete.
  std::string temp = std::string(localPath) + ".kaldownXXXXXX";
  const int fd = mkstemp(&temp[0]);
  if (fd < 0) return E_FAIL;
  FILE* out = fdopen(fd, "wb");
  if (out == nullptr) {
    close(fd);
    unlink(temp.c_str());
    return E_FAIL;
  }
  bool ok = Fetch(url, out);
  ok = std::fclose(out) == 0 && ok;
  if (!ok || std::rename(temp.c_str(), localPath) != 0) {
    unlink(temp.c_str());
    return E_FAIL;
  }
  return S_OK;
}
