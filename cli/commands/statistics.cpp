#include "cli/commands/statistics.h"

#include <utility>

namespace cli {

void showStatistics(Context& context, std::string_view kind, Value whose,
                    const rpc_l2cp_counters& counters) {
  context.output.show(
      {"statistics",
       "statistics",
       {{kind}, {"discard"}, {"peer"}, {"tunnel"}, {"total"}},
       {{std::move(whose), numberValue(counters.discard), numberValue(counters.peer),
         numberValue(counters.tunnel), numberValue(counters.total)}}});
}

}  // namespace cli
