#include "classifier/xdp/counters.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <utility>

namespace classifier::xdp {

class Share : public CounterShare {
 public:
  Share(std::shared_ptr<Counters> counters, std::uint32_t place)
      : counters_(std::move(counters)), place_(place) {}
  ~Share() override { counters_->give(place_); }

  std::uint32_t place() const { return place_; }
  std::uint64_t value() const override { return counters_->sum(place_); }

 private:
  const std::shared_ptr<Counters> counters_;
  const std::uint32_t place_;
};

Counters::Counters(std::span<l2cp_counters> processors, std::shared_ptr<const void> keepAlive)
    : processors_(processors), keepAlive_(std::move(keepAlive)) {
  free_.reserve(L2CP_COUNTERS);
  retired_.reserve(L2CP_COUNTERS);
}

std::optional<std::uint32_t> Counters::placeOf(Counter& counter) {
  // A counter of a table has its share from the one plane that the table has.
  if (counter.share) return static_cast<const Share&>(*counter.share).place();
  const auto place = take();
  if (!place) return place;
  try {
    counter.share = std::make_unique<Share>(shared_from_this(), *place);
  } catch (...) {
    give(*place);
    throw;
  }
  return place;
}

std::optional<std::uint32_t> Counters::take() {
  const std::lock_guard lock(mutex_);
  if (fresh_ < L2CP_COUNTERS) return fresh_++;
  if (free_.empty() && !recycle()) return std::nullopt;
  const std::uint32_t place = free_.back();
  free_.pop_back();
  return place;
}

void Counters::give(std::uint32_t place) {
  const std::lock_guard lock(mutex_);
  retired_.push_back(place);
}

// The program runs within a read-side section of RCU, whose end the command waits for.
bool Counters::recycle() {
  if (retired_.empty()) return false;
  if (syscall(SYS_membarrier, MEMBARRIER_CMD_GLOBAL, 0, 0) != 0) return false;
  for (const std::uint32_t place : retired_) clear(place);
  std::swap(free_, retired_);
  return true;
}

std::uint64_t Counters::sum(std::uint32_t place) const {
  std::uint64_t total = 0;
  for (l2cp_counters& processor : processors_) {
    const std::atomic_ref<__u64> value(processor.value[place]);
    total += value.load(std::memory_order_relaxed);
  }
  return total;
}

void Counters::clear(std::uint32_t place) {
  for (l2cp_counters& processor : processors_) {
    const std::atomic_ref<__u64> value(processor.value[place]);
    value.store(0, std::memory_order_relaxed);
  }
}

}  // namespace classifier::xdp
