#pragma once

#include <list>
#include <string>
#include <utility>

#include "platform/Storage.h"

/// A part of the daemon that `BLLManager` starts and stops. The order of the virtual operations is
/// the order of their slots, which modules built apart from the daemon rely on.
class BLEntity : public Storage::StorageItem {
 public:
  /// Brings the entity up. False leaves whatever was already made; `stop` cleans it up.
  virtual bool start() = 0;
  /// Returns the entity to its factory configuration.
  virtual bool applyDefaultSettings() = 0;
  /// Brings the entity down. Also called after a failed `start`.
  virtual bool stop() = 0;
  /// Replaces `entities` by the names of the entities that must run before this one. Returns 0.
  virtual int getDependencies(std::list<std::string>& entities) = 0;

  virtual ~BLEntity();

  BLEntity(const BLEntity&) = delete;
  BLEntity& operator=(const BLEntity&) = delete;

  /// The name under which the manager knows the entity.
  const std::string& entityName() const { return entityName_; }

 protected:
  explicit BLEntity(std::string entityName) : entityName_(std::move(entityName)) {}

 private:
  std::string entityName_;
};
