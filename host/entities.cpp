// The daemon's entities for ports, VLAN profiles and service profiles. Their objects are kept as
// command lines, so there is nothing to start, store or reset here.

#include "host/log.h"
#include "platform/BLLManager.h"
#include "platform/Interfaces.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace {

// Entities are registered while the library is loaded, before any module.
[[maybe_unused]] const bool registered = [] {
  BLLManager& manager = singleton<BLLManager>::instance();
  return manager.registerEntity(singleton<Interfaces>::instance()) &&
         manager.registerEntity(singleton<vlanprofile>::instance()) &&
         manager.registerEntity(singleton<servprofile>::instance());
}();

}  // namespace

template <>
Interfaces& singleton<Interfaces>::instance() {
  static Interfaces interfaces;
  return interfaces;
}

Interfaces::Interfaces() : BLEntity("Interfaces") {}
void Interfaces::applyConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) {}
void Interfaces::saveConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) const {}
bool Interfaces::start() { return true; }
bool Interfaces::applyDefaultSettings() { return true; }
bool Interfaces::stop() { return true; }

int Interfaces::getDependencies(std::list<std::string>& entities) {
  entities.clear();
  return 0;
}

template <>
vlanprofile& singleton<vlanprofile>::instance() {
  static vlanprofile profiles;
  return profiles;
}

vlanprofile::vlanprofile() : BLEntity("vlanprofile") {}
void vlanprofile::applyConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) {}
void vlanprofile::saveConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) const {}
bool vlanprofile::start() { return true; }
bool vlanprofile::applyDefaultSettings() { return true; }
bool vlanprofile::stop() { return true; }

int vlanprofile::getDependencies(std::list<std::string>& entities) {
  entities = {singleton<Interfaces>::instance().entityName()};
  return 0;
}

template <>
servprofile& singleton<servprofile>::instance() {
  static servprofile profiles;
  return profiles;
}

servprofile::servprofile() : BLEntity("servprofile") {}
void servprofile::applyConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) {}
void servprofile::saveConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) const {}
bool servprofile::start() { return true; }
bool servprofile::applyDefaultSettings() { return true; }
bool servprofile::stop() { return true; }

int servprofile::getDependencies(std::list<std::string>& entities) {
  entities = {singleton<Interfaces>::instance().entityName(),
              singleton<vlanprofile>::instance().entityName()};
  return 0;
}

void servprofile::servProfileLogMsg(int level, const char* function, int line, const char* module,
                                    int unit, const char* objectType, const char* objectName,
                                    const char* detail, int first, int second) {
  if (level > servProfileLogLevel) return;
  hostlog::information("service", "{} {}:{} unit {}: {} \"{}\" {} ({}, {})", module, function, line,
                       unit, objectType, objectName, detail, first, second);
}
