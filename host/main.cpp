#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "host/config.h"
#include "host/daemon.h"
#include "host/log.h"
#include "host/paths.h"
#include "host/version.h"

namespace {

// In the order of their importance, as hostlog::Level.
const std::vector<std::string> levels = {"error", "warning", "information", "debug"};

hostlog::Level levelOf(const std::string& word) {
  return static_cast<hostlog::Level>(std::find(levels.begin(), levels.end(), word) -
                                     levels.begin());
}

int checkConfig(const std::string& named) {
  const std::string file = configFile(named);
  if (file.empty()) {
    std::cout << installedConfigFile << ": not there, the defaults hold\n";
    return EXIT_SUCCESS;
  }
  try {
    readConfig(file);
  } catch (const ConfigError& problem) {
    std::cerr << problem.what() << '\n';
    return EXIT_FAILURE;
  }
  std::cout << file << ": ok\n";
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    DaemonOptions options;
    std::string level = "information";
    std::string checked;
    CLI::App app("Management daemon for Layer 2 control protocols. Runs in the foreground.",
                 "l2cpd");
    app.add_option("-c,--config", options.configFile,
                   std::string("Configuration file instead of ") + installedConfigFile)
        ->type_name("FILE");
    const CLI::Option* check =
        app.add_option("--check", checked,
                       "Tell whether the configuration file can be used, and do nothing else")
            ->type_name("FILE")
            ->expected(0, 1)
            ->option_text("[FILE]");
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
    if (check->count() > 0) return checkConfig(checked.empty() ? options.configFile : checked);
    hostlog::setLevel(levelOf(level));
    hostlog::openSystemLog();
    return runDaemon(options);
  } catch (const std::exception& problem) {
    hostlog::error("daemon", "{}", problem.what());
    return EXIT_FAILURE;
  }
}
