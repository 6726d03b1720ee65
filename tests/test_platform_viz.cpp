// Base64 decoding, tessellations read from XML, and Qsr buffers written and read back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KalCodePage.h"
#include "KalHResult.h"
#include "KalLightXml.h"
#include "KalViz.h"

namespace {

using U32s = std::vector<uint32_t>;

// Base64 of `bytes`, with or without the padding.
std::string Encode(const std::string& bytes, bool pad) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t n = std::min<size_t>(3, bytes.size() - i);
    uint32_t bits = 0;
    for (size_t j = 0; j < 3; ++j) bits = bits << 8 | (j < n ? uint8_t(bytes[i + j]) : 0);
    for (size_t j = 0; j <= n; ++j) text += kAlphabet[bits >> (18 - 6 * j) & 63];
    if (pad) text.append(3 - n, '=');
  }
  return text;
}

// The result code and bytes of decoding `text`; the output is checked to be null exactly on
// failure, and a length left on failure shows as that many '?'.
std::pair<int, std::string> Decode(const char* text) {
  unsigned char untouched = 0;
  unsigned char* data = &untouched;
  unsigned int length = 99;
  const int hr = KalCodePage::ConvertFromBase64(text, data, length);
  EXPECT_EQ(data != nullptr, hr == S_OK) << text;
  if (data == nullptr || data == &untouched) return {hr, std::string(length, '?')};
  std::pair<int, std::string> result(hr, std::string(data, data + length));
  delete[] data;
  return result;
}

TEST(Base64, DecodesPaddedUnpaddedAndSpacedTextAndRefusesAnythingElse) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  std::string wrapped = Encode(all, true);
  for (size_t at = 76; at < wrapped.size(); at += 78) wrapped.insert(at, "\r\n");
  const std::vector<std::pair<std::string, std::string>> decoded = {
      {"", ""},
      {"TWFu", "Man"},
      {"TWE=", "Ma"},
      {"TQ==", "M"},
      {"TWE", "Ma"},
      {"TQ", "M"},
      {"/+8=", "\xFF\xEF"},
      {" T W\tF u\r\n\v\fTQ = =\n", "ManM"},
      {Encode(all, true), all},
      {Encode(all, false), all},
      {wrapped, all}};
  for (const auto& [text, bytes] : decoded)
    EXPECT_EQ(Decode(text.c_str()), std::make_pair(S_OK, bytes)) << text;
  const std::vector<const char*> refused = {
      nullptr,    "T",       "TWFuT", "TQ=",   "T===", "TQ=u",
      "TQ==TWFu", "TQ==\n=", "=TWF",  "TWFu!", "TW-u", "TWF\xC3\xA9"};
  for (const char* text : refused)
    EXPECT_EQ(Decode(text), std::make_pair(E_FAIL, std::string())) << text;
}

struct RepRelease {
  void operator()(KalRep* rep) const { rep->Release(); }
};
using Rep = std::unique_ptr<KalRep, RepRelease>;

// Reads the representation `xml` in the given format; the result code goes to `hr`. The rep
// must be set, to null on failure.
Rep ReadXml(const std::string& xml, int& hr, int format = 0) {
  std::unique_ptr<KalLightXmlElementItf> root(KalLightXmlElementFactory().CreateElement());
  KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml.data()),
                                     static_cast<int>(xml.size()));
  EXPECT_EQ(KalLightXmlParser().Parse(input, *root), 1) << xml;
  KalVizXMLStreamOptions options(format);
  KalRep* rep = reinterpret_cast<KalRep*>(&hr);
  hr = KalReadXML(*root, options, rep);
  EXPECT_EQ(rep == nullptr, hr != S_OK) << xml;
  return Rep(hr == S_OK ? rep : nullptr);
}

std::string Mesh(const std::string& body) {
  return "<Rep><AssociatedXML><Mesh>" + body + "</Mesh></AssociatedXML></Rep>";
}

// An element with one child, `child`; when that is null, its child walk breaks down.
class OneChildElement : public KalLightXmlElementItf {
 public:
  OneChildElement(const char* type, OneChildElement* child) : _Type(type), _pChild(child) {}
  int CopyFrom(const KalLightXmlElementItf*) override { return 0; }
  KalPosition GetHeadPosition() const override { return const_cast<OneChildElement*>(this); }
  KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const override {
    cursor = nullptr;
    return _pChild;
  }
  const KalUnicodeString& GetType() const override { return _Type; }
  const KalUnicodeString& GetAttribute(const KalUnicodeString&) const override { return _Type; }
  const KalUnicodeString& GetValue() const override { return KalUnicodeString::Empty(); }

 private:
  KalUnicodeString _Type;
  OneChildElement* _pChild;
};

TEST(VizTessellation, RefusesEveryFlawWithoutARep) {
  const std::string p3 = "<Positions>0 0 0 1 0 0 0 1 0</Positions>";
  auto refused = [](const std::string& xml, int format) {
    int hr = 0;
    EXPECT_EQ(ReadXml(xml, hr, format), nullptr) << xml;
    EXPECT_EQ(hr, E_FAIL) << xml;
  };
  refused(Mesh(p3), 1);
  refused("<Rep><associatedxml/></Rep>", 0);
  for (const char* body : {"<Positions>0 0</Positions>", "<Positions>0 0 1x</Positions>",
                           "<Positions>0 0 inf</Positions>", "<Positions>0 0 nan</Positions>",
                           "<Positions>0 0 1e39</Positions>", "<Positions>0,0,0</Positions>",
                           "<Positions>0 0 0x1</Positions>",
                           "<Strip>0 1 2 3</Strip><Positions>0 0 0 1 0 0 0 1 0</Positions>"})
    refused(Mesh(body), 0);
  for (const char* tail :
       {"<Positions>0 0 0</Positions>", "<Normals>0 0 1</Normals>", "<Normals/><Normals/>",
        "<Triangles>0 1</Triangles><Triangles>2</Triangles>", "<Triangles>0 1 3</Triangles>",
        "<Fan>0 1 2 3</Fan>", "<Polyline>3</Polyline>", "<Triangles>0 1 -2</Triangles>",
        "<Triangles>0 1 2.0</Triangles>", "<Polyline>0 4294967296</Polyline>"})
    refused(Mesh(p3 + tail), 0);
  OneChildElement mesh("Mesh", nullptr), associated("AssociatedXML", &mesh),
      representation("Rep", &associated), damagedRoot("Rep", nullptr);
  for (OneChildElement* root : {&damagedRoot, &representation, &associated}) {
    KalVizXMLStreamOptions options;
    KalRep* rep = reinterpret_cast<KalRep*>(&options);
    EXPECT_EQ(KalReadXML(*root, options, rep), E_FAIL) << root->GetType().ConvertToChar();
    EXPECT_EQ(rep, nullptr);
  }
}

TEST(VizTessellation, FirstAssociatedXmlWithoutMeshesIsAnEmptyRep) {
  int hr = -1;
  const Rep rep = ReadXml("<Rep><AssociatedXML/><AssociatedXML><Mesh/></AssociatedXML></Rep>", hr);
  ASSERT_EQ(hr, S_OK);
  EXPECT_TRUE(rep->meshes.empty());
  char* data = nullptr;
  int length = 0;
  ASSERT_EQ(KalWriteQsr(rep.get(), data, length, 7, nullptr, 0), S_OK);
  EXPECT_EQ(std::string(data, length), std::string("QSR1\7\0\0\0", 8) + std::string(28, '\0'));
  delete[] data;
}

// Two meshes; strips, fans, triangle lists and positions in an order unlike the triangles'.
const char kTwoMeshes[] =
    "<Rep><AssociatedXML><Material/><Mesh name='a'><Fan>0 2 4 5</Fan><Triangles>0 1 2</Triangles>"
    "<Strip>1 2 3 4\n5</Strip><Polyline>0 1 2 3</Polyline><Unknown>x</Unknown>"
    "<Triangles>5 4 3</Triangles><Polyline>5 4</Polyline><Normals>0 0 1 0 0 1 0 0 1 0 0 1 "
    "0 0 1 0 0 -1</Normals><Positions> 0 0 0\t1 0 0 0 1 0 1 1 0 0 2 0 -1 0.5 3 </Positions>"
    "</Mesh><Mesh name='b'><Positions>4 -2 1 5 5 -7 0 0 0</Positions><Strip>0 1</Strip>"
    "<Fan>2</Fan><Triangles>2 1 0</Triangles><Polyline>1</Polyline></Mesh></AssociatedXML></Rep>";

class VizQsr : public testing::Test {
 protected:
  void SetUp() override {
    int hr = -1;
    _Rep = ReadXml(kTwoMeshes, hr);
    ASSERT_EQ(hr, S_OK);
    ASSERT_EQ(KalWriteQsr(_Rep.get(), _pData, _Length, 7, nullptr, 0), S_OK);
  }
  void TearDown() override { delete[] _pData; }

  Rep _Rep;
  char* _pData = nullptr;
  int _Length = 0;
};

TEST_F(VizQsr, WritesAndReadsBackEveryMeshWithStripsAndFansExpanded) {
  std::vector<float> box(_Rep->boxMin, _Rep->boxMin + 3);
  box.insert(box.end(), _Rep->boxMax, _Rep->boxMax + 3);
  EXPECT_EQ(box, (std::vector<float>{-1, -2, -7, 5, 5, 3}));
  EXPECT_EQ(_Length, 36 + (4 + 1 + 16 + 72 + 72 + 84 + 20 + 12) + (4 + 1 + 16 + 36 + 12 + 8));
  EXPECT_EQ(std::string(_pData, 12), std::string("QSR1\7\0\0\0\2\0\0\0", 12));
  EXPECT_EQ(std::memcmp(_pData + 12, box.data(), 24), 0);
  KalRep* read = nullptr;
  ASSERT_EQ(KalReadQsr(_pData, _Length, read), S_OK);
  const Rep back(read);
  ASSERT_EQ(back->meshes.size(), 2u);
  const KalMesh &a = back->meshes[0], &b = back->meshes[1];
  EXPECT_EQ(a.name, "a");
  EXPECT_EQ(a.positions,
            (std::vector<float>{0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 0, 2, 0, -1, 0.5, 3}));
  EXPECT_EQ(a.normals, (std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, -1}));
  EXPECT_EQ(a.triangles, (U32s{0, 1, 2, 5, 4, 3, 1, 2, 3, 3, 2, 4, 3, 4, 5, 0, 2, 4, 0, 4, 5}));
  EXPECT_EQ(a.polylineIndices, (U32s{0, 1, 2, 3, 5, 4}));
  EXPECT_EQ(a.polylineSizes, (U32s{4, 2}));
  EXPECT_EQ(b.name, "b");
  EXPECT_EQ(b.positions, (std::vector<float>{4, -2, 1, 5, 5, -7, 0, 0, 0}));
  EXPECT_TRUE(b.normals.empty());
  EXPECT_EQ(b.triangles, (U32s{2, 1, 0}));
  EXPECT_EQ(b.polylineIndices, (U32s{1}));
  EXPECT_EQ(b.polylineSizes, (U32s{1}));
}

TEST_F(VizQsr, FacesOnlyWritesNoNormalsNorPolylines) {
  char* data = nullptr;
  int length = 0;
  ASSERT_EQ(KalWriteQsr(_Rep.get(), data, length, kQsrFaces, nullptr, 0), S_OK);
  const std::unique_ptr<char[]> owned(data);
  EXPECT_EQ(length, 36 + (4 + 1 + 16 + 72 + 84) + (4 + 1 + 16 + 36 + 12));
  U32s counts(4);
  std::memcpy(counts.data(), data + 36 + 4 + 1, 16);
  EXPECT_EQ(counts, (U32s{6, 7, 0, 0}));
  KalRep* read = nullptr;
  ASSERT_EQ(KalReadQsr(data, length, read), S_OK);
  const Rep back(read);
  ASSERT_EQ(back->meshes.size(), 2u);
  EXPECT_EQ(back->meshes[0].triangles, _Rep->meshes[0].triangles);
  for (const KalMesh& mesh : back->meshes)
    EXPECT_TRUE(mesh.normals.empty() && mesh.polylineSizes.empty() && mesh.polylineIndices.empty());
}

TEST_F(VizQsr, RefusesTruncatedOrCorruptedBuffersAndANullRep) {
  std::vector<std::string> bad;
  for (int length = 0; length < _Length; ++length) bad.emplace_back(_pData, length);
  const std::string full(_pData, _Length);
  auto with = [&full](size_t at, uint32_t word) {
    std::string s = full;
    std::memcpy(&s[at], &word, 4);
    return s;
  };
  const size_t meshA = 36, countsA = meshA + 4 + 1, trianglesA = countsA + 16 + 72 + 72;
  bad.insert(bad.end(), {with(0, 0x32525351), with(countsA + 12, 2), with(trianglesA + 8, 6),
                         with(8, 0xFFFFFFFF), with(8, 3), with(meshA, 0xFFFFFFFF),
                         with(countsA, 0xFFFFFFFF), with(countsA + 4, 0xFFFFFFFF),
                         with(countsA + 8, 0xFFFFFFFF), with(12, 0xC0000000), full + '\0'});
  for (const std::string& buffer : bad) {
    KalRep* rep = reinterpret_cast<KalRep*>(&bad);
    EXPECT_EQ(KalReadQsr(buffer.data(), static_cast<int>(buffer.size()), rep), E_FAIL)
        << buffer.size();
    EXPECT_EQ(rep, nullptr);
  }
  KalRep* rep = nullptr;
  EXPECT_EQ(KalReadQsr(with(trianglesA + 8, 5).data(), _Length, rep), S_OK);
  const Rep accepted(rep);
  char* data = nullptr;
  int length = 0;
  EXPECT_EQ(KalWriteQsr(nullptr, data, length, 7, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(length, 0);
}

}  // namespace
