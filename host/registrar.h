#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <thread>

/// An RPC program that the process serves.
struct RpcProgram {
  unsigned long number;
  unsigned long version;
};

/// The ports at which the process takes requests. Every program is served at each.
struct RpcPorts {
  std::set<in_port_t> udp;
  std::set<in_port_t> tcp;

  /// Those of the RPC library's transports. To be called while nobody else uses the library and no
  /// client is connected.
  static RpcPorts ofThisProcess();
};

/// Keeps the process's programs known to the port mapper. Registering is the business of those who
/// serve; this sees to it that the port mapper still knows afterwards. It asks every two seconds on
/// a thread of its own, so that a port mapper that is slow, gone or frozen holds nobody up; says
/// when it does not answer; and registers what it has forgotten. A program that another process has
/// registered meanwhile is left to that process.
class Registrar {
 public:
  /// Starts watching.
  Registrar(std::span<const RpcProgram> programs, RpcPorts ports);
  /// Begins to stop and waits for nothing.
  ~Registrar();
  Registrar(const Registrar&) = delete;
  Registrar& operator=(const Registrar&) = delete;

  /// Begins to take from the port mapper what is registered for this process, so that clients are
  /// told at once that nobody serves it any more.
  void beginStop();
  /// Waits for that. False when the port mapper does not answer before the deadline; a thread of
  /// the process may then still be waiting for it.
  bool waitStopped(std::chrono::steady_clock::time_point deadline);

 private:
  struct Watch;
  std::shared_ptr<Watch> watch_;
  std::thread thread_;
};
