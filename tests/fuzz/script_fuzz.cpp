// Whatever a script holds, each line is carried out or refused as a whole and with its place, and
// what comes of it can be saved and restored.

#include <algorithm>
#include <sstream>

#include "host/scriptRunner.h"
#include "host/startup.h"
#include "script/script.h"
#include "tests/fuzz/input_file.h"
#include "tests/support/host_state.h"
#include "tests/support/script_lines.h"

namespace {

using Lines = std::vector<std::string>;
using startup::Strictness;
using support::runningConfig;
using support::startFresh;

const InputFile& file() {
  static const InputFile instance;
  return instance;
}

std::string text(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// Carries a script out line by line; what is refused changes nothing.
void runByLine(const std::string& input) {
  startFresh();
  script::Reader reader;
  Lines state = runningConfig(Scripter::configAll);
  std::istringstream lines(input);
  for (std::string line; std::getline(lines, line);) {
    const script::Mode mode = reader.mode();
    try {
      const script::Command command = reader.read(line);
      const std::string refusal = runCommand(command);
      const Lines after = runningConfig(Scripter::configAll);
      require(refusal.empty() || after == state, "half a line", line);
      state = after;
    } catch (const script::Problem& problem) {
      require(reader.mode() == mode, "mode after a problem", line);
      require(*problem.what() != '\0', "problem without text", line);
    }
  }
}

// What was written reads back as the same command.
void readBack(const Lines& lines) {
  script::Reader reader;
  for (const std::string& line : lines) {
    const script::Command command = reader.read(line);
    if (std::holds_alternative<script::Nothing>(command)) continue;
    require(script::text(command) == line, "read back", line);
  }
}

startup::Replay replayed(const std::string& input, Strictness strictness) {
  startFresh();
  file().write(input);
  startup::Replay result = startup::replay(file().path(), strictness);
  const auto lines = std::count(input.begin(), input.end(), '\n') + 1;
  for (const std::string& problem : result.problems) {
    const std::string place = file().path() + ":";
    require(problem.starts_with(place), "place", problem);
    const long line = std::strtol(problem.c_str() + place.size(), nullptr, 10);
    require(line >= 1 && line <= lines, "line", problem);
  }
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Lines defaults = [] {
    support::connectHost();
    startFresh();
    return runningConfig(Scripter::configAll);
  }();
  const std::string input(reinterpret_cast<const char*>(data), size);  // NOLINT: bytes are bytes

  runByLine(input);

  const startup::Replay strict = replayed(input, Strictness::nothing);
  if (!strict.problems.empty()) {
    require(strict.commands == 0 && runningConfig(Scripter::configAll) == defaults, "strictly",
            strict.problems.front());
  }

  replayed(input, Strictness::skipLines);
  const Lines saved = runningConfig(Scripter::configDifferences);
  readBack(saved);
  const startup::Replay restored = replayed(text(saved), Strictness::skipLines);
  if (!restored.problems.empty()) require(false, "restoring", restored.problems.front());
  const Lines after = runningConfig(Scripter::configDifferences);
  require(support::said(after) == support::said(saved), "restored",
          text(saved) + "\n" + text(after));
  return 0;
}
