// Feeds arbitrary bytes to the XML reader; a tree it accepts is walked whole.
#include "FuzzSupport.h"

namespace {

void Walk(const KalLightXmlElementItf* e) {
  // Touch every string so that a dangling or unterminated one shows.
  volatile size_t sink = e->GetType().GetLengthInChar() + e->GetValue().GetLengthInChar();
  (void)sink;
  KalPosition cursor = e->GetHeadPosition();
  while (cursor != nullptr) Walk(e->GetNextChild(cursor));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::unique_ptr<KalLightXmlElementItf> root = kalfuzz::ParseXml(data, size);
  if (root != nullptr) Walk(root.get());
  return 0;
}
