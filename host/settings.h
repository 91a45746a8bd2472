#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/config.h"

/// The configuration that the daemon runs with, and how it follows its file.
class Settings {
 public:
  /// Reads `file`. An empty name stands for the installed file if there is one, else the defaults
  /// hold. Throws ConfigError.
  explicit Settings(std::string file);

  const Config& config() const { return config_; }

  /// Makes the profiles that the file names. To be called while there are none.
  void setUp();

  /// Called after each reload, on the thread of the RPC loop: what was not in force before is tried
  /// again. Says what of the ports is not in force.
  using FollowPorts = std::function<std::vector<std::string>()>;
  void onPorts(FollowPorts follow) { followPorts_ = std::move(follow); }

  /// Reads the file again and puts in force what has changed. The service manager is told that this
  /// begins and ends; the log, what became of it. A file that cannot be used changes nothing.
  /// Returns an empty text, or why not all of the file is in force, a line for each reason. For the
  /// thread of the RPC loop.
  std::string reload();

 private:
  Config read();
  std::string follow(const Config& wanted);

  std::string file_;
  Config config_;
  FollowPorts followPorts_ = [] { return std::vector<std::string>(); };
};

/// What the service manager shows while requests are served.
inline constexpr const char* servingStatus = "Serving requests";
