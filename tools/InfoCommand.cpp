// vorla info: what a document holds, in numbers.
#include <iostream>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "KalVorlaResultCodes.h"
#include "Output.h"

namespace vorla {

void AddInfoCommand(CLI::App& app, int& exitCode) {
  InspectCommand inspect = AddInspectCommand(
      app, "info", "Counts, sets, views, materials and the bounding box",
      [](const Assembly& assembly, bool json) {
        std::array<double, 3> low{}, high{};
        const bool placed = PlacedBounds(assembly, low, high);
        if (json) {
          nlohmann::ordered_json out = {{"file", assembly.file},
                                        {"rootFile", assembly.rootFile},
                                        {"loadCode", Hex(assembly.loadCode)},
                                        {"instances", assembly.instances},
                                        {"references", assembly.references},
                                        {"representations", assembly.representations},
                                        {"sets", assembly.sets},
                                        {"views", assembly.views.size()},
                                        {"materials", assembly.materials}};
          out["boundingBox"] = placed ? nlohmann::ordered_json{{"min", low}, {"max", high}}
                                      : nlohmann::ordered_json(nullptr);
          std::cout << out.dump(2) << "\n";
        } else {
          std::cout << "file:            " << assembly.file << "\n"
                    << "root file:       " << assembly.rootFile << "\n"
                    << "schema version:  "
                    << (assembly.loadCode == kVorlaVersionNewerAccepted ? "newer 2.x, accepted"
                                                                        : "supported")
                    << " (" << Hex(assembly.loadCode) << ")\n"
                    << "instances:       " << assembly.instances << "\n"
                    << "references:      " << assembly.references << "\n"
                    << "representations: " << assembly.representations << "\n"
                    << "sets:            ";
          for (size_t i = 0; i < assembly.sets.size(); ++i) {
            std::cout << (i ? ", " : "") << assembly.sets[i];
          }
          std::cout << (assembly.sets.empty() ? "none" : "") << "\n"
                    << "views:           " << assembly.views.size() << "\n"
                    << "materials:       " << assembly.materials << "\n"
                    << "bounding box:    ";
          if (placed) {
            std::cout << "(" << low[0] << ", " << low[1] << ", " << low[2] << ") to (" << high[0]
                      << ", " << high[1] << ", " << high[2] << ")\n";
          } else {
            std::cout << "no placed geometry\n";
          }
        }
      },
      exitCode);
  inspect.gather->counts = true;
}

}  // namespace vorla
