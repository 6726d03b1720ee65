#include "GltfWriter.h"

#include <tiny_gltf.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <sstream>

namespace vorla {

namespace {

constexpr double kDefaultGrey = 0.8;
constexpr size_t kInstancingThreshold = 8;  // placements that make a mesh worth instancing

using Vec3 = std::array<double, 3>;

Vec3 Cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

bool Normalize(Vec3& v) {
  const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (!(length > 1e-12)) return false;
  for (double& x : v) x /= length;
  return true;
}

// The placement as glTF's column-major 4x4; empty for the identity (glTF's default).
std::vector<double> NodeMatrix(const Matrix& m) {
  if (m == kIdentity) return {};
  return {m[0], m[1], m[2], 0, m[3], m[4], m[5], 0, m[6], m[7], m[8], 0, m[9], m[10], m[11], 1};
}

class Builder {
 public:
  Builder(const Assembly& assembly, const GltfOptions& options)
      : _Assembly(assembly), _Options(options) {
    _Model.asset.version = "2.0";
    _Model.asset.generator = "vorla (KalVorlaImportTools)";
    _Model.buffers.emplace_back();
    // Document coordinates to glTF's: scale to metres, then Z up becomes Y up.
    const double s = options.metresPerUnit;
    _Conversion = options.zUp ? Matrix{s, 0, 0, 0, 0, -s, 0, s, 0, 0, 0, 0}
                              : Matrix{s, 0, 0, 0, s, 0, 0, 0, s, 0, 0, 0};
  }

  bool Build(std::string& bytes, GltfStats& stats, std::string& error) {
    tinygltf::Scene scene;
    scene.nodes.push_back(AddOccurrence(_Assembly.root, _Conversion));
    _Model.nodes[scene.nodes[0]].name =
        _Assembly.root.reference.empty() ? "root" : _Assembly.root.reference;
    _Model.nodes[scene.nodes[0]].matrix = NodeMatrix(_Conversion);
    if (_Options.gpuInstancing) AddInstancing(scene);
    for (const View& view : _Assembly.views) {
      const int node = AddCamera(view);
      if (node >= 0) scene.nodes.push_back(node);
    }
    _Model.scenes.push_back(scene);
    _Model.defaultScene = 0;
    _Model.buffers[0].data.swap(_Data);
    if (_Model.buffers[0].data.empty()) {
      _Model.buffers.clear();
    }
    if (_Options.gpuInstancing && !_Instanced.empty()) {
      _Model.extensionsUsed.push_back("EXT_mesh_gpu_instancing");
    }
    stats = {_Model.nodes.size(), _Model.meshes.size(), _Model.accessors.size(), _Vertices,
             _Model.cameras.size()};
    std::ostringstream out;
    tinygltf::TinyGLTF writer;
    if (!writer.WriteGltfSceneToStream(&_Model, out, !_Options.binary, _Options.binary)) {
      error = "the glTF writer failed";
      return false;
    }
    bytes = out.str();
    return true;
  }

 private:
  struct Primitive {
    std::map<std::string, int> attributes;
    int indices = -1;
    int mode = TINYGLTF_MODE_TRIANGLES;
  };

  int AddOccurrence(const Occurrence& occurrence, const Matrix& world) {
    const int index = static_cast<int>(_Model.nodes.size());
    _Model.nodes.emplace_back();
    {
      tinygltf::Node& node = _Model.nodes.back();
      node.name = occurrence.name.empty() ? occurrence.reference : occurrence.name;
      node.matrix = NodeMatrix(occurrence.matrix);
      tinygltf::Value::Object extras;
      if (occurrence.instanceId >= 0) extras["instanceId"] = tinygltf::Value(occurrence.instanceId);
      extras["referenceId"] = tinygltf::Value(occurrence.referenceId);
      extras["reference"] = tinygltf::Value(occurrence.reference);
      if (!occurrence.externalFile.empty()) {
        extras["file"] = tinygltf::Value(occurrence.externalFile);
      }
      if (_Options.occurrenceIndices) extras["occurrence"] = tinygltf::Value(_Occurrences++);
      node.extras = tinygltf::Value(extras);
    }
    const int mesh = MeshFor(occurrence.parts, occurrence.color);
    if (mesh >= 0) {
      if (_Options.gpuInstancing) _Placements[mesh].push_back({index, world});
      _Model.nodes[index].mesh = mesh;
    }
    std::vector<int> children;
    for (const Occurrence& child : occurrence.children) {
      children.push_back(AddOccurrence(child, Compose(world, child.matrix)));
    }
    _Model.nodes[index].children = children;
    return index;
  }

  // One glTF mesh per combination of parts and colour, over the parts' shared accessors.
  int MeshFor(const std::vector<int>& parts, const std::optional<Rgba>& color) {
    if (parts.empty()) return -1;
    const Rgba key = color.value_or(Rgba{kDefaultGrey, kDefaultGrey, kDefaultGrey, 1});
    auto found = _Meshes.find({parts, key});
    if (found != _Meshes.end()) return found->second;
    tinygltf::Mesh mesh;
    const int material = MaterialFor(key);
    for (int part : parts) {
      for (const Primitive& p : PrimitivesOf(part)) {
        tinygltf::Primitive primitive;
        primitive.attributes = p.attributes;
        primitive.indices = p.indices;
        primitive.mode = p.mode;
        primitive.material = material;
        mesh.primitives.push_back(primitive);
      }
      if (mesh.name.empty()) mesh.name = _Assembly.parts[part].name;
    }
    const int index = mesh.primitives.empty() ? -1 : static_cast<int>(_Model.meshes.size());
    if (index >= 0) _Model.meshes.push_back(mesh);
    _Meshes[{parts, key}] = index;
    return index;
  }

  int MaterialFor(const Rgba& color) {
    auto found = _Materials.find(color);
    if (found != _Materials.end()) return found->second;
    tinygltf::Material material;
    material.pbrMetallicRoughness.baseColorFactor = {color.r, color.g, color.b, color.a};
    material.pbrMetallicRoughness.metallicFactor = 0.0;
    material.pbrMetallicRoughness.roughnessFactor = 0.6;
    if (color.a < 1.0) material.alphaMode = "BLEND";
    material.doubleSided = true;  // documents do not promise closed, outward-wound surfaces
    const int index = static_cast<int>(_Model.materials.size());
    _Model.materials.push_back(material);
    _Materials[color] = index;
    return index;
  }

  // The accessors of a part, made once and shared by every mesh that uses the part.
  const std::vector<Primitive>& PrimitivesOf(int part) {
    auto found = _Primitives.find(part);
    if (found != _Primitives.end()) return found->second;
    std::vector<Primitive>& primitives = _Primitives[part];
    for (const KalMesh& mesh : _Assembly.parts[part].meshes) {
      if (mesh.VertexCount() == 0) continue;
      std::map<std::string, int> attributes;
      attributes["POSITION"] = AddPositions(mesh.positions);
      if (mesh.normals.size() == mesh.positions.size()) {
        attributes["NORMAL"] =
            AddFloats(UnitNormals(mesh.normals), 3, TINYGLTF_TARGET_ARRAY_BUFFER);
      }
      _Vertices += mesh.VertexCount();
      if (!mesh.triangles.empty()) {
        primitives.push_back({attributes, AddIndices(mesh.triangles), TINYGLTF_MODE_TRIANGLES});
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
      if (!lines.empty()) primitives.push_back({attributes, AddIndices(lines), TINYGLTF_MODE_LINE});
    }
    return primitives;
  }

  int AddView(const void* data, size_t bytes, int target) {
    while (_Data.size() % 4 != 0) _Data.push_back(0);
    tinygltf::BufferView view;
    view.buffer = 0;
    view.byteOffset = _Data.size();
    view.byteLength = bytes;
    view.target = target;
    const auto* begin = static_cast<const unsigned char*>(data);
    _Data.insert(_Data.end(), begin, begin + bytes);
    _Model.bufferViews.push_back(view);
    return static_cast<int>(_Model.bufferViews.size() - 1);
  }

  int AddAccessor(int view, int componentType, int type, size_t count) {
    tinygltf::Accessor accessor;
    accessor.bufferView = view;
    accessor.componentType = componentType;
    accessor.type = type;
    accessor.count = count;
    _Model.accessors.push_back(accessor);
    return static_cast<int>(_Model.accessors.size() - 1);
  }

  int AddPositions(const std::vector<float>& positions) {
    const int accessor = AddFloats(positions, 3, TINYGLTF_TARGET_ARRAY_BUFFER);
    std::vector<double> low(3, std::numeric_limits<double>::max()), high(3, -low[0]);
    for (size_t i = 0; i < positions.size(); ++i) {
      low[i % 3] = std::min<double>(low[i % 3], positions[i]);
      high[i % 3] = std::max<double>(high[i % 3], positions[i]);
    }
    _Model.accessors[accessor].minValues = low;
    _Model.accessors[accessor].maxValues = high;
    return accessor;
  }

  // `values`, `components` floats per element (3 for VEC3, 4 for VEC4), as one accessor.
  int AddFloats(const std::vector<float>& values, int components, int target = 0) {
    const int view = AddView(values.data(), values.size() * sizeof(float), target);
    return AddAccessor(view, TINYGLTF_COMPONENT_TYPE_FLOAT,
                       components == 4 ? TINYGLTF_TYPE_VEC4 : TINYGLTF_TYPE_VEC3,
                       values.size() / components);
  }

  // glTF wants unit normals; documents may carry any length.
  static std::vector<float> UnitNormals(std::vector<float> normals) {
    for (size_t i = 0; i + 2 < normals.size(); i += 3) {
      Vec3 n = {normals[i], normals[i + 1], normals[i + 2]};
      if (!Normalize(n)) n = {0, 0, 1};
      for (int k = 0; k < 3; ++k) normals[i + k] = static_cast<float>(n[k]);
    }
    return normals;
  }

  int AddIndices(const std::vector<uint32_t>& indices) {
    const int view = AddView(indices.data(), indices.size() * sizeof(uint32_t),
                             TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
    return AddAccessor(view, TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT, TINYGLTF_TYPE_SCALAR,
                       indices.size());
  }

  int AddCamera(const View& view) {
    if (view.kind != View::Kind::kPerspective && view.kind != View::Kind::kParallel) {
      return -1;
    }
    const double s = _Options.metresPerUnit;
    const auto toWorld = [&](const std::array<float, 3>& v, bool point) {
      Vec3 w{};
      for (int row = 0; row < 3; ++row) {
        w[row] = point ? _Conversion[9 + row] : 0.0;
        for (int k = 0; k < 3; ++k) w[row] += _Conversion[3 * k + row] * v[k] / (point ? 1 : s);
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
    tinygltf::Camera camera;
    camera.name = view.name;
    const double nearPlane = view.nearPlane > 0 ? view.nearPlane * s : 0.01;
    const double farPlane = view.farPlane * s > nearPlane ? view.farPlane * s : nearPlane * 1e4;
    if (view.kind == View::Kind::kPerspective) {
      camera.type = "perspective";
      camera.perspective.yfov = view.fieldOfView > 0 ? view.fieldOfView : 0.8;
      camera.perspective.znear = nearPlane;
      camera.perspective.zfar = farPlane;
    } else {
      camera.type = "orthographic";
      const double half = view.height > 0 ? view.height * s / 2 : 1.0;
      camera.orthographic.xmag = half;
      camera.orthographic.ymag = half;
      camera.orthographic.znear = nearPlane;
      camera.orthographic.zfar = farPlane;
    }
    _Model.cameras.push_back(camera);
    tinygltf::Node node;
    node.name = view.name;
    node.camera = static_cast<int>(_Model.cameras.size() - 1);
    node.matrix = {right[0], right[1], right[2], 0, up[0], up[1], up[2], 0,
                   back[0],  back[1],  back[2],  0, at[0], at[1], at[2], 1};
    _Model.nodes.push_back(node);
    return static_cast<int>(_Model.nodes.size() - 1);
  }

  // Meshes placed many times move to one node each that lists every placement.
  void AddInstancing(tinygltf::Scene& scene) {
    for (const auto& [mesh, placements] : _Placements) {
      if (placements.size() < kInstancingThreshold) continue;
      std::vector<float> translations, rotations, scales;
      bool rigid = true;
      for (const auto& placement : placements) {
        rigid = rigid && Decompose(placement.world, translations, rotations, scales);
      }
      if (!rigid) continue;
      for (const auto& placement : placements) _Model.nodes[placement.node].mesh = -1;
      tinygltf::Value::Object attributes;
      attributes["TRANSLATION"] = tinygltf::Value(AddFloats(translations, 3));
      attributes["ROTATION"] = tinygltf::Value(AddFloats(rotations, 4));
      attributes["SCALE"] = tinygltf::Value(AddFloats(scales, 3));
      tinygltf::Value::Object extension;
      extension["attributes"] = tinygltf::Value(attributes);
      tinygltf::Node node;
      node.name = _Model.meshes[mesh].name + " (instanced)";
      node.mesh = mesh;
      node.extensions["EXT_mesh_gpu_instancing"] = tinygltf::Value(extension);
      _Model.nodes.push_back(node);
      scene.nodes.push_back(static_cast<int>(_Model.nodes.size() - 1));
      _Instanced.push_back(mesh);
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

  struct Placement {
    int node;
    Matrix world;
  };

  const Assembly& _Assembly;
  const GltfOptions& _Options;
  tinygltf::Model _Model;
  Matrix _Conversion;
  std::vector<unsigned char> _Data;
  std::map<int, std::vector<Primitive>> _Primitives;
  std::map<std::pair<std::vector<int>, Rgba>, int> _Meshes;
  std::map<Rgba, int> _Materials;
  std::map<int, std::vector<Placement>> _Placements;
  std::vector<int> _Instanced;
  size_t _Vertices = 0;
  int _Occurrences = 0;
};

}  // namespace

bool BuildGltf(const Assembly& assembly, const GltfOptions& options, std::string& bytes,
               GltfStats& stats, std::string& error) {
  return Builder(assembly, options).Build(bytes, stats, error);
}

}  // namespace vorla
