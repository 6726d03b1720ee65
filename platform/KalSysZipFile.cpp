#include "KalSysZipFile.h"

#include <libdeflate.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "KalHResult.h"
#include "KalMemory.h"

namespace {

// OpenZip's answer for a file libzip does not take as an archive (a plain XML file).
constexpr int kNotAnArchive = S_FALSE;
// An entry whose header is damaged or declares something it cannot hold.
constexpr HRESULT kEntryInvalid = static_cast<HRESULT>(0x8007000Du);

constexpr zip_uint64_t kMaxEntrySize = 0xFFFFFFFFu;
// Deflate cannot expand more than 1032:1; the margin covers tiny entries.
constexpr zip_uint64_t kMaxDeflateRatio = 1100;
constexpr zip_uint64_t kDeflateSlack = 4096;
// From this size on an entry's raw bytes get a mapping of their own.
constexpr size_t kOwnMappingThreshold = size_t{4} << 20;

// Holds the raw compressed bytes of an entry; large ones live in their own mapping so they
// can use huge pages and go back to the system at once.
class ScratchBuffer {
 public:
  explicit ScratchBuffer(size_t size) : _Size(size) {
    if (size >= kOwnMappingThreshold) {
      void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (p != MAP_FAILED) {
        _pData = static_cast<unsigned char*>(p);
        _Mapped = true;
        KalAdviseHugePages(p, size);
      }
    } else {
      _pData = new (std::nothrow) unsigned char[size == 0 ? 1 : size];
    }
  }
  ~ScratchBuffer() {
    if (_Mapped) {
      munmap(_pData, _Size);
    } else {
      delete[] _pData;
    }
  }
  ScratchBuffer(const ScratchBuffer&) = delete;
  ScratchBuffer& operator=(const ScratchBuffer&) = delete;
  unsigned char* Data() const { return _pData; }

 private:
  unsigned char* _pData = nullptr;
  size_t _Size;
  bool _Mapped = false;
};

struct FileCloser {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};
using ZipFilePtr = std::unique_ptr<zip_file_t, FileCloser>;

struct DecompressorDeleter {
  void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};

// Reads exactly `size` bytes, or fails.
bool ReadExactly(zip_file_t* file, unsigned char* data, zip_uint64_t size) {
  zip_uint64_t done = 0;
  while (done < size) {
    const zip_int64_t n = zip_fread(file, data + done, size - done);
    if (n <= 0) return false;
    done += static_cast<zip_uint64_t>(n);
  }
  return true;
}

bool IsPlausible(const zip_stat_t& st, zip_uint64_t archiveSize) {
  if (st.size > kMaxEntrySize || st.comp_size > archiveSize) return false;
  switch (st.comp_method) {
    case ZIP_CM_STORE:
      return st.size == st.comp_size;
    case ZIP_CM_DEFLATE:
      return st.size <= st.comp_size * kMaxDeflateRatio + kDeflateSlack;
    default:
      return zip_compression_method_supported(st.comp_method, 0) != 0;
  }
}

}  // namespace

struct KalSysZipFile::Impl {
  zip_t* archive = nullptr;
  zip_uint64_t archiveSize = 0;

  ZipFilePtr entry;
  zip_uint64_t index = 0;
  zip_stat_t stat{};
  zip_uint64_t position = 0;
  // The end-of-entry checks (CRC, length) have passed.
  bool verified = false;
  // A read found the entry damaged; later reads of it fail too.
  bool damaged = false;

  ~Impl() { CloseArchive(); }

  void CloseEntry() {
    entry.reset();
    position = 0;
    verified = false;
    damaged = false;
  }

  void CloseArchive() {
    CloseEntry();
    if (archive != nullptr) {
      zip_discard(archive);
      archive = nullptr;
    }
    archiveSize = 0;
  }

  bool CanInflateWhole(unsigned int size) const {
    return position == 0 && stat.comp_method == ZIP_CM_DEFLATE &&
           (stat.valid & ZIP_STAT_CRC) != 0 && size == stat.size && size > 0;
  }

  enum class Inflated { kWhole, kDamaged, kNotDone };

  // The whole entry in one go: libdeflate on the raw bytes takes about half the time of
  // zlib's streaming inflate through libzip. Not done without the memory for it: the
  // streaming read still works then.
  Inflated InflateWhole(char* buffer, unsigned int size) {
    ScratchBuffer compressed(static_cast<size_t>(stat.comp_size));
    std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> inflater(
        libdeflate_alloc_decompressor());
    if (compressed.Data() == nullptr || !inflater) return Inflated::kNotDone;
    ZipFilePtr raw(zip_fopen_index(archive, index, ZIP_FL_COMPRESSED));
    if (!raw || !ReadExactly(raw.get(), compressed.Data(), stat.comp_size)) {
      return Inflated::kDamaged;
    }
    raw.reset();

    KalAdviseHugePages(buffer, size);
    // A null actual-size output makes anything but exactly `size` bytes an error.
    if (libdeflate_deflate_decompress(inflater.get(), compressed.Data(),
                                      static_cast<size_t>(stat.comp_size), buffer, size,
                                      nullptr) != LIBDEFLATE_SUCCESS ||
        libdeflate_crc32(0, buffer, size) != stat.crc) {
      return Inflated::kDamaged;
    }
    return Inflated::kWhole;
  }

  // libzip checks the CRC and the length only when a read meets the end of the entry, and
  // it drops that error when the same call already returned data, so the end is probed
  // with a read of its own.
  bool VerifyEnd() {
    unsigned char extra = 0;
    return zip_fread(entry.get(), &extra, 1) == 0;
  }
};

KalSysZipFile::KalSysZipFile() : _pImpl(new Impl) {}

KalSysZipFile::~KalSysZipFile() = default;

int KalSysZipFile::OpenZip(const KalUnicodeString* path, int mode) {
  _pImpl->CloseArchive();
  if (path == nullptr || path->IsEmpty()) return kNotAnArchive;

  // The file's size bounds what its entries can hold (see IsPlausible).
  struct stat info {};
  if (::stat(path->ConvertToChar(), &info) != 0 || !S_ISREG(info.st_mode)) return kNotAnArchive;
  int flags = ZIP_RDONLY;
  if ((mode & KAL_ZIP_CHECK_CONSISTENCY) != 0) flags |= ZIP_CHECKCONS;
  int error = 0;
  zip_t* archive = zip_open(path->ConvertToChar(), flags, &error);
  if (archive == nullptr) return kNotAnArchive;
  _pImpl->archive = archive;
  _pImpl->archiveSize = static_cast<zip_uint64_t>(info.st_size);
  return S_OK;
}

int KalSysZipFile::BrowseZip(KalUnicodeString** names, unsigned int* count, unsigned int** sizes,
                             unsigned int** compressedSizes, unsigned int** crcs) {
  if (_pImpl->archive == nullptr) return E_FAIL;
  const zip_int64_t entries = zip_get_num_entries(_pImpl->archive, 0);
  if (entries < 0 || static_cast<zip_uint64_t>(entries) > kMaxEntrySize) return E_FAIL;
  const unsigned int n = static_cast<unsigned int>(entries);

  std::unique_ptr<KalUnicodeString[]> nameArray;
  std::unique_ptr<unsigned int[]> sizeArray, compressedArray, crcArray;
  if (names != nullptr) {
    nameArray.reset(new (std::nothrow) KalUnicodeString[n]);
    if (!nameArray) return E_OUTOFMEMORY;
  }
  auto allocate = [n](unsigned int** wanted, std::unique_ptr<unsigned int[]>& array) {
    if (wanted != nullptr) array.reset(new (std::nothrow) unsigned int[n]);
    return wanted == nullptr || array != nullptr;
  };
  if (!allocate(sizes, sizeArray) || !allocate(compressedSizes, compressedArray) ||
      !allocate(crcs, crcArray)) {
    return E_OUTOFMEMORY;
  }

  auto clamp = [](zip_uint64_t v) {
    return static_cast<unsigned int>(v > kMaxEntrySize ? kMaxEntrySize : v);
  };
  for (unsigned int i = 0; i < n; ++i) {
    if (nameArray) {
      const char* name = zip_get_name(_pImpl->archive, i, 0);
      nameArray[i] = name != nullptr ? name : "";
    }
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat_index(_pImpl->archive, i, 0, &st) != 0) zip_stat_init(&st);
    if (sizeArray) sizeArray[i] = (st.valid & ZIP_STAT_SIZE) ? clamp(st.size) : 0;
    if (compressedArray) {
      compressedArray[i] = (st.valid & ZIP_STAT_COMP_SIZE) ? clamp(st.comp_size) : 0;
    }
    if (crcArray) crcArray[i] = (st.valid & ZIP_STAT_CRC) ? st.crc : 0;
  }

  if (names != nullptr) *names = nameArray.release();
  if (count != nullptr) *count = n;
  if (sizes != nullptr) *sizes = sizeArray.release();
  if (compressedSizes != nullptr) *compressedSizes = compressedArray.release();
  if (crcs != nullptr) *crcs = crcArray.release();
  return S_OK;
}

int KalSysZipFile::OpenFileInZip(const KalUnicodeString* name, int /*mode*/, int /*flags*/) {
  _pImpl->CloseEntry();
  if (_pImpl->archive == nullptr) return E_FAIL;
  if (name == nullptr) return E_INVALIDARG;

  const zip_int64_t index = zip_name_locate(_pImpl->archive, name->ConvertToChar(), 0);
  if (index < 0) return E_FAIL;
  zip_stat_t st;
  zip_stat_init(&st);
  const zip_uint64_t needed = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD;
  if (zip_stat_index(_pImpl->archive, static_cast<zip_uint64_t>(index), 0, &st) != 0 ||
      (st.valid & needed) != needed) {
    return E_FAIL;
  }
  if (!(st.valid & ZIP_STAT_ENCRYPTION_METHOD)) st.encryption_method = ZIP_EM_NONE;
  // Nothing here supplies a password.
  if (st.encryption_method != ZIP_EM_NONE) return E_FAIL;
  // Before the plausibility check: a declared size the machine could not hold while loading
  // is refused as such, whatever else is wrong with the header.
  if (st.size > KalDocumentSizeLimit()) return E_OUTOFMEMORY;
  if (!IsPlausible(st, _pImpl->archiveSize)) return kEntryInvalid;

  ZipFilePtr file(zip_fopen_index(_pImpl->archive, static_cast<zip_uint64_t>(index), 0));
  if (!file) return E_FAIL;
  _pImpl->entry = std::move(file);
  _pImpl->index = static_cast<zip_uint64_t>(index);
  _pImpl->stat = st;
  return S_OK;
}

int KalSysZipFile::ReadBufferInZip(char* buffer, unsigned int size, unsigned int* read) {
  if (read != nullptr) *read = 0;
  Impl& impl = *_pImpl;
  if (!impl.entry || impl.damaged) return E_FAIL;
  if (buffer == nullptr && size > 0) return E_INVALIDARG;

  const Impl::Inflated inflated =
      impl.CanInflateWhole(size) ? impl.InflateWhole(buffer, size) : Impl::Inflated::kNotDone;
  if (inflated == Impl::Inflated::kDamaged) {
    impl.damaged = true;
    return kEntryInvalid;
  }
  if (inflated == Impl::Inflated::kWhole) {
    impl.position = size;
    impl.verified = true;
    if (read != nullptr) *read = size;
    return S_OK;
  }

  const zip_uint64_t remaining = impl.stat.size - impl.position;
  const zip_uint64_t wanted = size < remaining ? size : remaining;
  KalAdviseHugePages(buffer, static_cast<size_t>(wanted));
  zip_uint64_t done = 0;
  while (done < wanted) {
    const zip_int64_t n = zip_fread(impl.entry.get(), buffer + done, wanted - done);
    // An end before the declared size is a truncated entry.
    if (n <= 0) {
      impl.damaged = true;
      if (read != nullptr) *read = static_cast<unsigned int>(done);
      return kEntryInvalid;
    }
    done += static_cast<zip_uint64_t>(n);
  }
  impl.position += done;
  if (impl.position == impl.stat.size && !impl.verified) {
    if (!impl.VerifyEnd()) {
      // The bytes just delivered cannot be trusted, so the call reports none of them.
      impl.damaged = true;
      return kEntryInvalid;
    }
    impl.verified = true;
  }
  if (read != nullptr) *read = static_cast<unsigned int>(done);
  return S_OK;
}

int KalSysZipFile::CloseFileInZip() {
  if (!_pImpl->entry) return S_FALSE;
  _pImpl->CloseEntry();
  return S_OK;
}
