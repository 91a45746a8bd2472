#pragma once

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/BLLManager.h"

namespace support {

/// Another thread holds the daemon's configuration lock against everybody else while this lives.
class LockHeldElsewhere {
 public:
  LockHeldElsewhere()
      : thread_([this] {
          const BLLManager::exclusiveLock_t lock;
          held_.set_value(static_cast<bool>(lock));
          end_.get_future().wait();
        }) {
    EXPECT_TRUE(held_.get_future().get());
  }
  ~LockHeldElsewhere() {
    end_.set_value();
    thread_.join();
  }
  LockHeldElsewhere(const LockHeldElsewhere&) = delete;
  LockHeldElsewhere& operator=(const LockHeldElsewhere&) = delete;

 private:
  std::promise<bool> held_;
  std::promise<void> end_;
  std::thread thread_;
};

}  // namespace support
