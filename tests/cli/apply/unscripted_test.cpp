// Scripts against a real daemon in which profiles are in force that no script can say.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "cli/apply/daemonState.h"
#include "tests/cli/apply/confirmed.h"
#include "tests/cli/apply/random_state.h"
#include "tests/cli/command_line.h"
#include "tests/system/fixture.h"

namespace cli {
namespace {

using support::World;
using testing::HasSubstr;

/// A dynamic profile that is in force through the service profile s2 on interface 5.
class BesideDynamicProfiles : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    if (IsSkipped()) return;
    does({{"profile", "add", "dyn"},
          {"profile", "rule", "add", "dyn", "CDP", "peer"},
          {"profile", "set", "dyn", "dynamic", "on"},
          {"load", World::file("f", services + "apply s2 interface 5\n")}});
  }

  static std::string attachments() { return shown({"-o", "profile", "ports", "dyn"}); }
  static std::string serviceProfile() { return shown({"-o", "service-profile", "show", "s2"}); }
  static std::string saved() {
    return outcome({"running-config", "show"}, {.answers = Sink::file}).out;
  }
  static std::string fate(const std::string& port, const std::string& frame) {
    const std::string line = shown({"-o", "explain", port, "hex", frame + std::string(92, '0')});
    const std::size_t begin = line.find("fate=");
    return line.substr(begin, line.find_first_of(" \n", begin) - begin);
  }
  // What becomes of LLDP and CDP on the ports and VLANs of random configurations.
  static std::string allFates() {
    std::string fates;
    for (const char* port : {"1", "2", "3"}) {
      for (const char* tag : {"", "8100000a", "8100000b"}) {
        fates += std::string(port) + tag + " " +
                 fate(port, "0180c200000e020000000001" + std::string(tag) + "88cc") + " " +
                 fate(port, cdp(tag)) + "\n";
      }
    }
    return fates;
  }
  static std::string cdp(const std::string& tag) {
    return "01000ccccccc020000000001" + tag + "001caaaa0300000c2000";
  }
  const std::string services =
      "vlan-profile v2\n interface 5 svid 7\nexit\n"
      "service-profile s2\n vlan-profile v2\n l2cp-profile dyn\nexit\n";
  const std::string nothing = "{\"commands\":0,\"interruptions\":[]}\n";
};

TEST_F(BesideDynamicProfiles, TheDaemonsOwnConfigurationChangesNothing) {
  does({{"attach", "dyn", "port", "1"}});
  const std::string before = attachments();
  const std::string file = World::file("rc", saved());
  EXPECT_EQ(shown({"diff", file}), "");
  EXPECT_EQ(shown({"-j", "apply", file}), nothing);
  EXPECT_EQ(attachments(), before);
  const Outcome unconfirmed = outcome({"apply", file, "--confirm", "1"});
  EXPECT_EQ(unconfirmed.status, 0) << unconfirmed.err;
  EXPECT_EQ(attachments(), before);
  EXPECT_EQ(serviceProfile(), "name=s2 vlan_profile=v2 l2cp_profile=dyn interfaces=5\n");
}

TEST_F(BesideDynamicProfiles, WhatIsUndoneLeavesThemInForce) {
  does({{"attach", "dyn", "port", "1"}});
  const std::string before = attachments();
  Confirmed apply(World::file("more", services + "l2cp-profile g\n protocol LLDP rule peer\nexit\n"
                                                 "attach g port 1\n"),
                  "30");
  ASSERT_TRUE(apply.isWaiting());
  EXPECT_EQ(attachments(), before);
  // What has come meanwhile stays as well.
  does({{"attach", "dyn", "port", "9"}});
  apply.end();
  EXPECT_EQ(apply.process().wait(), 4);
  EXPECT_THAT(apply.process().output().text(), HasSubstr("the configuration is as it was before"));
  EXPECT_EQ(attachments(), before + "port=9 vlan=all\n");
  EXPECT_EQ(shown({"-o", "profile", "list"}), "name=dyn protect=yes dynamic=yes attachments=3\n");
  EXPECT_EQ(serviceProfile(), "name=s2 vlan_profile=v2 l2cp_profile=dyn interfaces=5\n");
}

TEST_F(BesideDynamicProfiles, ALineMayApplyAServiceProfileThatNamesOne) {
  const std::string file = World::file("f", services + "apply s2 interface 5\n");
  EXPECT_EQ(shown({"diff", file}), "");
  EXPECT_EQ(shown({"-j", "apply", file}), nothing);
  does({{"service-profile", "detach", "s2", "interface", "5"}});
  EXPECT_EQ(shown({"diff", file}), "+apply s2 interface 5\n");
  EXPECT_THAT(shown({"-j", "apply", file}), HasSubstr("\"commands\":1,"));
  EXPECT_EQ(attachments(), "port=5 vlan=7\n");
}

TEST_F(BesideDynamicProfiles, ServiceProfilesInForceThroughThemAreNotTakenAway) {
  EXPECT_EQ(refused({"apply", World::file("nothing", "")}),
            "l2cpctl: error: IN_USE: the file deletes the service profile \"s2\" or has it attach "
            "something else, while the dynamic profile \"dyn\" is in force through it on interface "
            "5; take it off there first with \"l2cpctl service-profile detach NAME interface "
            "NUMBER\"; nothing was done\n");
  EXPECT_THAT(
      refused({"apply", World::file("other VLAN", "vlan-profile v2\n interface 5 svid 8\nexit\n" +
                                                      services.substr(services.find("service-")))}),
      HasSubstr("\"dyn\" is in force through it on interface 5"));
  // Applied as it was, though it had to be taken off for a moment.
  EXPECT_EQ(shown({"-o", "apply",
                   World::file("more", "vlan-profile v2\n interface 6 svid 8\nexit\n" + services)}),
            "kind=summary commands=5\nkind=interruption port=5 vlan=7 profile=dyn\n");
  EXPECT_EQ(attachments(), "port=5 vlan=7\n");
}

TEST_F(BesideDynamicProfiles, TheirRulesAreInForceWhenWhatStoodBeforeThemIsGone) {
  const std::string g = "l2cp-profile g\n protocol CDP rule discard\nexit\n";
  does({{"load", World::file("g", g + "attach g port 1 vlan 100\n")},
        {"attach", "dyn", "port", "1", "vlan", "100"}});
  EXPECT_EQ(fate("1", cdp("81000064")), "fate=discard");
  const std::string file = World::file("f", services + g);
  EXPECT_EQ(shown({"diff", file}), "-attach g port 1 vlan 100\n");
  EXPECT_EQ(shown({"-o", "apply", file}),
            "kind=summary commands=3\nkind=interruption port=1 vlan=100 profile=dyn\n");
  EXPECT_EQ(fate("1", cdp("81000064")), "fate=peer");
  EXPECT_EQ(attachments(), "port=1 vlan=100\nport=5 vlan=7\n");
  // What comes again comes behind them.
  EXPECT_EQ(shown({"-j", "apply", World::file("g", services + g + "attach g port 1 vlan 100\n")}),
            "{\"commands\":1,\"interruptions\":[]}\n");
  EXPECT_EQ(fate("1", cdp("81000064")), "fate=peer");
}

TEST_F(BesideDynamicProfiles, WhatIsUndoneStandsInFrontOfThemAgain) {
  const std::string g = "l2cp-profile g\n protocol CDP rule discard\nexit\n";
  does({{"load", World::file("g", g + "attach g port 1 vlan 100\n")},
        {"attach", "dyn", "port", "1", "vlan", "100"}});
  const std::string before = saved();
  Confirmed apply(World::file("without", services), "30");
  ASSERT_TRUE(apply.isWaiting());
  EXPECT_EQ(fate("1", cdp("81000064")), "fate=peer");
  apply.end();
  EXPECT_EQ(apply.process().wait(), 4);
  EXPECT_EQ(fate("1", cdp("81000064")), "fate=discard");
  EXPECT_EQ(saved(), before);
}

TEST_F(BesideDynamicProfiles, TheirProtocolsAreNotDeleted) {
  const std::string ptp = "l2protocol PTP mac any ethertype 0x88f7\n";
  does({{"load", World::file("f", ptp)},
        {"profile", "add", "learnt"},
        {"profile", "rule", "add", "learnt", "PTP", "peer"},
        {"profile", "set", "learnt", "dynamic", "on"},
        {"attach", "learnt", "port", "2"}});
  EXPECT_EQ(refused({"apply", World::file("without", services)}),
            "l2cpctl: error: PROTO_IN_USE: the file deletes the protocol \"PTP\", for which the "
            "dynamic profile \"learnt\" has a rule; let the file keep the protocol; nothing was "
            "done\n");
  EXPECT_EQ(shown({"-o", "apply",
                   World::file("anew", services + "l2protocol PTP mac any ethertype 0x88f8\n")}),
            "kind=summary commands=3\nkind=interruption port=2 vlan=all profile=learnt\n");
  EXPECT_EQ(shown({"-o", "profile", "ports", "learnt"}), "port=2 vlan=all\n");
}

// Attaches it once on a whole port and once on a VLAN, unless it is there.
void attachAnywhere(RandomStates& states) {
  for (const bool whole : {false, true}) {
    CommandLine line{"attach", "dyn", "port", std::to_string(1 + states.number(3))};
    const std::string vid = std::to_string(10 + states.number(2));
    if (!whole) line.insert(line.end(), {"vlan", vid});
    outcome(line);
  }
}

// Whatever changes around them: as if all of it had been made anew, in the order in which it
// stands.
TEST_F(BesideDynamicProfiles, FramesMeetTheRulesThatTheyWouldMeetWithoutAHistory) {
  Client client({});
  std::map<std::string, Definition> builtIn;
  const DaemonState fresh = daemonState(client);
  for (const char* name : {"LLDP", "CDP", "xSTP"}) builtIn[name] = fresh.state.protocols.at(name);
  std::string own = services;
  own.insert(own.find(" interface"), " interface 2 svid 10\n");
  shown({"apply", World::file("own", own + "apply s2 interface 2\n")});
  const std::string less = "l2cp-profile dyn\n protocol CDP rule peer\nexit\n" + own +
                           "apply s2 interface 2\napply s2 interface 5\n";
  RandomStates states(20261122);
  RandomState wanted;
  const int pairs = pairsToTry(20);
  for (int i = 0; i < pairs && !HasFailure(); ++i) {
    attachAnywhere(states);
    const std::string before = saved();
    const std::string attached = attachments();
    wanted = states.number(3) != 0 ? states.variationOf(wanted, builtIn) : states.next(builtIn);
    const std::string next = World::file("next", own + wanted.script());
    SCOPED_TRACE("step " + std::to_string(i) + "\nfrom\n" + before + "to\n" + wanted.script() +
                 "by\n" + outcome({"apply", "--dry-run", next}, {.answers = Sink::file}).out);
    const auto [status, out, err] = outcome({"apply", next});
    EXPECT_EQ(status, 0) << err;
    EXPECT_EQ(attachments(), attached);
    EXPECT_EQ(shown({"diff", next}), "");
    EXPECT_EQ(shown({"-j", "apply", next}), nothing);
    const std::string fates = allFates();
    does({{"profile", "set", "dyn", "protect", "off"}});
    const std::string made = saved();
    shown({"apply", World::file("nothing", "")});
    does({{"load", World::file("made", made)}});
    EXPECT_EQ(allFates(), fates) << made;
    if (states.number(4) == 0) shown({"apply", World::file("less", less)});
    does({{"profile", "set", "dyn", "dynamic", "on"}});
  }
}

}  // namespace
}  // namespace cli
