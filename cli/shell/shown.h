#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// What "show" and these words mean as a command: a noun's "show", "list" for nothing behind the
/// noun, or another verb that only looks. Throws UsageError for words that mean nothing.
std::vector<std::string> shownBy(const std::vector<std::string>& words);

/// The words that can follow "show", and those that can follow a noun besides what its "show"
/// takes.
std::vector<std::string_view> nounsToShow();
std::vector<std::string_view> verbsToShow(std::string_view noun);

}  // namespace cli
