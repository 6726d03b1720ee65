// Feeds arbitrary bytes to the XML reader; a tree it accepts is walked whole, every string
// touched so that a dangling or unterminated one shows.
#include "FuzzSupport.h"

namespace {

void Walk(const KalLightXmlElementItf* e) {
  volatile size_t sink = e->GetType().GetLengthInChar() + e->GetValue().GetLengthInChar();
  (void)sink;
  for (KalPosition cursor = e->GetHeadPosition(); cursor != nullptr;) Walk(e->GetNextChild(cursor));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (const auto root = kalfuzz::ParseXml(data, size)) Walk(root.get());
  return 0;
}
