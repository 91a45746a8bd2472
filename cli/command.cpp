#include "cli/command.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/choice.h"
#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::string_view helpWord = "help";

const Noun* const nouns[] = {
    &protocolNoun, &profileNoun,        &attachNoun,      &detachNoun,        &portNoun,
    &vlanNoun,     &feedNoun,           &explainNoun,     &watchNoun,         &metricsNoun,
    &checkNoun,    &serviceProfileNoun, &vlanProfileNoun, &runningConfigNoun, &loadNoun,
    &diffNoun,     &applyNoun,          &daemonNoun,      &completeNoun};

bool beginsWith(const Command& command, std::string_view words) {
  return words.empty() || command.name == words ||
         (command.name.starts_with(words) && command.name[words.size()] == ' ');
}

}  // namespace

std::span<const Noun* const> allNouns() { return nouns; }

std::vector<const Command*> commandsWith(std::string_view words) {
  std::vector<const Command*> found;
  for (const Noun* noun : nouns) {
    for (const Command& command : noun->commands) {
      if (beginsWith(command, words)) found.push_back(&command);
    }
  }
  return found;
}

std::vector<std::string_view> wordsAfter(std::string_view words) {
  std::vector<std::string_view> choices;
  for (const Command* command : commandsWith(words)) {
    if (command->name == words) continue;
    std::string_view rest = command->name.substr(words.empty() ? 0 : words.size() + 1);
    rest = rest.substr(0, rest.find(' '));
    if (std::find(choices.begin(), choices.end(), rest) == choices.end()) choices.push_back(rest);
  }
  return choices;
}

void takePlace(Words& words, Place& place) {
  while (!words.empty() && place.command == nullptr) {
    const auto choices = wordsAfter(place.words);
    const std::string word = words.take("a command");
    auto withHelp = choices;
    if (!place.help) withHelp.push_back(helpWord);
    const auto found = candidates(word, withHelp);
    if (found.size() == 1 && found.front() == helpWord) {
      place.help = true;
      continue;
    }
    if (found.empty()) {
      throw UsageError(fmt::format("{} is no command{}; there are: {}", quotedText(word),
                                   suggestion(word, choices), fmt::join(choices, ", ")));
    }
    if (found.size() > 1) {
      throw UsageError(fmt::format("{} could be {}", quotedText(word), alternatives(found)));
    }
    if (!place.words.empty()) place.words += ' ';
    place.words += found.front();
    const Command* first = commandsWith(place.words).front();
    if (first->name == place.words) place.command = first;
  }
}

}  // namespace cli
