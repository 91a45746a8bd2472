#include "cli/interruption.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace cli {

namespace {

volatile std::sig_atomic_t arrived = 0;
volatile std::sig_atomic_t stopRequested = 0;

// By the Interruption that there is.
const sigset_t* heldBack = nullptr;

void remember(int signal) { arrived = signal; }

auto handlerOf(const struct sigaction& action) {
  return action.sa_handler;  // NOLINT(cppcoreguidelines-pro-type-union-access): its interface
}

// Takes those that are waiting.
sigset_t taken(const sigset_t& from) {
  const timespec atOnce{};
  sigset_t all;
  sigemptyset(&all);
  for (int number = 0; (number = sigtimedwait(&from, nullptr, &atOnce)) > 0;) {
    sigaddset(&all, number);
  }
  return all;
}

// Asks for nothing: errors are told of in any case.
pollfd standardOutput() { return {.fd = STDOUT_FILENO, .events = 0, .revents = 0}; }

bool isClosed(const pollfd& output) {
  return (static_cast<unsigned>(output.revents) & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

// The signals are blocked but for the waiting itself, so that none slips in before it.
Interruption::Interruption() {
  arrived = 0;
  struct sigaction note {};
  note.sa_handler = remember;  // NOLINT(cppcoreguidelines-pro-type-union-access): its interface
  sigemptyset(&taken_);
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    sigaction(numbers[i], nullptr, &before_[i]);
    if (handlerOf(before_[i]) != SIG_IGN) sigaddset(&taken_, numbers[i]);
  }
  pthread_sigmask(SIG_BLOCK, &taken_, &oldMask_);
  heldBack = &taken_;
  for (const int number : numbers) {
    if (sigismember(&taken_, number) == 1) sigaction(number, &note, nullptr);
  }
}

Interruption::~Interruption() {
  heldBack = nullptr;
  // One that is waiting is for what has ended now, as is the one that ended the waiting.
  sigset_t all = taken(taken_);
  if (arrived != 0) sigaddset(&all, arrived);
  for (std::size_t i = 0; i < numbers.size(); ++i) sigaction(numbers[i], &before_[i], nullptr);
  pthread_sigmask(SIG_SETMASK, &oldMask_, nullptr);
  passOn(all);
}

Interruption::Reason Interruption::waitUntil(Clock::time_point time) const {
  sigset_t mask = oldMask_;
  for (const int number : numbers) {
    if (sigismember(&taken_, number) == 1) sigdelset(&mask, number);
  }
  while (true) {
    const auto left = std::max(time - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec wait{.tv_sec = seconds.count(),
                        .tv_nsec = std::chrono::nanoseconds(left - seconds).count()};
    pollfd output = standardOutput();
    const int events = ppoll(&output, 1, &wait, &mask);
    if (arrived != 0) return Reason::signal;
    if (events > 0 && isClosed(output)) return Reason::closedOutput;
    if (events == 0 || Clock::now() >= time) return Reason::time;
  }
}

bool Interruption::outputClosed() {
  pollfd output = standardOutput();
  return poll(&output, 1, 0) > 0 && isClosed(output);
}

bool isIgnored(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return handlerOf(action) == SIG_IGN;
}

void passOn(const sigset_t& signals) {
  for (const int number : endingSignals) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    if (sigismember(&signals, number) == 1 && handlerOf(action) != SIG_DFL) std::raise(number);
  }
}

HeldSignals::HeldSignals() {
  sigemptyset(&held_);
  for (const int number : endingSignals) sigaddset(&held_, number);
  pthread_sigmask(SIG_BLOCK, &held_, &before_);
}

HeldSignals::~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

// Where somebody handles them, they wait again.
void HeldSignals::answer() const { passOn(taken(held_)); }

void requestStop() { stopRequested = 1; }
void forgetStopRequest() { stopRequested = 0; }
bool isStopRequested() {
  if (stopRequested != 0) return true;
  sigset_t waiting;
  if (heldBack == nullptr || sigpending(&waiting) != 0) return false;
  sigandset(&waiting, &waiting, heldBack);
  return sigisemptyset(&waiting) == 0;
}

// The signals are blocked but for the waiting itself, so that none slips in before it.
bool waitForInput(int descriptor) {
  sigset_t ending;
  sigset_t before;
  sigemptyset(&ending);
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&ending, number);
  pthread_sigmask(SIG_BLOCK, &ending, &before);
  bool isThere = false;
  while (!isThere && !isStopRequested()) {
    pollfd input{.fd = descriptor, .events = POLLIN, .revents = 0};
    isThere = ppoll(&input, 1, nullptr, &before) >= 0 || errno != EINTR;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return isThere;
}

}  // namespace cli
