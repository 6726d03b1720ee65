// Builders for the documents the tests read: archives, plain files, temporary directories,
// and a small HTTP server on the loopback interface.
#ifndef KAL_TEST_DOCUMENTS_H
#define KAL_TEST_DOCUMENTS_H

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kaltest {

// A directory under the system's temporary directory, removed with its content at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& Path() const { return _Path; }
  std::string File(const std::string& name) const { return _Path + "/" + name; }

 private:
  std::string _Path;
};

struct Entry {
  std::string name, content;
  bool deflate = true;  // false: stored
};

// Writes a zip archive with libzip; throws std::runtime_error on failure.
void WriteArchive(const std::string& path, const std::vector<Entry>& entries);
// A Vorla archive: a manifest naming `rootName` as the root file, then the root file and
// any further entries.
void WriteVorlaArchive(const std::string& path, const std::string& rootName,
                       const std::string& rootXml, const std::vector<Entry>& more = {});
std::string ManifestXml(const std::string& rootName);  // the manifest that names `rootName`
void WriteFile(const std::string& path, const std::string& content);  // throws on failure
std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);

// An HTTP/1.1 server on 127.0.0.1, port chosen by the system, one connection at a time, in
// a thread of its own that stops with the object. Routes map a path ("/doc.vorla") to how
// it is answered.
class HttpServer {
 public:
  struct Route {
    int status = 200;
    std::string body;
    long cutAfter = -1;  // when set, the connection closes after this many bytes of the body
  };
  HttpServer();
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  void Set(const std::string& path, const Route& route);
  std::string Url(const std::string& path) const;
  int RequestCount() const { return _Requests.load(); }

 private:
  void Serve();
  int _ListenFd = -1, _Port = 0;
  std::atomic<bool> _Stop{false};
  std::atomic<int> _Requests{0};
  std::map<std::string, Route> _Routes;
  std::mutex _Mutex;
  std::thread _Thread;
};

// A port on 127.0.0.1 on which nothing listens (a connection to it is refused).
int UnusedLoopbackPort();

}  // namespace kaltest

#endif
