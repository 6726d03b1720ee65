// Refusing documents of a schema this library does not read.
#include "ArchiveEntry.h"
#include "ChildWalk.h"
#include "KalFormatConstants.h"
#include "KalVorlaParser.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

namespace {
constexpr int kNewestMajor = 2;
constexpr int kFirstRefusedMajor = 3;
}  // namespace

void kalvorla::SplitVersion(const KalUnicodeString& version, int& major, int& minor) {
  const int point = version.SearchSubString(".", 0, 1);
  const int length = version.GetLengthInChar();
  major = 0;
  minor = 0;
  version.SubString(0, point).ConvertToNum(&major, "%d");
  version.SubString(point + 1, length - point - 1).ConvertToNum(&minor, "%d");
}

HRESULT KalVorlaParser::CheckVorlaVersion() {
  if (_pRootNode == nullptr) return E_FAIL;
  KalLightXmlElementItf* header = nullptr;
  WalkEnd end = WalkChildren(_pRootNode, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    if (c->GetType() != HEADER_S) return false;
    header = c;
    return true;
  });
  if (end != WalkEnd::kStopped) return E_FAIL;

  KalLightXmlElementItf* version = nullptr;
  end = WalkChildren(header, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    if (c->GetType() != SCHEMA_VERSION_S) return false;
    version = c;
    return true;
  });
  if (end == WalkEnd::kNullChild) return E_FAIL;
  if (end != WalkEnd::kStopped) return S_OK;  // documents without a version are accepted

  int major = 0;
  int minor = 0;
  kalvorla::SplitVersion(version->GetValue(), major, minor);
  if (major == kNewestMajor && minor > 0) return kVorlaVersionNewerAccepted;
  if (major < kFirstRefusedMajor) return S_OK;
  return kVorlaVersionRefused;
}
