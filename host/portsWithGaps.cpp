// The control service's procedure for positions in the classifier.

#include <algorithm>
#include <vector>

#include "classifier/table.h"
#include "host/control.h"
#include "l2cp/l2cp.h"
#include "l2cp/positions.h"
#include "platform/itbridge.h"

namespace {

bool hasGap(const classifier::Rules& rules) {
  unsigned int next = firstPosition;
  for (const auto& rule : rules) {
    if (rule->index > lastPosition) break;
    if (rule->index > next) return true;
    next = rule->index + 1;
  }
  return false;
}

}  // namespace

control_ports* control_ports_with_gaps_1_svc(svc_req* /*request*/) {
  static control_ports result;
  static std::vector<u_int> ports;
  const classifier::Table& table =
      classifier::tableOf(singleton<itbridge>::instance().bridgeNameGet());
  ports.clear();
  for (const auto& [port, vlans] : singleton<L2CP>::instance().settings.ports) {
    if (hasGap(table.rules(port))) ports.push_back(port);
  }
  result.list = {static_cast<u_int>(ports.size()), ports.data()};
  return &result;
}
