// The default and alternate views, their viewpoints and the camera data of each kind.
#include <new>

#include "KalFormatConstants.h"
#include "KalHashTable.h"
#include "KalVorlaParser.h"
#include "loading/CallerArrays.h"
#include "loading/ChildWalk.h"

using kalvorla::NullChild;
using kalvorla::WalkChildren;
using kalvorla::WalkEnd;

namespace {

constexpr int kDefaultViewId = 0;
constexpr int kViewTableBuckets = 256;
constexpr int kVectorSize = 3;
constexpr int kMatrixSize = 12;
constexpr float kDefaultNearPlane = 1.0f;
constexpr float kDefaultFarPlane = 10000.0f;

KalVorlaNodeAndId* NewViewRecord(KalLightXmlElementItf* view, int id) {
  auto* record = new (std::nothrow) KalVorlaNodeAndId();
  if (record != nullptr) {
    record->node = view;
    record->id = id;
  }
  return record;
}

// Stores the record in the table, or releases it when there is no table or no room.
void Keep(KalHashTable* table, KalVorlaNodeAndId* record) {
  if (table == nullptr || table->Insert(record) < 0) delete record;
}

// A camera distance: a required one fails when empty, an optional one takes its default.
// Text that is no number fails either way.
bool ReadDistance(const KalLightXmlElementItf& viewpoint, const char* name, const float* fallback,
                  float& out) {
  const KalUnicodeString& text = viewpoint.GetAttribute(name);
  if (text.IsEmpty()) {
    if (fallback != nullptr) out = *fallback;
    return fallback != nullptr;
  }
  double value = 0.0;
  if (text.ConvertToNum(&value, "%le") < 0) return false;
  out = static_cast<float>(value);
  return true;
}

// The conic and cylindric readers differ only in the name of their last attribute.
HRESULT ReadCamera(KalVorlaParser& parser, KalLightXmlElementItf* viewpoint, float** vectors[4],
                   float& targetDistance, float& nearPlane, float& farPlane, const char* lastName,
                   float& last) {
  if (viewpoint == nullptr) return E_INVALIDARG;
  static const char* const kVectorTags[4] = {"Position", "Sight", "Right", "Up"};
  float* made[4] = {nullptr, nullptr, nullptr, nullptr};
  HRESULT rc = S_OK;
  const WalkEnd end = WalkChildren(viewpoint, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    for (int v = 0; v < 4; ++v) {
      if (c->GetType() != kVectorTags[v]) continue;
      if (vectors[v] == nullptr) {
        rc = E_INVALIDARG;
      } else {
        float* values = kalvorla::HandOver(vectors[v], made[v], kVectorSize);
        if (values == nullptr || FAILED(parser.ConvertVector(c, values))) rc = E_FAIL;
      }
      return FAILED(rc);
    }
    return false;
  });
  if (end == WalkEnd::kNoChildren || end == WalkEnd::kNullChild) return E_FAIL;
  if (FAILED(rc)) return rc;
  if (!ReadDistance(*viewpoint, "targetDistance", nullptr, targetDistance) ||
      !ReadDistance(*viewpoint, "nearPlaneDistance", &kDefaultNearPlane, nearPlane) ||
      !ReadDistance(*viewpoint, "farPlaneDistance", &kDefaultFarPlane, farPlane) ||
      !ReadDistance(*viewpoint, lastName, nullptr, last)) {
    return E_FAIL;
  }
  return S_OK;
}

}  // namespace

HRESULT KalVorlaParser::GetAlternateViewList(KalRawCollint& viewIds) {
  if (_pAlternateViewSetNode == nullptr && _pDefaultViewNode == nullptr) return kVorlaAbsent;
  viewIds.Append(kDefaultViewId);
  KalVorlaNodeAndId* record = NewViewRecord(_pDefaultViewNode, kDefaultViewId);
  if (record == nullptr) return E_FAIL;
  if (_pAlternateViewTable == nullptr) {
    _pAlternateViewTable = new (std::nothrow)
        KalHashTable(KalVorlaHashVorlaNodeAndId, KalVorlaCompareVorlaNodeAndId, kViewTableBuckets);
  }
  Keep(_pAlternateViewTable, record);
  if (_pAlternateViewSetNode == nullptr) return S_OK;
  // Every call adds a fresh record per view; a lookup finds the latest with the id.
  HRESULT rc = S_OK;
  const WalkEnd end =
      WalkChildren(_pAlternateViewSetNode, NullChild::kFail, [&](KalLightXmlElementItf* c) {
        if (c->GetType() != "AlternateView") return false;
        int id = 0;  // a view without a usable id shares the default view's
        c->GetAttribute(ID_S).ConvertToNum(&id, "%d");
        viewIds.Append(id);
        KalVorlaNodeAndId* view = _pAlternateViewTable ? NewViewRecord(c, id) : nullptr;
        if (view == nullptr) {
          rc = E_FAIL;
          return true;
        }
        Keep(_pAlternateViewTable, view);
        return false;
      });
  if (end == WalkEnd::kNullChild) return E_FAIL;
  return rc;
}

HRESULT KalVorlaParser::GetAlternateView(int viewId, KalLightXmlElementItf** view,
                                         KalUnicodeString& name, KalUnicodeString& description) {
  if (_pAlternateViewTable == nullptr || view == nullptr) return E_FAIL;
  KalVorlaNodeAndId probe;
  probe.id = viewId;
  const auto* record = static_cast<const KalVorlaNodeAndId*>(_pAlternateViewTable->Locate(&probe));
  if (record == nullptr) return E_FAIL;
  *view = record->node;
  if (*view == nullptr) return E_FAIL;  // id 0 in a document without a default view
  name = (*view)->GetAttribute("name");
  const WalkEnd end = WalkChildren(*view, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    if (c->GetType() == "Description") description = c->GetValue();  // the last one wins
    return false;
  });
  return end == WalkEnd::kNullChild ? E_FAIL : S_OK;
}

HRESULT KalVorlaParser::GetAlternateViewViewpoint(KalLightXmlElementItf* view,
                                                  KalLightXmlElementItf** viewpoint) {
  if (view == nullptr || viewpoint == nullptr) return E_FAIL;
  KalLightXmlElementItf* found = nullptr;
  switch (kalvorla::FindChildByTag(view, "Viewpoint", found)) {
    case WalkEnd::kStopped:
      break;
    case WalkEnd::kNullChild:
      return E_FAIL;
    default:
      return kVorlaAbsent;
  }
  *viewpoint = found;
  const KalUnicodeString& type = found->GetAttribute(XSI_TYPE_S);
  if (type == "CustomViewpoint3DType") return kVorlaCustomViewpoint;
  if (type == "PerspectiveViewpointType") return kVorlaPerspectiveViewpoint;
  if (type == "ParallelViewpointType") return kVorlaParallelViewpoint;
  return E_FAIL;
}

HRESULT KalVorlaParser::GetCustomViewpointData(KalLightXmlElementItf* viewpoint, float** viewMatrix,
                                               float** projectionMatrix) {
  if (viewpoint == nullptr) return E_INVALIDARG;
  float *madeView = nullptr, *madeProjection = nullptr;
  HRESULT rc = S_OK;
  const WalkEnd end = WalkChildren(viewpoint, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    const bool isView = c->GetType() == "ViewMatrix";
    if (!isView && c->GetType() != "ProjectionMatrix") return false;
    float** out = isView ? viewMatrix : projectionMatrix;
    if (out == nullptr) {
      rc = E_INVALIDARG;
      return true;
    }
    float* values = kalvorla::HandOver(out, isView ? madeView : madeProjection, kMatrixSize);
    if (values == nullptr || FAILED(ConvertMatrix(c, values))) rc = E_FAIL;
    return FAILED(rc);
  });
  if (end == WalkEnd::kNoChildren || end == WalkEnd::kNullChild) return E_FAIL;
  return rc;
}

HRESULT KalVorlaParser::GetConicViewpointData(KalLightXmlElementItf* viewpoint, float** position,
                                              float** sight, float** right, float** up,
                                              float& targetDistance, float& nearPlaneDistance,
                                              float& farPlaneDistance, float& fieldOfView) {
  float** vectors[4] = {position, sight, right, up};
  return ReadCamera(*this, viewpoint, vectors, targetDistance, nearPlaneDistance, farPlaneDistance,
                    "fieldOfView", fieldOfView);
}

HRESULT KalVorlaParser::GetCylindricViewpointData(KalLightXmlElementItf* viewpoint,
                                                  float** position, float** sight, float** right,
                                                  float** up, float& targetDistance,
                                                  float& nearPlaneDistance, float& farPlaneDistance,
                                                  float& visualizedHeight) {
  float** vectors[4] = {position, sight, right, up};
  return ReadCamera(*this, viewpoint, vectors, targetDistance, nearPlaneDistance, farPlaneDistance,
                    "visualizedHeight", visualizedHeight);
}
