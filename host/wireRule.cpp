#include "host/wireRule.h"

#include "host/wireText.h"

char* wireName(const classifier::Name& name) {
  return wireText(name.view().data());
}  // ends with NUL

control_fate wireFate(classifier::Fate fate) {
  switch (fate) {
    case classifier::Fate::untouched:
      return CONTROL_FATE_UNTOUCHED;
    case classifier::Fate::discard:
      return CONTROL_FATE_DISCARD;
    case classifier::Fate::peer:
      return CONTROL_FATE_PEER;
    case classifier::Fate::tunnel:
      return CONTROL_FATE_TUNNEL;
  }
  return CONTROL_FATE_UNTOUCHED;
}
