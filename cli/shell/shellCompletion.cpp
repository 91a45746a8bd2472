// What the shell tells about lines that are being written.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "cli/choice.h"
#include "cli/failure.h"
#include "cli/shell/lineStart.h"
#include "cli/shell/shell.h"
#include "cli/shell/shellForms.h"
#include "cli/shell/shown.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::size_t mostToShow = 100;

// What all begin with, but no part of a character.
std::string commonBeginning(const Suggestions& suggestions) {
  std::string common = suggestions.front().word;
  for (const Suggestion& suggestion : suggestions) {
    const auto [end, other] =
        std::mismatch(common.begin(), common.end(), suggestion.word.begin(), suggestion.word.end());
    common.erase(end, common.end());
  }
  while (safeText(common) != common) common.pop_back();
  return common;
}

Suggestions filesThatBegin(const std::string& beginning) {
  Suggestions files;
  const std::size_t slash = beginning.rfind('/');
  const std::string folder = beginning.substr(0, slash == std::string::npos ? 0 : slash + 1);
  std::error_code error;
  for (std::filesystem::directory_iterator each(folder.empty() ? "." : folder, error), end;
       !error && each != end; each.increment(error)) {
    std::error_code unknown;
    const std::string name = each->path().filename().string();
    const std::string file = folder + name + (each->is_directory(unknown) ? "/" : "");
    const bool hidden = name.starts_with('.') && beginning.size() == folder.size();
    const bool canBeTyped = safeText(file) == file;
    if (file.starts_with(beginning) && canBeTyped && !hidden) files.push_back({file, ""});
  }
  std::sort(files.begin(), files.end(),
            [](const Suggestion& a, const Suggestion& b) { return a.word < b.word; });
  return files;
}

Suggestions withFiles(Suggestions suggestions, const std::string& beginning) {
  const auto file = std::find(suggestions.begin(), suggestions.end(), Suggestion{"", "FILE"});
  if (file == suggestions.end()) return suggestions;
  suggestions.erase(file);
  for (Suggestion& each : filesThatBegin(beginning)) suggestions.push_back(std::move(each));
  return suggestions;
}

Suggestions suggestShown(const std::vector<std::string>& words, std::string_view beginning,
                         Names& names) {
  Suggestions suggestions;
  const auto add = [&](const std::vector<std::string_view>& choices) {
    for (const std::string_view choice : choices) {
      if (choice.starts_with(beginning)) suggestions.push_back({std::string(choice), ""});
    }
  };
  if (words.empty()) {
    add(nounsToShow());
    return suggestions;
  }
  std::vector<std::string> command;
  if (words.size() > 1) {
    // Something follows.
    std::vector<std::string> whole = words;
    whole.emplace_back(beginning.empty() ? "WORD" : beginning);
    command = shownBy(whole);
    command.pop_back();
  } else {
    command = shownBy(words);
    auto verbs = verbsToShow(command.front());
    std::erase_if(verbs, [](std::string_view verb) { return verb == "list" || verb == "show"; });
    add(verbs);
    command.back() = "show";
  }
  for (Suggestion& each : suggestCommands(command, beginning, names)) {
    suggestions.push_back(std::move(each));
  }
  return suggestions;
}

std::vector<std::string> withoutProgram(std::vector<std::string> words) {
  if (!words.empty() && words.front() == "l2cpctl") words.erase(words.begin());
  return words;
}

}  // namespace

Suggestions Shell::suggest(LineWords words, std::string_view beginning) {
  try {
    if (configuring_) words = inFull(forms(), std::move(words));
    bool isCommand = !configuring_;
    if (configuring_ && !words.empty() && words.front() == "do") {
      words.erase(words.begin());
      isCommand = true;
    }
    words = withoutProgram(std::move(words));
    const std::string first = words.empty() ? "" : words.front();
    if (first.size() > 1 && std::string_view("show").starts_with(first)) {
      words.erase(words.begin());
      return suggestShown(words, beginning, names_);
    }
    if (!isCommand) return suggestLines(forms(), words, beginning, names_);
    Suggestions suggestions;
    if (!configuring_ && first != "help") {
      suggestions = suggestLines(forms(), words, beginning, names_);
    }
    for (Suggestion& each : suggestCommands(words, beginning, names_)) {
      suggestions.push_back(std::move(each));
    }
    return suggestions;
  } catch (const UsageError&) {
    return {};
  }
}

bool Shell::isWhole(LineWords words) const {
  const auto fits = [&](std::span<const LineForm> all) {
    return std::any_of(all.begin(), all.end(), [&](const LineForm& form) {
      return Synopsis(form.synopsis).isWhole(words);
    });
  };
  return fits(forms()) || (!configuring_ && isWholeCommand(withoutProgram(words)));
}

Completed Shell::complete(std::string_view line) {
  const LineStart start = startOf(line);
  Completed completed{start.from, std::string(line.substr(start.from)),
                      withFiles(suggest(start.words, start.beginning), start.beginning)};
  Suggestions words = completed.choices;
  std::erase_if(words, [](const Suggestion& each) {
    return each.word.empty() || !script::isWritable(each.word);
  });
  if (words.empty()) return completed;
  const std::string common = commonBeginning(words);
  if (words.size() == 1 && !common.ends_with('/')) {
    completed.text = script::nameText(common) + ' ';
  } else if (common.size() > start.beginning.size()) {
    const bool quoted = start.quoted || script::nameText(common) != common;
    completed.text = (quoted ? "\"" : "") + common;
  }
  return completed;
}

std::vector<std::string> Shell::help(std::string_view line) {
  const LineStart start = startOf(line);
  const Suggestions suggestions = withFiles(suggest(start.words, start.beginning), start.beginning);
  std::size_t width = 0;
  for (const Suggestion& each : suggestions) width = std::max(width, characters(each.word));
  std::vector<std::string> lines;
  for (const Suggestion& each : suggestions) {
    if (lines.size() == mostToShow) {
      lines.push_back(fmt::format("  ... and {} more", suggestions.size() - mostToShow));
      break;
    }
    if (each.word.empty()) {
      lines.push_back("  " + each.meaning);
    } else if (each.meaning.empty()) {
      lines.push_back("  " + script::nameText(each.word));
    } else {
      lines.push_back(
          fmt::format("  {:<{}}  {}", script::nameText(each.word), width, each.meaning));
    }
  }
  if (start.beginning.empty() && !start.words.empty() && isWhole(start.words)) {
    lines.emplace_back("  <Enter>");
  }
  if (lines.empty()) lines.emplace_back("  nothing fits here");
  return lines;
}

}  // namespace cli
