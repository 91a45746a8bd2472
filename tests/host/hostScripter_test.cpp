#include "host/hostScripter.h"

#include <algorithm>
#include <functional>
#include <random>

#include "tests/host/restore_fixture.h"
#include "tests/support/script_lines.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* notMade = "! left out (this script does not make the profile): ";

class RunningConfig : public RestoreTest {
 protected:
  static int apply(const std::string& service, int intf) {
    return services().servProfileAttach(service, intf);
  }
  /// A service profile "s" that attaches `profile` on VLAN 300 of interface 3.
  void makeService(const char* profile, const char* name = "s") {
    run({"vlan-profile v", "interface 3 svid 300", "exit"});
    run({std::string("service-profile ") + name, "vlan-profile v",
         std::string("l2cp-profile ") + profile, "exit"});
  }
  void makeProfile(const char* name) {
    run({std::string("l2cp-profile ") + name, "protocol LLDP rule peer", "exit"});
  }

  /// The lines behind the last mode.
  static Lines inForce() {
    Lines lines = written();
    const auto exit = std::find(lines.rbegin(), lines.rend(), "exit");
    lines.erase(lines.begin(), exit.base());
    return lines;
  }
  /// Expects the same lines after saving and restarting.
  void expectRestored() {
    const Lines before = running();
    EXPECT_THAT(restart(), IsEmpty());
    EXPECT_EQ(running(), before);
  }
};

TEST_F(RunningConfig, OfAFreshDaemonHasNothing) { EXPECT_THAT(written(), IsEmpty()); }

TEST_F(RunningConfig, HasProfilesOfEveryKindInNameOrderAndThenTheirUse) {
  const Lines lines = {"l2protocol \"own\" mac 01:80:c2:00:00:55 ethertype 0x88b5 subtype 0x07",
                       "l2cp-profile A",
                       " protocol \"own\" rule tunnel",
                       "exit",
                       "l2cp-profile B",
                       " protocol \"LLDP\" rule discard",
                       "exit",
                       "vlan-profile v",
                       " interface 3 svid 300",
                       " interface 4 svid 400",
                       "exit",
                       "vlan-profile w",
                       "exit",
                       "service-profile s",
                       " vlan-profile v",
                       " l2cp-profile A",
                       "exit",
                       "service-profile t",
                       "exit",
                       "attach B port 3",
                       "apply s interface 3",
                       "attach A port 3",
                       "apply t interface 3",
                       "attach A port 4 vlan 0"};
  run(lines);
  EXPECT_EQ(written(), lines);
  expectRestored();
}

TEST_F(RunningConfig, ForDynamicProfilesHasNothingOfTheDaemon) {
  makeProfile("P");
  makeService("P");
  apply("s", 3);
  EXPECT_THAT(running(Scripter::configDynamicProfiles), IsEmpty());
}

TEST_F(RunningConfig, WithDefaultsCanBeReplayedToo) {
  makeProfile("P");
  run({"attach P port 3"});
  const Lines all = running(Scripter::configAll);
  startup::save(folder.file("all"), all);
  support::startFresh();
  EXPECT_THAT(startup::replay(folder.file("all"), startup::Strictness::nothing).problems,
              IsEmpty());
  EXPECT_EQ(running(Scripter::configAll), all);
}

// ---- Order ----

TEST_F(RunningConfig, AttachmentsStandInTheOrderOfTheirEntries) {
  for (const char* name : {"A", "B", "C"}) makeProfile(name);
  const Lines lines = {"attach C port 3", "attach A port 3 vlan 7", "attach B port 3",
                       "attach A port 3 vlan 6"};
  run(lines);
  EXPECT_EQ(inForce(), lines);
  expectRestored();
  EXPECT_THAT(attachments(3), ElementsAre("C vlan 4095", "A vlan 7", "B vlan 4095", "A vlan 6"));
}

TEST_F(RunningConfig, AttachmentThatTookAFreePlaceStandsThere) {
  for (const char* name : {"A", "B", "C"}) makeProfile(name);
  run({"attach A port 3", "attach B port 3", "no attach A port 3", "attach C port 3"});
  EXPECT_THAT(inForce(), ElementsAre("attach C port 3", "attach B port 3"));
  expectRestored();
}

TEST_F(RunningConfig, AttachmentsWithoutRoomStandByVlanAndName) {
  for (const char* name : {"A", "B"}) makeProfile(name);
  for (int vid = 0; vid < 60; ++vid) {
    for (const char* name : {"B", "A"}) {
      run({"attach " + std::string(name) + " port 3 vlan " + std::to_string(vid)});
    }
  }
  const Lines lines = inForce();
  ASSERT_EQ(lines.size(), 120U);
  EXPECT_EQ(lines[98], "attach B port 3 vlan 49");
  EXPECT_EQ(lines[99], "attach A port 3 vlan 49");
  EXPECT_EQ(lines[100], "attach A port 3 vlan 50");
  EXPECT_EQ(lines[101], "attach B port 3 vlan 50");
  expectRestored();
}

// ---- Service profiles in force ----

TEST_F(RunningConfig, ApplicationStandsInThePlaceOfItsAttachment) {
  makeProfile("P");
  makeProfile("Q");
  makeService("P");
  run({"attach Q port 3", "apply s interface 3", "attach Q port 3 vlan 5"});
  EXPECT_THAT(inForce(),
              ElementsAre("attach Q port 3", "apply s interface 3", "attach Q port 3 vlan 5"));
  expectRestored();
}

TEST_F(RunningConfig, ApplicationWhoseAttachmentWasTakenAwaySaysSo) {
  makeProfile("P");
  makeProfile("Q");
  makeService("P");
  run({"service-profile idle", "exit", "apply idle interface 3", "apply s interface 3",
       "attach Q port 3", "attach Q port 4", "no attach P port 3 vlan 300"});
  EXPECT_THAT(inForce(),
              ElementsAre("apply s interface 3", "no attach P port 3 vlan 300", "attach Q port 3",
                          "apply idle interface 3", "attach Q port 4"));
  expectRestored();
  EXPECT_THAT(attachments(3), ElementsAre("Q vlan 4095"));
}

TEST_F(RunningConfig, OfTwoApplicationsOfTheSameTheLaterOneAttaches) {
  makeProfile("P");
  makeService("P", "a");
  makeService("P", "b");
  run({"apply b interface 3", "no attach P port 3 vlan 300", "apply a interface 3"});
  EXPECT_THAT(inForce(), ElementsAre("apply b interface 3", "no attach P port 3 vlan 300",
                                     "apply a interface 3"));
  expectRestored();
  EXPECT_THAT(attachments(3), ElementsAre("P vlan 300"));
}

TEST_F(RunningConfig, DefaultsUnderAnAppliedServiceProfileAreRestored) {
  makeProfile("P");
  makeService("P");
  apply("s", 3);
  entity.applyDefaultSettings();
  EXPECT_THAT(inForce(), ElementsAre("apply s interface 3", "no attach P port 3 vlan 300"));
  expectRestored();
}

// ---- What no command can say ----

TEST_F(RunningConfig, UseOfAProfileThatHasNoRulesIsAComment) {
  run({"l2cp-profile P", "exit"});
  makeService("P");
  run({"attach P port 4", "apply s interface 3"});
  EXPECT_THAT(inForce(), ElementsAre(notMade + std::string("apply s interface 3"),
                                     notMade + std::string("attach P port 4")));
  EXPECT_THAT(restart(), IsEmpty());
  EXPECT_THAT(inForce(), IsEmpty());
}

TEST_F(RunningConfig, UseOfADynamicProfileIsAComment) {
  makeProfile("P");
  makeService("P");
  run({"attach P port 4", "apply s interface 3", "no attach P port 3 vlan 300"});
  entity.settings.profiles.at("P")->setDynamic(true);
  EXPECT_THAT(inForce(), ElementsAre(notMade + std::string("apply s interface 3"),
                                     notMade + std::string("attach P port 4")));
  EXPECT_THAT(restart(), IsEmpty());
}

TEST_F(RunningConfig, AttachmentOfAProfileThatHasBeenRenamedIsAComment) {
  makeProfile("P");
  run({"attach P port 4"});
  ASSERT_EQ(entity.profileRen("P", "Q"), 0);
  makeProfile("P");
  EXPECT_THAT(inForce(), ElementsAre(notMade + std::string("attach P port 4")));
  EXPECT_THAT(restart(), IsEmpty());
}

TEST_F(RunningConfig, RuleForAProtocolThatHasLeftTheCatalogueIsAComment) {
  run({"l2protocol \"old\" mac any", "l2protocol \"new\" mac any", "l2cp-profile P",
       "protocol old rule peer", "protocol LLDP rule peer", "exit"});
  ASSERT_EQ(entity.protoRen("old", "new"), 0);
  const Lines lines = written();
  EXPECT_THAT(lines, testing::UnorderedElementsAre(
                         "l2protocol \"new\" mac any", "l2cp-profile P",
                         " ! left out (the protocol is not in the catalogue): protocol \"old\" "
                         "rule peer",
                         " protocol \"LLDP\" rule peer", "exit"));
  // Neither is it one for another protocol that has got the name.
  run({"l2protocol \"old\" mac any"});
  EXPECT_THAT(written(),
              testing::Contains(testing::StartsWith(" ! left out (the protocol is not")));
  EXPECT_THAT(restart(), IsEmpty());
}

TEST_F(RunningConfig, ProfileOfWhichNoRuleCanBeWrittenIsACommentWithItsUse) {
  entity.protoAdd("line\nbreak", false, L2CP::m_anyMac, L2CP::m_anyMac, 0xffff, 0xff);
  run({"l2cp-profile P", "exit", "l2cp-profile Q", "exit"});
  entity.profileProtoAdd("P", "line\nbreak", L2CP::Rule::peer);
  entity.profileProtoAdd("Q", "LLDP", static_cast<L2CP::Rule>(7));
  run({"attach P port 3", "attach Q port 3"});
  EXPECT_THAT(written(),
              ElementsAre("! left out (there is a control character in the line): l2protocol "
                          "\"line\\x0abreak\" mac any",
                          "! left out (none of its rules can be written): l2cp-profile P",
                          "! left out (none of its rules can be written): l2cp-profile Q",
                          notMade + std::string("attach P port 3"),
                          notMade + std::string("attach Q port 3")));
  EXPECT_THAT(restart(), IsEmpty());
  EXPECT_THAT(written(), IsEmpty());
}

TEST_F(RunningConfig, NamesOfServicesThatCannotBeWrittenAreComments) {
  makeProfile("P");
  run({"vlan-profile v", "interface 3 svid 300", "exit"});
  ASSERT_EQ(profiles::addVlanProfile("v\" w"), 0);
  ASSERT_EQ(profiles::setSvid("v\" w", 3, 301), 0);
  for (const char* name : {"a\tb\" c", "s"}) {
    ASSERT_EQ(profiles::addServiceProfile(name), 0);
    ASSERT_EQ(services().servProfileL2cpProfile(name, "P"), 0);
  }
  ASSERT_EQ(profiles::setVlanProfile("a\tb\" c", "v"), 0);
  ASSERT_EQ(profiles::setVlanProfile("s", "v\" w"), 0);
  ASSERT_EQ(apply("a\tb\" c", 3), 0);
  run({"no attach P port 3 vlan 300"});
  ASSERT_EQ(apply("s", 3), 0);
  EXPECT_THAT(restart(), IsEmpty());
  EXPECT_THAT(written(), ElementsAre("l2cp-profile P", " protocol \"LLDP\" rule peer", "exit",
                                     "vlan-profile v", " interface 3 svid 300", "exit",
                                     "service-profile s", " l2cp-profile P", "exit"));
}

TEST_F(RunningConfig, NamesAreReadBackWhateverTheyLookLike) {
  for (const char* name : {"", "two words", "\"quoted\"", "\"", "tab\there", "!", "no", "exit",
                           "a\"b", "\xc3\xa4\xff", " ", "port 3 vlan 5", "it's"}) {
    ASSERT_EQ(entity.protoAdd(name, false, L2CP::m_anyMac, L2CP::m_anyMac, 0xffff, 0xff), 0);
    ASSERT_EQ(entity.profileAdd(name, false, false), 0);
    ASSERT_EQ(entity.profileProtoAdd(name, name, L2CP::Rule::peer), 0);
    ASSERT_EQ(entity.portAttach(name, 3, 100), 0);
    if (*name == '\0') continue;
    ASSERT_EQ(profiles::addVlanProfile(name), 0);
    ASSERT_EQ(profiles::setSvid(name, 3, 300), 0);
    ASSERT_EQ(profiles::addServiceProfile(name), 0);
    ASSERT_EQ(profiles::setVlanProfile(name, name), 0);
    ASSERT_EQ(services().servProfileL2cpProfile(name, name), 0);
    ASSERT_EQ(apply(name, 3), 0);
  }
  EXPECT_THAT(running(), testing::Not(testing::Contains(testing::HasSubstr("left out"))));
  expectRestored();
}

TEST_F(RunningConfig, NoNameSmugglesACommandIntoTheScript) {
  // Of a profile without rules and of one that has them: the first is written in a comment alone.
  const Lines before = {"x\nattach P port 9", "x\rattach P port 9", "x\" port 9\nno",
                        "\" mac any\nattach P port 9"};
  makeProfile("P");
  for (const std::string& name : before) {
    entity.protoAdd(name.c_str(), false, L2CP::m_anyMac, L2CP::m_anyMac, 0xffff, 0xff);
    ASSERT_EQ(entity.profileAdd(name.c_str(), false, false), 0);
    ASSERT_EQ(entity.portAttach(name, 3, 100), 0);
    ASSERT_EQ(entity.profileAdd((name + "r").c_str(), false, false), 0);
    ASSERT_EQ(entity.profileProtoAdd((name + "r").c_str(), "LLDP", L2CP::Rule::peer), 0);
    ASSERT_EQ(entity.portAttach(name + "r", 3, 100), 0);
    ASSERT_EQ(profiles::addVlanProfile(name), 0);
    ASSERT_EQ(profiles::addServiceProfile(name), 0);
    ASSERT_EQ(apply(name, 3), 0);
  }
  EXPECT_THAT(restart(), IsEmpty());
  EXPECT_THAT(written(), ElementsAre("l2cp-profile P", " protocol \"LLDP\" rule peer", "exit"));
}

// ---- Any state at all ----

/// Brings the module and the profiles into a random state, as clients of both services can.
class RandomState {
 public:
  /// Few names at a time, so that they meet.
  explicit RandomState(unsigned int seed) : random_(seed) {
    const Lines all = {
        "a", "b",       "c d", "e\tf", "\"g\"", "h\"i", "exit", "\" j", "k\nattach a port 2",
        "",  "\xc3\xa4"};
    std::sample(all.begin(), all.end(), std::back_inserter(names_), 3, random_);
  }

  void operate() {
    L2CP& entity = singleton<L2CP>::instance();
    const std::string one = name();
    const std::string other = name();
    switch (below(28)) {
      case 0:
      case 1:
        entity.protoAdd(one.c_str(), false, address(), L2CP::m_anyMac, number(), subType());
        break;
      case 2:
        entity.protoDel(protocol().c_str());
        break;
      case 3:
        entity.protoRen(protocol().c_str(), protocol().c_str());
        break;
      case 4:
        entity.protoSetEtherType(protocol().c_str(), number());
        break;
      case 5:
      case 6:
        entity.profileAdd(one.c_str(), below(8) == 0, below(8) == 0);
        break;
      case 7:
        entity.profileDel(one.c_str());
        break;
      case 8:
        entity.profileRen(one.c_str(), other.c_str());
        break;
      case 9:
        entity.profileSetDynamic(one.c_str(), below(2) == 0);
        break;
      case 10:
      case 11:
      case 12:
      case 13:
        entity.profileProtoAdd(one.c_str(), protocol().c_str(),
                               static_cast<L2CP::Rule>(below(20) == 0 ? 7 : below(3)));
        break;
      case 14:
        entity.profileProtoDel(one.c_str(), protocol().c_str());
        break;
      case 15:
      case 16:
      case 17:
        entity.portAttach(one, below(3), vid());
        break;
      case 18:
        entity.portDetach(one, below(3), vid());
        break;
      case 19:
        entity.l2cpProfileOnExit(one.c_str(), other.c_str());
        break;
      case 20:
        profiles::addVlanProfile(one);
        break;
      case 21:
        profiles::setSvid(one, static_cast<int>(below(3)), static_cast<int>(below(3)));
        break;
      case 22:
        profiles::addServiceProfile(one);
        break;
      case 23:
        profiles::setVlanProfile(one, other);
        break;
      case 24:
        services().servProfileL2cpProfile(one, other);
        break;
      case 25:
      case 26:
        services().servProfileAttach(one, static_cast<int>(below(3)));
        break;
      default:
        if (below(10) == 0) entity.applyDefaultSettings();
        services().servProfileDetach(one, static_cast<int>(below(3)));
    }
  }

 private:
  static servprofile& services() { return singleton<servprofile>::instance(); }

  unsigned int below(unsigned int end) {
    return std::uniform_int_distribution<unsigned int>(0, end - 1)(random_);
  }
  std::string name() { return names_[below(static_cast<unsigned int>(names_.size()))]; }
  std::string protocol() { return below(4) == 0 ? "LLDP" : name(); }
  const unsigned char* address() { return below(2) == 0 ? L2CP::m_anyMac : L2CP::m_allMac; }
  unsigned short number() { return below(2) == 0 ? 0xffff : 0x88b5; }
  unsigned char subType() { return below(2) == 0 ? 0xff : 3; }
  unsigned short vid() { return below(4) == 0 ? 4095 : static_cast<unsigned short>(below(3)); }

  std::mt19937 random_;
  Lines names_;
};

TEST_F(RunningConfig, OfAnyStateSaysTheSameAfterARestart) {
  for (unsigned int seed = 1; seed <= 500; ++seed) {
    support::startFresh();
    RandomState state(seed);
    for (int i = 0; i < 150; ++i) state.operate();
    const Lines before = running();
    ASSERT_THAT(restart(), IsEmpty()) << "seed " << seed;
    ASSERT_EQ(support::said(running()), support::said(before)) << "seed " << seed;
  }
}

}  // namespace
