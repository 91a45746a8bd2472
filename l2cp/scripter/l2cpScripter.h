#pragma once

#include "platform/Scripter.h"

/// Writes the protocol catalogue and the profiles as command lines. Attachments are not scripted.
class L2CPScripter : public Scripter {
 public:
  L2CPScripter();

  /// Appends "l2protocol" lines at configuration level, an empty line behind them, and "protocol"
  /// lines in the modes of their profiles. Always true. A profile without entries has no line, and
  /// neither a mask nor a protect flag is written. Takes no lock: hold one around the call for a
  /// consistent script.
  bool buildCliCommands(std::list<CliCommand>& out, ConfigMode mode, bool verbose) override;
};
