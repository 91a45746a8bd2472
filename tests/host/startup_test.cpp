#include "host/startup.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "tests/host/restore_fixture.h"
#include "tests/support/as_nobody.h"

namespace {

using startup::Strictness;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- Saving ----

class Saving : public testing::Test {
 protected:
  std::string save(const Lines& lines) const { return startup::save(path, lines); }

  Folder folder;
  const std::string path = folder.file("s.l2cp");
};

TEST_F(Saving, WritesEachLineWithItsEnd) {
  EXPECT_EQ(save({"l2cp-profile P", " protocol \"LLDP\" rule peer", "exit", ""}), "");
  EXPECT_EQ(folder.read("s.l2cp"), "l2cp-profile P\n protocol \"LLDP\" rule peer\nexit\n\n");
}

TEST_F(Saving, OfNothingWritesAnEmptyFile) {
  EXPECT_EQ(save({}), "");
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp"));
  EXPECT_EQ(folder.read("s.l2cp"), "");
}

TEST_F(Saving, KeepsThePreviousScriptAndNoOther) {
  for (const char* line : {"1", "2", "3"}) EXPECT_EQ(save({line}), "");
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp", "s.l2cp.old"));
  EXPECT_EQ(folder.read("s.l2cp"), "3\n");
  EXPECT_EQ(folder.read("s.l2cp.old"), "2\n");
}

TEST_F(Saving, KeepsScriptsFromEverybodyElse) {
  const mode_t mask = umask(0);
  EXPECT_EQ(save({"1"}), "");
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(Saving, TakesTheNameAlsoWithoutAFolder) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(std::filesystem::path(path).parent_path());
  EXPECT_EQ(startup::save("plain", {"1"}), "");
  std::filesystem::current_path(before);
  EXPECT_EQ(folder.read("plain"), "1\n");
}

TEST_F(Saving, GoesOverWhatACrashLeftBehind) {
  save({"1"});
  folder.write("s.l2cp.new", "half a scr");
  folder.write("s.l2cp.old.new", "something");
  EXPECT_EQ(save({"2"}), "");
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp", "s.l2cp.old"));
  EXPECT_EQ(folder.read("s.l2cp"), "2\n");
  EXPECT_EQ(folder.read("s.l2cp.old"), "1\n");
}

TEST_F(Saving, SaysThatAFolderIsMissing) {
  EXPECT_EQ(startup::save(folder.file("none/s.l2cp"), {"1"}),
            "cannot create " + folder.file("none/s.l2cp.new") + ": No such file or directory");
}

TEST_F(Saving, RefusesToTakeThePlaceOfAFolderOrADevice) {
  mkdir(path.c_str(), 0700);
  EXPECT_EQ(save({"1"}), path + " is not a regular file");
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp"));
  EXPECT_EQ(startup::save("/dev/null", {"1"}), "/dev/null is not a regular file");
}

TEST_F(Saving, FolderInPlaceOfTheFreshScriptIsNamed) {
  save({"1"});
  mkdir((path + ".new").c_str(), 0700);
  EXPECT_EQ(save({"2"}), "cannot create " + path + ".new: Is a directory");
  EXPECT_EQ(folder.read("s.l2cp"), "1\n");
}

TEST_F(Saving, FolderInPlaceOfThePreviousScriptIsNamedAndNothingTemporaryStays) {
  save({"1"});
  mkdir((path + ".old").c_str(), 0700);
  EXPECT_EQ(save({"2"}), "cannot rename " + path + ".old.new: Is a directory");
  EXPECT_EQ(folder.read("s.l2cp"), "1\n");
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp", "s.l2cp.old"));
}

TEST_F(Saving, DiskWithoutRoomLeavesTheScriptThatIsThere) {
  save({"1"});
  save({"2"});
  // The kernel counts the bytes of a file as it does those of a disk.
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlim_t before = std::exchange(limit.rlim_cur, 5);
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limit);
  const std::string problem = save({"longer than that"});
  limit.rlim_cur = before;
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(problem, "cannot write " + path + ".new: File too large");
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp", "s.l2cp.old"));
  EXPECT_EQ(folder.read("s.l2cp"), "2\n");
  EXPECT_EQ(folder.read("s.l2cp.old"), "1\n");
}

/// Has the kernel refuse to give files second names, in this process and for good.
bool refuseLinks(int error) {
  std::vector<sock_filter> program{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
#ifdef SYS_link
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_link, 1, 0),
#endif
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

class SavingWithoutLinks : public Saving {
 protected:
  enum Outcome { saved, failed, notTried };

  Outcome saveWithout(int error, const Lines& lines) const {
    const pid_t child = fork();
    if (child == 0) {
      if (!refuseLinks(error)) _exit(notTried);
      _exit(save(lines).empty() ? saved : failed);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? static_cast<Outcome>(WEXITSTATUS(status)) : failed;
  }
};

// The file of another user, or a file system that knows no second names.
TEST_F(SavingWithoutLinks, KeepsThePreviousScriptAsACopy) {
  std::string previous(100'000, 'x');
  for (const int error : {EPERM, EOPNOTSUPP, EMLINK, ENOSYS}) {
    SCOPED_TRACE(error);
    folder.write("s.l2cp", previous);
    folder.write("s.l2cp.old", "before\n");
    const Outcome outcome = saveWithout(error, {"2"});
    if (outcome == notTried) GTEST_SKIP() << "system calls cannot be refused here";
    EXPECT_EQ(outcome, saved);
    EXPECT_THAT(folder.names(), ElementsAre("s.l2cp", "s.l2cp.old"));
    EXPECT_EQ(folder.read("s.l2cp"), "2\n");
    EXPECT_EQ(folder.read("s.l2cp.old"), previous);
  }
}

TEST_F(SavingWithoutLinks, OfTheFirstScriptHasNothingToKeep) {
  const Outcome outcome = saveWithout(EPERM, {"1"});
  if (outcome == notTried) GTEST_SKIP() << "system calls cannot be refused here";
  EXPECT_EQ(outcome, saved);
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp"));
}

TEST_F(SavingWithoutLinks, LeavesTheScriptThatCannotBeKept) {
  folder.write("s.l2cp", "1\n");
  const Outcome outcome = saveWithout(EIO, {"2"});
  if (outcome == notTried) GTEST_SKIP() << "system calls cannot be refused here";
  EXPECT_EQ(outcome, failed);
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp"));
  EXPECT_EQ(folder.read("s.l2cp"), "1\n");
}

TEST_F(SavingWithoutLinks, LeavesTheScriptThatCannotBeCopied) {
  folder.write("s.l2cp", "1\n");
  chmod(path.c_str(), 0);
  std::filesystem::permissions(folder.file(""), std::filesystem::perms::all);
  {
    const support::AsNobody nobody;
    if (!nobody.isDone()) GTEST_SKIP() << "there is no other user here";
    const Outcome outcome = saveWithout(EPERM, {"2"});
    if (outcome == notTried) GTEST_SKIP() << "system calls cannot be refused here";
    EXPECT_EQ(outcome, failed);
  }
  chmod(path.c_str(), 0600);
  EXPECT_THAT(folder.names(), ElementsAre("s.l2cp"));
  EXPECT_EQ(folder.read("s.l2cp"), "1\n");
}

/// Another process that runs something and stops before and behind each of its system calls.
class Stepped {
 public:
  template <class Function>
  explicit Stepped(Function function) : child_(fork()) {
    if (child_ == 0) {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
      function();
      _exit(0);
    }
    waitpid(child_, &status_, 0);
    ptrace(PTRACE_SETOPTIONS, child_, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
  }
  ~Stepped() {
    if (!WIFSTOPPED(status_)) return;
    kill(child_, SIGKILL);
    waitpid(child_, &status_, 0);
  }
  Stepped(const Stepped&) = delete;
  Stepped& operator=(const Stepped&) = delete;

  /// False when it has ended.
  bool step() {
    if (ptrace(PTRACE_SYSCALL, child_, nullptr, nullptr) != 0) return false;
    waitpid(child_, &status_, 0);
    return WIFSTOPPED(status_);
  }
  /// The system call that it is about to do; nothing behind one.
  std::optional<std::uint64_t> call() const {
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, child_, sizeof(info), &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return std::nullopt;
    return info.entry.nr;
  }

 private:
  pid_t child_;
  int status_ = 0;
};

TEST_F(Saving, CrashAtAnyMomentLeavesWholeScripts) {
  bool ended = false;
  for (int moment = 1; !ended; ++moment) {
    SCOPED_TRACE(moment);
    // Both names may stand for one file.
    for (const std::string& name : folder.names()) unlink(folder.file(name).c_str());
    folder.write("s.l2cp", "first\n");
    folder.write("s.l2cp.old", "before\n");
    {
      Stepped process([&] { save({"second"}); });
      for (int i = 0; i < moment && !ended; ++i) ended = !process.step();
    }
    if (moment == 1 && ended) GTEST_SKIP() << "system calls cannot be followed here";
    EXPECT_THAT(folder.read("s.l2cp"), testing::AnyOf("first\n", "second\n"));
    EXPECT_THAT(folder.read("s.l2cp.old"), testing::AnyOf("before\n", "first\n"));
  }
  EXPECT_EQ(folder.read("s.l2cp"), "second\n");
}

// What becomes of files; other calls have no name. Not every machine has the short forms.
const char* nameOf(std::uint64_t call) {
  switch (call) {
    case SYS_write:
      return "write";
    case SYS_fsync:
      return "sync";
#ifdef SYS_link
    case SYS_link:
#endif
    case SYS_linkat:
      return "link";
#ifdef SYS_rename
    case SYS_rename:
#endif
    case SYS_renameat:
    case SYS_renameat2:
      return "rename";
    default:
      return nullptr;
  }
}

TEST_F(Saving, ScriptHasReachedTheDiskBeforeItTakesTheName) {
  save({"first"});
  Lines calls;
  bool followed = false;
  Stepped process([&] { save({"second"}); });
  while (process.step()) {
    followed = true;
    const auto call = process.call();
    if (call && nameOf(*call) != nullptr) calls.emplace_back(nameOf(*call));
  }
  if (!followed) GTEST_SKIP() << "system calls cannot be followed here";
  EXPECT_THAT(calls, ElementsAre("write", "sync", "link", "rename", "rename", "sync"));
}

// ---- Replaying ----

class Replaying : public RestoreTest {
 protected:
  startup::Replay replay(std::string_view contents,
                         Strictness strictness = Strictness::skipLines) const {
    startup::Replay result = startup::replay(folder.write("s.l2cp", contents), strictness);
    // The file's name is the same in every problem.
    for (std::string& problem : result.problems) {
      EXPECT_TRUE(problem.starts_with(path + ":"));
      problem.erase(0, path.size());
    }
    return result;
  }
  Lines problems(std::string_view contents) const { return replay(contents).problems; }

  const std::string path = folder.file("s.l2cp");
};

TEST_F(Replaying, ScriptThatDoesNotExistHasNothingToSay) {
  const auto [commands, problems, isUndone] = startup::replay(path, Strictness::skipLines);
  EXPECT_EQ(commands, 0U);
  EXPECT_THAT(problems, IsEmpty());
}

TEST_F(Replaying, WhatIsNoFileIsNamed) {
  for (const Strictness strictness : {Strictness::skipLines, Strictness::nothing}) {
    EXPECT_THAT(startup::replay("/dev/zero", strictness).problems,
                ElementsAre("/dev/zero: is not a regular file"));
    EXPECT_THAT(startup::replay("/tmp", strictness).problems,
                ElementsAre("/tmp: is not a regular file"));
  }
  mkfifo(path.c_str(), 0600);
  EXPECT_THAT(startup::replay(path, Strictness::skipLines).problems,
              ElementsAre(path + ": is not a regular file"));
}

TEST_F(Replaying, FileThatCannotBeReachedIsNamed) {
  folder.write("s.l2cp", "");
  EXPECT_THAT(startup::replay(path + "/x", Strictness::skipLines).problems,
              ElementsAre(path + "/x: Not a directory"));
}

TEST_F(Replaying, CarriesOutEveryLineAndCountsCommandsAlone) {
  const auto [commands, problems, isUndone] = replay(
      "! comment\n"
      "\n"
      "l2cp-profile P\n"
      " protocol \"LLDP\" rule peer\n"
      "exit\n"
      "attach P port 3");
  EXPECT_EQ(commands, 3U);
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_THAT(attachments(3), ElementsAre("P vlan 4095"));
}

TEST_F(Replaying, LinesThatAreNotUnderstoodOrRefusedAreNamedAndTheOthersCarriedOut) {
  EXPECT_THAT(problems("bogus\n"
                       "l2cp-profile P\n"
                       " protocol \"none\" rule peer\n"
                       " protocol \"LLDP\" rule drop\n"
                       " protocol \"LLDP\" rule peer\n"
                       "exit\n"
                       "attach P port -1\n"
                       "attach Q port 3\n"
                       "attach P port 3\r\n"
                       "attach P port 4\n"),
              ElementsAre(":1: expected one of l2protocol, l2cp-profile, vlan-profile, "
                          "service-profile, attach, apply",
                          ":4: the rule is not \"discard\", \"peer\" or \"tunnel\"",
                          ":7: the port is not a number from 0 to 4294967295",
                          ":9: there is a control character in the line",
                          ":3: there is no such protocol or VLAN profile, or nothing is attached "
                          "to the port",
                          ":8: there is no profile or protocol of this name"));
  EXPECT_THAT(written(), ElementsAre("l2cp-profile P", " protocol \"LLDP\" rule peer", "exit",
                                     "attach P port 4"));
}

TEST_F(Replaying, CommandsOfAModeThatCannotBeEnteredAreSkipped) {
  // Also a comment, an empty line and missing indentation keep the reader there.
  EXPECT_THAT(problems("service-profile s surplus\n"
                       "! comment\n"
                       "\n"
                       "vlan-profile v\n"
                       "\tl2cp-profile P\n"
                       "exit\n"
                       "vlan-profile\n"
                       " interface 3 svid 5\n"
                       "exit\n"
                       " l2cp-profile \"P\n"
                       " protocol \"LLDP\" rule peer\n"
                       "exit\n"
                       "vlan-profile w\n"
                       "exit\n"),
              ElementsAre(":1: there are words too many", ":7: the profile's name is missing",
                          ":10: a quotation does not end"));
  EXPECT_THAT(written(), ElementsAre("vlan-profile w", "exit"));
}

TEST_F(Replaying, LinesOfSuchAModeThatAreNoCommandsThereAreNamed) {
  EXPECT_THAT(problems("vlan-profile\n"
                       " attach P port 3\n"
                       "exit now\n"
                       "exit\n"
                       "exit\n"),
              ElementsAre(":1: the profile's name is missing",
                          ":2: expected one of interface, exit", ":3: there are words too many",
                          ":5: expected one of l2protocol, l2cp-profile, vlan-profile, "
                          "service-profile, attach, apply"));
}

TEST_F(Replaying, CommandsForAnObjectThatIsRefusedAreSkipped) {
  const std::string overlong(100, 'n');
  EXPECT_THAT(problems("vlan-profile " + overlong +
                       "\n"
                       " interface 3 svid 5\n"
                       "exit\n"
                       "service-profile " +
                       overlong +
                       "\n"
                       " vlan-profile w\n"
                       "exit\n"
                       "vlan-profile w\n"),
              ElementsAre(":1: a name is empty or too long, or a number is out of range, or the "
                          "profile has no such entry",
                          ":4: a name is empty or too long, or a number is out of range, or the "
                          "profile has no such entry"));
  EXPECT_THAT(written(), ElementsAre("vlan-profile w", "exit"));
}

TEST_F(Replaying, LineOfAnyLengthAndByteIsOneLine) {
  EXPECT_THAT(problems(std::string(1000000, 'x') + "\n" + std::string(3, '\0') + "\n\xff\xfe"),
              ElementsAre(testing::StartsWith(":1: expected one of"),
                          ":2: there is a control character in the line",
                          testing::StartsWith(":3: expected one of")));
}

TEST_F(Replaying, StrictlyRunsNothingOfAScriptWithALineThatIsNotUnderstood) {
  run({"vlan-profile before", "exit"});
  const auto [commands, problems, isUndone] =
      replay("l2cp-profile P\nexit\nbogus\n", Strictness::nothing);
  EXPECT_EQ(commands, 0U);
  EXPECT_FALSE(isUndone);
  EXPECT_THAT(problems, ElementsAre(testing::StartsWith(":3: expected one of")));
  EXPECT_THAT(written(), ElementsAre("vlan-profile before", "exit"));
}

TEST_F(Replaying, StrictlyEndsAtTheFirstRefusalWithTheDefaults) {
  const auto [commands, problems, isUndone] = replay(
      "l2protocol own mac any\n"
      "l2protocol LLDP mac any ethertype 1 subtype 2\n"
      "no l2protocol CDP\n"
      "l2cp-profile P\n"
      " protocol own rule peer\n"
      " protocol LLDP rule peer\n"
      "exit\n"
      "vlan-profile v\n"
      " interface 3 svid 5\n"
      "exit\n"
      "service-profile s\n"
      " vlan-profile v\n"
      " l2cp-profile P\n"
      "exit\n"
      "apply s interface 3\n"
      "attach P port 4\n"
      "attach none port 5\n"
      "attach none port 6\n",
      Strictness::nothing);
  EXPECT_EQ(commands, 0U);
  EXPECT_TRUE(isUndone);
  EXPECT_THAT(problems, ElementsAre(":17: there is no profile or protocol of this name"));
  startup::save(path, running(Scripter::configAll));
  support::startFresh();
  startup::save(folder.file("fresh"), running(Scripter::configAll));
  EXPECT_EQ(folder.read("s.l2cp"), folder.read("fresh"));
  EXPECT_TRUE(support::RecordingClassifier::instance().entries.empty());
}

TEST_F(Replaying, StrictlyRunsAScriptWithoutProblems) {
  const auto [commands, problems, isUndone] =
      replay("vlan-profile v\n interface 3 svid 5\nexit\n", Strictness::nothing);
  EXPECT_EQ(commands, 2U);
  EXPECT_FALSE(isUndone);
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_THAT(written(), ElementsAre("vlan-profile v", " interface 3 svid 5", "exit"));
}

}  // namespace
