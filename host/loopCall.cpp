#include "host/loopCall.h"

#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

// What the loop asks of a transport that never has a message for it.
const struct SVCXPRT::xp_ops LoopCall::operations {
  .xp_recv = receive, .xp_stat = state, .xp_getargs = nullptr, .xp_reply = nullptr,
  .xp_freeargs = nullptr, .xp_destroy = nullptr
};

namespace {

int newEvent() {
  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return descriptor;
}

int newTimer() {
  const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "timerfd");
  return descriptor;
}

// Whether there was something. That the sender had to leave something out says so, too.
bool drain(int descriptor) {
  std::array<std::byte, 4096> bytes{};
  bool any = false;
  for (;;) {
    if (read(descriptor, bytes.data(), bytes.size()) <= 0 && errno != ENOBUFS) return any;
    any = true;
  }
}

}  // namespace

LoopCall::LoopCall(std::function<void()> function) : LoopCall(newEvent(), std::move(function)) {}

LoopCall::LoopCall(int descriptor, std::function<void()> function)
    : function_(std::move(function)) {
  transport_.xp_fd = descriptor;
  transport_.xp_ops = &operations;
  transport_.xp_p1 = this;
  transport_.xp_p3 = &extension_;
  xprt_register(&transport_);
}

LoopCall::~LoopCall() {
  xprt_unregister(&transport_);
  close(transport_.xp_fd);
}

void LoopCall::request() const { eventfd_write(transport_.xp_fd, 1); }

bool_t LoopCall::receive(SVCXPRT* transport, rpc_msg* /*message*/) {
  if (drain(transport->xp_fd)) static_cast<LoopCall*>(transport->xp_p1)->function_();
  return FALSE;
}

xprt_stat LoopCall::state(SVCXPRT* /*transport*/) { return XPRT_IDLE; }

LoopAlarm::LoopAlarm(std::function<void()> function)
    : timer_(newTimer()), call_(timer_, std::move(function)) {}

void LoopAlarm::set(std::chrono::nanoseconds time) const {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const itimerspec once{
      .it_interval = {},
      .it_value = {.tv_sec = seconds.count(), .tv_nsec = (time - seconds).count()}};
  timerfd_settime(timer_, 0, &once, nullptr);
}
