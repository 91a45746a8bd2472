#include "cli/commands/setting.h"

namespace cli {

bool takeSwitch(Words& words) { return words.choose({"on", "off"}) == "on"; }

rpc_l2cp_rule takeRule(Words& words) {
  const std::string_view rule = words.choose({"discard", "peer", "tunnel"});
  if (rule == "discard") return RPC_L2CP_RULE_DISCARD;
  return rule == "peer" ? RPC_L2CP_RULE_PEER : RPC_L2CP_RULE_TUNNEL;
}

}  // namespace cli
