// Loads arbitrary bytes as a document file: the seeds are archives, so mutations mostly reach
// the archive reading (table of contents, manifest, root entry), and a loaded document is
// released whole.
#include "FuzzSupport.h"
#include "KalVorlaParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = kalfuzz::WriteInput(data, size, "input.vorla");
  std::make_unique<KalVorlaParser>()->InitParsing(path.c_str());
  return 0;
}
