/// The entrances to the classifier for a module that knows nothing but `br_open` and `ioctl`: this
/// library's `ioctl` stands before the C library's. Requests of the classifier's type on a
/// descriptor of `br_open` are answered in process, every other call goes to the kernel unchanged.

#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>

#include "classifier/table.h"
#include "platform/acl_ioctl.h"
#include "platform/br_open.h"

namespace {

/// The kernel's own default bound of descriptor numbers (fs.nr_open). Pages of the array that no
/// descriptor reaches take no memory.
constexpr std::size_t maxDescriptors = std::size_t{1} << 20;

/// The table that a descriptor was handed out for. An entry stays when the descriptor is closed,
/// which nobody tells us and asking the kernel would cost a system call per request. So only
/// requests of the classifier's own type are ever looked up here.
classifier::Table* tableOfDescriptor[maxDescriptors];

std::atomic_ref<classifier::Table*> tableSlot(std::size_t descriptor) {
  return std::atomic_ref<classifier::Table*>(tableOfDescriptor[descriptor]);
}

classifier::Table* findTable(int descriptor) {
  const auto number = static_cast<std::size_t>(descriptor);
  if (descriptor < 0 || number >= maxDescriptors) return nullptr;
  return tableSlot(number).load(std::memory_order_acquire);
}

int fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

/// Errors: EINVAL without a bridge name, ENOENT for a table other than "acl", EMFILE when the
/// descriptor's number would be 2^20 or above, ENOMEM, and those of eventfd(2).
extern "C" int br_open(const char* bridge, const char* table) {
  if (bridge == nullptr || *bridge == '\0' || table == nullptr) return fail(EINVAL);
  if (std::string_view(table) != "acl") return fail(ENOENT);
  classifier::Table* opened = nullptr;
  try {
    opened = &classifier::tableOf(bridge);
  } catch (const std::bad_alloc&) {
    return fail(ENOMEM);
  }

  // An event descriptor is the cheapest kind that takes a place in the process's descriptor table.
  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) return -1;
  if (static_cast<std::size_t>(descriptor) >= maxDescriptors) {
    close(descriptor);
    return fail(EMFILE);
  }
  tableSlot(static_cast<std::size_t>(descriptor)).store(opened, std::memory_order_release);
  return descriptor;
}

/// What the process finds as `ioctl`. Declared with the one further argument that all callers pass,
/// for a list of arguments would have to be laid out in memory first.
extern "C" int answerIoctl(int fd, unsigned long request, void* argument) noexcept asm("ioctl");

extern "C" int answerIoctl(int fd, unsigned long request, void* argument) noexcept {
  // The kernel, too, takes the code to be the lower 32 bits: callers may hold it in an int.
  const auto code = static_cast<std::uint32_t>(request);
  if (_IOC_TYPE(code) == _IOC_TYPE(ACL_ADD_SELECTOR)) {
    if (classifier::Table* table = findTable(fd)) {
      const int result = table->request(code, argument);
      return result < 0 ? fail(-result) : result;
    }
  }
  return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}
