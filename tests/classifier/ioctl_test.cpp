/// The classifier as a module sees it: `br_open`, `ioctl` and `close`, nothing else.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>

#include "classifier/table.h"
#include "platform/acl_ioctl.h"
#include "platform/br_open.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

class Ioctl : public testing::Test {
 protected:
  void SetUp() override {
    fd = br_open(bridge.c_str(), "acl");
    ASSERT_GE(fd, 0);
  }
  void TearDown() override { close(fd); }

  /// A bridge of the test's own, as tables stay for the life of the process.
  const std::string bridge = testing::UnitTest::GetInstance()->current_test_info()->name();
  int fd = -1;
};

bool isOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

TEST_F(Ioctl, RequestsAreAnswered) {
  auto counter = Requests::counterRecord("c");
  EXPECT_EQ(ioctl(fd, ACL_ADD_COUNTER, &counter), 0);
  counter.value = 1;
  EXPECT_EQ(ioctl(fd, ACL_GET_COUNTER, &counter), 0);
  EXPECT_EQ(counter.value, 0U);
}

TEST_F(Ioctl, ErrorsComeInErrno) {
  auto counter = Requests::counterRecord("c");
  const auto errorOf = [&](unsigned long request, void* record) {
    errno = 0;
    EXPECT_EQ(ioctl(fd, request, record), -1);
    return errno;
  };
  EXPECT_EQ(errorOf(ACL_DEL_COUNTER, &counter), ENOENT);
  ASSERT_EQ(ioctl(fd, ACL_ADD_COUNTER, &counter), 0);
  EXPECT_EQ(errorOf(ACL_ADD_COUNTER, &counter), EEXIST);
  EXPECT_EQ(errorOf(ACL_ADD_COUNTER, nullptr), EFAULT);
  EXPECT_EQ(errorOf(_IOW('z', 99, __u32), &counter), ENOTTY);
  counter = Requests::counterRecord("");
  EXPECT_EQ(errorOf(ACL_ADD_COUNTER, &counter), EINVAL);
}

TEST_F(Ioctl, SuccessLeavesErrnoAlone) {
  errno = E2BIG;
  auto counter = Requests::counterRecord("c");
  EXPECT_EQ(ioctl(fd, ACL_ADD_COUNTER, &counter), 0);
  EXPECT_EQ(errno, E2BIG);
}

TEST_F(Ioctl, RequestCodesMayComeSignExtended) {
  auto counter = Requests::counterRecord("c");
  ASSERT_EQ(ioctl(fd, ACL_ADD_COUNTER, &counter), 0);
  const int code = static_cast<int>(ACL_GET_COUNTER);
  EXPECT_EQ(ioctl(fd, static_cast<unsigned long>(code), &counter), 0);
}

TEST_F(Ioctl, DescriptorsOfOneBridgeShareItsTable) {
  const int other = br_open(bridge.c_str(), "acl");
  ASSERT_GE(other, 0);
  EXPECT_NE(other, fd);
  auto counter = Requests::counterRecord("c");
  EXPECT_EQ(ioctl(fd, ACL_ADD_COUNTER, &counter), 0);
  EXPECT_EQ(ioctl(other, ACL_GET_COUNTER, &counter), 0);
  close(other);
}

TEST_F(Ioctl, BridgesHaveTablesOfTheirOwn) {
  const int other = br_open((bridge + " 2").c_str(), "acl");
  ASSERT_GE(other, 0);
  auto counter = Requests::counterRecord("c");
  EXPECT_EQ(ioctl(fd, ACL_ADD_COUNTER, &counter), 0);
  EXPECT_EQ(ioctl(other, ACL_GET_COUNTER, &counter), -1);
  EXPECT_EQ(errno, ENOENT);
  close(other);
}

TEST_F(Ioctl, ObjectsOutliveTheDescriptorTheyWereMadeThrough) {
  auto counter = Requests::counterRecord("c");
  ASSERT_EQ(ioctl(fd, ACL_ADD_COUNTER, &counter), 0);
  ASSERT_EQ(close(fd), 0);
  fd = br_open(bridge.c_str(), "acl");
  ASSERT_GE(fd, 0);
  EXPECT_EQ(ioctl(fd, ACL_GET_COUNTER, &counter), 0);
}

TEST_F(Ioctl, RequestsReachTheTableThatFramesAreClassifiedWith) {
  auto list = Requests::action("a");
  ASSERT_EQ(ioctl(fd, ACL_ADD_ACTION_LIST, &list), 0);
  list.type = ACL_ACTION_DROP;
  ASSERT_EQ(ioctl(fd, ACL_ADD_ACTION, &list), 0);
  auto entry = Requests::entry("1", 1, 200, "true", "a");
  ASSERT_EQ(ioctl(fd, ACL_ADD_PORT_ENTRY, &entry), 0);
  EXPECT_EQ(classifier::tableOf(bridge).classify(1, {}).fate, classifier::Fate::discard);
}

TEST_F(Ioctl, RequestsOnOtherDescriptorsGoToTheKernel) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  // A number that no other test of this process was handed out.
  const int other = fcntl(ends[0], F_DUPFD, 500);
  ASSERT_GE(other, 500);
  auto counter = Requests::counterRecord("c");
  EXPECT_EQ(ioctl(other, ACL_ADD_COUNTER, &counter), -1);
  EXPECT_EQ(errno, ENOTTY);
  close(other);
  EXPECT_EQ(ioctl(-1, ACL_ADD_COUNTER, &counter), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(ioctl(0x7fffffff, ACL_ADD_COUNTER, &counter), -1);
  EXPECT_EQ(errno, EBADF);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Ioctl, OtherCallsGoToTheKernel) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ASSERT_EQ(write(ends[1], "hello", 5), 5);
  int waiting = 0;
  EXPECT_EQ(ioctl(ends[0], FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 5);
  EXPECT_EQ(ioctl(ends[0], TCGETS, &waiting), -1);
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(ioctl(ends[0], FIOCLEX), 0);
  EXPECT_EQ(fcntl(ends[0], F_GETFD), FD_CLOEXEC);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Ioctl, OtherCallsOnAHandedOutDescriptorGoToTheKernel) {
  ASSERT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(ioctl(fd, FIONCLEX), 0);
  EXPECT_EQ(fcntl(fd, F_GETFD), 0);
}

TEST_F(Ioctl, ReusedDescriptorNumbersServeTheirNewOwner) {
  const int old = fd;
  ASSERT_EQ(close(fd), 0);
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ASSERT_EQ(ends[0], old);
  ASSERT_EQ(write(ends[1], "hello", 5), 5);
  int waiting = 0;
  EXPECT_EQ(ioctl(old, FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 5);
  close(ends[1]);
}

TEST_F(Ioctl, DescriptorsAreReal) {
  EXPECT_TRUE(isOpen(fd));
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(close(fd), 0);
  EXPECT_FALSE(isOpen(fd));
  EXPECT_EQ(close(fd), -1);
  EXPECT_EQ(errno, EBADF);
  fd = -1;
}

TEST_F(Ioctl, MayComeFromManyThreads) {
  const auto work = [&](const char* name) {
    for (int i = 0; i < 1000; ++i) {
      const int mine = br_open(bridge.c_str(), "acl");
      auto counter = Requests::counterRecord(name);
      EXPECT_EQ(ioctl(mine, ACL_ADD_COUNTER, &counter), 0);
      EXPECT_EQ(ioctl(mine, ACL_DEL_COUNTER, &counter), 0);
      EXPECT_EQ(close(mine), 0);
    }
  };
  std::thread first(work, "first");
  std::thread second(work, "second");
  first.join();
  second.join();
}

TEST(BrOpen, NeedsABridge) {
  EXPECT_EQ(br_open("", "acl"), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(br_open(nullptr, "acl"), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(BrOpen, KnowsOneTable) {
  EXPECT_EQ(br_open("br0", nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  for (const char* table : {"", "ACL", "acl2", "nat"}) {
    EXPECT_EQ(br_open("br0", table), -1);
    EXPECT_EQ(errno, ENOENT);
  }
}

TEST(BrOpen, FailedCallsTakeNoDescriptor) {
  const int before = dup(0);
  close(before);
  EXPECT_EQ(br_open("br0", "nat"), -1);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
}

}  // namespace
