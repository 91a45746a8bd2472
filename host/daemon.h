#pragma once

#include <string>

/// What l2cpd is told on its command line.
struct DaemonOptions {
  std::string configFile;  ///< empty: the installed one, if there is one
};

/// Runs the daemon in the foreground until SIGTERM or SIGINT: starts the entities, serves
/// requests, stops the entities. Returns the exit status: 0, or 1 with the reason in the log.
int runDaemon(const DaemonOptions& options);
