// Loads arbitrary bytes as a plain XML document file (archives are left to their own target),
// through the version check, the container nodes, the id tables and the root reference.
#include <cstring>

#include "FuzzSupport.h"
#include "KalVorlaParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size >= 2 && std::memcmp(data, "PK", 2) == 0) return -1;  // an archive's signature
  const std::string path = kalfuzz::WriteInput(data, size, "input.vorla");
  std::make_unique<KalVorlaParser>()->InitParsing(path.c_str());
  return 0;
}
