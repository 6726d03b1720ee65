#include "Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "KalVorlaResultCodes.h"

namespace vorla {

std::string DescribeLoadCode(HRESULT code) {
  switch (code) {
    case E_FAIL:
      return "it is missing, not a Vorla document, or damaged";
    case E_OUTOFMEMORY:
      return "there is not enough memory to load it";
    case kVorlaVersionRefused:
      return "its schema version (3 or above) is not supported";
    default:
      return "it cannot be loaded";
  }
}

int ReportDocumentError(const std::string& file, HRESULT code) {
  std::cerr << "vorla: cannot read " << file << ": " << DescribeLoadCode(code) << " (code "
            << Hex(code) << ")\n";
  return kExitDocument;
}

int ReportGatherError(const std::string& file, const Assembly& assembly, HRESULT code) {
  if (assembly.error.empty()) return ReportDocumentError(file, code);
  std::cerr << "vorla: cannot walk " << file << ": " << assembly.error << "\n";
  return kExitDocument;
}

void PrintWarnings(const Assembly& assembly) {
  for (const std::string& warning : assembly.warnings) {
    std::cerr << "vorla: warning: " << warning << "\n";
  }
}

int WriteOutput(const std::string& path, const std::string& bytes, bool force) {
  if (path == "-") {
    std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::cout.flush();
    if (std::cout) return kExitOk;
    std::cerr << "vorla: cannot write to standard output\n";
    return kExitOutput;
  }
  if (!force && access(path.c_str(), F_OK) == 0) {
    std::cerr << "vorla: " << path << " exists; use --force to replace it\n";
    return kExitOutput;
  }
  std::string temporary = path + ".XXXXXX";
  const int fd = mkstemp(&temporary[0]);
  if (fd < 0) {
    std::cerr << "vorla: cannot write " << path << ": " << std::strerror(errno) << "\n";
    return kExitOutput;
  }
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    written += static_cast<size_t>(n);
  }
  const int error = written == bytes.size() && fsync(fd) == 0 ? 0 : errno;
  close(fd);
  // mkstemp makes the file private; the result gets the usual mode for new files.
  const mode_t mask = umask(0);
  umask(mask);
  if (error != 0 || chmod(temporary.c_str(), 0666 & ~mask) != 0 ||
      std::rename(temporary.c_str(), path.c_str()) != 0) {
    const int reason = error != 0 ? error : errno;
    unlink(temporary.c_str());
    std::cerr << "vorla: cannot write " << path << ": " << std::strerror(reason) << "\n";
    return kExitOutput;
  }
  return kExitOk;
}

Progress::Progress(const char* what, bool quiet) : _What(what), _Shown(!quiet && isatty(2)) {}

Progress::~Progress() {
  if (_Used) std::cerr << "\r\033[K" << std::flush;
}

void Progress::Update(size_t done) {
  if (!_Shown) return;
  _Used = true;
  std::cerr << "\r" << _What << ": " << done << std::flush;
}

}  // namespace vorla
