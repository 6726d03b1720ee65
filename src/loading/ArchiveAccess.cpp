// The archive shared by all parsers, and finding the root file through its manifest.
#include <memory>
#include <new>

#include "ArchiveEntry.h"
#include "ChildWalk.h"
#include "KalFiles.h"
#include "KalFormatConstants.h"
#include "KalLightXml.h"
#include "KalSysZipFile.h"
#include "KalVorlaParser.h"

namespace {
constexpr int kEntryReadMode = 1;
}

long kalvorla::FindEntry(const KalUnicodeString* names, unsigned int count,
                         const KalUnicodeString& name) {
  if (names == nullptr) return -1;
  for (unsigned int i = 0; i < count; ++i) {
    if (names[i] == name) return static_cast<long>(i);
  }
  return -1;
}

HRESULT kalvorla::ReadEntry(KalSysZipFile& zip, const KalUnicodeString& name, unsigned int size,
                            char*& buffer, unsigned int& read) {
  // An entry too large for this machine fails as its buffer would.
  if (zip.OpenFileInZip(&name, kEntryReadMode, 0) == E_OUTOFMEMORY) {
    zip.CloseFileInZip();
    buffer = nullptr;
    read = 0;
    return E_OUTOFMEMORY;
  }
  buffer = new (std::nothrow) char[size];
  if (buffer == nullptr) {
    zip.CloseFileInZip();
    return E_OUTOFMEMORY;
  }
  read = 0;
  zip.ReadBufferInZip(buffer, size, &read);
  zip.CloseFileInZip();
  if (read != size) {
    delete[] buffer;
    buffer = nullptr;
    return E_FAIL;
  }
  return S_OK;
}

HRESULT KalVorlaParser::GetVorlaRootFilePath(const KalUnicodeString& path,
                                             KalUnicodeString& rootPath) {
  const long manifest = _pZipFile != nullptr && _pZippedFiles != nullptr && _pFileSize != nullptr
                            ? kalvorla::FindEntry(_pZippedFiles, _NbZippedFiles, MANIFEST_S)
                            : -1;
  if (manifest >= 0) {
    char* buffer = nullptr;
    unsigned int read = 0;
    HRESULT rc = kalvorla::ReadEntry(*_pZipFile, MANIFEST_S, _pFileSize[manifest], buffer, read);
    if (FAILED(rc)) return rc;
    KalLightXmlInputStreamBuffer stream(reinterpret_cast<const unsigned char*>(buffer),
                                        static_cast<int>(read));
    KalLightXmlParser parser;
    KalLightXmlElementFactory factory;
    std::unique_ptr<KalLightXmlElementItf> element(factory.CreateElement());
    int parsed = 0;
    if (element != nullptr) parsed = parser.Parse(stream, *element);
    delete[] buffer;
    if (parsed == 1) {
      bool found = false;
      kalvorla::WalkChildren(element.get(), kalvorla::NullChild::kSkip,
                             [&](KalLightXmlElementItf* child) {
                               if (child->GetType() != "Root") return false;
                               rootPath = child->GetValue();
                               found = true;
                               return true;
                             });
      if (found) return S_OK;
    }
  }
  // No usable manifest: the archive's own file name, which matches an entry only if the
  // archive holds one of that very name.
  KalUnicodeString name;
  KalSplitPath(&path, nullptr, &name);
  rootPath = name;
  return S_OK;
}
