// The shell of the built program on a terminal: its keys, and that the terminal's end or a signal
// leaves nothing behind.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "cli/program.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/system/fixture.h"

namespace cli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The program on a terminal.
class Terminal : public support::PseudoTerminal {
 public:
  Terminal() { tcgetattr(number(), &before_); }
  ~Terminal() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void start(const std::vector<std::string>& options = {}) {
    std::vector<std::string> words{L2CPCTL_PROGRAM};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    process_ = fork();
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setsid();
    ioctl(number(), TIOCSCTTY, 0);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(number(), stream);
    close(number());
    setenv("TERM", "xterm", 1);
    setenv("NO_COLOR", "1", 1);
    setenv("XDG_STATE_HOME", "/run/state", 1);
    unsetenv("LC_ALL");
    execv(arguments[0], arguments.data());
    _exit(127);
  }

  /// The exit status, as of a shell.
  int wait() {
    int status = 0;
    if (!support::eventually([&] { return waitpid(process_, &status, WNOHANG) != 0; })) return -1;
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  void signal(int number) const { kill(process_, number); }

  /// Whether the program has taken everything that was typed.
  bool isReadEmpty() const {
    int left = -1;
    return ioctl(number(), FIONREAD, &left) == 0 && left == 0;
  }

  bool isAsBefore() const {
    termios now{};
    tcgetattr(number(), &now);
    return now.c_iflag == before_.c_iflag && now.c_oflag == before_.c_oflag &&
           now.c_lflag == before_.c_lflag && now.c_cflag == before_.c_cflag &&
           std::equal(std::begin(now.c_cc), std::end(now.c_cc), std::begin(before_.c_cc));
  }

 private:
  termios before_{};
  pid_t process_ = -1;
};

constexpr const char* top = "l2cp# ";
constexpr const char* configuration = "l2cp(config)# ";
constexpr const char* inGold = "l2cp(config-l2cp-profile gold)# ";

class ShellOnTerminal : public DaemonTest {
 protected:
  void SetUp() override {
    if (!terminal.isThere()) GTEST_SKIP() << "no terminals here";
    DaemonTest::SetUp();
    if (IsSkipped()) return;
    for (const std::vector<std::string>& line : std::vector<std::vector<std::string>>{
             {"profile", "add", "gold"},
             {"profile", "rule", "add", "gold", "LLDP", "peer"},
             {"vlan-profile", "add", "metro"},
             {"vlan-profile", "set", "metro", "interface", "3", "svid", "100"},
             {"service-profile", "add", "business"},
             {"service-profile", "set", "business", "vlan-profile", "metro"},
             {"service-profile", "set", "business", "l2cp-profile", "gold"},
             {"service-profile", "attach", "business", "interface", "3"}}) {
      EXPECT_EQ(shown(line), "");
    }
    // The line editor never releases the names of the functions behind keys.
    support::World::forgiveLeaksOf("wcsdup");
    terminal.start();
    terminal.until(top);
  }

  static std::string shown(const std::vector<std::string>& line) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(cli::run(line, out, err), 0) << err.str();
    return out.str();
  }
  static std::string profiles() { return shown({"-o", "profile", "list"}); }
  static std::string rules() { return shown({"-o", "profile", "rule", "list", "gold"}); }

  /// Enters the mode of gold, whose copy then is there.
  void enterGold() {
    terminal.type(std::string("configure\rl2cp-profile gold\r"));
    terminal.until(inGold);
    EXPECT_THAT(profiles(), HasSubstr("temp_l2cp_prof_1"));
  }

  static constexpr const char* onlyGold = "name=gold protect=no dynamic=no attachments=1\n";

  Terminal terminal;
};

TEST_F(ShellOnTerminal, EditsLinesAndBringsThemBack) {
  // Ctrl-A and Ctrl-D, the left arrow and backspace.
  terminal.type("xprofile lisst\x01\x04\x05\x1b[D\x7f\r");
  terminal.until("gold  no       no                 1\r\n");
  terminal.until(top);
  terminal.type("profile status gold\r");
  terminal.until("attached");
  terminal.until(top);
  terminal.type("\x1b[A\x1b[A\r");
  terminal.until("gold  no       no                 1\r\n");
  terminal.until(top);
  terminal.type("exit\r");
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isAsBefore());
  struct stat status {};
  ASSERT_EQ(stat("/run/state/l2cpctl/history", &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);

  terminal.start();
  terminal.until(top);
  terminal.type("\x1b[A\x1b[A\r");
  terminal.until("gold  no       no                 1\r\n");
}

TEST_F(ShellOnTerminal, CompletesAndTellsWhatCanStandThere) {
  terminal.type("prof\tsho\tg\t\r");
  terminal.until("name         gold\r\n");
  terminal.until(top);
  terminal.type("profile s\t");
  terminal.until("  statistics  Asks for a profile's counters.\r\n");
  terminal.until(top);
  terminal.type("\x03");
  terminal.until(top);
  terminal.type("protocol set LLDP ?");
  terminal.until("  ethertype\r\n");
  terminal.until(top);
  terminal.type("protect on\rprofile add \"what?\"\r");
  terminal.until(top);
  terminal.until(top);
  EXPECT_THAT(profiles(), HasSubstr("name='what?'"));
}

TEST_F(ShellOnTerminal, EditsAProfileInForceAndAsksBeforeItInterruptsIt) {
  enterGold();
  terminal.type("proto\tLLDP ru\ttun\t\rexit\r");
  terminal.until("Only rules differ");
  terminal.until("Replace it twice? [y/N] ");
  terminal.type("n\r");
  terminal.until("Nothing is replaced");
  terminal.until(inGold);
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
  terminal.type("exit\r");
  terminal.until("Replace it twice? [y/N] ");
  terminal.type("y\x03");
  terminal.until("Nothing is replaced");
  terminal.until(inGold);
  terminal.type("exit\r");
  terminal.until("Replace it twice? [y/N] ");
  terminal.type("y\r");
  terminal.until("Profile gold is replaced.\r\n");
  terminal.until(configuration);
  EXPECT_EQ(rules(), "protocol=LLDP rule=tunnel\n");
  EXPECT_EQ(profiles(), onlyGold);
}

TEST_F(ShellOnTerminal, GivesChangesUpOnRequest) {
  enterGold();
  terminal.type("no protocol LLDP\rabort\r");
  terminal.until("What was changed in profile gold is discarded.\r\n");
  terminal.until(configuration);
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

TEST_F(ShellOnTerminal, TakesControlCForTheLineAndThenForTheMode) {
  enterGold();
  terminal.type("no protocol LLDP\x03");
  terminal.until("^C\r\n");
  terminal.until(inGold);
  terminal.type("\x03");
  terminal.until("Profile gold is unchanged.\r\n");
  terminal.until(configuration);
  terminal.type("\x03");
  terminal.until(top);
  EXPECT_EQ(profiles(), onlyGold);
  enterGold();
  terminal.signal(SIGINT);
  terminal.until(configuration);
}

TEST_F(ShellOnTerminal, EndsACommandAtControlCAndAtSignalsThatEndTheShell) {
  std::string script;
  for (int i = 0; i < 200000; ++i) script += "l2cp-profile gold\nexit\n";
  support::World::file("long.l2cp", script);
  terminal.type("load /run/long.l2cp\r");
  terminal.until("\r\x1b[K/run/long.l2cp: line ");
  terminal.type("\x03");
  terminal.until(": interrupted; what stands before was carried out\r\n");
  terminal.until(top);
  terminal.type("load /run/long.l2cp\r");
  terminal.until("\r\x1b[K/run/long.l2cp: line ");
  terminal.signal(SIGTERM);
  EXPECT_EQ(terminal.wait(), 128 + SIGTERM);
  EXPECT_TRUE(terminal.isAsBefore());
}

TEST_F(ShellOnTerminal, EndsWatchingAtControlCAndItselfAtSignalsThatEndIt) {
  terminal.type("watch interval 3600\r");
  terminal.until("VLAN");
  terminal.type("\x03");
  terminal.until(top);
  for (const int number : {SIGTERM, SIGHUP}) {
    terminal.type("watch interval 3600\r");
    terminal.until("VLAN");
    terminal.signal(number);
    EXPECT_EQ(terminal.wait(), 128 + number);
    EXPECT_TRUE(terminal.isAsBefore());
    terminal.start();
    terminal.until(top);
  }
}

TEST_F(ShellOnTerminal, EndsAtASignalThatComesInsteadOfAConfirmation) {
  const std::string before = shown({"running-config", "show"});
  support::World::file("nothing.l2cp", "");
  terminal.type("apply /run/nothing.l2cp --confirm 60\r");
  terminal.until("Press Enter to keep the changes");
  terminal.type("\x03");
  terminal.until("the configuration is as it was before\r\n");
  terminal.until(top);
  terminal.type("apply /run/nothing.l2cp --confirm 60\r");
  terminal.until("Press Enter to keep the changes");
  terminal.signal(SIGTERM);
  terminal.until("the configuration is as it was before\r\n");
  EXPECT_EQ(terminal.wait(), 128 + SIGTERM);
  EXPECT_TRUE(terminal.isAsBefore());
  EXPECT_EQ(shown({"running-config", "show"}), before);
}

TEST_F(ShellOnTerminal, GivesUpAScriptThatIsBeingTypedAtControlCAndAtSignalsThatEndIt) {
  const std::string before = shown({"running-config", "show"});
  const auto typeScript = [&](const std::string& command) {
    terminal.type(command + " -\r");
    ASSERT_TRUE(support::eventually([&] { return terminal.isAsBefore(); }));
    terminal.type("l2cp-profile silver\r");
    terminal.until("l2cp-profile silver\r\n");
    ASSERT_TRUE(support::eventually([&] { return terminal.isReadEmpty(); }));
  };
  for (const char* command : {"load", "diff", "apply"}) {
    typeScript(command);
    terminal.type("\x03");
    terminal.until("error: interrupted; nothing was done\r\n");
    terminal.until(top);
  }
  typeScript("apply");
  terminal.signal(SIGTERM);
  EXPECT_EQ(terminal.wait(), 128 + SIGTERM);
  EXPECT_EQ(shown({"running-config", "show"}), before);
}

TEST_F(ShellOnTerminal, GivesUpAScriptThatComesFromAPipeAtControlC) {
  ASSERT_EQ(mkfifo("/run/pipe", 0600), 0);
  terminal.type("apply /run/pipe\r");
  // Opens when the other end is opened.
  const support::Descriptor writer(open("/run/pipe", O_WRONLY | O_CLOEXEC));
  terminal.type("\x03");
  terminal.until("error: interrupted; nothing was done\r\n");
  terminal.until(top);
  EXPECT_EQ(profiles(), onlyGold);
}

TEST_F(ShellOnTerminal, TakesControlZForTheEndOfConfiguration) {
  enterGold();
  terminal.type("protocol CDP rule peer\r");
  terminal.until(inGold);
  terminal.type("\x1a");
  terminal.until("Profile gold is replaced.\r\n");
  terminal.until(top);
  EXPECT_EQ(rules(), "protocol=CDP rule=peer\nprotocol=LLDP rule=peer\n");
}

TEST_F(ShellOnTerminal, EndsWithControlDAndDiscardsTheCopy) {
  enterGold();
  terminal.type("no protocol LLDP\r");
  terminal.until(inGold);
  terminal.type("\x04");
  terminal.until("What was changed in profile gold is discarded.\r\n");
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_TRUE(terminal.isAsBefore());
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

TEST_F(ShellOnTerminal, DiscardsTheCopyWhenTheTerminalGoes) {
  enterGold();
  terminal.type("no protocol LLDP\r");
  terminal.until(inGold);
  terminal.hangUp();
  EXPECT_EQ(terminal.wait(), 128 + SIGHUP);
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

TEST_F(ShellOnTerminal, DiscardsTheCopyWhenItIsTerminatedWhileItAsks) {
  enterGold();
  terminal.type("protocol LLDP rule tunnel\rexit\r");
  terminal.until("[y/N] ");
  terminal.signal(SIGTERM);
  EXPECT_EQ(terminal.wait(), 128 + SIGTERM);
  EXPECT_TRUE(terminal.isAsBefore());
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

TEST_F(ShellOnTerminal, TakesLettersBeyondAsciiAndNoOtherBytes) {
  terminal.type("profile add caf\xc3\xa9z\x7f\r");
  terminal.until(top);
  terminal.type("profile add \xff\xc3(x\r");
  terminal.until("l2cpctl: error: the line has bytes that are not UTF-8\r\n");
  terminal.until(top);
  EXPECT_EQ(profiles(),
            std::string("name='caf\xc3\xa9' protect=no dynamic=no attachments=0\n") + onlyGold);
}

}  // namespace
}  // namespace cli
