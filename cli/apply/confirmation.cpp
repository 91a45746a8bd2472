#include "cli/apply/confirmation.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "cli/failure.h"
#include "cli/interruption.h"

namespace cli {

namespace {

constexpr std::string_view confirmed;

// Those that would stop the program are not answered: stopped, it could undo nothing.
constexpr std::array stopping{SIGTSTP, SIGTTIN, SIGTTOU};

sigset_t handled() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : stopping) sigaddset(&set, number);
  // Those that are ignored stay so: a blocked one would be read all the same.
  for (const int number : endingSignals) {
    if (!isIgnored(number)) sigaddset(&set, number);
  }
  return set;
}

enum class Input { nothing, line, end };

// Appends to the line what has come of it.
Input readInput(std::string& line) {
  // Of what is longer, the beginning tells that it is no confirmation.
  constexpr std::size_t longest = 64;
  std::array<char, 256> bytes{};
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return Input::nothing;
  if (count <= 0) return Input::end;
  const std::string_view read(bytes.data(), static_cast<std::size_t>(count));
  const std::size_t end = read.find('\n');
  line += read.substr(0, end);
  line.resize(std::min(line.size(), longest));
  return end == std::string_view::npos ? Input::nothing : Input::line;
}

bool confirms(std::string_view line) {
  constexpr std::string_view blanks = " \t\r";
  line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
  line = line.substr(0, line.find_last_not_of(blanks) + 1);
  return line.empty() || line == "y" || line == "Y" || line == "yes";
}

}  // namespace

Confirmation::Confirmation() {
  const sigset_t set = handled();
  sigemptyset(&ending_);
  signals_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signals_ < 0) throw LocalError("there is no descriptor to wait for signals with");
  pthread_sigmask(SIG_BLOCK, &set, &before_);
}

Confirmation::~Confirmation() {
  // Those that have come have been answered.
  takeSignals();
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  ::close(signals_);
  passOn(ending_);
}

bool Confirmation::takeSignals() {
  bool shallEnd = false;
  signalfd_siginfo information{};
  while (::read(signals_, &information, sizeof(information)) > 0) {
    const auto number = static_cast<int>(information.ssi_signo);
    if (std::ranges::find(endingSignals, number) == endingSignals.end()) continue;
    sigaddset(&ending_, number);
    shallEnd = true;
  }
  return shallEnd;
}

std::string_view Confirmation::wait(std::chrono::seconds time, Notes& notes) {
  using namespace std::chrono_literals;
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + time;
  // On a terminal, what was typed before the question is no answer to it.
  tcflush(STDIN_FILENO, TCIFLUSH);
  std::string line;
  std::array<pollfd, 2> sources{{{signals_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left <= 0ms) return "nobody confirmed it in time";
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(left);
    notes.show(fmt::format("Press Enter to keep the changes; {} s are left ", seconds.count()));
    // Until the second that is shown is over.
    const auto pause = std::min(left, left - (seconds - 1s) + 1ms);
    const int ready = ::poll(sources.data(), sources.size(), static_cast<int>(pause.count()));
    if (ready <= 0) continue;
    if (sources[0].revents != 0 && takeSignals()) return "a signal came instead of a confirmation";
    if (sources[1].revents == 0) continue;
    const Input input = readInput(line);
    if (input == Input::line) {
      return confirms(line) ? confirmed : "the answer was neither Enter nor \"yes\"";
    }
    if (input == Input::end) return "the input ended without a confirmation";
  }
}

}  // namespace cli
