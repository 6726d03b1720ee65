// Read access to a zip archive.
#ifndef KAL_SYS_ZIP_FILE_H
#define KAL_SYS_ZIP_FILE_H

#include <memory>

#include "KalUnicodeString.h"

// Open modes of OpenZip (bit set).
constexpr int KAL_ZIP_READ = 1;
constexpr int KAL_ZIP_CHECK_CONSISTENCY = 2;

// One archive, and at most one of its entries open for reading at a time.
class KalSysZipFile {
 public:
  KalSysZipFile();
  virtual ~KalSysZipFile();
  KalSysZipFile(const KalSysZipFile&) = delete;
  KalSysZipFile& operator=(const KalSysZipFile&) = delete;

  // 0 when the file was opened as an archive; non-zero when it is not one (or cannot be
  // read). A file that is not an archive is not an error of the caller's.
  int OpenZip(const KalUnicodeString* path, int mode);
  // The table of contents, in the archive's order: names (new KalUnicodeString[n]),
  // uncompressed sizes (new unsigned int[n]) and, when asked for, compressed sizes and
  // CRC-32s (new unsigned int[n] each). Any output pointer may be null. Sizes that do not
  // fit 32 bits are given as 0xFFFFFFFF. Returns 0, or negative when no archive is open.
  int BrowseZip(KalUnicodeString** names, unsigned int* count, unsigned int** sizes,
                unsigned int** compressedSizes, unsigned int** crcs);
  // Opens the entry with exactly this name for reading. 0 on success, E_OUTOFMEMORY when its
  // declared uncompressed size is past KalDocumentSizeLimit(), otherwise negative when there
  // is no such entry, it cannot be read, or its declared size is impossible for its
  // compressed size (so a damaged header cannot make a reader allocate or wait for absurd
  // amounts).
  int OpenFileInZip(const KalUnicodeString* name, int mode, int flags);
  // Reads up to `size` bytes of the open entry into buffer; *read gets the count. A short
  // count means the entry ended, or was damaged (bad CRC, truncated data). 0 on success,
  // negative on a read error.
  int ReadBufferInZip(char* buffer, unsigned int size, unsigned int* read);
  int CloseFileInZip();

 private:
  struct Impl;
  std::unique_ptr<Impl> _pImpl;
};

#endif
