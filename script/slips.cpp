#include "script/slips.h"

#include <algorithm>
#include <vector>

namespace script {

std::size_t slips(std::string_view from, std::string_view to) {
  std::vector<std::vector<std::size_t>> least(from.size() + 1,
                                              std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) least[i][0] = i;
  for (std::size_t j = 0; j <= to.size(); ++j) least[0][j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t wrong = from[i - 1] == to[j - 1] ? 0 : 1;
      least[i][j] =
          std::min({least[i - 1][j] + 1, least[i][j - 1] + 1, least[i - 1][j - 1] + wrong});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
        least[i][j] = std::min(least[i][j], least[i - 2][j - 2] + 1);
      }
    }
  }
  return least[from.size()][to.size()];
}

}  // namespace script
