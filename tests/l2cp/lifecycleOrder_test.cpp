// What start and stop do in which order, as far as it shows, and which locks nobody takes.

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <list>
#include <thread>

#include "l2cp/scripter/l2cpScripter.h"
#include "platform/BLLManager.h"
#include "tests/l2cp/entity_fixture.h"

namespace {

void fireDump() {
  singleton<BLLManager>::instance().externalMessage.fire(std::string("l2cp_dump"), std::string(),
                                                         static_cast<std::ostringstream*>(nullptr),
                                                         std::string());
}

class LifecycleOrder : public EntityTest {
 protected:
  void TearDown() override {
    classifier.refusal = nullptr;
    classifier.openError = 0;
    entity.stop();
  }
};

TEST_F(LifecycleOrder, StartListensToTheOperatorBeforeTheServiceRuns) {
  std::promise<std::size_t> heard;
  service.body = [&] {
    fireDump();
    heard.set_value(log.lines.size());
  };
  ASSERT_TRUE(entity.start());
  EXPECT_EQ(heard.get_future().get(), 5U);
}

TEST_F(LifecycleOrder, StartThatFailsAtTheServiceKeepsWhatItHasDone) {
  service.body = waitForInterruption;
  ASSERT_TRUE(entity.start());
  const int first = classifier.descriptor();
  ASSERT_FALSE(entity.start());
  log.reset();
  fireDump();
  // Subscribed twice, so answered twice.
  EXPECT_EQ(log.lines.size(), 10U);
  EXPECT_NE(fcntl(classifier.descriptor(), F_GETFD), -1);
  close(first);
}

TEST_F(LifecycleOrder, StopListensNoMoreWhenItDeletesTheActionLists) {
  ASSERT_TRUE(entity.start());
  log.reset();
  classifier.refusal = [](const support::Request&) {
    fireDump();
    return 0;
  };
  EXPECT_TRUE(entity.stop());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(LifecycleOrder, StartStoresADescriptorThatCouldNotBeOpened) {
  ASSERT_TRUE(entity.start());
  const int first = classifier.descriptor();
  classifier.openError = ENODEV;
  ASSERT_FALSE(entity.start());
  classifier.take();
  EXPECT_TRUE(entity.stop());
  EXPECT_NE(fcntl(first, F_GETFD), -1) << "the old descriptor was closed";
  EXPECT_TRUE(classifier.requests.empty());
  close(first);
}

// Less than the time for which the framework waits for a lock.
constexpr std::chrono::milliseconds atOnce{900};

TEST_F(LifecycleOrder, StartAndStopAndTheScripterTakeNoLock) {
  const BLLManager::exclusiveLock_t held;
  ASSERT_TRUE(held);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(entity.start());
  EXPECT_TRUE(entity.stop());
  std::list<CliCommand> lines;
  EXPECT_TRUE(L2CPScripter().buildCliCommands(lines, Scripter::configAll, false));
  EXPECT_EQ(lines.size(), 15U);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, atOnce);
}

TEST_F(LifecycleOrder, AttachingAndDetachingTakeNoLock) {
  ASSERT_TRUE(entity.start());
  ASSERT_EQ(entity.profileAdd("P", false, false), 0);
  const BLLManager::exclusiveLock_t held;
  ASSERT_TRUE(held);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(entity.portAttach("P", 1, 10), 0);
  EXPECT_EQ(entity.portDetach("P", 1, 10), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, atOnce);
}

TEST_F(LifecycleOrder, NamesAreTakenAndListedFromManyThreadsAtOnce) {
  constexpr int rounds = 200;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, thread] {
      const std::string name = "name " + std::to_string(thread);
      for (int round = 0; round < rounds; ++round) {
        entity.GetName(name.c_str(), nullptr, nullptr);
        EXPECT_EQ(entity.PutName(name.c_str(), 1), 0);
      }
    });
  }
  // One thread alone writes the log.
  for (int round = 0; round < rounds; ++round) {
    entity.externalMessage("l2cp_dump", "", nullptr);
    log.reset();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(entity.PutName("name 0", 1), -1);
}

}  // namespace
