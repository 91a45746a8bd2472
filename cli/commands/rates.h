#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

namespace cli {

/// Frames of a place by what became of them. Each wraps at 2^32.
struct Counters {
  std::uint32_t discard = 0;
  std::uint32_t peer = 0;
  std::uint32_t tunnel = 0;
};

/// Frames in a second. Nothing where that cannot be told.
struct Rates {
  std::optional<double> discard;
  std::optional<double> peer;
  std::optional<double> tunnel;

  std::optional<double> total() const;
};

/// What changes between one reading of counters and the next.
class RateMeter {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Kind : std::uint8_t { port, vlan };
  using Place = std::pair<Kind, std::uint32_t>;

  /// The rates since the place was read last: nothing for the first time, and for a counter that is
  /// smaller now, which has begun anew or wrapped.
  Rates read(const Place& place, const Counters& counters, Clock::time_point time);

  /// All counters have begun anew.
  void forget() { last_.clear(); }

 private:
  struct Reading {
    Counters counters;
    Clock::time_point time;
  };

  std::map<Place, Reading> last_;
};

}  // namespace cli
