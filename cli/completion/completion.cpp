#include "cli/completion/completion.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "cli/choice.h"
#include "cli/command.h"
#include "cli/failure.h"
#include "cli/program.h"
#include "cli/value.h"

namespace cli {

namespace {

// What cannot be shown as it is cannot be typed either.
bool canBeTyped(std::string_view name) { return !name.empty() && safeText(name) == name; }

void add(Suggestions& suggestions, std::string_view beginning, std::string_view word,
         std::string_view meaning) {
  if (!word.starts_with(beginning)) return;
  Suggestion suggestion{std::string(word), std::string(meaning)};
  const auto same = [&](const Suggestion& other) { return other.word == suggestion.word; };
  if (!word.empty() && std::any_of(suggestions.begin(), suggestions.end(), same)) return;
  suggestions.push_back(std::move(suggestion));
}

// The noun's own things, for arguments that are called by no more than NAME.
NameKind kindOfNoun(std::string_view command) {
  if (command.starts_with("protocol ")) return NameKind::protocol;
  if (command.starts_with("profile ")) return NameKind::profile;
  if (command.starts_with("service-profile ")) return NameKind::serviceProfile;
  if (command.starts_with("vlan-profile ")) return NameKind::vlanProfile;
  return NameKind::none;
}

NameKind kindOf(std::string_view argument, std::string_view command, std::string_view before) {
  if (argument == "PROTOCOL") return NameKind::protocol;
  if (argument == "PROFILE") {
    const std::string_view keyword = "vlan-profile";
    return before.size() > 1 && keyword.starts_with(before) ? NameKind::vlanProfile
                                                            : NameKind::profile;
  }
  if (argument == "COPY") return NameKind::profile;
  if (argument == "SERVICE-PROFILE") return NameKind::serviceProfile;
  if (argument == "VLAN-PROFILE") return NameKind::vlanProfile;
  if (argument == "PORT" || argument == "INTERFACE") return NameKind::port;
  if (argument == "NAME" || argument == "OLD") {
    return command.ends_with(" add") ? NameKind::none : kindOfNoun(command);
  }
  // A protocol takes another one's place.
  if (argument == "NEW" && command == "protocol rename") return NameKind::protocol;
  return NameKind::none;
}

void addExpected(Suggestions& suggestions, const Expected& expected, std::string_view command,
                 std::string_view before, std::string_view beginning, std::string_view summary,
                 Names& names) {
  if (!expected.argument) return add(suggestions, beginning, expected.word, summary);
  const auto there = names.of(kindOf(expected.word, command, before));
  for (const std::string& name : there) {
    if (canBeTyped(name)) add(suggestions, beginning, name, expected.word);
  }
  if (beginning.empty() || there.empty()) suggestions.push_back({"", expected.word});
}

// ---- Options ----

const OptionName* find(const std::vector<OptionName>& options, std::string_view name) {
  const auto found = std::find_if(options.begin(), options.end(), [&](const OptionName& option) {
    return std::find(option.names.begin(), option.names.end(), name) != option.names.end();
  });
  return found == options.end() ? nullptr : &*found;
}

// What this word with options waits for.
std::string valueOf(const std::vector<OptionName>& options, std::string_view word) {
  if (word.starts_with("--")) {
    const OptionName* const option = find(options, word);
    return option == nullptr ? "" : option->value;
  }
  for (std::size_t i = 1; i < word.size(); ++i) {
    const OptionName* const option = find(options, fmt::format("-{}", word[i]));
    if (option != nullptr && !option->value.empty()) {
      return i + 1 == word.size() ? option->value : "";
    }
  }
  return "";
}

bool isOption(std::string_view word) {
  return word.size() > 1 && word.front() == '-' && !isNumber(word.substr(1));
}

void addValues(Suggestions& suggestions, const std::string& value, std::string_view beginning,
               std::string_view before = "") {
  if (value == "WHEN") {
    for (const char* when : {"auto", "always", "never"}) {
      add(suggestions, beginning, fmt::format("{}{}", before, when), "");
    }
  } else {
    suggestions.push_back({"", value});
  }
}

// An option, or what is behind the "=" of one.
Suggestions suggestOptions(std::string_view beginning) {
  Suggestions suggestions;
  const std::vector<OptionName> options = optionNames();
  const std::size_t length = beginning.find('=');
  if (length != std::string_view::npos) {
    const std::string value = valueOf(options, beginning.substr(0, length));
    if (!value.empty()) {
      addValues(suggestions, value, beginning, beginning.substr(0, length + 1));
    }
    return suggestions;
  }
  for (const OptionName& option : options) {
    // The long name says more, unless a short one is being written.
    const bool isShort = beginning.size() > 1 && beginning[1] != '-';
    for (const std::string& name : option.names) {
      if (isShort || name.starts_with("--")) add(suggestions, beginning, name, option.meaning);
    }
  }
  return suggestions;
}

// ---- Commands ----

std::string summaryOf(const std::string& words) {
  for (const Noun* noun : allNouns()) {
    if (noun->name == words) return std::string(noun->summary);
  }
  const auto commands = commandsWith(words);
  return commands.size() == 1 ? std::string(commands.front()->summary) : "";
}

// Goes as far as the words lead. False for words that lead nowhere.
bool findPlace(Words& words, Place& place) {
  try {
    takePlace(words, place);
    return true;
  } catch (const UsageError&) {
    return false;
  }
}

std::vector<std::string> argumentsIn(Words words) {
  std::vector<std::string> arguments;
  while (!words.empty()) arguments.push_back(words.take(""));
  return arguments;
}

// ---- Forms of lines ----

std::vector<Expected> expectedAfter(std::span<const LineForm> forms,
                                    std::span<const std::string> words) {
  std::vector<Expected> expected;
  for (const LineForm& form : forms) {
    for (Expected& here : Synopsis(form.synopsis).after(words)) {
      if (std::find(expected.begin(), expected.end(), here) == expected.end()) {
        expected.push_back(std::move(here));
      }
    }
  }
  return expected;
}

}  // namespace

CommandLine partsOf(std::span<const std::string> words) {
  const std::vector<OptionName> known = optionNames();
  CommandLine line;
  for (const std::string& word : words) {
    if (!line.valueOf.empty()) {
      line.options.push_back(word);
      line.valueOf.clear();
    } else if (!line.onlyWords && word == "--") {
      line.onlyWords = true;
    } else if (!line.onlyWords && isOption(word)) {
      line.options.push_back(word);
      line.valueOf = valueOf(known, word);
    } else {
      line.words.push_back(word);
    }
  }
  return line;
}

Suggestions suggestCommands(std::span<const std::string> all, std::string_view beginning,
                            Names& names) {
  const CommandLine line = partsOf(all);
  if (!line.valueOf.empty()) {
    Suggestions values;
    addValues(values, line.valueOf, beginning);
    return values;
  }
  if (!line.onlyWords && beginning.starts_with('-')) return suggestOptions(beginning);

  Suggestions suggestions;
  Words words(line.words);
  Place place;
  if (!findPlace(words, place)) return suggestions;
  if (place.command == nullptr) {
    for (const std::string_view word : wordsAfter(place.words)) {
      add(suggestions, beginning, word,
          summaryOf(fmt::format("{}{}{}", place.words, place.words.empty() ? "" : " ", word)));
    }
    return suggestions;
  }
  if (place.help) return suggestions;
  const std::vector<std::string> arguments = argumentsIn(words);
  const std::string before = arguments.empty() ? "" : arguments.back();
  for (const Expected& expected : Synopsis(place.command->arguments).after(arguments)) {
    if (expected.word.starts_with('-')) continue;
    addExpected(suggestions, expected, place.command->name, before, beginning, "", names);
  }
  return suggestions;
}

bool isWholeCommand(std::span<const std::string> all) {
  const CommandLine line = partsOf(all);
  Words words(line.words);
  Place place;
  if (!line.valueOf.empty() || !findPlace(words, place) || place.command == nullptr) return false;
  return Synopsis(place.command->arguments).isWhole(argumentsIn(words));
}

Suggestions suggestLines(std::span<const LineForm> forms, std::span<const std::string> words,
                         std::string_view beginning, Names& names) {
  Suggestions suggestions;
  const std::string before = words.empty() ? "" : words.back();
  for (const LineForm& form : forms) {
    for (const Expected& expected : Synopsis(form.synopsis).after(words)) {
      addExpected(suggestions, expected, "", before, beginning, words.empty() ? form.summary : "",
                  names);
    }
  }
  return suggestions;
}

std::vector<std::string> inFull(std::span<const LineForm> forms, std::vector<std::string> words) {
  for (std::size_t at = 0; at < std::min(words.size(), Synopsis::mostWords); ++at) {
    const auto expected = expectedAfter(forms, std::span(words).first(at));
    if (std::any_of(expected.begin(), expected.end(),
                    [](const Expected& here) { return here.argument; })) {
      continue;
    }
    std::vector<std::string_view> keywords;
    keywords.reserve(expected.size());
    for (const Expected& here : expected) keywords.emplace_back(here.word);
    const auto found = candidates(words[at], keywords);
    if (found.size() > 1) {
      throw UsageError(fmt::format("{} could be {}", quotedText(words[at]), alternatives(found)));
    }
    if (found.size() == 1) words[at] = found.front();
  }
  return words;
}

std::string argumentAt(std::span<const LineForm> forms, std::span<const std::string> words) {
  if (words.empty()) return "";
  const auto expected = expectedAfter(forms, words.first(words.size() - 1));
  const bool one = expected.size() == 1 && expected.front().argument;
  return one ? expected.front().word : "";
}

}  // namespace cli
