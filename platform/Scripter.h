#pragma once

#include <list>
#include <string>
#include <utility>

#include "platform/CliCommand.h"

/// Writes one module's share of the running configuration as command lines.
class Scripter {
 public:
  enum ConfigMode : int {
    configDifferences = 0,      ///< what differs from the defaults
    configAll = 1,              ///< everything, defaults included
    configDynamicProfiles = 2,  ///< dynamic profiles alone
  };

  virtual ~Scripter() = default;

  /// Appends this module's lines to `out`. Returns false when they could not be made.
  virtual bool buildCliCommands(std::list<CliCommand>& out, ConfigMode mode, bool verbose) = 0;

  Scripter(const Scripter&) = delete;
  Scripter& operator=(const Scripter&) = delete;

  const std::string& name() const { return name_; }
  /// Scripters run in ascending order of this number.
  int order() const { return order_; }

 protected:
  explicit Scripter(std::string name) : name_(std::move(name)) {}

  int order_ = 100;

 private:
  std::string name_;
};
