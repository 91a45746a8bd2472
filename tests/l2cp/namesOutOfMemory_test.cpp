// What the table of names does when memory is out. This program has a `malloc` of its own for that,
// which a sanitizer that brings one as well rules out.

#include <cstdlib>

#include "tests/l2cp/entity_fixture.h"

#ifdef L2CP_SANITIZED
constexpr bool ownMalloc = false;
namespace {
constexpr std::size_t refusedSize = 0;
void refuseAllocation(int /*number*/) {}
void allowAllocations() {}
}  // namespace
#else
constexpr bool ownMalloc = true;

namespace {

// The allocations that the thread is still granted before one is refused; negative: all are.
thread_local int granted = -1;
// What the refused one asked for.
thread_local std::size_t refusedSize = 0;

void refuseAllocation(int number) { granted = number; }
void allowAllocations() { granted = -1; }

}  // namespace

// The C library's own allocator, under the name that it keeps for programs like this one.
extern "C" void* libcMalloc(std::size_t size) asm("__libc_malloc");

extern "C" void* malloc(std::size_t size) noexcept {
  if (granted >= 0 && granted-- == 0) {
    refusedSize = size;
    return nullptr;
  }
  return libcMalloc(size);
}
#endif

namespace {

class NamesOutOfMemory : public EntityTest {
 protected:
  void SetUp() override {
    if (!ownMalloc) GTEST_SKIP() << "the sanitizer has an allocator of its own";
  }
  void TearDown() override { allowAllocations(); }
};

TEST_F(NamesOutOfMemory, ANewNameIsRefusedAndNothingIsWritten) {
  char shortName[40] = "untouched";
  int useCount = 77;
  refuseAllocation(0);
  const char* result = entity.GetName("some name", shortName, &useCount);
  allowAllocations();
  EXPECT_EQ(result, nullptr);
  EXPECT_STREQ(shortName, "untouched");
  EXPECT_EQ(useCount, 77);
  EXPECT_THAT(nameLines(entity), testing::IsEmpty());
}

TEST_F(NamesOutOfMemory, ABlockIsEightBytesLongerThanItsName) {
  for (const std::size_t length : {0U, 1U, 100U}) {
    const std::string name(length, 'n');
    refuseAllocation(0);
    const char* result = entity.GetName(name.c_str(), nullptr, nullptr);
    allowAllocations();
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(refusedSize, length + 8);
  }
}

TEST_F(NamesOutOfMemory, AKnownNameNeedsNone) {
  entity.GetName("some name", nullptr, nullptr);
  char shortName[40];
  int useCount = 0;
  refuseAllocation(0);
  const char* result = entity.GetName("some name", shortName, &useCount);
  allowAllocations();
  EXPECT_EQ(result, shortName);
  EXPECT_EQ(useCount, 2);
}

// An entry takes several allocations. Whichever is refused, the table is as it was, also when it is
// about to grow, and the name can be had afterwards.
TEST_F(NamesOutOfMemory, EveryAllocationOfANewNameMayBeRefused) {
  Lines expected;
  for (int number = 0; number < 40; ++number) {
    const std::string name = fmt::format("name {:02}", number);
    int refused = 0;
    for (bool done = false; !done; ++refused) {
      char shortName[40] = "untouched";
      int useCount = 77;
      refuseAllocation(refused);
      const char* result = entity.GetName(name.c_str(), shortName, &useCount);
      allowAllocations();
      done = result != nullptr;
      EXPECT_EQ(useCount, done ? 1 : 77);
      if (!done) {
        EXPECT_STREQ(shortName, "untouched");
        ASSERT_EQ(nameLines(entity), expected);
      }
    }
    EXPECT_GT(refused, 1) << "no allocation was refused";
    expected.push_back("  1   7 l2cp:* " + name);
    ASSERT_EQ(nameLines(entity), expected);
  }
}

TEST_F(NamesOutOfMemory, BuildersPassTheRefusalOn) {
  char shortName[40] = "untouched";
  const L2CP::Protocol proto("some", true, someMac, someMask, 0, 0);
  refuseAllocation(0);
  const char* acl = entity.aclName(shortName, proto.name, 3, 100);
  refuseAllocation(0);
  const char* selector = entity.nameSelector(shortName, 100, proto);
  refuseAllocation(0);
  const char* actionList = entity.nameActionList(shortName, 3, 100, proto);
  allowAllocations();
  EXPECT_EQ(acl, nullptr);
  EXPECT_EQ(selector, nullptr);
  EXPECT_EQ(actionList, nullptr);
  EXPECT_STREQ(shortName, "untouched");
}

TEST_F(NamesOutOfMemory, ACounterWithoutAShortNameIsRequestedWithoutARecord) {
  ASSERT_TRUE(entity.start());
  classifier.take();
  refuseAllocation(0);
  const bool deleted = entity.kernelCounterDel(L2CP::m_counter_port_mask, 3, L2CP::m_rule_peer);
  allowAllocations();
  EXPECT_FALSE(deleted);
  EXPECT_THAT(sent(), testing::ElementsAre("DEL_COUNTER null"));
  entity.stop();
}

}  // namespace
