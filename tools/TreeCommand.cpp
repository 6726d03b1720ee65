// vorla tree: the product structure from the root reference, one line per occurrence.
#include <iostream>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"

namespace vorla {

namespace {

nlohmann::ordered_json ToJson(const Assembly& assembly, const Occurrence& o) {
  nlohmann::ordered_json node;
  if (o.instanceId >= 0) node["instance"] = {{"name", o.name}, {"id", o.instanceId}};
  node["reference"] = {{"name", o.reference}, {"id", o.referenceId}};
  if (!o.externalFile.empty()) node["file"] = o.externalFile;
  node["representations"] = nlohmann::ordered_json::array();
  for (int p : o.parts) {
    node["representations"].push_back(
        {{"name", assembly.parts[p].name}, {"docType", assembly.parts[p].docType}});
  }
  if (!o.problem.empty()) node["problem"] = o.problem;
  if (o.truncated) node["truncated"] = true;
  node["children"] = nlohmann::ordered_json::array();
  for (const Occurrence& child : o.children) node["children"].push_back(ToJson(assembly, child));
  return node;
}

void PrintText(const Assembly& assembly, const Occurrence& o, int depth) {
  const std::string indent(2 * depth, ' ');
  std::cout << indent;
  if (o.instanceId >= 0) {
    std::cout << "instance \"" << o.name << "\" [" << o.instanceId << "] -> ";
    if (!o.externalFile.empty()) std::cout << o.externalFile << ": ";
  }
  if (o.referenceId >= 0 || !o.reference.empty()) {
    std::cout << "reference \"" << o.reference << "\" [" << o.referenceId << "]";
  }
  if (!o.problem.empty()) std::cout << (o.referenceId >= 0 ? ": " : "") << o.problem;
  if (o.truncated) std::cout << " ...";
  std::cout << "\n";
  for (int p : o.parts) {
    std::cout << indent << "  representation \"" << assembly.parts[p].name << "\" "
              << assembly.parts[p].docType << "\n";
  }
  for (const Occurrence& child : o.children) PrintText(assembly, child, depth + 1);
}

}  // namespace

void AddTreeCommand(CLI::App& app, int& exitCode) {
  InspectCommand inspect = AddInspectCommand(
      app, "tree", "The product structure as an indented tree",
      [](const Assembly& assembly, bool json) {
        if (json) {
          std::cout << ToJson(assembly, assembly.root).dump(2) << "\n";
        } else {
          PrintText(assembly, assembly.root, 0);
        }
      },
      exitCode);
  inspect.gather->geometry = false;
  inspect.command
      ->add_option("--depth", inspect.gather->depth, "Levels of instances to show (all by default)")
      ->check(CLI::NonNegativeNumber);
}

}  // namespace vorla
