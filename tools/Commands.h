// The subcommands of `vorla`; each adds itself to the application and sets the exit code
// when it runs.
#ifndef VORLA_COMMANDS_H
#define VORLA_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>

#include "Assembly.h"
#include "GltfWriter.h"

namespace vorla {

// A subcommand that gathers the assembly of its FILE and prints it, as text or with --json as
// one JSON document, followed by the warnings. Options added to the returned command may
// change `gather` before it runs.
struct InspectCommand {
  CLI::App* command;
  std::shared_ptr<GatherOptions> gather;
};
InspectCommand AddInspectCommand(CLI::App& app, const char* name, const char* description,
                                 std::function<void(const Assembly&, bool json)> print,
                                 int& exitCode);

// What export and view share: the whole assembly of `file` gathered (with a progress counter
// unless `quiet`), its warnings printed and its glTF made. False, with the reason on stderr and
// `exitCode` set, when the document cannot be read or walked or the glTF cannot be made.
bool GatherAndBuildGltf(const std::string& file, bool quiet, const GltfOptions& gltf,
                        Assembly& assembly, std::string& bytes, GltfStats& stats, int& exitCode);

void AddInfoCommand(CLI::App& app, int& exitCode);
void AddTreeCommand(CLI::App& app, int& exitCode);
void AddRepsCommand(CLI::App& app, int& exitCode);
void AddViewsCommand(CLI::App& app, int& exitCode);
void AddExtractCommand(CLI::App& app, int& exitCode);
void AddExportCommand(CLI::App& app, int& exitCode);
void AddViewCommand(CLI::App& app, int& exitCode);

}  // namespace vorla

#endif
