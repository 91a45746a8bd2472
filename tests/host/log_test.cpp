#include "host/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/Log.h"
#include "tests/support/syslog_capture.h"

namespace {

/// What is written to standard error by a function.
template <class Function>
std::string errorsOf(Function function) {
  testing::internal::CaptureStderr();
  function();
  return testing::internal::GetCapturedStderr();
}

class HostLog : public testing::Test {
 protected:
  void TearDown() override { hostlog::setLevel(hostlog::Level::information); }
};

TEST_F(HostLog, LineHasProgramLevelSubsystemAndText) {
  EXPECT_EQ(errorsOf([] { hostlog::write(hostlog::Level::error, "rpc", "text"); }),
            "l2cpd: error: rpc: text\n");
  EXPECT_EQ(errorsOf([] { hostlog::write(hostlog::Level::warning, "rpc", "text"); }),
            "l2cpd: warning: rpc: text\n");
  EXPECT_EQ(errorsOf([] { hostlog::write(hostlog::Level::information, "rpc", "text"); }),
            "l2cpd: rpc: text\n");
  EXPECT_EQ(errorsOf([] { hostlog::write(hostlog::Level::debug, "rpc", "text"); }),
            "l2cpd: debug: rpc: text\n");
}

TEST_F(HostLog, FormatsItsArguments) {
  EXPECT_EQ(errorsOf([] { hostlog::error("a", "{} of {:#x}", "one", 17); }),
            "l2cpd: error: a: one of 0x11\n");
  EXPECT_EQ(errorsOf([] { hostlog::warning("a", "{{}}"); }), "l2cpd: warning: a: {}\n");
}

TEST_F(HostLog, DropsWhatIsAboveTheLevel) {
  const auto writeAll = [] {
    hostlog::error("a", "0");
    hostlog::warning("a", "1");
    hostlog::information("a", "2");
    hostlog::log(hostlog::Level::debug, "a", "3");
  };
  EXPECT_EQ(errorsOf(writeAll), "l2cpd: error: a: 0\nl2cpd: warning: a: 1\nl2cpd: a: 2\n");
  hostlog::setLevel(hostlog::Level::error);
  EXPECT_EQ(errorsOf(writeAll), "l2cpd: error: a: 0\n");
  EXPECT_FALSE(hostlog::accepts(hostlog::Level::warning));
  hostlog::setLevel(hostlog::Level::debug);
  EXPECT_EQ(errorsOf(writeAll),
            "l2cpd: error: a: 0\nl2cpd: warning: a: 1\nl2cpd: a: 2\nl2cpd: debug: a: 3\n");
}

TEST_F(HostLog, IsNotInTheSystemLogBeforeThatIsOpen) {
  support::SyslogCapture& systemLog = support::SyslogCapture::instance();
  systemLog.reset();
  EXPECT_EQ(errorsOf([] { hostlog::error("rpc", "text"); }), "l2cpd: error: rpc: text\n");
  EXPECT_TRUE(systemLog.lines.empty());
}

// ---- The module's stream ----

Log& stream() { return singleton<Log>::instance(); }

class ModuleLog : public HostLog {
 protected:
  void SetUp() override { stream().setMsgLevel(2); }
};

TEST_F(ModuleLog, GoesOutLineByLine) {
  EXPECT_EQ(errorsOf([] { stream() << "one " << -16 << "\ntwo\n"; }),
            "l2cpd: module: one -16\nl2cpd: module: two\n");
}

TEST_F(ModuleLog, UnfinishedLineWaitsForItsEnd) {
  EXPECT_EQ(errorsOf([] { stream() << "begin"; }), "");
  EXPECT_EQ(errorsOf([] { stream() << " end" << std::endl; }), "l2cpd: module: begin end\n");
}

TEST_F(ModuleLog, LevelIsThatSetLast) {
  EXPECT_EQ(errorsOf([] { stream().setMsgLevel(0) << "a\n"; }), "l2cpd: error: module: a\n");
  EXPECT_EQ(errorsOf([] { stream().setMsgLevel(1) << "b\n"; }), "l2cpd: warning: module: b\n");
  EXPECT_EQ(errorsOf([] { stream() << "c\n"; }), "l2cpd: warning: module: c\n");
  EXPECT_EQ(errorsOf([] { stream().setMsgLevel(3) << "d\n"; }), "");
  hostlog::setLevel(hostlog::Level::debug);
  EXPECT_EQ(errorsOf([] { stream() << "e\n"; }), "l2cpd: debug: module: e\n");
}

TEST_F(ModuleLog, LevelsOutOfRangeAreTheNearest) {
  EXPECT_EQ(errorsOf([] { stream().setMsgLevel(-1) << "a\n"; }), "l2cpd: error: module: a\n");
  hostlog::setLevel(hostlog::Level::debug);
  EXPECT_EQ(errorsOf([] { stream().setMsgLevel(99) << "b\n"; }), "l2cpd: debug: module: b\n");
}

TEST_F(ModuleLog, DroppedLineIsGoneWhenTheLevelChanges) {
  EXPECT_EQ(errorsOf([] {
              stream().setMsgLevel(3) << "dropped\n";
              stream().setMsgLevel(1) << "kept\n";
            }),
            "l2cpd: warning: module: kept\n");
}

TEST_F(ModuleLog, ThreadsHaveTheirOwnLinesAndLevels) {
  EXPECT_EQ(errorsOf([] {
              stream().setMsgLevel(0) << "mine ";
              std::thread([] { stream() << "theirs\n"; }).join();
              stream() << "again\n";
            }),
            "l2cpd: module: theirs\nl2cpd: error: module: mine again\n");
}

TEST_F(ModuleLog, LinesOfManyThreadsStayWhole) {
  constexpr int threadCount = 4;
  constexpr int lineCount = 200;
  const std::string output = errorsOf([] {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
      threads.emplace_back([thread] {
        for (int line = 0; line < lineCount; ++line) {
          hostlog::information("thread", "{} {}", thread, line);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  std::multiset<std::string> lines;
  std::istringstream input(output);
  for (std::string line; std::getline(input, line);) lines.insert(line);
  std::multiset<std::string> expected;
  for (int thread = 0; thread < threadCount; ++thread) {
    for (int line = 0; line < lineCount; ++line) {
      expected.insert("l2cpd: thread: " + std::to_string(thread) + " " + std::to_string(line));
    }
  }
  EXPECT_EQ(lines, expected);
}

// ---- The system log ----

/// It stays open until the process ends, so that these tests come last.
class SystemLog : public HostLog {
 protected:
  void SetUp() override { captured().reset(); }
  void TearDown() override {
    unsetenv("JOURNAL_STREAM");
    hostlog::openSystemLog();
    HostLog::TearDown();
  }

  static support::SyslogCapture& captured() { return support::SyslogCapture::instance(); }

  /// As the service manager names the journal's stream.
  static std::string nameOfStandardError() {
    struct stat stream {};
    fstat(STDERR_FILENO, &stream);
    return std::to_string(stream.st_dev) + ":" + std::to_string(stream.st_ino);
  }
};

TEST_F(SystemLog, HasEveryLineWithItsPriority) {
  hostlog::openSystemLog();
  hostlog::setLevel(hostlog::Level::debug);
  EXPECT_EQ(errorsOf([] {
              hostlog::error("a", "{} %s", 0);
              hostlog::warning("a", "1");
              hostlog::information("a", "2");
              hostlog::log(hostlog::Level::debug, "a", "3");
            }),
            "l2cpd: error: a: 0 %s\nl2cpd: warning: a: 1\nl2cpd: a: 2\nl2cpd: debug: a: 3\n");
  const std::vector<std::pair<int, std::string>> expected = {
      {LOG_DAEMON | LOG_ERR, "error: a: 0 %s"},
      {LOG_DAEMON | LOG_WARNING, "warning: a: 1"},
      {LOG_DAEMON | LOG_INFO, "a: 2"},
      {LOG_DAEMON | LOG_DEBUG, "debug: a: 3"}};
  std::vector<std::pair<int, std::string>> lines;
  for (const support::LogLine& line : captured().lines) {
    lines.emplace_back(line.priority, line.text);
  }
  EXPECT_EQ(lines, expected);
}

TEST_F(SystemLog, HasNothingThatIsAboveTheLevel) {
  hostlog::openSystemLog();
  errorsOf([] { hostlog::log(hostlog::Level::debug, "a", "3"); });
  EXPECT_TRUE(captured().lines.empty());
}

TEST_F(SystemLog, IsAllThereIsWhenStandardErrorIsTheJournal) {
  EXPECT_EQ(errorsOf([] {
              setenv("JOURNAL_STREAM", nameOfStandardError().c_str(), 1);
              hostlog::openSystemLog();
              hostlog::error("a", "text");
            }),
            "");
  ASSERT_EQ(captured().lines.size(), 1U);
  EXPECT_EQ(captured().lines[0].text, "error: a: text");
}

TEST_F(SystemLog, IsNotAllWhenAnotherStreamIsTheJournal) {
  for (const char* journal : {"", "1:2", "text"}) {
    setenv("JOURNAL_STREAM", journal, 1);
    hostlog::openSystemLog();
    EXPECT_EQ(errorsOf([] { hostlog::error("a", "text"); }), "l2cpd: error: a: text\n");
  }
}

}  // namespace
