// Base64 decoding, tessellations read from XML, and Qsr buffers written and read back.
#include <cctype>
#include <cstring>

#include "KalCodePage.h"
#include "KalHResult.h"
#include "KalViz.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

// The result code and bytes of decoding `text`; the output is checked to be null exactly on
// failure, and a length left on failure shows as that many '?'.
std::pair<int, std::string> Decode(const char* text) {
  unsigned char untouched = 0, *data = &untouched;
  unsigned int length = 99;
  const int hr = KalCodePage::ConvertFromBase64(text, data, length);
  EXPECT_EQ(data != nullptr, hr == S_OK) << text;
  const std::unique_ptr<unsigned char[]> owned(data != &untouched ? data : nullptr);
  return {hr, owned ? std::string(data, data + length) : std::string(length, '?')};
}

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Padding is optional but closes the text; white space anywhere is skipped. Long texts are
// decoded by blocks of many characters: any byte put at any place of the first blocks is
// refused unless it is white space or base64, and then decoded as group by group (the text
// with a blank after every character, which no block takes whole).
TEST(Base64, DecodesPaddedUnpaddedAndSpacedTextRefusesTheRestAndAgreesAcrossBlocks) {
  std::string all, padded;  // every byte value, and its base64
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  for (int i = 0; i < 255; i += 3)
    for (int shift = 18; shift >= 0; shift -= 6)
      padded += kAlphabet[(i << 16 | (i + 1) << 8 | (i + 2)) >> shift & 63];
  padded += "/w==";  // the last byte, 0xFF
  // clang-format off
  const std::vector<std::pair<std::string, std::string>> decoded = {
      {"", ""}, {"TWFu", "Man"}, {"TWE=", "Ma"}, {"TQ==", "M"}, {"TWE", "Ma"}, {"TQ", "M"},
      {"/+8=", "\xFF\xEF"}, {" T W\tF u\r\n\v\fTQ = =\n", "ManM"}, {padded, all}};
  // clang-format on
  for (const auto& [text, bytes] : decoded)
    EXPECT_EQ(Decode(text.c_str()), std::make_pair(S_OK, bytes)) << text;
  for (const char* text : {static_cast<const char*>(nullptr), "T", "TWFuT", "TQ=", "T===", "TQ=u",
                           "TQ==TWFu", "TQ==\n=", "=TWF", "TWFu!", "TW-u", "TWF\xC3\xA9"})
    EXPECT_EQ(Decode(text), std::make_pair(E_FAIL, std::string())) << text;
  std::string base;
  for (int i = 0; i < 130; ++i) base += kAlphabet[i * 7 % 64];
  for (size_t at = 0; at < 72; ++at)
    for (int byte = 1; byte < 256; ++byte) {
      const std::string text = base.substr(0, at) + static_cast<char>(byte) + base.substr(at);
      std::string spaced;
      for (char c : text) spaced += {c, ' '};
      const bool valid = std::isspace(byte) || std::strchr(kAlphabet, byte) != nullptr;
      ASSERT_EQ(Decode(text.c_str()), valid ? Decode(spaced.c_str()) : Decode(nullptr))
          << at << ' ' << byte;
    }
}

struct RepRelease {
  void operator()(KalRep* rep) const { rep->Release(); }
};
using Rep = std::unique_ptr<KalRep, RepRelease>;

// Runs `read` (KalReadXML or KalReadQsr), which must set the rep it is given, to null exactly
// on failure; the rep goes to `out` when given. Returns the result code.
template <class Read>
int Checked(Read read, Rep* out) {
  KalRep* rep = reinterpret_cast<KalRep*>(&read);
  const int hr = read(rep);
  EXPECT_EQ(rep == nullptr, hr != S_OK);
  Rep dropped;
  if (hr == S_OK) (out != nullptr ? *out : dropped).reset(rep);
  return hr;
}
int ReadXml(const std::string& xml, Rep* out = nullptr, int format = 0) {
  KalVizXMLStreamOptions options(format);
  return Checked([&](KalRep*& rep) { return KalReadXML(*ParseXml(xml), options, rep); }, out);
}
int ReadQsr(const std::string& qsr, Rep* out = nullptr) {
  return Checked([&](KalRep*& rep) { return KalReadQsr(qsr.data(), int(qsr.size()), rep); }, out);
}
std::string WriteQsr(KalRep* rep, KalSettingQsr setting) {
  char* data = nullptr;
  int length = 0;
  EXPECT_EQ(KalWriteQsr(rep, data, length, setting, nullptr, 0), S_OK);
  return std::string(std::unique_ptr<char[]>(data).get(), length);
}

std::string Mesh(const std::string& body) {
  return "<Rep><AssociatedXML><Mesh>" + body + "</Mesh></AssociatedXML></Rep>";
}

// The box, then per mesh: name|positions|normals|triangles|polyline indices|polyline sizes.
std::string Dump(const KalRep& rep) {
  std::ostringstream out;
  auto list = [&out](const auto& values) {
    for (auto v : values) out << ' ' << v;
    out << " |";
  };
  list(rep.boxMin), list(rep.boxMax);
  for (const KalMesh& m : rep.meshes) {
    out << "\n" << m.name.ConvertToChar() << "|";
    list(m.positions), list(m.normals), list(m.triangles), list(m.polylineIndices);
    list(m.polylineSizes);
  }
  return out.str();
}

TEST(VizTessellation, RefusesEveryFlawWithoutARep) {
  const std::string p3 = "<Positions>0 0 0 1 0 0 0 1 0</Positions>";
  EXPECT_EQ(ReadXml(Mesh(p3), nullptr, 1), E_FAIL);
  EXPECT_EQ(ReadXml("<Rep><associatedxml/></Rep>"), E_FAIL);
  EXPECT_EQ(ReadXml(Mesh("<Strip>0 1 2 3</Strip>" + p3)), E_FAIL);  // indices before positions
  for (const std::string values :
       {"0 0", "0 0 1x", "0 0 inf", "0 0 nan", "0 0 1e39", "0,0,0", "0 0 0x1"})
    EXPECT_EQ(ReadXml(Mesh("<Positions>" + values + "</Positions>")), E_FAIL) << values;
  for (const char* tail :
       {"<Positions>0 0 0</Positions>", "<Normals>0 0 1</Normals>", "<Normals/><Normals/>",
        "<Triangles>0 1</Triangles><Triangles>2</Triangles>", "<Triangles>0 1 3</Triangles>",
        "<Fan>0 1 2 3</Fan>", "<Polyline>3</Polyline>", "<Triangles>0 1 -2</Triangles>",
        "<Triangles>0 1 2.0</Triangles>", "<Polyline>0 4294967296</Polyline>",
        "<Triangles>0 1 4294967298</Triangles>", "<Strip>0 1 99999999999999999999</Strip>"})
    EXPECT_EQ(ReadXml(Mesh(p3 + tail)), E_FAIL) << tail;
  // A child walk that hands out a null child, in the representation or in a mesh.
  FakeElement mesh("Mesh", {nullptr}), associated("AssociatedXML", {&mesh}),
      damagedMesh("Rep", {&associated}), damagedRep("Rep", {nullptr});
  KalVizXMLStreamOptions options;
  for (const FakeElement* root : {&damagedRep, &damagedMesh})
    EXPECT_EQ(Checked([&](KalRep*& rep) { return KalReadXML(*root, options, rep); }, nullptr),
              E_FAIL);
}

// Two meshes; strips, fans, triangle lists and positions in an order unlike the triangles'.
const char kTwoMeshes[] =
    "<Rep><AssociatedXML><Material/><Mesh name='a'><Fan>0 2 4 5</Fan><Triangles>0 1 2</Triangles>"
    "<Strip>1 2 3 4\n5</Strip><Polyline>0 1 2 3</Polyline><Unknown>x</Unknown>"
    "<Triangles>5 4 3</Triangles><Polyline>5 4</Polyline><Normals>0 0 1 0 0 1 0 0 1 0 0 1 "
    "0 0 1 0 0 -1</Normals><Positions> 0 0 0\t1 0 0 0 1 0 1 1 0 0 2 0 -1 0.5 3 </Positions>"
    "</Mesh><Mesh name='b'><Positions>4 -2 1 5 5 -7 0 0 0</Positions><Strip>0 1</Strip>"
    "<Fan>2</Fan><Triangles>2 1 0</Triangles><Polyline>1</Polyline></Mesh></AssociatedXML></Rep>";

// Only the first AssociatedXML counts, and one without meshes is an empty rep. Truncated or
// corrupted buffers are refused; a null rep is not written.
TEST(VizQsr, MeshesRoundTripWithStripsAndFansExpandedFacesOnlyDropsTheRestDamageIsRefused) {
  Rep empty, rep, back, faces;
  ASSERT_EQ(ReadXml("<Rep><AssociatedXML/><AssociatedXML><Mesh/></AssociatedXML></Rep>", &empty),
            S_OK);
  EXPECT_EQ(WriteQsr(empty.get(), 7), std::string("QSR1\7\0\0\0", 8) + std::string(28, '\0'));
  ASSERT_EQ(ReadXml(kTwoMeshes, &rep), S_OK);
  const std::string qsr = WriteQsr(rep.get(), 7);
  const float box[] = {-1, -2, -7, 5, 5, 3};
  EXPECT_EQ(qsr.size(), 36 + (4 + 1 + 16 + 72 + 72 + 84 + 20 + 12) + (4 + 1 + 16 + 36 + 12 + 8u));
  EXPECT_EQ(qsr.substr(0, 36), std::string("QSR1\7\0\0\0\2\0\0\0", 12) +
                                   std::string(reinterpret_cast<const char*>(box), 24));
  ASSERT_EQ(ReadQsr(qsr, &back), S_OK);
  const std::string dump =
      " -1 -2 -7 | 5 5 3 |\n"
      "a| 0 0 0 1 0 0 0 1 0 1 1 0 0 2 0 -1 0.5 3 | 0 0 1 0 0 1 0 0 1 0 0 1 0 0 1 0 0 -1 |"
      " 0 1 2 5 4 3 1 2 3 3 2 4 3 4 5 0 2 4 0 4 5 | 0 1 2 3 5 4 | 4 2 |\n"
      "b| 4 -2 1 5 5 -7 0 0 0 | | 2 1 0 | 1 | 1 |";
  EXPECT_EQ(Dump(*rep), dump);
  EXPECT_EQ(Dump(*back), dump);

  const std::string facesQsr = WriteQsr(rep.get(), kQsrFaces);
  EXPECT_EQ(facesQsr.size(), 36 + (4 + 1 + 16 + 72 + 84) + (4 + 1 + 16 + 36 + 12u));
  ASSERT_EQ(ReadQsr(facesQsr, &faces), S_OK);
  for (KalMesh& m : rep->meshes)
    m.normals.clear(), m.polylineIndices.clear(), m.polylineSizes.clear();
  EXPECT_EQ(Dump(*faces), Dump(*rep));

  auto with = [&qsr](size_t at, unsigned word) {
    std::string s = qsr;
    std::memcpy(&s[at], &word, 4);
    return s;
  };
  const size_t meshA = 36, countsA = meshA + 4 + 1, trianglesA = countsA + 16 + 72 + 72;
  // clang-format off
  std::vector<std::string> bad = {qsr + '\0', with(0, 0x32525351), with(8, 3), with(8, ~0u),
      with(12, 0xC0000000), with(meshA, ~0u), with(countsA, ~0u), with(countsA + 4, ~0u),
      with(countsA + 8, ~0u), with(countsA + 12, 2), with(trianglesA + 8, 6)};
  // clang-format on
  for (size_t length = 0; length < qsr.size(); ++length) bad.push_back(qsr.substr(0, length));
  for (const std::string& buffer : bad) EXPECT_EQ(ReadQsr(buffer), E_FAIL) << buffer.size();
  EXPECT_EQ(ReadQsr(with(trianglesA + 8, 5)), S_OK);
  char unchanged = 0, *data = &unchanged;
  int length = 7;
  EXPECT_EQ(KalWriteQsr(nullptr, data, length, 7, nullptr, 0), E_INVALIDARG);
  EXPECT_TRUE(data == &unchanged && length == 7);
}

}  // namespace
}  // namespace kaltest
