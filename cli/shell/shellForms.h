#pragma once

#include <span>

#include "cli/completion/completion.h"
#include "script/script.h"

namespace cli {

/// The lines that the shell has besides commands, and the lines of each mode.
std::span<const LineForm> topForms();
std::span<const LineForm> modeForms(script::Mode mode);

/// About keys and levels, for somebody who is new here.
std::string_view shellHelp();

}  // namespace cli
