#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "KalHResult.h"
#include "KalMemory.h"
#include "KalViz.h"

// Words and floats go to and from the buffer as the host holds them.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "Qsr buffers need a little-endian host");

namespace {

constexpr char kMagic[4] = {'Q', 'S', 'R', '1'};
constexpr size_t kHeaderBytes = 4 + 4 + 4 + 6 * 4;
constexpr size_t kMeshFixedBytes = 4 + 4 * 4;

// What the writer takes of a mesh: whole vertices, triangles and polylines only, so that a
// mesh whose vectors disagree is never read past their ends.
struct MeshPlan {
  uint64_t vertices = 0, triangles = 0, polylines = 0, polylineIndices = 0;
  bool normals = false;

  uint64_t Bytes(const KalMesh& mesh) const {
    return kMeshFixedBytes + static_cast<uint64_t>(mesh.name.GetLengthInChar()) +
           12 * vertices * (normals ? 2 : 1) + 12 * triangles + 4 * (polylines + polylineIndices);
  }
};

MeshPlan Plan(const KalMesh& mesh, KalSettingQsr setting) {
  MeshPlan plan;
  plan.vertices = mesh.positions.size() / 3;
  plan.normals =
      (setting & kQsrNormals) != 0 && plan.vertices > 0 && mesh.normals.size() / 3 == plan.vertices;
  if (setting & kQsrFaces) plan.triangles = mesh.triangles.size() / 3;
  if (setting & kQsrPolylines) {
    for (uint32_t size : mesh.polylineSizes) {
      if (size > mesh.polylineIndices.size() - plan.polylineIndices) break;
      ++plan.polylines;
      plan.polylineIndices += size;
    }
  }
  return plan;
}

class Writer {
 public:
  explicit Writer(char* out) : _pOut(out) {}
  void Word(uint64_t value) {
    const uint32_t word = static_cast<uint32_t>(value);
    Copy(&word, 4);
  }
  void Copy(const void* source, size_t bytes) {
    // An empty vector's data() may be null, which memcpy must not get even for 0 bytes.
    if (bytes == 0) return;
    std::memcpy(_pOut, source, bytes);
    _pOut += bytes;
  }

 private:
  char* _pOut;
};

// Reads from the buffer, never past its end: every read first checks the bytes left.
class Reader {
 public:
  Reader(const char* data, size_t size) : _pData(data), _Left(size) {}
  size_t Left() const { return _Left; }
  const char* Take(size_t bytes) {
    if (bytes > _Left) return nullptr;
    const char* at = _pData;
    _pData += bytes;
    _Left -= bytes;
    return at;
  }
  bool Word(uint32_t& value) {
    const char* at = Take(4);
    if (at != nullptr) std::memcpy(&value, at, 4);
    return at != nullptr;
  }
  // Reads `count` values, sizing `out` only once the bytes are known to be there.
  template <typename T>
  bool Array(uint64_t count, std::vector<T>& out) {
    if (count > _Left / sizeof(T)) return false;
    out.resize(static_cast<size_t>(count));
    if (count > 0) std::memcpy(out.data(), Take(count * sizeof(T)), count * sizeof(T));
    return true;
  }

 private:
  const char* _pData;
  size_t _Left;
};

bool IndicesBelow(const std::vector<uint32_t>& indices, uint32_t count) {
  for (uint32_t i : indices)
    if (i >= count) return false;
  return true;
}

bool ReadMesh(Reader& in, KalMesh& mesh) {
  uint32_t nameBytes = 0, vertices = 0, triangles = 0, polylines = 0, normals = 0;
  if (!in.Word(nameBytes) || nameBytes > in.Left()) return false;
  mesh.name = KalUnicodeString(in.Take(nameBytes), static_cast<int>(nameBytes));
  if (!in.Word(vertices) || !in.Word(triangles) || !in.Word(polylines) || !in.Word(normals))
    return false;
  if (normals > 1 || !in.Array(3ull * vertices, mesh.positions) ||
      !in.Array(normals * 3ull * vertices, mesh.normals) ||
      !in.Array(3ull * triangles, mesh.triangles) || polylines > in.Left() / 4)
    return false;
  mesh.polylineSizes.reserve(polylines);
  for (uint32_t i = 0; i < polylines; ++i) {
    uint32_t size = 0;
    if (!in.Word(size) || size > in.Left() / 4) return false;
    const size_t before = mesh.polylineIndices.size();
    mesh.polylineIndices.resize(before + size);
    if (size > 0) std::memcpy(&mesh.polylineIndices[before], in.Take(4ull * size), 4ull * size);
    mesh.polylineSizes.push_back(size);
  }
  return IndicesBelow(mesh.triangles, vertices) && IndicesBelow(mesh.polylineIndices, vertices);
}

}  // namespace

int KalWriteQsr(KalRep* rep, char*& data, int& length, KalSettingQsr setting,
                KalColorMap* /*colormap*/, unsigned char /*flag*/) {
  if (rep == nullptr) return E_INVALIDARG;
  try {
    std::vector<MeshPlan> plans;
    plans.reserve(rep->meshes.size());
    uint64_t total = kHeaderBytes;
    for (const KalMesh& mesh : rep->meshes) {
      plans.push_back(Plan(mesh, setting));
      // No term can pass 2^63, so the sum of one with a total below 2 GiB cannot wrap.
      total += plans.back().Bytes(mesh);
      if (total > static_cast<uint64_t>(INT_MAX)) return E_FAIL;
    }
    char* buffer = new (std::nothrow) char[total];
    if (buffer == nullptr) return E_OUTOFMEMORY;
    KalAdviseHugePages(buffer, total);
    // The box written is the positions' one even when the caller changed them since.
    rep->UpdateBoundingBox();
    Writer out(buffer);
    out.Copy(kMagic, 4);
    out.Word(static_cast<uint32_t>(setting));
    out.Word(rep->meshes.size());
    out.Copy(rep->boxMin, 12);
    out.Copy(rep->boxMax, 12);
    for (size_t m = 0; m < plans.size(); ++m) {
      const KalMesh& mesh = rep->meshes[m];
      const MeshPlan& plan = plans[m];
      out.Word(static_cast<uint32_t>(mesh.name.GetLengthInChar()));
      out.Copy(mesh.name.ConvertToChar(), mesh.name.GetLengthInChar());
      out.Word(plan.vertices);
      out.Word(plan.triangles);
      out.Word(plan.polylines);
      out.Word(plan.normals ? 1 : 0);
      out.Copy(mesh.positions.data(), 12 * plan.vertices);
      if (plan.normals) out.Copy(mesh.normals.data(), 12 * plan.vertices);
      out.Copy(mesh.triangles.data(), 12 * plan.triangles);
      const uint32_t* indices = mesh.polylineIndices.data();
      for (size_t p = 0; p < plan.polylines; ++p) {
        const uint32_t size = mesh.polylineSizes[p];
        out.Word(size);
        out.Copy(indices, 4ull * size);
        indices += size;
      }
    }
    data = buffer;
    length = static_cast<int>(total);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

int KalReadQsr(const char* data, int length, KalRep*& rep) {
  rep = nullptr;
  if (data == nullptr || length < 0) return E_FAIL;
  try {
    Reader in(data, static_cast<size_t>(length));
    const char* magic = in.Take(4);
    uint32_t setting = 0, meshCount = 0;
    float box[6];
    // The setting only tells what the writer kept; the counts already say what is there.
    if (magic == nullptr || std::memcmp(magic, kMagic, 4) != 0 || !in.Word(setting) ||
        !in.Word(meshCount) || in.Left() < sizeof(box))
      return E_FAIL;
    std::memcpy(box, in.Take(sizeof(box)), sizeof(box));
    if (meshCount > in.Left() / kMeshFixedBytes) return E_FAIL;
    std::unique_ptr<KalRep> result(new KalRep);
    result->meshes.resize(meshCount);
    for (KalMesh& mesh : result->meshes)
      if (!ReadMesh(in, mesh)) return E_FAIL;
    if (in.Left() != 0) return E_FAIL;
    result->UpdateBoundingBox();
    for (int axis = 0; axis < 3; ++axis) {
      if (box[axis] != result->boxMin[axis] || box[3 + axis] != result->boxMax[axis]) return E_FAIL;
    }
    rep = result.release();
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}
