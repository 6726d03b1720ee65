// Memory advice shared by the platform's large buffers, and how large a document may be.
#ifndef KAL_MEMORY_H
#define KAL_MEMORY_H

#include <cstddef>
#include <cstdint>

// Asks for transparent huge pages on the page-aligned interior of a large buffer (4 MiB or
// more) before it is first written: on these machines first touching fresh 4 KiB pages costs
// more than filling them. Only advice; a kernel that refuses leaves the small pages.
void KalAdviseHugePages(void* data, size_t size);

// The largest document, in bytes, that a load may take on (an archive entry's uncompressed
// size, a plain file's size). A load holds the document's bytes and a tree of up to about 2.7
// times them, so a document gets a quarter of the memory the process can have: the physical
// memory, or the address-space limit when that is lower. A figure of 0 is unknown; with both
// unknown there is no limit (UINT64_MAX).
uint64_t KalDocumentSizeLimit(uint64_t physicalMemory, uint64_t addressSpaceLimit);
// The same from this machine's physical memory and this process's RLIMIT_AS, read afresh on
// each call.
uint64_t KalDocumentSizeLimit();

#endif
