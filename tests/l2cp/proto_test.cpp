#include <climits>
#include <stdexcept>

#include "tests/l2cp/entity_fixture.h"

namespace {

using Rule = L2CP::Rule;

const std::string longestName(30, 'n');

class Protocols : public StartedEntityTest {
 protected:
  void SetUp() override {
    StartedEntityTest::SetUp();
    ASSERT_EQ(entity.protoAdd("A", true, someMac, someMask, 0x1234, 0x56), 0);
    ASSERT_EQ(entity.protoAdd("B", false, otherMac, otherMac, 0xffff, 0xff), 0);
  }

  bool exists(const std::string& name) { return entity.settings.protocols.contains(name); }
  std::string shown(const std::string& name) { return text(protocol(name)); }

  /// Puts the protocol into a profile.
  void use(const char* name) {
    ASSERT_EQ(entity.profileAdd("user", false, false), 0);
    ASSERT_EQ(entity.profileProtoAdd("user", name, Rule::tunnel), 0);
  }
};

// ---- Adding ----

TEST_F(Protocols, AreAddedWithEveryFieldAsGivenAndUnused) {
  EXPECT_EQ(shown("A"), "\"A\" protect=yes 01:80:c2:00:ab:cd/ff:ff:ff:ff:ff:f0 1234 56 uses=0");
  EXPECT_EQ(shown("B"), "\"B\" protect=no 01:00:5e:00:00:fb/01:00:5e:00:00:fb ffff ff uses=0");
}

TEST_F(Protocols, AreAddedWithAnyAddressMaskEtherTypeAndSubtype) {
  EXPECT_EQ(entity.protoAdd("zeros", false, L2CP::m_anyMac, L2CP::m_anyMac, 0, 0), 0);
  EXPECT_EQ(shown("zeros"),
            "\"zeros\" protect=no 00:00:00:00:00:00/00:00:00:00:00:00 0000 00 uses=0");
  EXPECT_EQ(entity.protoAdd("ones", true, L2CP::m_allMac, L2CP::m_allMac, 0xffff, 0xff), 0);
  EXPECT_EQ(shown("ones"),
            "\"ones\" protect=yes ff:ff:ff:ff:ff:ff/ff:ff:ff:ff:ff:ff ffff ff uses=0");
}

TEST_F(Protocols, NameOfThirtyCharactersIsTakenAndOneOfThirtyOneIsInvalid) {
  EXPECT_EQ(entity.protoAdd(longestName.c_str(), false, someMac, someMask, 0, 0), 0);
  EXPECT_TRUE(exists(longestName));
  EXPECT_EQ(entity.protoAdd(overlongName.c_str(), false, someMac, someMask, 0, 0), -22);
  EXPECT_FALSE(exists(overlongName));
}

TEST_F(Protocols, ExistingNameIsRefusedWhateverItsLength) {
  const std::string before = shown("A");
  EXPECT_EQ(entity.protoAdd("A", false, otherMac, otherMac, 1, 2), -17);
  EXPECT_EQ(shown("A"), before);
  entity.settings.protocols.emplace(overlongName, L2CP::Protocol());
  EXPECT_EQ(entity.protoAdd(overlongName.c_str(), false, otherMac, otherMac, 1, 2), -17);
}

TEST_F(Protocols, NamesDifferInCaseAndMayBeEmpty) {
  EXPECT_EQ(entity.protoAdd("a", false, someMac, someMask, 0, 0), 0);
  EXPECT_EQ(entity.protoAdd("", false, someMac, someMask, 0, 0), 0);
  EXPECT_EQ(entity.protoAdd("", false, someMac, someMask, 0, 0), -17);
}

// ---- Deleting ----

TEST_F(Protocols, AreDeletedWithTheirThreeCounters) {
  EXPECT_EQ(entity.protoDel("B"), 0);
  EXPECT_FALSE(exists("B"));
  EXPECT_THAT(sent(),
              testing::ElementsAre("DEL_COUNTER <l2cpProtoBpeer>", "DEL_COUNTER <l2cpProtoBtunnel>",
                                   "DEL_COUNTER <l2cpProtoBdiscard>"));
}

TEST_F(Protocols, AreDeletedEvenIfTheirCountersAreNot) {
  classifier.refuseAll(ACL_DEL_COUNTER, ENOENT);
  EXPECT_EQ(entity.protoDel("B"), 0);
  EXPECT_FALSE(exists("B"));
  EXPECT_EQ(sent().size(), 3U);
}

TEST_F(Protocols, ProtectedAndUnreferencedOnesCanBeDeleted) {
  EXPECT_EQ(entity.protoDel("A"), 0);
  EXPECT_FALSE(exists("A"));
  EXPECT_EQ(entity.protoDel("LLDP"), 0);
  EXPECT_FALSE(exists("LLDP"));
}

TEST_F(Protocols, ReferencedByAProfileAreKept) {
  use("A");
  EXPECT_EQ(entity.protoDel("A"), -16);
  EXPECT_TRUE(exists("A"));
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(Protocols, UnknownOnesCannotBeDeleted) {
  EXPECT_EQ(entity.protoDel("none"), -2);
  EXPECT_EQ(entity.protoDel(""), -2);
  EXPECT_EQ(entity.protoDel("a"), -2);
  EXPECT_THAT(sent(), testing::IsEmpty());
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  1   9 l2cp:* l2cp:hide", "  1  11 l2cp:* l2cp:tunnel"));
}

// ---- Renaming ----

TEST_F(Protocols, RenamingToTheSameNameSucceedsAndChangesNothing) {
  const Lines before = text(entity.settings);
  EXPECT_EQ(entity.protoRen("A", "A"), 0);
  EXPECT_EQ(entity.protoRen("none", "none"), 0);
  EXPECT_EQ(text(entity.settings), before);
}

TEST_F(Protocols, RenamingToAnAbsentNameIsBusy) {
  const Lines before = text(entity.settings);
  EXPECT_EQ(entity.protoRen("A", "C"), -16);
  EXPECT_EQ(entity.protoRen("none", "C"), -16);
  EXPECT_EQ(text(entity.settings), before);
}

TEST_F(Protocols, RenamingAnUnknownNameToAnExistingOneFindsNothing) {
  const Lines before = text(entity.settings);
  EXPECT_EQ(entity.protoRen("none", "B"), -2);
  EXPECT_EQ(text(entity.settings), before);
}

TEST_F(Protocols, RenamingReplacesTheExistingTargetsWholeDefinition) {
  protocol("A").useCount = 7;
  protocol("B").useCount = 3;
  const std::size_t before = entity.settings.protocols.size();
  EXPECT_EQ(entity.protoRen("A", "B"), 0);
  EXPECT_FALSE(exists("A"));
  EXPECT_EQ(entity.settings.protocols.size(), before - 1);
  EXPECT_EQ(shown("B"), "\"B\" protect=yes 01:80:c2:00:ab:cd/ff:ff:ff:ff:ff:f0 1234 56 uses=7");
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(Protocols, RenamingDoesNotCheckTheLengthOfAnExistingName) {
  entity.settings.protocols.emplace(overlongName, L2CP::Protocol());
  EXPECT_EQ(entity.protoRen("A", overlongName.c_str()), 0);
  EXPECT_EQ(protocol(overlongName).name, overlongName);
}

TEST_F(Protocols, EntryOfTheRenamedProtocolStaysWithTheObjectThatLeft) {
  use("A");
  ASSERT_EQ(entity.protoRen("A", "B"), 0);
  EXPECT_EQ(protocol("B").useCount, 1U);

  std::string name;
  Rule rule = Rule::discard;
  EXPECT_EQ(entity.profileProtoGet("user", 0, name, rule), 0);
  EXPECT_EQ(name, "A");
  EXPECT_EQ(rule, Rule::tunnel);
  std::map<std::string, Rule> entries;
  EXPECT_EQ(entity.profileGetProtocols("user", entries), 0);
  EXPECT_EQ(entries, (std::map<std::string, Rule>{{"A", Rule::tunnel}}));

  // The entry is neither one of A, which is no longer there, nor of B.
  EXPECT_EQ(entity.profileProtoDel("user", "A"), -19);
  EXPECT_EQ(entity.profileProtoSet("user", "B", Rule::peer), -22);
  EXPECT_EQ(entity.profileProtoDelAll("user"), 0);
  EXPECT_EQ(protocol("B").useCount, 1U);
}

TEST_F(Protocols, EntryOfTheReplacedProtocolSeesTheNewDefinition) {
  use("B");
  ASSERT_EQ(entity.protoRen("A", "B"), 0);
  EXPECT_EQ(protocol("B").useCount, 0U);
  EXPECT_EQ(profile("user").protocols.begin()->first->etherType, 0x1234);
  // The count that came with the new definition is one too low, and wraps.
  EXPECT_EQ(entity.profileProtoDel("user", "B"), 0);
  EXPECT_EQ(protocol("B").useCount, UINT_MAX);
  EXPECT_EQ(entity.protoDel("B"), -16);
}

TEST_F(Protocols, AttachedEntryOfTheRenamedProtocolIsDetachedUnderItsOldName) {
  use("A");
  ASSERT_EQ(entity.portAttach("user", 3, 100), 0);
  ASSERT_EQ(entity.protoRen("A", "B"), 0);
  classifier.take();
  EXPECT_EQ(entity.portDetach("user", 3, 100), 0);
  EXPECT_THAT(sent(), testing::Contains("DEL_SELECTOR <A/100/01:80:c2:00:ab:cd/1234/56>"));
}

// ---- Use counts and copies ----

TEST_F(Protocols, WhoseUseCountWrappedToZeroCanBeDeletedUnderTheirEntry) {
  protocol("A").useCount = UINT_MAX;
  use("A");
  EXPECT_EQ(protocol("A").useCount, 0U);
  EXPECT_EQ(entity.protoDel("A"), 0);

  std::string name;
  Rule rule = Rule::discard;
  EXPECT_EQ(entity.profileProtoGet("user", 0, name, rule), 0);
  EXPECT_EQ(name, "A");

  // A new protocol of that name is another one.
  ASSERT_EQ(entity.protoAdd("A", false, otherMac, otherMac, 1, 2), 0);
  EXPECT_EQ(entity.profileProtoDel("user", "A"), -22);
  EXPECT_EQ(entity.profileProtoAdd("user", "A", Rule::peer), 0);
  EXPECT_EQ(profile("user").protocols.size(), 2U);
  EXPECT_EQ(entity.profileProtoDelAll("user"), 0);
  EXPECT_EQ(protocol("A").useCount, 0U);
}

TEST_F(Protocols, DeletedAfterTheSettingsWereCopiedAreStillInTheCopy) {
  use("A");
  const L2CP::Settings copy = entity.settings;
  ASSERT_EQ(entity.profileProtoDelAll("user"), 0);
  ASSERT_EQ(entity.profileDel("user"), 0);
  ASSERT_EQ(entity.protoDel("A"), 0);
  EXPECT_EQ(copy.protocols.at("A")->name, "A");
  EXPECT_EQ(copy.protocols.at("A")->useCount, 1U);
  const auto& entry = *copy.profiles.at("user")->protocols.begin();
  EXPECT_EQ(text(*entry.first),
            "\"A\" protect=yes 01:80:c2:00:ab:cd/ff:ff:ff:ff:ff:f0 1234 56 uses=0");
  EXPECT_EQ(entry.second, Rule::tunnel);
}

// ---- Single fields ----

TEST_F(Protocols, SettersStoreTheirOneField) {
  unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(entity.protoSetProtect("A", false), 0);
  EXPECT_EQ(shown("A"), "\"A\" protect=no 01:80:c2:00:ab:cd/ff:ff:ff:ff:ff:f0 1234 56 uses=0");
  EXPECT_EQ(entity.protoSetMac("A", mac), 0);
  EXPECT_EQ(shown("A"), "\"A\" protect=no 01:02:03:04:05:06/ff:ff:ff:ff:ff:f0 1234 56 uses=0");
  EXPECT_EQ(entity.protoSetEtherType("A", 0xffff), 0);
  EXPECT_EQ(shown("A"), "\"A\" protect=no 01:02:03:04:05:06/ff:ff:ff:ff:ff:f0 ffff 56 uses=0");
  EXPECT_EQ(entity.protoSetSubType("A", 0), 0);
  EXPECT_EQ(shown("A"), "\"A\" protect=no 01:02:03:04:05:06/ff:ff:ff:ff:ff:f0 ffff 00 uses=0");
  EXPECT_EQ(entity.protoSetProtect("A", true), 0);
  EXPECT_EQ(shown("A"), "\"A\" protect=yes 01:02:03:04:05:06/ff:ff:ff:ff:ff:f0 ffff 00 uses=0");
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(Protocols, SettingTheAddressLeavesTheMask) {
  unsigned char mac[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
  EXPECT_EQ(entity.protoSetMac("A", mac), 0);
  EXPECT_EQ(shown("A"), "\"A\" protect=yes ff:ff:ff:ff:ff:ff/ff:ff:ff:ff:ff:f0 1234 56 uses=0");
}

TEST_F(Protocols, SettersChangeProtectedAndUsedOnesWithoutTouchingTheKernel) {
  use("A");
  ASSERT_EQ(entity.portAttach("user", 3, 100), 0);
  classifier.take();
  EXPECT_EQ(entity.protoSetEtherType("A", 0x8809), 0);
  EXPECT_EQ(entity.protoSetSubType("A", 0x02), 0);
  EXPECT_EQ(shown("A"), "\"A\" protect=yes 01:80:c2:00:ab:cd/ff:ff:ff:ff:ff:f0 8809 02 uses=1");
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(Protocols, SettersDoNotFindUnknownOnes) {
  unsigned char mac[6] = {};
  const Lines before = text(entity.settings);
  EXPECT_EQ(entity.protoSetProtect("none", true), -2);
  EXPECT_EQ(entity.protoSetMac("none", mac), -2);
  EXPECT_EQ(entity.protoSetEtherType("none", 1), -2);
  EXPECT_EQ(entity.protoSetSubType("none", 1), -2);
  EXPECT_EQ(text(entity.settings), before);
}

// ---- Listing ----

TEST_F(Protocols, AreEnumeratedInNameOrder) {
  Lines names;
  L2CP::Protocol proto;
  for (unsigned int idx = 0; entity.protoGet(idx, proto) == 0; ++idx) {
    EXPECT_EQ(text(proto), shown(proto.name));
    names.push_back(proto.name);
  }
  EXPECT_THAT(names, testing::ElementsAre("A", "All-Bridges", "B", "CDP", "E-LMI", "GMRP-MMRP",
                                          "GVRP-MVRP", "LACP-LAMP", "LLDP", "MSPP", "OAM-CFM",
                                          "OAM-EFM", "PNAC", "Pause-Frame", "UDLD", "xSTP"));
}

TEST_F(Protocols, IndexEqualToTheirNumberIsInvalid) {
  L2CP::Protocol proto;
  proto.name = "untouched";
  EXPECT_EQ(entity.protoGet(16, proto), -22);
  EXPECT_EQ(entity.protoGet(UINT_MAX, proto), -22);
  entity.settings.protocols.clear();
  EXPECT_EQ(entity.protoGet(0, proto), -22);
  EXPECT_EQ(proto.name, "untouched");
}

TEST_F(Protocols, AreAppendedBehindWhatAListHolds) {
  entity.settings.protocols.clear();
  ASSERT_EQ(entity.protoAdd("b", false, someMac, someMask, 2, 2), 0);
  ASSERT_EQ(entity.protoAdd("a", true, otherMac, someMask, 1, 1), 0);
  const auto linesBehind = [this](auto protocols) {
    protocols.front().name = "first";
    protocols.back().name = "second";
    EXPECT_EQ(entity.protoGetAll(protocols), 0);
    Lines lines;
    for (const L2CP::Protocol& proto : protocols) lines.push_back(text(proto));
    return lines;
  };
  const auto areAppended = testing::ElementsAre(
      "\"first\" protect=no 00:00:00:00:00:00/ff:ff:ff:ff:ff:ff 0000 00 uses=0",
      "\"second\" protect=no 00:00:00:00:00:00/ff:ff:ff:ff:ff:ff 0000 00 uses=0",
      "\"a\" protect=yes 01:00:5e:00:00:fb/ff:ff:ff:ff:ff:f0 0001 01 uses=0",
      "\"b\" protect=no 01:80:c2:00:ab:cd/ff:ff:ff:ff:ff:f0 0002 02 uses=0");
  EXPECT_THAT(linesBehind(std::list<L2CP::Protocol>(2)), areAppended);
  EXPECT_THAT(linesBehind(std::vector<L2CP::Protocol>(2)), areAppended);
}

TEST_F(Protocols, AreListedEvenIfThereAreNone) {
  entity.settings.protocols.clear();
  std::list<L2CP::Protocol> protocols;
  EXPECT_EQ(entity.protoGetAll(protocols), 0);
  EXPECT_TRUE(protocols.empty());
}

// ---- Statistics ----

TEST_F(Protocols, StatisticsAskForANamelessCounterAndFail) {
  L2CP::Statistics stats{1, 2, 3};
  EXPECT_EQ(entity.protoStat("A", stats), -11);
  // The first read ends it: its count is 0, the others keep theirs.
  EXPECT_EQ(stats.peer, 0U);
  EXPECT_EQ(stats.tunnel, 2U);
  EXPECT_EQ(stats.discard, 3U);
  EXPECT_THAT(sent(), testing::ElementsAre("GET_COUNTER \"\""));
}

TEST_F(Protocols, StatisticsRegisterTheEmptyNameInPlaceOfTheCounters) {
  L2CP::Statistics stats;
  entity.protoStat("A", stats);
  entity.protoStat("B", stats);
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  1   9 l2cp:* l2cp:hide", "  1  11 l2cp:* l2cp:tunnel",
                                   "  2   0 l2cp:* "));
}

TEST_F(Protocols, StatisticsDoNotFindUnknownOnes) {
  L2CP::Statistics stats{1, 2, 3};
  EXPECT_EQ(entity.protoStat("none", stats), -2);
  EXPECT_EQ(stats.peer, 1U);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

// ---- Trace ----

TEST_F(Protocols, OperationsTraceTheirArguments) {
  unsigned char mac[6] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};
  L2CP::Protocol proto;
  L2CP::Statistics stats;
  std::list<L2CP::Protocol> all;
  std::vector<L2CP::Protocol> allInAVector;
  const std::string add =
      "%s:%d %s(protoName=\"%s\", protect=%s, mac=%s, etherTypeHf=0x%04x (%d), subType=%d)";
  expectTraces({
      {add,
       "protoAdd(protoName=\"C\", protect=yes, mac=01:80:c2:00:00:0e, etherTypeHf=0x88cc "
       "(35020), subType=255)",
       [&] { entity.protoAdd("C", true, mac, someMask, 0x88cc, 0xff); }},
      {add,
       "protoAdd(protoName=\"\", protect=no, mac=01:80:c2:00:00:0e, etherTypeHf=0x0001 (1), "
       "subType=0)",
       [&] { entity.protoAdd("", false, mac, someMask, 1, 0); }},
      {"%s:%d %s(protoName=\"%s\")", "protoDel(protoName=\"C\")", [&] { entity.protoDel("C"); }},
      {"%s:%d %s(oldProtoName=\"%s\", newProtoName=\"%s\")",
       "protoRen(oldProtoName=\"A\", newProtoName=\"C\")", [&] { entity.protoRen("A", "C"); }},
      {"%s:%d %s(oldProtoName=\"%s\", newProtoName=\"%s\")",
       "protoRen(oldProtoName=\"A\", newProtoName=\"A\")", [&] { entity.protoRen("A", "A"); }},
      {"%s:%d %s(protoName=\"%s\", protect=%s)", "protoSetProtect(protoName=\"A\", protect=yes)",
       [&] { entity.protoSetProtect("A", true); }},
      {"%s:%d %s(protoName=\"%s\", protect=%s)", "protoSetProtect(protoName=\"none\", protect=no)",
       [&] { entity.protoSetProtect("none", false); }},
      {"%s:%d %s(protoName=\"%s\", mac=%s)", "protoSetMac(protoName=\"A\", mac=01:80:c2:00:00:0e)",
       [&] { entity.protoSetMac("A", mac); }},
      {"%s:%d %s(protoName=\"%s\", etherType=0x%04x (%d))",
       "protoSetEtherType(protoName=\"A\", etherType=0x00ff (255))",
       [&] { entity.protoSetEtherType("A", 0xff); }},
      {"%s:%d %s(protoName=\"%s\", subType=0x%02x)",
       "protoSetSubType(protoName=\"A\", subType=0x0a)",
       [&] { entity.protoSetSubType("A", 0x0a); }},
      {"%s:%d %s(idx=%d)", "protoGet(idx=3)", [&] { entity.protoGet(3, proto); }},
      {"%s:%d %s(idx=%d)", "protoGet(idx=-1)", [&] { entity.protoGet(UINT_MAX, proto); }},
      {"%s:%d %s()", "protoGetAll()", [&] { entity.protoGetAll(all); }},
      {"%s:%d %s()", "protoGetAll()", [&] { entity.protoGetAll(allInAVector); }},
      {"%s:%d %s(protoName=\"%s\")", "protoStat(protoName=\"A\")",
       [&] { entity.protoStat("A", stats); }},
  });
}

// ---- Null names ----

TEST_F(Protocols, ANullNameIsALogicErrorThatIsTracedFirst) {
  unsigned char mac[6] = {};
  L2CP::Statistics stats;
  const std::vector<std::pair<const char*, std::function<void()>>> calls = {
      {"protoAdd(", [&] { entity.protoAdd(nullptr, true, mac, mac, 0, 0); }},
      {"protoDel(", [&] { entity.protoDel(nullptr); }},
      {"protoRen(", [&] { entity.protoRen(nullptr, "A"); }},
      {"protoRen(", [&] { entity.protoRen("A", nullptr); }},
      {"protoRen(", [&] { entity.protoRen(nullptr, nullptr); }},
      {"protoSetProtect(", [&] { entity.protoSetProtect(nullptr, true); }},
      {"protoSetMac(", [&] { entity.protoSetMac(nullptr, mac); }},
      {"protoSetEtherType(", [&] { entity.protoSetEtherType(nullptr, 0); }},
      {"protoSetSubType(", [&] { entity.protoSetSubType(nullptr, 0); }},
      {"protoStat(", [&] { entity.protoStat(nullptr, stats); }},
  };
  const Lines before = text(entity.settings);
  trace(true);
  for (const auto& [traced, call] : calls) {
    log.reset();
    try {
      call();
      ADD_FAILURE() << traced << " has not thrown";
    } catch (const std::logic_error& error) {
      EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
    }
    EXPECT_THAT(log.traces(), testing::ElementsAre(testing::StartsWith(traced)));
  }
  EXPECT_EQ(text(entity.settings), before);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

}  // namespace
