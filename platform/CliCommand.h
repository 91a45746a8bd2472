#pragma once

#include <string>
#include <utility>

#include "platform/CliMode.h"

/// One line of a command script and the mode in which it is entered.
class CliCommand {
 public:
  /// `isDefault` marks a line that only restates a default, `isHidden` one that is kept out of what
  /// an operator is shown.
  CliCommand(CliMode* mode, const std::string& text, bool isDefault, bool isHidden)
      : mode_(mode), text_(text), isDefault_(isDefault), isHidden_(isHidden) {}

  const CliMode* mode() const { return mode_; }
  const std::string& text() const { return text_; }
  bool isDefault() const { return isDefault_; }
  bool isHidden() const { return isHidden_; }

 private:
  const CliMode* mode_;
  std::string text_;
  bool isDefault_;
  bool isHidden_;
};
