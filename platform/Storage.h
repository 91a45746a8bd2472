#pragma once

#include <boost/shared_ptr.hpp>
#include <string_view>

/// Files in which daemons with a configuration tree keep it.
inline constexpr std::string_view defaultConfigFile = "default_config.xml";
inline constexpr std::string_view savedConfigFile = "saved_config.xml";

/// The daemon's configuration tree, as far as an entity meets it.
namespace Storage {

/// One node of the tree. Its contents are the daemon's own.
class Setting;

/// Something whose configuration the daemon keeps in the tree.
class StorageItem {
 public:
  /// Takes over what the tree holds for this item. A daemon that keeps a tree calls it before
  /// `start`.
  virtual void applyConfiguration(boost::shared_ptr<Setting> setting) = 0;
  /// Writes what the tree shall hold for this item. A daemon that keeps a tree calls it to save.
  virtual void saveConfiguration(boost::shared_ptr<Setting> setting) const = 0;

 protected:
  ~StorageItem() = default;
};

}  // namespace Storage
