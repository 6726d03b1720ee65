#include "KalMemory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace {
constexpr size_t kHugePageThreshold = size_t{4} << 20;
}

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
