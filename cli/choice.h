#pragma once

/// Words that may be abbreviated: which of several is meant, and which one somebody who mistyped it
/// may have meant.

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The choice that is the word, or else all that the word is the beginning of.
std::vector<std::string_view> candidates(std::string_view word,
                                         std::span<const std::string_view> choices);

/// The choice that differs least from the word, by letters that are wrong, missing, too many or
/// swapped with their neighbours; empty if none is at all like it.
std::string_view nearest(std::string_view word, std::span<const std::string_view> choices);

/// What to add to a complaint about the word: " (did you mean "list"?)", or nothing.
std::string suggestion(std::string_view word, std::span<const std::string_view> choices);

/// "a", "b" or "c", in quotation marks.
std::string alternatives(std::span<const std::string_view> choices);

}  // namespace cli
