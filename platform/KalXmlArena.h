// Bump allocator that holds a parsed document: elements, attributes and text.
#ifndef KAL_XML_ARENA_H
#define KAL_XML_ARENA_H

#include <cstddef>
#include <cstdint>

// Everything a document holds is allocated here and released at once when the arena goes,
// so deleting a tree of any depth costs a few munmap calls and no recursion. Large chunks
// are mapped and advised for transparent huge pages: the first touch of a fresh 4 KiB page
// costs about as much as parsing it, and a document's memory is touched exactly once.
class KalXmlArena {
 public:
  // sizeHint: the bytes the arena expects to hold; the first chunk is sized from it.
  explicit KalXmlArena(size_t sizeHint);
  ~KalXmlArena();
  KalXmlArena(const KalXmlArena&) = delete;
  KalXmlArena& operator=(const KalXmlArena&) = delete;

  // Null when memory runs out.
  void* Allocate(size_t bytes) {
    // Text allocations leave _pNext unaligned.
    const uintptr_t next = (reinterpret_cast<uintptr_t>(_pNext) + 7) & ~static_cast<uintptr_t>(7);
    if (next + bytes > reinterpret_cast<uintptr_t>(_pEnd) || _pNext == nullptr) {
      return AllocateSlow(bytes);
    }
    _pNext = reinterpret_cast<char*>(next + bytes);
    return reinterpret_cast<void*>(next);
  }
  // Unaligned byte storage for text.
  char* AllocateText(size_t bytes) {
    if (static_cast<size_t>(_pEnd - _pNext) < bytes) return static_cast<char*>(AllocateSlow(bytes));
    char* p = _pNext;
    _pNext += bytes;
    return p;
  }
  // Gives back the unused tail of the last text allocation (p must be that allocation).
  void Shrink(char* p, size_t usedBytes) {
    if (p + usedBytes <= _pNext && p >= _pChunkStart) _pNext = p + usedBytes;
  }
  // A NUL-terminated copy; null when memory runs out.
  char* CopyText(const char* text, size_t length);

  size_t BytesReserved() const { return _Reserved; }

 private:
  struct Chunk {
    Chunk* previous;
    size_t size;  // bytes of the whole chunk, header included
    bool mapped;
  };
  void* AllocateSlow(size_t bytes);

  Chunk* _pChunk = nullptr;
  char* _pChunkStart = nullptr;
  char* _pNext = nullptr;
  char* _pEnd = nullptr;
  size_t _NextChunkSize;
  size_t _Reserved = 0;
};

#endif
