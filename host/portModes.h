#pragma once

/// Which mode the programs of ports are in: the interface's driver or the kernel's own stack.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "classifier/xdp/attachment.h"
#include "classifier/xdp/plane.h"
#include "host/config.h"
#include "host/keptPrograms.h"
#include "host/livePort.h"
#include "host/loopCall.h"

/// Native mode is for all ports that can have it or for none: a frame that is redirected from there
/// to an interface that does not take it is lost without a word.
class PortModes {
 public:
  /// `detach` is called for ports that have lost their program, with the reason; `look` is set for
  /// when interfaces are to be looked at, and then `follow` called, although nothing is heard of
  /// them.
  PortModes(const Config& config, classifier::xdp::Plane& plane, KeptPrograms& kept,
            LivePortsByNumber& ports, std::function<void(LivePort&, const std::string&)> detach,
            const LoopAlarm& look);

  /// Attaches the port's program in the mode for it. Why that cannot be, if it cannot.
  std::optional<classifier::xdp::Problem> attach(LivePort& port);
  /// Has each port in the mode for it, now that interfaces, or what their drivers can do, may have
  /// changed.
  void follow();
  /// Drivers that have refused the program, and interfaces that took no redirected frames, are to
  /// be tried again: the reason may have been where it is not seen from here, as at the far end of
  /// a cable.
  void forgetRefusals();

 private:
  classifier::xdp::Mode modeFor(const LivePort& port, const std::string& file) const;
  static classifier::xdp::Mode bestMode(const LivePort& port);
  void leaveNative();
  void returnToNative();
  void retryNative();
  void tryNative();
  bool isCalm();
  bool refuses(const LivePort& port);
  void watchMarks();
  void noteUnmarked(LivePort& port);
  void setAll(classifier::xdp::Mode wanted);
  void set(LivePort& port, classifier::xdp::Mode mode);

  const Config& config_;
  classifier::xdp::Plane& plane_;
  KeptPrograms& kept_;
  LivePortsByNumber& ports_;
  const std::function<void(LivePort&, const std::string&)> detach_;
  /// Some programs took the place of ones that were kept in generic mode, for a reason that may be
  /// none any more.
  bool isGenericKept_ = false;
  /// Because of ports that take no frames which are redirected in native mode.
  bool isNativeLeft_ = false;
  /// Their interfaces, found when that mode was tried, with the MTU that each had then.
  std::map<std::uint32_t, std::uint32_t> refusing_;
  /// Since when there is none of them.
  std::optional<std::chrono::steady_clock::time_point> calmSince_;
  const LoopAlarm& look_;
  const LoopAlarm marks_;
};
