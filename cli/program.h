#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace cli {

/// Carries out one command line, without the program's own name in front. Answers go to `out`, and
/// to `err` one line if something went wrong. Returns the program's exit status, see ExitStatus.
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace cli
