// Reading entries of the open archive.
#ifndef KAL_VORLA_ARCHIVE_ENTRY_H
#define KAL_VORLA_ARCHIVE_ENTRY_H

#include "KalHResult.h"
#include "KalUnicodeString.h"

class KalSysZipFile;

namespace kalvorla {

// Index of the first entry whose name equals `name` exactly, -1 when there is none.
long FindEntry(const KalUnicodeString* names, unsigned int count, const KalUnicodeString& name);

// Reads the named entry, `size` bytes, into a new char[size] (no terminating zero) that the
// caller frees with delete[]. E_OUTOFMEMORY when the buffer cannot be had or the entry's
// declared size is past KalDocumentSizeLimit(), E_FAIL (buffer already freed) when fewer bytes
// than `size` could be read.
HRESULT ReadEntry(KalSysZipFile& zip, const KalUnicodeString& name, unsigned int size,
                  char*& buffer, unsigned int& read);

// "major.minor" as two integers; a part that does not convert gives 0.
void SplitVersion(const KalUnicodeString& version, int& major, int& minor);

}  // namespace kalvorla

#endif
