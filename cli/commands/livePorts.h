#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "cli/client.h"

namespace cli {

/// Whether the state of a port is a mode in which the kernel decides about its frames, rather than
/// why it does not.
bool isLive(std::string_view state);

/// Which frames that arrive can meet the rules of their port.
class LivePorts {
 public:
  explicit LivePorts(Client& client);

  /// Whether any can. Other classifiers than "xdp" are only asked about frames.
  bool areThere() const { return areThere_; }
  bool isLive(std::uint32_t port) const { return problem(port).empty(); }
  /// Empty for a live port.
  std::string problem(std::uint32_t port) const;
  /// Whether the port is to have an interface.
  bool isConfigured(std::uint32_t port) const { return problems_.contains(port); }
  /// By port.
  const std::map<std::uint32_t, std::string>& problems() const { return problems_; }

 private:
  bool areThere_;
  std::map<std::uint32_t, std::string> problems_;
};

}  // namespace cli
