#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "classifier/rule.h"
#include "platform/acl_ioctl.h"

namespace classifier {

/// The name in a field of a record, or nothing when it does not end within the field.
inline std::optional<std::string_view> nameIn(const char (&field)[ACL_NAME_SIZE]) {
  const std::size_t length = strnlen(field, sizeof(field));
  if (length == sizeof(field)) return std::nullopt;
  return std::string_view(field, length);
}

/// The objects of one class by their names.
///
/// Requests come in runs about one object: it is made, it gets its parts, an entry uses it. So the
/// object of the last lookup is kept at hand, which is why even looking up is not for two threads
/// at a time.
template <class Object>
class Registry {
 public:
  struct Lookup {
    /// 0, -EINVAL for a name without end, or -ENOENT.
    int error;
    /// Null beside an error; else good until the object is removed.
    const std::shared_ptr<Object>* object;
  };

  Lookup find(const char (&field)[ACL_NAME_SIZE]) {
    // Names are zero-padded, and so are most fields. One that carries something else behind its
    // name only takes the long way.
    if (last_ != nullptr && (*last_)->name.fills(field)) return {0, last_};
    const auto name = nameIn(field);
    if (!name) return {-EINVAL, nullptr};
    const auto found = objects_.find(*name);
    if (found == objects_.end()) return {-ENOENT, nullptr};
    last_ = &found->second;
    return {0, last_};
  }

  bool contains(std::string_view name) const { return objects_.contains(name); }
  std::size_t size() const { return objects_.size(); }

  /// The object's name is not taken.
  void add(std::shared_ptr<Object> object) {
    const std::string_view name = object->name.view();
    last_ = &objects_.emplace(name, std::move(object)).first->second;
  }

  /// Whether there was such an object.
  bool remove(std::string_view name) {
    last_ = nullptr;
    return objects_.erase(name) != 0;
  }

 private:
  /// Keys are the objects' own names.
  std::unordered_map<std::string_view, std::shared_ptr<Object>> objects_;
  const std::shared_ptr<Object>* last_ = nullptr;
};

}  // namespace classifier
