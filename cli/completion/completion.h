#pragma once

/// What can stand at some place of a line: for the keys of the shell, and for those of bash and
/// zsh.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/completion/names.h"
#include "cli/completion/synopsis.h"

namespace cli {

struct Suggestion {
  std::string word;     ///< empty: the meaning names an argument of which there is no list
  std::string meaning;  ///< may be empty
  bool operator==(const Suggestion&) const = default;
};
using Suggestions = std::vector<Suggestion>;

/// A line that has the form of a synopsis.
struct LineForm {
  std::string_view synopsis;
  std::string_view summary;  ///< a sentence
};

/// A command line that is being written, without the program's name.
struct CommandLine {
  std::vector<std::string> words;    ///< without options
  std::vector<std::string> options;  ///< with their values
  std::string valueOf;               ///< the last option waits for this value
  bool onlyWords = false;            ///< "--" was among them
};
CommandLine partsOf(std::span<const std::string> words);

/// What can follow these words of a command line, options among them, and begins with `beginning`.
Suggestions suggestCommands(std::span<const std::string> all, std::string_view beginning,
                            Names& names);

/// Whether these words are a whole command line.
bool isWholeCommand(std::span<const std::string> all);

/// The same as for commands, for lines that have one of these forms.
Suggestions suggestLines(std::span<const LineForm> forms, std::span<const std::string> words,
                         std::string_view beginning, Names& names);

/// The words with every keyword in full that is abbreviated to a beginning that only one of those
/// that can stand there has. Throws UsageError for one that could be several.
std::vector<std::string> inFull(std::span<const LineForm> forms, std::vector<std::string> words);

/// What the synopses call the last of these words if it is an argument; empty otherwise.
std::string argumentAt(std::span<const LineForm> forms, std::span<const std::string> words);

}  // namespace cli
