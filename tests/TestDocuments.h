// Builders for the documents the tests read: archives, plain files, temporary directories,
// and a small HTTP server on the loopback interface; what every test file includes.
#ifndef KAL_TEST_DOCUMENTS_H
#define KAL_TEST_DOCUMENTS_H

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "KalLightXmlElementItf.h"
#include "KalRawColl.h"
#include "KalVorlaParser.h"

namespace httplib {
class Server;
}

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
std::set<std::string> Listing(const std::string& directory);  // the names in a directory

// What the vorla tool (or `program`) did with `args`, run with a minute to finish (a hang
// fails, it does not stall the suite); its output goes through files in `dir`.
struct ToolRun {
  int exit;
  std::string out, err;
};
ToolRun RunVorla(const std::string& args, const TempDir& dir,
                 const std::string& program = KAL_VORLA_PATH);

// Sets (or, with null, unsets) an environment variable for the life of the object.
struct ScopedEnv {
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();
  std::string name, old;
  bool had;
};

// An HTTP/1.1 server (cpp-httplib) on 127.0.0.1, port chosen by the system, in a thread of its
// own that stops with the object. Routes map a path ("/doc.vorla") to how it is answered.
class HttpServer {
 public:
  struct Route {
    int status = 200;
    std::string body;
    long cutAfter = -1;  // when set, the connection closes after this many bytes of the body
    std::string location = "";  // sent as a Location header when set
    int dripMs = 0;             // when set, the body goes out a byte at a time, this far apart
    bool silent = false;        // the request is read and never answered
  };
  HttpServer();
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  void Set(const std::string& path, const Route& route);
  std::string Url(const std::string& path) const;
  int RequestCount() const { return _Requests.load(); }

 private:
  std::unique_ptr<httplib::Server> _pServer;
  int _Port = 0;
  std::atomic<bool> _Stop{false};
  std::atomic<int> _Requests{0};
  std::map<std::string, Route> _Routes;
  std::mutex _Mutex;
  std::thread _Thread;
};

inline std::string Str(const KalUnicodeString& s) { return s.ConvertToChar(); }
using Codes = std::vector<HRESULT>;  // result codes compared side by side
using Element = KalLightXmlElementItf;

// A product-structure element typed after its tag ("Instance3D": "Instance3DType"), with more
// attributes, the id of the reference that aggregates it, the URN it instantiates and further
// content; empty strings add nothing.
inline std::string Entity(const std::string& tag, const std::string& attributes,
                          const std::string& parent = "", const std::string& urn = "",
                          const std::string& content = "") {
  return "<" + tag + " xsi:type='" + tag + "Type' " + attributes + ">" +
         (parent.empty() ? "" : "<IsAggregatedBy>" + parent + "</IsAggregatedBy>") +
         (urn.empty() ? "" : "<IsInstanceOf>" + urn + "</IsInstanceOf>") + content + "</" + tag +
         ">";
}

// A Vorla root document: a header with the given schema version, then `body`; one whose
// product structure has root reference 1 and holds `body`.
inline std::string VorlaXml(const std::string& body, const std::string& version = "1.0") {
  return "<Model><Header><SchemaVersion>" + version + "</SchemaVersion></Header>" + body +
         "</Model>";
}
inline std::string Structure(const std::string& body, const std::string& version = "1.0") {
  return VorlaXml("<ProductStructure root='1'>" + body + "</ProductStructure>", version);
}

// A Reference3D with an id and a name, holding `content`.
inline std::string Ref(int id, const std::string& name, const std::string& content = "") {
  return Entity("Reference3D", "id='" + std::to_string(id) + "' name='" + name + "'", "", "",
                content);
}

// The "name" attribute of an element, "<null>" for none; of a collection's, space-separated.
inline std::string NameOf(const Element* e) {
  return e == nullptr ? "<null>" : Str(e->GetAttribute("name"));
}
inline std::string Names(const KalRawCollPV& elements) {
  std::string names;
  for (int i = 1; i <= elements.Size(); ++i)
    names += (i > 1 ? " " : "") + NameOf(static_cast<KalLightXmlElementItf*>(elements[i]));
  return names;
}

// The document element of `xml` parsed by the platform's reader; throws when it is refused.
std::unique_ptr<KalLightXmlElementItf> ParseXml(const std::string& xml);

// An element made by hand, with a name, a type attribute and an id. Children may be null,
// which a parsed document never yields.
class FakeElement : public KalLightXmlElementItf {
 public:
  explicit FakeElement(const char* tag = "Fake", std::vector<KalLightXmlElementItf*> children = {},
                       const char* name = "", const char* type = "", const char* value = "",
                       const char* id = "")
      : _Tag(tag), _Name(name), _Type(type), _Value(value), _Id(id), _Children(std::move(children)) {}
  int CopyFrom(const KalLightXmlElementItf*) override { return 0; }
  // The cursor is the 1-based index of the next child.
  KalPosition GetHeadPosition() const override { return _Children.empty() ? nullptr : At(1); }
  KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const override {
    const size_t next = reinterpret_cast<size_t>(cursor);
    cursor = next < _Children.size() ? At(next + 1) : nullptr;
    return _Children[next - 1];
  }
  const KalUnicodeString& GetType() const override { return _Tag; }
  const KalUnicodeString& GetAttribute(const KalUnicodeString& a) const override {
    return a == "name" ? _Name : a == "xsi:type" ? _Type : a == "id" ? _Id : KalUnicodeString::Empty();
  }
  const KalUnicodeString& GetValue() const override { return _Value; }

 private:
  static KalPosition At(size_t n) { return reinterpret_cast<KalPosition>(n); }
  KalUnicodeString _Tag, _Name, _Type, _Value, _Id;
  std::vector<KalLightXmlElementItf*> _Children;
};

// A port on 127.0.0.1 on which nothing listens (a connection to it is refused).
int UnusedLoopbackPort();

}  // namespace kaltest

#endif
