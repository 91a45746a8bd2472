#include "cli/shell/terminal.h"

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cwchar>
#include <memory>
#include <optional>
#include <string>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/shell/history.h"
#include "cli/shell/lineStart.h"
#include "cli/shell/shell.h"
#include "cli/value.h"

namespace cli {

namespace {

// ---- Signals ----

// What has arrived.
volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t resized = 0;
volatile std::sig_atomic_t ended = 0;  // by this signal

extern "C" void noteSignal(int number) {
  if (number == SIGWINCH) {
    resized = 1;
    return;
  }
  (number == SIGINT ? interrupted : ended) = number;
  requestStop();
}

/// Notes signals as long as it lives, but none that were ignored before.
class Signals {
 public:
  Signals() {
    interrupted = 0;
    resized = 0;
    ended = 0;
    struct sigaction note {};
    note.sa_handler = noteSignal;
    sigemptyset(&note.sa_mask);
    sigemptyset(&noted_);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      sigaction(numbers[i], nullptr, &before_[i]);
      if (before_[i].sa_handler == SIG_IGN) continue;
      // A command whose output waits for the terminal ends at a signal, but not for a new size.
      note.sa_flags = numbers[i] == SIGWINCH ? SA_RESTART : 0;
      sigaction(numbers[i], &note, nullptr);
      sigaddset(&noted_, numbers[i]);
    }
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  ~Signals() {
    for (std::size_t i = 0; i < numbers.size(); ++i) sigaction(numbers[i], &before_[i], nullptr);
  }

  /// Waits for input or for one of them. False for a signal.
  bool waitForInput() const {
    sigset_t before;
    sigprocmask(SIG_BLOCK, &noted_, &before);
    pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    const bool pending = interrupted != 0 || resized != 0 || ended != 0;
    const int ready = pending ? -1 : ppoll(&input, 1, nullptr, &before);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return ready == 1;
  }

 private:
  static constexpr std::array numbers{SIGINT, SIGHUP, SIGTERM, SIGWINCH};
  std::array<struct sigaction, numbers.size()> before_{};
  sigset_t noted_{};
};

// Letters beyond ASCII are edited as such in a locale that has them.
void useUtf8() {
  const char* const locale = std::setlocale(LC_CTYPE, "");
  std::mbstate_t state{};
  wchar_t letter = 0;
  constexpr std::string_view umlaut = "\xc3\xa4";
  const bool known = locale != nullptr &&
                     std::mbrtowc(&letter, umlaut.data(), umlaut.size(), &state) == umlaut.size();
  if (!known) std::setlocale(LC_CTYPE, "C.UTF-8");
}

// ---- Lines ----

/// Reads lines from the terminal with the keys that the shell answers to.
class Terminal : public Dialogue {
 public:
  /// How a line ended.
  enum class End { enter, interrupt, toTop, over };

  Terminal(const Signals& signals, std::ostream& out) : signals_(signals), out_(out) {
    useUtf8();
    edit_.reset(el_init("l2cpctl", stdin, stdout, stderr));
    if (!edit_) throw LocalError("lines cannot be edited on this terminal");
    history_.reset(history_init());
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, longestHistory);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    for (const std::string& line : file_.load()) {
      history(history_.get(), &event, H_ENTER, line.c_str());
    }
    EditLine* const edit = edit_.get();
    el_set(edit, EL_CLIENTDATA, this);
    el_set(edit, EL_PROMPT, showPrompt);
    el_set(edit, EL_GETCFN, readCharacter);
    el_set(edit, EL_HIST, history, history_.get());
    el_set(edit, EL_EDITOR, "emacs");
    el_source(edit, nullptr);
    const auto key = [&](const char* keys, const char* name,
                         unsigned char (*function)(EditLine*, int)) {
      el_set(edit, EL_ADDFN, name, name, function);
      el_set(edit, EL_BIND, keys, name, nullptr);
    };
    key("^I", "l2cp-complete", completeKey);
    key("?", "l2cp-help", helpKey);
    key("^C", "l2cp-interrupt", interruptKey);
    key("^Z", "l2cp-end", endKey);
    el_set(edit, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // Ctrl-C and Ctrl-Z are keys like others while a line is edited.
    el_set(edit, EL_SETTY, "-d", "-isig", nullptr);
  }

  void serve(Shell& shell) { shell_ = &shell; }

  /// A line, and how it ended. What is not UTF-8 in it has been replaced by U+FFFD.
  End read(const std::string& prompt, std::string& line) {
    prompt_ = prompt;
    end_ = End::over;
    garbled_ = false;
    interrupted = 0;
    // Before the prompt, which the library shows first: whoever sees it may press any key.
    el_set(edit_.get(), EL_PREP_TERM, 1);
    int count = 0;
    const char* const text = el_gets(edit_.get(), &count);
    line = text == nullptr ? "" : std::string(text, static_cast<std::size_t>(count));
    if (line.ends_with('\n')) {
      line.pop_back();
      end_ = End::enter;
    }
    return end_;
  }
  bool isGarbled() const { return garbled_; }

  void remember(const std::string& line) {
    HistEvent event{};
    if (line.find_first_not_of(" \t") == std::string::npos) return;
    history(history_.get(), &event, H_ENTER, line.c_str());
    file_.append(line);
  }

  void say(std::string_view line) override { out_ << line << '\n' << std::flush; }

  bool agree(std::string_view question) override {
    if (ended != 0) return false;
    asking_ = true;
    std::string answer;
    const End end = read(std::string(question) + " [y/N] ", answer);
    asking_ = false;
    if (end == End::over) say("");
    return end == End::enter && (answer == "y" || answer == "Y" || answer == "yes");
  }

 private:
  struct EndEdit {
    void operator()(EditLine* edit) const { el_end(edit); }
  };
  struct EndHistory {
    void operator()(History* history) const { history_end(history); }
  };

  static Terminal& of(EditLine* edit) {
    void* self = nullptr;
    el_get(edit, EL_CLIENTDATA, &self);
    return *static_cast<Terminal*>(self);
  }

  static char* showPrompt(EditLine* edit) { return of(edit).prompt_.data(); }

  // A byte; 0 at the end, -1 when a signal ends the reading.
  int readByte(char& byte) {
    if (pushedBack_) {
      byte = *pushedBack_;
      pushedBack_.reset();
      return 1;
    }
    while (true) {
      if (ended != 0) return -1;
      if (interrupted != 0) {
        interrupted = 0;
        byte = '\x03';
        return 1;
      }
      if (resized != 0) {
        resized = 0;
        el_resize(edit_.get());
      }
      if (!signals_.waitForInput()) continue;
      const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
      if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      return count == 1 ? 1 : 0;
    }
  }

  static int readCharacter(EditLine* edit, wchar_t* character) {
    Terminal& terminal = of(edit);
    std::mbstate_t state{};
    for (bool first = true;; first = false) {
      char byte = 0;
      const int result = terminal.readByte(byte);
      if (result != 1) return result;
      const std::size_t length = std::mbrtowc(character, &byte, 1, &state);
      if (length == static_cast<std::size_t>(-2)) continue;
      if (length != static_cast<std::size_t>(-1)) return 1;
      if (!first) terminal.pushedBack_ = byte;
      constexpr wchar_t replacement = 0xfffd;
      *character = replacement;
      terminal.garbled_ = true;
      return 1;
    }
  }

  static std::string lineToCursor(EditLine* edit) {
    const LineInfo* const line = el_line(edit);
    return {line->buffer, line->cursor};
  }
  static bool isEmpty(EditLine* edit) {
    const LineInfo* const line = el_line(edit);
    return line->lastchar == line->buffer;
  }

  static unsigned char showLines(const std::vector<std::string>& lines) {
    std::fputc('\n', stdout);
    for (const std::string& line : lines) std::fprintf(stdout, "%s\n", line.c_str());
    return CC_REDISPLAY;
  }

  static unsigned char completeKey(EditLine* edit, int /*key*/) {
    const Terminal& self = of(edit);
    if (self.asking_) return CC_ERROR;
    const std::string line = lineToCursor(edit);
    const Completed completed = self.shell_->complete(line);
    const std::string before = line.substr(completed.from);
    if (completed.text != before) {
      el_deletestr(edit, static_cast<int>(characters(before)));
      return el_insertstr(edit, completed.text.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }
    if (completed.choices.empty()) return CC_ERROR;
    return showLines(self.shell_->help(line));
  }

  static unsigned char helpKey(EditLine* edit, int /*key*/) {
    const Terminal& self = of(edit);
    const std::string line = lineToCursor(edit);
    if (self.asking_ || startOf(line).quoted) {
      return el_insertstr(edit, "?") == 0 ? CC_REFRESH : CC_ERROR;
    }
    return showLines(self.shell_->help(line));
  }

  static unsigned char interruptKey(EditLine* edit, int /*key*/) {
    of(edit).end_ = End::interrupt;
    std::fputs("^C\n", stdout);
    return CC_NEWLINE;
  }

  static unsigned char endKey(EditLine* edit, int /*key*/) {
    if (of(edit).asking_ || !isEmpty(edit)) return CC_ERROR;
    of(edit).end_ = End::toTop;
    std::fputs("^Z\n", stdout);
    return CC_NEWLINE;
  }

  static constexpr int longestHistory = 1000;

  const Signals& signals_;
  std::ostream& out_;
  HistoryFile file_{static_cast<std::size_t>(longestHistory)};
  std::unique_ptr<EditLine, EndEdit> edit_;
  std::unique_ptr<History, EndHistory> history_;
  Shell* shell_ = nullptr;
  std::string prompt_;
  End end_ = End::over;
  bool asking_ = false;
  bool garbled_ = false;
  std::optional<char> pushedBack_;
};

void takeLines(Terminal& terminal, Shell& shell, std::ostream& err) {
  while (!shell.isOver()) {
    std::string line;
    switch (terminal.read(shell.prompt(), line)) {
      case Terminal::End::enter:
        terminal.remember(line);
        if (terminal.isGarbled()) {
          err << "l2cpctl: error: the line has bytes that are not UTF-8\n";
        } else {
          forgetStopRequest();
          if (ended == 0) shell.take(line);
        }
        break;
      case Terminal::End::interrupt:
        if (line.empty()) shell.interrupt();
        break;
      case Terminal::End::toTop:
        if (shell.isConfiguring()) shell.take("end");
        break;
      case Terminal::End::over:
        terminal.say("");
        shell.leave();
        break;
    }
  }
}

}  // namespace

void runShell(const Options& options, const Surroundings& surroundings, std::ostream& out,
              std::ostream& err) {
  {
    const Signals signals;
    Terminal terminal(signals, out);
    Shell shell(options, surroundings, out, err, terminal);
    terminal.serve(shell);
    takeLines(terminal, shell, err);
  }
  if (ended != 0) std::raise(ended);
}

}  // namespace cli
