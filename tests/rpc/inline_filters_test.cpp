// The filters that generated sources are compiled with, each against the RPC library's own.

#include <gtest/gtest.h>
#include <rpc/rpc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "rpc/inline_filters.h"
#include "tests/support/xdr_bytes.h"

namespace {

using support::readable;
using support::XdrBytes;

struct MacField {
  u_char* bytes;
  u_int count;
};

/// Both filters of a field. A name in parentheses is the library's.
template <class Field>
struct Pair {
  bool_t (*library)(XDR*, Field*);
  bool_t (*ours)(XDR*, Field*);
};

template <class Field>
bool_t freed(bool_t (*filter)(XDR*, Field*), Field& field) {
  XDR xdr{};
  xdr.x_op = XDR_FREE;
  return filter(&xdr, &field);
}

template <class Field>
std::string shown(const Field& field) {
  return std::to_string(field);
}
std::string shown(char* const& text) { return text == nullptr ? "none" : "'" + std::string(text); }
std::string shown(const MacField& mac) {
  std::string text = std::to_string(mac.count) + ":";
  if (mac.bytes == nullptr) return text + "none";
  return text + readable({reinterpret_cast<const char*>(mac.bytes), mac.count});
}

/// A record stream over memory. It reads a few bytes at a time and writes short fragments, so that
/// fields meet the ends of both.
class Record {
 public:
  explicit Record(xdr_op operation, std::string bytes = {}, std::size_t readAtOnce = 0)
      : bytes_(std::move(bytes)), readAtOnce_(readAtOnce) {
    constexpr u_int smallestBuffer = 100;
    xdrrec_create(&xdr_, smallestBuffer, smallestBuffer, this, read, write);
    xdr_.x_op = operation;
    if (operation == XDR_DECODE) xdrrec_skiprecord(&xdr_);
  }
  ~Record() { xdr_destroy(&xdr_); }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  XDR* xdr() { return &xdr_; }
  /// The record put together again: where its fragments end may differ.
  std::string written() {
    xdrrec_endofrecord(&xdr_, TRUE);
    std::string record;
    for (std::size_t next = 0; next < bytes_.size();) {
      std::uint32_t header = 0;
      std::memcpy(&header, bytes_.data() + next, sizeof(header));
      const std::size_t size = ntohl(header) & 0x7fffffffU;
      record += bytes_.substr(next + sizeof(header), size);
      next += sizeof(header) + size;
    }
    return record;
  }

 private:
  static int read(void* self, void* buffer, int size) {
    auto& record = *static_cast<Record*>(self);
    const std::size_t count = std::min({static_cast<std::size_t>(size), record.readAtOnce_,
                                        record.bytes_.size() - record.readFrom_});
    if (count == 0) return -1;
    std::memcpy(buffer, record.bytes_.data() + record.readFrom_, count);
    record.readFrom_ += count;
    return static_cast<int>(count);
  }
  static int write(void* self, void* buffer, int size) {
    static_cast<Record*>(self)->bytes_.append(static_cast<char*>(buffer),
                                              static_cast<std::size_t>(size));
    return size;
  }

  XDR xdr_{};
  std::string bytes_;
  std::size_t readFrom_ = 0;
  std::size_t readAtOnce_;
};

/// Result, bytes and position of encoding into so many bytes of memory.
template <class Field>
std::string encoded(bool_t (*filter)(XDR*, Field*), Field field, std::size_t room) {
  std::string bytes(room, '\xee');
  XDR xdr{};
  xdrmem_create(&xdr, bytes.data(), static_cast<u_int>(room), XDR_ENCODE);
  const bool_t result = filter(&xdr, &field);
  return std::to_string(result) + "@" + std::to_string(xdr_getpos(&xdr)) + " " + readable(bytes);
}

/// Result, position and field of decoding bytes into an empty field.
template <class Field>
std::string decoded(bool_t (*filter)(XDR*, Field*), std::string bytes) {
  XDR xdr{};
  xdrmem_create(&xdr, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  Field field{};
  const bool_t result = filter(&xdr, &field);
  std::string all =
      std::to_string(result) + "@" + std::to_string(xdr_getpos(&xdr)) + " " + shown(field);
  EXPECT_TRUE(freed(filter, field));
  return all + " then " + shown(field);
}

/// A record of the field behind so many words.
template <class Field>
std::string recorded(bool_t (*filter)(XDR*, Field*), Field field, int words) {
  Record record(XDR_ENCODE);
  u_int word = 7;
  for (int i = 0; i < words; ++i) EXPECT_TRUE((xdr_u_int)(record.xdr(), &word));
  const bool_t result = filter(record.xdr(), &field);
  return std::to_string(result) + " " + readable(record.written());
}

template <class Field>
std::string readBack(bool_t (*filter)(XDR*, Field*), const std::string& bytes, int words,
                     std::size_t atOnce) {
  Record record(XDR_DECODE, bytes, atOnce);
  u_int word = 0;
  for (int i = 0; i < words; ++i) EXPECT_TRUE((xdr_u_int)(record.xdr(), &word));
  Field field{};
  const bool_t result = filter(record.xdr(), &field);
  std::string all = std::to_string(result) + " " + shown(field);
  freed(filter, field);
  return all;
}

template <class Field>
void expectAlikeEncoded(Pair<Field> filters, Field field) {
  for (std::size_t room = 0; room <= 60; ++room) {
    EXPECT_EQ(encoded(filters.ours, field, room), encoded(filters.library, field, room)) << room;
  }
  for (int words = 0; words < 30; ++words) {
    EXPECT_EQ(recorded(filters.ours, field, words), recorded(filters.library, field, words))
        << words;
  }
}

template <class Field>
void expectAlikeDecoded(Pair<Field> filters, const XdrBytes& bytes) {
  for (std::size_t size = 0; size <= bytes.str().size(); ++size) {
    const std::string cut = XdrBytes(bytes).cutTo(size).str();
    EXPECT_EQ(decoded(filters.ours, cut), decoded(filters.library, cut)) << size;
    for (int words = 0; words < 30; words += 5) {
      XdrBytes record;
      record.word(0x80000000U |
                  static_cast<std::uint32_t>(static_cast<std::size_t>(words) * 4 + size));
      for (int i = 0; i < words; ++i) record.word(7);
      record.raw(cut);
      for (const std::size_t atOnce : {std::size_t{5}, std::size_t{28}, std::size_t{100}}) {
        EXPECT_EQ(readBack(filters.ours, record.str(), words, atOnce),
                  readBack(filters.library, record.str(), words, atOnce))
            << size << " bytes behind " << words << " words, " << atOnce << " at once";
      }
    }
  }
}

template <class Field>
void expectWordsAlike(Pair<Field> filters) {
  for (const std::uint32_t word : {0U, 1U, 2U, 0x7fU, 0x80U, 0xffU, 0x100U, 0x8000U, 0xffffU,
                                   0x10000U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
    expectAlikeEncoded(filters, static_cast<Field>(word));
    expectAlikeDecoded(filters, XdrBytes().word(word));
  }
}

constexpr u_int textBound = 33;
constexpr Pair<char*> texts{
    .library = [](XDR* xdr, char** text) { return (xdr_string)(xdr, text, textBound); },
    .ours = [](XDR* xdr, char** text) { return xdr_string(xdr, text, textBound); }};

constexpr Pair<char*> unboundTexts{
    .library = [](XDR* xdr, char** text) { return (xdr_string)(xdr, text, ~0U); },
    .ours = [](XDR* xdr, char** text) { return xdr_string(xdr, text, ~0U); }};

xdrproc_t byteFilter() { return reinterpret_cast<xdrproc_t>(xdr_u_char); }
char** bytesOf(MacField* mac) { return reinterpret_cast<char**>(&mac->bytes); }
constexpr Pair<MacField> macs{
    .library =
        [](XDR* xdr, MacField* mac) {
          return (xdr_array)(xdr, bytesOf(mac), &mac->count, 6, 1, byteFilter());
        },
    .ours =
        [](XDR* xdr, MacField* mac) {
          return xdr_array(xdr, bytesOf(mac), &mac->count, 6, 1, byteFilter());
        }};

TEST(InlineFilters, NumbersAreThoseOfTheLibrary) {
  expectWordsAlike<u_int>({(xdr_u_int), inline_xdr_u_int});
  expectWordsAlike<u_short>({(xdr_u_short), inline_xdr_u_short});
  expectWordsAlike<u_char>({(xdr_u_char), inline_xdr_u_char});
  expectWordsAlike<enum_t>({(xdr_enum), inline_xdr_enum});
  expectWordsAlike<bool_t>({(xdr_bool), inline_xdr_bool});
}

TEST(InlineFilters, EncodedTextsAreThoseOfTheLibrary) {
  for (const std::size_t size : {0U, 1U, 3U, 4U, 5U, 32U, 33U, 34U}) {
    std::string text(size, 't');
    expectAlikeEncoded(texts, text.data());
  }
}

TEST(InlineFilters, AnAbsentTextIsRefusedAndFreed) {
  // The library does so, too, but the sanitizers' version of its filter reads the text first.
  char* none = nullptr;
  EXPECT_EQ(encoded(texts.ours, none, 4), "0@0 eeeeeeee");
  EXPECT_TRUE(freed(texts.ours, none));
}

TEST(InlineFilters, DecodedTextsAreThoseOfTheLibrary) {
  for (const std::size_t size : {0U, 1U, 3U, 4U, 5U, 33U, 34U}) {
    expectAlikeDecoded(texts, XdrBytes().text(std::string(size, 't')).word(7));
  }
  expectAlikeDecoded(texts, XdrBytes().text(std::string("a\0b", 3)));
  expectAlikeDecoded(texts, XdrBytes().word(0xffffffff).word(7));
  expectAlikeDecoded(unboundTexts, XdrBytes().word(0xffffffff).word(7));
}

TEST(InlineFilters, ALongTextIsThatOfTheLibrary) {
  std::string text(100'000, 't');
  EXPECT_EQ(encoded(unboundTexts.ours, text.data(), 100'100),
            encoded(unboundTexts.library, text.data(), 100'100));
  const std::string bytes = XdrBytes().text(text).str();
  EXPECT_EQ(decoded(unboundTexts.ours, bytes), decoded(unboundTexts.library, bytes));
}

TEST(InlineFilters, ATextIsDecodedIntoTheMemoryThatIsThere) {
  std::string bytes = XdrBytes().text("LLDP").str();
  char memory[] = "something else";
  char* text = memory;
  XDR xdr{};
  xdrmem_create(&xdr, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  EXPECT_TRUE(texts.ours(&xdr, &text));
  EXPECT_EQ(text, memory);
  EXPECT_STREQ(memory, "LLDP");
}

TEST(InlineFilters, ByteArraysAreThoseOfTheLibrary) {
  u_char bytes[] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0xff, 0x07};
  for (u_int count = 0; count <= 7; ++count) {
    expectAlikeEncoded(macs, MacField{.bytes = bytes, .count = count});
    XdrBytes wire;
    wire.word(count);
    for (u_int i = 0; i < count; ++i) wire.word(0x100U + bytes[i]);
    expectAlikeDecoded(macs, wire.word(7));
  }
  expectAlikeDecoded(macs, XdrBytes().words({0xffffffff, 1, 2, 3}));
}

TEST(InlineFilters, ByteArrayIsDecodedIntoTheMemoryThatIsThere) {
  std::string bytes = XdrBytes().words({2, 0x81, 0x82}).str();
  u_char memory[6] = {};
  MacField mac{.bytes = memory, .count = 0};
  XDR xdr{};
  xdrmem_create(&xdr, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  EXPECT_TRUE(macs.ours(&xdr, &mac));
  EXPECT_EQ(mac.bytes, memory);
  EXPECT_EQ(shown(mac), "2:8182");
}

}  // namespace
