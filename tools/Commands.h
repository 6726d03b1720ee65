// The subcommands of `vorla`; each adds itself to the application and sets the exit code
// when it runs.
#ifndef VORLA_COMMANDS_H
#define VORLA_COMMANDS_H

#include <CLI/CLI.hpp>

namespace vorla {

void AddInfoCommand(CLI::App& app, int& exitCode);
void AddTreeCommand(CLI::App& app, int& exitCode);
void AddRepsCommand(CLI::App& app, int& exitCode);
void AddViewsCommand(CLI::App& app, int& exitCode);
void AddExtractCommand(CLI::App& app, int& exitCode);
void AddExportCommand(CLI::App& app, int& exitCode);

}  // namespace vorla

#endif
