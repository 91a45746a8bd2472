#pragma once

/// A stand-in for what the module's RPC thread does, for tests that start the entity. Linking it
/// replaces the thread's start function for the whole test program: no socket is opened, and the
/// machine's port mapper keeps the entries of a daemon that happens to run there.

#include <atomic>
#include <functional>

namespace support {

class RpcService {
 public:
  static RpcService& instance();

  void reset();

  /// How often the thread was started.
  std::atomic<unsigned int> runs = 0;
  /// What the thread does; nothing if empty. To be set while no thread runs.
  std::function<void()> body;
};

}  // namespace support
