// vorla extract: the bytes of one geometric representation, as the library hands them out.
#include <iostream>

#include "Commands.h"
#include "Document.h"
#include "KalVorlaResultCodes.h"
#include "Output.h"

namespace vorla {

void AddExtractCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string file, id, output;
    bool force = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("extract", "Write the bytes of one geometric representation");
  command->add_option("FILE", options->file, "Vorla document (archive or XML)")->required();
  command->add_option("--id", options->id, "Id of the representation")->required();
  command->add_option("-o,--output", options->output, "Output file, - for standard output")
      ->required();
  command->add_flag("-f,--force", options->force, "Replace an existing output file");
  command->callback([options, &exitCode]() {
    HRESULT code = S_OK;
    std::unique_ptr<Document> document = Document::Open(options->file, code);
    if (document == nullptr) {
      exitCode = ReportDocumentError(options->file, code);
      return;
    }
    char* bytes = nullptr;
    unsigned int size = 0;
    KalUnicodeString tag;
    code = document->Parser().GetBufferFromGeometricRepresentationID(options->id.c_str(), bytes,
                                                                     size, tag);
    const std::unique_ptr<char[]> owned(bytes);
    if (code == kVorlaFormatNotSupported) {
      std::cerr << "vorla: representation " << options->id
                << " has a format or version this library does not read\n";
      exitCode = kExitDocument;
    } else if (FAILED(code) || bytes == nullptr) {
      std::cerr << "vorla: " << options->file << " has no representation " << options->id
                << " with data (code " << Hex(code) << ")\n";
      exitCode = kExitDocument;
    } else {
      exitCode = WriteOutput(options->output, std::string(bytes, size), options->force);
      if (exitCode == kExitOk && options->output != "-") {
        std::cerr << "vorla: wrote " << size << " bytes (" << Text(tag) << ") to "
                  << options->output << "\n";
      }
    }
  });
}

}  // namespace vorla
