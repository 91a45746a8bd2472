#pragma once

/// The ports whose frames the kernel decides about: their interfaces, and the programs on those.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "classifier/table.h"
#include "classifier/xdp/netlink.h"
#include "classifier/xdp/plane.h"
#include "host/config.h"
#include "host/keptPrograms.h"
#include "host/livePort.h"
#include "host/loopCall.h"
#include "host/portModes.h"

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
  /// Says why the port is left out, if it is.
  std::string addPort(std::uint32_t number, const Config::Port& wanted);
  std::string refusal(std::uint32_t number, const Config::Port& wanted);
  void removePort(std::uint32_t number);
  void place(LivePort& port, const std::vector<classifier::xdp::Link>& links);
  void showMembers(const std::vector<classifier::xdp::Link>& links);
  bool isAsPlaced(const LivePort& port) const;
  void attach(LivePort& port);
  void detach(LivePort& port, const std::string& reason);
  bool isPort(const classifier::xdp::Link& link) const;
  void purge(const std::vector<classifier::xdp::Link>& links);

  classifier::Table& table_;
  const Config& config_;
  classifier::xdp::Plane plane_;
  KeptPrograms kept_;
  LivePortsByNumber ports_;
  /// Ports of the configuration that are not among them, and why.
  std::map<std::uint32_t, std::string> leftOut_;
  /// What the kernel said last about where tunnelled frames are to go.
  int membersError_ = 0;
  /// Whether the kernel did not answer last.
  bool isUnanswered_ = false;
  const LoopAlarm again_;
  PortModes modes_;
};
