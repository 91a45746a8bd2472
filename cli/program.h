#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cli/command.h"

namespace cli {

/// What the program finds around it.
struct Surroundings {
  bool terminal = false;     ///< its answers go to a terminal that knows colours
  bool plainWanted = false;  ///< NO_COLOR is set and not empty
  bool redirected = false;   ///< its answers go to no terminal
  bool watched = false;      ///< its messages go to a terminal
};

/// Carries out one command line, without the program's own name in front. Answers go to `out`, and
/// to `err` one line if something went wrong. Returns the program's exit status, see ExitStatus.
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        const Surroundings& surroundings = {});

/// Carries out the command that these words begin with, or shows its help where that is asked for.
/// Throws Failure; `place` then is how far the words led.
void carryOut(Words words, const Options& options, Client& client, Output& output, Place& place);

}  // namespace cli
