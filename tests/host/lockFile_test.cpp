#include "host/lockFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <typeinfo>

#include "tests/support/as_nobody.h"

namespace {

/// A folder that is gone with the test.
class Lock : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(folder_); }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name = "l2cpd.lock") const { return folder_ + "/" + name; }

  static std::string contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// Why the lock cannot be had.
  template <class Error>
  static std::string refusal(const std::string& path) {
    try {
      const LockFile lock(path);
    } catch (const Error& problem) {
      return problem.what();
    }
    return "taken";
  }

  static std::string ownNumber() { return std::to_string(getpid()); }

 private:
  const std::string folder_ = testing::TempDir() + "lock." + ownNumber();
};

TEST_F(Lock, HoldsTheNumberOfItsProcess) {
  const LockFile lock(path());
  EXPECT_EQ(contents(path()), ownNumber() + "\n");
}

TEST_F(Lock, ReplacesWhatAnEarlierProcessLeft) {
  std::ofstream(path()) << "12345678901234567890\n\n";
  const LockFile lock(path());
  EXPECT_EQ(contents(path()), ownNumber() + "\n");
}

TEST_F(Lock, IsHadByOneAndNamesThatOne) {
  const LockFile lock(path());
  const std::string message =
      "another l2cpd is running (process " + ownNumber() + "), it holds " + path();
  EXPECT_EQ(refusal<LockHeld>(path()), message);
  // Asking does not take it from the first.
  EXPECT_EQ(refusal<LockHeld>(path()), message);
  EXPECT_EQ(contents(path()), ownNumber() + "\n");
}

TEST_F(Lock, OfAProcessThatHasNotWrittenItsNumberIsHeldAllTheSame) {
  const LockFile lock(path());
  for (const char* written : {"", "\n", "text\n"}) {
    std::ofstream(path()) << written;
    EXPECT_EQ(refusal<LockHeld>(path()), "another l2cpd is running, it holds " + path());
  }
}

TEST_F(Lock, CanBeHadAgainAfterwardsAndItsFileStays) {
  for (int round = 0; round < 2; ++round) const LockFile lock(path());
  EXPECT_EQ(contents(path()), ownNumber() + "\n");
}

TEST_F(Lock, OfOtherFilesIsAnother) {
  const LockFile first(path("first"));
  EXPECT_EQ(refusal<LockError>(path("second")), "taken");
}

TEST_F(Lock, MakesItsFolders) {
  const LockFile lock(path("a/b/lock"));
  EXPECT_EQ(contents(path("a/b/lock")), ownNumber() + "\n");
}

TEST_F(Lock, CannotBeHadWhereThereCanBeNoFile) {
  std::ofstream(path("file")) << "";
  EXPECT_EQ(refusal<LockError>(path("file/lock")), path("file") + ": Not a directory");
  EXPECT_EQ(refusal<LockError>(path("file/folder/lock")),
            path("file/folder") + ": Not a directory");
  EXPECT_EQ(refusal<LockError>(path("")), path("") + ": Is a directory");
  EXPECT_EQ(refusal<LockError>("/proc/lock"), "/proc/lock: No such file or directory");
}

TEST_F(Lock, CannotBeHadWhereNothingCanBeWritten) {
  EXPECT_EQ(refusal<LockError>("/dev/full"), "/dev/full: No space left on device");
}

TEST_F(Lock, OfAnotherUserIsHeldAllTheSame) {
  const LockFile lock(path());
  chmod(path().c_str(), 0444);
  const support::AsNobody nobody;
  if (!nobody.isDone()) GTEST_SKIP() << "there is no other user here";
  EXPECT_EQ(refusal<LockHeld>(path()),
            "another l2cpd is running (process " + ownNumber() + "), it holds " + path());
}

TEST_F(Lock, OfAnotherUserThatIsFreeCanBeHad) {
  std::ofstream(path()) << "12\n";
  chmod(path().c_str(), 0444);
  const support::AsNobody nobody;
  if (!nobody.isDone()) GTEST_SKIP() << "there is no other user here";
  const LockFile lock(path());
  EXPECT_EQ(contents(path()), "12\n");
  EXPECT_THROW(LockFile{path()}, LockHeld);
}

TEST_F(Lock, OfAnotherUserDoesNotNameAProcessThatHasEnded) {
  const pid_t ended = fork();
  if (ended == 0) _exit(0);
  waitpid(ended, nullptr, 0);
  std::ofstream(path()) << ended << "\n";
  chmod(path().c_str(), 0444);
  const support::AsNobody nobody;
  if (!nobody.isDone()) GTEST_SKIP() << "there is no other user here";
  const LockFile lock(path());
  EXPECT_EQ(refusal<LockHeld>(path()), "another l2cpd is running, it holds " + path());
}

TEST_F(Lock, ThatCannotBeLookedIntoMayBeHeld) {
  std::ofstream(path()) << "";
  chmod(path().c_str(), 0);
  const support::AsNobody nobody;
  if (!nobody.isDone()) GTEST_SKIP() << "there is no other user here";
  EXPECT_EQ(refusal<LockUnknown>(path()), path() + ": Permission denied");
}

TEST_F(Lock, ThatCannotBeMadeIsHeldByNobody) {
  chmod(path("").c_str(), 0555);
  const support::AsNobody nobody;
  if (!nobody.isDone()) GTEST_SKIP() << "there is no other user here";
  try {
    const LockFile lock(path());
    FAIL() << "made in a folder of another user";
  } catch (const LockError& problem) {
    EXPECT_EQ(problem.what(), path() + ": Permission denied");
    EXPECT_EQ(typeid(problem), typeid(LockError));
  }
}

TEST_F(Lock, DoesNotPassToProgramsThatAreStarted) {
  const LockFile lock(path());
  const std::string others = "ls -l /proc/self/fd | grep -q " + path();
  EXPECT_NE(std::system(others.c_str()), 0);  // NOLINT(cert-env33-c): a shell is what it asks
}

}  // namespace
