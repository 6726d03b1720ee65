#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KalLightXml.h"

KalLightXmlInputFile::KalLightXmlInputFile(const KalUnicodeString& path)
    : _Path(path), _pMapping(nullptr), _Size(0), _Opened(false) {}

KalLightXmlInputFile::~KalLightXmlInputFile() {
  if (_pMapping != nullptr) munmap(_pMapping, _Size);
}

bool KalLightXmlInputFile::GetBytes(const unsigned char*& data, size_t& size) {
  if (!_Opened) {
    // Without O_NONBLOCK, opening a FIFO waits for a writer that may never come; anything
    // but a regular file is refused below anyway.
    int fd = open(_Path.ConvertToChar(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      close(fd);
      return false;
    }
    _Size = static_cast<size_t>(st.st_size);
    if (_Size != 0) {
      // Mapped rather than read: the parser copies only what the tree keeps.
      void* p = mmap(nullptr, _Size, PROT_READ, MAP_PRIVATE, fd, 0);
      if (p == MAP_FAILED) {
        close(fd);
        return false;
      }
      madvise(p, _Size, MADV_SEQUENTIAL);
      _pMapping = p;
    }
    close(fd);
    _Opened = true;
  }
  static const unsigned char kNothing[1] = {0};
  data = _pMapping != nullptr ? static_cast<const unsigned char*>(_pMapping) : kNothing;
  size = _Size;
  return true;
}

KalLightXmlInputStreamBuffer::KalLightXmlInputStreamBuffer(const unsigned char* data, int size)
    : _pData(data), _Size(size) {}

bool KalLightXmlInputStreamBuffer::GetBytes(const unsigned char*& data, size_t& size) {
  if (_pData == nullptr && _Size != 0) return false;
  static const unsigned char kNothing[1] = {0};
  data = _pData != nullptr ? _pData : kNothing;
  size = _Size > 0 ? static_cast<size_t>(_Size) : 0;
  return true;
}
