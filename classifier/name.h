#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "platform/acl_ioctl.h"

namespace classifier {

/// The name of an object, in the zero-padded form in which records carry it. It is read, compared
/// and hashed a word at a time.
class Name {
 public:
  /// `text` is shorter than ACL_NAME_SIZE and holds no NUL.
  explicit Name(std::string_view text) { std::memcpy(words_.data(), text.data(), text.size()); }

  /// The name in a field of a record, or nothing when it does not end within the field. What stands
  /// behind its end is no part of it.
  static std::optional<Name> in(const char (&field)[ACL_NAME_SIZE]) {
    Name name;
    std::memcpy(name.words_.data(), field, sizeof(field));
    bool ended = false;
#pragma GCC unroll 5
    for (std::uint64_t& word : name.words_) {
      const std::uint64_t ends = nulBytes(word);
      word = ended ? 0 : ends == 0 ? word : word & bytesBefore(ends);
      ended |= ends != 0;
    }
    if (!ended) return std::nullopt;
    return name;
  }

  bool operator==(const Name& other) const { return same(other.words_); }
  bool empty() const { return words_[0] == 0; }
  std::string_view view() const { return reinterpret_cast<const char*>(words_.data()); }  // NOLINT
  void copyTo(char (&field)[ACL_NAME_SIZE]) const {
    std::memcpy(field, words_.data(), sizeof(field));
  }

  /// Whether the field holds the name and nothing but zeros behind it.
  bool fills(const char (&field)[ACL_NAME_SIZE]) const {
    Words words;
    std::memcpy(words.data(), field, sizeof(field));
    return same(words);
  }

  /// The upper bits are the good ones.
  std::uint64_t hash() const {
    // One product for each word, none of which waits for another.
    return words_[0] * 0x9e3779b97f4a7c15 + words_[1] * 0xbf58476d1ce4e5b9 +
           words_[2] * 0x94d049bb133111eb + words_[3] * 0xd6e8feb86659fd93 +
           words_[4] * 0xa0761d6478bd642f;
  }

 private:
  using Words = std::array<std::uint64_t, ACL_NAME_SIZE / sizeof(std::uint64_t)>;
  static_assert(sizeof(Words) == ACL_NAME_SIZE);

  Name() = default;

  bool same(const Words& words) const {
    std::uint64_t differing = 0;
#pragma GCC unroll 5
    for (std::size_t i = 0; i < words.size(); ++i) differing |= words_[i] ^ words[i];
    return differing == 0;
  }

  /// The uppermost bit of every byte that is zero.
  static std::uint64_t nulBytes(std::uint64_t word) {
    constexpr std::uint64_t lower = 0x7f7f7f7f7f7f7f7f;
    return ~(((word & lower) + lower) | word | lower);
  }
  /// All bits of the bytes that stand in memory before the first one of `nulBytes`.
  static std::uint64_t bytesBefore(std::uint64_t nulBytes) {
    if constexpr (std::endian::native == std::endian::little) {
      return (nulBytes & -nulBytes) / 0x80 - 1;
    } else {
      return ~(~std::uint64_t{0} >> (std::countl_zero(nulBytes)));
    }
  }

  Words words_{};
};

}  // namespace classifier
