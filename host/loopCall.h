#pragma once

#include <rpc/rpc.h>

#include <chrono>
#include <functional>

/// Has a function run on the thread of the RPC loop, where everything runs that changes state. It
/// is a transport of the RPC library whose descriptor becomes readable when a call is asked for, so
/// that the loop turns to it as it turns to requests, and no client can keep it from that.
class LoopCall {
 public:
  /// `function` must not throw. The RPC library does not guard its set of transports: nobody else
  /// may use it meanwhile, here and in the destructor. Throws std::system_error.
  explicit LoopCall(std::function<void()> function);
  /// Has the function run, too, when something arrives on the descriptor, which is taken over and
  /// does not block. What arrives is thrown away.
  LoopCall(int descriptor, std::function<void()> function);
  ~LoopCall();
  LoopCall(const LoopCall&) = delete;
  LoopCall& operator=(const LoopCall&) = delete;

  /// Of those that were made without a descriptor: asks for one call and does not wait for it.
  /// Requests that come before the call are one. From any thread.
  void request() const;

 private:
  static bool_t receive(SVCXPRT* transport, rpc_msg* message);
  static xprt_stat state(SVCXPRT* transport);
  static const struct SVCXPRT::xp_ops operations;

  std::function<void()> function_;
  SVCXPRT transport_{};
  SVCXPRT_EXT extension_{};
};

/// Has a function run on that thread when a time has passed.
class LoopAlarm {
 public:
  /// As LoopCall's.
  explicit LoopAlarm(std::function<void()> function);

  /// Counts from now on; what it was set to before is off. `time` is above zero. From any thread.
  void set(std::chrono::nanoseconds time) const;

 private:
  const int timer_;
  const LoopCall call_;
};
