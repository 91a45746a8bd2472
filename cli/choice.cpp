#include "cli/choice.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {

namespace {

// The optimal string alignment distance.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        d[i][j] = i + j;
        continue;
      }
      d[i][j] = std::min(
          {d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0U : 1U)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

// Longer than any choice that it could be mistaken for, and too long to be compared with patience.
constexpr std::size_t longestWord = 64;

}  // namespace

std::vector<std::string_view> candidates(std::string_view word,
                                         std::span<const std::string_view> choices) {
  std::vector<std::string_view> found;
  if (word.empty()) return found;
  for (const std::string_view choice : choices) {
    if (choice == word) return {choice};
    if (choice.starts_with(word)) found.push_back(choice);
  }
  return found;
}

std::string_view nearest(std::string_view word, std::span<const std::string_view> choices) {
  if (word.size() > longestWord) return {};
  // A third of the letters may be wrong; one in short words.
  std::size_t least = std::max<std::size_t>(1, word.size() / 3) + 1;
  std::string_view found;
  for (const std::string_view choice : choices) {
    const std::size_t difference = distance(word, choice);
    if (difference < least && difference < word.size()) {
      least = difference;
      found = choice;
    }
  }
  return found;
}

std::string suggestion(std::string_view word, std::span<const std::string_view> choices) {
  const std::string_view meant = nearest(word, choices);
  return meant.empty() ? "" : fmt::format(" (did you mean \"{}\"?)", meant);
}

std::string alternatives(std::span<const std::string_view> choices) {
  std::string text;
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (i != 0) text += i + 1 == choices.size() ? " or " : ", ";
    text += fmt::format("\"{}\"", choices[i]);
  }
  return text;
}

}  // namespace cli
