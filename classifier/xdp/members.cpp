#include "classifier/xdp/members.h"

#include <bpf/bpf.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>
#include <vector>

#include "classifier/xdp/hold.h"

namespace classifier::xdp {

namespace {

/// After an update of the map of maps the kernel waits until no frame is under way that began
/// before, so many are done at once; but each takes a descriptor.
constexpr std::size_t largestBatch = 256;

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  int number() const { return number_; }

 private:
  int number_;
};

/// Whether the kernel knows no such updates of a map of maps, as before Linux 5.19.
bool isBatchUnknown(int error) {
  constexpr int enotsupp = 524;  // the kernel's own, of no C library
  return error == -enotsupp || error == -EOPNOTSUPP || error == -EINVAL;
}

/// Puts the maps of these numbers at the places. 0, or a negative error number.
int putMaps(int descriptor, const std::vector<std::uint32_t>& places,
            const std::vector<int>& numbers) {
  auto count = static_cast<std::uint32_t>(places.size());
  const int error =
      bpf_map_update_batch(descriptor, places.data(), numbers.data(), &count, nullptr);
  if (!isBatchUnknown(error)) return error;
  for (std::size_t i = 0; i < places.size(); ++i) {
    const int refused = bpf_map_update_elem(descriptor, &places[i], &numbers[i], BPF_ANY);
    if (refused != 0) return refused;
  }
  return 0;
}

/// A map of the interfaces, or a negative error number.
int makeMap(const Members& members) {
  const auto size = static_cast<std::uint32_t>(members.size());
  const int map = outOfTheWay(bpf_map_create(BPF_MAP_TYPE_DEVMAP, "members", sizeof(std::uint32_t),
                                             sizeof(std::uint32_t), size, nullptr));
  if (map < 0) return map;
  std::uint32_t place = 0;
  for (const Member& member : members) {
    const int error = bpf_map_update_elem(map, &place, &member.interface, BPF_ANY);
    // So it answers for interfaces that are not there, which another notice is about.
    if (error == -EINVAL) continue;
    if (error != 0) {
      close(map);
      return error;
    }
    ++place;
  }
  return map;
}

}  // namespace

Memberships::Memberships(int descriptor, std::uint32_t places) : descriptor_(descriptor) {
  for (std::uint32_t place = places - 1; place > 0; --place) {
    free_.push_back(static_cast<std::uint16_t>(place));
  }
}

int Memberships::add(const std::set<Members>& wanted) {
  std::vector<const Members*> missing;
  for (const Members& members : wanted) {
    if (!members.empty() && !places_.contains(members)) missing.push_back(&members);
  }
  // The program runs within a read-side section of RCU, whose end the command waits for.
  if (missing.size() > free_.size() && syscall(SYS_membarrier, MEMBARRIER_CMD_GLOBAL, 0, 0) == 0) {
    reuseRetired();
  }
  if (missing.size() > free_.size()) return -ENOSPC;
  for (std::size_t begin = 0; begin < missing.size(); begin += largestBatch) {
    const std::size_t end = std::min(missing.size(), begin + largestBatch);
    std::vector<Descriptor> maps;
    std::vector<int> numbers;
    std::vector<std::uint32_t> places;
    for (std::size_t i = begin; i < end; ++i) {
      const int map = makeMap(*missing[i]);
      if (map < 0) return map;
      maps.emplace_back(map);
      numbers.push_back(map);
      places.push_back(free_[free_.size() - 1 - places.size()]);
    }
    if (const int error = putMaps(descriptor_, places, numbers); error != 0) return error;
    for (std::size_t i = begin; i < end; ++i) {
      places_.emplace(*missing[i], free_.back());
      free_.pop_back();
    }
    reuseRetired();
  }
  return 0;
}

void Memberships::reuseRetired() {
  free_.insert(free_.end(), retired_.begin(), retired_.end());
  retired_.clear();
}

std::uint16_t Memberships::placeOf(const Members& members) const {
  return members.empty() ? std::uint16_t{0} : places_.at(members);
}

void Memberships::keepOnly(const std::set<Members>& wanted) {
  std::erase_if(places_, [&](const auto& known) {
    const auto& [members, place] = known;
    if (wanted.contains(members)) return false;
    retired_.push_back(place);
    return true;
  });
}

}  // namespace classifier::xdp
