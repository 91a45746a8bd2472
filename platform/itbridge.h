#pragma once

#include "platform/singleton.h"

/// The switch's bridge.
class itbridge : public singleton<itbridge> {
 public:
  /// The name of the bridge device. Valid as long as the daemon runs.
  const char* bridgeNameGet() const;
};

template <>
itbridge& singleton<itbridge>::instance();
