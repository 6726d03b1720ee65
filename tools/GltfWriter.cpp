#include "GltfWriter.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <unordered_map>

namespace vorla {

namespace {

constexpr double kDefaultGrey = 0.8;
constexpr size_t kInstancingThreshold = 8;  // placements that make a mesh worth instancing
constexpr size_t kBytesPerNode = 320;       // of JSON, a placed node with extras: reserved once
// glTF's codes for component types, buffer targets and primitive modes.
constexpr int kFloat = 5126, kUnsignedInt = 5125;
constexpr int kArrayBuffer = 34962, kElementArrayBuffer = 34963;
constexpr int kLines = 1, kTriangles = 4;

using Vec3 = std::array<double, 3>;
using Matrix4 = std::array<double, 16>;

Vec3 Cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

bool Normalize(Vec3& v) {
  const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (!(length > 1e-12)) return false;
  for (double& x : v) x /= length;
  return true;
}

// The placement as glTF's column-major 4x4.
Matrix4 NodeMatrix(const Matrix& m) {
  return {m[0], m[1], m[2], 0, m[3], m[4], m[5], 0, m[6], m[7], m[8], 0, m[9], m[10], m[11], 1};
}

// glTF's JSON, written as it goes: a model of hundreds of thousands of nodes held as a JSON
// tree first costs seconds and several times the output's size. It is written through a cursor
// into `text`'s reserved room, grown only when that runs out; an append per token would check
// and grow the string millions of times.
class Json {
 public:
  // `room`: the bytes the JSON is expected to take, made writable at once (any more grows it).
  Json(std::string& text, size_t room) : _Text(text), _Used(text.size()) {
    _Text.resize(_Used + std::max(room, kMinRoom));
  }
  ~Json() { _Text.resize(_Used); }
  Json(const Json&) = delete;
  Json& operator=(const Json&) = delete;

  Json& Open(char bracket) {
    Separate();
    Put(bracket);
    _First = true;
    return *this;
  }
  Json& Close(char bracket) {
    Put(bracket);
    _First = false;
    return *this;
  }
  Json& Key(std::string_view key) {
    Separate();
    char* p = Room(key.size() + 3);
    *p++ = '"';
    Copy(p, key);
    p[key.size()] = '"';
    p[key.size() + 1] = ':';
    _Used += key.size() + 3;
    _First = true;  // the value that follows takes no comma
    return *this;
  }
  Json& Number(double value) {
    Separate();
    if (!std::isfinite(value)) return Raw("null");
    // Placements are mostly zeros, ones and whole numbers, written much faster as integers.
    if (value == std::trunc(value) && std::fabs(value) < 1e15 && !(value == 0 && std::signbit(value))) {
      return Digits(static_cast<long long>(value));
    }
    char* p = Room(32);
    _Used += static_cast<size_t>(std::to_chars(p, p + 32, value).ptr - p);
    return *this;
  }
  Json& Integer(long long value) {
    Separate();
    return Digits(value);
  }
  Json& Bool(bool value) {
    Separate();
    return Raw(value ? "true" : "false");
  }
  // Plain printable ASCII as it is; anything else escaped, invalid UTF-8 replaced.
  Json& String(std::string_view value) {
    Separate();
    const bool plain = std::all_of(value.begin(), value.end(), [](char c) {
      return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
    });
    if (!plain) {
      return Raw(nlohmann::json(std::string(value))
                     .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }
    char* p = Room(value.size() + 2);
    *p = '"';
    Copy(p + 1, value);
    p[value.size() + 1] = '"';
    _Used += value.size() + 2;
    return *this;
  }
  template <class Range>
  Json& Numbers(const Range& values) {
    Open('[');
    for (double v : values) Number(v);
    return Close(']');
  }

 private:
  static constexpr size_t kMinRoom = 4096;
  // Where `bytes` more can be written.
  char* Room(size_t bytes) {
    if (_Text.size() - _Used < bytes) _Text.resize(std::max(2 * _Text.size(), _Used + bytes));
    return &_Text[_Used];
  }
  // An empty view may hold no pointer at all, which memcpy must not be given.
  static void Copy(char* to, std::string_view text) {
    if (!text.empty()) std::memcpy(to, text.data(), text.size());
  }
  void Put(char c) {
    *Room(1) = c;
    ++_Used;
  }
  void Separate() {
    if (!_First) Put(',');
    _First = false;
  }
  Json& Digits(long long value) {
    char* p = Room(24);
    _Used += static_cast<size_t>(std::to_chars(p, p + 24, value).ptr - p);
    return *this;
  }
  Json& Raw(std::string_view text) {
    Copy(Room(text.size()), text);
    _Used += text.size();
    return *this;
  }
  std::string& _Text;
  size_t _Used;
  bool _First = true;
};

std::string Base64(const std::vector<unsigned char>& data) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((data.size() + 2) / 3 * 4);
  for (size_t i = 0; i < data.size(); i += 3) {
    const size_t n = std::min<size_t>(3, data.size() - i);
    uint32_t v = uint32_t{data[i]} << 16;
    if (n > 1) v |= uint32_t{data[i + 1]} << 8;
    if (n > 2) v |= data[i + 2];
    for (size_t k = 0; k < 4; ++k) out += k <= n ? kDigits[(v >> (18 - 6 * k)) & 63] : '=';
  }
  return out;
}

void AppendWord(std::string& out, uint32_t word) {
  char bytes[4];
  for (int k = 0; k < 4; ++k) bytes[k] = static_cast<char>(word >> (8 * k));  // little-endian
  out.append(bytes, 4);
}

class Builder {
 public:
  Builder(const Assembly& assembly, const GltfOptions& options)
      : _Assembly(assembly), _Options(options) {
    // Document coordinates to glTF's: scale to metres, then Z up becomes Y up.
    const double s = options.metresPerUnit;
    _Conversion = options.zUp ? Matrix{s, 0, 0, 0, 0, -s, 0, s, 0, 0, 0, 0}
                              : Matrix{s, 0, 0, 0, s, 0, 0, 0, s, 0, 0, 0};
  }

  bool Build(std::string& bytes, GltfStats& stats, std::string& error) {
    _Nodes.reserve(CountOccurrences(_Assembly.root) + _Assembly.views.size());
    _Data.reserve(DataBytes());
    AddOccurrences();
    if (_Options.occurrenceIndices) {
      _DepthFirst.resize(_Nodes.size());
      int next = 0;
      NumberDepthFirst(0, next);
    }
    std::vector<int> scene{0};
    _Nodes[0].own = AddOwn({_Assembly.root.reference.empty() ? "root"
                                                              : std::string(_Assembly.root.reference),
                            true, NodeMatrix(_Conversion)});
    if (_Options.gpuInstancing) AddInstancing(scene);
    for (const View& view : _Assembly.views) {
      const int node = AddCamera(view);
      if (node >= 0) scene.push_back(node);
    }
    stats = {_Nodes.size(), _Meshes.size(), _Accessors.size(), _Vertices, _Cameras.size()};
    // The JSON is written in place, after the room for a .glb's header: large outputs are
    // not copied again.
    const size_t header = _Options.binary ? 20 : 0;
    const size_t jsonRoom =
        kBytesPerNode * _Nodes.size() + 256 * (_Meshes.size() + _Accessors.size());
    bytes.clear();
    bytes.reserve(header + jsonRoom + (_Options.binary ? _Data.size() + 16 : 0));
    bytes.resize(header);
    Write(scene, bytes, jsonRoom);
    if (!_Options.binary) return true;
    // A .glb: its header, the JSON chunk padded with blanks, the binary chunk with zeros.
    const size_t jsonLength = (bytes.size() - header + 3) & ~size_t{3};
    const size_t dataLength = (_Data.size() + 3) & ~size_t{3};
    const size_t total = header + jsonLength + (_Data.empty() ? 0 : 8 + dataLength);
    if (total > std::numeric_limits<uint32_t>::max()) {
      error = "the model is larger than a .glb can hold (4 GB); write a .gltf";
      return false;
    }
    bytes.resize(header + jsonLength, ' ');
    std::string start("glTF");
    AppendWord(start, 2);
    AppendWord(start, static_cast<uint32_t>(total));
    AppendWord(start, static_cast<uint32_t>(jsonLength));
    start.append("JSON");
    bytes.replace(0, header, start);
    if (!_Data.empty()) {
      AppendWord(bytes, static_cast<uint32_t>(dataLength));
      bytes.append("BIN", 4);
      bytes.append(reinterpret_cast<const char*>(_Data.data()), _Data.size());
      bytes.append(dataLength - _Data.size(), '\0');
    }
    return true;
  }

 private:
  // The root, cameras and instanced meshes name and place themselves; occurrences' nodes,
  // nearly all of them, leave both to their occurrence and stay small.
  struct Own {
    std::string name;
    bool hasMatrix = false;
    Matrix4 matrix{};
  };
  struct Node {
    const Occurrence* occurrence = nullptr;  // gives the name, placement and extras
    int own = -1;                            // in _Own: overrides the occurrence's
    int mesh = -1, camera = -1;
    size_t firstChild = 0, children = 0;  // children are consecutive nodes
    std::array<int, 3> instancing{-1, -1, -1};  // translation, rotation, scale accessors
  };
  struct Primitive {
    int position = -1, normal = -1, indices = -1, mode = kTriangles, material = -1;
  };
  struct Mesh {
    std::string name;
    std::vector<Primitive> primitives;
  };
  struct Accessor {
    int view, componentType;
    const char* type;
    size_t count;
    std::vector<double> low, high;  // positions only
  };
  struct BufferView {
    size_t offset, length;
    int target;
  };
  struct Camera {
    std::string name;
    bool perspective;
    double yfov, half, znear, zfar;
  };

  // At most what the parts' geometry takes in the buffer, reserved once: growing it by
  // doubling would touch twice its size in fresh pages.
  size_t DataBytes() const {
    size_t bytes = 0;
    for (const Part& part : _Assembly.parts) {
      for (const KalMesh& mesh : part.meshes) {
        bytes += 4 * (mesh.positions.size() + mesh.normals.size() + mesh.triangles.size() +
                      2 * mesh.polylineIndices.size()) + 16;
      }
    }
    return bytes;
  }

  // Root first, depth first, the order in which a viewer lists the tree: each occurrence
  // node's number, through the nodes' child ranges.
  void NumberDepthFirst(size_t node, int& next) {
    _DepthFirst[node] = next++;
    for (size_t child = 0; child < _Nodes[node].children; ++child) {
      NumberDepthFirst(_Nodes[node].firstChild + child, next);
    }
  }

  static size_t CountOccurrences(const Occurrence& occurrence) {
    size_t count = 1;
    for (const Occurrence& child : occurrence.children) count += CountOccurrences(child);
    return count;
  }

  // The occurrence tree breadth first, so that each node's children are consecutive nodes.
  void AddOccurrences() {
    std::vector<Matrix> worlds;  // kept for instancing only
    const auto add = [&](const Occurrence& occurrence, const Matrix& world) {
      Node node;
      node.occurrence = &occurrence;
      node.mesh = MeshFor(occurrence.parts, occurrence.color);
      if (node.mesh >= 0 && _Options.gpuInstancing) {
        _Placements[node.mesh].push_back({static_cast<int>(_Nodes.size()), world});
      }
      if (_Options.gpuInstancing) worlds.push_back(world);
      _Nodes.push_back(std::move(node));
    };
    add(_Assembly.root, _Conversion);
    for (size_t i = 0; i < _Nodes.size(); ++i) {
      const Occurrence& occurrence = *_Nodes[i].occurrence;
      _Nodes[i].firstChild = _Nodes.size();
      _Nodes[i].children = occurrence.children.size();
      for (const Occurrence& child : occurrence.children) {
        add(child, _Options.gpuInstancing ? Compose(worlds[i], child.matrix) : kIdentity);
      }
    }
  }

  // One glTF mesh per combination of parts and colour, over the parts' shared accessors.
  int MeshFor(const PartList& parts, const std::optional<Rgba>& color) {
    if (parts.empty()) return -1;
    const Rgba key = color.value_or(Rgba{kDefaultGrey, kDefaultGrey, kDefaultGrey, 1});
    auto found = _MeshIndex.find(MeshKey{parts, key});
    if (found != _MeshIndex.end()) return found->second;
    Mesh mesh;
    for (int part : parts) {
      const std::vector<Primitive>& primitives = PrimitivesOf(part);
      mesh.primitives.insert(mesh.primitives.end(), primitives.begin(), primitives.end());
      if (mesh.name.empty()) mesh.name = _Assembly.parts[static_cast<size_t>(part)].name;
    }
    const int index = mesh.primitives.empty() ? -1 : static_cast<int>(_Meshes.size());
    if (index >= 0) {
      const int material = MaterialFor(key);  // only meshes that are written use one
      for (Primitive& p : mesh.primitives) p.material = material;
      _Meshes.push_back(std::move(mesh));
    }
    _MeshIndex[MeshKey{parts, key}] = index;
    return index;
  }

  int MaterialFor(const Rgba& color) {
    auto found = _MaterialIndex.find(color);
    if (found != _MaterialIndex.end()) return found->second;
    _Materials.push_back(color);
    return _MaterialIndex[color] = static_cast<int>(_Materials.size() - 1);
  }

  // The accessors of a part, made once and shared by every mesh that uses the part.
  const std::vector<Primitive>& PrimitivesOf(int part) {
    auto found = _Primitives.find(part);
    if (found != _Primitives.end()) return found->second;
    std::vector<Primitive>& primitives = _Primitives[part];
    for (const KalMesh& mesh : _Assembly.parts[static_cast<size_t>(part)].meshes) {
      if (mesh.VertexCount() == 0) continue;
      Primitive p;
      p.position = AddPositions(mesh.positions);
      if (mesh.normals.size() == mesh.positions.size()) {
        p.normal = AddFloats(UnitNormals(mesh.normals), 3, kArrayBuffer);
      }
      _Vertices += mesh.VertexCount();
      if (!mesh.triangles.empty()) {
        p.indices = AddIndices(mesh.triangles);
        primitives.push_back(p);
      }
      std::vector<uint32_t> lines;
      size_t at = 0;
      for (uint32_t size : mesh.polylineSizes) {
        for (uint32_t k = 1; k < size; ++k) {
          lines.push_back(mesh.polylineIndices[at + k - 1]);
          lines.push_back(mesh.polylineIndices[at + k]);
        }
        at += size;
      }
      if (!lines.empty()) {
        p.indices = AddIndices(lines);
        p.mode = kLines;
        primitives.push_back(p);
      }
    }
    return primitives;
  }

  int AddView(const void* data, size_t bytes, int target) {
    _Data.resize((_Data.size() + 3) & ~size_t{3}, 0);
    _Views.push_back({_Data.size(), bytes, target});
    const auto* begin = static_cast<const unsigned char*>(data);
    _Data.insert(_Data.end(), begin, begin + bytes);
    return static_cast<int>(_Views.size() - 1);
  }

  int AddAccessor(int view, int componentType, const char* type, size_t count) {
    _Accessors.push_back({view, componentType, type, count, {}, {}});
    return static_cast<int>(_Accessors.size() - 1);
  }

  int AddPositions(const std::vector<float>& positions) {
    const int accessor = AddFloats(positions, 3, kArrayBuffer);
    std::vector<double> low(3, std::numeric_limits<double>::max()), high(3, -low[0]);
    for (size_t i = 0; i < positions.size(); ++i) {
      low[i % 3] = std::min<double>(low[i % 3], positions[i]);
      high[i % 3] = std::max<double>(high[i % 3], positions[i]);
    }
    _Accessors[static_cast<size_t>(accessor)].low = low;
    _Accessors[static_cast<size_t>(accessor)].high = high;
    return accessor;
  }

  // `values`, `components` floats per element (3 for VEC3, 4 for VEC4), as one accessor.
  int AddFloats(const std::vector<float>& values, int components, int target = 0) {
    const int view = AddView(values.data(), values.size() * sizeof(float), target);
    return AddAccessor(view, kFloat, components == 4 ? "VEC4" : "VEC3",
                       values.size() / static_cast<size_t>(components));
  }

  // glTF wants unit normals; documents may carry any length.
  static std::vector<float> UnitNormals(std::vector<float> normals) {
    for (size_t i = 0; i + 2 < normals.size(); i += 3) {
      Vec3 n = {normals[i], normals[i + 1], normals[i + 2]};
      if (!Normalize(n)) n = {0, 0, 1};
      for (size_t k = 0; k < 3; ++k) normals[i + k] = static_cast<float>(n[k]);
    }
    return normals;
  }

  int AddIndices(const std::vector<uint32_t>& indices) {
    const int view =
        AddView(indices.data(), indices.size() * sizeof(uint32_t), kElementArrayBuffer);
    return AddAccessor(view, kUnsignedInt, "SCALAR", indices.size());
  }

  int AddCamera(const View& view) {
    if (view.kind != View::Kind::kPerspective && view.kind != View::Kind::kParallel) {
      return -1;
    }
    const double s = _Options.metresPerUnit;
    const auto toWorld = [&](const std::array<float, 3>& v, bool point) {
      Vec3 w{};
      for (size_t row = 0; row < 3; ++row) {
        w[row] = point ? _Conversion[9 + row] : 0.0;
        for (size_t k = 0; k < 3; ++k) w[row] += _Conversion[3 * k + row] * v[k] / (point ? 1 : s);
      }
      return w;
    };
    Vec3 back = toWorld(view.sight, false), up = toWorld(view.up, false);
    for (double& x : back) x = -x;
    if (!Normalize(back)) return -1;
    Vec3 right = Cross(up, back);
    if (!Normalize(right)) {
      right = Cross({0, 1, 0}, back);
      if (!Normalize(right)) right = {1, 0, 0};
    }
    up = Cross(back, right);
    const Vec3 at = toWorld(view.position, true);
    const double nearPlane = view.nearPlane > 0 ? view.nearPlane * s : 0.01;
    const double farPlane = view.farPlane * s > nearPlane ? view.farPlane * s : nearPlane * 1e4;
    const bool perspective = view.kind == View::Kind::kPerspective;
    _Cameras.push_back({view.name, perspective, view.fieldOfView > 0 ? view.fieldOfView : 0.8,
                        view.height > 0 ? view.height * s / 2 : 1.0, nearPlane, farPlane});
    Node node;
    node.own = AddOwn({view.name, true,
                       Matrix4{right[0], right[1], right[2], 0, up[0], up[1], up[2], 0, back[0],
                               back[1], back[2], 0, at[0], at[1], at[2], 1}});
    node.camera = static_cast<int>(_Cameras.size() - 1);
    _Nodes.push_back(std::move(node));
    return static_cast<int>(_Nodes.size() - 1);
  }

  int AddOwn(Own own) {
    _Own.push_back(std::move(own));
    return static_cast<int>(_Own.size() - 1);
  }

  // Meshes placed many times move to one node each that lists every placement.
  void AddInstancing(std::vector<int>& scene) {
    for (const auto& [mesh, placements] : _Placements) {
      if (placements.size() < kInstancingThreshold) continue;
      std::vector<float> translations, rotations, scales;
      bool rigid = true;
      for (const auto& placement : placements) {
        rigid = rigid && Decompose(placement.world, translations, rotations, scales);
      }
      if (!rigid) continue;
      for (const auto& placement : placements) _Nodes[static_cast<size_t>(placement.node)].mesh = -1;
      Node node;
      node.own = AddOwn({_Meshes[static_cast<size_t>(mesh)].name + " (instanced)", false, {}});
      node.mesh = mesh;
      node.instancing = {AddFloats(translations, 3), AddFloats(rotations, 4), AddFloats(scales, 3)};
      _Nodes.push_back(std::move(node));
      scene.push_back(static_cast<int>(_Nodes.size() - 1));
      _Instanced = true;
    }
  }

  // Translation, rotation (quaternion) and scale of a placement; false for one with shear or
  // a mirror, which instancing cannot express.
  static bool Decompose(const Matrix& m, std::vector<float>& t, std::vector<float>& r,
                        std::vector<float>& s) {
    Vec3 c[3] = {{m[0], m[1], m[2]}, {m[3], m[4], m[5]}, {m[6], m[7], m[8]}};
    double scale[3];
    for (int i = 0; i < 3; ++i) {
      scale[i] = std::sqrt(c[i][0] * c[i][0] + c[i][1] * c[i][1] + c[i][2] * c[i][2]);
      if (!(scale[i] > 1e-12)) return false;
      for (double& x : c[i]) x /= scale[i];
    }
    const Vec3 z = Cross(c[0], c[1]);
    for (int k = 0; k < 3; ++k) {
      if (std::fabs(z[k] - c[2][k]) > 1e-4) return false;  // shear or mirror
    }
    // Rotation matrix to quaternion (columns c[0], c[1], c[2]).
    const double m00 = c[0][0], m11 = c[1][1], m22 = c[2][2];
    double qw, qx, qy, qz;
    const double trace = m00 + m11 + m22;
    if (trace > 0) {
      const double k = 0.5 / std::sqrt(trace + 1.0);
      qw = 0.25 / k;
      qx = (c[1][2] - c[2][1]) * k;
      qy = (c[2][0] - c[0][2]) * k;
      qz = (c[0][1] - c[1][0]) * k;
    } else if (m00 > m11 && m00 > m22) {
      const double k = 2.0 * std::sqrt(1.0 + m00 - m11 - m22);
      qw = (c[1][2] - c[2][1]) / k;
      qx = 0.25 * k;
      qy = (c[1][0] + c[0][1]) / k;
      qz = (c[2][0] + c[0][2]) / k;
    } else if (m11 > m22) {
      const double k = 2.0 * std::sqrt(1.0 + m11 - m00 - m22);
      qw = (c[2][0] - c[0][2]) / k;
      qx = (c[1][0] + c[0][1]) / k;
      qy = 0.25 * k;
      qz = (c[2][1] + c[1][2]) / k;
    } else {
      const double k = 2.0 * std::sqrt(1.0 + m22 - m00 - m11);
      qw = (c[0][1] - c[1][0]) / k;
      qx = (c[2][0] + c[0][2]) / k;
      qy = (c[2][1] + c[1][2]) / k;
      qz = 0.25 * k;
    }
    t.insert(t.end(), {float(m[9]), float(m[10]), float(m[11])});
    r.insert(r.end(), {float(qx), float(qy), float(qz), float(qw)});
    s.insert(s.end(), {float(scale[0]), float(scale[1]), float(scale[2])});
    return true;
  }

  void Write(const std::vector<int>& scene, std::string& out, size_t room) {
    Json j(out, room);
    j.Open('{').Key("asset").Open('{');
    j.Key("version").String("2.0").Key("generator").String("vorla (KalVorlaImportTools)").Close('}');
    if (_Instanced) j.Key("extensionsUsed").Open('[').String("EXT_mesh_gpu_instancing").Close(']');
    j.Key("scene").Integer(0).Key("scenes").Open('[').Open('{').Key("nodes").Open('[');
    for (int node : scene) j.Integer(node);
    j.Close(']').Close('}').Close(']');
    j.Key("nodes").Open('[');
    for (size_t node = 0; node < _Nodes.size(); ++node) WriteNode(j, node);
    j.Close(']');
    if (!_Meshes.empty()) {
      j.Key("meshes").Open('[');
      for (const Mesh& mesh : _Meshes) WriteMesh(j, mesh);
      j.Close(']');
    }
    if (!_Materials.empty()) {
      j.Key("materials").Open('[');
      for (const Rgba& c : _Materials) {
        j.Open('{').Key("pbrMetallicRoughness").Open('{');
        // glTF takes factors in [0, 1]; documents may hold anything.
        const auto unit = [](double v) { return std::min(1.0, std::max(0.0, v)); };
        j.Key("baseColorFactor")
            .Numbers(std::array<double, 4>{unit(c.r), unit(c.g), unit(c.b), unit(c.a)});
        j.Key("metallicFactor").Number(0).Key("roughnessFactor").Number(0.6).Close('}');
        if (c.a < 1.0) j.Key("alphaMode").String("BLEND");
        // Documents do not promise closed, outward-wound surfaces.
        j.Key("doubleSided").Bool(true).Close('}');
      }
      j.Close(']');
    }
    if (!_Accessors.empty()) {
      j.Key("accessors").Open('[');
      for (const Accessor& a : _Accessors) {
        j.Open('{').Key("bufferView").Integer(a.view).Key("componentType").Integer(a.componentType);
        j.Key("count").Integer(static_cast<long long>(a.count)).Key("type").String(a.type);
        if (!a.low.empty()) j.Key("min").Numbers(a.low).Key("max").Numbers(a.high);
        j.Close('}');
      }
      j.Close(']');
      j.Key("bufferViews").Open('[');
      for (const BufferView& v : _Views) {
        j.Open('{').Key("buffer").Integer(0).Key("byteOffset").Integer(static_cast<long long>(v.offset));
        j.Key("byteLength").Integer(static_cast<long long>(v.length));
        if (v.target != 0) j.Key("target").Integer(v.target);
        j.Close('}');
      }
      j.Close(']');
      j.Key("buffers").Open('[').Open('{');
      j.Key("byteLength").Integer(static_cast<long long>(_Data.size()));
      if (!_Options.binary) {
        j.Key("uri").String("data:application/octet-stream;base64," + Base64(_Data));
      }
      j.Close('}').Close(']');
    }
    if (!_Cameras.empty()) {
      j.Key("cameras").Open('[');
      for (const Camera& c : _Cameras) {
        j.Open('{').Key("name").String(c.name);
        j.Key("type").String(c.perspective ? "perspective" : "orthographic");
        j.Key(c.perspective ? "perspective" : "orthographic").Open('{');
        if (c.perspective) {
          j.Key("yfov").Number(c.yfov);
        } else {
          j.Key("xmag").Number(c.half).Key("ymag").Number(c.half);
        }
        j.Key("znear").Number(c.znear).Key("zfar").Number(c.zfar).Close('}').Close('}');
      }
      j.Close(']');
    }
    j.Close('}');
  }

  void WriteNode(Json& j, size_t index) const {
    const Node& node = _Nodes[index];
    const Occurrence* o = node.occurrence;
    const Own* own = node.own >= 0 ? &_Own[static_cast<size_t>(node.own)] : nullptr;
    j.Open('{');
    if (own != nullptr && !own->name.empty()) {
      j.Key("name").String(own->name);
    } else if (o != nullptr) {
      j.Key("name").String(o->name.empty() ? o->reference : std::string_view(o->name));
    }
    if (own != nullptr && own->hasMatrix) {
      j.Key("matrix").Numbers(own->matrix);
    } else if (o != nullptr && o->matrix != kIdentity) {  // the identity is glTF's default
      j.Key("matrix").Numbers(NodeMatrix(o->matrix));
    }
    if (node.mesh >= 0) j.Key("mesh").Integer(node.mesh);
    if (node.camera >= 0) j.Key("camera").Integer(node.camera);
    if (node.children != 0) {
      j.Key("children").Open('[');
      for (size_t child = 0; child < node.children; ++child) {
        j.Integer(static_cast<long long>(node.firstChild + child));
      }
      j.Close(']');
    }
    if (node.instancing[0] >= 0) {
      j.Key("extensions").Open('{').Key("EXT_mesh_gpu_instancing").Open('{');
      j.Key("attributes").Open('{').Key("TRANSLATION").Integer(node.instancing[0]);
      j.Key("ROTATION").Integer(node.instancing[1]).Key("SCALE").Integer(node.instancing[2]);
      j.Close('}').Close('}').Close('}');
    }
    if (o != nullptr) {
      j.Key("extras").Open('{');
      if (o->instanceId >= 0) j.Key("instanceId").Integer(o->instanceId);
      j.Key("referenceId").Integer(o->referenceId).Key("reference").String(o->reference);
      if (!o->externalFile.empty()) j.Key("file").String(o->externalFile);
      if (_Options.occurrenceIndices) j.Key("occurrence").Integer(_DepthFirst[index]);
      j.Close('}');
    }
    j.Close('}');
  }

  static void WriteMesh(Json& j, const Mesh& mesh) {
    j.Open('{').Key("name").String(mesh.name).Key("primitives").Open('[');
    for (const Primitive& p : mesh.primitives) {
      j.Open('{').Key("attributes").Open('{');
      if (p.normal >= 0) j.Key("NORMAL").Integer(p.normal);
      j.Key("POSITION").Integer(p.position).Close('}');
      j.Key("indices").Integer(p.indices).Key("material").Integer(p.material);
      j.Key("mode").Integer(p.mode).Close('}');
    }
    j.Close(']').Close('}');
  }

  struct Placement {
    int node;
    Matrix world;
  };
  // Meshes are looked up once per occurrence: hashed, not ordered.
  struct MeshKey {
    PartList parts;  // held by the assembly
    Rgba color;
    bool operator==(const MeshKey& o) const {
      return std::equal(parts.begin(), parts.end(), o.parts.begin(), o.parts.end()) &&
             !(color < o.color) && !(o.color < color);
    }
  };
  struct MeshKeyHash {
    size_t operator()(const MeshKey& k) const {
      size_t h = std::hash<double>()(k.color.r) ^ std::hash<double>()(k.color.g) * 3 ^
                 std::hash<double>()(k.color.b) * 5 ^ std::hash<double>()(k.color.a) * 7;
      for (int part : k.parts) h = h * 1000003u ^ static_cast<size_t>(part);
      return h;
    }
  };

  const Assembly& _Assembly;
  const GltfOptions& _Options;
  Matrix _Conversion;
  std::vector<Node> _Nodes;
  std::vector<Own> _Own;
  std::vector<Mesh> _Meshes;
  std::vector<Rgba> _Materials;
  std::vector<Accessor> _Accessors;
  std::vector<BufferView> _Views;
  std::vector<Camera> _Cameras;
  std::vector<unsigned char> _Data;
  std::map<int, std::vector<Primitive>> _Primitives;
  std::unordered_map<MeshKey, int, MeshKeyHash> _MeshIndex;
  std::map<Rgba, int> _MaterialIndex;
  std::map<int, std::vector<Placement>> _Placements;
  bool _Instanced = false;
  size_t _Vertices = 0;
  std::vector<int> _DepthFirst;  // by node, for occurrenceIndices
};

}  // namespace

bool BuildGltf(const Assembly& assembly, const GltfOptions& options, std::string& bytes,
               GltfStats& stats, std::string& error) {
  return Builder(assembly, options).Build(bytes, stats, error);
}

}  // namespace vorla
