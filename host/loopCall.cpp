#include "host/loopCall.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

// What the loop asks of a transport that never has a message for it.
const struct SVCXPRT::xp_ops LoopCall::operations {
  .xp_recv = receive, .xp_stat = state, .xp_getargs = nullptr, .xp_reply = nullptr,
  .xp_freeargs = nullptr, .xp_destroy = nullptr
};

LoopCall::LoopCall(std::function<void()> function) : function_(std::move(function)) {
  transport_.xp_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (transport_.xp_fd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
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
  eventfd_t requests = 0;
  if (eventfd_read(transport->xp_fd, &requests) == 0) {
    static_cast<LoopCall*>(transport->xp_p1)->function_();
  }
  return FALSE;
}

xprt_stat LoopCall::state(SVCXPRT* /*transport*/) { return XPRT_IDLE; }
