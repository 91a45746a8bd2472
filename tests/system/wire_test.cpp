// What comes over the wire, byte by byte: replies as every client has to understand them, and
// requests that no well-meaning client sends.

#include "tests/system/wire.h"

#include <vector>

#include "tests/system/fixture.h"
#include "tests/system/service.h"

namespace {

using wire::Bytes;
using wire::Call;

enum Procedure : std::uint32_t {
  protoAdd = 1,
  protoDel = 2,
  protoRen = 3,
  protoGet = 4,
  protoGetAll = 5,
  protoSetProtect = 6,
  protoSetMac = 7,
  profileAdd = 20,
  profileDel = 21,
  profileGet = 23,
  entryAdd = 40,
  entryGet = 42,
  attach = 60,
  linkGet = 62,
  portStat = 90,
  vlanStat = 91,
  profileStatus = 103,
};

class Wire : public TransportTest {
 protected:
  // The whole reply to one call, from a socket of its own.
  std::string replyTo(std::uint32_t procedure, const Bytes& arguments = {}) {
    return wire::Socket(GetParam()).call(Call{procedure}.with(arguments));
  }

  void expectStillServing() {
    EXPECT_EQ(client::Service("udp").connection().ping(), RPC_SUCCESS);
    EXPECT_EQ(client::Service("tcp").connection().ping(), RPC_SUCCESS);
  }
};

FOR_BOTH_TRANSPORTS(Wire);

// What was decoded of arguments before they failed is not freed.
void forgiveHalfDecodedArguments() {
  support::World::forgiveLeaksOf("xdr_string");
  support::World::forgiveLeaksOf("xdr_array");
}

class Garbled : public Wire {
 protected:
  void prepare() override { forgiveHalfDecodedArguments(); }
};

FOR_BOTH_TRANSPORTS(Garbled);

#define EXPECT_BYTES(got, expected) EXPECT_EQ(wire::readable(got), wire::readable(expected))

Bytes error(std::uint32_t number) { return Bytes().word(number); }

// ---- Who answers ----

TEST_P(Wire, NullProcedureGetsAnEmptyReply) { EXPECT_BYTES(replyTo(0), wire::success()); }

TEST_P(Wire, NullProcedureDoesNotReadArguments) {
  EXPECT_BYTES(replyTo(0, Bytes().raw(std::string(64, '\xff'))), wire::success());
}

TEST_P(Wire, UnassignedProceduresAreUnavailable) {
  for (const std::uint32_t procedure :
       {11U, 19U, 30U, 39U, 45U, 59U, 64U, 89U, 92U, 99U, 105U, 0x7fffffffU, 0xffffffffU}) {
    EXPECT_BYTES(replyTo(procedure), wire::procedureUnavailable()) << procedure;
  }
}

TEST_P(Wire, OtherVersionsAreToldTheRightOne) {
  for (const std::uint32_t version : {0U, 2U, 0xffffffffU}) {
    EXPECT_BYTES(wire::Socket(GetParam()).call(Call{.version = version}.with()),
                 wire::versionMismatch(1, 1));
  }
}

TEST_P(Wire, OtherProgramsAreUnavailable) {
  EXPECT_BYTES(wire::Socket(GetParam()).call(Call{.program = 0x2000001e}.with()),
               wire::programUnavailable());
}

TEST_P(Wire, ControlProgramIsServedByTheSameTransports) {
  EXPECT_BYTES(wire::Socket(GetParam()).call(Call{.program = 0x20000100}.with()), wire::success());
}

// ---- Replies ----

TEST_P(Wire, ReplyOfAFailedGetIsItsErrorAndNothingElse) {
  EXPECT_BYTES(replyTo(protoGet, Bytes().word(14)),
               wire::success(Bytes().words({0, 0, 0, 0, 0, 0, 1})));
  EXPECT_BYTES(replyTo(profileGet, Bytes().word(0)),
               wire::success(Bytes().words({0, 0, 0, 0, 11})));
  EXPECT_BYTES(replyTo(entryGet, Bytes().text("P").word(0)),
               wire::success(Bytes().words({0, 0, 11})));
  EXPECT_BYTES(replyTo(linkGet, Bytes().words({3, 0})), wire::success(Bytes().words({0, 0, 11})));
}

TEST_P(Wire, ReplyWithAProtocolHasItsFieldsInOrder) {
  EXPECT_BYTES(replyTo(protoGet, Bytes().word(5)), wire::success(Bytes()
                                                                     .word(1)
                                                                     .text("LACP-LAMP")
                                                                     .words({6, 0x01, 0x80, 0xc2})
                                                                     .words({0, 0, 2})
                                                                     .words({0x8809, 1, 0, 0})));
}

TEST_P(Wire, ReplyWithAProfileHasDynamicBeforeProtect) {
  EXPECT_BYTES(replyTo(profileAdd, Bytes().words({0, 1}).text("P").words({5, 6})),
               wire::success(error(0)));
  EXPECT_BYTES(replyTo(profileGet, Bytes().word(0)),
               wire::success(Bytes().words({0, 1}).text("P").words({0, 0})));
}

TEST_P(Wire, ReplyWithStatisticsHasTheSumFirst) {
  replyTo(profileAdd, Bytes().words({0, 0}).text("P").words({0, 0}));
  replyTo(attach, Bytes().text("P").words({3, 100}));
  EXPECT_BYTES(replyTo(portStat, Bytes().word(3)), wire::success(Bytes().words({0, 0, 0, 0, 0})));
  EXPECT_BYTES(replyTo(portStat, Bytes().word(4)), wire::success(Bytes().words({0, 0, 0, 0, 9})));
}

// ---- Arguments at their bounds ----

TEST_P(Wire, NameOfThirtyThreeBytesIsRead) {
  EXPECT_BYTES(replyTo(protoDel, Bytes().text(std::string(33, 'n'))), wire::success(error(3)));
  EXPECT_BYTES(replyTo(profileDel, Bytes().text(std::string(33, 'n'))), wire::success(error(11)));
}

TEST_P(Garbled, NameOfThirtyFourBytesIsGarbage) {
  EXPECT_BYTES(replyTo(protoDel, Bytes().text(std::string(34, 'n'))), wire::garbageArguments());
  EXPECT_BYTES(replyTo(profileDel, Bytes().text(std::string(34, 'n'))), wire::garbageArguments());
  EXPECT_BYTES(replyTo(protoRen, Bytes().text("LLDP").text(std::string(34, 'n'))),
               wire::garbageArguments());
}

TEST_P(Wire, MacsOfUpToSixBytesAreReadAndFilledUp) {
  const auto macOfProtocol = [&] { return replyTo(protoGet, Bytes().word(0)); };
  const auto protocol = [](const Bytes& mac) {
    return wire::success(
        Bytes().word(1).text("All-Bridges").word(6).raw(mac.str()).words({0xffff, 0xff, 0, 0}));
  };
  const Bytes name = Bytes().text("All-Bridges");
  EXPECT_BYTES(replyTo(protoSetMac, Bytes(name).word(0)), wire::success(error(0)));
  EXPECT_BYTES(macOfProtocol(), protocol(Bytes().words({0, 0, 0, 0, 0, 0})));
  EXPECT_BYTES(replyTo(protoSetMac, Bytes(name).words({3, 1, 2, 3})), wire::success(error(0)));
  EXPECT_BYTES(macOfProtocol(), protocol(Bytes().words({1, 2, 3, 0, 0, 0})));
  EXPECT_BYTES(replyTo(protoSetMac, Bytes(name).words({6, 9, 8, 7, 6, 5, 4})),
               wire::success(error(0)));
  EXPECT_BYTES(macOfProtocol(), protocol(Bytes().words({9, 8, 7, 6, 5, 4})));
}

TEST_P(Garbled, MacOfSevenBytesIsGarbage) {
  const Bytes mac = Bytes().words({7, 1, 2, 3, 4, 5, 6, 7});
  EXPECT_BYTES(replyTo(protoSetMac, Bytes().text("LLDP").raw(mac.str())), wire::garbageArguments());
  EXPECT_BYTES(replyTo(protoAdd, Bytes().word(0).text("A").raw(mac.str()).words({1, 1, 0, 0})),
               wire::garbageArguments());
}

TEST_P(Wire, TextEndsAtItsFirstZeroByte) {
  using namespace std::string_literals;
  EXPECT_BYTES(replyTo(profileAdd, Bytes().words({0, 0}).text("AB\0CD"s).words({0, 0})),
               wire::success(error(0)));
  EXPECT_BYTES(replyTo(profileGet, Bytes().word(0)),
               wire::success(Bytes().words({0, 0}).text("AB").words({0, 0})));
  EXPECT_BYTES(replyTo(profileDel, Bytes().text("AB\0\0"s)), wire::success(error(0)));
  EXPECT_BYTES(replyTo(protoDel, Bytes().text("\0LLDP"s)), wire::success(error(3)));
}

TEST_P(Wire, PaddingIsNotLookedAt) {
  EXPECT_BYTES(replyTo(protoDel, Bytes().word(3).raw("CDP\xff")), wire::success(error(0)));
}

TEST_P(Wire, EveryNumberButZeroIsTrue) {
  EXPECT_BYTES(replyTo(protoSetProtect, Bytes().text("All-Bridges").word(0)),
               wire::success(error(0)));
  EXPECT_BYTES(replyTo(protoSetProtect, Bytes().text("All-Bridges").word(0x80000000)),
               wire::success(error(0)));
  const std::string reply = replyTo(protoGet, Bytes().word(0));
  EXPECT_BYTES(reply.substr(24, 4), Bytes().word(1).str());
}

TEST_P(Wire, RuleNumbersOutOfRangeBecomeDiscard) {
  replyTo(profileAdd, Bytes().words({0, 0}).text("P").words({0, 0}));
  for (const std::uint32_t rule : {3U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
    EXPECT_BYTES(replyTo(entryAdd, Bytes().text("P").text("LLDP").word(rule)),
                 wire::success(error(0)));
    EXPECT_BYTES(replyTo(entryGet, Bytes().text("P").word(0)),
                 wire::success(Bytes().text("LLDP").words({0, 0})));
    EXPECT_BYTES(replyTo(41, Bytes().text("P").text("LLDP")), wire::success(error(0)));
  }
}

TEST_P(Wire, ErrorNumbersOutOfRangeAreIgnored) {
  EXPECT_BYTES(replyTo(profileAdd, Bytes().words({0, 0}).text("P").words({0, 0xffffffff})),
               wire::success(error(0)));
}

TEST_P(Wire, VlanIdIsTheLowerHalfOfItsWord) {
  replyTo(profileAdd, Bytes().words({0, 0}).text("P").words({0, 0}));
  EXPECT_BYTES(replyTo(attach, Bytes().text("P").words({3, 0x10064})), wire::success(error(0)));
  EXPECT_BYTES(replyTo(linkGet, Bytes().words({3, 0})),
               wire::success(Bytes().text("P").words({100, 0})));
}

TEST_P(Wire, BytesBehindTheArgumentsAreNotLookedAt) {
  EXPECT_BYTES(replyTo(protoDel, Bytes().text("CDP").words({1, 2, 3, 4})), wire::success(error(0)));
  expectStillServing();
}

// ---- Broken requests ----

TEST_P(Garbled, LengthsBeyondAllBoundsAreGarbage) {
  for (const std::uint32_t length : {0x7fffffffU, 0x80000000U, 0xffffffffU}) {
    EXPECT_BYTES(replyTo(protoDel, Bytes().word(length).raw("LLDP")), wire::garbageArguments());
    EXPECT_BYTES(replyTo(profileStatus, Bytes().word(length).raw("LLDP")),
                 wire::garbageArguments());
    EXPECT_BYTES(replyTo(protoSetMac, Bytes().text("LLDP").word(length).word(1)),
                 wire::garbageArguments());
  }
  expectStillServing();
}

TEST_P(Wire, HeaderCutOffAnywhereGetsNoSuccess) {
  const Bytes whole = Call{protoGet}.with(Bytes().word(0));
  for (std::size_t size = 0; size < 40; ++size) {
    wire::Socket(GetParam()).send(Bytes(whole).cutTo(size));
  }
  expectStillServing();
}

TEST_P(Wire, OtherRpcVersionsAreDenied) {
  for (const std::uint32_t version : {0U, 1U, 3U}) {
    const wire::Socket socket(GetParam());
    socket.send(Call{.rpcVersion = version}.with());
    if (GetParam() == std::string("tcp")) {
      EXPECT_TRUE(socket.isClosed()) << version;
    }
  }
  expectStillServing();
}

TEST_P(Wire, UnknownCredentialsAreDenied) {
  const Bytes call =
      Bytes().words({0x12345678, 0, 2, 0x2000001d, 1, 0, /* credentials: */ 77, 0, 0, 0});
  EXPECT_BYTES(wire::Socket(GetParam()).call(call),
               Bytes().words({0x12345678, 1, 1, 1, /* rejected credentials */ 2}).str());
}

TEST_P(Wire, GarbageDoesNotStopTheService) {
  for (const std::size_t size : {1U, 3U, 4U, 39U, 40U, 400U, 8800U, 60000U}) {
    for (const char byte : {'\0', '\1', '\x7f', '\xff'}) {
      wire::Socket(GetParam()).sendRaw(std::string(size, byte));
    }
  }
  expectStillServing();
}

TEST_P(Wire, RequestLargerThanADatagramIsServedOverTcpAlone) {
  const std::string name(8900, 'x');
  EXPECT_BYTES(replyTo(profileStatus, Bytes().text(name)), GetParam() == std::string("tcp")
                                                               ? wire::success(error(11))
                                                               : wire::garbageArguments());
  expectStillServing();
}

TEST_P(Wire, NameOfMoreThanTheLibrarysBoundIsGarbage) {
  EXPECT_BYTES(replyTo(profileStatus, Bytes().text(std::string(9001, 'x'))),
               wire::garbageArguments());
}

// ---- Datagrams ----

class Datagram : public DaemonTest {
 protected:
  void prepare() override { forgiveHalfDecodedArguments(); }
};

// The RPC library does not look where a datagram ends: what is cut off is read as zeros or as what
// a longer one has left behind it.
TEST_F(Datagram, ArgumentsCutOffAnywhereAreAnsweredAndDoNoHarm) {
  const wire::Socket socket("udp");
  const Bytes whole =
      Call{protoAdd}.with(Bytes().word(1).text("Custom").words({6, 1, 2, 3, 4, 5, 6, 1, 7, 0, 0}));
  for (std::size_t size = 40; size < whole.str().size(); ++size) {
    EXPECT_EQ(socket.call(Bytes(whole).cutTo(size)).size() % 4, 0U) << size;
  }
  EXPECT_EQ(client::Service("udp").connection().ping(), RPC_SUCCESS);
}

// ---- Streams ----

class Stream : public DaemonTest {
 protected:
  void prepare() override { forgiveHalfDecodedArguments(); }

  void expectServed(const wire::Socket& socket) {
    EXPECT_BYTES(socket.call(Call{protoDel}.with(Bytes().text("nobody"))), wire::success(error(3)));
  }
};

TEST_F(Stream, AssignedProceduresWithoutTheirArgumentsAreGarbage) {
  for (const std::uint32_t procedure :
       {1U,  2U,  3U,  4U,  6U,  7U,  8U,  9U,  10U, 20U, 21U, 23U,  26U, 27U,
        28U, 40U, 41U, 42U, 43U, 44U, 60U, 61U, 62U, 90U, 91U, 103U, 104U}) {
    EXPECT_BYTES(wire::Socket("tcp").call(Call{procedure}.with()), wire::garbageArguments())
        << procedure;
  }
}

TEST_F(Stream, ArgumentsCutOffAnywhereAreGarbage) {
  const wire::Socket socket("tcp");
  const Bytes whole = Bytes().word(1).text("Custom").words({6, 1, 2, 3, 4, 5, 6, 0x88b5, 7, 0, 0});
  for (std::size_t size = 0; size < whole.str().size(); ++size) {
    EXPECT_BYTES(socket.call(Call{protoAdd}.with(Bytes(whole).cutTo(size))),
                 wire::garbageArguments())
        << size;
  }
  EXPECT_BYTES(socket.call(Call{protoAdd}.with(whole)), wire::success(error(0)));
}

TEST_F(Stream, LengthsThatPromiseMoreThanThereIsAreGarbage) {
  const wire::Socket socket("tcp");
  for (const std::uint32_t length : {5U, 33U}) {
    EXPECT_BYTES(socket.call(Call{protoDel}.with(Bytes().word(length).raw("LLDP"))),
                 wire::garbageArguments());
    EXPECT_BYTES(socket.call(Call{profileStatus}.with(Bytes().word(length).raw("LLDP"))),
                 wire::garbageArguments());
  }
}

TEST_F(Stream, ConnectionServesManyRequests) {
  const wire::Socket socket("tcp");
  for (int i = 0; i < 100; ++i) expectServed(socket);
}

TEST_F(Stream, RequestsSentAtOnceAreAnsweredInOrder) {
  const wire::Socket socket("tcp");
  std::string records;
  for (const char* name : {"nobody", "CDP", "CDP"}) {
    records += wire::Socket::fragment(Call{protoDel}.with(Bytes().text(name)).str(), true).str();
  }
  socket.sendRaw(records);
  for (const std::uint32_t expected : {3U, 0U, 3U}) {
    EXPECT_BYTES(socket.receive().value_or("no reply"), wire::success(error(expected)));
  }
}

// The RPC library takes the first fragment for a whole record on connections that nobody waits for.
TEST_F(Stream, RecordInFragmentsIsNotServedAndDoesNoHarm) {
  const wire::Socket socket("tcp");
  const std::string record = Call{protoDel}.with(Bytes().text("CDP")).str();
  std::string fragments;
  for (std::size_t i = 0; i < record.size(); i += 4) {
    fragments += wire::Socket::fragment(record.substr(i, 4), i + 4 == record.size()).str();
  }
  socket.sendRaw(fragments);
  EXPECT_TRUE(socket.isClosed());
  expectServed(wire::Socket("tcp"));
  EXPECT_EQ(client::Service("tcp").protoGetAll().list.size(), 14U);
}

TEST_F(Stream, HalfSentRecordKeepsNobodyWaiting) {
  const std::string record =
      wire::Socket::fragment(Call{protoDel}.with(Bytes().text("nobody")).str(), true).str();
  std::vector<wire::Socket> halves;
  for (std::size_t size = 1; size < record.size(); ++size) {
    halves.emplace_back("tcp").sendRaw(record.substr(0, size));
  }
  expectServed(wire::Socket("tcp"));
  EXPECT_EQ(client::Service("udp").connection().ping(), RPC_SUCCESS);
  // Each of them is served when the rest arrives.
  for (std::size_t size = 1; size < record.size(); ++size) {
    halves[size - 1].sendRaw(record.substr(size));
    EXPECT_BYTES(halves[size - 1].receive().value_or("no reply"), wire::success(error(3))) << size;
  }
}

TEST_F(Stream, ConnectionsThatGoAwayInTheMiddleOfARecordDoNoHarm) {
  const std::string record = wire::Socket::fragment(Call{protoGetAll}.with().str(), true).str();
  for (std::size_t size = 0; size <= record.size(); ++size) {
    wire::Socket("tcp").sendRaw(record.substr(0, size));
  }
  expectServed(wire::Socket("tcp"));
}

TEST_F(Stream, RecordOfMoreThanTheLimitClosesTheConnection) {
  const wire::Socket socket("tcp");
  socket.sendRaw(Bytes().word(0x80000000U | (2U << 20)).raw(std::string(4096, 'x')).str());
  EXPECT_TRUE(socket.isClosed());
  expectServed(wire::Socket("tcp"));
}

TEST_F(Stream, FragmentsThatGrowBeyondTheLimitCloseTheConnection) {
  const wire::Socket socket("tcp");
  const std::string part = wire::Socket::fragment(std::string(64 << 10, 'x'), false).str();
  for (int i = 0; i < 40; ++i) socket.sendRaw(part);
  EXPECT_TRUE(socket.isClosed());
  expectServed(wire::Socket("tcp"));
}

TEST_F(Stream, EmptyFragmentsAreNoRequest) {
  const wire::Socket socket("tcp");
  socket.sendRaw(Bytes().words({0, 0x80000000U}).str());
  expectServed(wire::Socket("tcp"));
}

TEST_F(Stream, ClientThatDoesNotReadItsRepliesKeepsOthersServed) {
  const wire::Socket lazy("tcp");
  const int small = 1024;
  setsockopt(lazy.descriptor(), SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
  const std::string call = wire::Socket::fragment(Call{protoGetAll}.with().str(), true).str();
  for (int i = 0; i < 100; ++i) lazy.sendRaw(call);
  expectServed(wire::Socket("tcp"));
}

TEST_F(Stream, ManyConnectionsAreServedSideBySide) {
  std::vector<wire::Socket> sockets;
  for (int i = 0; i < 200; ++i) sockets.emplace_back("tcp");
  for (const wire::Socket& socket : sockets) expectServed(socket);
}

TEST_F(Stream, MoreConnectionsThanTheLoopCanWatchDoNotLockOthersOut) {
  std::vector<wire::Socket> sockets;
  for (int i = 0; i < 1100; ++i) sockets.emplace_back("tcp");
  expectServed(wire::Socket("tcp"));
}

}  // namespace
