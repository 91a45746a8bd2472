#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Writes a full name into a buffer and cuts what does not fit, as snprintf does. Attaching a
/// profile takes a hundred names, which is why this is not snprintf. Every piece leaves the buffer
/// with a NUL behind it.
class FullName {
 public:
  template <std::size_t Size>
  explicit FullName(char (&buffer)[Size]) : buffer_(buffer), room_(Size - 1) {
    buffer_[0] = '\0';
  }

  FullName& text(std::string_view piece) {
    const std::size_t count = std::min(piece.size(), room_);
    buffer_ = std::copy_n(piece.data(), count, buffer_);
    room_ -= count;
    *buffer_ = '\0';
    return *this;
  }

  /// "%d"
  FullName& decimal(int number) {
    char digits[12];
    return text({digits, std::to_chars(digits, digits + sizeof(digits), number).ptr});
  }

  /// "%0<width>x"
  FullName& hexadecimal(unsigned int number, std::size_t width) {
    char digits[8];
    const char* end = std::to_chars(digits, digits + sizeof(digits), number, 16).ptr;
    const auto count = static_cast<std::size_t>(end - digits);
    if (count < width) text(std::string_view("00000000", width - count));
    return text({digits, count});
  }

  /// The mask of a counter's name: "%s" or "%d" stands for `of`, the "%s" behind it for `suffix`.
  template <class NameOrNumber>
  FullName& masked(std::string_view mask, const NameOrNumber& of, std::string_view suffix) {
    const std::size_t first = mask.find('%');
    const std::size_t second = mask.find('%', first + 1);
    text(mask.substr(0, first));
    append(of);
    text(mask.substr(first + 2, second - first - 2));
    text(suffix);
    return text(mask.substr(second + 2));
  }

 private:
  void append(std::string_view name) { text(name); }
  void append(int number) { decimal(number); }

  char* buffer_;
  std::size_t room_;
};
