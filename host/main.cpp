#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "host/daemon.h"
#include "host/version.h"

int main(int argc, char** argv) {
  try {
    DaemonOptions options;
    CLI::App app("Management daemon for Layer 2 control protocols. Runs in the foreground.",
                 "l2cpd");
    app.add_option("-c,--config", options.configFile, "Configuration file; without it, defaults")
        ->type_name("FILE");
    app.set_version_flag("-V,--version", std::string("l2cpd ") + hostVersion);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
      // The parser has a status of its own for every mistake, and "throws" the help text, too.
      return app.exit(problem) == EXIT_SUCCESS ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    return runDaemon(options);
  } catch (const std::exception& problem) {
    std::cerr << "l2cpd: error: " << problem.what() << '\n';
    return EXIT_FAILURE;
  }
}
