#include "classifier/xdp/members.h"

#include <bpf/bpf.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>
#include <vector>

namespace classifier::xdp {

namespace {

/// After each update of the map of maps the kernel waits until no frame can meet the old map, so
/// many are done at once; but each takes a descriptor.
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

/// A map of the interfaces, or a negative error number.
int makeMap(const std::set<std::uint32_t>& interfaces) {
  const auto size = static_cast<std::uint32_t>(std::max<std::size_t>(1, interfaces.size()));
  const int map = bpf_map_create(BPF_MAP_TYPE_DEVMAP, "members", sizeof(std::uint32_t),
                                 sizeof(std::uint32_t), size, nullptr);
  if (map < 0) return map;
  std::uint32_t place = 0;
  for (const std::uint32_t interface : interfaces) {
    const int error = bpf_map_update_elem(map, &place, &interface, BPF_ANY);
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

// A VLAN whose map has been made keeps one: taking it out of the map of maps would have to be done
// and waited for one by one.
int Members::show(const Membership& wanted) {
  const auto wantedOf = [&](std::uint32_t vlan) -> const std::set<std::uint32_t>& {
    const auto named = wanted.find(vlan);
    return named != wanted.end() ? named->second : wanted.at(otherVlans);
  };
  std::set<std::uint32_t> changed;
  for (const auto& [vlan, interfaces] : wanted) {
    if (!shown_.contains(vlan)) changed.insert(vlan);
  }
  for (const auto& [vlan, interfaces] : shown_) {
    if (interfaces != wantedOf(vlan)) changed.insert(vlan);
  }
  while (!changed.empty()) {
    std::vector<Descriptor> maps;
    std::vector<std::uint32_t> vlans;
    std::vector<int> numbers;
    for (auto vlan = changed.begin(); vlan != changed.end() && maps.size() < largestBatch;
         vlan = changed.erase(vlan)) {
      const int map = makeMap(wantedOf(*vlan));
      if (map < 0) return map;
      maps.emplace_back(map);
      numbers.push_back(map);
      vlans.push_back(*vlan);
    }
    auto count = static_cast<std::uint32_t>(vlans.size());
    const int error =
        bpf_map_update_batch(descriptor_, vlans.data(), numbers.data(), &count, nullptr);
    if (error != 0) return error;
    for (const std::uint32_t vlan : vlans) shown_[vlan] = wantedOf(vlan);
  }
  return 0;
}

}  // namespace classifier::xdp
