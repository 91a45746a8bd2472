#include <algorithm>
#include <istream>
#include <utility>

#include "script/script.h"

namespace script {

namespace {

// A reader in the mode that a line was to enter, if it was.
Reader inModeOf(std::string_view line) {
  constexpr std::string_view blanks = " \t";
  line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
  const std::string word(line.substr(0, line.find_first_of(blanks)));
  Reader reader;
  if (word == "l2cp-profile" || word == "vlan-profile" || word == "service-profile") {
    reader.read(word + " unknown");
  }
  return reader;
}

}  // namespace

Script parse(std::istream& lines) {
  Script script;
  Reader reader;
  // In a mode that could not be entered.
  bool skipping = false;
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    try {
      Command command = reader.read(line);
      if (std::holds_alternative<Nothing>(command)) continue;
      if (!skipping) {
        script.statements.push_back({number, std::move(command)});
      } else if (!std::holds_alternative<Exit>(command)) {
        ++script.leftOut;
      }
    } catch (const Problem& problem) {
      script.mistakes.push_back({number, problem.what()});
      if (reader.mode() == Mode::configuration) {
        reader = inModeOf(line);
        skipping = true;
      }
    }
    if (reader.mode() == Mode::configuration) skipping = false;
  }
  return script;
}

bool entersMode(const Command& command) {
  return std::holds_alternative<L2cpProfile>(command) ||
         std::holds_alternative<VlanProfile>(command) ||
         std::holds_alternative<ServiceProfile>(command);
}

}  // namespace script
