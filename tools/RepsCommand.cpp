// vorla reps: every representation reachable from the structure, one row each.
#include <iostream>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "KalVorlaResultCodes.h"
#include "Output.h"

namespace vorla {

void AddRepsCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string file;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("reps", "Every representation reachable from the product structure");
  command->add_option("FILE", options->file, "Vorla document (archive or XML)")->required();
  command->add_flag("--json", options->json, "Print one JSON document");
  command->callback([options, &exitCode]() {
    Assembly assembly;
    HRESULT code = S_OK;
    if (!Gather(options->file, GatherOptions{}, assembly, code)) {
      exitCode = ReportDocumentError(options->file, code);
      return;
    }
    if (options->json) {
      nlohmann::ordered_json rows = nlohmann::ordered_json::array();
      for (const RepRow& r : assembly.reps) {
        rows.push_back({{"document", r.document},
                        {"reference", {{"name", r.reference}, {"id", r.referenceId}}},
                        {"repInstance", {{"name", r.repInstance}, {"id", r.repInstanceId}}},
                        {"repReference", {{"name", r.repReference}, {"id", r.repReferenceId}}},
                        {"docType", r.docType},
                        {"urn", r.urn},
                        {"location", r.location},
                        {"local", r.locationCode == kVorlaLocationLocal},
                        {"bufferCode", Hex(r.bufferCode)},
                        {"size", r.size},
                        {"tag", r.tag}});
      }
      std::cout << rows.dump(2) << "\n";
    } else {
      for (const RepRow& r : assembly.reps) {
        std::cout << "reference \"" << r.reference << "\" [" << r.referenceId << "]"
                  << " / instance \"" << r.repInstance << "\" [" << r.repInstanceId << "]"
                  << " / format of \"" << r.repReference << "\" [" << r.repReferenceId << "]\n"
                  << "  type " << (r.docType.empty() ? "unknown" : r.docType) << ", " << r.urn
                  << ", " << (r.locationCode == kVorlaLocationLocal ? "local id " : "file ")
                  << r.location << ", " << r.size << " bytes"
                  << (r.tag.empty() ? "" : " (" + r.tag + ")")
                  << (r.bufferCode == kVorlaFormatNotSupported ? ", format not supported" : "")
                  << "\n";
      }
    }
    PrintWarnings(assembly);
  });
}

}  // namespace vorla
