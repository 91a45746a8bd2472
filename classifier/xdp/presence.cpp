#include "classifier/xdp/presence.h"

#include <bpf/bpf.h>
#include <unistd.h>

#include "classifier/xdp/layout.h"

namespace classifier::xdp {

Presence::Presence()
    : map_(bpf_map_create(BPF_MAP_TYPE_DEVMAP_HASH, "present", sizeof(std::uint32_t),
                          sizeof(std::uint32_t), L2CP_PORTS, nullptr)) {}

Presence::~Presence() {
  if (map_ >= 0) close(map_);
}

// One that is not there now is not there later, either.
void Presence::add(std::uint32_t interface) {
  bpf_map_update_elem(map_, &interface, &interface, BPF_ANY);
}

void Presence::remove(std::uint32_t interface) { bpf_map_delete_elem(map_, &interface); }

bool Presence::has(std::uint32_t interface) const {
  std::uint32_t found = 0;
  return bpf_map_lookup_elem(map_, &interface, &found) == 0;
}

}  // namespace classifier::xdp
