// From instances to references and back, local ids, names and placement matrices.
#include <new>

#include "KalFiles.h"
#include "KalFormatConstants.h"
#include "loading/ChildWalk.h"
#include "loading/IdTables.h"
#include "representation/UrnParsing.h"

using kalvorla::WalkEnd;

namespace {

const KalUnicodeString kIsInstanceOfTag = KalUnicodeString::Borrow("IsInstanceOf", 12);
const KalUnicodeString kMatrixTag = KalUnicodeString::Borrow("RelativeMatrix", 14);
const char kNameAttribute[] = "name";
constexpr int kMatrixSize = 12;

// The URN of an instance's "IsInstanceOf" child: false when the instance is unknown, has no
// children, or a null child; otherwise `found` says whether the child exists and `urn` holds
// its text.
bool InstanceUrn(KalVorlaParser& parser, int instanceId, bool& found,
                 const KalUnicodeString*& urn) {
  KalLightXmlElementItf* instance = nullptr;
  if (FAILED(parser.GetInstance3DFromLocalID(instanceId, &instance)) || instance == nullptr) {
    return false;
  }
  KalLightXmlElementItf* child = nullptr;
  const WalkEnd end = kalvorla::FindChildByTag(instance, kIsInstanceOfTag, child);
  found = end == WalkEnd::kStopped;
  if (found) urn = &child->GetValue();
  return found || end == WalkEnd::kExhausted;
}

template <class T>
HRESULT ReadInstanceMatrix(KalVorlaParser& parser, KalLightXmlElementItf* instance, T** matrix) {
  if (instance == nullptr || matrix == nullptr) return E_INVALIDARG;
  KalLightXmlElementItf* child = nullptr;
  const WalkEnd end = kalvorla::FindChildByTag(instance, kMatrixTag, child);
  if (end == WalkEnd::kExhausted) {
    *matrix = nullptr;  // no placement is not an error
    return S_OK;
  }
  if (end != WalkEnd::kStopped) return E_FAIL;
  *matrix = new (std::nothrow) T[kMatrixSize]();
  if (*matrix == nullptr) return E_FAIL;
  // The array is the caller's from here on, also when the text turns out bad.
  return parser.ConvertMatrix(child, *matrix);
}

}  // namespace

KalUnicodeString KalVorlaParser::PathOfOtherFile(const KalUnicodeString& fileName) const {
  // For a name, the platform answers S_OK (absolute) or S_FALSE (relative) and nothing else.
  if (KalIsAbsolutePath(fileName.ConvertToChar(), 0) == S_FALSE && _pZipFile == nullptr) {
    return KalMakePath(&_DocumentDirectory, &fileName);
  }
  return fileName;
}

HRESULT KalVorlaParser::GetReference3DFromInstance3D(int instanceId,
                                                     KalLightXmlElementItf** reference) {
  if (reference == nullptr) return E_INVALIDARG;
  bool found = false;
  const KalUnicodeString* urn = nullptr;
  if (!InstanceUrn(*this, instanceId, found, urn)) return E_FAIL;
  // The id is looked up in this document even when the URN names another file.
  KalVorlaUrnType type = KalVorlaUrnReference;
  unsigned char isLocal = 1;
  int referenceId = 0;
  bool idSet = false;
  KalUnicodeString fileName;
  if (found) kalvorla::ExtractUrn(*urn, type, isLocal, referenceId, idSet, fileName);
  if (!idSet) {
    // No id at all: fail the way a lookup of an id no reference bears fails.
    if (_pReferenceTable != nullptr) *reference = nullptr;
    return E_FAIL;
  }
  return FAILED(GetReference3DFromLocalID(referenceId, reference)) ? E_FAIL : S_OK;
}

HRESULT KalVorlaParser::GetReference3DFromInstance3D(int instanceId,
                                                     KalLightXmlElementItf** reference,
                                                     KalUnicodeString& fileName, int& referenceId) {
  if (reference == nullptr) return E_INVALIDARG;
  *reference = nullptr;
  fileName = "";
  referenceId = -1;
  bool found = false;
  const KalUnicodeString* urn = nullptr;
  if (!InstanceUrn(*this, instanceId, found, urn)) return E_FAIL;
  if (!found) return S_OK;
  KalVorlaUrnType type = KalVorlaUrnReference;
  unsigned char isLocal = 1;
  int id = 0;
  bool idSet = false;
  KalUnicodeString extracted;
  kalvorla::ExtractUrn(*urn, type, isLocal, id, idSet, extracted);
  if (isLocal == 1) {
    // A local result is told by the element; the id output stays -1.
    if (!idSet) return E_FAIL;
    return FAILED(GetReference3DFromLocalID(id, reference)) ? E_FAIL : S_OK;
  }
  if (idSet) referenceId = id;
  fileName = PathOfOtherFile(extracted);
  return S_OK;
}

HRESULT KalVorlaParser::GetInstancesFromReference3D(int referenceId, KalRawCollPV* instances) {
  if (_pReferenceTable == nullptr || instances == nullptr || referenceId <= 0) return E_FAIL;
  instances->RemoveAll(1);
  if (_pInstanceTable == nullptr) return S_OK;
  KalVorlaReferenceAndChild* record = kalvorla::FindReferenceRecord(_pReferenceTable, referenceId);
  if (record == nullptr) return E_FAIL;
  kalvorla::AppendAggregated(record, _pInstanceTable, instances);
  return S_OK;
}

HRESULT KalVorlaParser::GetEntityLocalID(KalLightXmlElementItf* element, int& id) {
  if (element == nullptr) return E_INVALIDARG;
  id = -1;
  element->GetAttribute(ID_S).ConvertToNum(&id, "%d");
  return S_OK;
}

HRESULT KalVorlaParser::GetEntityLocalID(KalLightXmlElementItf* element, KalUnicodeString& id) {
  if (element == nullptr) return E_INVALIDARG;
  id = element->GetAttribute(ID_S);
  return S_OK;
}

HRESULT KalVorlaParser::GetEntityName(KalLightXmlElementItf* element, KalUnicodeString& name) {
  if (element == nullptr) return E_INVALIDARG;
  name = element->GetAttribute(kNameAttribute);
  return S_OK;
}

HRESULT KalVorlaParser::GetInstanceMatrix(KalLightXmlElementItf* instance, float** matrix) {
  return ReadInstanceMatrix(*this, instance, matrix);
}

HRESULT KalVorlaParser::GetInstanceMatrix(KalLightXmlElementItf* instance, double** matrix) {
  return ReadInstanceMatrix(*this, instance, matrix);
}
