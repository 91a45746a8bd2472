#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/client.h"
#include "cli/output.h"
#include "cli/words.h"

namespace cli {

enum class Colours : std::uint8_t { automatic, always, never };

/// What the options on the command line say.
struct Options {
  Server server;
  Format format = Format::table;
  Colours colours = Colours::automatic;
  bool quiet = false;
  bool keepGoing = false;
  bool dryRun = false;
  std::chrono::seconds confirm{0};
  bool help = false;
  bool version = false;
};

/// What a command works with: its own words, after its name.
struct Context {
  Words& words;
  const Options& options;
  Client& client;
  Output& output;
};

/// One command. It reads its words to their end, checks them, asks the daemon and gives the answer;
/// what goes wrong on the way is thrown as a Failure.
struct Command {
  std::string_view name;       ///< all its words, such as "profile rule add"
  std::string_view arguments;  ///< as in a synopsis
  std::string_view summary;    ///< a sentence
  std::string_view notes;      ///< what a user has to know besides: lines, or nothing
  std::string_view example;
  void (*run)(Context& context);
  bool takesQuiet = false;
};

/// The commands of a noun, one or several.
struct Noun {
  std::string_view name;
  std::string_view summary;
  std::span<const Command> commands;
};

extern const Noun protocolNoun;
extern const Noun profileNoun;
extern const Noun attachNoun;
extern const Noun detachNoun;
extern const Noun portNoun;
extern const Noun vlanNoun;
extern const Noun feedNoun;
extern const Noun explainNoun;
extern const Noun watchNoun;
extern const Noun metricsNoun;
extern const Noun checkNoun;
extern const Noun serviceProfileNoun;
extern const Noun vlanProfileNoun;
extern const Noun runningConfigNoun;
extern const Noun daemonNoun;
extern const Noun loadNoun;
extern const Noun diffNoun;
extern const Noun applyNoun;
extern const Noun completeNoun;

// ---- All of them ----

std::span<const Noun* const> allNouns();

/// The commands whose names are, or go on after, these words. All commands for no words.
std::vector<const Command*> commandsWith(std::string_view words);

/// The words that can follow these on the way to a command.
std::vector<std::string_view> wordsAfter(std::string_view words);

/// How far a command line leads into the table: to a command, or to the beginning of several.
struct Place {
  std::string words;  ///< in full
  const Command* command = nullptr;
  bool help = false;  ///< the word "help" was among them
};

/// Takes the words of a command's name, each of which may be abbreviated to any beginning that only
/// one of the words that can stand there has. Throws UsageError for a word that leads nowhere;
/// `place` then is where it does so.
void takePlace(Words& words, Place& place);

}  // namespace cli
