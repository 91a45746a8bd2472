#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "host/daemon.h"
#include "host/log.h"
#include "host/version.h"

namespace {

// In the order of their importance, as hostlog::Level.
const std::vector<std::string> levels = {"error", "warning", "information", "debug"};

hostlog::Level levelOf(const std::string& word) {
  return static_cast<hostlog::Level>(std::find(levels.begin(), levels.end(), word) -
                                     levels.begin());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    DaemonOptions options;
    std::string level = "information";
    CLI::App app("Management daemon for Layer 2 control protocols. Runs in the foreground.",
                 "l2cpd");
    app.add_option("-c,--config", options.configFile, "Configuration file; without it, defaults")
        ->type_name("FILE");
    app.add_option("--log-level", level, "Least important messages in the log")
        ->check(CLI::IsMember(levels))
        ->option_text("error|warning|information|debug");
    app.set_version_flag("-V,--version", std::string("l2cpd ") + hostVersion);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
      // The parser has a status of its own for every mistake, and "throws" the help text, too.
      return app.exit(problem) == EXIT_SUCCESS ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    hostlog::setLevel(levelOf(level));
    hostlog::openSystemLog();
    return runDaemon(options);
  } catch (const std::exception& problem) {
    hostlog::error("daemon", "{}", problem.what());
    return EXIT_FAILURE;
  }
}
