// Identity, construction and destruction of KalVorlaParser.
#include <clocale>
#include <cstring>
#include <new>

#include "KalHashTable.h"
#include "KalSysZipFile.h"
#include "KalVorlaParser.h"
#include "LookupIndexes.h"

namespace {

constexpr int kLargeTableBuckets = 0x1000;
constexpr int kSmallTableBuckets = 0x100;

KalHashTable* NewIdTable(int buckets) {
  return new (std::nothrow)
      KalHashTable(KalVorlaHashVorlaNodeAndId, KalVorlaCompareVorlaNodeAndId, buckets, true);
}

int DeleteNodeAndIdRecord(void* record) {
  return DeleteVorlaNodeAndId(static_cast<KalVorlaNodeAndId*>(record));
}

int DeleteReferenceAndChildRecord(void* record) {
  return DeleteVorlaReferenceAndChild(static_cast<KalVorlaReferenceAndChild*>(record));
}

void DeleteTable(KalHashTable*& table, KalApplyFunction deleteRecord) {
  if (table == nullptr) return;
  table->ApplyGlobalFunct(deleteRecord);
  table->RemoveAll();
  delete table;
  table = nullptr;
}

}  // namespace

KalMetaClass* KalVorlaParser::meta_object = nullptr;
KalSysZipFile* KalVorlaParser::_pZipFile = nullptr;
KalUnicodeString* KalVorlaParser::_pZippedFiles = nullptr;
unsigned int* KalVorlaParser::_pFileSize = nullptr;
unsigned int KalVorlaParser::_NbZippedFiles = 0;

KalMetaClass* KalVorlaParser::MetaObject() {
  if (meta_object == nullptr) {
    meta_object = fct_RetrieveMetaObject("KalVorlaParser", 1, KalBaseUnknown::MetaObject(),
                                         "KalNull", "KalVorlaImportTools", sizeof(KalVorlaParser));
  }
  return meta_object;
}

KalMetaClass* KalVorlaParser::GetMetaObject() const {
  return meta_object != nullptr ? meta_object : MetaObject();
}

const char* KalVorlaParser::ClassName() { return MetaObject()->GetClassName(); }

const char* KalVorlaParser::IsA() const { return ClassName(); }

KalClassId KalVorlaParser::ClassId() { return MetaObject()->GetClassId(); }

int KalVorlaParser::IsAKindOf(const char* name) const { return GetMetaObject()->IsAKindOf(name); }

KalBaseUnknown* KalVorlaParser::CreateItself() { return nullptr; }

KalVorlaParser::KalVorlaParser()
    : _pRootNode(nullptr),
      _pProductStructureNode(nullptr),
      _pSpareNode(nullptr),
      _pRootReferenceNode(nullptr),
      _pGeometricRepresentationSetNode(nullptr),
      _pGraphicMaterialSetNode(nullptr),
      _pAlternateViewSetNode(nullptr),
      _pDefaultViewNode(nullptr),
      _pAnimationSetNode(nullptr),
      _pPresentationSetNode(nullptr),
      _pMeasureSetNode(nullptr),
      _pSectionSetNode(nullptr),
      _pSpecificExtensionSetNode(nullptr),
      _pSavedLocale(nullptr),
      _pAlternateViewTable(nullptr),
      _pInstanceTable(nullptr),
      _pReferenceTable(nullptr),
      _pInstanceRepTable(nullptr),
      _pReferenceRepTable(nullptr),
      _pSpecificExtensionTable(nullptr),
      _GraphicPropertiesList(0),
      _RepFormatList(0),
      _GraphicMaterialList(0),
      _GraphicMaterialIds(0),
      _OwnsArchive(0),
      _pIndexes(nullptr),
      _PlainScans(false) {
  _pInstanceTable = NewIdTable(kLargeTableBuckets);
  _pReferenceTable = NewIdTable(kLargeTableBuckets);
  _pInstanceRepTable = NewIdTable(kSmallTableBuckets);
  _pReferenceRepTable = NewIdTable(kSmallTableBuckets);
  _pSpecificExtensionTable = NewIdTable(kSmallTableBuckets);

  // Numbers in documents use "." whatever the host's locale: the whole process reads and
  // prints in "C" while a parser lives.
  const char* current = setlocale(LC_ALL, nullptr);
  if (current != nullptr && current[0] != '\0') {
    _pSavedLocale = new (std::nothrow) char[std::strlen(current) + 1];
    if (_pSavedLocale != nullptr) std::strcpy(_pSavedLocale, current);
  }
  setlocale(LC_ALL, "C");
}

KalVorlaParser::~KalVorlaParser() {
  if (_pRootNode != nullptr) {
    delete _pRootNode;
    _pRootNode = nullptr;
  }
  for (int i = 1; i <= _EarlierRootNodes.Size(); ++i) {
    delete static_cast<KalLightXmlElementItf*>(_EarlierRootNodes[i]);
  }
  _EarlierRootNodes.RemoveAll(1);
  if (_pSavedLocale != nullptr) {
    setlocale(LC_ALL, _pSavedLocale);
    delete[] _pSavedLocale;
    _pSavedLocale = nullptr;
  }
  if (_OwnsArchive != 0) {
    delete _pZipFile;
    _pZipFile = nullptr;
    delete[] _pZippedFiles;
    _pZippedFiles = nullptr;
    delete[] _pFileSize;
    _pFileSize = nullptr;
    _NbZippedFiles = 0;
  }
  _pProductStructureNode = nullptr;
  _pSpareNode = nullptr;
  _pRootReferenceNode = nullptr;
  _pGeometricRepresentationSetNode = nullptr;
  _pGraphicMaterialSetNode = nullptr;
  _pAlternateViewSetNode = nullptr;
  _pDefaultViewNode = nullptr;
  _pAnimationSetNode = nullptr;
  _pPresentationSetNode = nullptr;
  _pMeasureSetNode = nullptr;
  _pSectionSetNode = nullptr;
  _pSpecificExtensionSetNode = nullptr;
  _GraphicPropertiesList.RemoveAll(1);
  _RepFormatList.RemoveAll(1);
  delete _pIndexes;
  _pIndexes = nullptr;
  DeleteTable(_pAlternateViewTable, DeleteNodeAndIdRecord);
  DeleteTable(_pInstanceTable, DeleteNodeAndIdRecord);
  DeleteTable(_pReferenceTable, DeleteReferenceAndChildRecord);
  DeleteTable(_pInstanceRepTable, DeleteNodeAndIdRecord);
  DeleteTable(_pReferenceRepTable, DeleteReferenceAndChildRecord);
  DeleteTable(_pSpecificExtensionTable, DeleteNodeAndIdRecord);
}

KalVorlaLookupIndexes* KalVorlaParser::Indexes() {
  if (_PlainScans) return nullptr;
  if (_pIndexes == nullptr) _pIndexes = new (std::nothrow) KalVorlaLookupIndexes();
  return _pIndexes;
}

HRESULT KalVorlaParser::GetFilePath(KalUnicodeString& path) {
  path = _FilePath;
  return S_OK;
}
