#pragma once

/// The module and the daemon's profiles in the test's own process, without a loop that serves them.
/// Programs that include this link recording_classifier and rpc_service.

#include <string>
#include <vector>

#include "host/hostScripter.h"
#include "host/module.h"
#include "host/profiles.h"
#include "host/scriptText.h"
#include "l2cp/l2cp.h"
#include "platform/CliConfig.h"
#include "tests/support/recording_classifier.h"

namespace support {

/// Puts together what a daemon puts together when it starts. To be called once.
inline void connectHost() {
  connectModule();
  singleton<CliConfig>::instance().addScripter(new HostScripter);  // NOLINT: taken over
}

/// The state of a daemon that has just been started.
inline void startFresh() {
  L2CP& entity = singleton<L2CP>::instance();
  profiles::clear();
  entity.applyDefaultSettings();
  entity.settings = L2CP::Settings();
  RecordingClassifier::instance().reset();
}

inline std::vector<std::string> runningConfig(Scripter::ConfigMode mode) {
  return scriptText(singleton<CliConfig>::instance().runningConfig(mode));
}

}  // namespace support
