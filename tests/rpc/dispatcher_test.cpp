// The dispatch routine, called as the RPC library calls it, on a transport that takes its arguments
// from the test and keeps the replies.

#include <gmock/gmock.h>
#include <rpc/rpc.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "l2cp/l2cp.h"
#include "platform/singleton.h"
#include "rpc/l2cp.h"
#include "tests/support/syslog_capture.h"
#include "tests/support/xdr_bytes.h"

extern "C" void l2cp_program_1(struct svc_req* request, SVCXPRT* transport);

namespace {

using support::readable;
using support::XdrBytes;
using testing::ElementsAre;

/// The memory that arguments are decoded into, as far as the largest of them reaches.
using ArgumentArea = unsigned char[sizeof(rpc_l2cp_proto)];

const char* statusName(accept_stat status) {
  switch (status) {
    case SUCCESS:
      return "success";
    case PROC_UNAVAIL:
      return "procedure unavailable";
    case GARBAGE_ARGS:
      return "decode error";
    case SYSTEM_ERR:
      return "system error";
    default:
      return "another reply";
  }
}

class Transport {
 public:
  Transport() {
    transport_.xp_ops = &operations;
    transport_.xp_p1 = this;
  }

  /// Dispatches one call and returns what was asked of the transport meanwhile.
  std::vector<std::string> call(rpcproc_t procedure, const XdrBytes& arguments = {}) {
    arguments_ = arguments.str();
    replies.clear();
    calls_.clear();
    svc_req request{};
    request.rq_prog = L2CP_PROGRAM;
    request.rq_vers = L2CP_VERSION;
    request.rq_proc = procedure;
    request.rq_xprt = &transport_;
    l2cp_program_1(&request, &transport_);
    return calls_;
  }

  /// Takes the place of decoding.
  std::function<bool(ArgumentArea&)> decode;
  bool repliesFail = false;
  bool freeingFails = false;
  /// The replies to the last call, with the number 0 for their call.
  std::vector<std::string> replies;

 private:
  static Transport& of(SVCXPRT* transport) { return *static_cast<Transport*>(transport->xp_p1); }

  static bool_t getArguments(SVCXPRT* transport, xdrproc_t filter, void* area) {
    Transport& self = of(transport);
    self.calls_.emplace_back("getargs");
    self.filter_ = filter;
    self.area_ = area;
    if (self.decode) return self.decode(*static_cast<ArgumentArea*>(area)) ? TRUE : FALSE;
    XDR stream;
    xdrmem_create(&stream, self.arguments_.data(), static_cast<u_int>(self.arguments_.size()),
                  XDR_DECODE);
    return filter(&stream, area);
  }

  static bool_t reply(SVCXPRT* transport, rpc_msg* message) {
    Transport& self = of(transport);
    self.calls_.emplace_back(statusName(message->acpted_rply.ar_stat));
    message->rm_xid = 0;
    std::string bytes(8192, '\0');
    XDR stream;
    xdrmem_create(&stream, bytes.data(), static_cast<u_int>(bytes.size()), XDR_ENCODE);
    EXPECT_TRUE(xdr_replymsg(&stream, message));
    bytes.resize(xdr_getpos(&stream));
    self.replies.push_back(bytes);
    return self.repliesFail ? FALSE : TRUE;
  }

  static bool_t freeArguments(SVCXPRT* transport, xdrproc_t filter, void* area) {
    Transport& self = of(transport);
    self.calls_.emplace_back("freeargs");
    EXPECT_EQ(filter, self.filter_);
    EXPECT_EQ(area, self.area_);
    xdr_free(filter, area);
    return self.freeingFails ? FALSE : TRUE;
  }

  static constexpr struct SVCXPRT::xp_ops operations {
    .xp_recv = nullptr, .xp_stat = nullptr, .xp_getargs = getArguments, .xp_reply = reply,
    .xp_freeargs = freeArguments, .xp_destroy = nullptr
  };

  SVCXPRT transport_{};
  std::string arguments_;
  std::vector<std::string> calls_;
  xdrproc_t filter_ = nullptr;
  void* area_ = nullptr;
};

/// The bytes of a reply that carries a result, up to the result.
XdrBytes success() { return XdrBytes().words({0, REPLY, MSG_ACCEPTED, AUTH_NONE, 0, SUCCESS}); }

class Dispatcher : public testing::Test {
 protected:
  Transport transport;
};

TEST_F(Dispatcher, ProcedureZeroRepliesNothingWithoutTouchingTheEntity) {
  auto& log = support::SyslogCapture::instance();
  L2CP& entity = singleton<L2CP>::instance();
  entity.externalMessage("l2cp_debug", "1", nullptr);
  log.reset();
  EXPECT_THAT(transport.call(NULLPROC), ElementsAre("success"));
  EXPECT_EQ(readable(transport.replies.at(0)), readable(success().str()));
  EXPECT_THAT(log.lines, testing::IsEmpty());

  // Another one would have been seen.
  transport.call(RPC_L2CP_PROTO_DEL, XdrBytes().text("nobody"));
  EXPECT_THAT(log.traces(), testing::Contains("protoDel(protoName=\"nobody\")"));
  entity.externalMessage("l2cp_debug", "0", nullptr);
}

TEST_F(Dispatcher, UnknownProcedureIsRefusedWithoutALookAtItsArguments) {
  for (const rpcproc_t procedure : {11U, 19U, 30U, 45U, 64U, 92U, 105U, 4294967295U}) {
    EXPECT_THAT(transport.call(procedure), ElementsAre("procedure unavailable")) << procedure;
  }
}

TEST_F(Dispatcher, ArgumentsThatDoNotDecodeAreRefusedAndNotFreed) {
  EXPECT_THAT(transport.call(RPC_L2CP_PROTO_GET), ElementsAre("getargs", "decode error"));
  EXPECT_THAT(transport.call(RPC_L2CP_PROTO_DEL, XdrBytes().text(std::string(34, 'n'))),
              ElementsAre("getargs", "decode error"));
}

TEST_F(Dispatcher, ArgumentsAreDecodedIntoZeroesWhateverStoodThere) {
  std::vector<bool> zero;
  transport.decode = [&](ArgumentArea& area) {
    zero.push_back(std::all_of(std::begin(area), std::end(area), [](auto byte) { return !byte; }));
    std::fill(std::begin(area), std::end(area), 0xa5);
    return false;
  };
  for (int i = 0; i < 3; ++i) transport.call(RPC_L2CP_PROTO_ADD);
  EXPECT_THAT(zero, ElementsAre(true, true, true));
}

struct Call {
  rpcproc_t procedure;
  XdrBytes arguments;
};

void PrintTo(const Call& call, std::ostream* out) { *out << "procedure " << call.procedure; }

class EachProcedure : public Dispatcher, public testing::WithParamInterface<Call> {};

const Call calls[] = {
    {RPC_L2CP_PROTO_ADD, XdrBytes().word(1).text("A").words({3, 1, 2, 3, 5, 6, 7, 8})},
    {RPC_L2CP_PROTO_DEL, XdrBytes().text("A")},
    {RPC_L2CP_PROTO_REN, XdrBytes().text("A").text("B")},
    {RPC_L2CP_PROTO_GET, XdrBytes().word(0)},
    {RPC_L2CP_PROTO_GET_ALL, XdrBytes()},
    {RPC_L2CP_PROTO_SET_PROTECT, XdrBytes().text("A").word(1)},
    {RPC_L2CP_PROTO_SET_MAC, XdrBytes().text("A").words({3, 1, 2, 3})},
    {RPC_L2CP_PROTO_SET_ETHER_TYPE, XdrBytes().text("A").word(5)},
    {RPC_L2CP_PROTO_SET_SUB_TYPE, XdrBytes().text("A").word(6)},
    {RPC_L2CP_PROTO_STAT, XdrBytes().text("A")},
    {RPC_L2CP_PROFILE_ADD, XdrBytes().words({0, 0}).text("P").words({7, 8})},
    {RPC_L2CP_PROFILE_DEL, XdrBytes().text("P")},
    {RPC_L2CP_PROFILE_REN, XdrBytes().text("P").text("Q")},
    {RPC_L2CP_PROFILE_GET, XdrBytes().word(0)},
    {RPC_L2CP_PROFILE_GET_ALL, XdrBytes()},
    {RPC_L2CP_PROFILE_GET_PORTS, XdrBytes().text("P")},
    {RPC_L2CP_PROFILE_SET_DYNAMIC, XdrBytes().text("P").word(1)},
    {RPC_L2CP_PROFILE_SET_PROTECT, XdrBytes().text("P").word(1)},
    {RPC_L2CP_PROFILE_STAT, XdrBytes().text("P")},
    {RPC_L2CP_PROFILE_GET_USE, XdrBytes().text("P")},
    {RPC_L2CP_PROFILE_PROTO_ADD, XdrBytes().text("P").text("A").word(2)},
    {RPC_L2CP_PROFILE_PROTO_DEL, XdrBytes().text("P").text("A")},
    {RPC_L2CP_PROFILE_PROTO_GET, XdrBytes().text("P").word(0)},
    {RPC_L2CP_PROFILE_PROTO_GET_ALL, XdrBytes().text("P")},
    {RPC_L2CP_PROFILE_PROTO_SET, XdrBytes().text("P").text("A").word(1)},
    {RPC_L2CP_PROFILE_PORT_ATTACH, XdrBytes().text("P").words({3, 100})},
    {RPC_L2CP_PROFILE_PORT_DETACH, XdrBytes().text("P").words({3, 100})},
    {RPC_L2CP_PROFILE_PORT_GET, XdrBytes().words({3, 0})},
    {RPC_L2CP_PROFILE_PORT_GET_ALL, XdrBytes().word(3)},
    {RPC_L2CP_PORT_STAT, XdrBytes().word(3)},
    {RPC_L2CP_VLAN_STAT, XdrBytes().word(100)},
    {RPC_L2CP_PROFILE_EDIT, XdrBytes().text("P")},
    {RPC_L2CP_PROFILE_COPY, XdrBytes().text("P").text("Q")},
    {RPC_L2CP_PROFILE_ON_EXIT, XdrBytes().text("P").text("Q")},
    {RPC_L2CP_PROFILE_STATUS, XdrBytes().text("P")},
    {RPC_L2CP_PROFILE_PROTO_DEL_ALL, XdrBytes().text("P")},
};

INSTANTIATE_TEST_SUITE_P(Numbered, EachProcedure, testing::ValuesIn(calls),
                         [](const auto& call) { return std::to_string(call.param.procedure); });

TEST_P(EachProcedure, FreesItsArgumentsBehindTheReply) {
  EXPECT_THAT(transport.call(GetParam().procedure, GetParam().arguments),
              ElementsAre("getargs", "success", "freeargs"));
}

TEST_P(EachProcedure, AnswersAReplyThatFailsWithASystemErrorAndFreesItsArguments) {
  transport.repliesFail = true;
  EXPECT_THAT(transport.call(GetParam().procedure, GetParam().arguments),
              ElementsAre("getargs", "success", "system error", "freeargs"));
}

TEST_F(Dispatcher, RepliesTheResultOfTheHandler) {
  transport.call(RPC_L2CP_PROTO_DEL, XdrBytes().text("nobody"));
  ASSERT_EQ(transport.replies.size(), 1U);
  EXPECT_EQ(readable(transport.replies[0]),
            readable(success().word(RPC_L2CP_ERR_PROTO_NOT_FOUND).str()));
}

// ---- Editing ----

class EditingOverTheWire : public Dispatcher {
 protected:
  void SetUp() override {
    entity.settings = L2CP::Settings();
    ASSERT_EQ(entity.profileAdd("P", false, false), 0);
    ASSERT_EQ(entity.profileProtoAdd("P", "LLDP", L2CP::Rule::peer), 0);
  }

  /// The bytes of the one reply to a call.
  std::string reply(rpcproc_t procedure, const XdrBytes& arguments) {
    transport.call(procedure, arguments);
    return transport.replies.size() == 1 ? readable(transport.replies[0]) : "not one reply";
  }

  static XdrBytes edited(std::uint32_t error, std::string name) {
    XdrBytes bytes = success().word(error);
    name.resize(33);
    for (const char character : name) bytes.word(static_cast<std::uint32_t>(character));
    return bytes;
  }

  L2CP& entity = singleton<L2CP>::instance();
};

TEST_F(EditingOverTheWire, NameOfTheLastSuccessStandsBesideAnError) {
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_EDIT, XdrBytes().text("P")),
            readable(edited(0, "temp_l2cp_prof_1").str()));
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_EDIT, XdrBytes().text("none")),
            readable(edited(1, "temp_l2cp_prof_1").str()));
}

TEST_F(EditingOverTheWire, BehindAShorterNameNothingIsLeftOfALongerOne) {
  for (int i = 1; i <= 99; ++i) ASSERT_EQ(entity.l2cpProfileEdit("P").error, RPC_L2CP_OK);
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_EDIT, XdrBytes().text("P")),
            readable(edited(0, "temp_l2cp_prof_100").str()));
  ASSERT_EQ(entity.profileDel("temp_l2cp_prof_2"), 0);
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_EDIT, XdrBytes().text("P")),
            readable(edited(0, "temp_l2cp_prof_2").str()));
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_EDIT, XdrBytes().text("none")),
            readable(edited(1, "temp_l2cp_prof_2").str()));
}

TEST_F(EditingOverTheWire, ResultOfLeavingKeepsItsSign) {
  ASSERT_EQ(entity.l2cpProfileCopy("P", "C"), 0);
  const XdrBytes names = XdrBytes().text("P").text("C");
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_ON_EXIT, names), readable(success().word(0xfffffffe).str()));
  ASSERT_EQ(entity.profileSetProtect("P", true), 0);
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_ON_EXIT, names), readable(success().word(0xffffffff).str()));
  ASSERT_EQ(entity.profileSetProtect("P", false), 0);
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_ON_EXIT, names), readable(success().word(0).str()));
}

TEST_F(EditingOverTheWire, TextsOfEditingHaveNoBound) {
  const std::string name(5000, 'n');
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_COPY, XdrBytes().text("P").text(name)),
            readable(success().word(0).str()));
  EXPECT_TRUE(entity.settings.profiles.contains(name));
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_EDIT, XdrBytes().text(name)),
            readable(edited(0, "temp_l2cp_prof_1").str()));
  EXPECT_EQ(reply(RPC_L2CP_PROFILE_ON_EXIT, XdrBytes().text("temp_l2cp_prof_1").text(name)),
            readable(success().word(0xfffffffe).str()));
  EXPECT_FALSE(entity.settings.profiles.contains(name));
}

TEST_F(EditingOverTheWire, NamesOfRenamingAndUseHaveTheirBound) {
  const std::string tooLong(34, 'n');
  const std::vector<std::string> refused = {"getargs", "decode error"};
  EXPECT_EQ(transport.call(RPC_L2CP_PROFILE_REN, XdrBytes().text(tooLong).text("Q")), refused);
  EXPECT_EQ(transport.call(RPC_L2CP_PROFILE_GET_PORTS, XdrBytes().text(tooLong)), refused);
  EXPECT_EQ(transport.call(RPC_L2CP_PROFILE_GET_USE, XdrBytes().text(tooLong)), refused);
}

TEST_F(EditingOverTheWire, NamesThatAreTooLongForAReplyAreCut) {
  const std::string name(40, 'n');
  ASSERT_EQ(entity.l2cpProfileCopy("P", name.c_str()), 0);
  ASSERT_EQ(entity.profileDel("P"), 0);
  ASSERT_EQ(entity.portAttach(name, 3, 100), 0);
  EXPECT_EQ(
      reply(RPC_L2CP_PROFILE_PORT_GET_ALL, XdrBytes().word(3)),
      readable(success().words({1, 0, 0}).text(name.substr(0, 33)).words({1, 0}).word(0).str()));
  ASSERT_EQ(entity.portDetach(name, 3, 100), 0);
}

TEST_F(EditingOverTheWire, TextThatPromisesMoreThanThereIsIsRefused) {
  for (const std::uint32_t size : {5U, 0x100000U, 0xffffffffU}) {
    for (const rpcproc_t procedure : std::initializer_list<rpcproc_t>{
             RPC_L2CP_PROFILE_EDIT, RPC_L2CP_PROFILE_COPY, RPC_L2CP_PROFILE_ON_EXIT}) {
      EXPECT_THAT(transport.call(procedure, XdrBytes().word(size).raw("name")),
                  ElementsAre("getargs", "decode error"))
          << procedure << " " << size;
    }
  }
}

TEST(DispatcherDeathTest, ArgumentsThatCannotBeFreedEndTheProcess) {
  Transport transport;
  transport.freeingFails = true;
  EXPECT_EXIT(transport.call(RPC_L2CP_PROTO_DEL, XdrBytes().text("nobody")),
              testing::ExitedWithCode(1), "^unable to free arguments$");
}

}  // namespace
