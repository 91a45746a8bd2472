#pragma once

#include <span>
#include <string>
#include <string_view>

/// The one of `words` that was probably meant by `word`: the one that the fewest slips turn into it
/// (a letter wrong, missing or too many, two neighbours swapped), no more than one in three
/// letters. The case of letters does not count. Empty if there is none.
std::string_view nearestWord(std::string_view word, std::span<const std::string_view> words);

/// What a message about an unknown word ends with: "; did you mean "bridge"?", or nothing.
std::string suggestion(std::string_view word, std::span<const std::string_view> words);
