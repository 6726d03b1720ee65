// Geometry benchmark: base64 decoding, tessellation XML read and written as Qsr, and Qsr read
// back, on large generated inputs.
//
//   vorla_geometry_bench [--runs N]
//
// Every figure is the fastest of N runs (default 5) in this process, on warm inputs; base64
// throughput is counted on the text's size, the tessellation on the XML text's size and the
// Qsr read on the buffer's size.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "KalCodePage.h"
#include "KalLightXml.h"
#include "KalViz.h"

namespace {

[[noreturn]] void Die(const char* message) {
  std::fprintf(stderr, "vorla_geometry_bench: %s\n", message);
  std::exit(1);
}

// Fastest of `runs` calls of `run`, in seconds.
template <typename Run>
double Best(int runs, Run&& run) {
  double best = 1e30;
  for (int r = 0; r < runs; ++r) {
    const auto start = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count());
  }
  return best;
}

std::string Base64(const std::string& bytes, const char* lineBreak) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve(bytes.size() / 3 * 4 + bytes.size() / 57 * 2 + 8);
  size_t column = 0;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    if (lineBreak != nullptr && column == 76) {
      text += lineBreak;
      column = 0;
    }
    const size_t left = bytes.size() - i;
    const unsigned bits = static_cast<unsigned char>(bytes[i]) << 16 |
                          (left > 1 ? static_cast<unsigned char>(bytes[i + 1]) << 8 : 0) |
                          (left > 2 ? static_cast<unsigned char>(bytes[i + 2]) : 0);
    for (int k = 0; k < 4; ++k)
      text += k <= static_cast<int>(std::min<size_t>(left, 3))
                  ? kAlphabet[bits >> (18 - 6 * k) & 63]
                  : '=';
    column += 4;
  }
  return text;
}

// Seconds of the fastest decoding of `text`, checked to give `bytes`.
double DecodeBase64(const std::string& text, const std::string& bytes, int runs) {
  return Best(runs, [&] {
    unsigned char* data = nullptr;
    unsigned int length = 0;
    if (KalCodePage::ConvertFromBase64(text.c_str(), data, length) != 0) Die("base64 refused");
    const std::unique_ptr<unsigned char[]> owned(data);
    if (length != bytes.size() || std::memcmp(data, bytes.data(), length) != 0)
      Die("base64 decoded wrongly");
  });
}

void Append(std::string& out, float value) {
  char buffer[32];
  out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
  out += ' ';
}
void Append(std::string& out, unsigned value) {
  char buffer[16];
  out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
  out += ' ';
}

// A side x side grid of vertices on a wavy surface, with normals, as two triangles per cell.
std::string GridXml(unsigned side) {
  std::string xml = "<Rep><AssociatedXML><Mesh name='grid'>\n<Positions>";
  for (unsigned y = 0; y < side; ++y)
    for (unsigned x = 0; x < side; ++x) {
      Append(xml, x * 0.01f), Append(xml, y * 0.01f);
      Append(xml, 0.25f * std::sin(x * 0.013f) * std::cos(y * 0.017f));
    }
  xml += "</Positions>\n<Normals>";
  for (unsigned i = 0; i < side * side; ++i) Append(xml, 0.f), Append(xml, 0.6f), Append(xml, 0.8f);
  xml += "</Normals>\n<Triangles>";
  for (unsigned y = 0; y + 1 < side; ++y)
    for (unsigned x = 0; x + 1 < side; ++x) {
      const unsigned a = y * side + x, b = a + 1, c = a + side, d = c + 1;
      Append(xml, a), Append(xml, b), Append(xml, d);
      Append(xml, a), Append(xml, d), Append(xml, c);
    }
  xml += "</Triangles>\n</Mesh></AssociatedXML></Rep>";
  return xml;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 5;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, std::atoi(argv[++i]));
    } else {
      Die("usage: vorla_geometry_bench [--runs N]");
    }
  }

  std::string bytes(48u << 20, '\0');
  std::mt19937_64 random(42);
  for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
    const unsigned long long word = random();
    std::memcpy(&bytes[i], &word, 8);
  }
  const std::string plain = Base64(bytes, nullptr), lf = Base64(bytes, "\n"),
                    crlf = Base64(bytes, "\r\n");
  const double plainSeconds = DecodeBase64(plain, bytes, runs);
  const double lfSeconds = DecodeBase64(lf, bytes, runs);
  const double crlfSeconds = DecodeBase64(crlf, bytes, runs);

  const unsigned side = 1000;
  const std::string xml = GridXml(side);
  KalLightXmlElementFactory factory;
  std::unique_ptr<KalLightXmlElementItf> root(factory.CreateElement());
  KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml.data()),
                                     static_cast<int>(xml.size()));
  if (root == nullptr || KalLightXmlParser().Parse(input, *root) != 1) Die("XML not parsed");
  std::string qsr;
  const double tessellationSeconds = Best(runs, [&] {
    KalVizXMLStreamOptions options;
    KalRep* rep = nullptr;
    if (KalReadXML(*root, options, rep) != 0) Die("tessellation refused");
    char* data = nullptr;
    int length = 0;
    const int written = KalWriteQsr(rep, data, length, kQsrFaces | kQsrNormals, nullptr, 0);
    rep->Release();
    if (written != 0) Die("Qsr not written");
    qsr.assign(data, length);
    delete[] data;
  });
  const double qsrSeconds = Best(runs, [&] {
    KalRep* rep = nullptr;
    if (KalReadQsr(qsr.data(), static_cast<int>(qsr.size()), rep) != 0) Die("Qsr refused");
    if (rep->meshes.size() != 1 || rep->meshes[0].VertexCount() != side * side ||
        rep->meshes[0].TriangleCount() != 2 * (side - 1) * (side - 1))
      Die("Qsr read wrongly");
    rep->Release();
  });

  constexpr double MB = 1e6, GB = 1e9;
  std::printf("| input | size (MB) | best of %d (ms) | throughput |\n", runs);
  std::printf("|---|---:|---:|---:|\n");
  auto row = [](const char* name, size_t size, double seconds, double unit, const char* per) {
    std::printf("| %s | %.1f | %.1f | %.2f %s |\n", name, size / MB, seconds * 1e3,
                size / seconds / unit, per);
  };
  row("base64, no line break", plain.size(), plainSeconds, GB, "GB/s");
  row("base64, \\n every 76", lf.size(), lfSeconds, GB, "GB/s");
  row("base64, \\r\\n every 76", crlf.size(), crlfSeconds, GB, "GB/s");
  row("tessellation XML -> KalReadXML -> KalWriteQsr", xml.size(), tessellationSeconds, MB, "MB/s");
  row("KalReadQsr", qsr.size(), qsrSeconds, MB, "MB/s");
  std::printf("\nbase64 without line breaks: %.2f GB/s (target >= 1.5)\n",
              plain.size() / plainSeconds / GB);
  std::printf("base64 with line breaks: %.2f GB/s (target >= 1)\n",
              std::min(lf.size() / lfSeconds, crlf.size() / crlfSeconds) / GB);
  return 0;
}
