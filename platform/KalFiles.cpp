#include "KalFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "KalHttp.h"

namespace {

constexpr char kHttpPrefix[] = "http://";
constexpr char kDefaultTempDirectory[] = "/tmp";

// A file named `final` + ".kaltmp" + random suffix, beside `final`, removed on destruction
// unless it was published.
class SiblingTempFile {
 public:
  explicit SiblingTempFile(const char* final) : _Path(std::string(final) + ".kaltmpXXXXXX") {
    _Fd = mkstemp(&_Path[0]);
  }
  ~SiblingTempFile() {
    if (_Fd >= 0) close(_Fd);
    if (!_Published && _Fd != kUnopened) unlink(_Path.c_str());
  }
  SiblingTempFile(const SiblingTempFile&) = delete;
  SiblingTempFile& operator=(const SiblingTempFile&) = delete;

  bool IsOpen() const { return _Fd >= 0; }
  int Fd() const { return _Fd; }
  const char* Path() const { return _Path.c_str(); }
  bool CloseFd() {
    const int fd = _Fd;
    _Fd = kClosed;
    return close(fd) == 0;
  }
  // Moves the file to `final`; with overwrite 0 an existing `final` makes this fail.
  bool Publish(const char* final, int overwrite) {
    int rc;
    if (overwrite != 0) {
      rc = rename(_Path.c_str(), final);
    } else {
      rc = renameat2(AT_FDCWD, _Path.c_str(), AT_FDCWD, final, RENAME_NOREPLACE);
      // Some file systems lack the no-replace rename; a check first is the next best thing.
      if (rc != 0 && (errno == EINVAL || errno == ENOSYS)) {
        struct stat info {};
        rc = lstat(final, &info) == 0 ? -1 : rename(_Path.c_str(), final);
      }
    }
    _Published = rc == 0;
    return _Published;
  }

 private:
  static constexpr int kUnopened = -1;
  static constexpr int kClosed = -2;
  std::string _Path;
  int _Fd = kUnopened;
  bool _Published = false;
};

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool CopyContent(int from, int to) {
  static constexpr size_t kChunk = size_t{1} << 20;
  std::unique_ptr<char[]> chunk(new (std::nothrow) char[kChunk]);
  if (!chunk) return false;
  for (;;) {
    const ssize_t n = read(from, chunk.get(), kChunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    if (!WriteAll(to, chunk.get(), static_cast<size_t>(n))) return false;
  }
}

bool Exists(const char* path) {
  struct stat info {};
  return lstat(path, &info) == 0;
}

int CopyLocal(const char* from, const char* to, int overwrite) {
  const int source = open(from, O_RDONLY | O_CLOEXEC);
  if (source < 0) return E_FAIL;
  struct stat info {};
  bool ok = fstat(source, &info) == 0 && S_ISREG(info.st_mode);
  if (ok) {
    SiblingTempFile temp(to);
    ok = temp.IsOpen() && fchmod(temp.Fd(), info.st_mode & 0777) == 0 &&
         CopyContent(source, temp.Fd()) && temp.CloseFd() && temp.Publish(to, overwrite);
  }
  close(source);
  return ok ? S_OK : E_FAIL;
}

int Download(const char* url, const char* to, int overwrite) {
  if (overwrite != 0) return KalHttpDownload(url, to) < 0 ? E_FAIL : S_OK;
  // Without overwrite, the existing file must survive even a successful download.
  if (Exists(to)) return E_FAIL;
  SiblingTempFile temp(to);
  if (!temp.IsOpen() || !temp.CloseFd()) return E_FAIL;
  if (KalHttpDownload(url, temp.Path()) < 0) return E_FAIL;
  return temp.Publish(to, overwrite) ? S_OK : E_FAIL;
}

bool IsRegularFile(const char* path) {
  struct stat info {};
  return stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

const char* KalGetEnv(const char* name) {
  if (name == nullptr) return nullptr;
  return std::getenv(name);
}

KalUnicodeString KalGetTempDirectory() {
  const char* dir = std::getenv("TMPDIR");
  if (dir == nullptr || *dir == '\0') return KalUnicodeString(kDefaultTempDirectory);
  return KalUnicodeString(dir);
}

HRESULT KalGetRealPath(const KalUnicodeString& path, KalUnicodeString** result, int /*flags*/) {
  if (result == nullptr) return E_FAIL;
  *result = nullptr;
  if (path.IsEmpty()) return E_FAIL;

  KalUnicodeString* resolved = nullptr;
  if (IsRegularFile(path.ConvertToChar())) {
    char* canonical = realpath(path.ConvertToChar(), nullptr);
    if (canonical != nullptr) {
      resolved = new (std::nothrow) KalUnicodeString(canonical);
      std::free(canonical);
      if (resolved == nullptr) return E_OUTOFMEMORY;
    }
  }
  if (resolved == nullptr) {
    resolved = new (std::nothrow) KalUnicodeString(path);
    if (resolved == nullptr) return E_OUTOFMEMORY;
  }
  *result = resolved;
  return S_OK;
}

int KalFCopy(const KalUnicodeString* from, const KalUnicodeString* to, int overwrite) {
  if (from == nullptr || to == nullptr || from->IsEmpty() || to->IsEmpty()) return E_INVALIDARG;
  if (overwrite == 0 && Exists(to->ConvertToChar())) return E_FAIL;
  if (from->SearchSubString(kHttpPrefix, 0, 1) >= 0) {
    return Download(from->ConvertToChar(), to->ConvertToChar(), overwrite);
  }
  return CopyLocal(from->ConvertToChar(), to->ConvertToChar(), overwrite);
}

int KalGetFileSize(const char* path, uint64_t& size) {
  struct stat info {};
  if (path == nullptr || stat(path, &info) != 0 || !S_ISREG(info.st_mode)) return E_FAIL;
  size = static_cast<uint64_t>(info.st_size);
  return S_OK;
}

int KalDeleteFile(const char* path) {
  if (path == nullptr || *path == '\0') return E_INVALIDARG;
  return unlink(path) == 0 ? S_OK : E_FAIL;
}

void KalSplitPath(const KalUnicodeString* path, KalUnicodeString* directory,
                  KalUnicodeString* name) {
  KalUnicodeString dir;
  KalUnicodeString file;
  if (path != nullptr) {
    const int slash = path->SearchSubString("/", 0, 2);
    if (slash < 0) {
      file = *path;
    } else {
      dir = slash == 0 ? KalUnicodeString("/") : path->SubString(0, slash);
      file = path->SubString(slash + 1, path->GetLengthInChar() - slash - 1);
    }
  }
  // The outputs may be the input itself, so they are written last.
  if (directory != nullptr) *directory = std::move(dir);
  if (name != nullptr) *name = std::move(file);
}

KalUnicodeString KalMakePath(const KalUnicodeString* directory, const KalUnicodeString* name) {
  const KalUnicodeString& dir = directory != nullptr ? *directory : KalUnicodeString::Empty();
  const KalUnicodeString& file = name != nullptr ? *name : KalUnicodeString::Empty();
  if (dir.IsEmpty()) return file;
  const bool dirSlash = dir.ConvertToChar()[dir.GetLengthInChar() - 1] == '/';
  const bool nameSlash = !file.IsEmpty() && file.ConvertToChar()[0] == '/';
  if (dirSlash && nameSlash) return dir + file.SubString(1, file.GetLengthInChar() - 1);
  if (dirSlash || nameSlash) return dir + file;
  return dir + "/" + file;
}

int KalIsAbsolutePath(const char* path, int /*flags*/) {
  if (path == nullptr) return E_INVALIDARG;
  return path[0] == '/' ? S_OK : S_FALSE;
}
