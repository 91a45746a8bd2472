#pragma once

#include <memory>
#include <sstream>
#include <string>

#include "platform/BLEntity.h"
#include "platform/Notification.h"
#include "platform/singleton.h"

/// The daemon's manager of entities, threads and locks.
class BLLManager : public singleton<BLLManager> {
 public:
  BLLManager();
  ~BLLManager();

  /// Puts an entity under the manager's care for as long as the entity lives. False, with nothing
  /// changed, when an entity of that name is there already.
  bool registerEntity(BLEntity& entity);

  /// Enters the calling thread into the manager's registry, until it ends.
  void registerThread(const std::string& name);

  /// Fired for every operator command that no part of the daemon claims for itself. Arguments:
  /// command, its argument, where to write an answer (may be null), the operator's session.
  using ExternalMessage = Notification::Event<void(const std::string&, const std::string&,
                                                   std::ostringstream*, const std::string&)>;
  ExternalMessage externalMessage;

  /// Holds the daemon's configuration lock against everybody else while it lives. Waits a bounded
  /// time for the lock: ask whether it holds it. Not recursive.
  class exclusiveLock_t {
   public:
    exclusiveLock_t();
    ~exclusiveLock_t();
    exclusiveLock_t(const exclusiveLock_t&) = delete;
    exclusiveLock_t& operator=(const exclusiveLock_t&) = delete;
    explicit operator bool() const { return held_; }

   private:
    bool held_;
  };

  /// Holds the daemon's configuration lock together with other readers while it lives. Waits a
  /// bounded time for the lock: ask whether it holds it.
  class sharedLock_t {
   public:
    sharedLock_t();
    ~sharedLock_t();
    sharedLock_t(const sharedLock_t&) = delete;
    sharedLock_t& operator=(const sharedLock_t&) = delete;
    explicit operator bool() const { return held_; }

   private:
    bool held_;
  };

  /// The daemon's own side of the manager.
  class Host;
  Host& host() { return *host_; }

 private:
  std::unique_ptr<Host> host_;
};

template <>
BLLManager& singleton<BLLManager>::instance();
