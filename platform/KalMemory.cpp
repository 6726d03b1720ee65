#include "KalMemory.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>

namespace {
constexpr size_t kHugePageThreshold = size_t{4} << 20;
// The document's bytes plus its tree (at most about 2.7 times them), rounded up.
constexpr uint64_t kLoadPeakFactor = 4;
}  // namespace

void KalAdviseHugePages(void* data, size_t size) {
#ifdef MADV_HUGEPAGE
  if (data == nullptr || size < kHugePageThreshold) return;
  const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + page - 1) & ~(page - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + size) & ~(page - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
  static_cast<void>(data);
  static_cast<void>(size);
#endif
}

uint64_t KalDocumentSizeLimit(uint64_t physicalMemory, uint64_t addressSpaceLimit) {
  uint64_t memory = physicalMemory;
  if (addressSpaceLimit != 0 && (memory == 0 || addressSpaceLimit < memory)) {
    memory = addressSpaceLimit;
  }
  return memory == 0 ? UINT64_MAX : memory / kLoadPeakFactor;
}

uint64_t KalDocumentSizeLimit() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGESIZE);
  const uint64_t physical =
      pages > 0 && pageSize > 0 ? static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageSize)
                                : 0;
  struct rlimit limit {};
  const uint64_t addressSpace =
      getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY ? limit.rlim_cur : 0;
  return KalDocumentSizeLimit(physical, addressSpace);
}
