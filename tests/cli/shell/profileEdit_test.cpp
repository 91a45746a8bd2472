// Editing profiles in the shell against a real daemon: what the module alone would not do or do
// only half-way, what is said about it, and that nothing is left behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <sstream>
#include <string>

#include "cli/program.h"
#include "cli/shell/shell.h"
#include "rpc/l2cp.h"
#include "tests/cli/shell/scripted_dialogue.h"
#include "tests/system/fixture.h"

namespace {
// What happens right before a profile is copied for editing: the linker has the client call this.
std::function<void()> beforeCopy;
}  // namespace

extern "C" rpcl2cpProfEditResult* copyProfile(char* name,
                                              CLIENT* client) asm("__real_rpc_l2cp_profile_edit_1");
extern "C" rpcl2cpProfEditResult* noteAndCopyProfile(char* name, CLIENT* client) asm(
    "__wrap_rpc_l2cp_profile_edit_1");

rpcl2cpProfEditResult* noteAndCopyProfile(char* name, CLIENT* client) {
  if (beforeCopy) beforeCopy();
  return copyProfile(name, client);
}

namespace cli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

using CommandWords = std::vector<std::string>;

class Editing : public DaemonTest {
 protected:
  // What lines are answered with, and what is told and asked on the way.
  std::string lines(std::initializer_list<const char*> all) {
    text_.str("");
    dialogue_.told.clear();
    for (const char* line : all) shell().take(line);
    return dialogue_.told + text_.str();
  }
  Shell& shell() {
    if (!shell_) shell_.emplace(Options{}, Surroundings{}, text_, text_, dialogue_);
    return *shell_;
  }
  void agreeTo(std::initializer_list<bool> answers) { dialogue_.answers = answers; }
  void whenAsked(std::function<void()> something) { dialogue_.whenAsked = std::move(something); }
  std::size_t answersLeft() const { return dialogue_.answers.size(); }

  // What somebody else sees.
  static std::string shown(const CommandWords& line) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(cli::run(line, out, err), 0) << err.str();
    return out.str();
  }
  static std::string rules() { return shown({"-o", "profile", "rule", "list", "gold"}); }
  static std::string profiles() { return shown({"-o", "profile", "list"}); }
  static std::string places() { return shown({"-o", "profile", "ports", "gold"}); }
  // Rules that count as uses of a protocol.
  static std::string uses(const char* protocol) {
    const std::string line = shown({"-o", "protocol", "show", protocol});
    return line.substr(line.find("rules="));
  }

  // The profile gold with rules for LLDP and CDP, and with two service profiles in force.
  void makeGold() {
    lines({"configure", "l2cp-profile gold", "protocol LLDP rule peer", "protocol CDP rule tunnel",
           "exit", "vlan-profile metro", "interface 3 svid 100", "interface 5 svid 200", "exit"});
  }
  void putInForce(const char* serviceProfile = "business") {
    const std::string name = serviceProfile;
    EXPECT_EQ(lines({("service-profile " + name).c_str(), "vlan-profile metro", "l2cp-profile gold",
                     "exit", ("apply " + name + " interface 3").c_str(),
                     ("apply " + name + " interface 5").c_str()}),
              "");
  }

  static constexpr const char* untouched = "protocol=CDP rule=tunnel\nprotocol=LLDP rule=peer\n";
  static constexpr const char* inForce = "port=3 vlan=100\nport=5 vlan=200\n";
  static constexpr const char* onlyGold = "name=gold protect=no dynamic=no attachments=2\n";
  static constexpr const char* inMode = "l2cp(config-l2cp-profile gold)# ";
  static constexpr const char* inConfiguration = "l2cp(config)# ";

 private:
  ScriptedDialogue dialogue_;
  std::ostringstream text_;
  std::optional<Shell> shell_;
};

TEST_F(Editing, OfANewProfileMakesIt) {
  EXPECT_EQ(lines({"configure", "l2cp-profile gold"}), "Profile gold is new.\n");
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_EQ(lines({"protocol LLDP rule peer", "exit"}), "");
  EXPECT_EQ(shell().prompt(), inConfiguration);
  EXPECT_EQ(profiles(), "name=gold protect=no dynamic=no attachments=0\n");
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

TEST_F(Editing, OfANewProfileThatIsGivenUpLeavesNothing) {
  EXPECT_EQ(lines({"configure", "l2cp-profile gold", "protocol LLDP rule peer", "abort"}),
            "Profile gold is new.\nProfile gold, which was new, is deleted again.\n");
  EXPECT_EQ(shell().prompt(), inConfiguration);
  EXPECT_EQ(profiles(), "");
  EXPECT_EQ(uses("LLDP"), "rules=0\n");
}

TEST_F(Editing, OfAProfileInForceTakesEffectOnExit) {
  makeGold();
  putInForce();
  EXPECT_EQ(lines({"l2cp-profile gold", "protocol xSTP rule discard", "no protocol CDP",
                   "protocol LLDP rule tunnel", "show"}),
            "l2cp-profile gold\n"
            "-protocol \"CDP\" rule tunnel\n"
            "-protocol \"LLDP\" rule peer\n"
            "+protocol \"LLDP\" rule tunnel\n"
            "+protocol \"xSTP\" rule discard\n");
  EXPECT_EQ(rules(), untouched);
  EXPECT_EQ(lines({"exit"}), "Profile gold is replaced.\n");
  EXPECT_EQ(shell().prompt(), inConfiguration);
  EXPECT_EQ(rules(), "protocol=LLDP rule=tunnel\nprotocol=xSTP rule=discard\n");
  EXPECT_EQ(places(), inForce);
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(uses("CDP"), "rules=0\n");
  EXPECT_EQ(uses("xSTP"), "rules=1\n");
}

TEST_F(Editing, WithoutAChangeDiscardsTheCopy) {
  makeGold();
  putInForce();
  EXPECT_EQ(lines({"l2cp-profile gold", "exit"}), "Profile gold is unchanged.\n");
  EXPECT_EQ(lines({"l2cp-profile gold", "no protocol CDP", "protocol CDP rule tunnel", "end"}),
            "Profile gold is unchanged.\n");
  EXPECT_EQ(shell().prompt(), "l2cp# ");
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(uses("CDP"), "rules=1\n");
}

TEST_F(Editing, ThatIsGivenUpCountsNothingAsUsed) {
  makeGold();
  putInForce();
  EXPECT_EQ(lines({"l2cp-profile gold", "protocol xSTP rule discard", "no protocol CDP", "abort"}),
            "What was changed in profile gold is discarded.\n");
  EXPECT_EQ(shell().prompt(), inConfiguration);
  EXPECT_EQ(rules(), untouched);
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(uses("CDP"), "rules=1\n");
  EXPECT_EQ(uses("xSTP"), "rules=0\n");
}

TEST_F(Editing, IsGivenUpByAnInterruptionAndByTheEndOfLines) {
  makeGold();
  lines({"l2cp-profile gold", "no protocol CDP"});
  shell().interrupt();
  EXPECT_EQ(shell().prompt(), inConfiguration);
  EXPECT_EQ(lines({"l2cp-profile gold", "no protocol CDP"}), "");
  shell().leave();
  EXPECT_TRUE(shell().isOver());
  EXPECT_THAT(lines({}), "");
  EXPECT_EQ(profiles(), "name=gold protect=no dynamic=no attachments=0\n");
  EXPECT_EQ(rules(), untouched);
}

TEST_F(Editing, AnswersAWrongWordWithAllThatCanStandInTheMode) {
  makeGold();
  EXPECT_EQ(lines({"l2cp-profile gold", "frob"}),
            "l2cpctl: error: expected one of protocol, no, show, do, help, exit, end, abort\n");
  EXPECT_EQ(lines({"no exit"}), "l2cpctl: error: behind \"no\": expected one of protocol\n");
  EXPECT_EQ(shell().prompt(), inMode);
}

TEST_F(Editing, GoesOnAfterALineThatIsRefused) {
  makeGold();
  EXPECT_THAT(lines({"l2cp-profile gold", "protocol frob rule peer"}),
              StartsWith("l2cpctl: error: PROTO_NOT_FOUND: "));
  EXPECT_THAT(lines({"no protocol xSTP"}), StartsWith("l2cpctl: error: PROTO_NOT_IN_PROFILE: "));
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_EQ(lines({"no protocol CDP", "exit"}), "Profile gold is replaced.\n");
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

// ---- Rules alone ----

constexpr const char* onlyRules =
    "Only rules differ, not protocols. The module takes that for no change and would discard it.\n"
    "What works is to replace the profile twice: without the rules for CDP, then with\n"
    "the new ones. In between the profile has none for them.\n"
    "Replace it twice?\n";

TEST_F(Editing, OfRulesAloneReplacesAProfileInForceTwice) {
  makeGold();
  putInForce();
  agreeTo({true});
  EXPECT_EQ(lines({"l2cp-profile gold", "protocol CDP rule discard", "exit"}),
            std::string(onlyRules) + "Profile gold is replaced.\n");
  EXPECT_EQ(rules(), "protocol=CDP rule=discard\nprotocol=LLDP rule=peer\n");
  EXPECT_EQ(places(), inForce);
  EXPECT_EQ(profiles(), onlyGold);
  EXPECT_EQ(uses("CDP"), "rules=1\n");
}

TEST_F(Editing, OfRulesAloneGoesOnIfThatIsNotWanted) {
  makeGold();
  putInForce();
  agreeTo({false, true});
  EXPECT_EQ(lines({"l2cp-profile gold", "protocol CDP rule discard", "exit"}),
            std::string(onlyRules) +
                "Nothing is replaced; \"exit\" asks again, \"abort\" gives the changes up.\n");
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_EQ(rules(), untouched);
  EXPECT_EQ(lines({"end"}), std::string(onlyRules) + "Profile gold is replaced.\n");
  EXPECT_EQ(shell().prompt(), "l2cp# ");
}

TEST_F(Editing, OfRulesAloneNeedsNoQuestionWhereNothingIsInForce) {
  makeGold();
  EXPECT_EQ(lines({"l2cp-profile gold", "protocol CDP rule discard", "exit"}),
            "Profile gold is replaced.\n");
  EXPECT_EQ(rules(), "protocol=CDP rule=discard\nprotocol=LLDP rule=peer\n");
  EXPECT_EQ(profiles(), "name=gold protect=no dynamic=no attachments=0\n");
  EXPECT_EQ(uses("CDP"), "rules=1\n");
}

// ---- What is in the way ----

constexpr const char* offer =
    "On \"exit\" this can be taken out of the way, the edited copy put in the profile's place,\n"
    "and all put back. What is attached directly or beside it is out of force in between.\n"
    "Edit it that way?\n";

TEST_F(Editing, OfAProtectedProfileIsOfferedBeforeAnythingIsTyped) {
  makeGold();
  putInForce();
  lines({"do profile set gold protect on"});
  agreeTo({false, true});
  EXPECT_EQ(lines({"l2cp-profile gold"}),
            std::string("Profile gold cannot be replaced as it is:\n  it is protected\n") + offer +
                "Profile gold is not opened.\n");
  EXPECT_EQ(shell().prompt(), inConfiguration);
  EXPECT_EQ(profiles(), "name=gold protect=yes dynamic=no attachments=2\n");

  lines({"l2cp-profile gold", "no protocol CDP"});
  EXPECT_EQ(profiles().find("name=gold protect=yes"), 0U);
  EXPECT_EQ(lines({"exit"}), "Profile gold is replaced.\n");
  EXPECT_EQ(profiles(), "name=gold protect=yes dynamic=no attachments=2\n");
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
  EXPECT_EQ(places(), inForce);
}

TEST_F(Editing, OfADynamicProfileKeepsItDynamic) {
  makeGold();
  putInForce();
  lines({"do profile set gold dynamic on"});
  agreeTo({true, true});
  EXPECT_THAT(lines({"l2cp-profile gold", "protocol CDP rule discard", "exit"}),
              AllOf(HasSubstr("  it is protected\n"), HasSubstr(onlyRules),
                    HasSubstr("Profile gold is replaced.\n")));
  EXPECT_EQ(profiles(), "name=gold protect=yes dynamic=yes attachments=2\n");
  EXPECT_EQ(rules(), "protocol=CDP rule=discard\nprotocol=LLDP rule=peer\n");
}

TEST_F(Editing, OfADynamicProfileWithoutProtectionProtectsIt) {
  lines({"profile add gold dynamic", "configure", "l2cp-profile gold", "protocol CDP rule tunnel",
         "exit"});
  EXPECT_EQ(profiles(), "name=gold protect=no dynamic=yes attachments=0\n");
  lines({"vlan-profile metro", "interface 3 svid 100", "interface 5 svid 200", "exit"});
  putInForce();
  agreeTo({true});
  EXPECT_THAT(lines({"l2cp-profile gold", "protocol CDP rule discard", "exit"}),
              AllOf(HasSubstr("  it is dynamic, and becoming so again will protect it\n"),
                    HasSubstr("Profile gold is replaced.\n")));
  EXPECT_EQ(profiles(), "name=gold protect=yes dynamic=yes attachments=2\n");
  EXPECT_EQ(rules(), "protocol=CDP rule=discard\n");
}

TEST_F(Editing, OfAProfileThatIsAttachedDirectlyDetachesItMeanwhile) {
  makeGold();
  putInForce();
  EXPECT_EQ(lines({"attach gold port 7", "attach gold port 3 vlan 50"}), "");
  agreeTo({true});
  EXPECT_EQ(lines({"l2cp-profile gold", "no protocol CDP", "exit"}),
            std::string("Profile gold cannot be replaced as it is:\n"
                        "  it is attached directly: port 3 vlan 50, port 7\n") +
                offer + "Profile gold is replaced.\n");
  EXPECT_EQ(places(), "port=3 vlan=50\nport=3 vlan=100\nport=5 vlan=200\nport=7 vlan=all\n");
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
  EXPECT_EQ(profiles(), "name=gold protect=no dynamic=no attachments=4\n");
}

TEST_F(Editing, OfRulesAloneOfAnAttachedProfileSetsThemWhileItIsDetached) {
  makeGold();
  EXPECT_EQ(lines({"attach gold port 7"}), "");
  agreeTo({true});
  lines({"l2cp-profile gold", "protocol CDP rule discard", "exit"});
  EXPECT_EQ(answersLeft(), 0U);
  EXPECT_EQ(rules(), "protocol=CDP rule=discard\nprotocol=LLDP rule=peer\n");
  EXPECT_EQ(places(), "port=7 vlan=all\n");
  EXPECT_EQ(profiles(), "name=gold protect=no dynamic=no attachments=1\n");
}

TEST_F(Editing, OfAProfileThatTheServiceProfileDefaultNamesTakesThatOffMeanwhile) {
  makeGold();
  putInForce("DEFAULT");
  agreeTo({true});
  EXPECT_THAT(lines({"l2cp-profile gold", "no protocol CDP", "exit"}),
              AllOf(HasSubstr("  the service profile DEFAULT names it\n"),
                    HasSubstr("Profile gold is replaced.\n")));
  EXPECT_EQ(places(), inForce);
  EXPECT_EQ(shown({"-o", "service-profile", "show", "DEFAULT"}),
            "name=DEFAULT vlan_profile=metro l2cp_profile=gold interfaces='3 5'\n");
}

TEST_F(Editing, OfAProfileThatSomebodyDetachedAttachesItFirst) {
  makeGold();
  putInForce();
  lines({"do detach gold port 3 vlan 100"});
  agreeTo({true});
  EXPECT_THAT(lines({"l2cp-profile gold", "no protocol CDP", "exit"}),
              AllOf(HasSubstr("  a service profile misses where somebody detached it: port 3 vlan "
                              "100\n"),
                    HasSubstr("Profile gold is replaced.\n")));
  EXPECT_EQ(places(), inForce);
}

// ---- Profiles beside it ----

class EditingBesideOthers : public Editing {
 protected:
  // Rules in force that are not those of their profiles.
  static bool hasOtherRules() {
    std::ostringstream out;
    std::ostringstream err;
    cli::run({"-o", "check"}, out, err);
    return out.str().find("other-rule") != std::string::npos;
  }
  // What becomes of an LLDP frame with these digits behind its addresses.
  static std::string fateOfLldp(const char* port, const std::string& tag) {
    const std::string line =
        shown({"-o", "explain", port, "hex", "0180c200000e", "020000000001", tag + "88cc0000"});
    const std::size_t begin = line.find("fate=");
    return line.substr(begin, line.find('\n') - begin);
  }
};

TEST_F(EditingBesideOthers, TakesThemOutOfForceMeanwhileSoThatTheirRulesHoldBehind) {
  makeGold();
  lines({"l2cp-profile silver", "protocol LLDP rule discard", "protocol xSTP rule tunnel", "exit",
         "l2cp-profile third", "protocol xSTP rule peer", "exit", "l2cp-profile apart",
         "protocol LACP-LAMP rule peer", "exit", "attach gold port 1 vlan 10",
         "attach silver port 1 vlan 10", "attach third port 1 vlan 10",
         "attach apart port 1 vlan 10", "attach silver port 1 vlan 11"});
  agreeTo({false, true});
  EXPECT_EQ(
      lines({"l2cp-profile gold"}),
      std::string("Profile gold cannot be replaced as it is:\n"
                  "  it is attached directly: port 1 vlan 10\n"
                  "  silver is attached beside it, with protocols in common: port 1 vlan 10\n"
                  "  third is attached beside it, with protocols in common: port 1 vlan 10\n") +
          offer + "Profile gold is not opened.\n");
  EXPECT_THAT(lines({"l2cp-profile gold", "no protocol LLDP", "exit"}),
              HasSubstr("Profile gold is replaced.\n"));
  EXPECT_EQ(answersLeft(), 0U);
  EXPECT_FALSE(hasOtherRules());
  EXPECT_THAT(fateOfLldp("1", "8100000a"), StartsWith("fate=discard entry="));
  EXPECT_THAT(fateOfLldp("1", "8100000a"), HasSubstr("profile=silver protocol=LLDP"));
  EXPECT_EQ(places(), "port=1 vlan=10\n");
  EXPECT_EQ(shown({"-o", "profile", "ports", "silver"}), "port=1 vlan=10\nport=1 vlan=11\n");
  EXPECT_EQ(shown({"-o", "profile", "ports", "third"}), "port=1 vlan=10\n");
}

TEST_F(EditingBesideOthers, KeepsTheOrderOfServiceProfilesAndDirectAttachments) {
  makeGold();
  lines({"l2cp-profile first", "protocol LLDP rule discard", "exit", "l2cp-profile last",
         "protocol CDP rule peer", "exit", "attach first port 3 vlan 100"});
  putInForce();
  lines({"attach last port 3 vlan 100"});
  const std::string order = shown({"running-config", "show"});
  agreeTo({true});
  EXPECT_THAT(lines({"l2cp-profile gold", "protocol xSTP rule peer", "no protocol LLDP", "exit"}),
              HasSubstr("  first is attached beside it, with protocols in common: port 3 vlan 100\n"
                        "  last is attached beside it, with protocols in common: port 3 vlan "
                        "100\n"));
  EXPECT_EQ(places(), inForce);
  EXPECT_EQ(shown({"-o", "service-profile", "show", "business"}),
            "name=business vlan_profile=metro l2cp_profile=gold interfaces='3 5'\n");
  std::string expected = order;
  const std::string rule = " protocol \"LLDP\" rule peer\n";
  const std::size_t at = expected.find(rule, expected.find("l2cp-profile gold"));
  ASSERT_NE(at, std::string::npos);
  expected.replace(at, rule.size(), " protocol \"xSTP\" rule peer\n");
  EXPECT_EQ(shown({"running-config", "show"}), expected);
}

TEST_F(EditingBesideOthers, AsksOnExitAboutThoseWhoseProtocolIsNew) {
  makeGold();
  putInForce();
  lines({"l2cp-profile other", "protocol xSTP rule peer", "exit", "attach other port 3 vlan 100"});
  EXPECT_EQ(lines({"l2cp-profile gold", "protocol xSTP rule discard"}), "");
  agreeTo({true});
  EXPECT_EQ(lines({"exit"}),
            std::string("Profile gold cannot be replaced as it is:\n"
                        "  other is attached beside it, with protocols in common: port 3 vlan "
                        "100\n") +
                offer + "Profile gold is replaced.\n");
  EXPECT_EQ(places(), inForce);
  EXPECT_FALSE(hasOtherRules());
}

// ---- Others ----

TEST_F(Editing, AsksAgainIfSomethingGetsInTheWayMeanwhile) {
  makeGold();
  lines({"l2cp-profile gold", "no protocol CDP"});
  shown({"attach", "gold", "port", "9"});
  agreeTo({false, true});
  EXPECT_THAT(lines({"exit"}), AllOf(HasSubstr("  it is attached directly: port 9\n"),
                                     HasSubstr("Nothing is replaced")));
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_THAT(lines({"exit"}), HasSubstr("Profile gold is replaced.\n"));
  EXPECT_EQ(places(), "port=9 vlan=all\n");
}

// The module takes the service profiles off, and then meets what somebody has attached just now.
TEST_F(Editing, PutsBackWhatTheModuleLeavesHalfWay) {
  makeGold();
  putInForce();
  agreeTo({true, true, true});
  whenAsked([&] { shown({"attach", "gold", "port", "9"}); });
  EXPECT_THAT(lines({"l2cp-profile gold", "protocol CDP rule peer", "exit"}),
              AllOf(HasSubstr("Replace it twice?\nl2cpctl: error: EDIT_FAILED: "),
                    testing::Not(HasSubstr("Not put back"))));
  whenAsked({});
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_EQ(places(), std::string(inForce) + "port=9 vlan=all\n");
  EXPECT_EQ(shown({"-o", "service-profile", "list"}),
            "name=business vlan_profile=metro l2cp_profile=gold interfaces='3 5'\n");
  EXPECT_EQ(rules(), untouched);
  EXPECT_THAT(lines({"show"}), HasSubstr("\n-protocol \"CDP\" rule tunnel\n"
                                         "+protocol \"CDP\" rule peer\n"));
  lines({"exit"});
  EXPECT_EQ(rules(), "protocol=CDP rule=peer\nprotocol=LLDP rule=peer\n");
  EXPECT_EQ(places(), std::string(inForce) + "port=9 vlan=all\n");
}

TEST_F(Editing, SaysWhatIsMissingIfOnlyTheSecondCycleFails) {
  makeGold();
  putInForce();
  agreeTo({true, true, true});
  lines({"l2cp-profile gold", "protocol CDP rule peer"});
  beforeCopy = [] { shown({"attach", "gold", "port", "9"}); };
  EXPECT_THAT(lines({"exit"}),
              AllOf(HasSubstr("Replace it twice?\nProfile gold is now without the rules for CDP.\n"
                              "l2cpctl: error: EDIT_FAILED: "),
                    testing::Not(HasSubstr("Not put back"))));
  beforeCopy = {};
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
  EXPECT_EQ(places(), std::string(inForce) + "port=9 vlan=all\n");
  // The edit goes on.
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_THAT(lines({"show"}), HasSubstr("+protocol \"CDP\" rule peer\n"));
  EXPECT_THAT(lines({"exit"}), HasSubstr("Profile gold is replaced.\n"));
  EXPECT_EQ(rules(), "protocol=CDP rule=peer\nprotocol=LLDP rule=peer\n");
  EXPECT_EQ(places(), std::string(inForce) + "port=9 vlan=all\n");
  EXPECT_EQ(profiles(), "name=gold protect=no dynamic=no attachments=3\n");
}

TEST_F(Editing, AsksBeforeItOverwritesWhatOthersChanged) {
  makeGold();
  lines({"l2cp-profile gold", "no protocol CDP"});
  shown({"profile", "rule", "set", "gold", "LLDP", "discard"});
  EXPECT_THAT(lines({"exit"}), StartsWith("Somebody changed profile gold meanwhile. Replace it all "
                                          "the same?\nNothing is replaced"));
  agreeTo({true});
  EXPECT_THAT(lines({"exit"}), HasSubstr("Profile gold is replaced.\n"));
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

TEST_F(Editing, SaysThatTheProfileIsGoneAndKeepsTheCopy) {
  makeGold();
  lines({"l2cp-profile gold", "no protocol CDP"});
  shown({"profile", "delete", "gold"});
  EXPECT_EQ(lines({"exit"}),
            "l2cpctl: error: there is no profile gold any more; \"do profile copy temp_l2cp_prof_1 "
            "gold\" makes it of the copy, \"abort\" deletes that\n");
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_EQ(lines({"do profile copy temp_l2cp_prof_1 gold", "abort"}),
            "What was changed in profile gold is discarded.\n");
  EXPECT_EQ(rules(), "protocol=LLDP rule=peer\n");
}

TEST_F(Editing, EndsIfSomebodyDeletesTheCopy) {
  makeGold();
  lines({"l2cp-profile gold"});
  shown({"profile", "delete", "temp_l2cp_prof_1"});
  EXPECT_EQ(
      lines({"no protocol CDP"}),
      "l2cpctl: error: somebody deleted temp_l2cp_prof_1: what was changed in profile gold is "
      "lost\n");
  EXPECT_EQ(shell().prompt(), inConfiguration);
}

TEST_F(Editing, EndsWhenTheDaemonIsStartedAnew) {
  makeGold();
  lines({"l2cp-profile gold", "no protocol CDP"});
  ASSERT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_THAT(lines({"protocol xSTP rule peer"}), HasSubstr("l2cpd not reached"));
  EXPECT_EQ(shell().prompt(), inMode);
  EXPECT_THAT(lines({"abort"}), HasSubstr("the copy temp_l2cp_prof_1 may be left behind"));
  world().startDaemon();
  EXPECT_EQ(lines({"protocol xSTP rule peer"}),
            "l2cpctl: error: the daemon was restarted meanwhile: what was changed in profile gold "
            "is lost\n");
  EXPECT_EQ(shell().prompt(), inConfiguration);
}

TEST_F(Editing, SaysWhatWasInForceIfTheDaemonIsLostMeanwhile) {
  makeGold();
  putInForce();
  EXPECT_EQ(lines({"attach gold port 7"}), "");
  agreeTo({true, true});
  lines({"l2cp-profile gold", "protocol CDP rule peer"});
  whenAsked([&] { world().stopDaemon(SIGTERM); });
  EXPECT_THAT(lines({"exit"}),
              AllOf(HasSubstr("How profile gold is now is not known: l2cpd not reached"),
                    HasSubstr("\nIt was in force through:\n"
                              "  service-profile business, l2cp-profile gold\n"
                              "  apply business interface 3\n"
                              "  apply business interface 5\n"
                              "  attach gold port 7\n"
                              "l2cpctl: error: l2cpd not reached")));
  EXPECT_EQ(shell().prompt(), inMode);
  whenAsked({});
  world().startDaemon();
}

// ---- Other modes ----

TEST_F(Editing, OfVlanAndServiceProfilesTakesEffectAtOnce) {
  makeGold();
  EXPECT_EQ(lines({"vlan-profile metro", "interface 3 svid 7", "no interface 5"}), "");
  EXPECT_EQ(shell().prompt(), "l2cp(config-vlan-profile metro)# ");
  EXPECT_EQ(lines({"show"}),
            "name        metro\ninterfaces  3\n\nINTERFACE  SVID\n        3     7\n");
  EXPECT_EQ(lines({"exit", "service-profile \"two words\"", "l2cp-profile gold"}), "");
  EXPECT_EQ(shell().prompt(), "l2cp(config-service-profile \"two words\")# ");
  EXPECT_THAT(lines({"show"}), HasSubstr("l2cp-profile  gold\n"));
  EXPECT_EQ(lines({"no l2cp-profile", "end"}), "");
  EXPECT_EQ(shell().prompt(), "l2cp# ");
  EXPECT_THAT(lines({"configure", "show"}),
              AllOf(HasSubstr("\nl2cp-profile gold\n"),
                    HasSubstr("\nvlan-profile metro\n interface 3 svid 7\nexit\n"),
                    HasSubstr("\nservice-profile \"two words\"\nexit\n")));
}

TEST_F(Editing, ShowsAsTheCommandsDo) {
  makeGold();
  for (const auto& [line, command] : std::vector<std::pair<const char*, CommandWords>>{
           {"show profile", {"profile", "list"}},
           {"show prof gold -j", {"-j", "profile", "show", "gold"}},
           {"show -o profile", {"-o", "profile", "list"}},
           {"show -- running-config all", {"running-config", "show", "all"}},
           {"do profile rule list gold", {"profile", "rule", "list", "gold"}},
           {"do show vlan-profile metro", {"vlan-profile", "show", "metro"}}}) {
    EXPECT_EQ(lines({line}), shown(command)) << line;
  }
}

TEST_F(Editing, CompletesNamesOfTheDaemon) {
  makeGold();
  lines({"do profile add \"my net\"", "do profile add \"bad\""});
  const auto completed = [&](const std::string& line) {
    const Completed done = shell().complete(line);
    return line.substr(0, done.from) + done.text;
  };
  EXPECT_EQ(completed("l2cp-profile m"), "l2cp-profile \"my net\" ");
  EXPECT_EQ(completed("l2cp-profile \"my"), "l2cp-profile \"my net\" ");
  EXPECT_EQ(completed("do profile show go"), "do profile show gold ");
  EXPECT_EQ(completed("no vlan-profile "), "no vlan-profile metro ");
  lines({"l2cp-profile gold"});
  EXPECT_EQ(completed("protocol LL"), "protocol LLDP ");
  lines({"abort"});
}

}  // namespace
}  // namespace cli
