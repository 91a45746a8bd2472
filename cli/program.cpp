#include "cli/program.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <map>
#include <memory>
#include <utility>

#include "cli/failure.h"
#include "cli/help.h"
#include "cli/shell/terminal.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr int longestTime = 3600;
constexpr std::size_t optionColumn = 26;

struct Flags {
  bool oneLine = false;
  bool json = false;
  bool pretty = false;
};

std::unique_ptr<CLI::App> parser(Options& options, Flags& flags) {
  auto app = std::make_unique<CLI::App>("", "l2cpctl");
  app->set_help_flag();
  app->allow_extras();
  const auto seconds = [&app](const char* name, std::chrono::seconds& time, const char* text) {
    app->add_option_function<int>(
           name, [&time](int number) { time = std::chrono::seconds(number); }, text)
        ->type_name("SECONDS")
        ->check(CLI::Range(1, longestTime).description(""));
  };
  app->add_option("-s,--server", options.server.address, "Where the daemon is (127.0.0.1)")
      ->type_name("ADDRESS");
  seconds("-t,--timeout", options.server.timeout, "Give up after that long without an answer (5)");
  seconds("--wait", options.server.wait, "Try that long to reach a daemon that is starting");
  app->add_flag("-o,--oneline", flags.oneLine, "Answer in lines of key=value, for the shell");
  app->add_flag("-j,--json", flags.json, "Answer in JSON, in one line");
  app->add_flag("-p,--pretty", flags.pretty, "Answer in JSON, indented");
  app->add_option_function<std::string>(
         "--color",
         [&options](const std::string& when) {
           const std::map<std::string, Colours> choices{{"auto", Colours::automatic},
                                                        {"always", Colours::always},
                                                        {"never", Colours::never}};
           const auto choice = choices.find(when);
           if (choice == choices.end()) {
             throw UsageError(fmt::format(R"(--color: {} is none of "auto", "always" and "never")",
                                          quotedText(when)));
           }
           options.colours = choice->second;
         },
         "Colours: auto (on a terminal), always or never")
      ->type_name("WHEN");
  app->add_flag("-q,--quiet", options.quiet, "feed: only the summary");
  app->add_flag("--keep-going", options.keepGoing, "load: go on after a line that is refused");
  app->add_flag("--dry-run", options.dryRun, "apply: only show the commands");
  seconds("--confirm", options.confirm, "apply: undo everything unless it is confirmed in time");
  app->add_flag("-V,--version", options.version, "Show the version");
  app->add_flag("-h,--help", options.help, "Show help, also for a command");
  return app;
}

std::string optionsHelp() {
  Options options;
  Flags flags;
  const auto app = parser(options, flags);
  CLI::Formatter formatter;
  formatter.column_width(optionColumn);
  return formatter.make_groups(app.get(), CLI::AppFormatMode::All);
}

// What the flags say, or else what was said before.
Format formatOf(const Flags& flags, Format before) {
  if (flags.oneLine && (flags.json || flags.pretty)) {
    throw UsageError("--oneline and JSON are two formats; choose one");
  }
  if (flags.oneLine) return Format::oneLine;
  if (flags.pretty) return Format::prettyJson;
  return flags.json ? Format::json : before;
}

bool useColours(const Options& options, const Surroundings& surroundings) {
  switch (options.colours) {
    case Colours::automatic:
      return surroundings.answers == Sink::terminal && !surroundings.plainWanted;
    case Colours::always:
      return true;
    case Colours::never:
      break;
  }
  return false;
}

// Options that only one command takes.
void checkOwnOptions(const Options& options, const Command& command) {
  const auto check = [&](bool given, std::string_view option, bool taken) {
    if (given && !taken) throw UsageError(fmt::format("{} does nothing here", option));
  };
  const bool applies = command.name == applyNoun.name;
  check(options.quiet, "--quiet", command.takesQuiet);
  check(options.keepGoing, "--keep-going", command.name == loadNoun.name);
  check(options.dryRun, "--dry-run", applies);
  check(options.confirm.count() != 0, "--confirm", applies);
}

bool sameServer(const Server& one, const Server& other) {
  return one.address == other.address && one.timeout == other.timeout && one.wait == other.wait;
}

// Whether there is no more than options that say how to work, and somebody to work with. Puts them
// into `options`.
bool isShell(const std::vector<std::string>& arguments, const Surroundings& surroundings,
             Options& options) {
  if (!surroundings.interactive) return false;
  Options all;
  if (!takeOptions(arguments, all).empty() || all.help || all.version) return false;
  // Those of a single command are for that command.
  if (all.quiet || all.keepGoing || all.dryRun || all.confirm.count() != 0) return false;
  options.server = all.server;
  options.format = all.format;
  options.colours = all.colours;
  return true;
}

}  // namespace

std::vector<OptionName> optionNames() {
  Options options;
  Flags flags;
  std::vector<OptionName> all;
  const auto app = parser(options, flags);
  for (const CLI::Option* option : app->get_options()) {
    OptionName name;
    for (const std::string& each : option->get_snames()) name.names.push_back("-" + each);
    for (const std::string& each : option->get_lnames()) name.names.push_back("--" + each);
    if (option->get_expected_max() > 0) name.value = option->get_type_name();
    name.meaning = option->get_description();
    all.push_back(std::move(name));
  }
  return all;
}

// They may stand anywhere in front of "--".
std::vector<std::string> takeOptions(const std::vector<std::string>& arguments, Options& options) {
  Flags flags;
  const auto app = parser(options, flags);
  try {
    // The library takes them from the back.
    app->parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    throw UsageError(safeText(error.what()));
  }
  options.format = formatOf(flags, options.format);
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

void carryOut(Words words, const Options& options, Client& client, Output& output, Place& place) {
  takePlace(words, place);
  if (options.help || place.help) return help(place, optionsHelp(), output);
  if (place.command == nullptr) {
    throw UsageError(fmt::format("a command is missing; there are: {}",
                                 fmt::join(wordsAfter(place.words), ", ")));
  }
  checkOwnOptions(options, *place.command);
  Context context{words, options, client, output};
  place.command->run(context);
}

void carryOutLine(const std::vector<std::string>& arguments, const Setting& setting, Place& place) {
  Options options = setting.defaults;
  const std::vector<std::string> words = takeOptions(arguments, options);
  const Surroundings& around = setting.surroundings;
  Output output(setting.out, options.format, useColours(options, around), around.answers,
                Notes(setting.err, around.messages == Sink::terminal));
  if (options.version) {
    output.line("l2cpctl " L2CPCTL_VERSION);
  } else if (sameServer(options.server, setting.defaults.server)) {
    carryOut(Words(words), options, setting.client, output, place);
  } else {
    Client client(options.server);
    carryOut(Words(words), options, client, output, place);
  }
  output.flush();
}

int reporting(std::ostream& out, std::ostream& err, const Place& place,
              const std::function<void()>& something) {
  try {
    something();
    return static_cast<int>(ExitStatus::done);
  } catch (const UsageError& error) {
    const std::string& words = place.words;
    err << fmt::format("l2cpctl: error: {}{}{}; see \"l2cpctl {}{}--help\"\n", words,
                       words.empty() ? "" : ": ", error.what(), words, words.empty() ? "" : " ");
    return static_cast<int>(error.status());
  } catch (const Found& found) {
    return static_cast<int>(found.status());
  } catch (const Failure& error) {
    out.flush();
    err << "l2cpctl: error: " << error.what() << '\n';
    return static_cast<int>(error.status());
  } catch (const std::exception& error) {
    err << "l2cpctl: error: " << safeText(error.what()) << '\n';
    return static_cast<int>(ExitStatus::usage);
  }
}

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        const Surroundings& surroundings) {
  Place place;
  return reporting(out, err, place, [&] {
    Options options;
    if (isShell(arguments, surroundings, options)) return runShell(options, surroundings, out, err);
    options.help = arguments.empty();
    Client client(options.server);
    carryOutLine(arguments, {options, client, out, err, surroundings}, place);
  });
}

}  // namespace cli
