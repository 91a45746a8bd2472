#include "tests/support/refused_block.h"

#include <cerrno>
#include <cstdlib>

std::size_t support::refusedBlock = 0;
void (*support::beforeRefusal)() = nullptr;

#ifndef L2CP_SANITIZED
// The C library's own allocator, under the name that it keeps for programs like this one.
extern "C" void* libcMalloc(std::size_t size) asm("__libc_malloc");

extern "C" void* malloc(std::size_t size) noexcept {
  if (size != 0 && size == support::refusedBlock) {
    if (support::beforeRefusal != nullptr) {
      support::refusedBlock = 0;
      support::beforeRefusal();
      support::refusedBlock = size;
    }
    errno = ENOMEM;
    return nullptr;
  }
  return libcMalloc(size);
}
#endif
