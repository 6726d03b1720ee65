#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <memory>
#include <new>
#include <system_error>
#include <type_traits>
#include <vector>

#include "KalHResult.h"
#include "KalViz.h"

namespace {

using Element = KalLightXmlElementItf;

inline bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The count of white-space separated words in the element's text: what its numbers will
// be, when it is a valid list.
size_t CountWords(const Element& element) {
  const KalUnicodeString& text = element.GetValue();
  const char* p = text.ConvertToChar();
  const char* const end = p + text.GetLengthInChar();
  size_t words = 0;
  bool afterSpace = true;
  for (; p < end; ++p) {
    const bool space = IsSpace(*p);
    words += afterSpace && !space;
    afterSpace = space;
  }
  return words;
}

// Room for `more` values, so that a long list is not copied over and over as it grows; the
// capacity still at least doubles, so that many short lists stay linear.
template <typename T>
void MakeRoom(std::vector<T>& values, size_t more) {
  const size_t needed = values.size() + more;
  if (needed > values.capacity()) values.reserve(std::max(needed, 2 * values.capacity()));
}

// Hands each number of the element's text to `sink`; false when the text holds anything but
// numbers of type T (finite ones, for floats) between white space.
template <typename T, typename Sink>
bool ForEachNumber(const Element& element, Sink&& sink) {
  const KalUnicodeString& text = element.GetValue();
  const char* p = text.ConvertToChar();
  const char* const end = p + text.GetLengthInChar();
  for (;;) {
    while (p < end && IsSpace(*p)) ++p;
    if (p == end) return true;
    T value;
    const std::from_chars_result read = std::from_chars(p, end, value);
    if (read.ec != std::errc() || (read.ptr != end && !IsSpace(*read.ptr))) return false;
    if constexpr (std::is_floating_point_v<T>) {
      if (!std::isfinite(value)) return false;
    }
    sink(value);
    p = read.ptr;
  }
}

// Calls `read` on each child element in document order; false when `read` refuses one or
// the tree hands out a null child.
template <typename Read>
bool ForEachChild(const Element& parent, Read&& read) {
  KalPosition cursor = parent.GetHeadPosition();
  while (cursor != nullptr) {
    const Element* child = parent.GetNextChild(cursor);
    if (child == nullptr || !read(*child)) return false;
  }
  return true;
}

// Appends the element's numbers, whose count must be a multiple of 3.
template <typename T>
bool ReadTriples(const Element& element, std::vector<T>& out) {
  const size_t before = out.size();
  MakeRoom(out, CountWords(element));
  return ForEachNumber<T>(element, [&out](T value) { out.push_back(value); }) &&
         (out.size() - before) % 3 == 0;
}

// Appends the triangles of a strip, turning every other one so that all keep the strip's
// winding.
bool ReadStrip(const Element& element, std::vector<uint32_t>& triangles) {
  uint32_t a = 0, b = 0;
  size_t seen = 0;
  MakeRoom(triangles, 3 * std::max<size_t>(CountWords(element), 2) - 6);
  return ForEachNumber<uint32_t>(element, [&](uint32_t c) {
    if (seen >= 2 && seen % 2 == 0) triangles.insert(triangles.end(), {a, b, c});
    if (seen >= 2 && seen % 2 == 1) triangles.insert(triangles.end(), {b, a, c});
    a = b;
    b = c;
    ++seen;
  });
}

bool ReadFan(const Element& element, std::vector<uint32_t>& triangles) {
  uint32_t first = 0, previous = 0;
  size_t seen = 0;
  MakeRoom(triangles, 3 * std::max<size_t>(CountWords(element), 2) - 6);
  return ForEachNumber<uint32_t>(element, [&](uint32_t c) {
    if (seen == 0) first = c;
    if (seen >= 2) triangles.insert(triangles.end(), {first, previous, c});
    previous = c;
    ++seen;
  });
}

bool IndicesBelow(const std::vector<uint32_t>& indices, size_t count) {
  for (uint32_t i : indices)
    if (i >= count) return false;
  return true;
}

bool ReadMesh(const Element& element, KalMesh& mesh) {
  static const KalUnicodeString kName = KalUnicodeString::Borrow("name", 4);
  mesh.name = element.GetAttribute(kName);
  bool positions = false, normals = false;
  // Strips and fans are read in passes of their own, so that the triangles come in the
  // same order however their elements are interleaved.
  const bool read = ForEachChild(element, [&](const Element& child) {
    const KalUnicodeString& type = child.GetType();
    if (type == "Positions") {
      if (positions) return false;
      positions = true;
      return ReadTriples(child, mesh.positions);
    }
    if (type == "Normals") {
      if (normals) return false;
      normals = true;
      return ReadTriples(child, mesh.normals);
    }
    if (type == "Triangles") return ReadTriples(child, mesh.triangles);
    if (type == "Polyline") {
      const size_t before = mesh.polylineIndices.size();
      MakeRoom(mesh.polylineIndices, CountWords(child));
      if (!ForEachNumber<uint32_t>(child,
                                   [&mesh](uint32_t i) { mesh.polylineIndices.push_back(i); }))
        return false;
      mesh.polylineSizes.push_back(static_cast<uint32_t>(mesh.polylineIndices.size() - before));
    }
    return true;
  });
  if (!read) return false;
  if (!ForEachChild(element, [&mesh](const Element& child) {
        return child.GetType() != "Strip" || ReadStrip(child, mesh.triangles);
      }))
    return false;
  if (!ForEachChild(element, [&mesh](const Element& child) {
        return child.GetType() != "Fan" || ReadFan(child, mesh.triangles);
      }))
    return false;
  const size_t vertices = mesh.positions.size() / 3;
  return (mesh.normals.empty() || mesh.normals.size() == mesh.positions.size()) &&
         IndicesBelow(mesh.triangles, vertices) && IndicesBelow(mesh.polylineIndices, vertices);
}

}  // namespace

void KalRep::UpdateBoundingBox() {
  float low[3] = {0, 0, 0}, high[3] = {0, 0, 0};
  bool first = true;
  for (const KalMesh& mesh : meshes) {
    const size_t floats = mesh.positions.size() / 3 * 3;
    for (size_t i = 0; i < floats; i += 3) {
      for (int axis = 0; axis < 3; ++axis) {
        const float v = mesh.positions[i + axis];
        if (first || v < low[axis]) low[axis] = v;
        if (first || v > high[axis]) high[axis] = v;
      }
      first = false;
    }
  }
  for (int axis = 0; axis < 3; ++axis) {
    boxMin[axis] = low[axis];
    boxMax[axis] = high[axis];
  }
}

int KalReadXML(const KalLightXmlElementItf& representation, KalVizXMLStreamOptions& options,
               KalRep*& rep) {
  rep = nullptr;
  if (options.GetFormat() != 0) return E_FAIL;
  const Element* associated = nullptr;
  for (KalPosition cursor = representation.GetHeadPosition();
       cursor != nullptr && associated == nullptr;) {
    const Element* child = representation.GetNextChild(cursor);
    if (child == nullptr) return E_FAIL;
    if (child->GetType() == "AssociatedXML") associated = child;
  }
  if (associated == nullptr) return E_FAIL;
  try {
    std::unique_ptr<KalRep> result(new KalRep);
    const bool read = ForEachChild(*associated, [&result](const Element& child) {
      if (child.GetType() != "Mesh") return true;
      result->meshes.emplace_back();
      return ReadMesh(child, result->meshes.back());
    });
    if (!read) return E_FAIL;
    result->UpdateBoundingBox();
    rep = result.release();
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}
