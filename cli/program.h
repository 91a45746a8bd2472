#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "cli/command.h"

namespace cli {

/// What the program finds around it.
struct Surroundings {
  Sink answers = Sink::plainTerminal;   ///< what they go to
  Sink messages = Sink::plainTerminal;  ///< the same
  bool plainWanted = false;             ///< NO_COLOR is set and not empty
  bool interactive = false;  ///< somebody sits before it: its input and output are a terminal
};

struct OptionName {
  std::vector<std::string> names;  ///< with their dashes
  std::string value;               ///< what it takes; empty for nothing
  std::string meaning;
};
std::vector<OptionName> optionNames();

/// Carries out one command line, without the program's own name in front. Answers go to `out`, and
/// to `err` one line if something went wrong. Returns the program's exit status, see ExitStatus.
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        const Surroundings& surroundings = {});

/// The words of a command line. What its options say is put into `options`, the rest of which stays
/// as it is. Throws UsageError.
std::vector<std::string> takeOptions(const std::vector<std::string>& arguments, Options& options);

/// What a command line works with besides its words.
struct Setting {
  const Options& defaults;  ///< what its own options change
  Client& client;           ///< of the daemon that these defaults name
  std::ostream& out;
  std::ostream& err;
  const Surroundings& surroundings;
};

/// Carries out a whole command line, without the program's own name in front. Throws Failure;
/// `place` then is how far the words led.
void carryOutLine(const std::vector<std::string>& arguments, const Setting& setting, Place& place);

/// Carries out the command that these words begin with, or shows its help where that is asked for.
/// Throws Failure; `place` then is how far the words led.
void carryOut(Words words, const Options& options, Client& client, Output& output, Place& place);

/// Does something and tells what went wrong on `err`, as the program itself does. `place` is how
/// far a command line had led by then.
int reporting(std::ostream& out, std::ostream& err, const Place& place,
              const std::function<void()>& something);

}  // namespace cli
