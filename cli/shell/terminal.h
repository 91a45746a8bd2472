#pragma once

#include <ostream>

#include "cli/command.h"
#include "cli/program.h"

namespace cli {

/// Runs the shell on the terminal that is the program's standard input and output, until somebody
/// leaves it or the terminal goes away. The terminal and all signals are then as they were.
void runShell(const Options& options, const Surroundings& surroundings, std::ostream& out,
              std::ostream& err);

}  // namespace cli
