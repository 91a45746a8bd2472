#pragma once

#include <stdexcept>
#include <string>

/// A name as the key of a registry. A null name is an error of the caller.
inline std::string registryKey(const char* name) {
  if (name == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
  return name;
}
