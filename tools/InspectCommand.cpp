#include <memory>

#include "Commands.h"
#include "Output.h"

namespace vorla {

InspectCommand AddInspectCommand(CLI::App& app, const char* name, const char* description,
                                 std::function<void(const Assembly&, bool json)> print,
                                 int& exitCode) {
  struct Options {
    std::string file;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  auto gather = std::make_shared<GatherOptions>();
  CLI::App* command = app.add_subcommand(name, description);
  command->add_option("FILE", options->file, "Vorla document (archive or XML)")->required();
  command->add_flag("--json", options->json, "Print one JSON document");
  command->callback([options, gather, print, &exitCode]() {
    Assembly assembly;
    HRESULT code = S_OK;
    if (!Gather(options->file, *gather, assembly, code)) {
      exitCode = ReportGatherError(options->file, assembly, code);
      return;
    }
    print(assembly, options->json);
    PrintWarnings(assembly);
  });
  return {command, gather};
}

}  // namespace vorla
