#pragma once

#include <memory>
#include <utility>

/// An element of a registry: copied and assigned as the value that it holds, but kept alive by
/// everyone who still points at it. Entries of profiles point at protocols and attachments point at
/// profiles; when an element is removed from its registry while one of them is left, lookups miss
/// it and the pointers stay good.
template <class T>
class Node {
 public:
  Node() : value_(std::make_shared<T>()) {}
  Node(const T& value) : value_(std::make_shared<T>(value)) {}  // NOLINT: stands for its value
  Node(const Node& other) : value_(std::make_shared<T>(*other.value_)) {}
  /// Assigns to the value held; pointers to it see the new contents.
  Node& operator=(const Node& other) {
    if (this != &other) *value_ = *other.value_;
    return *this;
  }
  ~Node() = default;

  T& operator*() { return *value_; }
  const T& operator*() const { return *value_; }
  T* operator->() { return value_.get(); }
  const T* operator->() const { return value_.get(); }

  /// For a place that outlives the element's stay in its registry.
  const std::shared_ptr<T>& pointer() const { return value_; }

 private:
  std::shared_ptr<T> value_;
};
