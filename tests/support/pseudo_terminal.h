#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "tests/support/world.h"

namespace support {

/// A terminal with the test before it. There are none to be had within a test's world, so it has to
/// be made before.
class PseudoTerminal {
 public:
  explicit PseudoTerminal(const winsize* window = nullptr) {
    int master = -1;
    int slave = -1;
    if (openpty(&master, &slave, nullptr, nullptr, window) != 0) return;
    // Others that hold it would keep the terminal there.
    fcntl(master, F_SETFD, FD_CLOEXEC);
    master_ = Descriptor(master);
    slave_ = Descriptor(slave);
  }

  bool isThere() const { return slave_.get() >= 0; }

  /// The descriptor for programs, which inherit it.
  int number() const { return slave_.get(); }

  void type(const std::string& keys) const {
    ASSERT_EQ(write(master_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /// Waits until this is shown, behind what was waited for before. Returns what is shown up to
  /// there.
  std::string until(const std::string& text) {
    std::size_t at = std::string::npos;
    while ((at = shown_.find(text)) == std::string::npos) {
      if (!readMore()) {
        ADD_FAILURE() << "\"" << text << "\" is not shown, but \"" << shown_ << "\"";
        return shown_;
      }
    }
    const std::string before = shown_.substr(0, at);
    shown_.erase(0, at + text.size());
    return before;
  }

  void hangUp() { master_.close(); }

 private:
  bool readMore() {
    pollfd output{.fd = master_.get(), .events = POLLIN, .revents = 0};
    const auto milliseconds = std::chrono::milliseconds(patience).count();
    if (poll(&output, 1, static_cast<int>(milliseconds)) != 1) return false;
    std::array<char, 4096> bytes{};
    const ssize_t count = read(master_.get(), bytes.data(), bytes.size());
    if (count <= 0) return false;
    shown_.append(bytes.data(), static_cast<std::size_t>(count));
    return true;
  }

  Descriptor master_;
  Descriptor slave_;
  std::string shown_;
};

}  // namespace support
