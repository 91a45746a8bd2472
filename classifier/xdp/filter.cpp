#include "classifier/xdp/filter.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <linux/bpf.h>

#include <cerrno>
#include <utility>

namespace classifier::xdp {

namespace {

// linux/bpf.h of Linux 6.6, which is younger than the headers that this has to build with.
constexpr std::uint32_t linkType = 11;           // BPF_LINK_TYPE_TCX
constexpr int attachType = 46;                   // BPF_TCX_INGRESS
constexpr std::uint32_t beforeOthers = 1U << 3;  // BPF_F_BEFORE

// Where it has no link: its place among others of the interface.
constexpr std::uint32_t handle = 1;
constexpr std::uint32_t priority = 0x4c32;

/// Another program in front could let a marked frame pass to the bridge.
int createLink(int program, std::uint32_t interface) {
  bpf_link_create_opts options{};
  options.sz = sizeof options;
  options.flags = beforeOthers;
  return bpf_link_create(program, static_cast<int>(interface),
                         static_cast<bpf_attach_type>(attachType), &options);
}

bpf_tc_hook hookOf(std::uint32_t interface) {
  bpf_tc_hook hook{};
  hook.sz = sizeof hook;
  hook.ifindex = static_cast<int>(interface);
  hook.attach_point = BPF_TC_INGRESS;
  return hook;
}

bpf_tc_opts place() {
  bpf_tc_opts options{};
  options.sz = sizeof options;
  options.handle = handle;
  options.priority = priority;
  return options;
}

int addUnlinked(int program, std::uint32_t interface) {
  bpf_tc_hook hook = hookOf(interface);
  const int error = bpf_tc_hook_create(&hook);
  if (error != 0 && error != -EEXIST) return error;
  bpf_tc_opts options = place();
  options.prog_fd = program;
  options.flags = BPF_TC_F_REPLACE;
  return bpf_tc_attach(&hook, &options);
}

}  // namespace

std::variant<Filter, int> Filter::make(int program, std::uint32_t interface,
                                       const std::string& file) {
  Filter made;
  if (!file.empty()) {
    Hold kept = holdOf(file);
    if (kept.interface(linkType) == interface &&
        bpf_link_update(kept.link(), program, nullptr) == 0) {
      made.link_ = std::move(kept);
      return made;
    }
  }
  made.link_ = Hold(createLink(program, interface));
  if (made.link_.link() >= 0) {
    removeUnlinked(interface);
    return made;
  }
  if (const int error = addUnlinked(program, interface); error != 0) return error;
  made.unlinked_ = interface;
  return made;
}

// The hook stays: others may use it. Where the interface has gone there is nothing to remove.
void Filter::removeUnlinked(std::uint32_t interface) {
  const bpf_tc_hook hook = hookOf(interface);
  const bpf_tc_opts options = place();
  bpf_tc_detach(&hook, &options);
}

Filter::~Filter() {
  if (unlinked_ != 0) removeUnlinked(unlinked_);
}

Filter::Filter(Filter&& other) noexcept
    : link_(std::move(other.link_)), unlinked_(std::exchange(other.unlinked_, 0)) {}

Filter& Filter::operator=(Filter&& other) noexcept {
  std::swap(link_, other.link_);
  std::swap(unlinked_, other.unlinked_);
  return *this;
}

bool Filter::isOn(std::uint32_t interface) const {
  if (unlinked_ == 0) return link_.interface(linkType) == interface;
  const bpf_tc_hook hook = hookOf(unlinked_);
  bpf_tc_opts options = place();
  return unlinked_ == interface && bpf_tc_query(&hook, &options) == 0;
}

int Filter::keepIn(const std::string& file) { return unlinked_ != 0 ? 0 : link_.keepIn(file); }

void Filter::leave() {
  link_.leave();
  unlinked_ = 0;
}

}  // namespace classifier::xdp
