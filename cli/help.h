#pragma once

#include <string>

#include "cli/command.h"

namespace cli {

/// "profile rule add PROFILE PROTOCOL discard|peer|tunnel"
std::string synopsis(const Command& command);

/// Shows help for a command, for the commands that begin with the same words, or for the program,
/// of whose options `options` tells.
void help(const Place& place, const std::string& options, Output& output);

}  // namespace cli
