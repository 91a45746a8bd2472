#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <variant>

#include "cli/apply/scriptFile.h"
#include "cli/carry.h"
#include "cli/command.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/value.h"

namespace cli {

namespace {

/// Carries out a script, command by command.
class Load {
 public:
  Load(Context& context, const ScriptFile& file)
      : client_(context.client),
        notes_(context.output.notes()),
        progress_(&notes_),
        keepGoing_(context.options.keepGoing),
        file_(file),
        mistake_(file.script.mistakes.begin()) {}

  void run() {
    if (!keepGoing_) refuseMistakes();
    const Interruption interruption;
    for (const auto& [line, command] : file_.script.statements) {
      noteMistakes(line);
      statement(line, command);
    }
    noteMistakes(static_cast<std::size_t>(-1));
    left_ += file_.script.leftOut;
    if (left_ == 0) return;
    const ExitStatus status = carried_ == 0 ? worst_ : ExitStatus::partly;
    throw BatchFailure(status, fmt::format("{}: {} of {} commands were not carried out", file_.name,
                                           left_, left_ + carried_));
  }

 private:
  // Nothing has been carried out yet.
  void refuseMistakes() const {
    if (file_.script.mistakes.empty()) return;
    const auto& [line, reason] = file_.script.mistakes.front();
    throw LocalError(file_.message(line, reason) + "; nothing was carried out");
  }

  void noteMistakes(std::size_t before) {
    while (mistake_ != file_.script.mistakes.end() && mistake_->line < before) {
      notes_.note(file_.message(mistake_->line, mistake_->reason));
      leave(ExitStatus::usage);
      ++mistake_;
    }
  }

  void statement(std::size_t line, const script::Command& command) {
    if (std::holds_alternative<script::Exit>(command)) {
      skipping_ = false;
      return;
    }
    if (skipping_) {
      ++left_;
      return;
    }
    if (isStopRequested()) end(ExitStatus::usage, file_.message(line, "interrupted"));
    try {
      carry(command, client_);
      ++carried_;
    } catch (const Failure& failure) {
      refused(line, command, failure);
    }
    progress_.at(
        fmt::format("{}: line {} of {}", file_.name, line, file_.script.statements.back().line));
  }

  void refused(std::size_t line, const script::Command& command, const Failure& failure) {
    std::string text = file_.message(line, failure.what());
    if (keepGoing_ && failure.status() != ExitStatus::notReached) {
      notes_.note(text);
      leave(failure.status());
      // What stands in a mode that was not entered is for an object that is not there.
      skipping_ = script::entersMode(command);
      return;
    }
    end(failure.status(), text);
  }

  [[noreturn]] void end(ExitStatus status, const std::string& text) const {
    if (carried_ == 0) throw BatchFailure(status, text + "; nothing was carried out");
    throw BatchFailure(
        ExitStatus::partly,
        text + (left_ == 0 ? "; what stands before was carried out"
                           : "; of what stands before, all that was not refused was carried out"));
  }

  void leave(ExitStatus status) {
    ++left_;
    worst_ = std::max(worst_, status);
  }

  Client& client_;
  Notes& notes_;
  Progress progress_;
  bool keepGoing_;
  const ScriptFile& file_;
  std::vector<script::Script::Mistake>::const_iterator mistake_;
  bool skipping_ = false;
  std::size_t carried_ = 0;
  std::size_t left_ = 0;
  ExitStatus worst_ = ExitStatus::usage;
};

void load(Context& context) {
  const ScriptFile file = takeScriptOrInput(context.words);
  Load(context, file).run();
}

constexpr Command commands[] = {
    {"load", "[FILE] [--keep-going]", "Carries out a script in the language of running-config.",
     "FILE \"-\" is standard input, and so is no FILE unless that is a terminal. Every message has "
     "the\n"
     "line's number. If a line is no command, nothing is carried out; the first one that is "
     "refused\n"
     "ends it, with status 4 if something was carried out before.\n"
     "With --keep-going, such lines are left out, and what stands in the modes that they were to\n"
     "enter; the status is 4 if there were any and others were carried out.\n"
     "SIGHUP, SIGINT and SIGTERM end it behind the line that is being carried out.\n"
     "What is so already is not refused: a script may be loaded again.",
     "l2cpctl load site.l2cp", load}};

}  // namespace

constinit const Noun loadNoun{"load", "Carry out a script of configuration commands", commands};

}  // namespace cli
