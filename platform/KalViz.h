// The visualisation layer: tessellated geometry read from a representation's XML into a
// KalRep, written to and read from Qsr buffers.
//
// Tessellation XML, inside the "AssociatedXML" child of a representation element:
//   <Mesh name="...">            any number of meshes
//     <Positions>x y z ...</Positions>
//     <Normals>x y z ...</Normals>        optional, one per vertex
//     <Triangles>i j k ...</Triangles>    optional
//     <Strip>...</Strip> <Fan>...</Fan>   any number, turned into triangles
//     <Polyline>i j ...</Polyline>        any number
//   </Mesh>
// Numbers are separated by ASCII white space.
//
// Qsr buffer, little-endian: "QSR1", setting (uint32), mesh count (uint32), bounding box
// min xyz and max xyz (6 float32), then per mesh: name length (uint32) and UTF-8 name;
// vertex, triangle and polyline counts and has-normals (4 uint32); positions (3 float32 per
// vertex); normals (when has-normals); triangle indices (3 uint32 each); each polyline as an
// index count (uint32) and its indices (uint32 each).
#ifndef KAL_VIZ_H
#define KAL_VIZ_H

#include <cstdint>
#include <vector>

#include "KalLightXmlElementItf.h"
#include "KalUnicodeString.h"

// Bits of the Qsr writer's setting.
typedef int KalSettingQsr;
constexpr KalSettingQsr kQsrFaces = 1;
constexpr KalSettingQsr kQsrNormals = 2;
constexpr KalSettingQsr kQsrPolylines = 4;

// Colours by index; the Qsr writer accepts one and does not use it.
class KalColorMap;

struct KalMesh {
  KalUnicodeString name;
  std::vector<float> positions;           // x y z per vertex
  std::vector<float> normals;             // empty, or x y z per vertex
  std::vector<uint32_t> triangles;        // three vertex indices per triangle
  std::vector<uint32_t> polylineIndices;  // every polyline's indices, one after the other
  std::vector<uint32_t> polylineSizes;    // index count of each polyline, in order

  uint32_t VertexCount() const { return static_cast<uint32_t>(positions.size() / 3); }
  uint32_t TriangleCount() const { return static_cast<uint32_t>(triangles.size() / 3); }
};

// A tessellated representation: its meshes and the box around all their positions (all
// zeros when there is no position at all).
class KalRep {
 public:
  KalRep() = default;
  virtual ~KalRep() = default;
  KalRep(const KalRep&) = delete;
  KalRep& operator=(const KalRep&) = delete;
  // Disposes of the node (which was made with new).
  virtual void Release() { delete this; }
  // Recomputes the bounding box from the meshes' positions.
  void UpdateBoundingBox();

  std::vector<KalMesh> meshes;
  float boxMin[3] = {0, 0, 0};
  float boxMax[3] = {0, 0, 0};
};

// How KalReadXML reads; format 0 is the tessellation XML above, the only one there is.
class KalVizXMLStreamOptions {
 public:
  explicit KalVizXMLStreamOptions(int format = 0) : _Format(format) {}
  int GetFormat() const { return _Format; }

 private:
  int _Format;
};

// Reads the first "AssociatedXML" child of `representation` into a new KalRep (the caller
// calls Release on it). 0 on success. A negative result, with `rep` null, for: no such
// child, an unknown format, a count that is not a multiple of 3 (positions, normals,
// triangles), normals that do not match the positions, an index past the vertex count,
// anything in a number list that is not a finite number (or, for indices, not an unsigned
// 32-bit integer), or memory running out.
int KalReadXML(const KalLightXmlElementItf& representation, KalVizXMLStreamOptions& options,
               KalRep*& rep);

// Writes `rep` as a Qsr buffer into a new char[] (the caller releases it with delete[]).
// The sections the setting leaves out are written with count 0 (has-normals 0). 0 on
// success; a negative result, with `data` and `length` unchanged, for a null rep, a buffer
// that would pass 2 GiB, or memory running out. The colour map and the flag are unused.
int KalWriteQsr(KalRep* rep, char*& data, int& length, KalSettingQsr setting, KalColorMap* colormap,
                unsigned char flag);

// Reads a Qsr buffer back into a new KalRep (the caller calls Release on it). 0 on success;
// a negative result, with `rep` null, for a null or truncated buffer, a wrong magic, counts
// that do not fit the bytes, a has-normals other than 0 or 1, an index past the vertex
// count, a bounding box other than the one of the positions, or bytes left over.
int KalReadQsr(const char* data, int length, KalRep*& rep);

#endif
