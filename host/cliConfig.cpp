#include "platform/CliConfig.h"

#include <algorithm>
#include <map>
#include <tuple>

CliMode* CliMode::cliMode(scriptingProductDefs::CliModeId id, const char* name, CliMode* parent) {
  using Key = std::tuple<scriptingProductDefs::CliModeId, std::string, const CliMode*>;
  static std::mutex mutex;
  static std::map<Key, std::unique_ptr<CliMode>> modes;

  const std::lock_guard lock(mutex);
  Key key(id, name == nullptr ? "" : name, parent);
  std::unique_ptr<CliMode>& mode = modes[key];
  if (!mode) mode = std::make_unique<CliMode>(id, std::get<std::string>(key), parent);
  return mode.get();
}

template <>
CliConfig& singleton<CliConfig>::instance() {
  static CliConfig config;
  return config;
}

void CliConfig::addScripter(Scripter* scripter) {
  const std::lock_guard lock(mutex_);
  const auto behind = std::upper_bound(
      scripters_.begin(), scripters_.end(), scripter->order(),
      [](int order, const std::unique_ptr<Scripter>& known) { return order < known->order(); });
  scripters_.emplace(behind, scripter);
}

void CliConfig::removeScripter(const std::string& name) {
  const std::lock_guard lock(mutex_);
  std::erase_if(scripters_, [&](const auto& scripter) { return scripter->name() == name; });
}

std::list<CliCommand> CliConfig::runningConfig(Scripter::ConfigMode mode) const {
  const std::lock_guard lock(mutex_);
  std::list<CliCommand> commands;
  for (const auto& scripter : scripters_) scripter->buildCliCommands(commands, mode, false);
  return commands;
}
