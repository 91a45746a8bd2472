/// The service profiles' side of the entity.

#include "tests/l2cp/kernel_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Service : public KernelTest {};

struct Check {
  int intf;
  const char* serviceProfile;
  const char* trace;
};

constexpr Check checks[] = {
    {3, "gold", "profileApplyCheck(intf=3, serviceProfile=\"gold\")"},
    {0, "", "profileApplyCheck(intf=0, serviceProfile=\"\")"},
    {-1, "no such profile", "profileApplyCheck(intf=-1, serviceProfile=\"no such profile\")"},
    {2147483647, "100%s", "profileApplyCheck(intf=2147483647, serviceProfile=\"100%s\")"},
};

TEST_F(Service, ProfileApplyCheckTracesItsArgumentsAndVetoesNothing) {
  for (const Check& check : checks) {
    SCOPED_TRACE(check.trace);
    EXPECT_THAT(
        traced([&] { EXPECT_EQ(entity.profileApplyCheck(check.intf, check.serviceProfile), 0); }),
        ElementsAre(check.trace));
    EXPECT_THAT(support::SyslogCapture::instance().traceFormats(),
                ElementsAre("%s:%d %s(intf=%d, serviceProfile=\"%s\")"));
  }
}

TEST_F(Service, ProfileApplyCheckChangesNothing) {
  const std::vector<std::string> names = NameTable(entity).listing();
  EXPECT_EQ(entity.profileApplyCheck(3, "gold"), 0);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(NameTable(entity).listing(), names);
  EXPECT_THAT(entity.settings.profiles, IsEmpty());
  EXPECT_THAT(entity.settings.ports, IsEmpty());
}

TEST_F(Service, ProfileApplyCheckNeedsNoStartedEntityAndNoTrace) {
  L2CP idle;
  EXPECT_EQ(idle.profileApplyCheck(3, "gold"), 0);
  EXPECT_THAT(support::SyslogCapture::instance().lines, IsEmpty());
}

}  // namespace
