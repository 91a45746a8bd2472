// Whatever the configuration file holds, it is read or refused with its place.

#include <algorithm>

#include "host/config.h"
#include "tests/fuzz/input_file.h"

namespace {

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

void check(const Config& config) {
  constexpr std::size_t longestDevice = 15;
  constexpr std::size_t longestName = 33;
  constexpr std::size_t longestServiceName = 65;
  constexpr int highestVid = 4094;
  const auto isVid = [](int vid) { return vid >= 1 && vid <= highestVid; };
  const auto isName = [](const std::string& name, std::size_t longest) {
    return !name.empty() && name.size() <= longest;
  };
  require(isName(config.bridge, longestDevice), "bridge", config.bridge);
  for (const auto& [number, port] : config.ports) {
    require(!port.name.empty() && std::none_of(port.name.begin(), port.name.end(), isControl),
            "port's name", port.name);
    require(port.interface.size() <= longestDevice, "interface", port.interface);
    require(std::all_of(port.vlans.begin(), port.vlans.end(), isVid), "VLANs", port.name);
  }
  for (const auto& [name, svids] : config.vlanProfiles) {
    require(isName(name, longestName), "VLAN profile", name);
    require(std::all_of(svids.begin(), svids.end(),
                        [&](const auto& svid) { return isVid(svid.second); }),
            "S-VIDs", name);
  }
  for (const auto& [name, service] : config.serviceProfiles) {
    require(isName(name, longestServiceName), "service profile", name);
    require(service.vlanProfile.empty() || config.vlanProfiles.contains(service.vlanProfile),
            "its VLAN profile", service.vlanProfile);
    require(service.l2cpProfile.size() <= longestName, "its L2CP profile", service.l2cpProfile);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const InputFile file;
  file.write({reinterpret_cast<const char*>(data), size});  // NOLINT: bytes are bytes
  try {
    check(readConfig(file.path()));
  } catch (const ConfigError& problem) {
    const std::string text = problem.what();
    require(text.starts_with(file.path() + ":"), "place", text);
    require(std::none_of(text.begin(), text.end(), isControl), "one line", text);
  }
  return 0;
}
