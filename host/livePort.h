#pragma once

/// A port whose frames the kernel decides about, and what the log says of it.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "classifier/xdp/attachment.h"
#include "host/config.h"

struct LivePort {
  std::uint32_t number;
  Config::Port wanted;
  std::uint32_t interface = 0;
  std::uint32_t mtu = 0;
  std::optional<classifier::xdp::Attachment> attachment = {};
  /// Why there is none; empty before the first attempt.
  std::string problem = {};
  /// The MTU with which the driver last refused the program; 0 if it is to be asked again.
  std::optional<std::uint32_t> refusedMtu = {};
  /// In native mode, its driver has no room for the mark of frames for the switch itself.
  bool cannotMark = false;
  /// The mode for which it was said that tags may be hidden, if they may be.
  std::optional<classifier::xdp::Mode> notedMode = {};
  /// In no bridge.
  bool isAlone = false;
  /// Why its programs end with the daemon though they are to be kept; empty if they do not.
  std::string keepingProblem = {};

  bool isIn(classifier::xdp::Mode mode) const { return attachment && attachment->mode() == mode; }

  /// That its program is attached, and whether it is kept. There has to be one, as below.
  void noteAttached();
  void noteKeeping();
  /// Whether tags may be hidden, once for each interface and mode.
  void noteHiddenTags();
};

/// By number.
using LivePortsByNumber = std::map<std::uint32_t, LivePort>;
