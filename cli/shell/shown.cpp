#include "cli/shell/shown.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <span>

#include "cli/choice.h"
#include "cli/command.h"
#include "cli/completion/completion.h"
#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::string_view lookingVerbs[] = {"list",  "show", "status",  "statistics",
                                             "ports", "uses", "profiles"};

std::string_view theOne(const std::string& word, std::span<const std::string_view> found) {
  if (found.size() == 1) return found.front();
  throw UsageError(fmt::format("{} could be {}", quotedText(word), alternatives(found)));
}

std::string_view nounOf(const std::string& word) {
  const auto nouns = nounsToShow();
  const auto found = candidates(word, nouns);
  if (!found.empty()) return theOne(word, found);
  throw UsageError(fmt::format("{} is nothing to show{}; there are: {}", quotedText(word),
                               suggestion(word, nouns), fmt::join(nouns, ", ")));
}

bool isWholeAfter(std::string_view noun, std::string_view verb,
                  const std::vector<std::string>& rest) {
  std::vector<std::string> command{"--", std::string(noun), std::string(verb)};
  command.insert(command.end(), rest.begin(), rest.end());
  return isWholeCommand(command);
}

}  // namespace

std::vector<std::string_view> nounsToShow() {
  std::vector<std::string_view> nouns;
  for (const std::string_view noun : wordsAfter("")) {
    const auto verbs = wordsAfter(noun);
    const bool looks = std::any_of(verbs.begin(), verbs.end(), [](std::string_view verb) {
      return std::find(std::begin(lookingVerbs), std::end(lookingVerbs), verb) !=
             std::end(lookingVerbs);
    });
    if (looks) nouns.push_back(noun);
  }
  return nouns;
}

std::vector<std::string_view> verbsToShow(std::string_view noun) {
  const auto all = wordsAfter(noun);
  std::vector<std::string_view> verbs;
  for (const std::string_view verb : lookingVerbs) {
    if (std::find(all.begin(), all.end(), verb) != all.end()) verbs.push_back(verb);
  }
  return verbs;
}

std::vector<std::string> shownBy(const std::vector<std::string>& words) {
  if (words.empty()) {
    throw UsageError(
        fmt::format("what to show is missing; there are: {}", fmt::join(nounsToShow(), ", ")));
  }
  const std::string_view noun = nounOf(words.front());
  const auto verbs = verbsToShow(noun);
  const auto has = [&](std::string_view verb) {
    return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
  };
  std::vector<std::string> rest{words.begin() + 1, words.end()};
  std::vector<std::string> command{std::string(noun)};
  if (rest.empty()) {
    command.emplace_back(has("list") ? "list" : has("show") ? "show" : verbs.front());
  } else if (!has(rest.front())) {
    // What can be the name of something that is shown is that, not a short word for how.
    const std::string_view usual = has("show") ? "show" : verbs.front();
    const auto found = candidates(rest.front(), verbs);
    if (!found.empty() && !isWholeAfter(noun, usual, rest)) {
      rest.front() = theOne(rest.front(), found);
    } else {
      command.emplace_back(usual);
    }
  }
  command.insert(command.end(), rest.begin(), rest.end());
  return command;
}

}  // namespace cli
