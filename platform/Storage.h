#pragma once

#include <boost/shared_ptr.hpp>

/// The daemon's configuration tree, as far as an entity meets it.
namespace Storage {

/// One node of the tree. Its contents are the daemon's own.
class Setting;

/// Something whose configuration the daemon keeps in the tree.
class StorageItem {
 public:
  /// Takes over what the tree holds for this item. Called by the daemon before `start`.
  virtual void applyConfiguration(boost::shared_ptr<Setting> setting) = 0;
  /// Writes what the tree shall hold for this item. Called by the daemon when it saves.
  virtual void saveConfiguration(boost::shared_ptr<Setting> setting) const = 0;

 protected:
  ~StorageItem() = default;
};

}  // namespace Storage
