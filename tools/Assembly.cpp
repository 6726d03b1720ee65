#include "Assembly.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <set>
#include <unordered_map>

#include "Document.h"

namespace vorla {

namespace {

constexpr char kQsrMagic[] = "QSR1";
constexpr int kMaxLevels = 1000;  // of instances below the root reference

bool Finite(const Matrix& m) {
  return std::all_of(m.begin(), m.end(), [](double v) { return std::isfinite(v); });
}

bool Finite(const std::optional<Rgba>& c) {
  return !c ||
         (std::isfinite(c->r) && std::isfinite(c->g) && std::isfinite(c->b) && std::isfinite(c->a));
}

// Gathers with memory of what it has read: each reference's parts and each representation's
// geometry are read once, however often they are placed.
class Gatherer {
 public:
  Gatherer(DocumentSet& documents, const GatherOptions& options, Assembly& assembly)
      : _Documents(documents), _Options(options), _Assembly(assembly) {}

  // `occurrence.color` holds the instance's own colour, if any; the reference's comes next,
  // then the one inherited from the parent occurrence.
  void Visit(Document& doc, Element* reference, Occurrence& occurrence, int depth,
             const std::optional<Rgba>& inherited) {
    occurrence.referenceId = doc.Id(reference);
    const ReferenceShared& shared = SharedOf(doc, reference, occurrence.referenceId);
    occurrence.reference = shared.name;
    occurrence.parts = {shared.parts.data(), shared.parts.size()};
    const ReferenceKey key{&doc, occurrence.referenceId};
    const auto named = [&] {
      return "\"" + shared.name + "\" [" + std::to_string(occurrence.referenceId) +
             "] of " + doc.Path();
    };
    if (!occurrence.color) occurrence.color = shared.color;
    if (!Finite(occurrence.color)) {
      _Error = "reference " + named() + " or its instance has a colour out of range";
      return;
    }
    if (!occurrence.color) occurrence.color = inherited;
    // A cycle has no end to show; nesting without one would outgrow the stack of every walk
    // over the occurrences.
    if (_Path.count(key) != 0) {
      _Error = "reference " + named() + " instantiates itself";
      return;
    }
    if (depth > kMaxLevels) {
      _Error = "instances are nested more than " + std::to_string(kMaxLevels) + " levels deep";
      return;
    }
    const std::vector<Element*> instances = doc.Instances(reference);
    if (_Options.depth >= 0 && depth >= _Options.depth) {
      occurrence.truncated = !instances.empty();
      return;
    }
    _Path.insert(key);
    occurrence.children.resize(instances.size());
    for (size_t i = 0; i < instances.size(); ++i) {
      Occurrence& child = occurrence.children[i];
      Element* instance = instances[i];
      child.name = doc.Name(instance);
      child.instanceId = doc.Id(instance);
      child.matrix = doc.MatrixOf(instance).value_or(kIdentity);
      child.color = doc.ColorOf(instance);
      // Infinities and NaN would reach the glTF output as nulls, and NaN cannot be ordered.
      if (!Finite(child.matrix)) {
        _Error = "instance \"" + child.name + "\" [" + std::to_string(child.instanceId) + "] of " +
                 doc.Path() + " has a placement out of range";
        return;
      }
      const ReferenceTarget target = doc.ReferenceOf(instance);
      Count();
      if (target.reference != nullptr) {
        Visit(doc, target.reference, child, depth + 1, occurrence.color);
        if (!_Error.empty()) return;
        continue;
      }
      child.externalFile = target.file;
      if (target.file.empty()) {
        child.problem = "names no reference";
        continue;
      }
      HRESULT code = S_OK;
      Document* other = _Documents.Get(target.file, code);
      Element* otherReference = nullptr;
      if (other == nullptr) {
        child.problem = "cannot read " + target.file + " (" + Hex(code) + ")";
      } else if (FAILED(other->Parser().GetReference3DFromLocalID(target.id, &otherReference)) ||
                 otherReference == nullptr) {
        child.problem = "no reference " + std::to_string(target.id) + " in " + target.file;
      } else {
        Visit(*other, otherReference, child, depth + 1, occurrence.color);
        if (!_Error.empty()) return;
        continue;
      }
      _Assembly.warnings.push_back("instance " + std::to_string(child.instanceId) + " (" +
                                   child.name + "): " + child.problem);
    }
    _Path.erase(key);
  }

  // Why the occurrences cannot be gathered; empty when they can.
  const std::string& Error() const { return _Error; }

 private:
  // The name, parts and colour of a reference, read once however often it is placed.
  const ReferenceShared& SharedOf(Document& doc, Element* reference, int referenceId) {
    ReferenceShared*& shared = _Shared[reference];
    if (shared == nullptr) {
      shared = &_Assembly.shared.emplace_back();
      shared->name = doc.Name(reference);
      shared->color = doc.ColorOf(reference);
      shared->parts = PartsOf(doc, reference, referenceId, shared->name);
    }
    return *shared;
  }

  void Count() {
    if (_Options.progress && (++_Occurrences & 0x3FF) == 0) _Options.progress(_Occurrences);
  }

  const std::vector<int>& PartsOf(Document& doc, Element* reference, int referenceId,
                                  const std::string& name) {
    const ReferenceKey key{&doc, referenceId};
    if (auto it = _ReferenceParts.find(key); it != _ReferenceParts.end()) return it->second;
    std::vector<int>& parts = _ReferenceParts[key];
    for (Element* repInstance : doc.RepInstances(reference)) {
      Element* repReference = doc.RepReferenceOf(repInstance);
      if (repReference == nullptr) {
        _Assembly.warnings.push_back("representation instance " +
                                     std::to_string(doc.Id(repInstance)) + " of " + doc.Path() +
                                     " names a representation reference elsewhere; not followed");
        continue;
      }
      for (Element* format : doc.Formats(repReference)) {
        RepRow row;
        row.document = doc.Path();
        row.reference = name;
        row.referenceId = referenceId;
        row.repInstance = doc.Name(repInstance);
        row.repInstanceId = doc.Id(repInstance);
        row.repReference = doc.Name(repReference);
        row.repReferenceId = doc.Id(repReference);
        row.docType = doc.DocType(format);
        row.urn = doc.Urn(format);
        row.location = doc.Location(format, row.locationCode);
        const std::string partKey = row.locationCode == kVorlaLocationLocal
                                        ? doc.Path() + "#" + row.location
                                        : row.location;
        auto known = _PartIndex.find(partKey);
        if (known == _PartIndex.end()) {
          known = _PartIndex.emplace(partKey, static_cast<int>(_Assembly.parts.size())).first;
          _Assembly.parts.push_back(ReadPart(doc, format, partKey, row));
        }
        row.part = known->second;
        parts.push_back(row.part);
        _Assembly.reps.push_back(row);
      }
    }
    return parts;
  }

  Part ReadPart(Document& doc, Element* format, const std::string& key, const RepRow& row) {
    Part part;
    part.key = key;
    part.name = row.repReference;
    part.docType = row.docType;
    if (!_Options.geometry) return part;
    GeometryBuffer geometry = doc.Geometry(format);
    part.bufferCode = geometry.code;
    part.size = geometry.size;
    part.tag = geometry.tag;
    KalRep* rep = nullptr;
    if (geometry.code == kVorlaFormatNotSupported) {
      part.problem = "format or version not supported";
    } else if (FAILED(geometry.code)) {
      part.problem = "cannot be read (" + Hex(geometry.code) + ")";
    } else if (geometry.bytes == nullptr) {
      part.problem = "no data";
    } else if (geometry.size < 4 || std::memcmp(geometry.bytes.get(), kQsrMagic, 4) != 0) {
      part.problem = "data of an unknown layout (" + geometry.tag + ")";
    } else if (KalReadQsr(geometry.bytes.get(), static_cast<int>(geometry.size), rep) != S_OK) {
      part.problem = "a damaged Qsr buffer";
    } else {
      part.meshes = std::move(rep->meshes);
      rep->Release();
    }
    return part;
  }

  DocumentSet& _Documents;
  const GatherOptions& _Options;
  Assembly& _Assembly;
  // A reference by its document and id: compared without building text for every occurrence.
  using ReferenceKey = std::pair<const Document*, int>;
  std::set<ReferenceKey> _Path;
  std::map<ReferenceKey, std::vector<int>> _ReferenceParts;
  std::unordered_map<const Element*, ReferenceShared*> _Shared;
  std::map<std::string, int> _PartIndex;
  size_t _Occurrences = 0;
  std::string _Error;
};

void GatherViews(Document& doc, Assembly& assembly) {
  KalVorlaParser& parser = doc.Parser();
  KalRawCollint ids;
  if (parser.GetAlternateViewList(ids) != S_OK) return;
  for (int i = 1; i <= ids.Size(); ++i) {
    View view;
    view.id = ids[i];
    Element* element = nullptr;
    KalUnicodeString name, description;
    if (FAILED(parser.GetAlternateView(view.id, &element, name, description))) continue;
    view.name = Text(name);
    view.description = Text(description);
    Element* viewpoint = nullptr;
    const HRESULT kind = parser.GetAlternateViewViewpoint(element, &viewpoint);
    float* vectors[4] = {nullptr, nullptr, nullptr, nullptr};
    float last = 0;
    HRESULT read = E_FAIL;
    if (kind == kVorlaPerspectiveViewpoint || kind == kVorlaParallelViewpoint) {
      const bool conic = kind == kVorlaPerspectiveViewpoint;
      const auto reader = conic ? &KalVorlaParser::GetConicViewpointData
                                : &KalVorlaParser::GetCylindricViewpointData;
      read = (parser.*reader)(viewpoint, &vectors[0], &vectors[1], &vectors[2], &vectors[3],
                              view.targetDistance, view.nearPlane, view.farPlane, last);
      (conic ? view.fieldOfView : view.height) = last;
      view.kind = conic ? View::Kind::kPerspective : View::Kind::kParallel;
    } else if (kind == kVorlaCustomViewpoint) {
      view.kind = View::Kind::kCustom;
    }
    std::array<float, 3>* outputs[4] = {&view.position, &view.sight, nullptr, &view.up};
    for (int v = 0; v < 4; ++v) {
      if (vectors[v] != nullptr && outputs[v] != nullptr) {
        std::copy(vectors[v], vectors[v] + 3, outputs[v]->begin());
      }
      delete[] vectors[v];
    }
    if (view.kind != View::Kind::kCustom && FAILED(read)) {
      assembly.warnings.push_back("view \"" + view.name + "\" has no camera that can be read");
      view.kind = View::Kind::kNone;
    } else if (view.kind == View::Kind::kCustom) {
      assembly.warnings.push_back("view \"" + view.name +
                                  "\" has a custom viewpoint; not exported");
    }
    KalRawCollint occurrences;
    parser.GetOccurenceIdList(element, occurrences);
    for (int o = 1; o <= occurrences.Size(); ++o) view.occurrences.push_back(occurrences[o]);
    assembly.views.push_back(view);
  }
}

// Each count is a pass over the whole product structure: only asked for when printed.
void GatherCounts(Document& doc, Assembly& assembly) {
  KalVorlaParser& parser = doc.Parser();
  parser.GetNumberOfInstances(assembly.instances);
  parser.GetNumberOfReferences(assembly.references);
  parser.GetNumberOfRepresentations(assembly.representations);
  const struct {
    const char* name;
    HRESULT (KalVorlaParser::*get)(Element**);
  } sets[] = {{"presentation", &KalVorlaParser::GetPresentationSetNode},
              {"measure", &KalVorlaParser::GetMeasureSetNode},
              {"section", &KalVorlaParser::GetSectionSetNode},
              {"animation", &KalVorlaParser::GetAnimationSetNode},
              {"specific extension", &KalVorlaParser::GetSpecificExtensionSetNode},
              {"graphic material", &KalVorlaParser::GetGraphicMaterialSetNode}};
  for (const auto& set : sets) {
    Element* node = nullptr;
    if ((parser.*set.get)(&node) == S_OK && node != nullptr) assembly.sets.push_back(set.name);
  }
  Element* materials = nullptr;
  parser.GetGraphicMaterialSetNode(&materials);
  for (KalPosition p = materials ? materials->GetHeadPosition() : nullptr; p != nullptr;) {
    Element* material = materials->GetNextChild(p);
    if (material != nullptr && Text(material->GetType()) == "GraphicMaterial") ++assembly.materials;
  }
}

}  // namespace

Matrix Identity() { return kIdentity; }

Matrix Compose(const Matrix& a, const Matrix& b) {
  // Columns: a's linear part applied to b's columns; a's linear part applied to b's
  // translation plus a's translation.
  Matrix m{};
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 3; ++row) {
      double value = column == 3 ? a[9 + row] : 0.0;
      for (int k = 0; k < 3; ++k) value += a[3 * k + row] * b[3 * column + k];
      m[3 * column + row] = value;
    }
  }
  return m;
}

bool PlacedBounds(const Assembly& assembly, std::array<double, 3>& low,
                  std::array<double, 3>& high) {
  // Each part's own box, then its corners placed: exact for the box of boxes, and cheap.
  std::vector<std::array<double, 6>> boxes(assembly.parts.size());
  std::vector<bool> empty(assembly.parts.size(), true);
  for (size_t p = 0; p < assembly.parts.size(); ++p) {
    for (const KalMesh& mesh : assembly.parts[p].meshes) {
      for (size_t i = 0; i + 2 < mesh.positions.size(); i += 3) {
        for (int k = 0; k < 3; ++k) {
          const double v = mesh.positions[i + k];
          if (empty[p] || v < boxes[p][k]) boxes[p][k] = v;
          if (empty[p] || v > boxes[p][3 + k]) boxes[p][3 + k] = v;
        }
        empty[p] = false;
      }
    }
  }
  bool found = false;
  std::function<void(const Occurrence&, const Matrix&)> visit = [&](const Occurrence& o,
                                                                    const Matrix& world) {
    for (int p : o.parts) {
      if (empty[p]) continue;
      for (int corner = 0; corner < 8; ++corner) {
        const double c[3] = {boxes[p][corner & 1 ? 3 : 0], boxes[p][corner & 2 ? 4 : 1],
                             boxes[p][corner & 4 ? 5 : 2]};
        for (int row = 0; row < 3; ++row) {
          double v = world[9 + row];
          for (int k = 0; k < 3; ++k) v += world[3 * k + row] * c[k];
          if (!found || v < low[row]) low[row] = v;
          if (!found || v > high[row]) high[row] = v;
        }
        found = true;
      }
    }
    for (const Occurrence& child : o.children) visit(child, Compose(world, child.matrix));
  };
  visit(assembly.root, kIdentity);
  return found;
}

bool Gather(const std::string& path, const GatherOptions& options, Assembly& assembly,
            HRESULT& code) {
  DocumentSet documents;
  Document* root = documents.Get(path, code);
  assembly.file = path;
  assembly.loadCode = code;
  if (root == nullptr) return false;
  KalUnicodeString rootFile;
  root->Parser().GetFilePath(rootFile);
  assembly.rootFile = Text(rootFile);
  if (options.counts) GatherCounts(*root, assembly);
  Element* rootReference = root->RootReference();
  if (rootReference != nullptr) {
    Gatherer gatherer(documents, options, assembly);
    gatherer.Visit(*root, rootReference, assembly.root, 0, std::nullopt);
    if (!gatherer.Error().empty()) {
      assembly.error = gatherer.Error();
      return false;
    }
  } else {
    assembly.warnings.push_back("the document has no root reference");
  }
  GatherViews(*root, assembly);
  std::vector<std::string> unconverted;
  for (const Part& part : assembly.parts) {
    if (!part.problem.empty() && options.geometry) {
      unconverted.push_back(part.key + " (" + part.name + "): " + part.problem);
    }
  }
  if (!unconverted.empty()) {
    std::string warning = std::to_string(unconverted.size()) +
                          " representation(s) without geometry that can be converted:";
    // The first few name what to look at; `vorla reps` lists them all.
    constexpr size_t kNamed = 10;
    for (size_t i = 0; i < unconverted.size() && i < kNamed; ++i)
      warning += "\n  " + unconverted[i];
    if (unconverted.size() > kNamed) {
      warning += "\n  and " + std::to_string(unconverted.size() - kNamed) + " more (vorla reps)";
    }
    assembly.warnings.push_back(warning);
  }
  return true;
}

}  // namespace vorla
