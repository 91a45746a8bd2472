#pragma once

#include "platform/BLEntity.h"
#include "platform/singleton.h"

/// The daemon's entity for the switch's ports. The module needs its name alone.
class Interfaces : public BLEntity, public singleton<Interfaces> {
 public:
  Interfaces();

  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;
  bool start() override;
  bool applyDefaultSettings() override;
  bool stop() override;
  int getDependencies(std::list<std::string>& entities) override;
};

template <>
Interfaces& singleton<Interfaces>::instance();
