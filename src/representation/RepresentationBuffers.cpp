// The bytes of a geometric representation: base64 data decoded, or tessellation XML turned
// into a Qsr buffer.
#include "KalCodePage.h"
#include "KalFormatConstants.h"
#include "KalViz.h"
#include "loading/ArchiveEntry.h"
#include "loading/ChildWalk.h"
#include "loading/LookupIndexes.h"
#include "representation/UrnParsing.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

namespace {

const char kAssociatedXmlTag[] = "AssociatedXML";
constexpr KalSettingQsr kQsrEverything = kQsrFaces | kQsrNormals | kQsrPolylines;
constexpr int kTessellationXml = 0;

// The document type tag of a representation's format and version; null when this library
// does not read it.
const char* DocumentType(const KalLightXmlElementItf& representation) {
  const KalUnicodeString& format = representation.GetAttribute(FORMAT_S);
  int major = 0, minor = 0;
  kalvorla::SplitVersion(representation.GetAttribute(VERSION_S), major, minor);
  if (format == EXACT_S && major == 1 && minor <= 1) return kVorlaDocTypeEg1;
  if (format == TESSELLATED_S && major == 1 && minor < 2) return kVorlaDocTypeTg1;
  if (format == TESSELLATED_S && major == 2 && minor <= 1) return kVorlaDocTypeTg2;
  return nullptr;
}

// The tessellation of `representation` as a Qsr buffer; null (size 0) when it cannot be read.
void TessellationToQsr(const KalLightXmlElementItf& representation, char*& buffer,
                       unsigned int& size) {
  KalVizXMLStreamOptions options(kTessellationXml);
  KalRep* rep = nullptr;
  KalReadXML(representation, options, rep);
  char* data = nullptr;
  int length = 0;
  KalWriteQsr(rep, data, length, kQsrEverything, nullptr, 0);
  if (rep != nullptr) rep->Release();
  buffer = data;
  size = static_cast<unsigned int>(length);
}

}  // namespace

HRESULT KalVorlaParser::GetGeometricRepresentationBuffer(KalLightXmlElementItf* repFormat,
                                                         char** buffer, unsigned int& size,
                                                         KalUnicodeString& format) {
  size = 0;
  if (repFormat == nullptr || buffer == nullptr) return kVorlaBadArguments;
  const KalUnicodeString* urnText = kalvorla::RepFormatUrn(repFormat);
  if (urnText == nullptr) return E_FAIL;
  const KalUnicodeString& urn = *urnText;
  return GetRepBufferFromUrn(urn, buffer, size, format);
}

HRESULT KalVorlaParser::GetRepBufferFromUrn(const KalUnicodeString& urn, char** buffer,
                                            unsigned int& size, KalUnicodeString& format) {
  if (buffer == nullptr) return E_FAIL;
  // Preset to a kind no URN yields, so a text without the URN prefix fails below.
  auto type = static_cast<KalVorlaUrnType>(-1);
  unsigned char isLocal = 0;
  KalUnicodeString id, fileName;
  ExtractVorlaUrnDatas(urn, type, isLocal, id, fileName);
  if (type != KalVorlaUrnRepresentation) return E_FAIL;
  if (isLocal == 1) return GetBufferFromGeometricRepresentationID(id, *buffer, size, format);
  KalVorlaParser other;
  other.InitParsing(PathOfOtherFile(fileName));
  return other.GetBufferFromGeometricRepresentationID(id, *buffer, size, format);
}

HRESULT KalVorlaParser::GetBufferFromGeometricRepresentationID(const KalUnicodeString& id,
                                                               char*& buffer, unsigned int& size,
                                                               KalUnicodeString& format) {
  if (_pGeometricRepresentationSetNode == nullptr) return E_FAIL;
  // A later data child, or a later representation with the same id, replaces what an
  // earlier one gave; what this call made and then replaced is released, never what the
  // caller passed in.
  char* made = nullptr;
  const auto replace = [&](char* data, unsigned int length) {
    delete[] made;
    made = data;
    buffer = data;
    size = length;
  };
  HRESULT result = S_OK;
  // Handles one representation with the id; true when the search ends there.
  const auto handle = [&](KalLightXmlElementItf* rep) {
    const char* docType = DocumentType(*rep);
    if (docType == nullptr) {
      result = kVorlaFormatNotSupported;
      return true;
    }
    format = docType;
    const WalkEnd data = WalkChildren(rep, NullChild::kFail, [&](KalLightXmlElementItf* c) {
      if (c->GetType() == ASSOCIATED_DATA_S) {
        unsigned char* bytes = nullptr;
        unsigned int length = 0;
        // Text that is not base64 gives no buffer, and still ends the search.
        KalCodePage::ConvertFromBase64(c->GetValue().ConvertToChar(), bytes, length);
        replace(reinterpret_cast<char*>(bytes), length);
        return true;
      }
      if (c->GetType() == kAssociatedXmlTag) {
        char* qsr = nullptr;
        unsigned int length = 0;
        TessellationToQsr(*rep, qsr, length);
        replace(qsr, length);
      }
      return false;
    });
    if (data == WalkEnd::kNullChild) result = E_FAIL;
    return data == WalkEnd::kNullChild || data == WalkEnd::kStopped;
  };
  KalVorlaLookupIndexes* indexes = Indexes();
  if (indexes == nullptr) {
    const WalkEnd end = WalkChildren(
        _pGeometricRepresentationSetNode, NullChild::kFail,
        [&](KalLightXmlElementItf* rep) { return rep->GetAttribute(ID_S) == id && handle(rep); });
    return end == WalkEnd::kNullChild ? E_FAIL : result;
  }
  // Every representation with the id, in document order, as the scan meets them.
  const auto& byId =
      kalvorla::IndexChildren(_pGeometricRepresentationSetNode, indexes->representationsByIdText,
                              [](const KalLightXmlElementItf& rep, std::string_view& key) {
                                key = kalvorla::TextOf(rep.GetAttribute(ID_S));
                                return true;
                              });
  if (const auto* reps = byId.Find(kalvorla::TextOf(id))) {
    for (KalLightXmlElementItf* rep : *reps) {
      if (handle(rep)) return result;
    }
  }
  return byId.endsAtNull ? E_FAIL : result;
}
