// The tessellation reader on the bytes as the content of a representation's "AssociatedXML",
// and the Qsr reader on the bytes themselves. Every KalRep read is written as Qsr with all
// sections and read back, and must come back the same.
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "KalViz.h"

namespace {

// A vector's bytes, so that floats compare bit for bit.
template <class T>
std::string Bytes(const std::vector<T>& v) {
  return std::string(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(T));
}

// A rep read (result 0) goes through Qsr and back unchanged; a failed read hands out nothing.
void Check(int rc, KalRep* rep) {
  if (rc != 0 || rep == nullptr) {
    if (rep != nullptr) std::abort();
    return;
  }
  char* data = nullptr;
  int length = 0;
  KalRep* back = nullptr;
  if (KalWriteQsr(rep, data, length, kQsrFaces | kQsrNormals | kQsrPolylines, nullptr, 0) != 0 ||
      KalReadQsr(data, length, back) != 0 || back->meshes.size() != rep->meshes.size()) {
    std::abort();
  }
  delete[] data;
  for (size_t m = 0; m < rep->meshes.size(); ++m) {
    const KalMesh &a = rep->meshes[m], &b = back->meshes[m];
    if (a.name != b.name || Bytes(a.positions) != Bytes(b.positions) ||
        Bytes(a.normals) != Bytes(b.normals) || a.triangles != b.triangles ||
        a.polylineIndices != b.polylineIndices || a.polylineSizes != b.polylineSizes ||
        std::memcmp(rep->boxMin, back->boxMin, 12) != 0 ||
        std::memcmp(rep->boxMax, back->boxMax, 12) != 0) {
      std::abort();
    }
  }
  back->Release(), rep->Release();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* bytes = reinterpret_cast<const char*>(data);  // read in place: overreads show
  KalRep* rep = nullptr;
  Check(KalReadQsr(bytes, static_cast<int>(size), rep), rep);
  const std::string xml =
      "<Rep><AssociatedXML>" + std::string(bytes, size) + "</AssociatedXML></Rep>";
  KalVizXMLStreamOptions options;
  rep = nullptr;
  if (const auto root = kalfuzz::ParseXml(reinterpret_cast<const uint8_t*>(xml.data()), xml.size()))
    Check(KalReadXML(*root, options, rep), rep);
  return 0;
}
