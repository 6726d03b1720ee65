#include "TestDocuments.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kaltest {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPollMillis = 50;
constexpr auto kRequestDeadline = std::chrono::seconds(2);
constexpr auto kResponseDeadline = std::chrono::seconds(10);
constexpr size_t kMaxRequestBytes = 64 * 1024;

std::string TempRoot() {
  const char* dir = std::getenv("TMPDIR");
  return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

int MillisLeft(Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  if (left <= 0) return 0;
  return left < kPollMillis ? static_cast<int>(left) : kPollMillis;
}

// The request head, or empty when the client sent none in time.
std::string ReadRequestHead(int fd, const std::atomic<bool>& stop) {
  std::string head;
  const auto deadline = Clock::now() + kRequestDeadline;
  char chunk[4096];
  while (!stop && head.find("\r\n\r\n") == std::string::npos && head.size() < kMaxRequestBytes) {
    const int wait = MillisLeft(deadline);
    if (wait == 0) return std::string();
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, wait) <= 0) continue;
    const ssize_t n = recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) return std::string();
    head.append(chunk, static_cast<size_t>(n));
  }
  return head;
}

std::string RequestPath(const std::string& head) {
  const size_t start = head.find(' ');
  if (start == std::string::npos) return std::string();
  const size_t end = head.find(' ', start + 1);
  if (end == std::string::npos) return std::string();
  return head.substr(start + 1, end - start - 1);
}

bool SendAll(int fd, const char* data, size_t size, const std::atomic<bool>& stop) {
  const auto deadline = Clock::now() + kResponseDeadline;
  while (size > 0 && !stop) {
    const int wait = MillisLeft(deadline);
    if (wait == 0) return false;
    pollfd p{fd, POLLOUT, 0};
    if (poll(&p, 1, wait) <= 0) continue;
    const ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return size == 0;
}

const char* Reason(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 404:
      return "Not Found";
    case 500:
      return "Internal Server Error";
    default:
      return "Status";
  }
}

void Answer(int fd, const HttpServer::Route& route, const std::atomic<bool>& stop) {
  std::ostringstream head;
  head << "HTTP/1.1 " << route.status << ' ' << Reason(route.status) << "\r\n"
       << "Content-Type: application/octet-stream\r\n"
       << "Content-Length: " << route.body.size() << "\r\n"
       << "Connection: close\r\n\r\n";
  const std::string text = head.str();
  if (!SendAll(fd, text.data(), text.size(), stop)) return;
  size_t bodyBytes = route.body.size();
  if (route.cutAfter >= 0 && static_cast<size_t>(route.cutAfter) < bodyBytes) {
    bodyBytes = static_cast<size_t>(route.cutAfter);
  }
  SendAll(fd, route.body.data(), bodyBytes, stop);
}

struct ArchiveDiscarder {
  void operator()(zip_t* archive) const { zip_discard(archive); }
};

}  // namespace

TempDir::TempDir() {
  std::string pattern = TempRoot() + "/kaltest-XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr) {
    throw std::runtime_error("cannot create a temporary directory under " + TempRoot());
  }
  _Path = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(_Path, ignored);
}

void WriteArchive(const std::string& path, const std::vector<Entry>& entries) {
  int error = 0;
  std::unique_ptr<zip_t, ArchiveDiscarder> archive(
      zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error));
  if (!archive) throw std::runtime_error("cannot create archive " + path);
  for (const Entry& entry : entries) {
    // The entries outlive zip_close, so libzip may keep pointing at their bytes.
    zip_source_t* source =
        zip_source_buffer(archive.get(), entry.content.data(), entry.content.size(), 0);
    if (source == nullptr) throw std::runtime_error("cannot add " + entry.name);
    const zip_int64_t index =
        zip_file_add(archive.get(), entry.name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
      zip_source_free(source);
      throw std::runtime_error("cannot add " + entry.name + " to " + path);
    }
    const zip_int32_t method = entry.deflate ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
    if (zip_set_file_compression(archive.get(), static_cast<zip_uint64_t>(index), method, 0) != 0) {
      throw std::runtime_error("cannot set the compression of " + entry.name);
    }
  }
  if (zip_close(archive.get()) != 0) {
    throw std::runtime_error("cannot write archive " + path + ": " + zip_strerror(archive.get()));
  }
  archive.release();
}

std::string ManifestXml(const std::string& rootName) {
  return "<Manifest><Root>" + rootName + "</Root></Manifest>";
}

void WriteVorlaArchive(const std::string& path, const std::string& rootName,
                       const std::string& rootXml, const std::vector<Entry>& more) {
  std::vector<Entry> entries;
  entries.push_back(Entry{"Manifest.xml", ManifestXml(rootName)});
  entries.push_back(Entry{rootName, rootXml});
  entries.insert(entries.end(), more.begin(), more.end());
  WriteArchive(path, entries);
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

bool FileExists(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

long PeakResidentBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss * 1024L;  // Linux reports kibibytes
}

HttpServer::HttpServer() : _pMutex(new std::mutex) {
  _ListenFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (_ListenFd < 0) throw std::runtime_error("cannot create a socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(_ListenFd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(_ListenFd, 16) != 0 ||
      getsockname(_ListenFd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    close(_ListenFd);
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  _Port = ntohs(address.sin_port);
  _Thread = std::thread(&HttpServer::Serve, this);
}

HttpServer::~HttpServer() {
  _Stop = true;
  if (_Thread.joinable()) _Thread.join();
  close(_ListenFd);
}

void HttpServer::Set(const std::string& path, const Route& route) {
  std::lock_guard<std::mutex> lock(*_pMutex);
  _Routes[path] = route;
}

std::string HttpServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(_Port) + path;
}

void HttpServer::Serve() {
  while (!_Stop) {
    // The short poll lets the destructor stop the thread promptly.
    pollfd p{_ListenFd, POLLIN, 0};
    if (poll(&p, 1, kPollMillis) <= 0) continue;
    const int fd = accept4(_ListenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    const std::string head = ReadRequestHead(fd, _Stop);
    if (!head.empty()) {
      ++_Requests;
      Route route;
      route.status = 404;
      route.body = "not found";
      {
        std::lock_guard<std::mutex> lock(*_pMutex);
        auto found = _Routes.find(RequestPath(head));
        if (found != _Routes.end()) route = found->second;
      }
      Answer(fd, route, _Stop);
    }
    // Closing after the whole request was read sends a FIN, not a reset, so the client
    // sees every byte that was sent before the end.
    shutdown(fd, SHUT_WR);
    close(fd);
  }
}

int UnusedLoopbackPort() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw std::runtime_error("cannot create a socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  const bool ok = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
  close(fd);
  if (!ok) throw std::runtime_error("cannot find a free port on 127.0.0.1");
  return ntohs(address.sin_port);
}

}  // namespace kaltest
