#include "platform/itbridge.h"

#include "host/bridge.h"

namespace {

std::string& bridgeName() {
  static std::string name = "br0";
  return name;
}

}  // namespace

template <>
itbridge& singleton<itbridge>::instance() {
  static itbridge bridge;
  return bridge;
}

const char* itbridge::bridgeNameGet() const { return bridgeName().c_str(); }

void setBridgeName(const std::string& name) { bridgeName() = name; }
