#include "cli/choice.h"

#include <fmt/format.h>

#include <algorithm>

#include "script/slips.h"

namespace cli {

namespace {

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
    const std::size_t difference = script::slips(word, choice);
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
