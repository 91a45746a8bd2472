#include <climits>
#include <stdexcept>

#include "platform/CliConfig.h"
#include "tests/l2cp/entity_fixture.h"

namespace {

using Rule = L2CP::Rule;
using Entries = std::map<std::string, Rule>;

constexpr auto unusualRule = static_cast<Rule>(0xfffffff9);

class ProfileEntries : public StartedEntityTest {
 protected:
  void SetUp() override {
    StartedEntityTest::SetUp();
    scriptDynamicProfiles(false);
    ASSERT_EQ(entity.profileAdd("p", false, false), 0);
  }
  void TearDown() override {
    scriptDynamicProfiles(false);
    StartedEntityTest::TearDown();
  }

  static void scriptDynamicProfiles(bool on) {
    singleton<CliConfig>::instance().setScriptingDynamicProfilesMode(on);
  }

  Entries entries(const char* profileName = "p") {
    Entries result;
    EXPECT_EQ(entity.profileGetProtocols(profileName, result), 0);
    return result;
  }

  unsigned int uses(const char* protoName) { return protocol(protoName).useCount; }
};

// ---- Adding ----

TEST_F(ProfileEntries, AreAddedWithTheirRuleAndCountedByTheProtocol) {
  EXPECT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  EXPECT_EQ(entity.profileProtoAdd("p", "CDP", Rule::discard), 0);
  EXPECT_EQ(entries(), (Entries{{"LLDP", Rule::tunnel}, {"CDP", Rule::discard}}));
  EXPECT_EQ(uses("LLDP"), 1U);
  EXPECT_EQ(uses("CDP"), 1U);
  EXPECT_EQ(uses("UDLD"), 0U);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(ProfileEntries, ProtocolAddedTwiceExistsAndIsCountedOnce) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  EXPECT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), -17);
  EXPECT_EQ(uses("LLDP"), 1U);
  EXPECT_EQ(entries(), (Entries{{"LLDP", Rule::tunnel}}));
}

TEST_F(ProfileEntries, EachProfileCounts) {
  ASSERT_EQ(entity.profileAdd("q", false, false), 0);
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  ASSERT_EQ(entity.profileProtoAdd("q", "LLDP", Rule::peer), 0);
  EXPECT_EQ(uses("LLDP"), 2U);
  ASSERT_EQ(entity.profileProtoDel("p", "LLDP"), 0);
  EXPECT_EQ(uses("LLDP"), 1U);
}

TEST_F(ProfileEntries, AnyNumberMayStandWhereARuleDoes) {
  EXPECT_EQ(entity.profileProtoAdd("p", "LLDP", unusualRule), 0);
  EXPECT_EQ(entries(), (Entries{{"LLDP", unusualRule}}));
}

TEST_F(ProfileEntries, OfAProtectedProfileAreAddedOnlyWhileDynamicProfilesAreScripted) {
  profile("p").protect = true;
  EXPECT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), -1);
  EXPECT_EQ(uses("LLDP"), 0U);
  scriptDynamicProfiles(true);
  EXPECT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), 0);
  EXPECT_EQ(entries(), (Entries{{"LLDP", Rule::peer}}));
  EXPECT_EQ(uses("LLDP"), 1U);
  scriptDynamicProfiles(false);
  EXPECT_EQ(entity.profileProtoAdd("p", "CDP", Rule::peer), -1);
}

TEST_F(ProfileEntries, OfAProtectedProfileAreNeverChangedOrRemoved) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), 0);
  profile("p").protect = true;
  for (const bool scripting : {false, true}) {
    scriptDynamicProfiles(scripting);
    EXPECT_EQ(entity.profileProtoSet("p", "LLDP", Rule::tunnel), -1);
    EXPECT_EQ(entity.profileProtoDel("p", "LLDP"), -1);
    EXPECT_EQ(entity.profileProtoDelAll("p"), -1);
  }
  EXPECT_EQ(entries(), (Entries{{"LLDP", Rule::peer}}));
  EXPECT_EQ(uses("LLDP"), 1U);
}

// ---- The order of the checks ----

// What each operation answers; 0: it would succeed, and is left out.
struct Refusal {
  const char* why;
  const char* profileName;
  const char* protoName;
  bool protect;
  unsigned int useCount;
  bool scripting;
  int add;
  int set;
  int del;
  int delAll;
};

class ProfileEntryRefusals : public ProfileEntries, public testing::WithParamInterface<Refusal> {};

TEST_P(ProfileEntryRefusals, ComeInThisOrderAndChangeNothing) {
  const Refusal& row = GetParam();
  SCOPED_TRACE(row.why);
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), 0);
  profile("p").protect = row.protect;
  profile("p").useCount = row.useCount;
  scriptDynamicProfiles(row.scripting);
  const Lines before = text(entity.settings);
  if (row.add != 0) {
    EXPECT_EQ(entity.profileProtoAdd(row.profileName, row.protoName, Rule::tunnel), row.add);
  }
  if (row.set != 0) {
    EXPECT_EQ(entity.profileProtoSet(row.profileName, row.protoName, Rule::tunnel), row.set);
  }
  if (row.del != 0) {
    EXPECT_EQ(entity.profileProtoDel(row.profileName, row.protoName), row.del);
  }
  if (row.delAll != 0) {
    EXPECT_EQ(entity.profileProtoDelAll(row.profileName), row.delAll);
  }
  EXPECT_EQ(text(entity.settings), before);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, ProfileEntryRefusals,
    testing::Values(
        Refusal{"no profile, no protocol", "none", "none", true, 1, false, -2, -2, -2, -2},
        Refusal{"no profile", "none", "LLDP", false, 0, true, -2, -2, -2, -2},
        Refusal{"protected, in use, no protocol", "p", "none", true, 1, false, -1, -1, -1, -1},
        Refusal{"protected, entry there", "p", "LLDP", true, 0, false, -1, -1, -1, -1},
        Refusal{"protected and scripted, in use", "p", "none", true, 1, true, -16, -1, -1, -1},
        Refusal{"in use, no protocol", "p", "none", false, 1, false, -16, -16, -16, -16},
        Refusal{"in use, entry there", "p", "LLDP", false, 1, false, -16, -16, -16, -16},
        Refusal{"in use, highest count", "p", "CDP", false, UINT_MAX, false, -16, -16, -16, -16},
        Refusal{"no protocol", "p", "none", false, 0, false, -19, -19, -19, 0},
        Refusal{"protected and scripted, no protocol", "p", "none", true, 0, true, -19, -1, -1, -1},
        Refusal{"protocol not in the profile", "p", "CDP", false, 0, false, 0, -22, -22, 0},
        Refusal{"entry there", "p", "LLDP", false, 0, false, -17, 0, 0, 0}));

// ---- Changing ----

TEST_F(ProfileEntries, ChangeTheirRuleWithoutBeingCountedAgain) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  EXPECT_EQ(entity.profileProtoSet("p", "LLDP", Rule::discard), 0);
  EXPECT_EQ(entries(), (Entries{{"LLDP", Rule::discard}}));
  EXPECT_EQ(entity.profileProtoSet("p", "LLDP", unusualRule), 0);
  EXPECT_EQ(entries(), (Entries{{"LLDP", unusualRule}}));
  EXPECT_EQ(uses("LLDP"), 1U);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

// ---- Removing ----

TEST_F(ProfileEntries, AreRemovedAndNoLongerCounted) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  ASSERT_EQ(entity.profileProtoAdd("p", "CDP", Rule::discard), 0);
  EXPECT_EQ(entity.profileProtoDel("p", "LLDP"), 0);
  EXPECT_EQ(entries(), (Entries{{"CDP", Rule::discard}}));
  EXPECT_EQ(uses("LLDP"), 0U);
  EXPECT_EQ(uses("CDP"), 1U);
  EXPECT_EQ(entity.profileProtoDel("p", "LLDP"), -22);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(ProfileEntries, AreRemovedAllAtOnce) {
  ASSERT_EQ(entity.profileAdd("q", false, false), 0);
  ASSERT_EQ(entity.profileProtoAdd("q", "LLDP", Rule::peer), 0);
  for (const char* name : {"LLDP", "CDP", "xSTP"}) {
    ASSERT_EQ(entity.profileProtoAdd("p", name, Rule::tunnel), 0);
  }
  EXPECT_EQ(entity.profileProtoDelAll("p"), 0);
  EXPECT_EQ(entries(), Entries());
  EXPECT_EQ(entries("q"), (Entries{{"LLDP", Rule::peer}}));
  EXPECT_EQ(uses("LLDP"), 1U);
  EXPECT_EQ(uses("CDP"), 0U);
  EXPECT_EQ(uses("xSTP"), 0U);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(ProfileEntries, OfAnEmptyProfileAreRemovedAllTheSame) {
  EXPECT_EQ(entity.profileProtoDelAll("p"), 0);
}

TEST_F(ProfileEntries, RemovedAllAtOnceFreeTheirProtocolForDeletion) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  ASSERT_EQ(entity.protoDel("LLDP"), -16);
  ASSERT_EQ(entity.profileProtoDelAll("p"), 0);
  EXPECT_EQ(entity.protoDel("LLDP"), 0);
}

TEST_F(ProfileEntries, UseCountOfAProtocolWrapsBothWays) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  protocol("LLDP").useCount = 0;
  EXPECT_EQ(entity.profileProtoDel("p", "LLDP"), 0);
  EXPECT_EQ(uses("LLDP"), UINT_MAX);
  EXPECT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  EXPECT_EQ(uses("LLDP"), 0U);
  EXPECT_EQ(entity.profileProtoDelAll("p"), 0);
  EXPECT_EQ(uses("LLDP"), UINT_MAX);
}

TEST_F(ProfileEntries, WhoseProtocolHasLeftTheCatalogueCanStillBeListedAndRemoved) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  const std::weak_ptr<L2CP::Protocol> watch = entity.settings.protocols.at("LLDP").pointer();
  entity.settings.protocols.erase("LLDP");
  EXPECT_EQ(entries(), (Entries{{"LLDP", Rule::tunnel}}));
  EXPECT_EQ(entity.profileProtoSet("p", "LLDP", Rule::peer), -19);
  EXPECT_EQ(entity.profileProtoDel("p", "LLDP"), -19);
  ASSERT_FALSE(watch.expired());
  EXPECT_EQ(entity.profileProtoDelAll("p"), 0);
  EXPECT_TRUE(watch.expired());
}

// ---- Reading ----

TEST_F(ProfileEntries, AreEnumeratedInTheOrderOfTheirProtocolsAddresses) {
  // Some memory in between, so that the order is not that of the names by accident.
  std::vector<const L2CP::Protocol*> addresses;
  for (const char* name : {"zz", "mm", "aa", "kk"}) {
    ASSERT_EQ(entity.protoAdd(name, false, someMac, someMask, 1, 2), 0);
  }
  for (const char* name : {"kk", "xSTP", "zz", "CDP", "aa", "LLDP", "mm"}) {
    ASSERT_EQ(entity.profileProtoAdd("p", name, Rule::peer), 0);
    addresses.push_back(&protocol(name));
  }
  std::sort(addresses.begin(), addresses.end(), std::less<>());
  for (unsigned int idx = 0; idx < addresses.size(); ++idx) {
    std::string name;
    Rule rule = Rule::discard;
    EXPECT_EQ(entity.profileProtoGet("p", idx, name, rule), 0);
    EXPECT_EQ(name, addresses[idx]->name);
    EXPECT_EQ(rule, Rule::peer);
  }
}

TEST_F(ProfileEntries, IndexEqualToTheirNumberIsInvalid) {
  std::string name = "untouched";
  Rule rule = unusualRule;
  EXPECT_EQ(entity.profileProtoGet("p", 0, name, rule), -22);
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  EXPECT_EQ(entity.profileProtoGet("p", 1, name, rule), -22);
  EXPECT_EQ(entity.profileProtoGet("p", UINT_MAX, name, rule), -22);
  EXPECT_EQ(entity.profileProtoGet("none", 0, name, rule), -2);
  EXPECT_EQ(name, "untouched");
  EXPECT_EQ(rule, unusualRule);
}

TEST_F(ProfileEntries, CanBeReadFromAProfileThatIsProtectedDynamicAndInUse) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  profile("p").protect = true;
  profile("p").dynamic = true;
  profile("p").useCount = 2;
  std::string name;
  Rule rule = Rule::discard;
  EXPECT_EQ(entity.profileProtoGet("p", 0, name, rule), 0);
  EXPECT_EQ(name, "LLDP");
  EXPECT_EQ(rule, Rule::tunnel);
  EXPECT_EQ(entries(), (Entries{{"LLDP", Rule::tunnel}}));
}

TEST_F(ProfileEntries, AreAddedToWhatAMapHoldsAndReplaceEqualNames) {
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  ASSERT_EQ(entity.profileProtoAdd("p", "CDP", Rule::discard), 0);
  Entries result = {{"kept", Rule::peer}, {"LLDP", Rule::peer}};
  EXPECT_EQ(entity.profileGetProtocols("p", result), 0);
  EXPECT_EQ(result,
            (Entries{{"kept", Rule::peer}, {"LLDP", Rule::tunnel}, {"CDP", Rule::discard}}));
}

TEST_F(ProfileEntries, OfAnUnknownProfileAreNotFound) {
  Entries result = {{"kept", Rule::peer}};
  EXPECT_EQ(entity.profileGetProtocols("none", result), -2);
  EXPECT_EQ(result, (Entries{{"kept", Rule::peer}}));
}

// ---- Trace ----

TEST_F(ProfileEntries, OperationsTraceTheirArguments) {
  std::string name;
  Rule rule = Rule::discard;
  Entries result;
  expectTraces({
      {"%s:%d %s(profileName=\"%s\", protoName=\"%s\", rule=%d)",
       "profileProtoAdd(profileName=\"p\", protoName=\"LLDP\", rule=2)",
       [&] { entity.profileProtoAdd("p", "LLDP", Rule::tunnel); }},
      {"%s:%d %s(profileName=\"%s\", protoName=\"%s\", rule=%d)",
       "profileProtoAdd(profileName=\"none\", protoName=\"\", rule=-7)",
       [&] { entity.profileProtoAdd("none", "", unusualRule); }},
      {"%s:%d %s(profileName=\"%s\", protoName=\"%s\", newRule=%d)",
       "profileProtoSet(profileName=\"p\", protoName=\"LLDP\", newRule=1)",
       [&] { entity.profileProtoSet("p", "LLDP", Rule::peer); }},
      {"%s:%d %s(profileName=\"%s\", protoName=\"%s\")",
       "profileProtoDel(profileName=\"p\", protoName=\"LLDP\")",
       [&] { entity.profileProtoDel("p", "LLDP"); }},
      {"%s:%d %s(profileName=\"%s\")", "profileProtoDelAll(profileName=\"p\")",
       [&] { entity.profileProtoDelAll("p"); }},
      {"%s:%d %s(profileName=\"%s\", idx=%d)", "profileProtoGet(profileName=\"p\", idx=3)",
       [&] { entity.profileProtoGet("p", 3, name, rule); }},
      {"%s:%d %s(profileName=\"%s\", idx=%d)", "profileProtoGet(profileName=\"none\", idx=-1)",
       [&] { entity.profileProtoGet("none", UINT_MAX, name, rule); }},
      {"%s:%d %s(profileName=\"%s\")", "profileGetProtocols(profileName=\"p\")",
       [&] { entity.profileGetProtocols("p", result); }},
  });
}

// ---- Null names ----

TEST_F(ProfileEntries, ANullNameIsALogicError) {
  std::string name;
  Rule rule = Rule::discard;
  Entries result;
  // Each is traced before it throws.
  const std::pair<const char*, std::function<void()>> calls[] = {
      {"profileProtoAdd(profileName=\"(null)\", protoName=\"LLDP\", rule=1)",
       [&] { entity.profileProtoAdd(nullptr, "LLDP", Rule::peer); }},
      {"profileProtoAdd(profileName=\"p\", protoName=\"(null)\", rule=1)",
       [&] { entity.profileProtoAdd("p", nullptr, Rule::peer); }},
      {"profileProtoSet(profileName=\"(null)\", protoName=\"LLDP\", newRule=1)",
       [&] { entity.profileProtoSet(nullptr, "LLDP", Rule::peer); }},
      {"profileProtoSet(profileName=\"p\", protoName=\"(null)\", newRule=1)",
       [&] { entity.profileProtoSet("p", nullptr, Rule::peer); }},
      {"profileProtoDel(profileName=\"(null)\", protoName=\"LLDP\")",
       [&] { entity.profileProtoDel(nullptr, "LLDP"); }},
      {"profileProtoDel(profileName=\"p\", protoName=\"(null)\")",
       [&] { entity.profileProtoDel("p", nullptr); }},
      {"profileProtoDelAll(profileName=\"(null)\")", [&] { entity.profileProtoDelAll(nullptr); }},
      {"profileProtoGet(profileName=\"(null)\", idx=0)",
       [&] { entity.profileProtoGet(nullptr, 0, name, rule); }},
      {"profileGetProtocols(profileName=\"(null)\")",
       [&] { entity.profileGetProtocols(nullptr, result); }},
  };
  const Lines before = text(entity.settings);
  trace(true);
  for (const auto& [entry, call] : calls) {
    SCOPED_TRACE(entry);
    log.reset();
    try {
      call();
      ADD_FAILURE() << "has not thrown";
    } catch (const std::logic_error& error) {
      EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
    }
    EXPECT_THAT(log.traces(), testing::ElementsAre(entry));
  }
  trace(false);
  EXPECT_EQ(text(entity.settings), before);
}

}  // namespace
