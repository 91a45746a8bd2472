#pragma once

#include "platform/Scripter.h"

/// Writes what modules leave to the daemon: VLAN profiles, service profiles, attachments to ports,
/// and where service profiles are applied.
class HostScripter : public Scripter {
 public:
  HostScripter() : Scripter("HostScripter") {}

  /// Nothing for dynamic profiles alone, else everything: the daemon has no defaults of its own. An
  /// attachment whose profile the script does not make is a comment. Always true.
  bool buildCliCommands(std::list<CliCommand>& out, ConfigMode mode, bool verbose) override;
};
