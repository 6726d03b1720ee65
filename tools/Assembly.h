// The assembly as plain data, gathered once from the documents through the library: the
// occurrence tree, the distinct geometries, the representation rows and the views. The
// commands print or export this and never call the library themselves.
#ifndef VORLA_ASSEMBLY_H
#define VORLA_ASSEMBLY_H

#include <array>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "KalHResult.h"
#include "KalViz.h"

namespace vorla {

using Matrix = std::array<double, 12>;  // three columns of the linear part, then the translation

struct Rgba {
  double r = 1, g = 1, b = 1, a = 1;
  bool operator<(const Rgba& o) const {
    return std::tie(r, g, b, a) < std::tie(o.r, o.g, o.b, o.a);
  }
};

std::string Hex(HRESULT code);  // "0x80004005"

constexpr Matrix kIdentity = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};

// One distinct representation: its meshes, read once however often it is placed.
struct Part {
  std::string key;   // the document that holds it and its id
  std::string name;  // of the representation reference that first led to it
  std::string docType;
  std::vector<KalMesh> meshes;
  std::string problem;        // why it has no geometry; empty when it converted
  HRESULT bufferCode = S_OK;  // what the library said handing out its buffer
  unsigned int size = 0;
  std::string tag;
};

// One representation format reachable from a reference.
struct RepRow {
  std::string document, reference, repInstance, repReference, docType, urn, location;
  int referenceId = -1, repInstanceId = -1, repReferenceId = -1;
  HRESULT locationCode = S_OK;
  int part = -1;  // index in Assembly::parts
};

// The parts every occurrence of one reference shares, held by Assembly::shared.
struct PartList {
  const int* first = nullptr;
  size_t count = 0;
  const int* begin() const { return first; }
  const int* end() const { return first + count; }
  size_t size() const { return count; }
  bool empty() const { return count == 0; }
};

// What the occurrences of one reference have in common, held once.
struct ReferenceShared {
  std::string name;
  std::vector<int> parts;  // indices in Assembly::parts
  std::optional<Rgba> color;
};

struct Occurrence {
  std::string name;  // of the instance; the root occurrence has none
  int instanceId = -1;
  int referenceId = -1;
  std::string_view reference;  // its name, held by Assembly::shared
  PartList parts;
  std::string externalFile;  // as the instance names it, when the reference is elsewhere
  Matrix matrix = kIdentity;
  std::optional<Rgba> color;  // the instance's, else its reference's, else inherited
  std::string problem;        // why it has no children: a file that cannot be read
  bool truncated = false;     // children left out by a depth limit
  std::vector<Occurrence> children;
};

struct View {
  int id = 0;
  std::string name, description;
  enum class Kind { kNone, kCustom, kPerspective, kParallel } kind = Kind::kNone;
  std::array<float, 3> position{}, sight{}, up{};
  float targetDistance = 0, nearPlane = 0, farPlane = 0, fieldOfView = 0, height = 0;
  std::vector<int> occurrences;  // overridden by the view's properties
};

struct Assembly {
  Assembly() = default;
  Assembly(const Assembly&) = delete;  // occurrences point into `shared`; a move keeps it
  Assembly& operator=(const Assembly&) = delete;
  Assembly(Assembly&&) = default;
  Assembly& operator=(Assembly&&) = default;
  std::string file, rootFile;
  HRESULT loadCode = S_OK;
  int instances = 0, references = 0, representations = 0, materials = 0;
  std::vector<std::string> sets;  // the applicative sets present
  std::deque<ReferenceShared> shared;  // a deque: occurrences point into it as it grows
  Occurrence root;
  std::vector<Part> parts;
  std::vector<RepRow> reps;
  std::vector<View> views;
  std::vector<std::string> warnings;
  // Why the product structure cannot be walked: a cycle, nesting too deep, a placement or a
  // colour holding an infinity or NaN.
  std::string error;
};

struct GatherOptions {
  int depth = -1;                        // levels of instances to expand; -1 for all
  bool geometry = true;                  // read the geometry buffers into parts
  bool counts = false;  // count instances, references, representations, sets and materials
  std::function<void(size_t)> progress;  // told the number of occurrences so far
};

// Gathers the assembly of the document at `path` through the library; false, with `code`, when it
// cannot be read, or with `assembly.error` when its product structure cannot be walked.
bool Gather(const std::string& path, const GatherOptions& options, Assembly& assembly,
            HRESULT& code);

// The box around every placed part's positions, in the root reference's frame; false when
// nothing with geometry is placed.
bool PlacedBounds(const Assembly& assembly, std::array<double, 3>& low,
                  std::array<double, 3>& high);

// The product of two placements (a then b: b's frame inside a's).
Matrix Compose(const Matrix& a, const Matrix& b);
Matrix Identity();

}  // namespace vorla

#endif
