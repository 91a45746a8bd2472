// What the files for bash and zsh make of TAB, with real shells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "cli/program.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/system/fixture.h"

namespace cli {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// A line that the shell itself is to read as it stands.
std::string literal(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// What bash would put in the place of the last word of these lines, one after another.
std::string bash(const std::vector<std::string>& lines) {
  std::string script = "export LC_ALL=C.UTF-8\nsource " COMPLETIONS_FOLDER "/l2cpctl\n";
  for (const std::string& line : lines) {
    script += "COMP_LINE=" + literal(line) +
              " COMP_POINT=${#COMP_LINE}\n_l2cpctl " L2CPCTL_PROGRAM
              "\nprintf '[%s]' \"${COMPREPLY[@]}\"; echo\n";
  }
  const support::Run run = support::run({"bash", "--norc", "-c", script});
  EXPECT_EQ(run.status, 0) << run.output;
  return run.output;
}

bool hasZsh() { return support::run({"/bin/sh", "-c", "command -v zsh"}).status == 0; }

// What zsh is told that these words could go on with.
std::string zsh(const std::vector<std::string>& words, const std::string& beginning) {
  std::string script = "fpath=(" COMPLETIONS_FOLDER ") PREFIX=" + literal(beginning) + "\nwords=(" +
                       literal(L2CPCTL_PROGRAM);
  for (const std::string& word : words) script += ' ' + literal(word);
  script += " " + literal(beginning) +
            ") CURRENT=$#words\nautoload -U _l2cpctl\n"
            "_describe() { print -rl -- ${(@P)argv[-1]} }\n_files() { print a file }\n"
            "_message() { print -r -- \"for $2\" }\n_l2cpctl\n:";
  const support::Run run = support::run({"zsh", "-f", "-c", script});
  EXPECT_EQ(run.status, 0) << run.output;
  return run.output;
}

void addProfiles(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    std::ostringstream out;
    ASSERT_EQ(cli::run({"profile", "add", name}, out, out), 0) << out.str();
  }
}

class Completions : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    if (IsSkipped()) return;
    addProfiles({"my net", "a:b", "a:c", "it's", "$(exit 7)", "caf\xc3\xa9"});
  }
};

TEST_F(Completions, InBashAreWordsOptionsAndLiveNames) {
  EXPECT_EQ(bash({"l2cpctl pro", "l2cpctl prof rule ", "l2cpctl -j vlan ", "l2cpctl --col",
                  "l2cpctl --color=al", "l2cpctl profile show m", "l2cpctl attach x port 3 "}),
            "[protocol][profile]\n"
            "[add][set][delete][clear][list][show]\n"
            "[statistics]\n"
            "[--color]\n"
            "[always]\n"
            "[my\\ net]\n"
            "[vlan]\n");
}

TEST_F(Completions, InBashAreQuotedAsTheShellNeedsThem) {
  EXPECT_EQ(bash({"l2cpctl profile show i", "l2cpctl profile show \"my", "l2cpctl profile show 'my",
                  "l2cpctl profile show my\\ ", "l2cpctl profile show a:",
                  "l2cpctl profile show \\$", "l2cpctl profile show caf"}),
            "[it\\'s]\n[my net\"]\n[my net']\n[my\\ net]\n[b][c]\n[\\$\\(exit\\ 7\\)]\n"
            "[caf\xc3\xa9]\n");
}

TEST_F(Completions, InBashEndWithWholeCharactersWhereNamesDiffer) {
  addProfiles({"w a", "w'b", "v$a", "v\"b", "x!", "x'"});
  EXPECT_EQ(bash({"l2cpctl profile show w", "l2cpctl profile show \"v", "l2cpctl profile show 'x"}),
            "[w\\ a][w\\'b][w]\n[v\\\"b][v\\$a][v]\n[x'\\!'][x'\\''][x]\n");
}

TEST_F(Completions, InBashAreNoneBehindWhatTheShellExpands) {
  addProfiles({"$x:y", "~:y"});
  EXPECT_EQ(bash({"l2cpctl profile show $x:", "l2cpctl profile show ~:", "l2cpctl profile show $x",
                  "l2cpctl profile show \"$x\":", "l2cpctl profile show '$x':"}),
            "[]\n[]\n[\\$x:y]\n[]\n[y]\n");
}

TEST_F(Completions, InBashCarryOutNothingOfTheLine) {
  const std::string file = world().file("untouched", "");
  std::filesystem::remove(file);
  EXPECT_EQ(bash({"l2cpctl profile $(touch " + file + ") `touch " + file + "` ",
                  "l2cpctl profile show '; touch " + file + "; '"}),
            "[]\n[]\n");
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Completions, InZshAreWordsOptionsAndLiveNames) {
  if (!hasZsh()) GTEST_SKIP() << "no zsh here";
  EXPECT_EQ(support::run({"zsh", "-n", COMPLETIONS_FOLDER "/_l2cpctl"}).status, 0);
  EXPECT_EQ(zsh({"vlan"}, ""),
            "statistics:Shows how many frames of a VLAN met which rule, on all "
            "ports.\n");
  EXPECT_EQ(zsh({"profile", "show"}, "m"),
            "for NAME\n$(exit 7):NAME\na\\:b:NAME\na\\:c:NAME\ncaf\xc3\xa9:NAME\nit's:NAME\n"
            "my net:NAME\nposition\n");
  EXPECT_THAT(zsh({"profile", "list"}, "--js"), HasSubstr("--json:Answer in JSON"));
  EXPECT_EQ(zsh({"feed", "3"}, ""), "a file\n");
}

/// A shell on a terminal, whose l2cpctl shows the words that it is given.
class InteractiveShell {
 public:
  InteractiveShell(support::PseudoTerminal& terminal, const std::string& command,
                   const std::string& setUp)
      : terminal_(terminal),
        process_({"/bin/sh", "-c",
                  "LC_ALL=C.UTF-8 TERM=dumb HISTFILE= exec setsid -cw " + command +
                      redirections(terminal_.number())}) {
    terminal_.type("l2cpctl() { if [ \"$1\" = -o ]; then " L2CPCTL_PROGRAM
                   " \"$@\"; else printf 'words: '; printf '<%s>' \"$@\"; echo; fi; }\n" +
                   setUp + "; PS1='rea''dy: '\n");
    terminal_.until("ready: ");
  }

  /// Of a line that is typed, completed and carried out.
  std::string wordsOf(const std::string& line) {
    terminal_.type(line + "\t\n");
    terminal_.until("words: ");
    const std::string words = terminal_.until("\r\n");
    terminal_.until("ready: ");
    return words;
  }

 private:
  static std::string redirections(int number) {
    const std::string terminal = std::to_string(number);
    return " <&" + terminal + " >&" + terminal + " 2>&" + terminal;
  }

  support::PseudoTerminal& terminal_;
  support::Process process_;
};

/// Names that mean something to a shell.
class CompletedNames : public DaemonTest {
 protected:
  struct Typed {
    std::string name;
    std::vector<std::string> beginnings;
  };

  void SetUp() override {
    if (!terminal_.isThere()) GTEST_SKIP() << "no terminals here";
    DaemonTest::SetUp();
    if (IsSkipped()) return;
    for (const Typed& each : names()) addProfiles({each.name});
  }

  static std::vector<Typed> names() {
    return {{"$(touch x)", {R"(\$)", R"("\$)", "'$"}},
            {"it's", {"i", "\"i", "'i", R"('it'\'')"}},
            {"a\"b", {"a", "\"a", "'a\"", "'a'\""}},
            {"back\\slash", {"ba", "\"ba", "'ba", R"("back\\)"}},
            {"x';id;'", {"x", "\"x", "'x"}},
            {"`id`", {"\\`", "\"\\`", "'`"}},
            {"!x", {"\\!", "\"!", "'!"}},
            {"end\"", {"en", "\"en", "'en"}},
            {"End'", {"En", "\"En", "'En"}},
            {"'q u", {"\\'", "\"'", R"(''\'')"}},
            {"c:$d", {"c", "c:", "\"c:", "'c'\":"}}};
  }

  static void expectWhole(InteractiveShell& shell) {
    for (const auto& [name, beginnings] : names()) {
      for (const std::string& beginning : beginnings) {
        ASSERT_EQ(shell.wordsOf("l2cpctl profile show " + beginning),
                  "<profile><show><" + name + ">")
            << beginning;
      }
    }
  }

  support::PseudoTerminal terminal_;
};

TEST_F(CompletedNames, InBashAreTheNamesWhateverQuotationIsOpen) {
  InteractiveShell shell(terminal_, "bash --norc --noprofile -i",
                         "source " COMPLETIONS_FOLDER "/l2cpctl");
  expectWhole(shell);
}

TEST_F(CompletedNames, InZshAreTheNamesWhateverQuotationIsOpen) {
  if (!hasZsh()) GTEST_SKIP() << "no zsh here";
  InteractiveShell shell(terminal_, "zsh -f -i",
                         "fpath=(" COMPLETIONS_FOLDER
                         " $fpath); autoload -U compinit; compinit -D -u");
  expectWhole(shell);
}

class CompletionsWithoutDaemon : public WorldTest {};

TEST_F(CompletionsWithoutDaemon, AreWordsAloneAndNothingIsSaid) {
  EXPECT_EQ(bash({"l2cpctl vlan s", "l2cpctl profile show ", "l2cpctl -s ::1 protocol show "}),
            "[statistics]\n[position]\n[position]\n");
  if (hasZsh()) {
    EXPECT_EQ(zsh({"profile", "delete"}, ""), "for NAME\n");
  }
}

// What the program itself lists for these words.
std::string listed(std::vector<std::string> options, const std::vector<std::string>& words) {
  options.insert(options.end(), {"complete", "--"});
  options.insert(options.end(), words.begin(), words.end());
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(cli::run(options, out, err), 0) << err.str();
  return out.str();
}

TEST_F(Completions, AreListedInEveryForm) {
  EXPECT_EQ(listed({}, {"profile", "s"}),
            "WORD        MEANING\n"
            "show        Shows a profile and its rules.\n"
            "set         Changes one thing about a profile.\n"
            "statistics  Asks for a profile's counters.\n"
            "status      Shows whether a profile may be changed.\n");
  EXPECT_EQ(listed({"-o"}, {"profile", "s"}),
            "word=show meaning='Shows a profile and its rules.'\n"
            "word=set meaning='Changes one thing about a profile.'\n"
            "word=statistics meaning='Asks for a profile'\\''s counters.'\n"
            "word=status meaning='Shows whether a profile may be changed.'\n");
  EXPECT_EQ(listed({"-j"}, {"profile", "s"}),
            R"([{"word":"show","meaning":"Shows a profile and its rules."},)"
            R"({"word":"set","meaning":"Changes one thing about a profile."},)"
            R"({"word":"statistics","meaning":"Asks for a profile's counters."},)"
            R"({"word":"status","meaning":"Shows whether a profile may be changed."}])"
            "\n");
}

TEST_F(Completions, TellWhatElseCanStandThere) {
  EXPECT_EQ(listed({}, {"port", "show", ""}), "WORD  MEANING\n-     PORT\n");
  EXPECT_EQ(listed({"-o"}, {"port", "show", ""}), "word='' meaning=PORT\n");
  EXPECT_EQ(listed({"-p"}, {"port", "show", ""}),
            "[\n"
            "  {\n"
            "    \"word\": null,\n"
            "    \"meaning\": \"PORT\"\n"
            "  }\n"
            "]\n");
}

}  // namespace
}  // namespace cli
