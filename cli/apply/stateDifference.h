#pragma once

#include <string>
#include <vector>

#include "cli/apply/state.h"

namespace cli {

/// The lines of the second state that the first one lacks, with "+" in front, those it has too
/// many, with "-", and with a blank those that enter the modes in which others stand. An attachment
/// that only changes its place among others has one of each. Behind the sign, what no script can
/// say is a comment. Nothing if there is no difference.
std::vector<std::string> linesBetween(const State& current, const State& wanted);

}  // namespace cli
