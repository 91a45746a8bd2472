#pragma once

#include <cstddef>
#include <string_view>

namespace script {

/// How many slips turn one word into another: a letter wrong, missing or too many, two neighbours
/// swapped (the optimal string alignment distance). Takes time and memory as the product of the two
/// lengths.
std::size_t slips(std::string_view from, std::string_view to);

}  // namespace script
