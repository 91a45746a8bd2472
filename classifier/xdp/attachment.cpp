#include "classifier/xdp/attachment.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <linux/if_link.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace classifier::xdp {

namespace {

std::uint32_t flagOf(Mode mode) {
  return mode == Mode::native ? XDP_FLAGS_DRV_MODE : XDP_FLAGS_SKB_MODE;
}

/// Removes whatever program is there. Those that a link holds go with their owner alone.
int removeOthers(std::uint32_t interface) {
  const int number = static_cast<int>(interface);
  bpf_xdp_query_opts found{};
  found.sz = sizeof found;
  if (const int error = bpf_xdp_query(number, 0, &found); error != 0) return error;
  for (const auto& [program, flag] : {std::pair(found.drv_prog_id, XDP_FLAGS_DRV_MODE),
                                      std::pair(found.skb_prog_id, XDP_FLAGS_SKB_MODE)}) {
    if (program == 0) continue;
    if (const int error = bpf_xdp_detach(number, flag, nullptr); error != 0) return error;
  }
  return 0;
}

int createLink(int program, std::uint32_t interface, Mode mode) {
  bpf_link_create_opts options{};
  options.sz = sizeof options;
  options.flags = flagOf(mode);
  return bpf_link_create(program, static_cast<int>(interface), BPF_XDP, &options);
}

bool isTaken(int error) { return error == -EBUSY || error == -EEXIST; }

Problem problem(int error, const Attachment::Options& options) {
  if (!isTaken(error)) return {std::string("the program cannot be attached: ") + strerror(-error)};
  if (!options.replacesOthers) {
    return {"another XDP program is there; it gives way only with \"replace = true\""};
  }
  return {"another XDP program is there and cannot be removed: it belongs to a link of its owner"};
}

/// The mode in which the link has its program on the interface; nothing if it has none there.
std::optional<Mode> modeOf(int link, std::uint32_t interface) {
  bpf_link_info info{};
  std::uint32_t size = sizeof info;
  if (bpf_obj_get_info_by_fd(link, &info, &size) != 0 || info.type != BPF_LINK_TYPE_XDP ||
      info.xdp.ifindex != interface) {
    return std::nullopt;
  }
  bpf_xdp_query_opts found{};
  found.sz = sizeof found;
  if (bpf_xdp_query(static_cast<int>(interface), 0, &found) != 0) return std::nullopt;
  if (found.drv_prog_id == info.prog_id) return Mode::native;
  if (found.skb_prog_id == info.prog_id) return Mode::generic;
  return std::nullopt;
}

// The filter's place among others of the interface.
constexpr std::uint32_t filterHandle = 1;
constexpr std::uint32_t filterPriority = 0x4c32;

int addFilter(int program, std::uint32_t interface) {
  bpf_tc_hook hook{};
  hook.sz = sizeof hook;
  hook.ifindex = static_cast<int>(interface);
  hook.attach_point = BPF_TC_INGRESS;
  const int error = bpf_tc_hook_create(&hook);
  if (error != 0 && error != -EEXIST) return error;
  bpf_tc_opts options{};
  options.sz = sizeof options;
  options.prog_fd = program;
  options.flags = BPF_TC_F_REPLACE;
  options.handle = filterHandle;
  options.priority = filterPriority;
  return bpf_tc_attach(&hook, &options);
}

// The hook stays: others may use it. Where the interface has gone there is nothing to remove.
void removeFilter(std::uint32_t interface) {
  bpf_tc_hook hook{};
  hook.sz = sizeof hook;
  hook.ifindex = static_cast<int>(interface);
  hook.attach_point = BPF_TC_INGRESS;
  bpf_tc_opts options{};
  options.sz = sizeof options;
  options.handle = filterHandle;
  options.priority = filterPriority;
  bpf_tc_detach(&hook, &options);
}

}  // namespace

const char* text(Mode mode) { return mode == Mode::native ? "native" : "generic"; }

std::optional<Mode> Attachment::keptMode(const std::string& file, std::uint32_t interface) {
  const int link = bpf_obj_get(file.c_str());
  if (link < 0) return std::nullopt;
  const auto mode = modeOf(link, interface);
  close(link);
  return mode;
}

bool Attachment::keepsNothing(const std::string& file) {
  const int link = bpf_obj_get(file.c_str());
  if (link < 0) return false;
  bpf_link_info info{};
  std::uint32_t size = sizeof info;
  const bool isKnown = bpf_obj_get_info_by_fd(link, &info, &size) == 0;
  close(link);
  return isKnown && info.type == BPF_LINK_TYPE_XDP && info.xdp.ifindex == 0;
}

int Attachment::removeKept(const std::string& file) {
  const int link = bpf_obj_get(file.c_str());
  if (link >= 0) {
    bpf_link_info info{};
    std::uint32_t size = sizeof info;
    const bool isKnown = bpf_obj_get_info_by_fd(link, &info, &size) == 0;
    bpf_link_detach(link);
    if (isKnown && info.type == BPF_LINK_TYPE_XDP && info.xdp.ifindex != 0) {
      removeFilter(info.xdp.ifindex);
    }
    close(link);
  }
  return unlink(file.c_str()) == 0 || errno == ENOENT ? 0 : -errno;
}

std::variant<Attachment, Problem> Attachment::make(const Programs& programs,
                                                   std::uint32_t interface,
                                                   const Options& options) {
  if (!options.file.empty()) {
    const int known = bpf_obj_get(options.file.c_str());
    if (known >= 0) {
      if (modeOf(known, interface) == options.mode && addFilter(programs.keep, interface) == 0 &&
          bpf_link_update(known, programs.classify, nullptr) == 0) {
        return Attachment(known, interface, options);
      }
      close(known);
      removeKept(options.file);
    }
  }
  // First, so that it is there before a frame is marked.
  if (const int error = addFilter(programs.keep, interface); error != 0) {
    return Problem{std::string("the filter behind packet sockets cannot be attached: ") +
                   strerror(-error)};
  }
  int link = createLink(programs.classify, interface, options.mode);
  if (isTaken(link) && options.replacesOthers && removeOthers(interface) == 0) {
    link = createLink(programs.classify, interface, options.mode);
  }
  if (link < 0) {
    removeFilter(interface);
    return problem(link, options);
  }
  Attachment made(link, interface, options);
  if (!options.file.empty()) {
    if (const int error = bpf_obj_pin(link, options.file.c_str()); error != 0) {
      return Problem{options.file + ": " + strerror(-error)};
    }
  }
  return made;
}

Attachment::Attachment(int link, std::uint32_t interface, const Options& options)
    : link_(link), interface_(interface), mode_(options.mode), file_(options.file) {}

Attachment::Attachment(Attachment&& other) noexcept
    : link_(std::exchange(other.link_, -1)),
      interface_(other.interface_),
      mode_(other.mode_),
      file_(std::move(other.file_)),
      isKept_(other.isKept_) {}

Attachment& Attachment::operator=(Attachment&& other) noexcept {
  if (this == &other) return *this;
  end();
  link_ = std::exchange(other.link_, -1);
  interface_ = other.interface_;
  mode_ = other.mode_;
  file_ = std::move(other.file_);
  isKept_ = other.isKept_;
  return *this;
}

Attachment::~Attachment() { end(); }

void Attachment::end() {
  if (link_ < 0) return;
  const bool stays = isKept_ && !file_.empty();
  if (!stays) {
    // Closing it would do that, too, but some time later.
    bpf_link_detach(link_);
    removeFilter(interface_);
    if (!file_.empty()) unlink(file_.c_str());
  }
  close(std::exchange(link_, -1));
}

}  // namespace classifier::xdp
