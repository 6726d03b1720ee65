// What the fuzz targets share: inputs as files of this process's own, and parsed XML.
#ifndef KAL_FUZZ_SUPPORT_H
#define KAL_FUZZ_SUPPORT_H

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "KalLightXml.h"
#include "KalLightXmlElementItf.h"

namespace kalfuzz {

// A directory of this process's own (in $TMPDIR, else in /dev/shm when there is one, so that
// writing an input costs no disk), removed when the process exits normally. The library's own
// temporary files go there too, and nothing it does reaches the network: an http proxy on a port
// where nothing listens refuses every download at once.
inline const std::string& ScratchDir() {
  // Never destroyed: the exit handler that removes the directory runs after static objects go.
  static const std::string& dir = *[] {
    const char* tmp = std::getenv("TMPDIR");
    const bool shm = std::filesystem::is_directory("/dev/shm");
    auto* path = new std::string(tmp != nullptr && *tmp != '\0' ? tmp : shm ? "/dev/shm" : "/tmp");
    if (mkdtemp((*path += "/kalfuzz-XXXXXX").data()) == nullptr) std::abort();
    setenv("KalTemp", path->c_str(), 1), setenv("http_proxy", "http://127.0.0.1:9", 1);
    std::atexit([] { std::filesystem::remove_all(ScratchDir()); });
    return path;
  }();
  return dir;
}

// Writes the bytes to `name` in the scratch directory and returns its path.
inline std::string WriteInput(const uint8_t* data, size_t size, const char* name) {
  const std::string path = ScratchDir() + "/" + name;
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr || std::fwrite(data, 1, size, f) != size || std::fclose(f) != 0) std::abort();
  return path;
}

// The document element of the bytes, null when the reader refuses them.
inline std::unique_ptr<KalLightXmlElementItf> ParseXml(const uint8_t* data, size_t size) {
  std::unique_ptr<KalLightXmlElementItf> root(KalLightXmlElementFactory().CreateElement());
  KalLightXmlInputStreamBuffer input(data, static_cast<int>(size));
  if (KalLightXmlParser().Parse(input, *root) != 1) root.reset();
  return root;
}

}  // namespace kalfuzz

#endif
