#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// The short name of a name table's entry, "l2cp:%p", written once.
class ShortName {
 public:
  explicit ShortName(const void* entry) {
    constexpr std::string_view prefix = "l2cp:0x";
    char* const digits = std::copy(prefix.begin(), prefix.end(), text_);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the address is the name
    const auto address = reinterpret_cast<std::uintptr_t>(entry);
    char* const end = std::to_chars(digits, text_ + sizeof(text_) - 1, address, 16).ptr;
    size_ = static_cast<std::size_t>(end - text_) + 1;
  }

  /// Copies the text and its NUL.
  void copyTo(char* buffer) const {
    // Addresses mostly have twelve digits, and a copy whose size is known takes two moves.
    constexpr std::size_t usualSize = 20;
    std::memcpy(buffer, text_, size_ == usualSize ? usualSize : size_);
  }

 private:
  char text_[24] = {};
  std::size_t size_;
};
