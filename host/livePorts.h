#pragma once

/// The ports whose frames the kernel decides about: their interfaces, and the programs on those.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "classifier/table.h"
#include "classifier/xdp/netlink.h"
#include "classifier/xdp/plane.h"
#include "host/config.h"
#include "host/keptPrograms.h"
#include "host/loopCall.h"

/// For the thread on which requests are answered, whose loop it uses.
class LivePorts {
 public:
  struct State {
    std::uint32_t number;
    std::string interface;
    /// "native" or "generic", or why frames of the port are not decided about.
    std::string state;
  };

  /// Loads the program, and has the table give it the rules of all ports that have an interface.
  /// Nothing is attached yet. Throws classifier::xdp::PlaneError; ConfigError for ports that it
  /// does not hold and for programs that cannot be kept.
  LivePorts(classifier::Table& table, const Config& config);
  /// Takes the programs from the interfaces; those that are to be kept go on with the rules that
  /// they have. Counters end.
  ~LivePorts();
  LivePorts(const LivePorts&) = delete;
  LivePorts& operator=(const LivePorts&) = delete;

  /// Has each port on the interface that has its name now. The first call attaches the programs.
  /// Has itself called again where time alone may change something.
  void followLinks();

  /// Follows the ports of the configuration, which it was made with, after they may have changed,
  /// and tries again what was refused before. Says which of them it cannot take.
  std::vector<std::string> followConfig();

  /// In ascending order.
  std::vector<State> states() const;

 private:
  struct Port {
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
  };

  /// Says why the port is left out, if it is.
  std::string addPort(std::uint32_t number, const Config::Port& wanted);
  std::string refusal(std::uint32_t number, const Config::Port& wanted);
  void removePort(std::uint32_t number);
  void place(std::uint32_t number, Port& port, const std::vector<classifier::xdp::Link>& links);
  void showMembers(const std::vector<classifier::xdp::Link>& links);
  bool isAsPlaced(std::uint32_t number, const Port& port) const;
  void attach(std::uint32_t number, Port& port);
  static void noteHiddenTags(std::uint32_t number, Port& port);
  static void noteKeeping(std::uint32_t number, Port& port);
  void detach(std::uint32_t number, Port& port, const std::string& reason);
  classifier::xdp::Mode modeFor(std::uint32_t interface, const std::string& file) const;
  void retryNativeMode();
  void leaveNativeMode();
  void returnToNativeMode();
  bool isCalm();
  void tryNativeMode();
  bool refuses(const Port& port);
  void watchMarks();
  void noteUnmarked(std::uint32_t number, Port& port);
  static classifier::xdp::Mode bestMode(const Port& port);
  void setModes(classifier::xdp::Mode wanted);
  void setMode(std::uint32_t number, Port& port, classifier::xdp::Mode mode);
  static void noteAttached(std::uint32_t number, Port& port);
  bool isPort(const classifier::xdp::Link& link) const;
  void purge(const std::vector<classifier::xdp::Link>& links);

  classifier::Table& table_;
  const Config& config_;
  classifier::xdp::Plane plane_;
  KeptPrograms kept_;
  std::map<std::uint32_t, Port> ports_;
  /// Ports of the configuration that are not among them, and why.
  std::map<std::uint32_t, std::string> leftOut_;
  /// What the kernel said last about where tunnelled frames are to go.
  int membersError_ = 0;
  /// Whether the kernel did not answer last.
  bool isUnanswered_ = false;
  /// Some programs took the place of ones that were kept in generic mode, for a reason that may be
  /// none any more.
  bool isGenericKept_ = false;
  /// Because of ports that take no frames which are redirected in native mode.
  bool isNativeModeLeft_ = false;
  /// Their interfaces, found when that mode was tried, with the MTU that each had then.
  std::map<std::uint32_t, std::uint32_t> refusing_;
  /// Since when there is none of them.
  std::optional<std::chrono::steady_clock::time_point> calmSince_;
  const LoopAlarm again_;
  const LoopAlarm marks_;
};
