// vorla: inspect Vorla documents, extract representations, export assemblies to glTF, view
// them in the browser.
#include <iostream>

#include "Commands.h"
#include "Output.h"

int main(int argc, char** argv) {
  CLI::App app{"Inspect Vorla documents and export their assemblies to glTF.", "vorla"};
  app.require_subcommand(1);
  app.set_version_flag("--version", "vorla 0.1");
  int exitCode = vorla::kExitOk;
  vorla::AddInfoCommand(app, exitCode);
  vorla::AddTreeCommand(app, exitCode);
  vorla::AddRepsCommand(app, exitCode);
  vorla::AddViewsCommand(app, exitCode);
  vorla::AddExtractCommand(app, exitCode);
  vorla::AddExportCommand(app, exitCode);
  vorla::AddViewCommand(app, exitCode);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help and --version are successes; anything else is wrong usage.
    const int shown = app.exit(e);
    return e.get_exit_code() == 0 ? shown : vorla::kExitUsage;
  }
  return exitCode;
}
