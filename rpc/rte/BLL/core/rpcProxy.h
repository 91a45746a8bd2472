#pragma once

#include <rpc/rpc.h>

#include <boost/thread/thread_only.hpp>
#include <string>

/// A dispatch routine as the RPC library calls it.
using RpcDispatch = void (*)(struct svc_req*, SVCXPRT*);

/// Registers an RPC program on a new UDP and a new TCP transport of the loopback address, with
/// ports of the system's choice, and with the port mapper, from which earlier entries of the
/// program are dropped first. A step that fails says so on standard error and ends the work on that
/// transport; what was made for it stays open.
void rpcProxyRegisterSvc(unsigned long program, unsigned long version, RpcDispatch dispatch);

/// An interruption point for start functions that loop: true when the thread has been asked to
/// stop.
bool checkInterrupt();

/// A thread that runs a start function and, for the two names that own it, then the process's RPC
/// loop. Its operations are not synchronised among themselves.
class RPCProxy {
 public:
  /// Receives the address of the interruption hook, a `bool (*)()`. Its result is not used.
  using StartFunction = void* (*)(void*);

  RPCProxy(StartFunction startFunction, std::string name);

  /// Asks the thread to stop and waits for its end. Throws boost::thread_resource_error on the
  /// proxy's own thread.
  ~RPCProxy() noexcept(false);

  RPCProxy(const RPCProxy&) = delete;
  RPCProxy& operator=(const RPCProxy&) = delete;

  /// Starts the thread. False if it runs already, or has ended and nobody has stopped it.
  bool start();

  /// Asks the thread to stop. Waits for its end without limit and returns true, or with
  /// `onlyAsk` returns `isStopped()`. Throws boost::thread_resource_error on the proxy's own
  /// thread.
  bool stop(bool onlyAsk);

  /// Whether no thread runs, after waiting up to 100 ms for its end.
  bool isStopped();

 private:
  void threadFunction();

  boost::thread thread_;
  bool (*interruptionHook_)();
  StartFunction startFunction_;
  std::string name_;
};
