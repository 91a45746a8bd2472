#pragma once

/// XDR (RFC 4506) written out by hand.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace support {

class XdrBytes {
 public:
  XdrBytes& word(std::uint32_t value) {
    for (const int shift : {24, 16, 8, 0}) bytes_ += static_cast<char>(value >> shift & 0xff);
    return *this;
  }
  XdrBytes& words(std::initializer_list<std::uint32_t> values) {
    for (const std::uint32_t value : values) word(value);
    return *this;
  }
  /// A counted text with its padding.
  XdrBytes& text(std::string_view text) {
    word(static_cast<std::uint32_t>(text.size()));
    bytes_ += text;
    bytes_.append((4 - text.size() % 4) % 4, '\0');
    return *this;
  }
  XdrBytes& raw(std::string_view bytes) {
    bytes_ += bytes;
    return *this;
  }
  XdrBytes& cutTo(std::size_t size) {
    bytes_.resize(size);
    return *this;
  }

  const std::string& str() const { return bytes_; }

 private:
  std::string bytes_;
};

/// Bytes in hexadecimal digits, word by word, for messages.
inline std::string readable(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0 && i % 4 == 0) text += ' ';
    const auto byte = static_cast<unsigned char>(bytes[i]);
    text += digits[byte >> 4U];
    text += digits[byte & 0xfU];
  }
  return text;
}

}  // namespace support
