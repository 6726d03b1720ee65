// glTF 2.0 from a gathered assembly. Knows the assembly's plain data only.
#ifndef VORLA_GLTF_WRITER_H
#define VORLA_GLTF_WRITER_H

#include <string>
#include <vector>

#include "Assembly.h"

namespace vorla {

struct GltfOptions {
  double metresPerUnit = 0.001;  // documents are written in millimetres
  bool zUp = true;               // documents are written Z up; glTF is Y up
  bool binary = true;            // .glb; else .gltf with the buffer embedded
  bool gpuInstancing = false;    // EXT_mesh_gpu_instancing for meshes placed many times
  // Node extras "occurrence": the occurrence's index, root first, depth first, by which a
  // viewer finds a node's row in the tree.
  bool occurrenceIndices = false;
};

struct GltfStats {
  size_t nodes = 0, meshes = 0, accessors = 0, vertices = 0, cameras = 0;
};

// The glTF bytes of `assembly`; false, with `error`, when they cannot be made.
bool BuildGltf(const Assembly& assembly, const GltfOptions& options, std::string& bytes,
               GltfStats& stats, std::string& error);

}  // namespace vorla

#endif
