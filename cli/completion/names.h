#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/client.h"

namespace cli {

/// What an argument names.
enum class NameKind : std::uint8_t {
  none,  ///< nothing that there is a list of
  protocol,
  profile,
  serviceProfile,
  vlanProfile,
  port,
};

/// Where the names are that there are.
class Names {
 public:
  Names() = default;
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;
  virtual ~Names() = default;

  /// Empty if they cannot be had.
  virtual std::vector<std::string> of(NameKind kind) = 0;
};

/// The same server, but for somebody who waits for a key to do something: without patience.
Server withoutPatience(Server server);

/// Those of the daemon. Nothing is said of a daemon that does not answer.
class LiveNames : public Names {
 public:
  explicit LiveNames(Client& client) : client_(client) {}
  std::vector<std::string> of(NameKind kind) override;

 private:
  Client& client_;
};

}  // namespace cli
