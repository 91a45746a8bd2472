#include "host/bllManager.h"

#include <fmt/core.h>

#include <algorithm>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/thread/thread.hpp>
#include <list>

namespace {

BLLManager::Host& host() { return singleton<BLLManager>::instance().host(); }

boost::posix_time::milliseconds lockWait() {
  return boost::posix_time::milliseconds(BLLManager::Host::lockWait.count());
}

}  // namespace

// ---- What modules see ----

template <>
BLLManager& singleton<BLLManager>::instance() {
  static BLLManager manager;
  return manager;
}

BLLManager::BLLManager() : host_(std::make_unique<Host>()) {}

BLLManager::~BLLManager() = default;

bool BLLManager::registerEntity(BLEntity& entity) { return host_->add(entity); }

void BLLManager::registerThread(const std::string& name) {
  host_->threadBegins(name);
  boost::this_thread::at_thread_exit([name] { ::host().threadEnds(name); });
}

BLEntity::~BLEntity() { host().remove(*this); }

BLLManager::exclusiveLock_t::exclusiveLock_t()
    : held_(::host().configurationLock().timed_lock(lockWait())) {}

BLLManager::exclusiveLock_t::~exclusiveLock_t() {
  if (held_) ::host().configurationLock().unlock();
}

BLLManager::sharedLock_t::sharedLock_t()
    : held_(::host().configurationLock().timed_lock_shared(lockWait())) {}

BLLManager::sharedLock_t::~sharedLock_t() {
  if (held_) ::host().configurationLock().unlock_shared();
}

// ---- Entities ----

bool BLLManager::Host::add(BLEntity& entity) {
  const std::lock_guard lock(mutex_);
  const bool taken = std::any_of(entities_.begin(), entities_.end(), [&](const BLEntity* known) {
    return known->entityName() == entity.entityName();
  });
  if (!taken) entities_.push_back(&entity);
  return !taken;
}

void BLLManager::Host::remove(const BLEntity& entity) {
  const std::lock_guard lock(mutex_);
  std::erase(entities_, &entity);
  std::erase(started_, &entity);
}

BLEntity* BLLManager::Host::find(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(entities_.begin(), entities_.end(), [&](const BLEntity* entity) {
    return entity->entityName() == name;
  });
  return found == entities_.end() ? nullptr : *found;
}

std::vector<BLLManager::Host::EntityState> BLLManager::Host::entities() const {
  const std::lock_guard lock(mutex_);
  std::vector<EntityState> states;
  for (const BLEntity* entity : entities_) {
    const bool running = std::find(started_.begin(), started_.end(), entity) != started_.end();
    states.push_back({entity->entityName(), running});
  }
  return states;
}

std::string BLLManager::Host::startEntities() {
  std::vector<BLEntity*> all;
  {
    const std::lock_guard lock(mutex_);
    all = entities_;
  }
  for (BLEntity* entity : all) {
    std::vector<const BLEntity*> waiting;
    std::string problem = startWithDependencies(*entity, waiting);
    if (!problem.empty()) return problem;
  }
  return {};
}

// Depth first: what an entity waits for is started before it. `waiting` is the chain that led here.
std::string BLLManager::Host::startWithDependencies(BLEntity& entity,
                                                    std::vector<const BLEntity*>& waiting) {
  if (std::find(started_.begin(), started_.end(), &entity) != started_.end()) return {};
  if (std::find(waiting.begin(), waiting.end(), &entity) != waiting.end()) {
    std::string circle;
    for (const BLEntity* member : waiting) circle += member->entityName() + " -> ";
    return "entities depend on each other: " + circle + entity.entityName();
  }
  waiting.push_back(&entity);
  std::list<std::string> dependencies;
  entity.getDependencies(dependencies);
  for (const std::string& name : dependencies) {
    BLEntity* dependency = find(name);
    if (dependency == nullptr) {
      return fmt::format("entity {} needs entity {}, which is not there", entity.entityName(),
                         name);
    }
    std::string problem = startWithDependencies(*dependency, waiting);
    if (!problem.empty()) return problem;
  }
  waiting.pop_back();

  // Also an entity that fails is stopped later: it may have got half-way.
  {
    const std::lock_guard lock(mutex_);
    started_.push_back(&entity);
  }
  entity.applyConfiguration(nullptr);
  return entity.start() ? "" : fmt::format("entity {} does not start", entity.entityName());
}

void BLLManager::Host::stopEntities() {
  std::vector<BLEntity*> order;
  {
    const std::lock_guard lock(mutex_);
    order.swap(started_);
  }
  std::for_each(order.rbegin(), order.rend(), [](BLEntity* entity) { entity->stop(); });
}

void BLLManager::Host::saveEntities() const {
  std::vector<BLEntity*> running;
  {
    const std::lock_guard lock(mutex_);
    running = started_;
  }
  for (const BLEntity* entity : running) entity->saveConfiguration(nullptr);
}

// ---- Threads ----

void BLLManager::Host::threadBegins(const std::string& name) {
  const std::lock_guard lock(mutex_);
  ++threads_[name].begun;
}

void BLLManager::Host::threadEnds(const std::string& name) {
  const std::lock_guard lock(mutex_);
  ++threads_[name].ended;
  threadChanged_.notify_all();
}

bool BLLManager::Host::waitForThread(const std::string& name, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return threadChanged_.wait_for(lock, timeout, [&] {
    const ThreadCount& count = threads_[name];
    return count.begun > 0 && count.begun == count.ended;
  });
}
