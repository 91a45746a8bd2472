#include "host/bllManager.h"

#include <gmock/gmock.h>

#include <future>
#include <list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What the entities of a test are told, in its order.
using Journal = std::vector<std::string>;

class Entity : public BLEntity {
 public:
  Entity(Journal& journal, const std::string& name, std::list<std::string> dependencies = {})
      : BLEntity(name), journal_(journal), dependencies_(std::move(dependencies)) {}

  void applyConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) override {
    if (toldOfConfiguration) journal_.push_back("apply " + entityName());
  }
  void saveConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) const override {
    journal_.push_back("save " + entityName());
  }
  bool start() override {
    journal_.push_back("start " + entityName());
    return starts;
  }
  bool applyDefaultSettings() override { return true; }
  bool stop() override {
    journal_.push_back("stop " + entityName());
    return true;
  }
  int getDependencies(std::list<std::string>& entities) override {
    entities = dependencies_;
    return 0;
  }

  bool starts = true;
  bool toldOfConfiguration = false;

 private:
  Journal& journal_;
  std::list<std::string> dependencies_;
};

class Entities : public testing::Test {
 protected:
  Entity& add(const std::string& name, std::list<std::string> dependencies = {}) {
    entities_.emplace_back(journal, name, std::move(dependencies));
    EXPECT_TRUE(manager.registerEntity(entities_.back()));
    return entities_.back();
  }

  std::vector<std::string> running() {
    std::vector<std::string> names;
    for (const auto& entity : manager.host().entities()) {
      if (entity.running) names.push_back(entity.name);
    }
    return names;
  }

  Journal journal;

 private:
  std::list<Entity> entities_;

 protected:
  // Goes before its entities.
  BLLManager manager;
};

TEST_F(Entities, WithoutDependenciesStartAsTheyWereRegistered) {
  add("B");
  add("A");
  add("C");
  EXPECT_EQ(manager.host().startEntities(), "");
  EXPECT_THAT(journal, ElementsAre("start B", "start A", "start C"));
}

TEST_F(Entities, StartBehindThoseTheyDependOnAndOnce) {
  add("A", {"B", "C"});
  add("B", {"D"});
  add("C", {"D"});
  add("D");
  EXPECT_EQ(manager.host().startEntities(), "");
  EXPECT_THAT(journal, ElementsAre("start D", "start B", "start C", "start A"));
}

TEST_F(Entities, StopInTheReverseOrderOfTheirStart) {
  add("A", {"B"});
  add("B");
  manager.host().startEntities();
  journal.clear();
  manager.host().stopEntities();
  EXPECT_THAT(journal, ElementsAre("stop A", "stop B"));
  journal.clear();
  manager.host().stopEntities();
  EXPECT_THAT(journal, IsEmpty());
}

TEST_F(Entities, TakeTheirConfigurationOverBeforeTheyStart) {
  add("first", {"second"}).toldOfConfiguration = true;
  add("second").toldOfConfiguration = true;
  EXPECT_EQ(manager.host().startEntities(), "");
  EXPECT_THAT(journal, ElementsAre("apply second", "start second", "apply first", "start first"));
}

TEST_F(Entities, ThatRunWriteTheirConfigurationDown) {
  add("first", {"second"});
  add("second");
  EXPECT_EQ(manager.host().startEntities(), "");
  add("third");
  journal.clear();
  manager.host().saveEntities();
  EXPECT_THAT(journal, ElementsAre("save second", "save first"));
}

TEST_F(Entities, ThatRunAreNotStartedAgain) {
  add("A");
  manager.host().startEntities();
  add("B");
  EXPECT_EQ(manager.host().startEntities(), "");
  EXPECT_THAT(journal, ElementsAre("start A", "start B"));
}

TEST_F(Entities, ThatWereStoppedStartAgain) {
  add("A");
  manager.host().startEntities();
  manager.host().stopEntities();
  EXPECT_EQ(manager.host().startEntities(), "");
  EXPECT_THAT(journal, ElementsAre("start A", "stop A", "start A"));
}

TEST_F(Entities, StateTellsWhichRun) {
  add("A");
  add("B");
  EXPECT_THAT(running(), IsEmpty());
  manager.host().startEntities();
  EXPECT_THAT(running(), ElementsAre("A", "B"));
  manager.host().stopEntities();
  EXPECT_THAT(running(), IsEmpty());
}

TEST_F(Entities, CircleIsReportedWithTheWayIntoIt) {
  add("A", {"B"});
  add("B", {"C"});
  add("C", {"B"});
  EXPECT_EQ(manager.host().startEntities(), "entities depend on each other: A -> B -> C -> B");
  EXPECT_THAT(journal, IsEmpty());
}

TEST_F(Entities, DependencyOnItselfIsACircle) {
  add("A", {"A"});
  EXPECT_EQ(manager.host().startEntities(), "entities depend on each other: A -> A");
}

TEST_F(Entities, MissingDependencyIsReported) {
  add("A");
  add("B", {"nobody"});
  add("C");
  EXPECT_EQ(manager.host().startEntities(), "entity B needs entity nobody, which is not there");
  EXPECT_THAT(journal, ElementsAre("start A"));
}

TEST_F(Entities, ThatDoesNotStartEndsTheStartAndIsStoppedWithTheOthers) {
  add("A");
  add("B").starts = false;
  add("C");
  EXPECT_EQ(manager.host().startEntities(), "entity B does not start");
  manager.host().stopEntities();
  EXPECT_THAT(journal, ElementsAre("start A", "start B", "stop B", "stop A"));
}

TEST_F(Entities, ThatNeedOneThatDoesNotStartAreNotStarted) {
  add("A", {"B"});
  add("B").starts = false;
  EXPECT_EQ(manager.host().startEntities(), "entity B does not start");
  manager.host().stopEntities();
  EXPECT_THAT(journal, ElementsAre("start B", "stop B"));
}

TEST_F(Entities, NameThatIsTakenIsRefused) {
  Entity& first = add("A");
  Entity second(journal, "A");
  EXPECT_FALSE(manager.registerEntity(second));
  EXPECT_EQ(manager.host().find("A"), &first);
  EXPECT_EQ(manager.host().entities().size(), 1U);
}

TEST_F(Entities, AreFoundByName) {
  Entity& a = add("A");
  EXPECT_EQ(manager.host().find("A"), &a);
  EXPECT_EQ(manager.host().find("a"), nullptr);
  EXPECT_EQ(manager.host().find(""), nullptr);
}

TEST(DaemonEntities, AreThereBeforeAnyModule) {
  std::vector<std::string> names;
  for (const auto& entity : singleton<BLLManager>::instance().host().entities()) {
    names.push_back(entity.name);
  }
  EXPECT_THAT(names, ElementsAre("Interfaces", "vlanprofile", "servprofile"));
}

TEST(DaemonEntities, LeaveTheManagerWhenTheyEnd) {
  BLLManager& manager = singleton<BLLManager>::instance();
  Journal journal;
  {
    Entity entity(journal, "passing");
    EXPECT_TRUE(manager.registerEntity(entity));
    EXPECT_EQ(manager.host().startEntities(), "");
  }
  EXPECT_EQ(manager.host().find("passing"), nullptr);
  manager.host().stopEntities();
  EXPECT_THAT(journal, ElementsAre("start passing"));
}

// ---- Locks ----

/// Holds a lock on another thread.
template <class Lock>
class Elsewhere {
 public:
  Elsewhere() {
    std::promise<bool> taken;
    thread_ = std::thread([&taken, release = release_.get_future()]() mutable {
      const Lock lock;
      taken.set_value(static_cast<bool>(lock));
      release.wait();
    });
    held_ = taken.get_future().get();
  }
  ~Elsewhere() {
    release_.set_value();
    thread_.join();
  }
  Elsewhere(const Elsewhere&) = delete;
  Elsewhere& operator=(const Elsewhere&) = delete;

  explicit operator bool() const { return held_; }

 private:
  std::promise<void> release_;
  std::thread thread_;
  bool held_ = false;
};

using Exclusive = BLLManager::exclusiveLock_t;
using Shared = BLLManager::sharedLock_t;

TEST(Lock, IsHeldWhenNobodyElseHoldsIt) {
  EXPECT_TRUE(Exclusive());
  EXPECT_TRUE(Shared());
  EXPECT_TRUE(Exclusive());
}

TEST(Lock, IsSharedAmongReaders) {
  const Elsewhere<Shared> reader;
  EXPECT_TRUE(reader);
  EXPECT_TRUE(Shared());
}

TEST(Lock, OfAWriterTimesOutForEverybodyElse) {
  const Elsewhere<Exclusive> writer;
  EXPECT_TRUE(writer);
  EXPECT_FALSE(Exclusive());
  EXPECT_FALSE(Shared());
}

TEST(Lock, OfAReaderTimesOutForWriters) {
  const Elsewhere<Shared> reader;
  EXPECT_FALSE(Exclusive());
  EXPECT_TRUE(Shared());
}

TEST(Lock, ThatTimedOutTakesNothingWithIt) {
  {
    const Elsewhere<Exclusive> writer;
    EXPECT_FALSE(Exclusive());
    EXPECT_FALSE(Shared());
  }
  EXPECT_TRUE(Exclusive());
  EXPECT_TRUE(Shared());
}

TEST(Lock, IsWaitedFor) {
  std::promise<void> waiting;
  std::thread other;
  {
    const Exclusive mine;
    other = std::thread([&waiting] {
      waiting.set_value();
      EXPECT_TRUE(Shared());
    });
    waiting.get_future().get();
  }
  other.join();
}

// ---- Threads ----

class Threads : public testing::Test {
 protected:
  static bool waitFor(const std::string& name, std::chrono::milliseconds timeout) {
    return singleton<BLLManager>::instance().host().waitForThread(name, timeout);
  }
  static void registerMe(const std::string& name) {
    singleton<BLLManager>::instance().registerThread(name);
  }
  static constexpr std::chrono::milliseconds shortly{20};
  static constexpr std::chrono::seconds patience{30};
};

TEST_F(Threads, ThatNobodyRegisteredAreWaitedForInVain) { EXPECT_FALSE(waitFor("none", shortly)); }

TEST_F(Threads, AreWaitedForUntilTheyEnd) {
  std::promise<void> registered;
  std::promise<void> end;
  std::thread thread([&] {
    registerMe("one");
    registered.set_value();
    end.get_future().wait();
  });
  registered.get_future().wait();
  EXPECT_FALSE(waitFor("one", shortly));
  end.set_value();
  EXPECT_TRUE(waitFor("one", patience));
  thread.join();
  EXPECT_TRUE(waitFor("one", shortly));
}

TEST_F(Threads, OfTheSameNameAreAllWaitedFor) {
  std::thread([&] { registerMe("two"); }).join();
  EXPECT_TRUE(waitFor("two", patience));
  std::promise<void> registered;
  std::promise<void> end;
  std::thread second([&] {
    registerMe("two");
    registered.set_value();
    end.get_future().wait();
  });
  registered.get_future().wait();
  EXPECT_FALSE(waitFor("two", shortly));
  end.set_value();
  EXPECT_TRUE(waitFor("two", patience));
  second.join();
}

TEST_F(Threads, AreToldApartByName) {
  std::thread([&] { registerMe("three"); }).join();
  EXPECT_TRUE(waitFor("three", patience));
  EXPECT_FALSE(waitFor("Three", shortly));
}

}  // namespace
