// What long captures show on a terminal while they are fed or explained.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>

#include "tests/cli/command_line.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/system/fixture.h"

namespace cli {
namespace {

using testing::EndsWith;

/// A capture that goes on until it is ended.
class EndlessCapture {
 public:
  EndlessCapture() {
    EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
    // For reading, too: so that it opens before anybody reads it, and nobody's end ends the test.
    pipe_ = support::Descriptor(open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    thread_ = std::thread([this] { write(); });
  }
  ~EndlessCapture() { end(); }
  EndlessCapture(const EndlessCapture&) = delete;
  EndlessCapture& operator=(const EndlessCapture&) = delete;

  const std::string& path() const { return path_; }

  void end() {
    if (!thread_.joinable()) return;
    ended_ = true;
    thread_.join();
    pipe_.close();
  }

 private:
  // In pieces that a pipe takes as a whole or not at all.
  void write() {
    const std::string head = CaptureFile().bytes();
    CaptureFile capture;
    for (int i = 0; i < 50; ++i) capture.frame(60, 'x');
    const std::string frames = capture.bytes().substr(head.size());
    ASSERT_LE(frames.size(), static_cast<std::size_t>(PIPE_BUF));
    ASSERT_GT(::write(pipe_.get(), head.data(), head.size()), 0);
    while (!ended_) {
      pollfd room{.fd = pipe_.get(), .events = POLLOUT, .revents = 0};
      if (poll(&room, 1, 10) == 1) ::write(pipe_.get(), frames.data(), frames.size());
    }
  }

  std::string path_ = "/run/endless.pcap";
  support::Descriptor pipe_;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

class Progressing : public DaemonTest {
 protected:
  void SetUp() override {
    if (!terminal_.isThere()) GTEST_SKIP() << "no terminals here";
    DaemonTest::SetUp();
  }

  // The program with its messages on the terminal, which in the end shows "over" and the status.
  support::Process start(const std::string& words) const {
    const std::string terminal = std::to_string(terminal_.number());
    return support::Process({"/bin/sh", "-c",
                             "exec 2>&" + terminal +
                                 "; TERM=xterm NO_COLOR=1 " L2CPCTL_PROGRAM " " + words +
                                 "; echo over $? >&2"});
  }

  support::PseudoTerminal terminal_;
};

TEST_F(Progressing, IsShownBesideAnswersThatGoElsewhere) {
  for (const std::string command : {"feed", "explain"}) {
    EndlessCapture capture;
    const support::Process program = start(command + " 3 " + capture.path() + " >/dev/null");
    terminal_.until("\r\x1b[K/run/endless.pcap: frame ");
    terminal_.until("\r\x1b[K/run/endless.pcap: frame ");
    capture.end();
    EXPECT_THAT(terminal_.until("over 0"), EndsWith("\r\x1b[K"));
    unlink(capture.path().c_str());
  }
}

TEST_F(Progressing, GivesItsPlaceToTheSummary) {
  EndlessCapture capture;
  const support::Process program = start("feed -q 3 " + capture.path() + " >&2");
  terminal_.until("\r\x1b[K/run/endless.pcap: frame ");
  capture.end();
  terminal_.until("\r\x1b[Kdiscard    0\r\n");
  terminal_.until("over 0");
}

}  // namespace
}  // namespace cli
