// What every command shares: exit codes, messages, writing output files safely, progress.
#ifndef VORLA_OUTPUT_H
#define VORLA_OUTPUT_H

#include <cstddef>
#include <string>

#include "Assembly.h"

namespace vorla {

enum ExitCode { kExitOk = 0, kExitDocument = 1, kExitUsage = 2, kExitOutput = 3 };

// Says on stderr why `file` cannot be read; returns kExitDocument.
int ReportDocumentError(const std::string& file, HRESULT code);
// The same for a failed Gather: the load code, or the assembly's error.
int ReportGatherError(const std::string& file, const Assembly& assembly, HRESULT code);
// A sentence for a load code.
std::string DescribeLoadCode(HRESULT code);
// Prints the assembly's warnings on stderr, one "vorla: warning: " line each.
void PrintWarnings(const Assembly& assembly);

// Writes `bytes` to `path` ("-": standard output) through a temporary file renamed into place,
// so a failed run leaves neither a half-written file nor a damaged old one. An existing file is
// replaced only with `force`. kExitOk, or kExitOutput with the reason on stderr.
int WriteOutput(const std::string& path, const std::string& bytes, bool force);

// A one-line counter on stderr, shown only when stderr is a terminal and not silenced.
class Progress {
 public:
  Progress(const char* what, bool quiet);
  ~Progress();
  void Update(size_t done);

 private:
  const char* _What;
  bool _Shown;
  bool _Used = false;
};

}  // namespace vorla

#endif
