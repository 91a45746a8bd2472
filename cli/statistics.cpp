#include "cli/statistics.h"

#include <string>

namespace cli {

void showStatistics(Context& context, const rpc_l2cp_counters& counters,
                    std::initializer_list<Meaning> meanings) {
  accept(counters.error, meanings);
  context.output.record({{"discard", std::to_string(counters.discard)},
                         {"peer", std::to_string(counters.peer)},
                         {"tunnel", std::to_string(counters.tunnel)},
                         {"total", std::to_string(counters.total)}});
}

}  // namespace cli
