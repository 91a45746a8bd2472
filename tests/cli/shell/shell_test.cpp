// The shell without a terminal and without a daemon: levels, what wrong lines are answered with,
// what its keys complete and tell. And the file of lines that were typed.

#include "cli/shell/shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "cli/shell/history.h"
#include "tests/cli/shell/scripted_dialogue.h"

namespace cli {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class ShellWithoutDaemon : public testing::Test {
 protected:
  // No IPv4 address, so that nothing is waited for.
  ShellWithoutDaemon() { options_.server.address = "::1"; }

  // What a line is answered with.
  std::string answer(const std::string& line) {
    text_.str("");
    shell().take(line);
    return text_.str();
  }
  void breakOutput() { text_.setstate(std::ios::badbit); }
  std::string completed(const std::string& line) {
    const Completed completed = shell().complete(line);
    return line.substr(0, completed.from) + completed.text;
  }
  Shell& shell() {
    if (!shell_) shell_.emplace(options_, Surroundings{}, text_, text_, dialogue_);
    return *shell_;
  }

 private:
  Options options_;
  ScriptedDialogue dialogue_;
  std::ostringstream text_;
  std::optional<Shell> shell_;
};

constexpr const char* notReached = "l2cpd not reached at ::1";

TEST_F(ShellWithoutDaemon, HasLevelsThatThePromptTells) {
  EXPECT_EQ(shell().prompt(), "l2cp# ");
  for (const char* line : {"configure", "configure terminal", "conf t"}) {
    EXPECT_EQ(answer(line), "");
    EXPECT_EQ(shell().prompt(), "l2cp(config)# ");
    EXPECT_EQ(answer(std::string(line).size() > 9 ? "end" : "exit"), "");
    EXPECT_EQ(shell().prompt(), "l2cp# ");
  }
  EXPECT_FALSE(shell().isOver());
  EXPECT_EQ(answer("exit"), "");
  EXPECT_TRUE(shell().isOver());
}

TEST_F(ShellWithoutDaemon, GoesOnAfterOutputThatCouldNotBeWritten) {
  EXPECT_EQ(answer("configure"), "");
  breakOutput();
  EXPECT_THAT(answer("frob"), HasSubstr("expected one of"));
}

TEST_F(ShellWithoutDaemon, AnswersFailedLinesAsTheCommandLineDoesAndGoesOn) {
  EXPECT_THAT(answer("l2cpctl frob"),
              StartsWith("l2cpctl: error: \"frob\" is no command; there are: "));
  EXPECT_THAT(answer("frob"),
              AllOf(StartsWith("l2cpctl: error: \"frob\" is no command; there are: protocol, "),
                    HasSubstr(", configure, "), HasSubstr(", show, "), HasSubstr(", exit")));
  EXPECT_THAT(answer("shwo"), HasSubstr("(did you mean \"show\"?)"));
  EXPECT_EQ(answer("profile show"),
            "l2cpctl: error: profile show: NAME is missing; see \"l2cpctl profile show --help\"\n");
  EXPECT_EQ(
      answer("pro list"),
      "l2cpctl: error: \"pro\" could be \"protocol\" or \"profile\"; see \"l2cpctl --help\"\n");
  EXPECT_THAT(answer("profile list --frob"), HasSubstr("\"--frob\" is no option"));
  EXPECT_THAT(answer("profile list"), HasSubstr(notReached));
  EXPECT_THAT(answer("profile show \"gold"), HasSubstr("a quotation does not end"));
  EXPECT_THAT(answer("profile show a\x1b[2J"), HasSubstr("there is a control character"));
  EXPECT_THAT(answer("exit now"), HasSubstr("\"now\" is one word too many"));
  EXPECT_THAT(answer("show"), HasSubstr("what to show is missing; there are: protocol, profile, "));
  EXPECT_FALSE(shell().isOver());
}

TEST_F(ShellWithoutDaemon, AnswersFailedLinesOfConfigurationLevel) {
  answer("configure");
  EXPECT_EQ(answer("frob"),
            "l2cpctl: error: expected one of l2protocol, l2cp-profile, vlan-profile, "
            "service-profile, attach, apply, no, show, do, help, exit, end\n");
  EXPECT_EQ(answer("no frob"),
            "l2cpctl: error: behind \"no\": expected one of l2protocol, l2cp-profile, "
            "vlan-profile, service-profile, attach, apply\n");
  EXPECT_EQ(answer("no"), answer("no frob"));
  EXPECT_THAT(answer("end now"), HasSubstr("\"now\" is one word too many"));
  EXPECT_EQ(answer("l2 x"),
            "l2cpctl: error: \"l2\" could be \"l2protocol\" or \"l2cp-profile\"; see \"l2cpctl "
            "--help\"\n");
  EXPECT_THAT(answer("l2protocol x mac 1"), HasSubstr("the MAC is not"));
  EXPECT_THAT(answer("l2cp-profile gold"), HasSubstr(notReached));
  EXPECT_THAT(answer("attach gold port uplink"), HasSubstr(notReached));
  EXPECT_THAT(answer("do profile list"), HasSubstr(notReached));
  EXPECT_THAT(answer("abort"), HasSubstr("nothing to give up"));
  EXPECT_EQ(shell().prompt(), "l2cp(config)# ");
}

TEST_F(ShellWithoutDaemon, PassesOverLinesThatSayNothing) {
  for (const char* line : {"", "  ", "! a comment", "  !"}) EXPECT_EQ(answer(line), "");
}

TEST_F(ShellWithoutDaemon, ShowsHelp) {
  EXPECT_THAT(answer("help"), AllOf(HasSubstr("\"?\" tells"), HasSubstr("Commands:")));
  EXPECT_EQ(answer("hel"), answer("help"));
  EXPECT_EQ(answer("h prof sh"), answer("help profile show"));
  EXPECT_THAT(answer("help profile show"), StartsWith("Usage: l2cpctl [OPTIONS] profile show"));
  EXPECT_THAT(answer("profile show -h"), StartsWith("Usage: l2cpctl [OPTIONS] profile show"));
  EXPECT_THAT(answer("-V"), StartsWith("l2cpctl "));
  answer("configure");
  EXPECT_THAT(answer("help"), AllOf(HasSubstr("\"?\" tells"), HasSubstr("l2cp-profile     Opens")));
}

TEST_F(ShellWithoutDaemon, LeavesLevelsWhenItIsInterrupted) {
  answer("configure");
  shell().interrupt();
  EXPECT_EQ(shell().prompt(), "l2cp# ");
  shell().interrupt();
  EXPECT_FALSE(shell().isOver());
  shell().leave();
  EXPECT_TRUE(shell().isOver());
}

// ---- Keys ----

TEST_F(ShellWithoutDaemon, CompletesWordsAsFarAsTheyAreCertain) {
  EXPECT_EQ(completed("conf"), "configure ");
  EXPECT_EQ(completed("pro"), "pro");
  EXPECT_EQ(completed("prof"), "profile ");
  EXPECT_EQ(completed("profile s"), "profile s");
  EXPECT_EQ(completed("profile sta"), "profile stat");
  EXPECT_EQ(completed("profile list --pr"), "profile list --pretty ");
  EXPECT_EQ(completed("frob "), "frob ");
  EXPECT_EQ(completed("l2cpctl prof"), "l2cpctl profile ");
  EXPECT_EQ(completed("show prof"), "show profile ");
  EXPECT_EQ(completed("show profile sta"), "show profile stat");
  EXPECT_EQ(completed("show running-config sh a"), "show running-config sh all ");
  EXPECT_EQ(completed("help prof"), "help profile ");
}

TEST_F(ShellWithoutDaemon, CompletesLinesOfConfigurationLevel) {
  answer("configure");
  EXPECT_EQ(completed("l2c"), "l2cp-profile ");
  EXPECT_EQ(completed("no vl"), "no vlan-profile ");
  EXPECT_EQ(completed("att x po"), "att x port ");
  EXPECT_EQ(completed("do prof"), "do profile ");
  EXPECT_EQ(completed("do show prof"), "do show profile ");
  EXPECT_EQ(completed("show run"), "show running-config ");
  EXPECT_EQ(completed("l2 "), "l2 ");
}

TEST_F(ShellWithoutDaemon, CompletesFiles) {
  const std::string folder = testing::TempDir() + "shell_files" + std::to_string(getpid());
  std::filesystem::create_directories(folder + "/frames of mine");
  std::ofstream(folder + "/lldp.pcap") << "";
  std::ofstream(folder + "/l\x1b[2J") << "";
  EXPECT_EQ(completed("feed 3 " + folder + "/l"), "feed 3 " + folder + "/lldp.pcap ");
  EXPECT_EQ(completed("feed 3 " + folder + "/f"), "feed 3 \"" + folder + "/frames of mine/");
  EXPECT_EQ(completed("feed 3 /nowhere/"), "feed 3 /nowhere/");
  std::filesystem::remove_all(folder);
}

TEST_F(ShellWithoutDaemon, TellsWhatCanStandAtTheCursor) {
  EXPECT_THAT(shell().help("profile show "), ElementsAre("  NAME", "  position"));
  EXPECT_THAT(shell().help("profile list "), ElementsAre("  <Enter>"));
  EXPECT_THAT(shell().help("conf"), ElementsAre("  configure  Enters configuration level."));
  EXPECT_THAT(shell().help("frob "), ElementsAre("  nothing fits here"));
  EXPECT_THAT(shell().help(""), Contains(StartsWith("  profile          Profiles: ")));
  answer("configure");
  EXPECT_THAT(shell().help("attach x port 3 "), ElementsAre("  vlan", "  <Enter>"));
}

TEST_F(ShellWithoutDaemon, TakesAnythingThatIsTyped) {
  std::string line;
  for (int c = 0; c < 256; ++c) line += static_cast<char>(c);
  std::string manyWords = "show";
  for (int i = 0; i < 100000; ++i) manyWords += " a";
  for (const std::string& each :
       {line, manyWords, "do " + manyWords, std::string(100000, '"'), std::string(3000, 'a'),
        std::string("\xc3"), std::string("profile show \"\xff")}) {
    EXPECT_FALSE(shell().help(each).empty());
    EXPECT_EQ(completed(each), each);
    EXPECT_NE(answer(each), "");
    answer("configure");
    EXPECT_FALSE(shell().help(each).empty());
    EXPECT_EQ(completed(each), each);
    EXPECT_NE(answer(each), "");
    answer("exit");
  }
}

// ---- What was typed ----

class History : public testing::Test {
 protected:
  History() {
    std::filesystem::remove_all(folder_);
    setenv("XDG_STATE_HOME", folder_.c_str(), 1);
  }
  ~History() override { std::filesystem::remove_all(folder_); }

  std::string folder_ = testing::TempDir() + "shell_history" + std::to_string(getpid());
  std::string file_ = folder_ + "/l2cpctl/history";
};

TEST_F(History, IsKeptForItsOwnerAlone) {
  HistoryFile(3).append("profile list");
  HistoryFile(3).append("caf\xc3\xa9");
  EXPECT_THAT(HistoryFile(3).load(), ElementsAre("profile list", "caf\xc3\xa9"));
  struct stat status {};
  ASSERT_EQ(stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  ASSERT_EQ(stat((folder_ + "/l2cpctl").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST_F(History, IsTheLastLinesAndItsFileDoesNotGrowForever) {
  const HistoryFile history(3);
  for (int i = 0; i < 8; ++i) history.append("line " + std::to_string(i));
  EXPECT_THAT(history.load(), ElementsAre("line 5", "line 6", "line 7"));
  std::ifstream file(file_);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(text, "line 5\nline 6\nline 7\n");
}

TEST_F(History, HasNoLinesThatWouldHarmATerminal) {
  const HistoryFile history(3);
  history.append("\x1b[2J");
  history.append("\xff");
  std::ofstream(file_, std::ios::app) << "\x1b]0;owned\a\nprofile list\n";
  EXPECT_THAT(history.load(), ElementsAre("profile list"));
}

TEST_F(History, IsDoneWithoutWhereItCannotBeKept) {
  std::ofstream(folder_) << "a file";
  const HistoryFile history(3);
  history.append("profile list");
  EXPECT_THAT(history.load(), IsEmpty());
  setenv("XDG_STATE_HOME", "relative", 1);
  unsetenv("HOME");
  HistoryFile(3).append("profile list");
  EXPECT_FALSE(std::filesystem::exists("relative"));
}

}  // namespace
}  // namespace cli
