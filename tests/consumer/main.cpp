// A user's program: one include, the installed package, the root reference's name.
#include <cstdio>

#include "KalVorlaParser.h"

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  KalVorlaParser* parser = new KalVorlaParser();
  KalLightXmlElementItf* root = nullptr;
  const bool loaded = SUCCEEDED(parser->InitParsing(argv[1])) &&
                      parser->GetProductStructureRootReference(&root) == S_OK && root != nullptr;
  if (loaded) std::printf("%s\n", root->GetAttribute("name").ConvertToChar());
  delete parser;
  return loaded ? 0 : 1;
}
