#include "host/settings.h"

#include <fmt/core.h>

#include <utility>
#include <vector>

#include "host/log.h"
#include "host/profileChanges.h"
#include "host/serviceManager.h"

Settings::Settings(std::string file) : file_(std::move(file)), config_(read()) {}

// A file that has been read once has to be there from then on.
Config Settings::read() {
  file_ = configFile(file_);
  return file_.empty() ? Config() : readConfig(file_);
}

void Settings::setUp() {
  const Config wanted = config_;
  config_.vlanProfiles.clear();
  config_.serviceProfiles.clear();
  changeProfiles(config_, wanted);
}

std::string Settings::reload() {
  serviceManager::reloading();
  std::string problems;
  try {
    problems = follow(read());
    hostlog::information("config", "{} read again", file_.empty() ? "defaults" : file_);
    serviceManager::ready(servingStatus);
  } catch (const ConfigError& problem) {
    problems = problem.what();
    hostlog::error("config", "{}; nothing has changed", problem.what());
    serviceManager::ready("Serving requests; the new configuration was refused, see the log");
  }
  return problems;
}

std::string Settings::follow(const Config& wanted) {
  std::vector<std::string> left = changeProfiles(config_, wanted);
  config_.ports = wanted.ports;
  for (std::string& problem : followPorts_()) left.push_back(std::move(problem));
  const auto keep = [&](const char* key, const std::string& current, const std::string& other) {
    if (current == other) return;
    left.push_back(
        fmt::format("\"{}\" stays \"{}\" until the daemon is started again", key, current));
  };
  keep("bridge", config_.bridge, wanted.bridge);
  keep("classifier", config_.classifier, wanted.classifier);
  if (config_.xdp != wanted.xdp) {
    left.emplace_back("[xdp] stays as it is until the daemon is started again");
  }
  keep("startup", config_.startup, wanted.startup);
  keep("lock", config_.lock, wanted.lock);

  std::string lines;
  for (const std::string& line : left) {
    hostlog::warning("config", "{}", line);
    lines += (lines.empty() ? "" : "\n") + line;
  }
  return lines;
}
