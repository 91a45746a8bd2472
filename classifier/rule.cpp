#include "classifier/rule.h"

namespace classifier {

const char* text(Fate fate) {
  switch (fate) {
    case Fate::untouched:
      return "untouched";
    case Fate::discard:
      return "discard";
    case Fate::peer:
      return "peer";
    case Fate::tunnel:
      return "tunnel";
  }
  return "unknown";
}

}  // namespace classifier
