#include "cli/refusal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "cli/failure.h"

namespace cli {
namespace {

struct Named {
  rpc_l2cp_error error;
  std::string_view name;
};
constexpr Named moduleErrors[] = {{RPC_L2CP_OK, "OK"},
                                  {RPC_L2CP_ERR_FAILED, "FAILED"},
                                  {RPC_L2CP_ERR_PROTO_EXISTS, "PROTO_EXISTS"},
                                  {RPC_L2CP_ERR_PROTO_NOT_FOUND, "PROTO_NOT_FOUND"},
                                  {RPC_L2CP_ERR_PROTO_IN_USE, "PROTO_IN_USE"},
                                  {RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE, "PROTO_NOT_IN_PROFILE"},
                                  {RPC_L2CP_ERR_INVALID, "INVALID"},
                                  {RPC_L2CP_ERR_NO_COUNTERS, "NO_COUNTERS"},
                                  {RPC_L2CP_ERR_PROFILE_EXISTS, "PROFILE_EXISTS"},
                                  {RPC_L2CP_ERR_PROFILE_NOT_FOUND, "PROFILE_NOT_FOUND"},
                                  {RPC_L2CP_ERR_PROFILE_IN_USE, "PROFILE_IN_USE"},
                                  {RPC_L2CP_ERR_NOT_ATTACHED, "NOT_ATTACHED"},
                                  {RPC_L2CP_ERR_PROFILE_PROTECTED, "PROFILE_PROTECTED"},
                                  {RPC_L2CP_ERR_NO_SUCH_LINK, "NO_SUCH_LINK"},
                                  {RPC_L2CP_ERR_DETACH_REFUSED, "DETACH_REFUSED"}};

template <class Error>
std::string answer(Error error) {
  try {
    accept(error);
  } catch (const Refused& refused) {
    EXPECT_EQ(refused.status(), ExitStatus::refused);
    return refused.what();
  }
  return "accepted";
}

TEST(ModuleError, HasItsNameInTheInterface) {
  for (const auto& [error, name] : moduleErrors) EXPECT_EQ(errorName(error), name);
}

TEST(ModuleError, HasAdviceOfItsOwn) {
  std::set<std::string_view> advices;
  for (const auto& [error, name] : moduleErrors) {
    const std::string_view advice = errorAdvice(error);
    EXPECT_FALSE(advice.empty()) << name;
    EXPECT_EQ(advice.find('\n'), std::string_view::npos) << name;
    EXPECT_TRUE(advices.insert(advice).second) << name;
  }
  EXPECT_FALSE(advices.contains(errorAdvice(RPC_L2CP_ERR_LOWEST)));
}

TEST(ModuleError, OfANumberWithoutANameIsShownByItsNumber) {
  constexpr std::string_view unknown =
      ": this error is unknown here; the daemon may be newer than this program";
  for (const int number : {6, 7, 17, -3}) {
    const auto error = static_cast<rpc_l2cp_error>(number);
    EXPECT_EQ(errorName(error), "");
    EXPECT_EQ(answer(error), "error " + std::to_string(number) + std::string(unknown));
  }
  EXPECT_EQ(answer(RPC_L2CP_ERR_HIGHEST), "error 2147483647" + std::string(unknown));
}

TEST(ModuleError, IsThrownWithNameAndAdvice) {
  EXPECT_EQ(answer(RPC_L2CP_OK), "accepted");
  EXPECT_EQ(answer(RPC_L2CP_ERR_PROFILE_NOT_FOUND),
            "PROFILE_NOT_FOUND: there is no profile of this name; \"l2cpctl profile list\" shows "
            "those there are");
}

TEST(ModuleError, MeansWhatTheProcedureSaysWhereItSaysSomething) {
  const auto meaning = [](rpc_l2cp_error error) {
    try {
      accept(error, {{RPC_L2CP_ERR_FAILED, "another time"}});
    } catch (const Refused& refused) {
      return std::string(refused.what());
    }
    return std::string("accepted");
  };
  EXPECT_EQ(meaning(RPC_L2CP_ERR_FAILED), "FAILED: another time");
  EXPECT_EQ(meaning(RPC_L2CP_ERR_NOT_ATTACHED), answer(RPC_L2CP_ERR_NOT_ATTACHED));
  EXPECT_EQ(meaning(RPC_L2CP_OK), "accepted");
}

TEST(DaemonError, HasNameAndAdvice) {
  EXPECT_EQ(errorName(CONTROL_OK), "OK");
  EXPECT_EQ(answer(CONTROL_OK), "accepted");
  EXPECT_EQ(answer(CONTROL_ERR_FAILED),
            "FAILED: the daemon is busy or the module is not running; look at \"l2cpctl daemon "
            "status\" and try again");
  EXPECT_EQ(answer(CONTROL_ERR_INVALID),
            "INVALID: the daemon does not take one of the values; check them against the command's "
            "help");
  EXPECT_EQ(answer(static_cast<control_error>(3)),
            "error 3: this error is unknown here; the daemon may be newer than this program");
}

std::string resultAnswer(control_result result) {
  try {
    acceptResult(result, {{-17, "another time"}});
  } catch (const Refused& refused) {
    return refused.what();
  }
  return "accepted";
}

TEST(ProfileError, HasNameAndAdviceOfItsOwn) {
  std::set<std::string_view> names;
  std::set<std::string_view> advices;
  for (const control_result result : {0, -2, -9, -16, -17, -19, -20, -22, -64, -99}) {
    EXPECT_TRUE(names.insert(resultName(result)).second) << result;
    EXPECT_TRUE(advices.insert(resultAdvice(result)).second) << result;
  }
  EXPECT_FALSE(names.contains(""));
}

TEST(ProfileError, IsThrownWithNameAndAdvice) {
  EXPECT_EQ(resultAnswer(0), "accepted");
  EXPECT_EQ(resultAnswer(-99),
            "NO_SVID: the VLAN profile has no S-VID for the interface; give it one with \"l2cpctl "
            "vlan-profile set\"");
  EXPECT_EQ(resultAnswer(-17), "EXISTS: another time");
  EXPECT_EQ(resultAnswer(-5),
            "error -5: this error is unknown here; the daemon may be newer than this program");
}

}  // namespace
}  // namespace cli
