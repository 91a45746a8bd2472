#pragma once

#include <atomic>
#include <chrono>
#include <thread>

namespace classifier {

/// A lock for what hardly ever takes longer than a system call. Giving it back is a plain store:
/// the second atomic exchange, which a mutex needs to know of waiters, would cost a request a tenth
/// of its time. So nobody is woken; whoever finds the lock taken asks again, soon and then now and
/// then.
class BriefLock {
 public:
  void lock() {
    if (taken_.exchange(true, std::memory_order_acquire)) [[unlikely]]
      wait();
  }
  void unlock() { taken_.store(false, std::memory_order_release); }

 private:
  [[gnu::noinline]] void wait() {
    constexpr int soon = 16;
    for (int tries = 0; taken_.exchange(true, std::memory_order_acquire); ++tries) {
      // Sleeping lets a holder of a lower priority go on, too.
      tries < soon ? std::this_thread::yield()
                   : std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }

  std::atomic<bool> taken_ = false;
};

}  // namespace classifier
