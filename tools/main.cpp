// vorla: inspect Vorla documents, extract representations, export assemblies to glTF, view
// them in the browser.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Commands.h"
#include "Output.h"

namespace {

constexpr char kTunables[] = "GLIBC_TUNABLES";
constexpr char kHugePages[] = "glibc.malloc.hugetlb=1";

// A large assembly is hundreds of megabytes allocated in small pieces. Where transparent huge
// pages come only on request (the usual "madvise" setting), faulting in 4 KiB pages took half
// of an export's time; glibc's malloc asks for huge pages when its tunable says so, which it
// reads only when a process starts. So vorla starts once more with it, unless tunables of the
// user's own are set; the tunable is then dropped so that programs vorla starts never see it.
void AskMallocForHugePages(char** argv) {
  const char* tunables = std::getenv(kTunables);
  if (tunables == nullptr) {
    setenv(kTunables, kHugePages, 1);
    execv("/proc/self/exe", argv);
    unsetenv(kTunables);  // no /proc: run as started
  } else if (std::strcmp(tunables, kHugePages) == 0) {
    unsetenv(kTunables);
  }
}

}  // namespace

int main(int argc, char** argv) {
  AskMallocForHugePages(argv);
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
