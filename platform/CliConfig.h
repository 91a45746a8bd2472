#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Scripter.h"
#include "platform/singleton.h"

/// The daemon's writer of running configuration.
class CliConfig : public singleton<CliConfig> {
 public:
  /// Takes over a scripter made with `new`, for the life of the process or until it
  /// is removed.
  void addScripter(Scripter* scripter);

  /// Deletes the scripters of that name. For a daemon that is about to unload the library they came
  /// from.
  void removeScripter(const std::string& name);

  /// 1 while the command line replays the script of dynamic profiles, else 0.
  int isScriptingDynamicProfilesMode() const { return scriptingDynamicProfiles_ ? 1 : 0; }
  void setScriptingDynamicProfilesMode(bool on) { scriptingDynamicProfiles_ = on; }

  /// Whether this product's command line has profile modes at all.
  bool checkProfileMode() const { return profileMode_; }
  void setProfileMode(bool on) { profileMode_ = on; }

  /// The lines of all scripters in ascending order; equal ones in the order of their addition.
  std::list<CliCommand> runningConfig(Scripter::ConfigMode mode) const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::unique_ptr<Scripter>> scripters_;
  bool scriptingDynamicProfiles_ = false;
  bool profileMode_ = true;
};

template <>
CliConfig& singleton<CliConfig>::instance();
