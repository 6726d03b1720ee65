// Loads the bytes as a document, then asks every question of the parser about what was
// loaded: each lookup by each id found, each element query on each element (of whatever
// kind), the views in order, releasing every result the caller owns.
#include <vector>

#include "FuzzSupport.h"
#include "KalVorlaParser.h"

namespace {

constexpr size_t kMostElements = 200;  // bounds the time a large input takes

void Collect(KalLightXmlElementItf* e, std::vector<KalLightXmlElementItf*>& all) {
  if (e == nullptr || all.size() >= kMostElements) return;
  all.push_back(e);
  for (KalPosition c = e->GetHeadPosition(); c != nullptr;) Collect(e->GetNextChild(c), all);
}

// Deletes what a lookup handed out as a copy.
void Drop(HRESULT rc, KalLightXmlElementItf*& element) {
  if (rc == kVorlaCopyMode) delete element;
  element = nullptr;
}

void AskAboutId(KalVorlaParser& p, int id) {
  KalLightXmlElementItf* e = nullptr;
  KalUnicodeString file;
  KalRawCollPV elements;
  int other = 0;
  p.GetInstance3DFromLocalID(id, &e), p.GetReference3DFromLocalID(id, &e),
      p.GetInstanceRepFromLocalID(id, &e), p.GetReferenceRepFromLocalID(id, &e),
      p.GetReference3DFromInstance3D(id, &e), p.GetReference3DFromInstance3D(id, &e, file, other),
      p.GetInstancesFromReference3D(id, &elements), p.GetSpecificExtensionNode(id, &e),
      p.GetVorlaNodeFromOtherIDAttribute(id, "Instance3D", "id", &e),
      p.GetGraphicMaterialNode(id, &e), p.GetRepresentationNode(id, &e);
  for (long mode : {0L, static_cast<long>(kVorlaCopyMode)}) {
    Drop(p.GetRepresentationNodeFromId(id, &e, mode), e);
    Drop(p.GetTechRepNodeFromId(id, &e, mode), e);
  }
  char* buffer = nullptr;
  unsigned int size = 0;
  p.GetBufferFromGeometricRepresentationID(std::to_string(id).c_str(), buffer, size, file);
  delete[] buffer;
}

void AskAboutElement(KalVorlaParser& p, KalLightXmlElementItf* e) {
  KalLightXmlElementItf* out = nullptr;
  KalUnicodeString text;
  int id = 0;
  p.GetEntityLocalID(e, id), p.GetEntityLocalID(e, text), p.GetEntityName(e, text),
      p.GetVorlaChildNodeFromType(e, "Instance3DType", &out),
      p.GetVorlaChildNodeFromName(e, "Color", &out), p.GetValueString("IsInstanceOf", e, text),
      p.GetAttributeString("id", e, text);
  float* f[4] = {};
  double* d = nullptr;
  const auto release = [&] {
    for (float*& v : f) delete[] v, v = nullptr;
    delete[] d, d = nullptr;
  };
  p.GetInstanceMatrix(e, &f[0]), p.GetInstanceMatrix(e, &d), release();
  KalRawCollPV elements;
  p.GetRepInstancesFromReference3D(e, &elements), p.GetRepFormatsFromRepReference(e, &elements),
      p.GetReferenceRepFromInstanceRep(e, &out, text, id), p.GetRepresentationDocType(e, text),
      p.GetRepresentationUrn(e, text), p.GetRepLocationFromRepFormat(e, text);
  Drop(p.GetRepresentationFromRepFormat(e, &out), out);
  char* buffer = nullptr;
  unsigned int size = 0;
  p.GetGeometricRepresentationBuffer(e, &buffer, size, text), delete[] buffer, buffer = nullptr;
  if (e->GetValue().SearchSubString("urn:", 0, 1) == 0)
    p.GetRepBufferFromUrn(e->GetValue(), &buffer, size, text);
  delete[] buffer;
  double r = 0, g = 0, b = 0, a = 0;
  float x = 0;
  unsigned int lineType = 0;
  unsigned char visible = 0, selectable = 0;
  p.GetGraphicPropertiesNode(e, &out), p.GetSurfaceAttributesElement(e, &out),
      p.GetLineAttributes(e, r, g, b, lineType, x),
      p.GetBehaviourAttributes(e, visible, selectable), p.GetColor(e, r, g, b, a),
      p.GetAlternateViewViewpoint(e, &out);
  p.GetCustomViewpointData(e, &f[0], &f[1]), release();
  p.GetConicViewpointData(e, &f[0], &f[1], &f[2], &f[3], x, x, x, x), release();
  p.GetCylindricViewpointData(e, &f[0], &f[1], &f[2], &f[3], x, x, x, x), release();
  KalRawCollint occurrences;
  p.GetOccurenceIdList(e, occurrences);
  for (int i = 1; i <= occurrences.Size() && i <= 8; ++i)
    p.GetAlternateViewProperty(e, occurrences[i], &out);
  p.GetAlternateViewPropertyData(e, &d, &out, text), release();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::unique_ptr<KalVorlaParser> p(new KalVorlaParser());
  if (FAILED(p->InitParsing(kalfuzz::WriteInput(data, size, "input.vorla").c_str()))) return 0;
  KalLightXmlElementItf* e = nullptr;
  int count = 0;
  p->GetNumberOfInstances(count), p->GetNumberOfReferences(count),
      p->GetNumberOfRepresentations(count), p->GetProductStructureRootReference(&e),
      p->GetDefaultViewNode(&e), p->GetPresentationSetNode(&e), p->GetMeasureSetNode(&e),
      p->GetSectionSetNode(&e), p->GetAnimationSetNode(&e), p->GetSpecificExtensionSetNode(&e),
      p->GetGraphicMaterialSetNode(&e), p->GetVorlaRootNode(&e);
  std::vector<KalLightXmlElementItf*> all;
  Collect(e, all);
  std::vector<int> ids = {0, 1, -1};
  for (KalLightXmlElementItf* element : all) {
    int id = 0;
    if (p->GetEntityLocalID(element, id) >= 0 && ids.size() < 32) ids.push_back(id);
    AskAboutElement(*p, element);
  }
  for (int id : ids) AskAboutId(*p, id);
  KalRawCollint views;
  p->GetAlternateViewList(views);
  KalUnicodeString name, description;
  for (int i = 1; i <= views.Size() && i <= 16; ++i)
    p->GetAlternateView(views[i], &e, name, description);
  return 0;
}
