#include "cli/shell/shell.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "cli/carry.h"
#include "cli/choice.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/shell/shellForms.h"
#include "cli/shell/shown.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::string_view program = "l2cpctl";
constexpr std::string_view blanks = " \t";

// At configuration level.
constexpr std::string_view alone[] = {"help", "exit", "end", "abort"};

std::vector<std::string> behindFirst(const std::vector<std::string>& words) {
  return {words.begin() + 1, words.end()};
}

// The line that reads as these words.
std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + script::nameText(word);
  return line;
}

// The command line of what stands behind "show", with its options in front.
std::vector<std::string> shownLine(const std::vector<std::string>& words) {
  CommandLine parts = partsOf(words);
  std::vector<std::string> line = std::move(parts.options);
  if (parts.onlyWords) line.emplace_back("--");
  const std::vector<std::string> command = shownBy(parts.words);
  line.insert(line.end(), command.begin(), command.end());
  return line;
}

std::string_view firstWord(std::string_view synopsis) {
  return synopsis.substr(0, synopsis.find(' '));
}

// What forms begin with, those that undo behind their "no".
std::vector<std::string_view> beginnings(std::span<const LineForm> forms, bool undo) {
  constexpr std::string_view no = "no ";
  std::vector<std::string_view> words;
  for (const auto& [synopsis, summary] : forms) {
    if (undo && !synopsis.starts_with(no)) continue;
    const std::string_view word = firstWord(undo ? synopsis.substr(no.size()) : synopsis);
    if (std::find(words.begin(), words.end(), word) == words.end()) words.push_back(word);
  }
  return words;
}

void expectBeginning(std::span<const LineForm> forms, std::span<const std::string> words) {
  const bool undo = words.front() == "no";
  if (undo) words = words.subspan(1);
  const auto choices = beginnings(forms, undo);
  const bool fits =
      !words.empty() && std::find(choices.begin(), choices.end(), words.front()) != choices.end();
  if (fits) return;
  throw LocalError(
      fmt::format("{}expected one of {}", undo ? "behind \"no\": " : "", fmt::join(choices, ", ")));
}

std::vector<std::string> wordsOf(std::string_view line) {
  const std::size_t begin = line.find_first_not_of(blanks);
  if (begin == std::string_view::npos || line[begin] == '!') return {};
  try {
    return script::split(line);
  } catch (const script::Problem& problem) {
    throw UsageError(problem.what());
  }
}

}  // namespace

Shell::Shell(const Options& options, const Surroundings& surroundings, std::ostream& out,
             std::ostream& err, Dialogue& dialogue)
    : options_(options),
      surroundings_(surroundings),
      out_(out),
      err_(err),
      dialogue_(dialogue),
      client_(options.server),
      quickClient_(withoutPatience(options.server)),
      names_(quickClient_) {}

std::string Shell::prompt() const {
  if (!configuring_) return "l2cp# ";
  const std::string name = nameText(reader_.name());
  switch (reader_.mode()) {
    case script::Mode::configuration:
      break;
    case script::Mode::l2cpProfile:
      return fmt::format("l2cp(config-l2cp-profile {})# ", name);
    case script::Mode::vlanProfile:
      return fmt::format("l2cp(config-vlan-profile {})# ", name);
    case script::Mode::serviceProfile:
      return fmt::format("l2cp(config-service-profile {})# ", name);
  }
  return "l2cp(config)# ";
}

// ---- Lines ----

void Shell::report(const std::function<void()>& something) {
  place_ = {};
  // What could not be written before is no matter of this line.
  out_.clear();
  err_.clear();
  reporting(out_, err_, place_, something);
  // A copy that was lost leaves nothing to edit.
  if (edit_ && !edit_->isOpen()) leaveMode();
  out_.flush();
  err_.flush();
}

void Shell::take(std::string_view line) {
  report([&] {
    LineWords words = wordsOf(line);
    if (words.empty()) return;
    if (configuring_) {
      inConfiguration(std::move(words));
    } else {
      atTop(std::move(words));
    }
  });
}

void Shell::atTop(LineWords words) {
  std::vector<std::string_view> choices = wordsAfter("");
  for (const LineForm& form : topForms()) {
    choices.push_back(firstWord(form.synopsis));
  }
  const auto found = candidates(words.front(), choices);
  if (found.size() > 1) {
    throw UsageError(fmt::format("{} could be {}", quotedText(words.front()), alternatives(found)));
  }
  const bool isCommand = words.front() == program || words.front().starts_with('-');
  if (found.empty() && !isCommand) {
    throw UsageError(fmt::format("{} is no command{}; there are: {}", quotedText(words.front()),
                                 suggestion(words.front(), choices), fmt::join(choices, ", ")));
  }
  const std::string_view first = found.empty() ? "" : found.front();
  if (first == "exit" || first == "quit") {
    Words(behindFirst(words)).end();
    over_ = true;
  } else if (first == "configure") {
    Words rest(behindFirst(words));
    if (!rest.empty()) rest.expect("terminal");
    rest.end();
    configuring_ = true;
  } else {
    command(std::move(words));
  }
}

void Shell::command(LineWords words) {
  if (!words.empty() && words.front() == program) words = behindFirst(words);
  if (!words.empty()) {
    const std::string_view show = "show";
    const auto found = candidates(words.front(), {&show, 1});
    if (!found.empty() && words.front().size() > 1) words = shownLine(behindFirst(words));
    const bool isHelp = words.size() == 1 && std::string_view("help").starts_with(words.front());
    if (isHelp && !words.front().empty()) out_ << shellHelp() << '\n';
  }
  run(words);
}

void Shell::inConfiguration(LineWords words) {
  words = inFull(forms(), std::move(words));
  const std::string& first = words.front();
  if (first == "show") {
    showWhere(behindFirst(words));
  } else if (first == "do") {
    command(behindFirst(words));
  } else if (std::find(std::begin(alone), std::end(alone), first) != std::end(alone)) {
    Words(behindFirst(words)).end();
    onItsOwn(first);
  } else {
    expectBeginning(forms(), words);
    numberPorts(words);
    configure(words);
  }
}

void Shell::onItsOwn(std::string_view word) {
  if (word == "help") {
    out_ << shellHelp() << '\n';
    for (const std::string& line : help("")) out_ << line << '\n';
  } else if (word == "exit") {
    exitMode();
  } else if (word == "end") {
    if (reader_.mode() != script::Mode::configuration) exitMode();
    if (reader_.mode() == script::Mode::configuration) configuring_ = false;
  } else {
    abort();
  }
}

void Shell::configure(const LineWords& words) {
  script::Reader reader = reader_;
  script::Command command;
  try {
    command = reader.read(joined(words));
  } catch (const script::Problem& problem) {
    throw LocalError(problem.what());
  }
  if (const auto* const profile = std::get_if<script::L2cpProfile>(&command)) {
    return enterProfile(profile->name);
  }
  if (edit_) {
    edit_->carry(std::move(command));
  } else {
    carry(command, client_);
  }
  reader_ = std::move(reader);
}

void Shell::enterProfile(const std::string& name) {
  edit_.emplace(name, client_, dialogue_);
  try {
    if (!edit_->open()) return edit_.reset();
  } catch (const Failure&) {
    edit_.reset();
    throw;
  }
  reader_.read(joined({"l2cp-profile", name}));
}

void Shell::exitMode() {
  if (reader_.mode() == script::Mode::configuration) {
    configuring_ = false;
  } else if (!edit_ || edit_->commit()) {
    leaveMode();
  } else {
    dialogue_.say("Nothing is replaced; \"exit\" asks again, \"abort\" gives the changes up.");
  }
}

void Shell::abort() {
  if (!edit_) throw LocalError("there is nothing to give up: lines take effect at once here");
  edit_->discard();
  leaveMode();
}

void Shell::leaveMode() {
  edit_.reset();
  reader_ = {};
}

void Shell::interrupt() {
  report([&] {
    if (edit_) return abort();
    if (reader_.mode() != script::Mode::configuration) return leaveMode();
    configuring_ = false;
  });
}

void Shell::leave() {
  over_ = true;
  if (edit_) report([&] { abort(); });
}

void Shell::run(const LineWords& words) {
  carryOutLine(words, {options_, client_, out_, err_, surroundings_}, place_);
}

void Shell::showWhere(const LineWords& words) {
  if (!words.empty()) return run(shownLine(words));
  const std::string& name = reader_.name();
  switch (reader_.mode()) {
    case script::Mode::configuration:
      return run({"running-config", "show"});
    case script::Mode::vlanProfile:
      return run({"vlan-profile", "show", "--", name});
    case script::Mode::serviceProfile:
      return run({"service-profile", "show", "--", name});
    case script::Mode::l2cpProfile:
      break;
  }
  out_ << "l2cp-profile " << nameText(name) << '\n';
  for (const std::string& line : differences(edit_->rulesBefore(), edit_->rules())) {
    out_ << line << '\n';
  }
}

// The language knows ports by their numbers alone.
void Shell::numberPorts(LineWords& words) {
  for (std::size_t i = 0; i < std::min(words.size(), Synopsis::mostWords); ++i) {
    const std::string argument = argumentAt(forms(), std::span(words).first(i + 1));
    if (argument == "PORT") words[i] = std::to_string(portNumber(words[i], client_));
    if (argument == "INTERFACE") words[i] = std::to_string(interfaceNumber(words[i], client_));
    if (argument == "VID" && words[i] == vlanText(wholePort)) words[i] = std::to_string(wholePort);
  }
}

std::span<const LineForm> Shell::forms() const {
  return configuring_ ? modeForms(reader_.mode()) : topForms();
}

}  // namespace cli
