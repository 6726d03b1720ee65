// vorla reps: every representation reachable from the structure, one row each.
#include <iostream>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "KalVorlaResultCodes.h"
#include "Output.h"

namespace vorla {

void AddRepsCommand(CLI::App& app, int& exitCode) {
  AddInspectCommand(
      app, "reps", "Every representation reachable from the product structure",
      [](const Assembly& assembly, bool json) {
        if (json) {
          nlohmann::ordered_json rows = nlohmann::ordered_json::array();
          for (const RepRow& r : assembly.reps) {
            const Part& part = assembly.parts[r.part];
            rows.push_back({{"document", r.document},
                            {"reference", {{"name", r.reference}, {"id", r.referenceId}}},
                            {"repInstance", {{"name", r.repInstance}, {"id", r.repInstanceId}}},
                            {"repReference", {{"name", r.repReference}, {"id", r.repReferenceId}}},
                            {"docType", r.docType},
                            {"urn", r.urn},
                            {"location", r.location},
                            {"local", r.locationCode == kVorlaLocationLocal},
                            {"bufferCode", Hex(part.bufferCode)},
                            {"size", part.size},
                            {"tag", part.tag}});
          }
          std::cout << rows.dump(2) << "\n";
        } else {
          for (const RepRow& r : assembly.reps) {
            const Part& part = assembly.parts[r.part];
            std::cout << "reference \"" << r.reference << "\" [" << r.referenceId << "]"
                      << " / instance \"" << r.repInstance << "\" [" << r.repInstanceId << "]"
                      << " / format of \"" << r.repReference << "\" [" << r.repReferenceId << "]\n"
                      << "  type " << (r.docType.empty() ? "unknown" : r.docType) << ", " << r.urn
                      << ", " << (r.locationCode == kVorlaLocationLocal ? "local id " : "file ")
                      << r.location << ", " << part.size << " bytes"
                      << (part.tag.empty() ? "" : " (" + part.tag + ")")
                      << (part.bufferCode == kVorlaFormatNotSupported ? ", format not supported"
                                                                      : "")
                      << "\n";
          }
        }
      },
      exitCode);
}

}  // namespace vorla
