// vorla views: the default and alternate views, their cameras and overridden occurrences.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Commands.h"
#include "Output.h"

namespace vorla {

namespace {

const char* KindName(View::Kind kind) {
  switch (kind) {
    case View::Kind::kCustom:
      return "custom";
    case View::Kind::kPerspective:
      return "perspective";
    case View::Kind::kParallel:
      return "parallel";
    default:
      return "unreadable";
  }
}

// A float as the double a reader expects (0.8, not 0.800000011920929).
double Plain(float f) {
  char text[32];
  std::snprintf(text, sizeof text, "%.7g", f);
  return std::strtod(text, nullptr);
}

std::vector<double> Plain(const std::array<float, 3>& v) {
  return {Plain(v[0]), Plain(v[1]), Plain(v[2])};
}

std::string Triple(const std::array<float, 3>& v) {
  std::ostringstream out;
  out << "(" << v[0] << ", " << v[1] << ", " << v[2] << ")";
  return out.str();
}

}  // namespace

void AddViewsCommand(CLI::App& app, int& exitCode) {
  InspectCommand inspect = AddInspectCommand(
      app, "views", "Views, their viewpoints and overrides",
      [](const Assembly& assembly, bool json) {
        nlohmann::ordered_json views = nlohmann::ordered_json::array();
        for (const View& v : assembly.views) {
          const bool camera = v.kind == View::Kind::kPerspective || v.kind == View::Kind::kParallel;
          if (json) {
            nlohmann::ordered_json view = {{"id", v.id},
                                           {"name", v.name},
                                           {"description", v.description},
                                           {"viewpoint", KindName(v.kind)}};
            if (camera) {
              view["position"] = Plain(v.position);
              view["sight"] = Plain(v.sight);
              view["up"] = Plain(v.up);
              view["targetDistance"] = Plain(v.targetDistance);
              view["nearPlaneDistance"] = Plain(v.nearPlane);
              view["farPlaneDistance"] = Plain(v.farPlane);
              view[v.kind == View::Kind::kPerspective ? "fieldOfView" : "visualizedHeight"] =
                  Plain(v.kind == View::Kind::kPerspective ? v.fieldOfView : v.height);
            }
            view["occurrences"] = v.occurrences;
            views.push_back(view);
            continue;
          }
          std::cout << "view " << v.id << " \"" << v.name << "\": " << KindName(v.kind)
                    << " viewpoint\n";
          if (!v.description.empty()) std::cout << "  " << v.description << "\n";
          if (camera) {
            std::cout << "  position " << Triple(v.position) << ", sight " << Triple(v.sight)
                      << ", up " << Triple(v.up) << "\n  target distance " << v.targetDistance
                      << ", near " << v.nearPlane << ", far " << v.farPlane << ", "
                      << (v.kind == View::Kind::kPerspective ? "field of view " : "height ")
                      << (v.kind == View::Kind::kPerspective ? v.fieldOfView : v.height) << "\n";
          }
          if (!v.occurrences.empty()) {
            std::cout << "  overrides occurrences";
            for (int o : v.occurrences) std::cout << " " << o;
            std::cout << "\n";
          }
        }
        if (json) std::cout << views.dump(2) << "\n";
        if (assembly.views.empty() && !json) std::cout << "no views\n";
      },
      exitCode);
  inspect.gather->depth = 0;  // the views need no structure
  inspect.gather->geometry = false;
}

}  // namespace vorla
