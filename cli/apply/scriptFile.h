#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "cli/words.h"
#include "script/script.h"

namespace cli {

/// A script, and what to call it in messages.
struct ScriptFile {
  std::string name;
  script::Script script;

  /// "FILE:LINE: reason"
  std::string message(std::size_t line, std::string_view reason) const;
};

/// Takes FILE, where "-" is standard input, and reads the script to its end. Throws UsageError if
/// the word is missing, and LocalError if the file cannot be read.
ScriptFile takeScript(Words& words);

/// The same, with standard input unless that is a terminal if there is no word.
ScriptFile takeScriptOrInput(Words& words);

}  // namespace cli
