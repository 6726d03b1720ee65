// vorla view: the assembly in the browser. The export's glTF and a JSON of the tree and views,
// made once in memory and served with the page on 127.0.0.1 until Ctrl-C.
#include <fcntl.h>
#include <httplib.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "Commands.h"
#include "GltfWriter.h"
#include "Output.h"
#include "WebAssets.h"

extern char** environ;

namespace vorla {

namespace {

// The occurrence and its subtree, numbered as the glTF writer numbers its nodes' extras;
// `document` holds the reference, as the instance that led to another document names it.
nlohmann::ordered_json TreeJson(const Assembly& assembly, const Occurrence& o,
                                const std::string& document, int& next) {
  nlohmann::ordered_json node = {{"occurrence", next++}, {"name", o.name}};
  if (o.instanceId >= 0) node["instanceId"] = o.instanceId;
  node["reference"] = o.reference;
  node["referenceId"] = o.referenceId;
  node["document"] = document;
  if (!o.externalFile.empty()) node["file"] = o.externalFile;
  node["matrix"] = o.matrix;
  node["representations"] = nlohmann::ordered_json::array();
  for (int p : o.parts) {
    node["representations"].push_back(
        {{"name", assembly.parts[p].name}, {"docType", assembly.parts[p].docType}});
  }
  if (!o.problem.empty()) node["problem"] = o.problem;
  node["children"] = nlohmann::ordered_json::array();
  for (const Occurrence& child : o.children) {
    node["children"].push_back(TreeJson(
        assembly, child, child.externalFile.empty() ? document : child.externalFile, next));
  }
  return node;
}

// The tree and the views; a view's "camera" is its index among the glTF's cameras, which the
// writer makes for perspective and parallel viewpoints only, in this order.
std::string AssemblyJson(const Assembly& assembly, const GltfOptions& gltf) {
  int next = 0;
  nlohmann::ordered_json json = {{"file", assembly.file},
                                 {"tree", TreeJson(assembly, assembly.root, assembly.file, next)},
                                 {"views", nlohmann::ordered_json::array()}};
  int cameras = 0;
  for (const View& v : assembly.views) {
    nlohmann::ordered_json view = {{"id", v.id}, {"name", v.name}, {"description", v.description}};
    if (v.kind == View::Kind::kPerspective || v.kind == View::Kind::kParallel) {
      view["camera"] = cameras++;
      view["targetDistance"] = v.targetDistance * gltf.metresPerUnit;
    }
    json["views"].push_back(view);
  }
  return json.dump();
}

// Starts the desktop's browser on `url` when there is one (a missing one is no error), without
// waiting: some openers run the browser in the foreground. Its process id, or 0.
pid_t OpenBrowser(const std::string& url, const sigset_t& signalMask) {
  std::string opener = "xdg-open";
  char* argv[] = {&opener[0], const_cast<char*>(url.c_str()), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  // The usual signal mask, and a process group of its own: Ctrl-C stops the server, not the
  // browser.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &signalMask);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  pid_t pid = 0;
  if (posix_spawnp(&pid, argv[0], &actions, &attributes, argv, environ) != 0) {
    std::cerr << "vorla: no browser opened (no xdg-open); open " << url << "\n";
    pid = 0;
  }
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

}  // namespace

void AddViewCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string file;
    int port = 0;
    bool noOpen = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("view", "Show the assembly in the browser, served on 127.0.0.1");
  command->add_option("FILE", options->file, "Vorla document (archive or XML)")->required();
  command->add_option("--port", options->port, "Port to serve on (0: one the system chooses)")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command->add_flag("--no-open", options->noOpen, "Serve without starting a browser");
  command->callback([options, &exitCode]() {
    Assembly assembly;
    GltfOptions gltf;
    gltf.occurrenceIndices = true;
    std::string model;
    GltfStats stats;
    if (!GatherAndBuildGltf(options->file, false, gltf, assembly, model, stats, exitCode)) return;
    const std::string tree = AssemblyJson(assembly, gltf);
    assembly = Assembly();  // the page needs only what is served

    httplib::Server server;
    // httplib's default also sets SO_REUSEPORT, with which a second server could bind a port
    // another one listens on and share its connections; a port in use must be refused.
    server.set_socket_options([](socket_t socket) {
      int yes = 1;
      setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    // Fixed routes only: no part of a request ever names a file.
    for (const WebAsset& asset : WebAssets()) {
      // Answered from the bytes built into the program, without a copy kept per route.
      server.Get(std::regex_replace(asset.route, std::regex("\\."), "\\."),
                 [&asset](const httplib::Request&, httplib::Response& response) {
                   response.set_content(asset.begin, static_cast<size_t>(asset.end - asset.begin),
                                        asset.type);
                 });
    }
    server.Get("/model\\.glb", [&model](const httplib::Request&, httplib::Response& response) {
      response.set_content(model, "model/gltf-binary");
    });
    server.Get("/assembly\\.json", [&tree](const httplib::Request&, httplib::Response& response) {
      response.set_content(tree, "application/json");
    });
    server.set_default_headers({{"Cache-Control", "no-store"}});

    // From here every thread, the server's included, leaves SIGINT and SIGTERM to the sigwait
    // below, which stops the server outside any signal handler.
    sigset_t stopSignals, previous;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);
    const int port = options->port == 0
                         ? server.bind_to_any_port("127.0.0.1")
                         : (server.bind_to_port("127.0.0.1", options->port) ? options->port : -1);
    if (port < 0) {
      std::cerr << "vorla: cannot serve on 127.0.0.1:" << options->port << "\n";
      exitCode = kExitOutput;
      return;
    }
    // Bound means listening: a browser started now is answered once the server thread runs.
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/";
    std::cout << url << std::endl;
    std::cerr << "vorla: serving " << options->file << " at " << url << " (Ctrl-C stops)\n";
    const pid_t browser = options->noOpen ? 0 : OpenBrowser(url, previous);
    std::atomic<bool> stopping{false}, failed{false};
    std::thread serving([&server, &stopping, &failed]() {
      failed = !server.listen_after_bind() && !stopping;
      if (!stopping) kill(getpid(), SIGTERM);  // wakes the sigwait when serving ends by itself
    });
    int signal = 0;
    sigwait(&stopSignals, &signal);
    stopping = true;
    server.stop();
    serving.join();
    if (browser > 0) waitpid(browser, nullptr, WNOHANG);
    if (failed) {
      std::cerr << "vorla: serving on " << url << " failed\n";
      exitCode = kExitOutput;
    }
  });
}

}  // namespace vorla
