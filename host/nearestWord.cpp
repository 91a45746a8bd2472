#include "host/nearestWord.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>

#include "script/slips.h"

namespace {

std::string lower(std::string_view word) {
  std::string letters(word);
  for (char& c : letters) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return letters;
}

}  // namespace

std::string_view nearestWord(std::string_view word, std::span<const std::string_view> words) {
  // A word of any length may be asked for; none that is much longer than all others is near.
  constexpr std::size_t longestWord = 256;
  if (word.size() > longestWord) return {};
  const std::string written = lower(word);
  std::string_view nearest;
  std::size_t fewest = std::max<std::size_t>(1, word.size() / 3) + 1;
  for (const std::string_view candidate : words) {
    const std::size_t count = script::slips(written, lower(candidate));
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
