#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/BLLManager.h"

/// What the daemon itself does with entities, threads and locks.
class BLLManager::Host {
 public:
  /// How long a lock of the configuration is waited for.
  static constexpr std::chrono::milliseconds lockWait{1000};

  bool add(BLEntity& entity);
  void remove(const BLEntity& entity);

  /// The entity of that name, or null.
  BLEntity* find(const std::string& name) const;

  struct EntityState {
    std::string name;
    bool running;
  };
  std::vector<EntityState> entities() const;

  /// Lets every entity take over its configuration and starts it, behind those it depends on. Stops
  /// at the first that cannot be started and returns why, else an empty text. There is no tree of
  /// settings here, so each gets a null one.
  std::string startEntities();
  /// Stops what `startEntities` started, and what failed to start, in reverse order.
  void stopEntities();
  /// Lets every entity that runs write down its configuration, in the order of their start.
  void saveEntities() const;

  void threadBegins(const std::string& name);
  void threadEnds(const std::string& name);
  /// Waits until a thread of that name has come and gone. False after `timeout`.
  bool waitForThread(const std::string& name, std::chrono::milliseconds timeout);

  boost::shared_mutex& configurationLock() { return configurationLock_; }

 private:
  std::string startWithDependencies(BLEntity& entity, std::vector<const BLEntity*>& waiting);

  mutable std::mutex mutex_;
  std::vector<BLEntity*> entities_;
  std::vector<BLEntity*> started_;

  struct ThreadCount {
    unsigned int begun = 0;
    unsigned int ended = 0;
  };
  std::map<std::string, ThreadCount> threads_;
  std::condition_variable threadChanged_;

  boost::shared_mutex configurationLock_;
};
