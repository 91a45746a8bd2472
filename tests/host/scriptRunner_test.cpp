#include "host/scriptRunner.h"

#include "tests/host/restore_fixture.h"

namespace {

using script::Command;
using script::Rule;

constexpr script::Mac someMac{0x01, 0x80, 0xc2, 0x00, 0x00, 0x55};

constexpr const char* noSuchName = "there is no profile or protocol of this name";
constexpr const char* badName =
    "a name is empty or too long, or a number is out of range, or the profile has no such entry";
constexpr const char* noSuchReference =
    "there is no such protocol or VLAN profile, or nothing is attached to the port";
constexpr const char* isProtected = "the profile is protected";
constexpr const char* inUse = "it is in use";
constexpr const char* notThere = "it is not attached or applied there";
constexpr const char* noSvid = "the VLAN profile has no S-VID on the interface";

class ScriptRunner : public RestoreTest {
 protected:
  void SetUp() override {
    run({"l2protocol own mac 01:80:c2:00:00:55 ethertype 0x0800 subtype 1", "l2cp-profile gold",
         "protocol LLDP rule peer", "exit", "vlan-profile v", "interface 3 svid 300", "exit",
         "service-profile s", "vlan-profile v", "l2cp-profile gold", "exit"});
  }

  const L2CP::Protocol& protocol(const std::string& name) {
    return *entity.settings.protocols.at(name);
  }

  /// What a second daemon shows that ran nothing else: how everything is.
  struct Row {
    Command command;
    const char* refusal;
  };
  /// Each is refused for that reason, and changes nothing.
  static void expectRefused(const std::vector<Row>& rows) {
    const Lines before = running(Scripter::configAll);
    for (const auto& [command, refusal] : rows) {
      EXPECT_EQ(runCommand(command), refusal) << script::text(command);
      EXPECT_EQ(running(Scripter::configAll), before) << script::text(command);
    }
  }
  /// Each does what it says, and again does nothing.
  static void expectDoneOnce(const Command& command) {
    const Lines before = running(Scripter::configAll);
    EXPECT_EQ(runCommand(command), "") << script::text(command);
    const Lines after = running(Scripter::configAll);
    EXPECT_NE(after, before) << script::text(command);
    EXPECT_EQ(runCommand(command), "") << script::text(command);
    EXPECT_EQ(running(Scripter::configAll), after) << script::text(command);
  }
  /// As what the configuration says already.
  static void expectSoAlready(const Command& command) {
    const Lines before = running(Scripter::configAll);
    EXPECT_EQ(runCommand(command), "") << script::text(command);
    EXPECT_EQ(running(Scripter::configAll), before) << script::text(command);
  }
};

TEST_F(ScriptRunner, SaysNothingAboutLinesThatSayNothing) {
  expectSoAlready(script::Nothing{});
  expectSoAlready(script::Exit{});
}

// ---- Protocols ----

TEST_F(ScriptRunner, MakesAProtocolUnprotectedForAnyAddressAsOverRpc) {
  expectDoneOnce(script::Protocol{"new", someMac, 0x88b5, 7});
  const L2CP::Protocol& made = protocol("new");
  EXPECT_FALSE(made.protect);
  EXPECT_THAT(made.mac, testing::ElementsAreArray(someMac));
  EXPECT_THAT(made.macMask, testing::ElementsAreArray(L2CP::m_anyMac));
  EXPECT_EQ(made.etherType, 0x88b5);
  EXPECT_EQ(made.subType, 7);
}

TEST_F(ScriptRunner, ChangesAProtocolAndLeavesItsMaskAndProtection) {
  expectDoneOnce(script::Protocol{"OAM-CFM", someMac, 0x88b5, 7});
  const L2CP::Protocol& changed = protocol("OAM-CFM");
  EXPECT_TRUE(changed.protect);
  EXPECT_THAT(changed.mac, testing::ElementsAreArray(someMac));
  EXPECT_EQ(changed.macMask[5], 0xf0);
  EXPECT_EQ(changed.etherType, 0x88b5);
  EXPECT_EQ(changed.subType, 7);
}

TEST_F(ScriptRunner, TakesAwayWhatAProtocolNoLongerHas) {
  expectDoneOnce(script::Protocol{"own"});
  EXPECT_EQ(protocol("own").etherType, L2CP::m_noEtherType);
  EXPECT_EQ(protocol("own").subType, L2CP::m_noSubType);
}

TEST_F(ScriptRunner, TakesTheNamesThatTheModuleTakes) {
  expectDoneOnce(script::Protocol{"", someMac});
  expectDoneOnce(script::Protocol{std::string(30, 'n'), someMac});
  expectRefused({{script::Protocol{std::string(31, 'n'), someMac}, badName}});
  for (const std::string& name : {std::string(), std::string(100, 'n')}) {
    EXPECT_EQ(runCommand(script::L2cpProfile{name}), "");
    expectDoneOnce(script::Entry{name, "LLDP", Rule::peer});
  }
}

TEST_F(ScriptRunner, DeletesAProtocolThatNoRuleIsFor) {
  EXPECT_EQ(runCommand(script::NoProtocol{"own"}), "");
  expectRefused({{script::NoProtocol{"own"}, noSuchName}, {script::NoProtocol{"LLDP"}, inUse}});
}

// ---- L2CP profiles ----

TEST_F(ScriptRunner, MakesAProfileUnprotectedAndNotDynamic) {
  EXPECT_EQ(runCommand(script::L2cpProfile{"new"}), "");
  EXPECT_FALSE(entity.settings.profiles.at("new")->protect);
  EXPECT_FALSE(entity.settings.profiles.at("new")->dynamic);
  expectSoAlready(script::L2cpProfile{"gold"});
}

TEST_F(ScriptRunner, DeletesAProfileUnlessItIsUsedOrProtected) {
  runCommand(script::L2cpProfile{"new"});
  EXPECT_EQ(runCommand(script::NoL2cpProfile{"new"}), "");
  expectRefused(
      {{script::NoL2cpProfile{"new"}, noSuchName}, {script::NoL2cpProfile{"gold"}, inUse}});
  entity.settings.profiles.at("gold")->protect = true;
  expectRefused({{script::NoL2cpProfile{"gold"}, isProtected}});
}

TEST_F(ScriptRunner, AddsAndChangesARule) {
  expectDoneOnce(script::Entry{"gold", "CDP", Rule::tunnel});
  expectDoneOnce(script::Entry{"gold", "CDP", Rule::discard});
  expectSoAlready(script::Entry{"gold", "LLDP", Rule::peer});
}

TEST_F(ScriptRunner, DeletesARule) {
  EXPECT_EQ(runCommand(script::NoEntry{"gold", "LLDP"}), "");
  expectRefused({{script::NoEntry{"gold", "LLDP"}, badName},
                 {script::NoEntry{"gold", "none"}, noSuchReference},
                 {script::NoEntry{"none", "LLDP"}, noSuchName}});
}

TEST_F(ScriptRunner, RefusesRulesForWhatIsNotThere) {
  expectRefused({{script::Entry{"none", "LLDP", Rule::peer}, noSuchName},
                 {script::Entry{"gold", "none", Rule::peer}, noSuchReference}});
}

TEST_F(ScriptRunner, RefusesToChangeAProfileThatIsAttachedOrProtected) {
  run({"attach gold port 3"});
  expectRefused({{script::Entry{"gold", "CDP", Rule::peer}, inUse},
                 {script::Entry{"gold", "LLDP", Rule::discard}, inUse},
                 {script::NoEntry{"gold", "LLDP"}, inUse}});
  expectSoAlready(script::Entry{"gold", "LLDP", Rule::peer});
  entity.settings.profiles.at("gold")->protect = true;
  expectRefused({{script::Entry{"gold", "CDP", Rule::peer}, isProtected},
                 {script::Entry{"gold", "LLDP", Rule::discard}, isProtected}});
}

// ---- VLAN profiles ----

TEST_F(ScriptRunner, MakesAndDeletesVlanProfiles) {
  expectDoneOnce(script::VlanProfile{"new"});
  expectDoneOnce(script::NoVlanProfile{"new"});
  expectRefused({{script::NoVlanProfile{"v"}, inUse},
                 {script::VlanProfile{""}, badName},
                 {script::VlanProfile{std::string(34, 'n')}, badName}});
}

TEST_F(ScriptRunner, SetsAndRemovesSvids) {
  expectDoneOnce(script::Svid{"v", 4, 400});
  expectDoneOnce(script::Svid{"v", 4, 401});
  expectDoneOnce(script::NoSvid{"v", 4});
  expectSoAlready(script::Svid{"v", 3, 300});
  expectRefused({{script::Svid{"none", 3, 300}, noSuchName},
                 {script::NoSvid{"none", 3}, noSuchName},
                 {script::Svid{"v", -1, 300}, badName},
                 {script::Svid{"v", 3, 4095}, badName}});
}

TEST_F(ScriptRunner, RefusesToChangeSvidsThatAreInForce) {
  run({"apply s interface 3"});
  expectRefused({{script::Svid{"v", 3, 301}, inUse}, {script::NoSvid{"v", 3}, inUse}});
  expectSoAlready(script::Svid{"v", 3, 300});
}

// ---- Service profiles ----

TEST_F(ScriptRunner, MakesAndDeletesServiceProfiles) {
  expectDoneOnce(script::ServiceProfile{"new"});
  expectDoneOnce(script::NoServiceProfile{"new"});
  expectRefused({{script::ServiceProfile{""}, badName},
                 {script::ServiceProfile{std::string(66, 'n')}, badName}});
}

TEST_F(ScriptRunner, SaysWhatAServiceProfileIsMadeOf) {
  run({"service-profile new"});
  expectDoneOnce(script::ServiceVlanProfile{"new", "v"});
  expectDoneOnce(script::ServiceVlanProfile{"new", ""});
  expectDoneOnce(script::ServiceL2cpProfile{"new", "not yet"});
  expectDoneOnce(script::ServiceL2cpProfile{"new", ""});
  expectRefused({{script::ServiceVlanProfile{"none", "v"}, noSuchName},
                 {script::ServiceVlanProfile{"new", "none"}, noSuchName},
                 {script::ServiceL2cpProfile{"none", "gold"}, noSuchName},
                 {script::ServiceL2cpProfile{"new", std::string(34, 'n')}, badName}});
}

TEST_F(ScriptRunner, RefusesToChangeAServiceProfileThatIsApplied) {
  run({"apply s interface 3"});
  expectRefused({{script::ServiceVlanProfile{"s", ""}, inUse},
                 {script::ServiceL2cpProfile{"s", ""}, inUse},
                 {script::NoServiceProfile{"s"}, inUse}});
  expectSoAlready(script::ServiceVlanProfile{"s", "v"});
  expectSoAlready(script::ServiceL2cpProfile{"s", "gold"});
}

// ---- Where they are in force ----

TEST_F(ScriptRunner, AttachesAndDetaches) {
  expectDoneOnce(script::Attach{"gold", 4294967295, 65535});
  expectRefused(
      {{script::Attach{"none", 3, 100}, noSuchName},
       {script::NoAttach{"none", 3, 100}, noSuchName},
       {script::NoAttach{"gold", 3, 65535}, noSuchReference},
       {script::NoAttach{"gold", 4294967295, 1}, "nothing is attached to the port on this VLAN"}});
  run({"l2cp-profile other"});
  expectRefused({{script::NoAttach{"other", 4294967295, 65535}, notThere}});
  EXPECT_EQ(runCommand(script::NoAttach{"gold", 4294967295, 65535}), "");
  EXPECT_TRUE(entity.settings.ports.empty());
}

TEST_F(ScriptRunner, AppliesAndTakesOff) {
  expectDoneOnce(script::Apply{"s", 3});
  EXPECT_EQ(attachments(3), Lines{"gold vlan 300"});
  EXPECT_EQ(runCommand(script::NoApply{"s", 3}), "");
  EXPECT_TRUE(entity.settings.ports.empty());
  expectRefused({{script::NoApply{"s", 3}, notThere},
                 {script::NoApply{"none", 3}, noSuchName},
                 {script::Apply{"none", 3}, noSuchName},
                 {script::Apply{"s", -1}, badName},
                 {script::Apply{"s", 4}, noSvid}});
  run({"attach gold port 3 vlan 300"});
  expectRefused({{script::Apply{"s", 3}, inUse}});
}

TEST_F(ScriptRunner, RefusesToApplyWhatIsNotThere) {
  run({"service-profile loose", "l2cp-profile gold", "exit", "service-profile empty",
       "vlan-profile v", "l2cp-profile none"});
  expectRefused(
      {{script::Apply{"loose", 3}, noSuchReference}, {script::Apply{"empty", 3}, noSuchName}});
}

}  // namespace
