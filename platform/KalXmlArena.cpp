#include "KalXmlArena.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kMinChunk = 16 * 1024;
constexpr size_t kMapThreshold = 1024 * 1024;
constexpr size_t kHugePage = 2 * 1024 * 1024;

}  // namespace

KalXmlArena::KalXmlArena(size_t sizeHint)
    : _NextChunkSize(sizeHint < kMinChunk ? kMinChunk : sizeHint) {}

KalXmlArena::~KalXmlArena() {
  Chunk* c = _pChunk;
  while (c != nullptr) {
    Chunk* previous = c->previous;
    if (c->mapped) {
      munmap(c, c->size);
    } else {
      std::free(c);
    }
    c = previous;
  }
}

void* KalXmlArena::AllocateSlow(size_t bytes) {
  size_t size = _NextChunkSize;
  const size_t needed = bytes + sizeof(Chunk) + 8;
  if (size < needed) size = needed;
  Chunk* chunk = nullptr;
  bool mapped = false;
  if (size >= kMapThreshold) {
    // Mapped memory costs nothing until touched, so an over-estimated hint is harmless.
    size = (size + kHugePage - 1) & ~(kHugePage - 1);
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p != MAP_FAILED) {
#ifdef MADV_HUGEPAGE
      madvise(p, size, MADV_HUGEPAGE);
#endif
      chunk = static_cast<Chunk*>(p);
      mapped = true;
    }
  }
  if (chunk == nullptr) {
    chunk = static_cast<Chunk*>(std::malloc(size));
    if (chunk == nullptr) return nullptr;
  }
  chunk->previous = _pChunk;
  chunk->size = size;
  chunk->mapped = mapped;
  _pChunk = chunk;
  _Reserved += size;
  _pChunkStart = reinterpret_cast<char*>(chunk) + ((sizeof(Chunk) + 7) & ~static_cast<size_t>(7));
  _pNext = _pChunkStart;
  _pEnd = reinterpret_cast<char*>(chunk) + size;
  // Later chunks grow geometrically so a poor hint costs few chunks.
  _NextChunkSize = size * 2;
  void* p = _pNext;
  _pNext += bytes;
  return p;
}

char* KalXmlArena::CopyText(const char* text, size_t length) {
  char* p = AllocateText(length + 1);
  if (p == nullptr) return nullptr;
  if (length != 0) std::memcpy(p, text, length);
  p[length] = '\0';
  return p;
}
