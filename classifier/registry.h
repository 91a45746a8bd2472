#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "classifier/name.h"

namespace classifier {

template <class Object>
class Registry;

/// The base of the objects of one class. Their uses are counted without atomic operations, for the
/// lock of their table guards all pointers to them.
template <class Object>
class Registered : public boost::intrusive_ref_counter<Object, boost::thread_unsafe_counter> {
 public:
  explicit Registered(const Name& objectName) : name(objectName) {}

  const Name name;

 private:
  friend Registry<Object>;

  /// The next one in the registry's chain.
  boost::intrusive_ptr<Object> next_;
};

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
    Object* object;
  };

  explicit Registry(std::size_t limit) : limit_(limit) {}

  Lookup find(const char (&field)[ACL_NAME_SIZE]) {
    // Names are zero-padded, and so are most fields. One that carries something else behind its
    // name only takes the long way.
    if (last_ != nullptr && last_->name.fills(field)) return {0, last_};
    const auto name = Name::in(field);
    if (!name) return {-EINVAL, nullptr};
    Object* const found = linkTo(*name).get();
    if (found == nullptr) return {-ENOENT, nullptr};
    last_ = found;
    return {0, found};
  }

  /// 0, -EINVAL for a name without end or an empty one, -EEXIST, or -ENOSPC at the limit.
  int create(const char (&field)[ACL_NAME_SIZE]) {
    const auto name = Name::in(field);
    return name ? create(*name) : -EINVAL;
  }
  int create(const Name& name) {
    if (name.empty()) return -EINVAL;
    Pointer* link = &linkTo(name);
    if (*link != nullptr) return -EEXIST;
    if (size_ >= limit_) return -ENOSPC;
    if (size_ >= chains_.size()) {
      grow();
      link = &linkTo(name);
    }
    *link = new Object(name);
    last_ = link->get();
    ++size_;
    return 0;
  }

  /// 0, -EINVAL for a name without end, or -ENOENT.
  int remove(const char (&field)[ACL_NAME_SIZE]) {
    const auto name = Name::in(field);
    if (!name) return -EINVAL;
    Pointer& link = linkTo(*name);
    if (link == nullptr) return -ENOENT;
    last_ = nullptr;
    --size_;
    const Pointer removed = std::move(link);
    link = std::move(removed->next_);
    return 0;
  }

 private:
  using Pointer = boost::intrusive_ptr<Object>;

  static constexpr unsigned bitsOfFirst = 4;

  /// The pointer to the object of that name or, when there is none, the one that ends its chain.
  Pointer& linkTo(const Name& name) {
    Pointer* link = &chains_[name.hash() >> shift_];
    while (*link != nullptr && (*link)->name != name) link = &(*link)->next_;
    return *link;
  }

  void grow() {
    std::vector<Pointer> old(2 * chains_.size());
    old.swap(chains_);
    --shift_;
    for (Pointer& chain : old) {
      while (chain != nullptr) {
        Pointer moved = std::move(chain);
        chain = std::move(moved->next_);
        linkTo(moved->name).swap(moved);
      }
    }
  }

  std::size_t limit_;
  std::size_t size_ = 0;
  /// At least as many as objects, so that a chain is hardly ever longer than one or two.
  std::vector<Pointer> chains_ = std::vector<Pointer>(std::size_t{1} << bitsOfFirst);
  unsigned shift_ = 64 - bitsOfFirst;
  Object* last_ = nullptr;
};

}  // namespace classifier
