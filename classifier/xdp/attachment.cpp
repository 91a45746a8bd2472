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
  if (!isTaken(error)) {
    std::string text = std::string("the program cannot be attached: ") + strerror(-error);
    if (options.mode == Mode::native) {
      text +=
          "; its driver may have no native mode, or none for an MTU as large as this interface or "
          "the far end of a virtual cable has: make that smaller, or have mode \"auto\"";
    }
    return {text};
  }
  if (!options.replacesOthers) {
    return {"another XDP program is there; it gives way only with \"replace = true\""};
  }
  return {"another XDP program is there and cannot be removed: it belongs to a link of its owner"};
}

/// The mode in which the link has its program on the interface; nothing if it has none there.
std::optional<Mode> modeOf(const Hold& link, std::uint32_t interface) {
  if (link.interface(BPF_LINK_TYPE_XDP) != interface) return std::nullopt;
  bpf_xdp_query_opts found{};
  found.sz = sizeof found;
  if (bpf_xdp_query(static_cast<int>(interface), 0, &found) != 0) return std::nullopt;
  const std::uint32_t program = link.program();
  if (found.drv_prog_id == program) return Mode::native;
  if (found.skb_prog_id == program) return Mode::generic;
  return std::nullopt;
}

}  // namespace

const char* text(Mode mode) { return mode == Mode::native ? "native" : "generic"; }

std::optional<Mode> Attachment::keptMode(const std::string& file, std::uint32_t interface) {
  Hold link = holdOf(file);
  link.leave();
  return modeOf(link, interface);
}

// Dots are not for names in that file system.
std::string Attachment::filterFile(const std::string& file) {
  return file.empty() ? std::string() : file + "-filter";
}

bool Attachment::keepsNothing(const std::string& file) {
  Hold link = holdOf(file);
  link.leave();
  return link.link() >= 0 && !link.isAttached();
}

int Attachment::removeKept(const std::string& file) {
  {
    const Hold link = holdOf(file);
    const std::uint32_t interface = link.interface(BPF_LINK_TYPE_XDP);
    if (interface != 0) Filter::removeUnlinked(interface);
  }
  return unlink(file.c_str()) == 0 || errno == ENOENT ? 0 : -errno;
}

std::optional<Attachment> Attachment::takeOver(const Programs& programs, std::uint32_t interface,
                                               const Options& options) {
  Hold link = holdOf(options.file);
  if (modeOf(link, interface) != options.mode) return std::nullopt;
  auto filter = Filter::make(programs.keep, interface, filterFile(options.file));
  if (std::holds_alternative<int>(filter)) return std::nullopt;
  Attachment taken(std::get<Filter>(std::move(filter)), std::move(link), options.mode);
  if (bpf_link_update(taken.link_.link(), programs.classify, nullptr) != 0) return std::nullopt;
  taken.keepIn(options.file);
  return taken;
}

std::variant<Attachment, Problem> Attachment::make(const Programs& programs,
                                                   std::uint32_t interface,
                                                   const Options& options) {
  if (!options.file.empty()) {
    if (auto taken = takeOver(programs, interface, options)) return std::move(*taken);
  }
  // First, so that it is there before a frame is marked.
  auto filter = Filter::make(programs.keep, interface, filterFile(options.file));
  if (const int* error = std::get_if<int>(&filter)) {
    return Problem{std::string("the filter behind packet sockets cannot be attached: ") +
                   strerror(-*error)};
  }
  int link = createLink(programs.classify, interface, options.mode);
  if (isTaken(link) && options.replacesOthers && removeOthers(interface) == 0) {
    link = createLink(programs.classify, interface, options.mode);
  }
  if (link < 0) return problem(link, options);
  Attachment made(std::get<Filter>(std::move(filter)), Hold(link), options.mode);
  made.keepIn(options.file);
  return made;
}

Attachment::Attachment(Filter filter, Hold link, Mode mode)
    : filter_(std::move(filter)), link_(std::move(link)), mode_(mode) {}

// The kernel does not have programs in both modes, and taking the filter away for so long would
// have it wait.
std::optional<Problem> Attachment::changeMode(const Programs& programs, std::uint32_t interface,
                                              const Options& options) {
  link_ = Hold();
  const int link = createLink(programs.classify, interface, options.mode);
  if (link < 0) return problem(link, options);
  link_ = Hold(link);
  mode_ = options.mode;
  keepIn(options.file);
  return std::nullopt;
}

bool Attachment::isOn(std::uint32_t interface) const {
  return link_.interface(BPF_LINK_TYPE_XDP) == interface && filter_.isOn(interface);
}

// The filter first: should the process end in between, no frame is marked without it.
void Attachment::keepIn(const std::string& file) {
  if (file.empty()) return;
  int error = filter_.keepIn(filterFile(file));
  if (error == 0) error = link_.keepIn(file);
  keepingProblem_ = error != 0 ? file + ": " + strerror(-error) : std::string();
}

void Attachment::keep() {
  if (!keepingProblem_.empty()) return;
  filter_.leave();
  link_.leave();
}

}  // namespace classifier::xdp
