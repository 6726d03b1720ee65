// Loads a Vorla document and prints its product structure: each instance with its placement,
// and each representation with its document type and the size of its geometry buffer.
#include <cstdio>
#include <string>

#include "KalViz.h"
#include "KalVorlaParser.h"

namespace {

std::string Name(KalVorlaParser& parser, KalLightXmlElementItf* element) {
  KalUnicodeString name;
  parser.GetEntityName(element, name);
  return name.ConvertToChar();
}

void PrintRepresentations(KalVorlaParser& parser, KalLightXmlElementItf* reference,
                          const std::string& indent) {
  KalRawCollPV reps;
  if (FAILED(parser.GetRepInstancesFromReference3D(reference, &reps))) return;
  for (int i = 1; i <= reps.Size(); ++i) {
    KalLightXmlElementItf* repReference = nullptr;
    KalUnicodeString path;
    int id = -1;
    parser.GetReferenceRepFromInstanceRep(static_cast<KalLightXmlElementItf*>(reps[i]),
                                          &repReference, path, id);
    if (repReference == nullptr) continue;
    KalRawCollPV formats;
    parser.GetRepFormatsFromRepReference(repReference, &formats);
    for (int f = 1; f <= formats.Size(); ++f) {
      char* buffer = nullptr;
      unsigned int size = 0;
      KalUnicodeString type;
      const HRESULT rc = parser.GetGeometricRepresentationBuffer(
          static_cast<KalLightXmlElementItf*>(formats[f]), &buffer, size, type);
      KalRep* rep = nullptr;
      size_t triangles = 0;
      if (buffer != nullptr && KalReadQsr(buffer, static_cast<int>(size), rep) == 0) {
        for (const KalMesh& mesh : rep->meshes) triangles += mesh.TriangleCount();
        rep->Release();
      }
      std::printf("%s  representation \"%s\": %s, %u bytes, %zu triangles%s\n", indent.c_str(),
                  Name(parser, repReference).c_str(), type.ConvertToChar(), size, triangles,
                  rc == kVorlaFormatNotSupported ? " (format not supported)" : "");
      delete[] buffer;
    }
  }
}

void PrintReference(KalVorlaParser& parser, KalLightXmlElementItf* reference, int depth) {
  const std::string indent(2 * depth, ' ');
  std::printf("%sreference \"%s\"\n", indent.c_str(), Name(parser, reference).c_str());
  PrintRepresentations(parser, reference, indent);
  int id = -1;
  parser.GetEntityLocalID(reference, id);
  KalRawCollPV instances;
  if (depth > 32 || FAILED(parser.GetInstancesFromReference3D(id, &instances))) return;
  for (int i = 1; i <= instances.Size(); ++i) {
    auto* instance = static_cast<KalLightXmlElementItf*>(instances[i]);
    double* matrix = nullptr;
    parser.GetInstanceMatrix(instance, &matrix);
    std::printf("%s  instance \"%s\" at (%g, %g, %g)\n", indent.c_str(),
                Name(parser, instance).c_str(), matrix ? matrix[9] : 0.0, matrix ? matrix[10] : 0.0,
                matrix ? matrix[11] : 0.0);
    delete[] matrix;
    int instanceId = -1;
    parser.GetEntityLocalID(instance, instanceId);
    KalLightXmlElementItf* child = nullptr;
    KalUnicodeString file;
    int childId = -1;
    parser.GetReference3DFromInstance3D(instanceId, &child, file, childId);
    if (child != nullptr) {
      PrintReference(parser, child, depth + 2);
    } else if (!file.IsEmpty()) {
      std::printf("%s    reference %d in %s\n", indent.c_str(), childId, file.ConvertToChar());
    }
  }
}

}  // namespace

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
  int instances = 0, references = 0, representations = 0;
  parser->GetNumberOfInstances(instances);
  parser->GetNumberOfReferences(references);
  parser->GetNumberOfRepresentations(representations);
  std::printf("references: %d, instances: %d, representations: %d\n", references, instances,
              representations);

  KalLightXmlElementItf* reference = nullptr;
  parser->GetProductStructureRootReference(&reference);
  if (reference == nullptr) {
    std::printf("no root reference\n");
  } else {
    PrintReference(*parser, reference, 0);
  }
  delete parser;
  return 0;
}
