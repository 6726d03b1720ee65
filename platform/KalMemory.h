// Memory advice shared by the platform's large buffers.
#ifndef KAL_MEMORY_H
#define KAL_MEMORY_H

#include <cstddef>

// Asks for transparent huge pages on the page-aligned interior of a large buffer (4 MiB or
// more) before it is first written: on these machines first touching fresh 4 KiB pages costs
// more than filling them. Only advice; a kernel that refuses leaves the small pages.
void KalAdviseHugePages(void* data, size_t size);

#endif
