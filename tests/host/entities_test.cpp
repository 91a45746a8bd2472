// The daemon's own entities as the module meets them.

#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <string>

#include "host/bridge.h"
#include "platform/Interfaces.h"
#include "platform/itbridge.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace {

std::list<std::string> dependencies(BLEntity& entity) {
  std::list<std::string> names{"left over"};
  EXPECT_EQ(entity.getDependencies(names), 0);
  return names;
}

TEST(HostEntities, StartAndStopAndHaveNothingToReset) {
  for (BLEntity* entity : std::initializer_list<BLEntity*>{&singleton<Interfaces>::instance(),
                                                           &singleton<vlanprofile>::instance(),
                                                           &singleton<servprofile>::instance()}) {
    entity->applyConfiguration({});
    EXPECT_TRUE(entity->start());
    EXPECT_TRUE(entity->applyDefaultSettings());
    entity->saveConfiguration({});
    EXPECT_TRUE(entity->stop());
  }
}

TEST(HostEntities, DependOnEachOtherWithoutACircle) {
  EXPECT_EQ(dependencies(singleton<Interfaces>::instance()), std::list<std::string>{});
  EXPECT_EQ(dependencies(singleton<vlanprofile>::instance()), std::list<std::string>{"Interfaces"});
  EXPECT_EQ(dependencies(singleton<servprofile>::instance()),
            (std::list<std::string>{"Interfaces", "vlanprofile"}));
}

TEST(ServiceProfiles, TellWhichL2cpProfilesTheyName) {
  servprofile services;
  EXPECT_EQ(services.servProfileCheckSubAttached("P", 5), 0);
  std::strcpy(services.servProfiles["gold"].l2cpProfile, "P");
  EXPECT_NE(services.servProfileCheckSubAttached("P", 5), 0);
  EXPECT_EQ(services.servProfileCheckSubAttached("Q", 5), 0);
  EXPECT_EQ(services.servProfileCheckSubAttached("p", 5), 0);
  EXPECT_EQ(services.servProfileCheckSubAttached("P", 4), 0);
}

TEST(ServiceProfiles, LogEventsUpToTheirLevel) {
  servprofile services;
  const auto logged = [&](int level) {
    testing::internal::CaptureStderr();
    services.servProfileLogMsg(level, "profileAdd", 12, "BLL", 0, "l2cp-profile", "P", "", 3, 4);
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(logged(2), "");
  const std::string line = "l2cpd: service: BLL profileAdd:12 unit 0: l2cp-profile \"P\"  (3, 4)\n";
  EXPECT_EQ(logged(1), line);
  services.servProfileLogLevel = 2;
  EXPECT_EQ(logged(2), line);
  services.servProfileLogLevel = 0;
  EXPECT_EQ(logged(1), "");
}

TEST(Bridge, HasItsDefaultNameUntilItIsNamed) {
  EXPECT_STREQ(singleton<itbridge>::instance().bridgeNameGet(), "br0");
  setBridgeName("swbridge");
  EXPECT_STREQ(singleton<itbridge>::instance().bridgeNameGet(), "swbridge");
  setBridgeName("br0");
}

}  // namespace
