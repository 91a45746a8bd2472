#pragma once

#include <map>
#include <string>

#include "platform/BLEntity.h"
#include "platform/singleton.h"

/// The daemon's entity for service profiles: what a customer's service is made of, by the names of
/// its VLAN profile, L2CP profile and so on.
class servprofile : public BLEntity, public singleton<servprofile> {
 public:
  servprofile();

  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;
  bool start() override;
  bool applyDefaultSettings() override;
  bool stop() override;
  int getDependencies(std::list<std::string>& entities) override;

  /// One service profile. The fields are NUL-terminated; an empty one names nothing.
  struct servProfileInfo {
    char name[66] = {};
    char vlanProfile[34] = {};
    char l2cpProfile[34] = {};
  };

  /// The service profiles by name.
  std::map<std::string, servProfileInfo> servProfiles;

  /// Events above this level are not logged: 0 nothing, 1 warnings, 2 changes of objects.
  int servProfileLogLevel = 1;

  /// Kinds of profile that a service profile can name.
  static constexpr int subProfileL2cp = 5;

  /// Non-zero while a service profile names the profile `profileName` of the given kind.
  int servProfileCheckSubAttached(const std::string& profileName, int subProfileKind);

  /// Writes one event to the daemon's log: its level, where it happened (function, line, module,
  /// unit), what it is about (type and name of an object, detail) and two numbers.
  void servProfileLogMsg(int level, const char* function, int line, const char* module, int unit,
                         const char* objectType, const char* objectName, const char* detail,
                         int first, int second);
};

template <>
servprofile& singleton<servprofile>::instance();
