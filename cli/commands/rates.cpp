#include "cli/commands/rates.h"

namespace cli {

std::optional<double> Rates::total() const {
  if (!discard || !peer || !tunnel) return std::nullopt;
  return *discard + *peer + *tunnel;
}

Rates RateMeter::read(const Place& place, const Counters& counters, Clock::time_point time) {
  const Reading now{counters, time};
  const auto [known, isNew] = last_.try_emplace(place, now);
  if (isNew) return {};
  const Reading before = std::exchange(known->second, now);
  const double seconds = std::chrono::duration<double>(time - before.time).count();
  const auto rate = [&](std::uint32_t Counters::*counter) -> std::optional<double> {
    const std::uint32_t from = before.counters.*counter;
    const std::uint32_t to = counters.*counter;
    if (to < from || seconds <= 0) return std::nullopt;
    return (to - from) / seconds;
  };
  return {rate(&Counters::discard), rate(&Counters::peer), rate(&Counters::tunnel)};
}

}  // namespace cli
