// The XDR filters of the server: every type against bytes written out by hand.

#include <gmock/gmock.h>
#include <rpc/rpc.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "rpc/l2cp.h"
#include "rpc/text_filter.h"
#include "tests/support/xdr_bytes.h"

namespace {

using Bytes = support::XdrBytes;
using support::readable;

template <class T>
using Filter = bool_t (*)(XDR*, T*);

class Stream {
 public:
  explicit Stream(std::size_t size) : bytes_(size, '\xee') { create(XDR_ENCODE); }
  explicit Stream(const std::string& bytes) : bytes_(bytes) { create(XDR_DECODE); }
  ~Stream() { xdr_destroy(&xdr_); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  XDR* xdr() { return &xdr_; }
  std::string written() { return bytes_.substr(0, xdr_getpos(&xdr_)); }
  std::size_t left() { return bytes_.size() - xdr_getpos(&xdr_); }

 private:
  void create(xdr_op operation) {
    xdrmem_create(&xdr_, bytes_.data(), static_cast<u_int>(bytes_.size()), operation);
  }

  std::string bytes_;
  XDR xdr_{};
};

constexpr std::size_t plenty = 65536;

template <class T>
std::string encoded(Filter<T> filter, T value) {
  Stream stream(plenty);
  if (!filter(stream.xdr(), &value)) return "refused";
  return stream.written();
}

/// A value decoded from bytes; frees through the filter what the decoding allocated, also when it
/// failed half-way.
template <class T>
class Decoded {
 public:
  Decoded(Filter<T> filter, const std::string& bytes) : filter_(filter) {
    Stream stream(bytes);
    succeeded_ = filter(stream.xdr(), &value_) != FALSE;
    left_ = stream.left();
  }
  Decoded(Filter<T> filter, const Bytes& bytes) : Decoded(filter, bytes.str()) {}
  ~Decoded() {
    XDR xdr{};
    xdr.x_op = XDR_FREE;
    EXPECT_TRUE(filter_(&xdr, &value_));
  }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;

  explicit operator bool() const { return succeeded_; }
  const T& operator*() const { return value_; }
  const T* operator->() const { return &value_; }
  std::size_t left() const { return left_; }

 private:
  Filter<T> filter_;
  T value_{};
  bool succeeded_;
  std::size_t left_ = 0;
};

/// The filter turns the value into the bytes and the bytes into a value that is written alike; it
/// fails on every stream that is too short.
template <class T>
void expectBothWays(Filter<T> filter, T value, const Bytes& bytes) {
  EXPECT_EQ(readable(encoded(filter, value)), readable(bytes.str()));

  const Decoded<T> decoded(filter, bytes);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded.left(), 0U);
  EXPECT_EQ(readable(encoded(filter, *decoded)), readable(bytes.str()));

  for (std::size_t size = 0; size < bytes.str().size(); ++size) {
    Stream stream(size);
    T copy = value;
    EXPECT_FALSE(filter(stream.xdr(), &copy)) << "into " << size << " bytes";
    EXPECT_FALSE((Decoded<T>(filter, Bytes(bytes).cutTo(size)))) << "from " << size << " bytes";
  }
}

// Wire texts are not const, although nobody writes an encoded one.
char* text(const char* text) { return const_cast<char*>(text); }
char* text(const std::string& string) { return text(string.c_str()); }

std::vector<unsigned char> macOf(std::size_t size) {
  std::vector<unsigned char> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(0x81 + i);
  return bytes;
}

rpc_l2cp_mac_t wireMac(std::vector<unsigned char>& bytes) {
  return {.rpc_l2cp_mac_t_len = static_cast<u_int>(bytes.size()),
          .rpc_l2cp_mac_t_val = bytes.data()};
}

// ---- Names ----

struct NameType {
  const char* name;
  Filter<char*> filter;
  std::size_t bound;
};

void PrintTo(const NameType& type, std::ostream* out) { *out << type.name; }

class Name : public testing::TestWithParam<NameType> {};

INSTANTIATE_TEST_SUITE_P(Filters, Name,
                         testing::Values(NameType{"proto", xdr_rpc_l2cp_proto_name_t, 33},
                                         NameType{"profile", xdr_rpc_l2cp_profile_name_t, 33},
                                         NameType{"service", xdr_rpc_service_profile_name_t, 65}),
                         [](const auto& type) { return std::string(type.param.name); });

TEST_P(Name, IsACountedText) {
  expectBothWays(GetParam().filter, text(""), Bytes().word(0));
  expectBothWays(GetParam().filter, text("LLDP"), Bytes().word(4).raw("LLDP"));
  expectBothWays(GetParam().filter, text("xSTP!"), Bytes().word(5).raw({"xSTP!\0\0\0", 8}));
}

TEST_P(Name, UpToItsBoundIsAccepted) {
  const std::string longest(GetParam().bound, 'n');
  expectBothWays(GetParam().filter, text(longest), Bytes().text(longest));
}

TEST_P(Name, OneByteLongerIsRefusedWhenDecoded) {
  const std::string tooLong(GetParam().bound + 1, 'n');
  EXPECT_FALSE(Decoded<char*>(GetParam().filter, Bytes().text(tooLong)));
  EXPECT_FALSE(Decoded<char*>(GetParam().filter, Bytes().word(0xffffffff).raw(tooLong)));
}

TEST_P(Name, OneByteLongerIsCutWhenEncoded) {
  const std::string tooLong(GetParam().bound + 1, 'n');
  EXPECT_EQ(readable(encoded(GetParam().filter, text(tooLong))),
            readable(Bytes().text(tooLong.substr(1)).str()));
}

TEST_P(Name, AbsentIsEncodedAsAnEmptyOne) {
  EXPECT_EQ(readable(encoded<char*>(GetParam().filter, nullptr)), readable(Bytes().word(0).str()));
}

TEST_P(Name, IsTerminatedInMemory) {
  const Decoded<char*> decoded(GetParam().filter, Bytes().text("LLDP"));
  EXPECT_STREQ(*decoded, "LLDP");
}

TEST_P(Name, FreeingReleasesItAndForgetsIt) {
  char* name = nullptr;
  Stream stream(Bytes().text("LLDP").str());
  ASSERT_TRUE(GetParam().filter(stream.xdr(), &name));
  stream.xdr()->x_op = XDR_FREE;
  EXPECT_TRUE(GetParam().filter(stream.xdr(), &name));
  EXPECT_EQ(name, nullptr);
  EXPECT_TRUE(GetParam().filter(stream.xdr(), &name));
}

// ---- Text filter ----

bool_t textOfUpToSix(XDR* xdrs, char** text) { return l2cp_xdr_text(xdrs, text, 6); }

TEST(TextFilter, TextWithinTheBoundIsEncodedWhole) {
  EXPECT_EQ(encoded(textOfUpToSix, text("123456")), Bytes().text("123456").str());
}

TEST(TextFilter, AbsentTextIsEncodedAsAnEmptyOne) {
  EXPECT_EQ(encoded<char*>(textOfUpToSix, nullptr), Bytes().text("").str());
}

TEST(TextFilter, OverlongTextIsCutAndLeftAsItIs) {
  std::string overlong = "1234567";
  EXPECT_EQ(encoded(textOfUpToSix, overlong.data()), Bytes().text("123456").str());
  EXPECT_EQ(overlong, "1234567");
}

TEST(TextFilter, BoundOfZeroLeavesNothing) {
  Stream stream(plenty);
  char* whole = text("x");
  EXPECT_TRUE(l2cp_xdr_text(stream.xdr(), &whole, 0));
  EXPECT_EQ(stream.written(), Bytes().word(0).str());
}

TEST(TextFilter, LargestBoundCutsNothing) {
  Stream stream(plenty);
  const std::string whole(5000, 'x');
  char* begin = text(whole);
  EXPECT_TRUE(l2cp_xdr_text(stream.xdr(), &begin, 0xffffffff));
  EXPECT_EQ(stream.written(), Bytes().text(whole).str());
}

TEST(TextFilter, StreamThatIsFullFails) {
  for (const std::size_t size : {0U, 3U, 4U, 7U}) {
    Stream stream(size);
    char* whole = text("1");
    EXPECT_FALSE(l2cp_xdr_text(stream.xdr(), &whole, 6)) << size;
    whole = text("1234567");
    EXPECT_FALSE(l2cp_xdr_text(stream.xdr(), &whole, 6)) << size;
  }
}

TEST(TextFilter, DecodingKeepsTheBound) {
  EXPECT_TRUE(Decoded<char*>(textOfUpToSix, Bytes().text("123456")));
  EXPECT_FALSE(Decoded<char*>(textOfUpToSix, Bytes().text("1234567")));
}

// ---- Numbers ----

TEST(Filters, MacIsAListOfWords) {
  for (std::size_t size = 0; size <= 6; ++size) {
    std::vector<unsigned char> bytes = macOf(size);
    Bytes expected;
    expected.word(static_cast<std::uint32_t>(size));
    for (const unsigned char byte : bytes) expected.word(byte);
    expectBothWays(xdr_rpc_l2cp_mac_t, wireMac(bytes), expected);
  }
}

TEST(Filters, MacOfSevenBytesIsRefusedBothWays) {
  std::vector<unsigned char> bytes = macOf(7);
  EXPECT_EQ(encoded(xdr_rpc_l2cp_mac_t, wireMac(bytes)), "refused");
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_mac_t, Bytes().words({7, 1, 2, 3, 4, 5, 6, 7})));
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_mac_t, Bytes().words({0xffffffff, 1, 2})));
}

TEST(Filters, NumbersTakeAWordEach) {
  expectBothWays<rpc_l2cp_ethertype_hf_t>(xdr_rpc_l2cp_ethertype_hf_t, 0x88cc,
                                          Bytes().word(0x88cc));
  expectBothWays<rpc_l2cp_ethertype_hf_t>(xdr_rpc_l2cp_ethertype_hf_t, 0xffff,
                                          Bytes().word(0xffff));
  expectBothWays<rpc_l2cp_subtype_t>(xdr_rpc_l2cp_subtype_t, 0, Bytes().word(0));
  expectBothWays<rpc_l2cp_subtype_t>(xdr_rpc_l2cp_subtype_t, 0xff, Bytes().word(0xff));
  expectBothWays<rpc_l2cp_vid_t>(xdr_rpc_l2cp_vid_t, 4095, Bytes().word(4095));
  expectBothWays<rpc_l2cp_vid_t>(xdr_rpc_l2cp_vid_t, 0xffff, Bytes().word(0xffff));
  expectBothWays<rpc_l2cp_port_t>(xdr_rpc_l2cp_port_t, 0xffffffff, Bytes().word(0xffffffff));
}

TEST(Filters, EnumerationsTakeAWordWhateverTheirNumber) {
  for (const int number : {0, 1, 2, 3, 16, 77, 2147483647, -1, -2147483647 - 1}) {
    const Bytes expected = Bytes().word(static_cast<std::uint32_t>(number));
    expectBothWays(xdr_rpc_l2cp_rule, static_cast<rpc_l2cp_rule>(number), expected);
    expectBothWays(xdr_rpc_l2cp_error, static_cast<rpc_l2cp_error>(number), expected);
  }
}

TEST(Filters, RulesAndErrorsHaveTheirNumbers) {
  EXPECT_EQ(RPC_L2CP_RULE_DISCARD, 0);
  EXPECT_EQ(RPC_L2CP_RULE_PEER, 1);
  EXPECT_EQ(RPC_L2CP_RULE_TUNNEL, 2);
  EXPECT_EQ(RPC_L2CP_OK, 0);
  EXPECT_EQ(RPC_L2CP_ERR_FAILED, 1);
  EXPECT_EQ(RPC_L2CP_ERR_PROTO_EXISTS, 2);
  EXPECT_EQ(RPC_L2CP_ERR_PROTO_NOT_FOUND, 3);
  EXPECT_EQ(RPC_L2CP_ERR_PROTO_IN_USE, 4);
  EXPECT_EQ(RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE, 5);
  EXPECT_EQ(RPC_L2CP_ERR_INVALID, 8);
  EXPECT_EQ(RPC_L2CP_ERR_NO_COUNTERS, 9);
  EXPECT_EQ(RPC_L2CP_ERR_PROFILE_EXISTS, 10);
  EXPECT_EQ(RPC_L2CP_ERR_PROFILE_NOT_FOUND, 11);
  EXPECT_EQ(RPC_L2CP_ERR_PROFILE_IN_USE, 12);
  EXPECT_EQ(RPC_L2CP_ERR_NOT_ATTACHED, 13);
  EXPECT_EQ(RPC_L2CP_ERR_PROFILE_PROTECTED, 14);
  EXPECT_EQ(RPC_L2CP_ERR_NO_SUCH_LINK, 15);
  EXPECT_EQ(RPC_L2CP_ERR_DETACH_REFUSED, 16);
  EXPECT_EQ(RPC_L2CP_EDIT_FAILED, -1);
  EXPECT_EQ(RPC_L2CP_EDIT_UNCHANGED, -2);
}

// ---- Records ----

rpc_l2cp_proto wireProto(const char* name, std::vector<unsigned char>& mac) {
  rpc_l2cp_proto proto{};
  proto.protect = TRUE;
  proto.name = text(name);
  proto.mac = wireMac(mac);
  proto.ether_type = 0x8809;
  proto.sub_type = 0x03;
  proto.use_count = 0x01020304;
  proto.error = RPC_L2CP_ERR_INVALID;
  return proto;
}

Bytes bytesOfProto(const char* name) {
  return Bytes()
      .word(1)
      .text(name)
      .words({6, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86})
      .words({0x8809, 0x03, 0x01020304, 8});
}

TEST(Filters, ProtoHasItsFieldsInOrder) {
  std::vector<unsigned char> mac = macOf(6);
  expectBothWays(xdr_rpc_l2cp_proto, wireProto("LLDP", mac), bytesOfProto("LLDP"));
  const Decoded decoded(xdr_rpc_l2cp_proto, bytesOfProto("LLDP"));
  EXPECT_EQ(decoded->protect, TRUE);
  EXPECT_STREQ(decoded->name, "LLDP");
  EXPECT_EQ(decoded->mac.rpc_l2cp_mac_t_len, 6U);
  EXPECT_EQ(decoded->mac.rpc_l2cp_mac_t_val[5], 0x86);
  EXPECT_EQ(decoded->ether_type, 0x8809);
  EXPECT_EQ(decoded->sub_type, 0x03);
  EXPECT_EQ(decoded->use_count, 0x01020304U);
  EXPECT_EQ(decoded->error, RPC_L2CP_ERR_INVALID);
}

TEST(Filters, ClearedProtoIsAWordForEachField) {
  EXPECT_EQ(readable(encoded(xdr_rpc_l2cp_proto, rpc_l2cp_proto{})),
            readable(Bytes().words({0, 0, 0, 0, 0, 0, 0}).str()));
}

TEST(Filters, ProfileHasDynamicBeforeProtect) {
  rpc_l2cp_profile profile{};
  profile.dynamic = TRUE;
  profile.name = text("P");
  profile.use_count = 0xfffffffe;
  profile.error = RPC_L2CP_ERR_PROFILE_IN_USE;
  expectBothWays(xdr_rpc_l2cp_profile, profile,
                 Bytes().words({1, 0}).text("P").words({0xfffffffe, 12}));
  profile.dynamic = FALSE;
  profile.protect = TRUE;
  expectBothWays(xdr_rpc_l2cp_profile, profile,
                 Bytes().words({0, 1}).text("P").words({0xfffffffe, 12}));
}

TEST(Filters, EveryNumberButZeroIsDecodedAsTrue) {
  const Decoded decoded(xdr_rpc_l2cp_profile,
                        Bytes().words({0x80000000, 2}).text("P").words({0, 0}));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->dynamic, TRUE);
  EXPECT_EQ(decoded->protect, TRUE);
}

TEST(Filters, ProfileEntryIsProtocolRuleError) {
  expectBothWays(xdr_rpc_l2cp_profile_proto,
                 rpc_l2cp_profile_proto{.proto_name = text("LLDP"),
                                        .rule = RPC_L2CP_RULE_TUNNEL,
                                        .error = RPC_L2CP_ERR_PROTO_NOT_FOUND},
                 Bytes().text("LLDP").words({2, 3}));
}

TEST(Filters, ProfileLinkIsProfileVlanError) {
  expectBothWays(xdr_rpc_l2cp_profile_link,
                 rpc_l2cp_profile_link{
                     .profile_name = text("P"), .vid = 4095, .error = RPC_L2CP_ERR_NO_SUCH_LINK},
                 Bytes().text("P").words({4095, 15}));
}

TEST(Filters, PortVlanIsPortThenVlan) {
  expectBothWays(xdr_rpc_l2cp_port_vlan_t, rpc_l2cp_port_vlan_t{.port = 0xfffffffd, .vid = 100},
                 Bytes().words({0xfffffffd, 100}));
}

TEST(Filters, CountersAreSumDiscardPeerTunnelError) {
  expectBothWays(xdr_rpc_l2cp_counters,
                 rpc_l2cp_counters{.total = 0xfffffffc,
                                   .discard = 0x80000001,
                                   .peer = 0x00000002,
                                   .tunnel = 0x7ffffff9,
                                   .error = RPC_L2CP_ERR_NO_COUNTERS},
                 Bytes().words({0xfffffffc, 0x80000001, 2, 0x7ffffff9, 9}));
  rpc_l2cp_counters counters{};
  XDR xdr{};
  xdr.x_op = XDR_FREE;
  EXPECT_TRUE(xdr_rpc_l2cp_counters(&xdr, &counters));
}

TEST(Filters, EditResultHasAlwaysTheSameSize) {
  for (const std::string& name :
       {std::string(), std::string("temp_l2cp_prof_1"), std::string(32, 'n')}) {
    rpcl2cpProfEditResult result{};
    result.error = RPC_L2CP_ERR_FAILED;
    std::copy(name.begin(), name.end(), result.name);
    Bytes expected = Bytes().word(1);
    std::string padded = name;
    padded.resize(33);
    for (const char character : padded) {
      expected.word(static_cast<std::uint32_t>(character));
    }
    EXPECT_EQ(expected.str().size(), 136U);
    expectBothWays(xdr_rpcl2cpProfEditResult, result, expected);
  }
}

TEST(Filters, AppliedResultIsErrorThenFlag) {
  expectBothWays(xdr_rpcl2cpProfileAppliedResult,
                 rpcl2cpProfileAppliedResult{.error = RPC_L2CP_ERR_FAILED, .applied = TRUE},
                 Bytes().words({1, 1}));
}

// ---- Lists ----

template <class ListRecord, class Element>
ListRecord listOf(std::vector<Element>& elements, rpc_l2cp_error error) {
  ListRecord record{};
  record.list.list_len = static_cast<u_int>(elements.size());
  record.list.list_val = elements.empty() ? nullptr : elements.data();
  record.error = error;
  return record;
}

TEST(Filters, ProtoListIsCountElementsError) {
  std::vector<unsigned char> mac = macOf(6);
  std::vector<rpc_l2cp_proto> elements{wireProto("LLDP", mac), wireProto("LACP-LAMP", mac)};
  expectBothWays(
      xdr_rpc_l2cp_proto_all, listOf<rpc_l2cp_proto_all>(elements, RPC_L2CP_OK),
      Bytes().word(2).raw(bytesOfProto("LLDP").str()).raw(bytesOfProto("LACP-LAMP").str()).word(0));
}

TEST(Filters, ListedProtosGoOutAsSingleOnesDo) {
  const std::string longest(33, 'n');
  const std::string tooLong(40, 'n');
  for (const char* name : {static_cast<const char*>(nullptr), "", "a", "LLDP", "LACP-LAMP",
                           longest.c_str(), tooLong.c_str()}) {
    for (std::size_t size = 0; size <= 7; ++size) {
      std::vector<unsigned char> mac = macOf(size);
      std::vector<rpc_l2cp_proto> elements{wireProto("LLDP", mac)};
      elements[0].name = const_cast<char*>(name);
      elements[0].protect = 2;
      elements[0].error = RPC_L2CP_EDIT_UNCHANGED;
      const std::string single = encoded(xdr_rpc_l2cp_proto, elements[0]);
      const std::string listed =
          encoded(xdr_rpc_l2cp_proto_all, listOf<rpc_l2cp_proto_all>(elements, RPC_L2CP_OK));
      const std::string expected = single == "refused"
                                       ? readable(single)
                                       : readable(Bytes().word(1).raw(single).word(0).str());
      EXPECT_EQ(readable(listed), expected) << (name == nullptr ? "none" : name) << ", " << size;
    }
  }
}

TEST(Filters, ListedProtosNeedTheRoomOfTheirBytes) {
  std::vector<unsigned char> mac = macOf(6);
  std::vector<rpc_l2cp_proto> elements{wireProto("LACP-LAMP", mac)};
  auto list = listOf<rpc_l2cp_proto_all>(elements, RPC_L2CP_OK);
  const std::size_t size = encoded(xdr_rpc_l2cp_proto_all, list).size();
  for (std::size_t room = 0; room < size; ++room) {
    Stream stream(room);
    EXPECT_FALSE(xdr_rpc_l2cp_proto_all(stream.xdr(), &list)) << room;
  }
}

// What a decoded protocol holds, as far as it has been decoded.
std::string shown(const rpc_l2cp_proto& proto) {
  std::string mac = "none";
  if (proto.mac.rpc_l2cp_mac_t_val != nullptr) {
    mac.assign(reinterpret_cast<char*>(proto.mac.rpc_l2cp_mac_t_val), proto.mac.rpc_l2cp_mac_t_len);
  }
  const auto word = [](auto value) { return static_cast<std::uint32_t>(value); };
  return (proto.name == nullptr ? "none" : std::string(proto.name)) + readable(mac) +
         readable(Bytes()
                      .words({word(proto.protect), word(proto.mac.rpc_l2cp_mac_t_len)})
                      .words({word(proto.ether_type), word(proto.sub_type)})
                      .words({word(proto.use_count), word(proto.error)})
                      .str());
}

TEST(Filters, ListedProtosComeInAsSingleOnesDo) {
  const std::string longest(33, 'n');
  for (const Bytes& bytes :
       {bytesOfProto("LLDP"), bytesOfProto("LACP-LAMP"), bytesOfProto(""),
        bytesOfProto(longest.c_str()), bytesOfProto((longest + "n").c_str()),
        Bytes().word(0x80000000).text("a").words({0, 0xffffffff, 0xffffffff, 7, 0xfffffffe}),
        Bytes().word(2).text("a").words({7, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}),
        Bytes().words({0, 0xffffffff, 1, 2, 3, 4, 5, 6})}) {
    for (std::size_t size = 0; size <= bytes.str().size(); ++size) {
      const std::string cut = bytes.str().substr(0, size);
      const Decoded single(xdr_rpc_l2cp_proto, cut);
      const Decoded list(xdr_rpc_l2cp_proto_all, Bytes().word(1).raw(cut));
      ASSERT_EQ(list->list.list_len, 1U);
      EXPECT_EQ(shown(list->list.list_val[0]), shown(*single)) << size << " of " << readable(cut);
      const Decoded whole(xdr_rpc_l2cp_proto_all, Bytes().word(1).raw(cut).word(7));
      if (single) {
        EXPECT_TRUE(whole);
        EXPECT_EQ(whole->error, 7);
        EXPECT_EQ(whole.left(), single.left());
      }
    }
  }
}

TEST(Filters, ProfileListIsCountElementsError) {
  std::vector<rpc_l2cp_profile> elements(2);
  elements[0].name = text("A");
  elements[0].dynamic = TRUE;
  elements[1].name = text("B");
  elements[1].error = RPC_L2CP_ERR_FAILED;
  expectBothWays(
      xdr_rpc_l2cp_profile_all,
      listOf<rpc_l2cp_profile_all>(elements, RPC_L2CP_ERR_PROFILE_NOT_FOUND),
      Bytes().words({2, 1, 0}).text("A").words({0, 0}).words({0, 0}).text("B").words({0, 1}).word(
          11));
}

TEST(Filters, ServiceProfileListIsCountNamesError) {
  const std::string longest(65, 's');
  std::vector<rpc_service_profile_name_t> elements{text("gold"), text(longest)};
  expectBothWays(xdr_rpc_l2cp_profile_use, listOf<rpc_l2cp_profile_use>(elements, RPC_L2CP_OK),
                 Bytes().word(2).text("gold").text(longest).word(0));
  EXPECT_FALSE(
      Decoded(xdr_rpc_l2cp_profile_use, Bytes().word(1).text(std::string(66, 's')).word(0)));
}

TEST(Filters, EntryListIsCountElementsError) {
  std::vector<rpc_l2cp_profile_proto> elements(1);
  elements[0] = {.proto_name = text("CDP"), .rule = RPC_L2CP_RULE_PEER, .error = RPC_L2CP_OK};
  expectBothWays(xdr_rpc_l2cp_profile_proto_all,
                 listOf<rpc_l2cp_profile_proto_all>(elements, RPC_L2CP_OK),
                 Bytes().word(1).text("CDP").words({1, 0, 0}));
}

TEST(Filters, PortListIsCountPairsError) {
  std::vector<rpc_l2cp_port_vlan_t> elements{{.port = 1, .vid = 2}, {.port = 3, .vid = 4}};
  expectBothWays(xdr_rpc_l2cp_port_all, listOf<rpc_l2cp_port_all>(elements, RPC_L2CP_OK),
                 Bytes().words({2, 1, 2, 3, 4, 0}));
}

TEST(Filters, EmptyListsAreTwoWords) {
  const Bytes empty = Bytes().words({0, 11});
  constexpr rpc_l2cp_error error = RPC_L2CP_ERR_PROFILE_NOT_FOUND;
  expectBothWays(xdr_rpc_l2cp_proto_all, rpc_l2cp_proto_all{{}, error}, empty);
  expectBothWays(xdr_rpc_l2cp_profile_all, rpc_l2cp_profile_all{{}, error}, empty);
  expectBothWays(xdr_rpc_l2cp_profile_use, rpc_l2cp_profile_use{{}, error}, empty);
  expectBothWays(xdr_rpc_l2cp_profile_proto_all, rpc_l2cp_profile_proto_all{{}, error}, empty);
  expectBothWays(xdr_rpc_l2cp_port_all, rpc_l2cp_port_all{{}, error}, empty);
}

TEST(Filters, ListsHaveNoBound) {
  std::vector<rpc_l2cp_port_vlan_t> elements(8000, {.port = 7, .vid = 8});
  const std::string bytes =
      encoded(xdr_rpc_l2cp_port_all, listOf<rpc_l2cp_port_all>(elements, RPC_L2CP_OK));
  EXPECT_EQ(bytes.size(), 8U + 8000U * 8U);
  const Decoded decoded(xdr_rpc_l2cp_port_all, bytes);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->list.list_len, 8000U);
}

TEST(Filters, ListThatPromisesMoreThanThereIsFails) {
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_port_all, Bytes().words({1000, 1, 2})));
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_port_all, Bytes().words({0xffffffff, 1, 2})));
}

// ---- Arguments ----

TEST(Filters, ProtocolArgumentsAreNameThenValue) {
  const char* name = "LLDP";
  const Bytes wireName = Bytes().text(name);
  expectBothWays(xdr_rpc_l2cp_proto_ren_1_argument,
                 rpc_l2cp_proto_ren_1_argument{text(name), text("B")}, Bytes(wireName).text("B"));
  expectBothWays(xdr_rpc_l2cp_proto_set_protect_1_argument,
                 rpc_l2cp_proto_set_protect_1_argument{text(name), TRUE}, Bytes(wireName).word(1));
  std::vector<unsigned char> mac = macOf(2);
  expectBothWays(xdr_rpc_l2cp_proto_set_mac_1_argument,
                 rpc_l2cp_proto_set_mac_1_argument{text(name), wireMac(mac)},
                 Bytes(wireName).words({2, 0x81, 0x82}));
  expectBothWays(xdr_rpc_l2cp_proto_set_ether_type_1_argument,
                 rpc_l2cp_proto_set_ether_type_1_argument{text(name), 0x88cc},
                 Bytes(wireName).word(0x88cc));
  expectBothWays(xdr_rpc_l2cp_proto_set_sub_type_1_argument,
                 rpc_l2cp_proto_set_sub_type_1_argument{text(name), 0x80},
                 Bytes(wireName).word(0x80));
}

TEST(Filters, ProfileArgumentsAreNameThenFlag) {
  expectBothWays(xdr_rpc_l2cp_profile_set_dynamic_1_argument,
                 rpc_l2cp_profile_set_dynamic_1_argument{text("P"), TRUE},
                 Bytes().text("P").word(1));
  expectBothWays(xdr_rpc_l2cp_profile_set_protect_1_argument,
                 rpc_l2cp_profile_set_protect_1_argument{text("P"), FALSE},
                 Bytes().text("P").word(0));
}

TEST(Filters, EntryArgumentsAreProfileProtocolRule) {
  const Bytes expected = Bytes().text("P").text("LLDP").word(2);
  expectBothWays(
      xdr_rpc_l2cp_profile_proto_add_1_argument,
      rpc_l2cp_profile_proto_add_1_argument{text("P"), text("LLDP"), RPC_L2CP_RULE_TUNNEL},
      expected);
  expectBothWays(
      xdr_rpc_l2cp_profile_proto_set_1_argument,
      rpc_l2cp_profile_proto_set_1_argument{text("P"), text("LLDP"), RPC_L2CP_RULE_TUNNEL},
      expected);
  expectBothWays(xdr_rpc_l2cp_profile_proto_del_1_argument,
                 rpc_l2cp_profile_proto_del_1_argument{text("P"), text("LLDP")},
                 Bytes().text("P").text("LLDP"));
  expectBothWays(xdr_rpc_l2cp_profile_proto_get_1_argument,
                 rpc_l2cp_profile_proto_get_1_argument{text("P"), 0xffffffff},
                 Bytes().text("P").word(0xffffffff));
  expectBothWays(xdr_rpc_l2cp_profile_proto_del_all_1_argument,
                 rpc_l2cp_profile_proto_del_all_1_argument{text("P")}, Bytes().text("P"));
}

TEST(Filters, AttachmentArgumentsAreProfilePortVlan) {
  const Bytes expected = Bytes().text("P").words({0x80000000, 4095});
  expectBothWays(xdr_rpc_l2cp_profile_port_attach_1_argument,
                 rpc_l2cp_profile_port_attach_1_argument{text("P"), 0x80000000, 4095}, expected);
  expectBothWays(xdr_rpc_l2cp_profile_port_detach_1_argument,
                 rpc_l2cp_profile_port_detach_1_argument{text("P"), 0x80000000, 4095}, expected);
  expectBothWays(xdr_rpc_l2cp_profile_port_get_1_argument,
                 rpc_l2cp_profile_port_get_1_argument{3, 1}, Bytes().words({3, 1}));
}

TEST(Filters, RenamingAProfileIsTwoNames) {
  const std::string longest(33, 'n');
  const std::string tooLong(34, 'n');
  expectBothWays(xdr_rpc_l2cp_profile_ren_1_argument,
                 rpc_l2cp_profile_ren_1_argument{text("P"), text("Q")},
                 Bytes().text("P").text("Q"));
  EXPECT_TRUE(Decoded(xdr_rpc_l2cp_profile_ren_1_argument, Bytes().text(longest).text(longest)));
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_profile_ren_1_argument, Bytes().text(tooLong).text("Q")));
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_profile_ren_1_argument, Bytes().text("P").text(tooLong)));
}

TEST(Filters, CopyingAndLeavingAreTwoTextsWithoutBound) {
  const std::string longOne(5000, 'x');
  expectBothWays(xdr_rpc_l2cp_profile_copy_1_argument,
                 rpc_l2cp_profile_copy_1_argument{text("P"), text("to be P")},
                 Bytes().text("P").text("to be P"));
  expectBothWays(xdr_rpc_l2cp_profile_on_exit_1_argument,
                 rpc_l2cp_profile_on_exit_1_argument{text(""), text("C")},
                 Bytes().text("").text("C"));
  const Bytes bytes = Bytes().text(longOne).text(longOne);
  EXPECT_EQ(encoded(xdr_rpc_l2cp_profile_copy_1_argument,
                    rpc_l2cp_profile_copy_1_argument{text(longOne), text(longOne)}),
            bytes.str());
  const Decoded copy(xdr_rpc_l2cp_profile_copy_1_argument, bytes);
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->arg2, longOne);
  const Decoded onExit(xdr_rpc_l2cp_profile_on_exit_1_argument, bytes);
  ASSERT_TRUE(onExit);
  EXPECT_EQ(onExit->arg1, longOne);
}

TEST(Filters, TextWithoutBoundFailsIfItPromisesMoreThanThereIs) {
  for (const std::uint32_t size : {5U, 0x100000U, 0xffffffffU}) {
    EXPECT_FALSE(Decoded(xdr_rpc_l2cp_text_t, Bytes().word(size).raw("name"))) << size;
  }
}

TEST(Filters, AbsentTextsGoOutAsEmptyOnes) {
  EXPECT_EQ(readable(encoded(xdr_rpc_l2cp_text_t, rpc_l2cp_text_t{})),
            readable(Bytes().word(0).str()));
  EXPECT_EQ(
      readable(encoded(xdr_rpc_l2cp_profile_copy_1_argument, rpc_l2cp_profile_copy_1_argument{})),
      readable(Bytes().words({0, 0}).str()));
  std::vector<rpc_service_profile_name_t> names(2);
  rpc_l2cp_profile_use use{};
  use.list = {.list_len = 2, .list_val = names.data()};
  EXPECT_EQ(readable(encoded(xdr_rpc_l2cp_profile_use, use)),
            readable(Bytes().words({2, 0, 0, 0}).str()));
}

TEST(Filters, ServiceProfileNameThatIsTooLongForAReplyIsCut) {
  const std::string name(70, 's');
  std::vector<rpc_service_profile_name_t> names = {text(name)};
  rpc_l2cp_profile_use use{};
  use.list = {.list_len = 1, .list_val = names.data()};
  EXPECT_EQ(readable(encoded(xdr_rpc_l2cp_profile_use, use)),
            readable(Bytes().word(1).text(name.substr(0, 65)).word(0).str()));
}

TEST(Filters, EditResultKeepsTheSignOfItsErrorAndNameBytesTheirs) {
  rpcl2cpProfEditResult result{};
  result.error = static_cast<rpc_l2cp_error>(-1);
  result.name[0] = '\xfc';
  Bytes expected = Bytes().words({0xffffffff, 0xfffffffc});
  for (int i = 1; i < 33; ++i) expected.word(0);
  expectBothWays(xdr_rpcl2cpProfEditResult, result, expected);
}

TEST(Filters, NamesInArgumentsKeepTheirBounds) {
  const std::string longest(33, 'n');
  const std::string tooLong(34, 'n');
  EXPECT_TRUE(Decoded(xdr_rpc_l2cp_proto_ren_1_argument, Bytes().text(longest).text(longest)));
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_proto_ren_1_argument, Bytes().text(tooLong).text(longest)));
  EXPECT_FALSE(Decoded(xdr_rpc_l2cp_proto_ren_1_argument, Bytes().text(longest).text(tooLong)));
}

}  // namespace
