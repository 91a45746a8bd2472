#pragma once

#include <map>
#include <string>
#include <vector>

#include "script/script.h"

namespace cli {

/// What a profile says about protocols.
using Rules = std::map<std::string, script::Rule>;

/// Whether both have rules for the same protocols, whatever these are.
bool sameProtocols(const Rules& one, const Rules& other);

/// What turns the rules of a profile into others: first those that go.
std::vector<script::Command> changes(const std::string& profile, const Rules& before,
                                     const Rules& after);

/// Both as lines of the command language, behind "-" what only `before` has, behind "+" what only
/// `after` has, and behind a blank what both have.
std::vector<std::string> differences(const Rules& before, const Rules& after);

}  // namespace cli
