#pragma once

#include "platform/BLEntity.h"
#include "platform/singleton.h"

/// The daemon's entity for VLAN profiles. The module needs its name alone.
class vlanprofile : public BLEntity, public singleton<vlanprofile> {
 public:
  vlanprofile();

  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;
  bool start() override;
  bool applyDefaultSettings() override;
  bool stop() override;
  int getDependencies(std::list<std::string>& entities) override;
};

template <>
vlanprofile& singleton<vlanprofile>::instance();
