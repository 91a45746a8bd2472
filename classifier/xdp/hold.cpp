#include "classifier/xdp/hold.h"

#include <bpf/bpf.h>
#include <fcntl.h>
#include <linux/bpf.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <utility>

namespace classifier::xdp {

namespace {

bpf_link_info infoOf(int link) {
  bpf_link_info info{};
  std::uint32_t size = sizeof info;
  if (link < 0 || bpf_obj_get_info_by_fd(link, &info, &size) != 0) return {};
  return info;
}

}  // namespace

Hold::Hold(int link, std::string file) : link_(outOfTheWay(link)), file_(std::move(file)) {}

Hold::Hold(Hold&& other) noexcept
    : link_(std::exchange(other.link_, -1)),
      file_(std::move(other.file_)),
      isLeft_(other.isLeft_) {}

Hold& Hold::operator=(Hold&& other) noexcept {
  if (this == &other) return *this;
  end();
  link_ = std::exchange(other.link_, -1);
  file_ = std::move(other.file_);
  isLeft_ = other.isLeft_;
  return *this;
}

// Links of all types that are on an interface say its number in the same place.
std::uint32_t Hold::interface(std::uint32_t type) const {
  const bpf_link_info info = infoOf(link_);
  return info.type == type ? info.xdp.ifindex : 0;
}

bool Hold::isAttached() const { return infoOf(link_).xdp.ifindex != 0; }

std::uint32_t Hold::program() const { return infoOf(link_).prog_id; }

int Hold::keepIn(const std::string& file) {
  if (file == file_ && access(file.c_str(), F_OK) == 0) return 0;
  unlink(file.c_str());
  const int error = bpf_obj_pin(link_, file.c_str());
  file_ = error == 0 ? file : std::string();
  return error;
}

void Hold::end() {
  if (link_ < 0) return;
  if (!isLeft_ || file_.empty()) {
    // Closing it would do that, too, but some time later.
    bpf_link_detach(link_);
    if (!file_.empty()) unlink(file_.c_str());
  }
  close(std::exchange(link_, -1));
}

Hold holdOf(const std::string& file) { return Hold(bpf_obj_get(file.c_str()), file); }

// The process's limit is raised for that alone.
int outOfTheWay(int descriptor) {
  if (descriptor < 0) return descriptor;
  rlimit limit{};
  const bool isKnown = getrlimit(RLIMIT_NOFILE, &limit) == 0;
  if (isKnown) {
    const rlimit raised{.rlim_cur = limit.rlim_max, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &raised);
  }
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, FD_SETSIZE);
  if (isKnown) setrlimit(RLIMIT_NOFILE, &limit);
  if (moved < 0) return descriptor;
  close(descriptor);
  return moved;
}

}  // namespace classifier::xdp
