// An entity that the daemon did not take when the library was loaded. This program's manager
// refuses to register anything, which is the only place where that can be arranged.

#include "platform/BLLManager.h"
#include "tests/l2cp/entity_fixture.h"

bool BLLManager::registerEntity(BLEntity& /*entity*/) { return false; }

namespace {

using RefusedEntity = EntityTest;

TEST_F(RefusedEntity, DoesNotStartAndTouchesNothing) {
  trace(true);
  EXPECT_FALSE(entity.start());
  EXPECT_EQ(classifier.opened, 0U);
  EXPECT_THAT(classifier.requests, testing::IsEmpty());
  EXPECT_THAT(log.lines, testing::IsEmpty());
  EXPECT_THAT(nameLines(entity), testing::IsEmpty());
  EXPECT_EQ(service.runs, 0U);
}

TEST_F(RefusedEntity, DoesNotListenToOperatorCommands) {
  ASSERT_FALSE(entity.start());
  singleton<BLLManager>::instance().externalMessage.fire(std::string("l2cp_dump"), std::string(),
                                                         static_cast<std::ostringstream*>(nullptr),
                                                         std::string());
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

TEST_F(RefusedEntity, CanBeStoppedAllTheSame) {
  ASSERT_FALSE(entity.start());
  EXPECT_TRUE(entity.stop());
}

}  // namespace
