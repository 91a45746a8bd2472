#pragma once

/// A class of which the process has one object, built on first use.
///
/// Classes that live in the daemon specialise `instance` in the daemon's own library; every other
/// class gets a function-local static of the library that instantiates it.
template <class T>
class singleton {
 public:
  static T& instance();

  singleton(const singleton&) = delete;
  singleton& operator=(const singleton&) = delete;

 protected:
  singleton() = default;
  ~singleton() = default;
};

template <class T>
T& singleton<T>::instance() {
  static T object;
  return object;
}
