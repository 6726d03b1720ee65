// InitParsing: from a file name to a loaded, indexed document.
#include <memory>
#include <new>

#include "ArchiveEntry.h"
#include "KalFiles.h"
#include "KalFormatConstants.h"
#include "KalHashTable.h"
#include "KalLightXml.h"
#include "KalMemory.h"
#include "KalSysZipFile.h"
#include "KalVorlaParser.h"
#include "LookupIndexes.h"

namespace {

const char kHttpMarker[] = "http://";
const char kTempVariable[] = "KalTemp";
const char kLocalCopyName[] = "local.vorla";

void DropIfEmpty(KalHashTable*& table) {
  if (table != nullptr && table->Size() == 0) {
    delete table;
    table = nullptr;
  }
}

}  // namespace

HRESULT KalVorlaParser::InitParsing(const KalUnicodeString& path) {
  // What is indexed may change with this load.
  delete _pIndexes;
  _pIndexes = nullptr;
  KalUnicodeString* real = nullptr;
  KalGetRealPath(path, &real, 0);
  if (real == nullptr) return E_FAIL;
  KalUnicodeString resolved(*real);
  delete real;

  KalUnicodeString localCopy;
  const char* temp = KalGetEnv(kTempVariable);
  _TempDirectory = temp != nullptr ? KalUnicodeString(temp) : KalGetTempDirectory();

  if (path.SearchSubString(kHttpMarker, 0, 1) != -1) {
    localCopy = _TempDirectory + "/" + kLocalCopyName;
    if (KalFCopy(&path, &localCopy, 1) < 0) return E_FAIL;
    resolved = localCopy;
  }

  KalUnicodeString documentPath(path);
  // While another parser holds the archive open, the path names one of its entries.
  if (_pZipFile == nullptr) {
    _pZipFile = new (std::nothrow) KalSysZipFile();
    if (_pZipFile == nullptr) return E_OUTOFMEMORY;
    if (_pZipFile->OpenZip(&resolved, KAL_ZIP_READ | KAL_ZIP_CHECK_CONSISTENCY) != 0) {
      KalSplitPath(&resolved, &_DocumentDirectory, nullptr);
      delete _pZipFile;
      _pZipFile = nullptr;
    } else {
      KalUnicodeString archiveName;
      KalSplitPath(&resolved, &_DocumentDirectory, &archiveName);
      KalVorlaImportUtilities::_VorlaArchiveFile = archiveName;
      _pZipFile->BrowseZip(&_pZippedFiles, &_NbZippedFiles, &_pFileSize, nullptr, nullptr);
      _OwnsArchive = 1;
      if (FAILED(GetVorlaRootFilePath(path, documentPath))) return E_FAIL;
    }
  }

  _FilePath = path;
  KalLightXmlParser parser;
  KalLightXmlElementFactory factory;
  // A second load on the same object keeps the first document: its elements stay indexed.
  auto newRoot = [&]() {
    if (_pRootNode != nullptr) _EarlierRootNodes.Append(_pRootNode);
    _pRootNode = factory.CreateElement();
    return _pRootNode != nullptr;
  };
  if (_pZipFile == nullptr) {
    KalSplitPath(&documentPath, &_DocumentDirectory, nullptr);
    // A file the machine could not hold once parsed is refused before anything is read.
    uint64_t fileSize = 0;
    if (KalGetFileSize(documentPath.ConvertToChar(), fileSize) == S_OK &&
        fileSize > KalDocumentSizeLimit()) {
      return E_OUTOFMEMORY;
    }
    KalLightXmlInputFile input(documentPath);
    if (!newRoot()) return E_FAIL;
    if (parser.Parse(input, *_pRootNode) == 0) return E_FAIL;
  } else {
    const long entry = kalvorla::FindEntry(_pZippedFiles, _NbZippedFiles, documentPath);
    _FilePath = documentPath;
    if (entry < 0) return E_FAIL;
    char* buffer = nullptr;
    unsigned int read = 0;
    HRESULT rc = kalvorla::ReadEntry(*_pZipFile, documentPath, _pFileSize[entry], buffer, read);
    if (FAILED(rc)) return rc;
    // The tree keeps its own copy of what it needs, so the entry's bytes go right after.
    std::unique_ptr<char[]> bytes(buffer);
    KalLightXmlInputStreamBuffer stream(reinterpret_cast<const unsigned char*>(buffer),
                                        static_cast<int>(read));
    if (!newRoot()) return E_FAIL;
    if (parser.Parse(stream, *_pRootNode) == 0) return E_FAIL;
  }

  // Also made without a copy (an empty name) and whatever the result.
  KalDeleteFile(localCopy.ConvertToChar());

  const HRESULT version = CheckVorlaVersion();
  if (FAILED(version)) return version;
  if (FAILED(RetrieveContainerNodes())) return E_FAIL;
  if (FAILED(RetrieveRootReferenceNode())) return E_FAIL;
  if (FAILED(RetrieveApplicativeSetNodes())) return E_FAIL;

  DropIfEmpty(_pInstanceTable);
  DropIfEmpty(_pReferenceTable);
  DropIfEmpty(_pInstanceRepTable);
  DropIfEmpty(_pReferenceRepTable);
  DropIfEmpty(_pSpecificExtensionTable);
  return version;
}
