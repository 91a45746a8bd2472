#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/world.h"

namespace cli {

/// "apply --confirm" with a standard input that the test holds.
class Confirmed {
 public:
  Confirmed(const std::string& file, const std::string& seconds, const std::string& messages = "&1")
      : input_(makeInput()),
        process_({"/bin/sh", "-c",
                  "exec \"$0\" apply \"$1\" --confirm \"$2\" <\"$3\" 2>" + messages,
                  L2CPCTL_PROGRAM, file, seconds, input_}),
        writer_(open(input_.c_str(), O_RDWR | O_CLOEXEC)) {}

  bool isWaiting() { return process_.output().waitFor("they are undone unless Enter comes"); }
  void write(const std::string& text) const {
    EXPECT_EQ(::write(writer_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void end() { writer_.close(); }
  support::Process& process() { return process_; }

 private:
  static std::string makeInput() {
    const std::string path = support::World::file("input", "") + ".pipe";
    unlink(path.c_str());
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    return path;
  }

  std::string input_;
  support::Process process_;
  support::Descriptor writer_;
};

}  // namespace cli
