#include "Document.h"

#include <cstdio>

namespace vorla {

namespace {

std::vector<Element*> Elements(const KalRawCollPV& collection) {
  std::vector<Element*> elements;
  for (int i = 1; i <= collection.Size(); ++i) {
    elements.push_back(static_cast<Element*>(collection[i]));
  }
  return elements;
}

}  // namespace

std::string Text(const KalUnicodeString& s) { return s.ConvertToChar(); }

std::string Hex(HRESULT code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned int>(code));
  return text;
}

std::unique_ptr<Document> Document::Open(const std::string& path, HRESULT& code) {
  std::unique_ptr<Document> document(new Document());
  document->_pParser = std::make_unique<KalVorlaParser>();
  document->_Path = path;
  code = document->_pParser->InitParsing(path.c_str());
  document->_LoadCode = code;
  if (FAILED(code)) return nullptr;
  return document;
}

Document::~Document() = default;

Element* Document::RootReference() {
  Element* root = nullptr;
  _pParser->GetProductStructureRootReference(&root);
  return root;
}

int Document::Id(Element* e) {
  int id = -1;
  _pParser->GetEntityLocalID(e, id);
  return id;
}

std::string Document::Name(Element* e) {
  KalUnicodeString name;
  _pParser->GetEntityName(e, name);
  return Text(name);
}

std::vector<Element*> Document::Instances(Element* reference) {
  KalRawCollPV instances;
  _pParser->GetInstancesFromReference3D(Id(reference), &instances);
  return Elements(instances);
}

ReferenceTarget Document::ReferenceOf(Element* instance) {
  ReferenceTarget target;
  KalUnicodeString file;
  _pParser->GetReference3DFromInstance3D(Id(instance), &target.reference, file, target.id);
  target.file = Text(file);
  return target;
}

std::optional<Matrix> Document::MatrixOf(Element* instance) {
  double* values = nullptr;
  const HRESULT code = _pParser->GetInstanceMatrix(instance, &values);
  std::unique_ptr<double[]> owned(values);
  if (FAILED(code) || values == nullptr) return std::nullopt;
  Matrix matrix;
  std::copy(values, values + matrix.size(), matrix.begin());
  return matrix;
}

std::vector<Element*> Document::RepInstances(Element* reference) {
  KalRawCollPV reps;
  _pParser->GetRepInstancesFromReference3D(reference, &reps);
  return Elements(reps);
}

Element* Document::RepReferenceOf(Element* repInstance) {
  Element* repReference = nullptr;
  KalUnicodeString path;
  int id = -1;
  _pParser->GetReferenceRepFromInstanceRep(repInstance, &repReference, path, id);
  return repReference;
}

std::vector<Element*> Document::Formats(Element* repReference) {
  KalRawCollPV formats;
  _pParser->GetRepFormatsFromRepReference(repReference, &formats);
  return Elements(formats);
}

std::string Document::DocType(Element* format) {
  KalUnicodeString type;
  _pParser->GetRepresentationDocType(format, type);
  return Text(type);
}

std::string Document::Urn(Element* format) {
  KalUnicodeString urn;
  _pParser->GetRepresentationUrn(format, urn);
  return Text(urn);
}

std::string Document::Location(Element* format, HRESULT& code) {
  KalUnicodeString location;
  code = _pParser->GetRepLocationFromRepFormat(format, location);
  return Text(location);
}

GeometryBuffer Document::Geometry(Element* format) {
  GeometryBuffer geometry;
  char* bytes = nullptr;
  KalUnicodeString tag;
  geometry.code = _pParser->GetGeometricRepresentationBuffer(format, &bytes, geometry.size, tag);
  geometry.bytes.reset(bytes);
  if (bytes == nullptr) geometry.size = 0;
  geometry.tag = Text(tag);
  return geometry;
}

std::optional<Rgba> Document::ColorOf(Element* node) {
  Element* properties = nullptr;
  if (_pParser->GetGraphicPropertiesNode(node, &properties) != S_OK) return std::nullopt;
  return ColorOfProperties(properties);
}

std::optional<Rgba> Document::ColorOfProperties(Element* graphicProperties) {
  Element* surface = nullptr;
  HRESULT kind = _pParser->GetSurfaceAttributesElement(graphicProperties, &surface);
  if (kind == kVorlaSurfaceMaterialId && surface != nullptr) {
    unsigned int id = 0;
    Element* material = nullptr;
    if (surface->GetValue().ConvertToNum(&id, "%u") < 0 ||
        _pParser->GetGraphicMaterialNode(id, &material) != kVorlaColorMaterial ||
        _pParser->GetVorlaChildNodeFromName(material, "Color", &surface) != S_OK) {
      return std::nullopt;
    }
    kind = kVorlaSurfaceColor;
  }
  if (kind != kVorlaSurfaceColor || surface == nullptr) return std::nullopt;
  Rgba color;
  switch (_pParser->GetColor(surface, color.r, color.g, color.b, color.a)) {
    case kVorlaColorWithAlpha:
    case kVorlaColorWithoutAlpha:
      return color;
    default:
      return std::nullopt;  // unset, alpha only, or unreadable
  }
}

Document* DocumentSet::Get(const std::string& path, HRESULT& code) {
  if (auto it = _Documents.find(path); it != _Documents.end()) {
    code = it->second->LoadCode();
    return it->second.get();
  }
  if (auto it = _Failures.find(path); it != _Failures.end()) {
    code = it->second;
    return nullptr;
  }
  std::unique_ptr<Document> document = Document::Open(path, code);
  if (document == nullptr) {
    _Failures[path] = code;
    return nullptr;
  }
  Document* opened = document.get();
  _Documents[path] = std::move(document);
  if (_pRoot == nullptr) _pRoot = opened;
  return opened;
}

}  // namespace vorla
