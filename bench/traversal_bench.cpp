// Traversal benchmark: a whole walk of an assembly through the public API, as an importer
// makes it, next to a warm InitParsing of the same document.
//
//   vorla_traversal_bench [--runs N] DOC.vorla [DOC2.vorla ...]
//
// The walk visits every occurrence from the root reference: instance -> reference (local or
// in another document of the archive) -> matrix -> representation instances -> representation
// reference -> formats -> document type -> location -> representation element -> graphic
// properties of the instance -> surface attributes -> colour. Nothing is cached between
// occurrences. Each figure is the median of N runs in one process, the documents taken in turn.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KalVorlaParser.h"

namespace {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Counts {
  long occurrences = 0, formats = 0, representations = 0, colours = 0;
  double checksum = 0;  // keeps the walk's reads from being optimised away
};

class Walker {
 public:
  explicit Walker(KalVorlaParser& root) : _Root(root) {}
  ~Walker() {
    for (auto& [path, parser] : _Others) delete parser;
  }

  void Reference(KalVorlaParser& p, KalLightXmlElementItf* reference, Counts& c, int depth) {
    if (depth > 64) return;
    Representations(p, reference, c);
    int id = -1;
    p.GetEntityLocalID(reference, id);
    KalRawCollPV instances;
    if (FAILED(p.GetInstancesFromReference3D(id, &instances))) return;
    for (int i = 1; i <= instances.Size(); ++i) {
      auto* instance = static_cast<KalLightXmlElementItf*>(instances[i]);
      ++c.occurrences;
      int instanceId = -1;
      p.GetEntityLocalID(instance, instanceId);
      double* matrix = nullptr;
      p.GetInstanceMatrix(instance, &matrix);
      if (matrix != nullptr) c.checksum += matrix[9];
      delete[] matrix;
      Colour(p, instance, c);
      KalLightXmlElementItf* child = nullptr;
      KalUnicodeString file;
      int childId = -1;
      p.GetReference3DFromInstance3D(instanceId, &child, file, childId);
      if (child != nullptr) {
        Reference(p, child, c, depth + 1);
      } else if (!file.IsEmpty()) {
        KalVorlaParser* other = Other(file.ConvertToChar());
        if (other != nullptr && SUCCEEDED(other->GetReference3DFromLocalID(childId, &child))) {
          Reference(*other, child, c, depth + 1);
        }
      }
    }
  }

 private:
  void Representations(KalVorlaParser& p, KalLightXmlElementItf* reference, Counts& c) {
    KalRawCollPV reps;
    p.GetRepInstancesFromReference3D(reference, &reps);
    for (int r = 1; r <= reps.Size(); ++r) {
      KalLightXmlElementItf* repReference = nullptr;
      KalUnicodeString path;
      int id = -1;
      p.GetReferenceRepFromInstanceRep(static_cast<KalLightXmlElementItf*>(reps[r]), &repReference,
                                       path, id);
      if (repReference == nullptr) continue;
      KalRawCollPV formats;
      p.GetRepFormatsFromRepReference(repReference, &formats);
      for (int f = 1; f <= formats.Size(); ++f) {
        auto* format = static_cast<KalLightXmlElementItf*>(formats[f]);
        ++c.formats;
        KalUnicodeString type, location;
        p.GetRepresentationDocType(format, type);
        c.checksum += type.GetLengthInChar();
        c.checksum += p.GetRepLocationFromRepFormat(format, location);
        KalLightXmlElementItf* representation = nullptr;
        const HRESULT found = p.GetRepresentationFromRepFormat(format, &representation);
        if (representation != nullptr) ++c.representations;
        if (found == kVorlaCopyMode) delete representation;
      }
    }
  }

  void Colour(KalVorlaParser& p, KalLightXmlElementItf* node, Counts& c) {
    KalLightXmlElementItf *properties = nullptr, *surface = nullptr;
    if (p.GetGraphicPropertiesNode(node, &properties) != S_OK) return;
    if (p.GetSurfaceAttributesElement(properties, &surface) != kVorlaSurfaceColor) return;
    double r = 0, g = 0, b = 0, a = 1;
    if (SUCCEEDED(p.GetColor(surface, r, g, b, a))) {
      ++c.colours;
      c.checksum += r + g + b;
    }
  }

  KalVorlaParser* Other(const std::string& path) {
    auto found = _Others.find(path);
    if (found != _Others.end()) return found->second;
    auto* parser = new KalVorlaParser();
    if (FAILED(parser->InitParsing(path.c_str()))) {
      delete parser;
      parser = nullptr;
    }
    return _Others[path] = parser;
  }

  KalVorlaParser& _Root;
  std::map<std::string, KalVorlaParser*> _Others;
};

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 5;
  std::vector<std::string> documents;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, std::atoi(argv[++i]));
    } else {
      documents.push_back(argv[i]);
    }
  }
  if (documents.empty()) {
    std::fprintf(stderr, "usage: vorla_traversal_bench [--runs N] DOC.vorla [DOC2.vorla ...]\n");
    return 2;
  }
  std::printf(
      "| document | occurrences | formats | colours | warm load s | walk s | walk / load |\n"
      "| --- | --- | --- | --- | --- | --- | --- |\n");
  // Runs go round the documents, so that a busy spell of the machine weighs on all of them.
  const size_t n = documents.size();
  std::vector<std::vector<double>> load(n), walk(n);
  std::vector<Counts> counts(n);
  for (const std::string& path : documents) {
    KalVorlaParser first;  // the first load of the process is not warm
    first.InitParsing(path.c_str());
  }
  for (int run = 0; run < runs; ++run) {
    for (size_t d = 0; d < n; ++d) {
      const char* path = documents[d].c_str();
      double t = Now();
      auto parser = std::make_unique<KalVorlaParser>();
      if (FAILED(parser->InitParsing(path))) {
        std::fprintf(stderr, "vorla_traversal_bench: cannot load %s\n", path);
        return 1;
      }
      load[d].push_back(Now() - t);
      KalLightXmlElementItf* root = nullptr;
      parser->GetProductStructureRootReference(&root);
      counts[d] = Counts();
      t = Now();
      {
        Walker walker(*parser);
        if (root != nullptr) walker.Reference(*parser, root, counts[d], 0);
      }
      walk[d].push_back(Now() - t);
    }
  }
  std::vector<double> walks, loads;
  for (size_t d = 0; d < n; ++d) {
    loads.push_back(Median(load[d]));
    walks.push_back(Median(walk[d]));
    std::printf("| %s | %ld | %ld | %ld | %.3f | %.3f | %.2f |\n", documents[d].c_str(),
                counts[d].occurrences, counts[d].formats, counts[d].colours, loads.back(),
                walks.back(), walks.back() / loads.back());
  }
  if (walks.size() >= 2) {
    std::printf("\nwalk, last document / first: %.3f / %.3f = %.2f (target <= 11 at 10x)\n",
                walks.back(), walks.front(), walks.back() / walks.front());
    std::printf("walk / warm load of the last document: %.2f (target <= 1)\n",
                walks.back() / loads.back());
  }
  return 0;
}
