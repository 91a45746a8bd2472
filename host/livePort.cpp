#include "host/livePort.h"

#include <utility>

#include "classifier/xdp/netlink.h"
#include "host/log.h"

using classifier::xdp::Mode;

void LivePort::noteAttached() {
  hostlog::information("xdp", "port {}, {}: attached in {} mode", number, wanted.interface,
                       text(attachment->mode()));
  noteKeeping();
}

void LivePort::noteKeeping() {
  const std::string& now = attachment->keepingProblem();
  if (now != keepingProblem && !now.empty()) {
    hostlog::warning("xdp", "port {}, {}: its program ends with the daemon: {}", number,
                     wanted.interface, now);
  }
  keepingProblem = now;
}

void LivePort::noteHiddenTags() {
  const auto mode = attachment ? std::optional(attachment->mode()) : std::nullopt;
  if (std::exchange(notedMode, mode) == mode || !mode) return;
  if (!classifier::xdp::hidesTags(wanted.interface)) return;
  hostlog::information(
      "xdp",
      "port {}, {}: takes tags from frames where it can, and frames that arrive so count as "
      "untagged{}; see l2cpd.toml(5)",
      number, wanted.interface, mode == Mode::native ? " and are tunnelled without their tag" : "");
}
