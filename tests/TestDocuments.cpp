#include "TestDocuments.h"

#include <arpa/inet.h>
#include <sys/socket.h>
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
#include <httplib.h>

namespace kaltest {

static void Fail(const std::string& what) { throw std::runtime_error(what); }

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

HttpServer::HttpServer() : _pServer(std::make_unique<httplib::Server>()) {
  _pServer->Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
    ++_Requests;
    Route route{404, "not found"};
    {
      std::lock_guard<std::mutex> lock(_Mutex);
      auto found = _Routes.find(request.path);
      if (found != _Routes.end()) route = found->second;
    }
    // Silent until the client gives up (the answer is then lost) or the server stops.
    while (route.silent && !_Stop) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    response.status = route.status;
    if (!route.location.empty()) response.set_header("Location", route.location);
    const size_t sent = route.cutAfter < 0 ? route.body.size() : size_t(route.cutAfter);
    // The full length is declared; a provider that stops early closes the connection.
    response.set_content_provider(
        route.body.size(), "application/octet-stream",
        [this, route, sent](size_t offset, size_t, httplib::DataSink& sink) {
          const size_t n = route.dripMs > 0 ? 1 : sent - offset;
          if (offset >= sent || _Stop) return false;
          std::this_thread::sleep_for(std::chrono::milliseconds(route.dripMs));
          return sink.write(route.body.data() + offset, n);
        });
  });
  _Port = _pServer->bind_to_any_port("127.0.0.1");
  if (_Port < 0) Fail("cannot listen on 127.0.0.1");
  _Thread = std::thread([this] { _pServer->listen_after_bind(); });
}

HttpServer::~HttpServer() {
  _Stop = true;
  _pServer->stop();
  _Thread.join();
}

void HttpServer::Set(const std::string& path, const Route& route) {
  std::lock_guard<std::mutex> lock(_Mutex);
  _Routes[path] = route;
}

std::string HttpServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(_Port) + path;
}

int UnusedLoopbackPort() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t length = sizeof address;
  const bool bound = fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                     getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
  close(fd);
  if (!bound) Fail("cannot bind a socket on 127.0.0.1");
  return ntohs(address.sin_port);
}

}  // namespace kaltest
