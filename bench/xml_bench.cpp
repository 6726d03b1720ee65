// XML reader benchmark: the reader's own speed on a document's root XML, and its time on
// hostile inputs that a careless reader takes quadratic or exponential time (or memory) on.
//
//   vorla_xml_bench [--runs N] DOC.vorla
//
// Every figure is the fastest of N parses in this process (warm), so the reader is measured
// rather than the kernel's first touch of fresh memory.
#include <zip.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "KalLightXml.h"

namespace {

[[noreturn]] void Die(const char* message) {
  std::fprintf(stderr, "vorla_xml_bench: %s\n", message);
  std::exit(1);
}

// The root entry named by the archive's manifest.
std::string RootXml(const char* path) {
  int error = 0;
  zip_t* z = zip_open(path, ZIP_RDONLY, &error);
  if (z == nullptr) Die("cannot open the archive");
  auto read = [&](const char* name) {
    zip_stat_t st;
    if (zip_stat(z, name, 0, &st) != 0) Die("missing entry");
    std::string bytes(st.size, '\0');
    zip_file_t* f = zip_fopen(z, name, 0);
    if (f == nullptr || zip_fread(f, &bytes[0], st.size) != static_cast<zip_int64_t>(st.size)) {
      Die("cannot read an entry");
    }
    zip_fclose(f);
    return bytes;
  };
  const std::string manifest = read("Manifest.xml");
  const size_t open = manifest.find("<Root>"), close = manifest.find("</Root>");
  if (open == std::string::npos || close == std::string::npos) Die("no root in the manifest");
  std::string xml = read(manifest.substr(open + 6, close - open - 6).c_str());
  zip_close(z);
  return xml;
}

// Fastest of `runs` parses; `result` receives what Parse returned.
double Parse(const std::string& xml, int runs, int& result) {
  double best = 1e30;
  for (int r = 0; r < runs; ++r) {
    KalLightXmlElementFactory factory;
    std::unique_ptr<KalLightXmlElementItf> root(factory.CreateElement());
    KalLightXmlInputStreamBuffer input(reinterpret_cast<const unsigned char*>(xml.data()),
                                       static_cast<int>(xml.size()));
    KalLightXmlParser parser;
    const auto start = std::chrono::steady_clock::now();
    result = parser.Parse(input, *root);
    best = std::min(
        best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

std::string Names(bool sharedEnds) {
  std::string xml = "<r>";
  char tag[64];
  for (int i = 0; i < 40000; ++i) {
    std::snprintf(tag, sizeof(tag),
                  sharedEnds ? "<HeadHead%06dTailTail/>" : "<N%06dHeadHeadTailTail/>", i);
    xml += tag;
  }
  return xml + "</r>";
}

// Ten levels of entities, each naming the one below ten times: 10^10 copies if expanded.
std::string NestedEntities() {
  std::string xml = "<!DOCTYPE r [<!ENTITY e0 \"lol\">";
  for (int i = 1; i <= 10; ++i) {
    xml += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) xml += "&e" + std::to_string(i - 1) + ";";
    xml += "\">";
  }
  return xml + "]><r>&e10;</r>";
}

// One 50 KB entity referenced 20,000 times: 1 GB if expanded.
std::string RepeatedEntity() {
  std::string xml = "<!DOCTYPE r [<!ENTITY big \"" + std::string(50000, 'x') + "\">]><r>";
  for (int i = 0; i < 20000; ++i) xml += "&big;";
  return xml + "</r>";
}

void Row(const char* what, const std::string& xml, int runs) {
  int result = -1;
  const double seconds = Parse(xml, runs, result);
  std::printf("| %-52s | %8.1f | %9.4f | %s |\n", what, xml.size() / 1e6, seconds,
              result == 1 ? "read" : "refused");
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 5;
  const char* document = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, std::atoi(argv[++i]));
    } else if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      std::printf("usage: vorla_xml_bench [--runs N] DOC.vorla\n");
      return 0;
    } else {
      document = argv[i];
    }
  }
  if (document == nullptr) Die("no document given (--help)");
  int ignored = 0;
  Parse(Names(false), 3, ignored);  // the process's first parses also pay for its first memory
  std::printf("\nXML reader, fastest of %d parses in one process\n\n", runs);
  std::printf("| %-52s | %8s | %9s | %s |\n", "input", "MB", "seconds", "result");
  std::printf("|%s|%s|%s|%s|\n", std::string(54, '-').c_str(), std::string(10, '-').c_str(),
              std::string(11, '-').c_str(), std::string(9, '-').c_str());
  Row("root XML of the document", RootXml(document), runs);
  Row("40,000 names differing at the start", Names(false), runs);
  Row("40,000 names sharing their first and last 8 bytes", Names(true), runs);
  Row("ten levels of ten nested entities", NestedEntities(), runs);
  Row("a 50 KB entity referenced 20,000 times", RepeatedEntity(), runs);
  return 0;
}
