#include "tests/l2cp/entity_fixture.h"

namespace {

using Settings = L2CP::Settings;
using Rule = L2CP::Rule;

// Some of everything; the profile is attached and has an entry.
Settings someSettings() {
  Settings settings;
  settings.protocols.emplace("own", L2CP::Protocol("own", false, someMac, someMask, 0x1234, 5));
  settings.profiles.emplace("gold", L2CP::Profile("gold", true, true));
  L2CP::Profile& gold = *settings.profiles.at("gold");
  gold.protocols[settings.protocols.at("own").pointer()] = Rule::tunnel;
  gold.useCount = 1;
  gold.interfaces = {3};
  settings.ports[3][100][settings.profiles.at("gold").pointer()] = {207};
  return settings;
}

Lines withoutInterfaces(Settings& settings) {
  for (auto& [name, profile] : settings.profiles) profile->interfaces.clear();
  return text(settings);
}

TEST(Settings, DefaultHasTheFourteenBuiltInProtocolsInNameOrderAndNothingElse) {
  EXPECT_THAT(
      text(Settings()),
      testing::ElementsAre(
          "protocol All-Bridges: \"All-Bridges\" protect=yes "
          "01:80:c2:00:00:10/ff:ff:ff:ff:ff:ff ffff ff uses=0",
          "protocol CDP: \"CDP\" protect=yes 01:00:0c:cc:cc:cc/ff:ff:ff:ff:ff:ff 2000 ff uses=0",
          "protocol E-LMI: \"E-LMI\" protect=yes "
          "01:80:c2:00:00:07/ff:ff:ff:ff:ff:ff ffff ff uses=0",
          "protocol GMRP-MMRP: \"GMRP-MMRP\" protect=yes "
          "01:80:c2:00:00:20/ff:ff:ff:ff:ff:ff ffff ff uses=0",
          "protocol GVRP-MVRP: \"GVRP-MVRP\" protect=yes "
          "01:80:c2:00:00:21/ff:ff:ff:ff:ff:ff ffff ff uses=0",
          "protocol LACP-LAMP: \"LACP-LAMP\" protect=yes "
          "01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff 8809 01 uses=0",
          "protocol LLDP: \"LLDP\" protect=yes 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff ffff ff uses=0",
          "protocol MSPP: \"MSPP\" protect=yes 01:80:c2:00:00:03/ff:ff:ff:ff:ff:ff 22e2 ff uses=0",
          "protocol OAM-CFM: \"OAM-CFM\" protect=yes "
          "01:80:c2:00:00:30/ff:ff:ff:ff:ff:f0 8902 ff uses=0",
          "protocol OAM-EFM: \"OAM-EFM\" protect=yes "
          "01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff 8809 03 uses=0",
          "protocol PNAC: \"PNAC\" protect=yes 01:80:c2:00:00:03/ff:ff:ff:ff:ff:ff 888e ff uses=0",
          "protocol Pause-Frame: \"Pause-Frame\" protect=yes "
          "01:80:c2:00:00:01/ff:ff:ff:ff:ff:ff ffff ff uses=0",
          "protocol UDLD: \"UDLD\" protect=yes 01:00:0c:cc:cc:cc/ff:ff:ff:ff:ff:ff 0111 ff uses=0",
          "protocol xSTP: \"xSTP\" protect=yes "
          "01:80:c2:00:00:00/ff:ff:ff:ff:ff:ff ffff ff uses=0"));
}

TEST(Settings, DefaultHasBothProtocolsOfOneAddressAndEtherType) {
  const Settings settings;
  const L2CP::Protocol& lacp = *settings.protocols.at("LACP-LAMP");
  const L2CP::Protocol& oam = *settings.protocols.at("OAM-EFM");
  EXPECT_TRUE(std::equal(std::begin(lacp.mac), std::end(lacp.mac), oam.mac));
  EXPECT_EQ(lacp.etherType, oam.etherType);
  EXPECT_NE(lacp.subType, oam.subType);
}

TEST(Settings, DefaultsAreObjectsOfTheirOwn) {
  Settings changed;
  changed.protocols.at("LLDP")->etherType = 1;
  changed.protocols.erase("CDP");
  const Settings fresh;
  EXPECT_EQ(fresh.protocols.at("LLDP")->etherType, 0xffff);
  EXPECT_EQ(fresh.protocols.size(), 14U);
}

TEST(Settings, CopyHasEverythingButWhereProfilesAreApplied) {
  Settings source = someSettings();
  const Settings copy = source;
  EXPECT_EQ(text(copy), withoutInterfaces(source));
  EXPECT_TRUE(copy.profiles.at("gold")->interfaces.empty());
}

TEST(Settings, CopyHasProtocolsAndProfilesOfItsOwn) {
  const Settings source = someSettings();
  Settings copy = source;
  copy.protocols.at("own")->etherType = 1;
  copy.profiles.at("gold")->name = "changed";
  copy.profiles.at("gold")->protocols.clear();
  EXPECT_EQ(source.protocols.at("own")->etherType, 0x1234);
  EXPECT_EQ(source.profiles.at("gold")->name, "gold");
  EXPECT_EQ(source.profiles.at("gold")->protocols.size(), 1U);
}

TEST(Settings, CopyRefersToTheVerySameAttachedProfiles) {
  const Settings source = someSettings();
  const Settings copy = source;  // NOLINT(performance-unnecessary-copy-initialization)
  const auto& attached = copy.ports.at(3).at(100);
  ASSERT_EQ(attached.size(), 1U);
  EXPECT_EQ(attached.begin()->first, source.profiles.at("gold").pointer());
  EXPECT_NE(attached.begin()->first, copy.profiles.at("gold").pointer());
  EXPECT_THAT(attached.begin()->second, testing::ElementsAre(207U));
}

TEST(Settings, CopiesEntriesReferToTheVerySameProtocols) {
  const Settings source = someSettings();
  const Settings copy = source;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.profiles.at("gold")->protocols.begin()->first,
            source.protocols.at("own").pointer());
}

TEST(Settings, AssignmentReplacesEverything) {
  Settings source = someSettings();
  Settings target;
  target.protocols.erase("LLDP");
  target.profiles.emplace("old", L2CP::Profile("old", false, false));
  target.ports[9][9];
  target = source;
  EXPECT_EQ(text(target), withoutInterfaces(source));
  EXPECT_EQ(target.ports.at(3).at(100).begin()->first, source.profiles.at("gold").pointer());
}

TEST(Settings, AssignmentToItselfChangesNothing) {
  Settings settings = someSettings();
  const Lines before = text(settings);
  const Settings& itself = settings;
  settings = itself;
  EXPECT_EQ(text(settings), before);
}

TEST(Settings, DestructionFreesNoProfileThatSomebodyElseRefersTo) {
  std::shared_ptr<L2CP::Profile> profile;
  {
    const Settings settings = someSettings();
    profile = settings.profiles.at("gold").pointer();
  }
  EXPECT_EQ(profile->name, "gold");
  EXPECT_EQ(profile->protocols.begin()->first->name, "own");
}

TEST(Settings, CopyIsReadableWhenItsSourceIsGone) {
  Settings copy;
  Lines expected;
  {
    Settings source = someSettings();
    copy = source;
    expected = withoutInterfaces(source);
  }
  EXPECT_EQ(text(copy), expected);
  EXPECT_EQ(copy.ports.at(3).at(100).begin()->first->protocols.begin()->first->name, "own");
}

TEST(Settings, NamesAreComparedByteByByte) {
  Settings settings;
  settings.profiles.clear();
  for (const char* name : {"b", "A", "a", "B", "\xc3\xa4", "Z"}) settings.profiles[name];
  Lines order;
  for (const auto& [name, profile] : settings.profiles) order.push_back(name);
  EXPECT_THAT(order, testing::ElementsAre("A", "B", "Z", "a", "b", "\xc3\xa4"));
}

}  // namespace
