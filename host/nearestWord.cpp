#include "host/nearestWord.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace {

bool isSame(char first, char second) {
  const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  return lower(first) == lower(second);
}

// The optimal string alignment distance.
std::size_t slips(std::string_view from, std::string_view to) {
  std::vector<std::vector<std::size_t>> least(from.size() + 1,
                                              std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) least[i][0] = i;
  for (std::size_t j = 0; j <= to.size(); ++j) least[0][j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t wrong = isSame(from[i - 1], to[j - 1]) ? 0 : 1;
      least[i][j] =
          std::min({least[i - 1][j] + 1, least[i][j - 1] + 1, least[i - 1][j - 1] + wrong});
      if (i > 1 && j > 1 && isSame(from[i - 1], to[j - 2]) && isSame(from[i - 2], to[j - 1])) {
        least[i][j] = std::min(least[i][j], least[i - 2][j - 2] + 1);
      }
    }
  }
  return least[from.size()][to.size()];
}

}  // namespace

std::string_view nearestWord(std::string_view word, std::span<const std::string_view> words) {
  // A word of any length may be asked for; none that is much longer than all others is near.
  constexpr std::size_t longestWord = 256;
  if (word.size() > longestWord) return {};
  std::string_view nearest;
  std::size_t fewest = std::max<std::size_t>(1, word.size() / 3) + 1;
  for (const std::string_view candidate : words) {
    const std::size_t count = slips(word, candidate);
    if (count >= fewest) continue;
    fewest = count;
    nearest = candidate;
  }
  return nearest;
}

std::string suggestion(std::string_view word, std::span<const std::string_view> words) {
  const std::string_view nearest = nearestWord(word, words);
  return nearest.empty() ? "" : fmt::format("; did you mean \"{}\"?", nearest);
}
