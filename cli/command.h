#pragma once

#include <span>
#include <string_view>

#include "cli/client.h"
#include "cli/output.h"
#include "cli/words.h"

namespace cli {

/// What the options on the command line say.
struct Options {
  Server server;
  bool quiet = false;
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

/// One command. It reads its words to their end, checks them, asks the daemon and shows the answer;
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

/// The commands of a noun.
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
extern const Noun daemonNoun;

}  // namespace cli
