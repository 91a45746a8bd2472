#include "cli/apply/confirmation.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include "cli/failure.h"

namespace cli {

namespace {

constexpr std::string_view confirmed;

sigset_t awaited() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&set, number);
  return set;
}

enum class Input { nothing, line, end };

Input readInput() {
  std::array<char, 256> bytes{};
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return Input::nothing;
  if (count <= 0) return Input::end;
  const std::span read(bytes.data(), static_cast<std::size_t>(count));
  return std::find(read.begin(), read.end(), '\n') == read.end() ? Input::nothing : Input::line;
}

}  // namespace

Confirmation::Confirmation() {
  const sigset_t set = awaited();
  signals_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signals_ < 0) throw LocalError("there is no descriptor to wait for signals with");
  pthread_sigmask(SIG_BLOCK, &set, &before_);
}

Confirmation::~Confirmation() {
  // Those that have come have been answered.
  signalfd_siginfo information{};
  while (::read(signals_, &information, sizeof(information)) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  ::close(signals_);
}

std::string_view Confirmation::wait(std::chrono::seconds time, Notes& notes) {
  using namespace std::chrono_literals;
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + time;
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
    if (sources[0].revents != 0) return "a signal came instead of a confirmation";
    if (sources[1].revents == 0) continue;
    const Input input = readInput();
    if (input == Input::line) return confirmed;
    if (input == Input::end) return "the input ended without a confirmation";
  }
}

}  // namespace cli
