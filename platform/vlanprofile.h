#pragma once

#include <map>
#include <string>

#include "platform/BLEntity.h"
#include "platform/singleton.h"

/// The daemon's entity for VLAN profiles: which S-VID a service has on which interface.
class vlanprofile : public BLEntity, public singleton<vlanprofile> {
 public:
  vlanprofile();

  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;
  bool start() override;
  bool applyDefaultSettings() override;
  bool stop() override;
  int getDependencies(std::list<std::string>& entities) override;

  struct vlanProfileInfo {
    int id = 0;                ///< unique, from 1
    std::map<int, int> svids;  ///< interface to S-VID
  };

  /// The VLAN profiles by name.
  std::map<std::string, vlanProfileInfo> vlanProfiles;

  /// The S-VID that the VLAN profile with that id has on an interface; 0 if there is none.
  int vlanProfileSvidGet(int intf, int id) const;
};

template <>
vlanprofile& singleton<vlanprofile>::instance();
