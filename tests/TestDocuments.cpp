#include "TestDocuments.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zip.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "KalLightXml.h"

namespace kaltest {

namespace {

void Fail(const std::string& what) { throw std::runtime_error(what); }

// A socket bound to 127.0.0.1 on a port the system picks, which *port gets.
int BoundLoopbackSocket(int* port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t length = sizeof address;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    Fail("cannot bind a socket on 127.0.0.1");
  *port = ntohs(address.sin_port);
  return fd;
}

}  // namespace

TempDir::TempDir() {
  const char* root = std::getenv("TMPDIR");
  _Path = std::string(root != nullptr && *root != '\0' ? root : "/tmp") + "/kaltest-XXXXXX";
  if (mkdtemp(&_Path[0]) == nullptr) Fail("cannot create " + _Path);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(_Path, ignored);
}

void WriteArchive(const std::string& path, const std::vector<Entry>& entries) {
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (archive == nullptr) Fail("cannot create " + path);
  for (const Entry& e : entries) {
    // The entries outlive zip_close, so libzip may keep pointing at their bytes.
    zip_source_t* source = zip_source_buffer(archive, e.content.data(), e.content.size(), 0);
    const zip_int64_t index = zip_file_add(archive, e.name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0 || zip_set_file_compression(archive, static_cast<zip_uint64_t>(index),
                                              e.deflate ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0))
      Fail("cannot add " + e.name + " to " + path);
  }
  if (zip_close(archive) != 0) Fail("cannot write " + path);
}

std::unique_ptr<KalLightXmlElementItf> ParseXml(const std::string& xml) {
  std::unique_ptr<KalLightXmlElementItf> root(KalLightXmlElementFactory().CreateElement());
  KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml.data()),
                                     static_cast<int>(xml.size()));
  if (KalLightXmlParser().Parse(input, *root) != 1) Fail("not well-formed: " + xml);
  return root;
}

std::string ManifestXml(const std::string& rootName) {
  return "<Manifest><Root>" + rootName + "</Root></Manifest>";
}

void WriteVorlaArchive(const std::string& path, const std::string& rootName,
                       const std::string& rootXml, const std::vector<Entry>& more) {
  std::vector<Entry> entries = {{"Manifest.xml", ManifestXml(rootName)}, {rootName, rootXml}};
  entries.insert(entries.end(), more.begin(), more.end());
  WriteArchive(path, entries);
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!(out << content).flush()) Fail("cannot write " + path);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) Fail("cannot read " + path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

bool FileExists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

std::set<std::string> Listing(const std::string& directory) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(directory))
    names.insert(e.path().filename().string());
  return names;
}

ToolRun RunVorla(const std::string& args, const TempDir& dir, const std::string& program) {
  const std::string out = dir.File("stdout"), err = dir.File("stderr");
  const int status =
      std::system(("timeout 60 " + program + " " + args + " >" + out + " 2>" + err).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
}

ScopedEnv::ScopedEnv(const char* n, const char* value) : name(n), had(std::getenv(n) != nullptr) {
  if (had) old = std::getenv(n);
  value ? setenv(n, value, 1) : unsetenv(n);
}
ScopedEnv::~ScopedEnv() { had ? setenv(name.c_str(), old.c_str(), 1) : unsetenv(name.c_str()); }

HttpServer::HttpServer() {
  _ListenFd = BoundLoopbackSocket(&_Port);
  if (listen(_ListenFd, 16) != 0) Fail("cannot listen on 127.0.0.1");
  _Thread = std::thread(&HttpServer::Serve, this);
}

HttpServer::~HttpServer() {
  _Stop = true;
  shutdown(_ListenFd, SHUT_RDWR);  // ends a waiting accept
  _Thread.join();
  close(_ListenFd);
}

void HttpServer::Set(const std::string& path, const Route& route) {
  std::lock_guard<std::mutex> lock(_Mutex);
  _Routes[path] = route;
}

std::string HttpServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(_Port) + path;
}

void HttpServer::Serve() {
  while (!_Stop) {
    const int fd = accept4(_ListenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    const timeval timeout{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    std::string head;
    char chunk[4096];
    ssize_t n = 1;
    while (n > 0 && head.find("\r\n\r\n") == std::string::npos)
      if ((n = recv(fd, chunk, sizeof chunk, 0)) > 0) head.append(chunk, static_cast<size_t>(n));
    if (n > 0) {
      ++_Requests;
      const size_t start = head.find(' ') + 1;
      Route route{404, "not found"};
      {
        std::lock_guard<std::mutex> lock(_Mutex);
        auto found = _Routes.find(head.substr(start, head.find(' ', start) - start));
        if (found != _Routes.end()) route = found->second;
      }
      const std::string head = "HTTP/1.1 " + std::to_string(route.status) +
                               " Status\r\nContent-Length: " + std::to_string(route.body.size()) +
                               (route.location.empty() ? "" : "\r\nLocation: " + route.location) +
                               "\r\nConnection: close\r\n\r\n",
                        body = route.body.substr(0, static_cast<size_t>(route.cutAfter));
      const std::string out = route.silent ? "" : route.dripMs > 0 ? head : head + body;
      ssize_t s = 1;
      for (ssize_t sent = 0; s > 0 && sent < static_cast<ssize_t>(out.size()); sent += s)
        s = send(fd, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
      for (size_t i = 0; route.dripMs > 0 && s > 0 && !_Stop && i < body.size(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(route.dripMs));
        s = send(fd, &body[i], 1, MSG_NOSIGNAL);
      }
      // Silent until the client gives up and closes (or the server stops).
      pollfd wait{fd, POLLIN, 0};
      while (route.silent && !_Stop && (poll(&wait, 1, 20) == 0 || recv(fd, chunk, 1, 0) > 0)) {
      }
    }
    // Closing after the whole request was read sends a FIN, not a reset, so the client
    // sees every byte sent before the end.
    shutdown(fd, SHUT_WR);
    close(fd);
  }
}

int UnusedLoopbackPort() {
  int port = 0;
  close(BoundLoopbackSocket(&port));
  return port;
}

}  // namespace kaltest
