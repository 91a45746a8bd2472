#pragma once

#include <list>
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

  /// Replaces `serviceProfiles` by the names of those that name the L2CP profile.
  void getAllServiceProfilesWithL2cpProfile(std::string l2cpProfile,
                                            std::list<std::string>& serviceProfiles);
  /// Replaces `applied` by the interfaces on which some of `serviceProfiles` are applied, each with
  /// their names in the order in which they were applied.
  void getAllServiceProfilesPerIntf(std::list<std::string> serviceProfiles,
                                    std::map<int, std::list<std::string>>& applied);

  // The operations below return 0, or a negative error number with nothing changed: -2 (no such
  // service profile), -16 (applied on an interface), -17 (applied there already), -22 (a name too
  // long, a negative interface number), -9 (not applied there), or what the module answered.

  /// Applies a service profile on an interface. The module is asked first, then attaches the
  /// L2CP profile, if the service profile names one.
  int servProfileAttach(const std::string& serviceProfile, int intf);
  /// Takes a service profile off an interface; the module detaches the L2CP profile.
  int servProfileDetach(const std::string& serviceProfile, int intf);
  /// Makes a service profile name an L2CP profile; an empty one for none.
  int servProfileL2cpProfile(const std::string& serviceProfile, const std::string& l2cpProfile);

  /// Writes one event to the daemon's log: its level, where it happened (function, line, module,
  /// unit), what it is about (type and name of an object, detail) and two numbers.
  void servProfileLogMsg(int level, const char* function, int line, const char* module, int unit,
                         const char* objectType, const char* objectName, const char* detail,
                         int first, int second);
};

template <>
servprofile& singleton<servprofile>::instance();
