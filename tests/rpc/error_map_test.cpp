// What the results of operations become on the wire, for every procedure and every result that an
// operation could return.

#include "rpc/error_map.h"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <span>

namespace {

struct Procedure {
  const char* name;
  std::span<const ErrorMapping> mappings;
  /// Wire number by result; everything else but 0 is 1.
  std::map<int, int> expected;
};

void PrintTo(const Procedure& procedure, std::ostream* out) { *out << procedure.name; }

class ErrorMap : public testing::TestWithParam<Procedure> {};

INSTANTIATE_TEST_SUITE_P(
    Of, ErrorMap,
    testing::Values(
        Procedure{"protoAdd", errors::protoAdd, {{-17, 2}, {-22, 8}}},
        Procedure{"protoDel", errors::protoDel, {{-2, 3}, {-16, 4}}},
        Procedure{"protoRen", errors::protoRen, {{-2, 3}, {-16, 4}}},
        Procedure{"protoGet", errors::protoGet, {}},
        Procedure{"protoSet", errors::protoSet, {{-2, 3}}},
        Procedure{"protoStat", errors::protoStat, {{-2, 3}, {-11, 9}}},
        Procedure{"profileAdd", errors::profileAdd, {{-17, 10}}},
        Procedure{"profileDel", errors::profileDel, {{-1, 14}, {-2, 11}, {-16, 12}}},
        Procedure{"profileRen", errors::profileRen, {{-1, 14}, {-2, 11}, {-16, 12}, {-28, 10}}},
        Procedure{"profileGetPorts", errors::profileGetPorts, {{-2, 11}}},
        Procedure{"profileGetUse", errors::profileGetUse, {{-2, 11}}},
        Procedure{"profileCopy", errors::profileCopy, {{-2, 3}, {-16, 4}}},
        Procedure{"profileGet", errors::profileGet, {{-2, 11}}},
        Procedure{"profileSet", errors::profileSet, {{-2, 11}}},
        Procedure{"profileStat", errors::profileStat, {{-2, 11}, {-11, 9}}},
        Procedure{"profileProtoAdd",
                  errors::profileProtoAdd,
                  {{-1, 14}, {-2, 11}, {-16, 12}, {-17, 4}, {-19, 3}}},
        Procedure{"profileProtoDel",
                  errors::profileProtoDel,
                  {{-1, 14}, {-2, 11}, {-16, 12}, {-19, 3}, {-22, 5}}},
        Procedure{"profileProtoGet", errors::profileProtoGet, {{-2, 11}, {-22, 3}}},
        Procedure{"profileProtoGetAll", errors::profileProtoGetAll, {{-2, 11}}},
        Procedure{"profileProtoSet",
                  errors::profileProtoSet,
                  {{-1, 14}, {-2, 11}, {-16, 12}, {-19, 3}, {-22, 5}}},
        Procedure{"profileProtoDelAll",
                  errors::profileProtoDelAll,
                  {{-1, 14}, {-2, 11}, {-16, 12}, {-19, 3}, {-22, 5}}},
        Procedure{"portAttach", errors::portAttach, {{-2, 11}}},
        Procedure{"portDetach", errors::portDetach, {{-2, 11}, {-9, 13}, {-19, 3}, {-20, 16}}},
        Procedure{"portGet", errors::portGet, {{-2, 11}, {-22, 15}}},
        Procedure{"portStat", errors::portStat, {{-11, 9}}},
        Procedure{"vlanStat", errors::vlanStat, {{-11, 9}}},
        Procedure{
            "profileStatus", errors::profileStatus, {{-1, 14}, {-2, 11}, {-16, 12}, {-28, 10}}}),
    [](const auto& procedure) { return std::string(procedure.param.name); });

TEST_P(ErrorMap, SuccessIsZero) { EXPECT_EQ(wireError(0, GetParam().mappings), RPC_L2CP_OK); }

TEST_P(ErrorMap, EveryFailureIsItsOwnNumberOrPlainlyFailed) {
  for (int result = -130; result < 0; ++result) {
    const auto row = GetParam().expected.find(result);
    const int expected = row == GetParam().expected.end() ? 1 : row->second;
    EXPECT_EQ(static_cast<int>(wireError(result, GetParam().mappings)), expected) << result;
  }
}

TEST_P(ErrorMap, OtherNumbersArePlainlyFailed) {
  for (const int result : {1, 2, 17, 2147483647, -1000, -2147483647 - 1}) {
    EXPECT_EQ(wireError(result, GetParam().mappings), RPC_L2CP_ERR_FAILED) << result;
  }
}

}  // namespace
