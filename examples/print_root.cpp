// Loads a Vorla document and prints its root reference and a few counts.
#include <cstdio>

#include "KalVorlaParser.h"

int main(int argc, char** argv) {
  const char* path = argc > 1 ? argv[1] : "examples/sample.vorla";
  KalVorlaParser* parser = new KalVorlaParser();
  HRESULT rc = parser->InitParsing(path);
  if (FAILED(rc)) {
    std::fprintf(stderr, "print_root: cannot load %s (code 0x%08X)\n", path,
                 static_cast<unsigned>(rc));
    delete parser;
    return 1;
  }
  KalUnicodeString root;
  parser->GetFilePath(root);
  std::printf("document: %s (root file %s)\n", path, root.ConvertToChar());

  KalLightXmlElementItf* reference = nullptr;
  parser->GetProductStructureRootReference(&reference);
  if (reference == nullptr) {
    std::printf("no root reference\n");
  } else {
    std::printf("root reference: id %s, name \"%s\"\n",
                reference->GetAttribute("id").ConvertToChar(),
                reference->GetAttribute("name").ConvertToChar());
  }
  int instances = 0, references = 0, representations = 0;
  parser->GetNumberOfInstances(instances);
  parser->GetNumberOfReferences(references);
  parser->GetNumberOfRepresentations(representations);
  std::printf("references: %d, instances: %d, representations: %d\n", references, instances,
              representations);
  delete parser;
  return 0;
}
