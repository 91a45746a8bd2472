/// Editing profiles: copies, comparison, replacement.

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <utility>

#include "tests/l2cp/service_fixture.h"
#include "tests/support/held_lock.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Rule = L2CP::Rule;

class Editing : public ServedEntityTest {
 protected:
  std::string shownProfile(const std::string& name) { return text(profile(name)); }

  /// Whether an operation writes no trace, sends nothing, asks nothing and logs nothing.
  template <class Operation>
  void expectQuiet(const Operation& operation) {
    services.table().servProfileLogLevel = 3;
    forget();
    EXPECT_THAT(tracesOf(entity, operation), IsEmpty());
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_THAT(calls.calls, IsEmpty());
    EXPECT_THAT(calls.logMessages, IsEmpty());
  }

  void expectLogicErrors(const std::vector<std::function<void()>>& operations) {
    const Lines before = text(entity.settings);
    for (const auto& operation : operations) {
      try {
        operation();
        ADD_FAILURE() << "operation " << &operation - operations.data() << " has not thrown";
      } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
      }
    }
    EXPECT_EQ(text(entity.settings), before);
  }
};

// ---- Copying ----

struct CopyRow {
  const char* why;
  const char* source;
  const char* destination;
  int result;
};

TEST_F(Editing, CopyingIsRefusedForAMissingSourceAndAnExistingDestination) {
  addProfile("P", {"LLDP"});
  addProfile("Q");
  const CopyRow rows[] = {
      {"no source", "none", "C", -1},
      {"no source, destination exists", "none", "P", -1},
      {"destination exists", "P", "Q", -1},
      {"both the same", "P", "P", -1},
      {"both the same and missing", "none", "none", -1},
      {"names are case-sensitive", "p", "C", -1},
  };
  const Lines before = text(entity.settings);
  for (const CopyRow& row : rows) {
    EXPECT_EQ(entity.l2cpProfileCopy(row.source, row.destination), row.result) << row.why;
    EXPECT_EQ(text(entity.settings), before) << row.why;
  }
}

TEST_F(Editing, CopyIsUnprotectedNotDynamicUnusedAndAppliedNowhere) {
  for (const auto& [protect, dynamic] : {std::pair(false, false), std::pair(true, false),
                                         std::pair(false, true), std::pair(true, true)}) {
    SCOPED_TRACE(testing::Message() << "protect " << protect << ", dynamic " << dynamic);
    entity.settings = L2CP::Settings();
    addProfile("P", {"LLDP"}, Rule::tunnel);
    ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
    profile("P").protect = protect;
    profile("P").dynamic = dynamic;
    const std::string source = shownProfile("P");
    EXPECT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
    EXPECT_EQ(shownProfile("C"), "\"C\" protect=no dynamic=no uses=0 LLDP=2");
    EXPECT_EQ(shownProfile("P"), source);
  }
}

TEST_F(Editing, CopyingDoesNotRaiseTheUseCountsOfProtocols) {
  addProfile("P", {"LLDP", "CDP"});
  EXPECT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
  EXPECT_EQ(protocol("LLDP").useCount, 1U);
  EXPECT_EQ(protocol("CDP").useCount, 1U);
}

TEST_F(Editing, CopyKeepsAProtocolThatItsCountDidNotHold) {
  addProfile("P", {"LLDP"});
  ASSERT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
  ASSERT_EQ(entity.profileProtoDel("P", "LLDP"), 0);
  ASSERT_EQ(entity.protoDel("LLDP"), 0);
  EXPECT_EQ(shownProfile("C"), "\"C\" protect=no dynamic=no uses=0 LLDP=1");
  EXPECT_EQ(entity.profileProtoDel("C", "LLDP"), -19);
  EXPECT_EQ(entity.profileProtoDelAll("C"), 0);
  EXPECT_EQ(shownProfile("C"), "\"C\" protect=no dynamic=no uses=0");
}

TEST_F(Editing, CopyAndSourceGoTheirOwnWays) {
  addProfile("P", {"LLDP"});
  ASSERT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
  ASSERT_EQ(entity.profileProtoSet("C", "LLDP", Rule::discard), 0);
  ASSERT_EQ(entity.profileProtoAdd("P", "CDP", Rule::peer), 0);
  EXPECT_EQ(shownProfile("P"), "\"P\" protect=no dynamic=no uses=0 CDP=1 LLDP=1");
  EXPECT_EQ(shownProfile("C"), "\"C\" protect=no dynamic=no uses=0 LLDP=0");
  ASSERT_EQ(entity.profileDel("P"), 0);
  EXPECT_EQ(shownProfile("C"), "\"C\" protect=no dynamic=no uses=0 LLDP=0");
}

TEST_F(Editing, CopyMayHaveAnEmptyNameOrALongOne) {
  const std::string name(5000, 'n');
  addProfile("P");
  EXPECT_EQ(entity.l2cpProfileCopy("P", ""), 0);
  EXPECT_EQ(entity.l2cpProfileCopy("", name.c_str()), 0);
  EXPECT_EQ(profile("").name, "");
  EXPECT_EQ(profile(name).name, name);
}

TEST_F(Editing, CopyingIsQuiet) {
  addProfile("P", {"LLDP"});
  expectQuiet([&] { EXPECT_EQ(entity.l2cpProfileCopy("P", "C"), 0); });
  expectQuiet([&] { EXPECT_EQ(entity.l2cpProfileCopy("P", "C"), -1); });
  expectQuiet([&] { EXPECT_EQ(entity.l2cpProfileCopy("none", "D"), -1); });
}

TEST_F(Editing, ANullNameIsALogicErrorOfCopyingEditingAndReplacing) {
  addProfile("P");
  const char* const null = nullptr;
  expectLogicErrors({
      [&] { entity.l2cpProfileCopy(null, "C"); },
      [&] { entity.l2cpProfileCopy("P", null); },
      [&] { entity.l2cpProfileEdit(null); },
      [&] { entity.l2cpProfileReplace(null, "P"); },
      [&] { entity.l2cpProfileOnExit(null, "P"); },
      [&] { entity.l2cpProfileOnExit("P", null); },
  });
}

// ---- Opening for editing ----

void expectEdit(const rpcl2cpProfEditResult& result, int error, const char* name) {
  EXPECT_EQ(static_cast<int>(result.error), error);
  EXPECT_STREQ(result.name, name);
}

TEST_F(Editing, FirstTemporaryProfileHasNumberOneAndTheNextNumberTwo) {
  addProfile("P", {"LLDP"});
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_1");
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_2");
  EXPECT_EQ(shownProfile("temp_l2cp_prof_1"),
            "\"temp_l2cp_prof_1\" protect=no dynamic=no uses=0 LLDP=1");
  EXPECT_EQ(shownProfile("temp_l2cp_prof_2"),
            "\"temp_l2cp_prof_2\" protect=no dynamic=no uses=0 LLDP=1");
}

TEST_F(Editing, NumberOfADiscardedTemporaryProfileIsTakenAgain) {
  addProfile("P");
  for (int i = 0; i < 3; ++i) entity.l2cpProfileEdit("P");
  ASSERT_EQ(entity.profileDel("temp_l2cp_prof_2"), 0);
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_2");
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_4");
}

TEST_F(Editing, NumbersAreWrittenInDecimalWithoutZerosInFront) {
  addProfile("P");
  for (int i = 1; i <= 10; ++i) entity.l2cpProfileEdit("P");
  EXPECT_TRUE(exists("temp_l2cp_prof_9"));
  EXPECT_TRUE(exists("temp_l2cp_prof_10"));
  addProfile("temp_l2cp_prof_011");
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_11");
}

TEST_F(Editing, BehindAShorterNameNothingIsLeftOfALongerOne) {
  addProfile("P");
  for (int i = 1; i <= 100; ++i) entity.l2cpProfileEdit("P");
  ASSERT_TRUE(exists("temp_l2cp_prof_100"));
  ASSERT_EQ(entity.profileDel("temp_l2cp_prof_2"), 0);
  std::string expected = "temp_l2cp_prof_2";
  expected.resize(33);
  const rpcl2cpProfEditResult result = entity.l2cpProfileEdit("P");
  EXPECT_EQ(std::string(result.name, sizeof(result.name)), expected);
  const rpcl2cpProfEditResult refused = entity.l2cpProfileEdit("none");
  EXPECT_EQ(std::string(refused.name, sizeof(refused.name)), expected);
}

TEST_F(Editing, NameThatSomebodyElseTookIsPassedOver) {
  addProfile("temp_l2cp_prof_1");
  expectEdit(entity.l2cpProfileEdit("temp_l2cp_prof_1"), 0, "temp_l2cp_prof_2");
}

TEST_F(Editing, MissingProfileCannotBeEditedAndTheLastSuccessfulNameStays) {
  addProfile("P");
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_1");
  expectEdit(entity.l2cpProfileEdit("none"), 1, "temp_l2cp_prof_1");
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_2");
  ASSERT_EQ(entity.profileDel("temp_l2cp_prof_1"), 0);
  expectEdit(entity.l2cpProfileEdit("none"), 1, "temp_l2cp_prof_2");
  // Not only another profile, but another entity, too.
  L2CP other;
  expectEdit(other.l2cpProfileEdit("P"), 1, "temp_l2cp_prof_2");
  EXPECT_FALSE(exists("none"));
  EXPECT_FALSE(exists("temp_l2cp_prof_1"));
}

TEST_F(Editing, ResultIsACopy) {
  addProfile("P");
  rpcl2cpProfEditResult result = entity.l2cpProfileEdit("P");
  std::fill(std::begin(result.name), std::end(result.name), 'x');
  result.error = RPC_L2CP_ERR_INVALID;
  expectEdit(entity.l2cpProfileEdit("none"), 1, "temp_l2cp_prof_1");
}

TEST_F(Editing, ProfilesInUseProtectedOrDynamicCanBeEdited) {
  addProfile("P", {"LLDP"});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(entity.profileSetDynamic("P", true), 0);
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_1");
  EXPECT_EQ(shownProfile("temp_l2cp_prof_1"),
            "\"temp_l2cp_prof_1\" protect=no dynamic=no uses=0 LLDP=1");
  EXPECT_EQ(shownProfile("P"), "\"P\" protect=yes dynamic=yes uses=1 on 3 LLDP=1");
}

TEST_F(Editing, OpeningTracesTheSearchForAFreeNumberAlone) {
  addProfile("P");
  const auto traces = [&](const char* name) {
    return tracesOf(entity, [&] { entity.l2cpProfileEdit(name); });
  };
  const Lines first = {"profileGet(profileName=\"temp_l2cp_prof_1\")"};
  EXPECT_EQ(traces("none"), first);
  EXPECT_EQ(traces("P"), first);
  EXPECT_EQ(traces("P"), first + Lines{"profileGet(profileName=\"temp_l2cp_prof_2\")"});
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(calls.calls, IsEmpty());
}

TEST_F(Editing, TakesNoLock) {
  addProfile("P", {"LLDP"});
  addProfile("D");
  ASSERT_EQ(entity.profileSetDynamic("D", true), 0);
  const support::LockHeldElsewhere lock;
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_1");
  EXPECT_EQ(entity.profileProtoAdd("temp_l2cp_prof_1", "CDP", Rule::peer), 0);
  EXPECT_EQ(entity.l2cpProfileCompareContent("P", "temp_l2cp_prof_1"), -2);
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "temp_l2cp_prof_1"), 0);
  EXPECT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "C"), -2);
  EXPECT_EQ(entity.l2cpDynamicProfilesDeleteAll(), 0);
  EXPECT_EQ(summary(), "P:0[CDP LLDP] |  | ");
}

// ---- Comparing ----

L2CP::Protocol someProtocol() { return {"X", false, someMac, someMask, 0x88cc, 7}; }

class Comparing : public Editing {
 protected:
  void SetUp() override {
    Editing::SetUp();
    addProfile("A");
    addProfile("B");
  }

  int compare() { return entity.l2cpProfileCompareContent("A", "B"); }

  /// Enters the protocols into the profile, those earlier in the list at lower addresses.
  void enter(const char* name, const std::vector<L2CP::Protocol>& protocols,
             Rule rule = Rule::peer) {
    std::vector<std::shared_ptr<L2CP::Protocol>> pointers;
    for (std::size_t i = 0; i < protocols.size(); ++i) {
      pointers.push_back(std::make_shared<L2CP::Protocol>());
    }
    std::sort(pointers.begin(), pointers.end());
    for (std::size_t i = 0; i < protocols.size(); ++i) {
      *pointers[i] = protocols[i];
      profile(name).protocols.emplace(pointers[i], rule);
    }
  }
};

TEST_F(Comparing, ProfilesWithTheSameEntriesMatch) {
  EXPECT_EQ(compare(), 0);
  for (const char* name : {"A", "B"}) {
    ASSERT_EQ(entity.profileProtoAdd(name, "LLDP", Rule::peer), 0);
    ASSERT_EQ(entity.profileProtoAdd(name, "CDP", Rule::tunnel), 0);
  }
  EXPECT_EQ(compare(), 0);
  EXPECT_EQ(entity.l2cpProfileCompareContent("A", "A"), 0);
}

TEST_F(Comparing, RulesDoNotCount) {
  ASSERT_EQ(entity.profileProtoAdd("A", "LLDP", Rule::peer), 0);
  ASSERT_EQ(entity.profileProtoAdd("B", "LLDP", Rule::discard), 0);
  EXPECT_EQ(compare(), 0);
}

TEST_F(Comparing, UseCountsNamesAndPlacesOfProfilesDoNotCount) {
  ASSERT_EQ(entity.profileProtoAdd("A", "LLDP", Rule::peer), 0);
  ASSERT_EQ(entity.profileProtoAdd("B", "LLDP", Rule::peer), 0);
  ASSERT_EQ(entity.portAttach("A", 3, 100), 0);
  EXPECT_EQ(compare(), 0);
}

TEST_F(Comparing, FlagsAndTheNumberOfEntriesCount) {
  profile("A").dynamic = true;
  EXPECT_EQ(compare(), -2);
  profile("B").dynamic = true;
  EXPECT_EQ(compare(), 0);
  profile("B").protect = true;
  EXPECT_EQ(compare(), -2);
  profile("A").protect = true;
  EXPECT_EQ(compare(), 0);
  enter("A", {someProtocol()});
  EXPECT_EQ(compare(), -2);
  EXPECT_EQ(entity.l2cpProfileCompareContent("B", "A"), -2);
}

struct DifferenceRow {
  const char* field;
  std::function<void(L2CP::Protocol&)> change;
  int result;
};

void PrintTo(const DifferenceRow& row, std::ostream* out) { *out << row.field; }

class ComparingProtocols : public Comparing, public testing::WithParamInterface<DifferenceRow> {};

INSTANTIATE_TEST_SUITE_P(
    Fields, ComparingProtocols,
    testing::Values(DifferenceRow{"nothing", [](auto&) {}, 0},
                    DifferenceRow{"subType", [](auto& proto) { proto.subType = 8; }, -2},
                    DifferenceRow{"firstMacByte", [](auto& proto) { proto.mac[0] ^= 1; }, -2},
                    DifferenceRow{"lastMacByte", [](auto& proto) { proto.mac[5] ^= 1; }, -2},
                    DifferenceRow{"firstMaskByte", [](auto& proto) { proto.macMask[0] ^= 1; }, -2},
                    DifferenceRow{"lastMaskByte", [](auto& proto) { proto.macMask[5] ^= 1; }, -2},
                    DifferenceRow{"etherType", [](auto& proto) { proto.etherType ^= 0x100; }, -2},
                    DifferenceRow{"name", [](auto& proto) { proto.name = "x"; }, -2},
                    DifferenceRow{"protect", [](auto& proto) { proto.protect = true; }, -2},
                    DifferenceRow{"useCount", [](auto& proto) { proto.useCount = 1; }, -2}),
    [](const auto& row) { return std::string(row.param.field); });

TEST_P(ComparingProtocols, DifferInEveryField) {
  L2CP::Protocol changed = someProtocol();
  GetParam().change(changed);
  enter("A", {someProtocol()});
  enter("B", {changed});
  EXPECT_EQ(compare(), GetParam().result);
  EXPECT_EQ(entity.l2cpProfileCompareContent("B", "A"), GetParam().result);
}

TEST_P(ComparingProtocols, DifferInTheLastOfManyEntries) {
  L2CP::Protocol changed = someProtocol();
  GetParam().change(changed);
  const L2CP::Protocol same("first", true, otherMac, someMask, 1, 2);
  enter("A", {same, same, someProtocol()});
  enter("B", {same, same, changed});
  EXPECT_EQ(compare(), GetParam().result);
}

TEST_F(Comparing, SameProtocolsInAnotherOrderDiffer) {
  const L2CP::Protocol other("other", false, otherMac, someMask, 1, 2);
  enter("A", {someProtocol(), other});
  enter("B", {other, someProtocol()});
  EXPECT_EQ(compare(), -2);
}

TEST_F(Comparing, ProtocolThatWasMadeAgainIsTheSameIfItIsUsedAsOften) {
  ASSERT_EQ(entity.protoAdd("X", false, someMac, someMask, 1, 2), 0);
  ASSERT_EQ(entity.profileProtoAdd("A", "X", Rule::peer), 0);
  ASSERT_EQ(entity.l2cpProfileCopy("A", "C"), 0);
  ASSERT_EQ(entity.profileProtoDel("A", "X"), 0);
  ASSERT_EQ(entity.protoDel("X"), 0);
  ASSERT_EQ(entity.protoAdd("X", false, someMac, someMask, 1, 2), 0);
  ASSERT_EQ(entity.profileProtoAdd("A", "X", Rule::peer), 0);
  EXPECT_EQ(entity.l2cpProfileCompareContent("A", "C"), -2);
  protocol("X").useCount = 0;
  EXPECT_EQ(entity.l2cpProfileCompareContent("A", "C"), 0);
}

TEST_F(Comparing, NameThatIsNotThereBecomesAnEmptyProfile) {
  EXPECT_EQ(entity.l2cpProfileCompareContent("A", "second"), 0);
  EXPECT_EQ(shownProfile("second"), "\"second\" protect=no dynamic=no uses=0");
  EXPECT_EQ(entity.l2cpProfileCompareContent("first", "A"), 0);
  EXPECT_EQ(shownProfile("first"), "\"first\" protect=no dynamic=no uses=0");
  EXPECT_EQ(entity.l2cpProfileCompareContent("both", "both"), 0);
  EXPECT_EQ(shownProfile("both"), "\"both\" protect=no dynamic=no uses=0");
  EXPECT_EQ(entity.l2cpProfileCompareContent("third", "fourth"), 0);
  EXPECT_EQ(entity.settings.profiles.size(), 7U);
}

TEST_F(Comparing, NameThatIsNotThereBecomesAProfileAlsoIfTheContentsDiffer) {
  profile("A").protect = true;
  EXPECT_EQ(entity.l2cpProfileCompareContent("A", "none"), -2);
  EXPECT_EQ(shownProfile("none"), "\"none\" protect=no dynamic=no uses=0");
}

TEST_F(Comparing, ProfileThatComesIntoBeingIsNamedAsItsKey) {
  const std::string key("with\0inside", 11);
  EXPECT_EQ(entity.l2cpProfileCompareContent(key, ""), 0);
  EXPECT_EQ(profile(key).name, key);
  EXPECT_EQ(profile("").name, "");
}

TEST_F(Comparing, IsQuiet) {
  expectQuiet([&] { compare(); });
  expectQuiet([&] { entity.l2cpProfileCompareContent("first", "second"); });
}

// ---- Replacing ----

class Replacing : public Editing {
 protected:
  /// P in use, and T to take its place.
  void SetUp() override {
    Editing::SetUp();
    putIntoService();
    addProfile("T", {"CDP", "LLDP"}, Rule::discard);
    forget();
  }

  int replace() { return entity.l2cpProfileReplace("P", "T"); }
};

const Lines replacement = {
    "getAllServiceProfilesWithL2cpProfile(\"P\")",
    "getAllServiceProfilesPerIntf([bronze gold silver])",
    "servProfileDetach(\"gold\", 3)",
    "servProfileDetach(\"silver\", 5)",
    "servProfileDetach(\"gold\", 5)",
    "servProfileL2cpProfile(\"bronze\", \"\")",
    "servProfileL2cpProfile(\"gold\", \"\")",
    "servProfileL2cpProfile(\"silver\", \"\")",
    "servProfileCheckSubAttached(\"P\", 5)",
    "servProfileCheckSubAttached(\"T\", 5)",
    "servProfileL2cpProfile(\"bronze\", \"P\")",
    "servProfileL2cpProfile(\"gold\", \"P\")",
    "servProfileL2cpProfile(\"silver\", \"P\")",
    "servProfileAttach(\"gold\", 3)",
    "servProfileAttach(\"silver\", 5)",
    "servProfileAttach(\"gold\", 5)",
};

TEST_F(Replacing, PutsTheContentIntoServiceWhereTheTargetWas) {
  EXPECT_EQ(replace(), 0);
  EXPECT_THAT(
      shown(),
      ElementsAre("profile P: \"P\" protect=no dynamic=no uses=3 on 3 on 5 CDP=0 LLDP=0",
                  "profile Q: \"Q\" protect=no dynamic=no uses=1 on 3 LACP-LAMP=1",
                  "port 3 vlan 100: P @202", "port 3 vlan 300: Q @200", "port 5 vlan 100: P @203",
                  "port 5 vlan 200: P @201", "bronze: vlan \"\" l2cp \"P\"",
                  "gold: vlan \"v1\" l2cp \"P\" on 3 5", "silver: vlan \"v2\" l2cp \"P\" on 5",
                  "steel: vlan \"v3\" l2cp \"Q\" on 3"));
}

TEST_F(Replacing, TakesNoLock) {
  const support::LockHeldElsewhere lock;
  EXPECT_EQ(replace(), 0);
  EXPECT_EQ(summary(),
            "P:3[CDP LLDP] Q:1[LACP-LAMP] | 3/100=P 3/300=Q 5/100=P 5/200=P | bronze=P gold=P@3@5 "
            "silver=P@5 steel=Q@3");
}

TEST_F(Replacing, AsksTheServiceProfilesInThisOrder) {
  EXPECT_EQ(replace(), 0);
  EXPECT_EQ(calls.calls, replacement);
}

TEST_F(Replacing, DeletesTheCountersOfBothProfilesWhileNothingIsAttached) {
  EXPECT_EQ(replace(), 0);
  Lines requests = sent();
  std::erase_if(requests, [](const std::string& line) {
    return line.find("COUNTER <l2cpProfi") == std::string::npos;
  });
  EXPECT_THAT(Lines(requests.begin(), requests.begin() + 6),
              ElementsAre("DEL_COUNTER <l2cpProfiPpeer>", "DEL_COUNTER <l2cpProfiPtunnel>",
                          "DEL_COUNTER <l2cpProfiPdiscard>", "DEL_COUNTER <l2cpProfiTpeer>",
                          "DEL_COUNTER <l2cpProfiTtunnel>", "DEL_COUNTER <l2cpProfiTdiscard>"));
  EXPECT_EQ(requests.size(), 6U + 3U * 3U);
}

TEST_F(Replacing, LeavesTheUseCountsOfProtocolsAsTheyAre) {
  ASSERT_EQ(protocol("LLDP").useCount, 2U);
  EXPECT_EQ(replace(), 0);
  EXPECT_EQ(protocol("LLDP").useCount, 2U);
  EXPECT_EQ(protocol("CDP").useCount, 1U);
}

TEST_F(Replacing, TracesTheDeletionsAndWhatTheServiceProfilesAsk) {
  services.reset();
  connect();
  services.addVlan("v1", {{3, 100}});
  services.add("gold", "R", "v1");
  addProfile("R");
  services.apply("gold", 3);
  EXPECT_THAT(
      tracesOf(entity, [&] { EXPECT_EQ(entity.l2cpProfileReplace("R", "T"), 0); }),
      testing::IsSupersetOf({"profileUnApply(intf=3, serviceProfile=\"gold\")",
                             "portDetach(profileName=\"R\", port=3, vid=100)",
                             "profileDel(profileName=\"R\")", "profileDel(profileName=\"T\")",
                             "profileApplyCheck(intf=3, serviceProfile=\"gold\")",
                             "profileApply(intf=3, serviceProfile=\"gold\")",
                             "portAttach(profileName=\"R\", port=3, vid=100)"}));
}

TEST_F(Editing, ReplacingWithoutServiceProfilesTracesTheDeletionsAlone) {
  addProfile("P", {"LLDP"});
  addProfile("T", {"CDP"});
  services.table().servProfileLogLevel = 2;
  EXPECT_THAT(tracesOf(entity, [&] { EXPECT_EQ(entity.l2cpProfileReplace("P", "T"), 0); }),
              ElementsAre("profileDel(profileName=\"P\")", "profileDel(profileName=\"T\")"));
  EXPECT_EQ(summary(), "P:0[CDP] |  | ");
  EXPECT_THAT(calls.calls, ElementsAre("getAllServiceProfilesWithL2cpProfile(\"P\")",
                                       "getAllServiceProfilesPerIntf([])",
                                       "servProfileCheckSubAttached(\"P\", 5)",
                                       "servProfileCheckSubAttached(\"T\", 5)"));
  using Message = support::ServiceCalls::LogMessage;
  EXPECT_THAT(calls.logMessages,
              ElementsAre(Message{2, "profileDel", "BLL", 0, "l2cp-profile", "P", "", 0, 0},
                          Message{2, "profileDel", "BLL", 0, "l2cp-profile", "T", "", 0, 0}));
}

/// What is left if a call is refused. Calls behind it are not made.
struct StepRow {
  std::size_t position;
  const char* left;
};

void PrintTo(const StepRow& row, std::ostream* out) { *out << replacement[row.position]; }

class ReplacingRefused : public Replacing, public testing::WithParamInterface<StepRow> {};

INSTANTIATE_TEST_SUITE_P(
    Step, ReplacingRefused,
    testing::Values(
        StepRow{2,
                "P:3[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/100=P 3/300=Q 5/100=P 5/200=P | "
                "bronze=P gold=P@3@5 silver=P@5 steel=Q@3"},
        StepRow{3,
                "P:2[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q 5/100=P 5/200=P | "
                "bronze=P gold=P@5 silver=P@5 steel=Q@3"},
        StepRow{4,
                "P:1[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q 5/100=P | "
                "bronze=P gold=P@5 silver=P steel=Q@3"},
        StepRow{5,
                "P:0[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | "
                "bronze=P gold=P silver=P steel=Q@3"},
        StepRow{6,
                "P:0[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | "
                "bronze= gold=P silver=P steel=Q@3"},
        StepRow{7,
                "P:0[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | "
                "bronze= gold= silver=P steel=Q@3"},
        StepRow{8,
                "P:0[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | "
                "bronze= gold= silver= steel=Q@3"},
        StepRow{9,
                "P:0[CDP LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | "
                "bronze= gold= silver= steel=Q@3"},
        StepRow{10,
                "P:0[CDP LLDP] Q:1[LACP-LAMP] | 3/300=Q | "
                "bronze= gold= silver= steel=Q@3"},
        StepRow{11,
                "P:0[CDP LLDP] Q:1[LACP-LAMP] | 3/300=Q | "
                "bronze=P gold= silver= steel=Q@3"},
        StepRow{12,
                "P:0[CDP LLDP] Q:1[LACP-LAMP] | 3/300=Q | "
                "bronze=P gold=P silver= steel=Q@3"},
        StepRow{13,
                "P:0[CDP LLDP] Q:1[LACP-LAMP] | 3/300=Q | "
                "bronze=P gold=P silver=P steel=Q@3"},
        StepRow{14,
                "P:1[CDP LLDP] Q:1[LACP-LAMP] | 3/100=P 3/300=Q | "
                "bronze=P gold=P@3 silver=P steel=Q@3"},
        StepRow{15,
                "P:2[CDP LLDP] Q:1[LACP-LAMP] | 3/100=P 3/300=Q 5/200=P | "
                "bronze=P gold=P@3 silver=P@5 steel=Q@3"}),
    [](const auto& row) { return std::to_string(row.param.position); });

TEST_P(ReplacingRefused, EndsThereAndUndoesNothing) {
  const std::size_t position = GetParam().position;
  calls.refuseAt(position, position % 2 == 0 ? -16 : 1);
  EXPECT_EQ(replace(), -1);
  EXPECT_EQ(summary(), GetParam().left);
  const auto end = replacement.begin() + static_cast<std::ptrdiff_t>(position) + 1;
  EXPECT_EQ(calls.calls, Lines(replacement.begin(), end));
}

TEST_F(Replacing, ProtectedTargetIsRefusedWithItsServiceProfilesTakenOff) {
  ASSERT_EQ(entity.profileSetProtect("P", true), 0);
  EXPECT_EQ(replace(), -1);
  EXPECT_EQ(summary(),
            "P:0[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | "
            "bronze= gold= silver= steel=Q@3");
  EXPECT_TRUE(profile("P").protect);
}

TEST_F(Replacing, TargetThatIsAttachedDirectlyTooIsRefusedWithItsServiceProfilesTakenOff) {
  ASSERT_EQ(entity.portAttach("P", 7, 100), 0);
  EXPECT_EQ(replace(), -1);
  EXPECT_EQ(summary(),
            "P:1[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q 7/100=P | "
            "bronze= gold= silver= steel=Q@3");
}

TEST_F(Replacing, MissingTargetIsRefusedWithItsServiceProfilesTakenOff) {
  services.add("iron", "none");
  EXPECT_EQ(entity.l2cpProfileReplace("none", "T"), -1);
  EXPECT_THAT(services.lines(), Contains("iron: vlan \"\" l2cp \"\""));
  EXPECT_FALSE(exists("none"));
  EXPECT_TRUE(exists("T"));
}

TEST_F(Replacing, MissingTemporaryProfileCostsTheTarget) {
  EXPECT_EQ(entity.l2cpProfileReplace("P", "none"), -1);
  EXPECT_EQ(summary(), "Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | bronze= gold= silver= steel=Q@3");
}

TEST_F(Replacing, ProfileByItselfCostsTheProfile) {
  EXPECT_EQ(entity.l2cpProfileReplace("P", "P"), -1);
  EXPECT_FALSE(exists("P"));
}

TEST_F(Replacing, TemporaryProfileThatCannotBeDeletedStaysBesideItsCopy) {
  const std::string left =
      "P:0[CDP LLDP] Q:1[LACP-LAMP] T:{}[CDP LLDP] | 3/300=Q{} | bronze= gold= silver= steel=Q@3";
  ASSERT_EQ(entity.portAttach("T", 7, 100), 0);
  EXPECT_EQ(replace(), -1);
  EXPECT_EQ(summary(), fmt::format(fmt::runtime(left), 1, " 7/100=T"));
  ASSERT_EQ(entity.portDetach("T", 7, 100), 0);
  ASSERT_EQ(entity.profileSetProtect("T", true), 0);
  EXPECT_EQ(replace(), -1);
  EXPECT_EQ(summary(), fmt::format(fmt::runtime(left), 0, ""));
}

TEST_F(Replacing, TargetComesBackUnprotectedAndNotDynamic) {
  profile("P").dynamic = true;  // without protection, which would refuse
  profile("T").dynamic = true;
  EXPECT_EQ(replace(), 0);
  EXPECT_FALSE(profile("P").protect);
  EXPECT_FALSE(profile("P").dynamic);
}

TEST_F(Replacing, ServiceProfilesCalledDefaultAreTakenOffAndKeepTheirName) {
  // Such a one is not among those to be cleared, and hinders the deletion.
  services.addVlan("v4", {{9, 400}});
  services.add("DEFAULT", "P", "v4");
  services.apply("DEFAULT", 9);
  EXPECT_EQ(replace(), -1);
  EXPECT_EQ(summary(),
            "P:0[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/300=Q | "
            "DEFAULT=P bronze= gold= silver= steel=Q@3");
}

TEST_F(Replacing, RefusalOfTheModuleEndsIt) {
  // The S-VID goes while the service profile is applied.
  singleton<vlanprofile>::instance().vlanProfiles.at("v2").svids.clear();
  EXPECT_EQ(replace(), -1);
  EXPECT_EQ(calls.calls.back(), "servProfileDetach(\"silver\", 5)");
  EXPECT_TRUE(exists("T"));
}

// ---- Leaving ----

TEST_F(Replacing, LeavingAfterARuleChangeDiscardsTheCopyAndChangesNothing) {
  ASSERT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
  ASSERT_EQ(entity.profileProtoSet("C", "LLDP", Rule::tunnel), 0);
  forget();
  const std::string before = shownProfile("P");
  EXPECT_THAT(tracesOf(entity, [&] { EXPECT_EQ(entity.l2cpProfileOnExit("P", "C"), -2); }),
              ElementsAre("profileDel(profileName=\"C\")"));
  EXPECT_FALSE(exists("C"));
  EXPECT_EQ(shownProfile("P"), before);
  EXPECT_THAT(calls.calls, ElementsAre("servProfileCheckSubAttached(\"C\", 5)"));
}

TEST_F(Replacing, LeavingAfterAnEntryWasAddedReplacesTheTarget) {
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_1");
  ASSERT_EQ(entity.profileProtoAdd("temp_l2cp_prof_1", "CDP", Rule::tunnel), 0);
  forget();
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "temp_l2cp_prof_1"), 0);
  EXPECT_EQ(summary(),
            "P:3[CDP LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] | 3/100=P 3/300=Q 5/100=P 5/200=P | "
            "bronze=P gold=P@3@5 silver=P@5 steel=Q@3");
  EXPECT_EQ(shownProfile("P"), "\"P\" protect=no dynamic=no uses=3 on 3 on 5 CDP=2 LLDP=1");
  EXPECT_EQ(calls.calls.size(), replacement.size());
}

TEST_F(Replacing, LeavingAfterAnEntryWasDeletedReplacesTheTarget) {
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_1");
  ASSERT_EQ(entity.profileProtoDel("temp_l2cp_prof_1", "LLDP"), 0);
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "temp_l2cp_prof_1"), 0);
  EXPECT_EQ(shownProfile("P"), "\"P\" protect=no dynamic=no uses=3 on 3 on 5");
  EXPECT_FALSE(exists("temp_l2cp_prof_1"));
}

TEST_F(Replacing, LeavingAProtectedTargetIsRefusedEvenIfNothingChanged) {
  ASSERT_EQ(entity.profileSetProtect("P", true), 0);
  expectEdit(entity.l2cpProfileEdit("P"), 0, "temp_l2cp_prof_1");
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "temp_l2cp_prof_1"), -1);
  EXPECT_EQ(summary(),
            "P:0[LLDP] Q:1[LACP-LAMP] T:0[CDP LLDP] temp_l2cp_prof_1:0[LLDP] | 3/300=Q | "
            "bronze= gold= silver= steel=Q@3");
}

TEST_F(Replacing, LeavingFailsPlainlyWhereverReplacingFails) {
  calls.refuseAt(2, -19);
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "T"), -1);
}

TEST_F(Replacing, LeavingPassesOverACopyThatCannotBeDiscarded) {
  ASSERT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
  ASSERT_EQ(entity.portAttach("C", 7, 100), 0);
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "C"), -2);
  EXPECT_EQ(profile("C").useCount, 1U);
  ASSERT_EQ(entity.portDetach("C", 7, 100), 0);
  services.add("iron", "C");
  EXPECT_EQ(entity.l2cpProfileOnExit("P", "C"), -2);
  EXPECT_TRUE(exists("C"));
}

struct UnknownRow {
  const char* why;
  const char* target;
  const char* temporary;
  int result;
  const char* left;
};

TEST_F(Editing, LeavingWithUnknownNamesFollowsFromTheirEmptyProfiles) {
  const UnknownRow rows[] = {
      {"unknown copy of an empty target", "E", "none", -2, "E:0[] F:0[LLDP] |  | "},
      {"unknown copy empties the target", "F", "none", 0, "E:0[] F:0[] |  | "},
      {"unknown target takes the content", "none", "F", 0, "E:0[] none:0[LLDP] |  | "},
      {"unknown target of an empty copy comes into being", "none", "E", -2,
       "F:0[LLDP] none:0[] |  | "},
      {"both unknown: the target comes into being", "none", "nobody", -2,
       "E:0[] F:0[LLDP] none:0[] |  | "},
      {"both the same and unknown: none is left", "none", "none", -2, "E:0[] F:0[LLDP] |  | "},
      {"both the same: it is discarded", "F", "F", -2, "E:0[] |  | "},
  };
  for (const UnknownRow& row : rows) {
    entity.settings = L2CP::Settings();
    addProfile("E");
    addProfile("F", {"LLDP"});
    EXPECT_EQ(entity.l2cpProfileOnExit(row.target, row.temporary), row.result) << row.why;
    EXPECT_EQ(summary(), row.left) << row.why;
  }
}

// ---- Deleting dynamic profiles ----

class DynamicProfiles : public Editing {
 protected:
  void addDynamic(const char* name) { ASSERT_EQ(entity.profileAdd(name, true, true), 0); }

  /// What deleting them all writes to the daemon's log.
  std::string logged() {
    testing::internal::CaptureStderr();
    EXPECT_EQ(entity.l2cpDynamicProfilesDeleteAll(), 0);
    return testing::internal::GetCapturedStderr();
  }
};

TEST_F(DynamicProfiles, AreDeletedInNameOrderAndOthersStay) {
  addDynamic("c");
  addDynamic("a");
  addProfile("b");
  ASSERT_EQ(entity.profileAdd("p", true, false), 0);
  ASSERT_EQ(entity.profileAdd("d", false, true), 0);
  std::string written;
  EXPECT_THAT(
      tracesOf(entity, [&] { written = logged(); }),
      ElementsAre(
          "profileSetProtect(profileName=\"a\", protect=no)", "profileDel(profileName=\"a\")",
          "profileSetProtect(profileName=\"c\", protect=no)", "profileDel(profileName=\"c\")",
          "profileSetProtect(profileName=\"d\", protect=no)", "profileDel(profileName=\"d\")"));
  EXPECT_EQ(written, "");
  EXPECT_EQ(summary(), "b:0[] p:0[] |  | ");
  EXPECT_TRUE(profile("p").protect);
}

TEST_F(DynamicProfiles, OneInUseIsLoggedAndStaysUnprotectedAndNotDynamic) {
  addDynamic("a");
  addDynamic("b");
  addDynamic("c");
  profile("b").useCount = 1;
  EXPECT_EQ(logged(),
            "l2cpd: warning: module: ISA: can not delete L2CP profile b error code: -16\n");
  EXPECT_EQ(summary(), "b:1[] |  | ");
  EXPECT_EQ(shownProfile("b"), "\"b\" protect=no dynamic=no uses=1");
  // It is no dynamic one any more.
  EXPECT_EQ(logged(), "");
}

TEST_F(DynamicProfiles, OneNamedByAServiceProfileIsLoggedToo) {
  addDynamic("b");
  services.add("gold", "b");
  EXPECT_EQ(logged(),
            "l2cpd: warning: module: ISA: can not delete L2CP profile b error code: -16\n");
  EXPECT_EQ(shownProfile("b"), "\"b\" protect=no dynamic=no uses=0");
}

TEST_F(DynamicProfiles, OneThatWasNotProtectedStaysDynamicIfItIsInUse) {
  // Protection that is off already cannot be switched off, which is what would end being dynamic.
  ASSERT_EQ(entity.profileAdd("b", false, true), 0);
  profile("b").useCount = 1;
  EXPECT_THAT(logged(), testing::HasSubstr("L2CP profile b error code: -16\n"));
  EXPECT_EQ(shownProfile("b"), "\"b\" protect=no dynamic=yes uses=1");
}

TEST_F(DynamicProfiles, NoneAreDeletedQuietly) {
  expectQuiet([&] { EXPECT_EQ(logged(), ""); });
  addProfile("b");
  expectQuiet([&] { EXPECT_EQ(logged(), ""); });
  EXPECT_EQ(summary(), "b:0[] |  | ");
}

// ---- Pointers ----

TEST_F(Editing, NoPointerDanglesInAnyOrderOfOperations) {
  const std::array<std::function<void()>, 6> operations = {
      [&] { entity.l2cpProfileCopy("P", "C"); }, [&] { entity.protoRen("LLDP", "CDP"); },
      [&] { entity.profileDel("C"); },           [&] { entity.l2cpProfileReplace("P", "C"); },
      [&] { entity.profileRen("P", "R"); },      [&] { entity.protoDel("UDLD"); },
  };
  std::array<std::size_t, 6> order = {0, 1, 2, 3, 4, 5};
  do {
    services.reset();
    connect();
    entity.settings = L2CP::Settings();
    classifier.entries.clear();
    addProfile("P", {"LLDP", "UDLD"});
    services.addVlan("v", {{3, 100}});
    services.add("gold", "P", "v");
    services.apply("gold", 3);
    ASSERT_EQ(entity.portAttach("P", 7, 200), 0);
    for (const std::size_t operation : order) {
      operations[operation]();
      // Reads every object that there is.
      EXPECT_FALSE(text(entity.settings).empty());
      std::list<L2CP::Profile> profiles;
      entity.profileGetAllForPort(7, profiles);
      for (const L2CP::Profile& profile : profiles) EXPECT_FALSE(text(profile).empty());
    }
    ASSERT_EQ(entity.applySettings("", L2CP::Settings()), 0);
    ASSERT_THAT(entity.settings.ports, IsEmpty());
    forget();
  } while (std::next_permutation(order.begin(), order.end()));
}

}  // namespace
