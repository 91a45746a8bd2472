#include "cli/interruption.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace cli {

namespace {

volatile std::sig_atomic_t arrived = 0;
volatile std::sig_atomic_t stopRequested = 0;

void remember(int /*signal*/) { arrived = 1; }

// Asks for nothing: errors are told of in any case.
pollfd standardOutput() { return {.fd = STDOUT_FILENO, .events = 0, .revents = 0}; }

bool isClosed(const pollfd& output) {
  return (static_cast<unsigned>(output.revents) & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

// The signals are blocked but for the waiting itself, so that none slips in before it.
Interruption::Interruption() {
  arrived = 0;
  sigset_t both;
  sigemptyset(&both);
  sigaddset(&both, SIGINT);
  sigaddset(&both, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &both, &oldMask_);
  struct sigaction action {};
  action.sa_handler = remember;  // NOLINT(cppcoreguidelines-pro-type-union-access): its interface
  sigaction(SIGINT, &action, &oldInterrupt_);
  sigaction(SIGTERM, &action, &oldTerminate_);
}

Interruption::~Interruption() {
  // One that is waiting is for what has ended now.
  const timespec atOnce{};
  sigset_t both;
  sigemptyset(&both);
  sigaddset(&both, SIGINT);
  sigaddset(&both, SIGTERM);
  while (sigtimedwait(&both, nullptr, &atOnce) > 0) {
  }
  sigaction(SIGINT, &oldInterrupt_, nullptr);
  sigaction(SIGTERM, &oldTerminate_, nullptr);
  pthread_sigmask(SIG_SETMASK, &oldMask_, nullptr);
}

Interruption::Reason Interruption::waitUntil(Clock::time_point time) const {
  sigset_t mask = oldMask_;
  sigdelset(&mask, SIGINT);
  sigdelset(&mask, SIGTERM);
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

HeldSignals::HeldSignals() {
  sigset_t held;
  sigemptyset(&held);
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&held, number);
  pthread_sigmask(SIG_BLOCK, &held, &before_);
}

HeldSignals::~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

void requestStop() { stopRequested = 1; }
void forgetStopRequest() { stopRequested = 0; }
bool isStopRequested() { return stopRequested != 0; }

}  // namespace cli
