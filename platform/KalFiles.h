// Files, paths and the environment.
#ifndef KAL_FILES_H
#define KAL_FILES_H

#include <cstdint>

#include "KalHResult.h"
#include "KalUnicodeString.h"

// The variable's value, or null when it is not set.
const char* KalGetEnv(const char* name);
// TMPDIR when set and not empty, else "/tmp".
KalUnicodeString KalGetTempDirectory();
// *result gets a new string (the caller deletes it): the canonical absolute path of an
// existing file, or the name unchanged when it is no file on disk (a "http://" name, an
// entry name of an open archive). *result is null, and E_FAIL returned, for an empty name
// or a null result pointer.
HRESULT KalGetRealPath(const KalUnicodeString& path, KalUnicodeString** result, int flags);
// Copies `from` to `to`: a local file, or a "http://" name downloaded. With overwrite 0 an
// existing `to` is kept and the copy fails. 0 on success, negative on failure; a failed copy
// leaves no partial `to` behind.
int KalFCopy(const KalUnicodeString* from, const KalUnicodeString* to, int overwrite);
// The size in bytes of the regular file at `path`: S_OK, or E_FAIL (size untouched) for a
// name that is no regular file (missing, a directory, a FIFO, null).
int KalGetFileSize(const char* path, uint64_t& size);
// 0 when the file was removed, negative otherwise (also for null or empty names).
int KalDeleteFile(const char* path);
// directory: everything before the last "/" (empty when there is none; "/" for a file in
// the root); name: everything after it. Either output may be null.
void KalSplitPath(const KalUnicodeString* path, KalUnicodeString* directory,
                  KalUnicodeString* name);
// directory + "/" + name, without doubling a "/"; name alone when directory is empty.
KalUnicodeString KalMakePath(const KalUnicodeString* directory, const KalUnicodeString* name);
// Result-code style: 0 (S_OK) for an absolute name, 1 (S_FALSE) for a relative one,
// E_INVALIDARG for null.
int KalIsAbsolutePath(const char* path, int flags);

#endif
