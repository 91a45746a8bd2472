#include <chrono>
#include <climits>
#include <cstring>
#include <future>
#include <thread>

#include "tests/l2cp/entity_fixture.h"

namespace {

using Rule = L2CP::Rule;

class Names : public EntityTest {
 protected:
  std::string shortName(const char* name) {
    char buffer[40];
    return entity.GetName(name, buffer, nullptr);
  }
  int uses(const std::string& name) { return NameTable(entity).uses(name); }
};

// ---- GetName ----

TEST_F(Names, TheSameFullNameHasTheSameShortNameAndTwoUses) {
  char first[40];
  char second[40];
  int useCount = 0;
  EXPECT_EQ(entity.GetName("some name", first, &useCount), first);
  EXPECT_EQ(useCount, 1);
  EXPECT_EQ(entity.GetName("some name", second, &useCount), second);
  EXPECT_EQ(useCount, 2);
  EXPECT_STREQ(first, second);
  EXPECT_THAT(nameLines(entity), testing::ElementsAre("  2   9 l2cp:* some name"));
}

TEST_F(Names, ShortNameIsTheAddressOfTheEntry) {
  const std::string name = shortName("some name");
  void* address = nullptr;
  ASSERT_EQ(std::sscanf(name.c_str(), "l2cp:%p", &address), 1);
  char printed[40];
  std::snprintf(printed, sizeof(printed), "l2cp:%p", address);
  EXPECT_EQ(name, printed);
  // The entry is its use count and, right behind it, the full name.
  std::int32_t useCount = 0;
  std::memcpy(&useCount, address, sizeof(useCount));
  EXPECT_EQ(useCount, 1);
  EXPECT_STREQ(static_cast<const char*>(address) + sizeof(useCount), "some name");
}

TEST_F(Names, WithoutBuffersANameIsRegisteredAndCounted) {
  EXPECT_EQ(entity.GetName("some name", nullptr, nullptr), nullptr);
  EXPECT_EQ(uses("some name"), 1);
  int useCount = 0;
  EXPECT_EQ(entity.GetName("some name", nullptr, &useCount), nullptr);
  EXPECT_EQ(useCount, 2);
}

TEST_F(Names, DifferInCaseAndLength) {
  const std::string lower = shortName("name");
  EXPECT_NE(shortName("Name"), lower);
  EXPECT_NE(shortName("nam"), lower);
  EXPECT_NE(shortName("name "), lower);
  EXPECT_NE(shortName(""), lower);
  EXPECT_THAT(nameLines(entity), testing::ElementsAre("  1   4 l2cp:* name", "  1   4 l2cp:* Name",
                                                      "  1   3 l2cp:* nam", "  1   5 l2cp:* name ",
                                                      "  1   0 l2cp:* "));
}

TEST_F(Names, StandInTheOrderOfTheirFirstUse) {
  for (const char* name : {"b", "c", "a", "c", "b"}) shortName(name);
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  2   1 l2cp:* b", "  2   1 l2cp:* c", "  1   1 l2cp:* a"));
}

TEST_F(Names, AFullNameCanBeShortenedInPlace) {
  char buffer[40] = "some name";
  EXPECT_EQ(entity.GetName(buffer, buffer, nullptr), buffer);
  EXPECT_EQ(shortName("some name"), buffer);
  EXPECT_EQ(uses("some name"), 2);
}

TEST_F(Names, AreNotCutByTheTable) {
  const std::string name(1000, 'n');
  shortName(name.c_str());
  EXPECT_THAT(nameLines(entity), testing::ElementsAre("  1 1000 l2cp:* " + name));
}

TEST_F(Names, ShortNamesStayGoodWhileTheTableGrows) {
  const std::string first = shortName("first");
  for (int number = 0; number < 5000; ++number) shortName(std::to_string(number).c_str());
  EXPECT_EQ(shortName("first"), first);
  EXPECT_EQ(support::fullName(first), "first");
  EXPECT_EQ(nameLines(entity).size(), 5001U);
}

TEST_F(Names, UseCountWrapsToTheLowestNumber) {
  shortName("some name");
  ASSERT_EQ(entity.PutName("some name", -(INT_MAX - 1)), INT_MAX);
  int useCount = 0;
  entity.GetName("some name", nullptr, &useCount);
  EXPECT_EQ(useCount, INT_MIN);
  EXPECT_EQ(uses("some name"), INT_MIN);
}

TEST_F(Names, AreCountedFromManyThreadsAtOnce) {
  constexpr int rounds = 500;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, thread] {
      for (int round = 0; round < rounds; ++round) {
        char buffer[40];
        entity.GetName("common", buffer, nullptr);
        entity.GetName(std::to_string(thread * rounds + round).c_str(), buffer, nullptr);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(uses("common"), 4 * rounds);
  EXPECT_EQ(nameLines(entity).size(), 1U + 4 * rounds);
}

// ---- PutName ----

TEST_F(Names, TakingSomeUsesOffLeavesTheName) {
  for (int use = 0; use < 5; ++use) shortName("some name");
  const std::string before = shortName("some name");
  EXPECT_EQ(entity.PutName("some name", 4), 2);
  EXPECT_EQ(uses("some name"), 2);
  EXPECT_EQ(shortName("some name"), before);
}

TEST_F(Names, TakingAllUsesOffRemovesTheNameAndReturnsZero) {
  shortName("first");
  shortName("some name");
  shortName("some name");
  shortName("last");
  EXPECT_EQ(entity.PutName("some name", 2), 0);
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  1   5 l2cp:* first", "  1   4 l2cp:* last"));
  EXPECT_EQ(entity.PutName("some name", 1), -1);
}

TEST_F(Names, TakingMoreUsesOffThanThereAreRemovesTheNameAndReturnsTheDeficit) {
  shortName("some name");
  EXPECT_EQ(entity.PutName("some name", 4), -3);
  EXPECT_THAT(nameLines(entity), testing::IsEmpty());
}

TEST_F(Names, TakingUsesOffAnUnknownNameReturnsMinusOneAndChangesNothing) {
  shortName("some name");
  EXPECT_EQ(entity.PutName("some nam", 1), -1);
  EXPECT_EQ(entity.PutName("", 0), -1);
  EXPECT_THAT(nameLines(entity), testing::ElementsAre("  1   9 l2cp:* some name"));
}

TEST_F(Names, ARemovedNameComesBackAtTheEndWithOneUse) {
  shortName("a");
  shortName("a");
  shortName("b");
  entity.PutName("a", 2);
  shortName("a");
  EXPECT_THAT(nameLines(entity), testing::ElementsAre("  1   1 l2cp:* b", "  1   1 l2cp:* a"));
}

// ---- Builders of full names ----

TEST_F(Names, OfAnAclIsProtocolPortAndVlan) {
  char buffer[40];
  EXPECT_EQ(entity.aclName(buffer, "LLDP", 3, 4095), buffer);
  EXPECT_EQ(support::fullName(buffer), "l2cpLLDP:03fff");
  entity.aclName(buffer, "LLDP", 123, 10);
  EXPECT_EQ(support::fullName(buffer), "l2cpLLDP:12300a");
  entity.aclName(buffer, "", 0, 0);
  EXPECT_EQ(support::fullName(buffer), "l2cp:00000");
  entity.aclName(buffer, "LLDP", 0xffffffff, 0xffff);
  EXPECT_EQ(support::fullName(buffer), "l2cpLLDP:-1ffff");
}

TEST_F(Names, OfASelectorIsProtocolVlanAndWhatItMatches) {
  const L2CP::Protocol proto("some", true, someMac, someMask, 0x88f, 0x0a);
  char buffer[40];
  EXPECT_EQ(entity.nameSelector(buffer, 100, proto), buffer);
  EXPECT_EQ(support::fullName(buffer), "some/100/01:80:c2:00:ab:cd/088f/0a");
  entity.nameSelector(buffer, 4095, L2CP::Protocol());
  EXPECT_EQ(support::fullName(buffer), "/4095/00:00:00:00:00:00/0000/00");
}

TEST_F(Names, OfAnActionListHasThePortAsWell) {
  const L2CP::Protocol proto("some", true, someMac, someMask, 0xffff, 0xff);
  char buffer[40];
  EXPECT_EQ(entity.nameActionList(buffer, 3, 100, proto), buffer);
  EXPECT_EQ(support::fullName(buffer), "some/3/100/01:80:c2:00:ab:cd/ffff/ff");
  entity.nameActionList(buffer, 0x80000000, 0, proto);
  EXPECT_EQ(support::fullName(buffer), "some/-2147483648/0/01:80:c2:00:ab:cd/ffff/ff");
}

TEST_F(Names, LongerThan199CharactersAreCutAndRegisteredAllTheSame) {
  const std::string longest(250, 'n');
  const L2CP::Protocol proto(longest.c_str(), false, someMac, someMask, 0, 0);
  char buffer[40];
  entity.aclName(buffer, longest, 3, 100);
  EXPECT_EQ(support::fullName(buffer), "l2cp" + longest.substr(0, 195));
  entity.nameSelector(buffer, 100, proto);
  EXPECT_EQ(support::fullName(buffer), longest.substr(0, 199));
  entity.nameActionList(buffer, 3, 100, proto);
  // Cut where they begin to differ, the last two are one name.
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  1 199 l2cp:* l2cp" + longest.substr(0, 195),
                                   "  2 199 l2cp:* " + longest.substr(0, 199)));
}

TEST_F(Names, OfExactly199CharactersAreNotCut) {
  const std::string proto(199 - std::strlen("l2cp:03fff"), 'n');
  char buffer[40];
  entity.aclName(buffer, proto, 3, 4095);
  EXPECT_EQ(support::fullName(buffer), "l2cp" + proto + ":03fff");
  entity.aclName(buffer, proto + 'n', 3, 4095);
  EXPECT_EQ(support::fullName(buffer), "l2cp" + proto + "n:03ff");
}

TEST_F(Names, BuildersCountWithoutABuffer) {
  EXPECT_EQ(entity.aclName(nullptr, "LLDP", 3, 4095), nullptr);
  EXPECT_EQ(entity.nameSelector(nullptr, 1, L2CP::Protocol()), nullptr);
  EXPECT_EQ(entity.nameActionList(nullptr, 3, 1, L2CP::Protocol()), nullptr);
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  1  14 l2cp:* l2cpLLDP:03fff",
                                   "  1  28 l2cp:* /1/00:00:00:00:00:00/0000/00",
                                   "  1  30 l2cp:* /3/1/00:00:00:00:00:00/0000/00"));
}

TEST_F(Names, OfSelectorsAndActionListsLeaveTheMacInTheSharedBuffer) {
  const L2CP::Protocol proto("some", true, someMac, someMask, 0x88f, 0x0a);
  const char* shared = L2CP::mac2str(otherMac);
  entity.nameSelector(nullptr, 100, proto);
  EXPECT_STREQ(shared, "01:80:c2:00:ab:cd");
  L2CP::mac2str(otherMac);
  entity.nameActionList(nullptr, 3, 100, proto);
  EXPECT_STREQ(shared, "01:80:c2:00:ab:cd");
  L2CP::mac2str(otherMac);
  entity.aclName(nullptr, "some", 3, 100);
  EXPECT_STREQ(shared, "01:00:5e:00:00:fb");
}

TEST_F(Names, TracesLeaveTheMacInTheSharedBuffer) {
  trace(true);
  const char* shared = L2CP::mac2str(otherMac);
  EXPECT_EQ(entity.protoAdd("some", false, someMac, someMask, 1, 2), 0);
  EXPECT_STREQ(shared, "01:80:c2:00:ab:cd");
  unsigned char mac[6] = {0x02, 0, 0, 0, 0, 0x07};
  EXPECT_EQ(entity.protoSetMac("none", mac), -2);
  EXPECT_STREQ(shared, "02:00:00:00:00:07");
}

// ---- The lock of the table ----

/// While the classifier answers a request, another thread uses the table of names.
class NamesDuringRequests : public EntityTest {
 protected:
  /// Every kind of operation that asks the classifier for something, with what it is called.
  using Operations = std::vector<std::pair<const char*, std::function<void(L2CP&)>>>;
  static const Operations& operations() {
    static const Operations all = {
        {"start", [](L2CP& one) { EXPECT_TRUE(one.start()); }},
        {"attach",
         [](L2CP& one) {
           EXPECT_EQ(one.profileAdd("P", false, false), 0);
           EXPECT_EQ(one.protoAdd("Q", false, someMac, someMask, 0x88cc, 7), 0);
           EXPECT_EQ(one.profileProtoAdd("P", "Q", Rule::tunnel), 0);
           EXPECT_EQ(one.portAttach("P", 3, 100), 0);
         }},
        {"counters of a port", [](L2CP& one) { readPort(one); }},
        {"counters of a protocol",
         [](L2CP& one) {
           L2CP::Statistics stats;
           EXPECT_EQ(one.protoStat("CDP", stats), -11);
         }},
        {"one protocol", [](L2CP& one) { one.kernelProtoAdd(4, 100, "Q", Rule::tunnel, 200); }},
        {"one protocol less",
         [](L2CP& one) { one.kernelProtoDel(4, 100, "Q", Rule::tunnel, 200); }},
        {"detach", [](L2CP& one) { EXPECT_EQ(one.portDetach("P", 3, 100), 0); }},
        {"deletion of a profile", [](L2CP& one) { EXPECT_EQ(one.profileDel("P"), 0); }},
        {"deletion of a protocol", [](L2CP& one) { EXPECT_EQ(one.protoDel("xSTP"), 0); }},
        {"stop", [](L2CP& one) { EXPECT_TRUE(one.stop()); }},
    };
    return all;
  }

  static void readPort(L2CP& one) {
    L2CP::Statistics stats;
    EXPECT_EQ(one.portStat(3, stats), 0);
  }

  void useNamesElsewhere() {
    if (isStuck) return;
    others.push_back(std::async(std::launch::async, [this] {
      entity.GetName("meanwhile", nullptr, nullptr);
      entity.externalMessage("l2cp_dump", "", nullptr);
    }));
    isStuck = others.back().wait_for(std::chrono::seconds(30)) != std::future_status::ready;
    EXPECT_FALSE(isStuck);
  }

  int uses(const std::string& name) { return NameTable(entity).uses(name); }

  int asked = 0;
  bool isStuck = false;
  std::vector<std::future<void>> others;
};

TEST_F(NamesDuringRequests, CanBeUsedByOtherThreads) {
  classifier.refusal = [this](const support::Request&) {
    ++asked;
    useNamesElsewhere();
    return 0;
  };
  for (const auto& [what, operate] : operations()) {
    SCOPED_TRACE(what);
    const int before = asked;
    operate(entity);
    EXPECT_GT(asked, before);
  }
  others.clear();
  log.reset();
  EXPECT_EQ(uses("meanwhile"), asked);
  EXPECT_EQ(entity.PutName("meanwhile", asked), 0);

  // But for that name, the table is that of an entity that nobody disturbed.
  classifier.reset();
  L2CP undisturbed;
  for (const auto& [what, operate] : operations()) operate(undisturbed);
  EXPECT_EQ(nameLines(entity), nameLines(undisturbed));
}

TEST_F(NamesDuringRequests, CanBeRemovedAndComeBack) {
  ASSERT_TRUE(entity.start());
  EXPECT_EQ(entity.profileAdd("P", false, false), 0);
  EXPECT_EQ(entity.profileProtoAdd("P", "LLDP", Rule::discard), 0);
  EXPECT_EQ(entity.profileProtoAdd("P", "xSTP", Rule::discard), 0);
  int removed = 0;
  classifier.refusal = [&](const support::Request& request) {
    const bool isAction = request.code == ACL_ADD_ACTION;
    if (isAction && entity.PutName("l2cpPort3discard", 1000) != -1) ++removed;
    return 0;
  };
  EXPECT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(removed, 2);
  EXPECT_EQ(uses("l2cpPort3discard"), 0);
  EXPECT_EQ(uses("l2cpVlan100discard"), 3);
  EXPECT_TRUE(entity.stop());
}

// ---- Text helpers ----

TEST(Texts, OfAMacAreSixLowerCaseBytes) {
  constexpr unsigned char mac[6] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x02};
  char buffer[18];
  EXPECT_EQ(L2CP::mac2str(mac, buffer), buffer);
  EXPECT_STREQ(buffer, "01:80:c2:00:00:02");
  constexpr unsigned char digits[6] = {0x0f, 0xf0, 0x9a, 0xa9, 0xde, 0x7b};
  EXPECT_STREQ(L2CP::mac2str(digits, buffer), "0f:f0:9a:a9:de:7b");
}

TEST(Texts, OfAMacWithoutABufferAreOverwrittenByTheNext) {
  const char* first = L2CP::mac2str(someMac);
  EXPECT_STREQ(first, "01:80:c2:00:ab:cd");
  EXPECT_EQ(L2CP::mac2str(otherMac, nullptr), first);
  EXPECT_STREQ(first, "01:00:5e:00:00:fb");
  char buffer[18];
  L2CP::mac2str(someMac, buffer);
  EXPECT_STREQ(first, "01:00:5e:00:00:fb");
}

TEST(Texts, OfRulesAreTheConstantsThemselves) {
  EXPECT_EQ(static_cast<const void*>(L2CP::rule2str(Rule::discard)), L2CP::m_rule_discard);
  EXPECT_EQ(static_cast<const void*>(L2CP::rule2str(Rule::peer)), L2CP::m_rule_peer);
  EXPECT_EQ(static_cast<const void*>(L2CP::rule2str(Rule::tunnel)), L2CP::m_rule_tunnel);
}

TEST(Texts, OfOtherRulesAreUnknown) {
  EXPECT_STREQ(L2CP::rule2str(static_cast<Rule>(7)), "unknown");
  EXPECT_STREQ(L2CP::rule2str(static_cast<Rule>(0xffffffff)), "unknown");
}

TEST(Texts, OfTruthValuesAreYesAndNo) {
  EXPECT_STREQ(L2CP::bool2yesno(true), "yes");
  EXPECT_STREQ(L2CP::bool2yesno(false), "no");
}

}  // namespace
