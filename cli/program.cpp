#include "cli/program.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "cli/command.h"
#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr int longestTimeout = 3600;
constexpr std::size_t optionColumn = 26;

const Noun* const nouns[] = {&protocolNoun, &profileNoun, &attachNoun, &detachNoun,
                             &portNoun,     &vlanNoun,    &feedNoun,   &daemonNoun};

// ---- Command line ----

std::unique_ptr<CLI::App> parser(Options& options) {
  auto app = std::make_unique<CLI::App>("", "l2cpctl");
  app->set_help_flag();
  app->allow_extras();
  app->add_option("-s,--server", options.server.address, "Where the daemon is (127.0.0.1)")
      ->type_name("ADDRESS");
  app->add_option_function<int>(
         "-t,--timeout",
         [&options](int seconds) { options.server.timeout = std::chrono::seconds(seconds); },
         "Give up after that long without an answer (5)")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, longestTimeout).description(""));
  app->add_flag("-q,--quiet", options.quiet, "feed: only the summary");
  app->add_flag("-V,--version", options.version, "Show the version");
  app->add_flag("-h,--help", options.help, "Show help, also for a command");
  return app;
}

// Fills `options` and returns all other words. Options may stand anywhere in front of "--".
std::vector<std::string> parse(const std::vector<std::string>& arguments, Options& options) {
  const auto app = parser(options);
  try {
    // The library takes them from the back.
    app->parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    throw UsageError(safeText(error.what()));
  }
  std::vector<std::string> words;
  bool onlyWords = false;
  for (std::string& word : app->remaining()) {
    if (!onlyWords && word == "--") {
      onlyWords = true;
      continue;
    }
    const bool isOption = word.size() > 1 && word.front() == '-' && !isNumber(word.substr(1));
    if (!onlyWords && isOption) throw UsageError(quotedText(word) + " is no option");
    words.push_back(std::move(word));
  }
  return words;
}

// ---- Command table ----

// Whether the command's name is, or goes on after, these words.
bool beginsWith(const Command& command, std::string_view words) {
  return words.empty() || command.name == words ||
         (command.name.starts_with(words) && command.name[words.size()] == ' ');
}

std::vector<const Command*> commandsWith(std::string_view words) {
  std::vector<const Command*> found;
  for (const Noun* noun : nouns) {
    for (const Command& command : noun->commands) {
      if (beginsWith(command, words)) found.push_back(&command);
    }
  }
  return found;
}

// The words that can follow these on the way to a command: "add, set, delete".
std::string choicesAfter(std::string_view words) {
  std::vector<std::string_view> choices;
  for (const Command* command : commandsWith(words)) {
    std::string_view rest = command->name.substr(words.empty() ? 0 : words.size() + 1);
    rest = rest.substr(0, rest.find(' '));
    if (std::find(choices.begin(), choices.end(), rest) == choices.end()) choices.push_back(rest);
  }
  return fmt::format("{}", fmt::join(choices, ", "));
}

/// How far a command line leads into the table: to a command, or to the beginning of several.
struct Place {
  std::string words;
  const Command* command = nullptr;
};

// Takes the words of a command's name; "help" in place of one asks for the place's help.
Place find(Words& words, Options& options) {
  Place place;
  while (!words.empty()) {
    if (words.takeIf("help")) {
      options.help = true;
      break;
    }
    const std::string next =
        place.words.empty() ? words.front() : place.words + ' ' + words.front();
    const auto found = commandsWith(next);
    const bool isWord = words.front().find(' ') == std::string::npos;
    if (found.empty() || words.front().empty() || !isWord) {
      throw UsageError(fmt::format("{} is no command; there are: {}", quotedText(words.front()),
                                   choicesAfter(place.words)));
    }
    place.words = next;
    words.take("a command");
    if (found.front()->name == next) {
      place.command = found.front();
      break;
    }
  }
  return place;
}

// ---- Help ----

std::string synopsis(const Command& command) {
  return fmt::format("{}{}{}", command.name, command.arguments.empty() ? "" : " ",
                     command.arguments);
}

void helpFor(const Command& command, Output& output) {
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

void helpForAll(Output& output) {
  Options unused;
  const auto app = parser(unused);
  output.line(
      "Usage: l2cpctl [OPTIONS] COMMAND\n\n"
      "Shows and changes what a switch does with the frames of Layer 2 control protocols, by "
      "asking "
      "its\ndaemon, l2cpd.\n\nCommands:");
  for (const Noun* noun : nouns) output.line(fmt::format("  {:<10}{}", noun->name, noun->summary));
  CLI::Formatter formatter;
  formatter.column_width(optionColumn);
  output.text(formatter.make_groups(app.get(), CLI::AppFormatMode::All));
  output.line(
      "\nExample:\n  l2cpctl profile rule add customer LLDP tunnel\n\n"
      "\"l2cpctl COMMAND --help\" says more about each.");
}

void help(const Place& place, Output& output) {
  if (place.command != nullptr) {
    helpFor(*place.command, output);
  } else if (place.words.empty()) {
    helpForAll(output);
  } else {
    helpForSeveral(place.words, output);
  }
}

// ---- One command line ----

void carryOut(const std::vector<std::string>& arguments, Output& output, std::string& place) {
  Options options;
  Words words(parse(arguments, options));
  if (options.version) return output.line("l2cpctl " L2CPCTL_VERSION);
  const Place found = find(words, options);
  place = found.words;
  if (options.help) return help(found, output);
  if (found.command == nullptr) {
    throw UsageError("a command is missing; there are: " + choicesAfter(found.words));
  }
  if (options.quiet && !found.command->takesQuiet) throw UsageError("--quiet does nothing here");
  Client client(options.server);
  Context context{words, options, client, output};
  found.command->run(context);
}

}  // namespace

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  Output output(out);
  std::string place;
  try {
    carryOut(arguments, output, place);
    output.flush();
    return static_cast<int>(ExitStatus::done);
  } catch (const UsageError& error) {
    err << fmt::format("l2cpctl: error: {}{}{}; see \"l2cpctl {}{}--help\"\n", place,
                       place.empty() ? "" : ": ", error.what(), place, place.empty() ? "" : " ");
    return static_cast<int>(error.status());
  } catch (const Failure& error) {
    out.flush();
    err << "l2cpctl: error: " << error.what() << '\n';
    return static_cast<int>(error.status());
  } catch (const std::exception& error) {
    err << "l2cpctl: error: " << safeText(error.what()) << '\n';
    return static_cast<int>(ExitStatus::usage);
  }
}

}  // namespace cli
