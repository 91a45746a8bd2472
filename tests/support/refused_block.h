#pragma once

/// A `malloc` that can be told to refuse blocks of one size. Linking it replaces the function for
/// the whole test program, but for sanitizers, which bring an allocator of their own.

#include <cstddef>

namespace support {

#ifdef L2CP_SANITIZED
inline constexpr bool ownMalloc = false;
#else
inline constexpr bool ownMalloc = true;
#endif

/// The size of a block that is not to be had, 0 for none.
extern std::size_t refusedBlock;
/// Called before a block is refused, if it is set. Blocks that it asks for are granted.
extern void (*beforeRefusal)();

}  // namespace support
