#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string_view>

/// Writes a full name into a buffer and cuts what does not fit, as snprintf does. Attaching a
/// profile takes a hundred names, which is why this is not snprintf. Every piece leaves the buffer
/// with a NUL behind it.
class FullName {
 public:
  template <std::size_t Size>
  explicit FullName(char (&buffer)[Size])
      : begin_(buffer), next_(buffer), last_(buffer + Size - 1) {
    *next_ = '\0';
  }

  /// What has been written.
  std::string_view view() const { return {begin_, next_}; }

  FullName& text(std::string_view piece) {
    const auto room = static_cast<std::size_t>(last_ - next_);
    // Written as two copies, so that a piece of known size takes a move or two.
    next_ = piece.size() <= room ? std::copy_n(piece.data(), piece.size(), next_)
                                 : std::copy_n(piece.data(), room, next_);
    *next_ = '\0';
    return *this;
  }

  /// "%d"
  FullName& decimal(int number) {
    char digits[12] = {};
    const char* end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
    copyFew(digits, end);
    return *this;
  }

  /// "%0<Width>x" of a number that has at most that many digits.
  template <std::size_t Width>
  FullName& hexadecimal(unsigned int number) {
    char digits[Width];
    for (std::size_t i = Width; i-- != 0; number >>= 4U) {
      digits[i] = "0123456789abcdef"[number & 0xfU];
    }
    return text({digits, Width});
  }

  /// The mask of a counter's name: "%s" or "%d" stands for `of`, the "%s" behind it for `suffix`.
  template <class NameOrNumber>
  FullName& masked(const char* mask, const NameOrNumber& of, std::string_view suffix) {
    mask = untilConversion(mask);
    append(of);
    mask = untilConversion(mask);
    text(suffix);
    untilConversion(mask);
    return *this;
  }

 private:
  /// For pieces too short to be worth a call of memmove.
  void copyFew(const char* begin, const char* end) {
    char* to = next_;
    while (begin != end && to != last_) *to++ = *begin++;
    *to = '\0';
    next_ = to;
  }

  /// Copies the mask up to its next conversion and returns what stands behind that.
  const char* untilConversion(const char* mask) {
    const char* end = mask;
    while (*end != '\0' && *end != '%') ++end;
    copyFew(mask, end);
    return *end == '\0' ? end : end + 2;
  }

  void append(std::string_view name) { text(name); }
  void append(int number) { decimal(number); }

  const char* begin_;
  char* next_;
  char* last_;
};
