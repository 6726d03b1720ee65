// vorla export: the whole assembly as glTF 2.0, geometry shared between its placements.
#include <iostream>
#include <map>

#include "Commands.h"
#include "GltfWriter.h"
#include "Output.h"

namespace vorla {

namespace {

// Metres per unit of the documents' coordinates.
const std::map<std::string, double> kUnits = {
    {"mm", 0.001}, {"cm", 0.01}, {"m", 1.0}, {"in", 0.0254}, {"ft", 0.3048}};

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

bool GatherAndBuildGltf(const std::string& file, bool quiet, const GltfOptions& gltf,
                        Assembly& assembly, std::string& bytes, GltfStats& stats, int& exitCode) {
  HRESULT code = S_OK;
  {
    Progress progress("reading occurrences", quiet);
    GatherOptions gather;
    gather.progress = [&progress](size_t done) { progress.Update(done); };
    if (!Gather(file, gather, assembly, code)) {
      exitCode = ReportGatherError(file, assembly, code);
      return false;
    }
  }
  PrintWarnings(assembly);
  std::string error;
  if (!BuildGltf(assembly, gltf, bytes, stats, error)) {
    std::cerr << "vorla: " << error << "\n";
    exitCode = kExitOutput;
    return false;
  }
  return true;
}

void AddExportCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string file, output, units = "mm", up = "z";
    bool force = false, gpuInstancing = false, quiet = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("export", "Write the assembly as glTF 2.0");
  command->add_option("FILE", options->file, "Vorla document (archive or XML)")->required();
  command->add_option("-o,--output", options->output, "Output file: .glb (binary) or .gltf")
      ->required();
  command->add_option("--units", options->units, "Unit of the document's coordinates")
      ->check(CLI::IsMember({"mm", "cm", "m", "in", "ft"}))
      ->capture_default_str();
  command->add_option("--up", options->up, "The document's up axis")
      ->check(CLI::IsMember({"z", "y"}))
      ->capture_default_str();
  command->add_flag("--gpu-instancing", options->gpuInstancing,
                    "Use EXT_mesh_gpu_instancing for meshes placed many times");
  command->add_flag("-f,--force", options->force, "Replace an existing output file");
  command->add_flag("-q,--quiet", options->quiet, "No progress and no summary");
  command->callback([options, &exitCode]() {
    GltfOptions gltf;
    gltf.binary = !EndsWith(options->output, ".gltf");
    if (gltf.binary && !EndsWith(options->output, ".glb")) {
      std::cerr << "vorla: the output must end in .glb or .gltf\n";
      exitCode = kExitUsage;
      return;
    }
    gltf.metresPerUnit = kUnits.at(options->units);
    gltf.zUp = options->up == "z";
    gltf.gpuInstancing = options->gpuInstancing;
    Assembly assembly;
    std::string bytes;
    GltfStats stats;
    if (!GatherAndBuildGltf(options->file, options->quiet, gltf, assembly, bytes, stats,
                            exitCode)) {
      return;
    }
    exitCode = WriteOutput(options->output, bytes, options->force);
    if (exitCode == kExitOk && !options->quiet) {
      std::cerr << "vorla: wrote " << options->output << ": " << stats.nodes << " nodes, "
                << stats.meshes << " meshes, " << stats.vertices << " vertices stored, "
                << stats.cameras << " cameras, " << bytes.size() << " bytes\n";
    }
  });
}

}  // namespace vorla
