#include "cli/help.h"

#include <fmt/format.h>

namespace cli {

namespace {

void helpForCommand(const Command& command, Output& output) {
  output.line(fmt::format("Usage: l2cpctl [OPTIONS] {}\n\n{}", synopsis(command), command.summary));
  if (!command.notes.empty()) output.line(fmt::format("\n{}", command.notes));
  output.line(fmt::format("\nExample:\n  {}", command.example));
}

void helpForSeveral(std::string_view words, Output& output) {
  const auto commands = commandsWith(words);
  output.line(fmt::format("Usage: l2cpctl [OPTIONS] {} COMMAND\n\nCommands:", words));
  for (const Command* command : commands) {
    output.line(fmt::format("  {}\n      {}", synopsis(*command), command->summary));
  }
  output.line(fmt::format("\nExample:\n  {}", commands.front()->example));
  output.line(fmt::format("\n\"l2cpctl {} ... --help\" says more about each.", words));
}

void helpForAll(const std::string& options, Output& output) {
  output.line(
      "Usage: l2cpctl [OPTIONS] COMMAND\n\n"
      "Shows and changes what a switch does with the frames of Layer 2 control protocols, by "
      "asking\n"
      "its daemon, l2cpd. Without a COMMAND, and before a terminal, it is a shell.\n\nCommands:");
  for (const Noun* noun : allNouns()) {
    output.line(fmt::format("  {:<17}{}", noun->name, noun->summary));
  }
  output.text(options);
  output.line(
      "\nWords of commands may be abbreviated: \"l2cpctl prof li\" is \"l2cpctl profile list\".\n"
      "\nExample:\n  l2cpctl profile rule add customer LLDP tunnel\n\n"
      "\"l2cpctl COMMAND --help\" says more about each.");
}

}  // namespace

std::string synopsis(const Command& command) {
  return fmt::format("{}{}{}", command.name, command.arguments.empty() ? "" : " ",
                     command.arguments);
}

void help(const Place& place, const std::string& options, Output& output) {
  if (place.command != nullptr) {
    helpForCommand(*place.command, output);
  } else if (place.words.empty()) {
    helpForAll(options, output);
  } else {
    helpForSeveral(place.words, output);
  }
}

}  // namespace cli
