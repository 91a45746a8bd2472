#pragma once

/// Random configurations, as scripts and as states, made of few names so that any two of them have
/// much in common.

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cli/apply/state.h"
#include "script/script.h"

namespace cli {

/// How many, unless the environment asks for more or less.
inline int pairsToTry(int usually) {
  const char* const more = std::getenv("L2CP_RANDOM_STATES");
  return more == nullptr ? usually : std::atoi(more);
}

struct RandomState {
  State state;
  std::vector<script::Command> commands;  ///< those that made it of the built-in protocols

  std::string script() const {
    std::string text;
    for (const script::Command& command : commands) text += script::text(command) + "\n";
    return text;
  }
};

class RandomStates {
 public:
  explicit RandomStates(std::uint32_t seed) : engine_(seed) {}

  /// Begins with these protocols, which are built in.
  RandomState next(const std::map<std::string, Definition>& builtIn) {
    made_ = {};
    made_.state.protocols = builtIn;
    const unsigned int steps = number(60);
    for (unsigned int i = 0; i < steps; ++i) step();
    return made_;
  }

  /// Much like another one: some of its commands are left out, and there are some more.
  RandomState variationOf(const RandomState& other,
                          const std::map<std::string, Definition>& builtIn) {
    made_ = {};
    made_.state.protocols = builtIn;
    std::string profile;
    bool inMode = false;
    for (const script::Command& command : other.commands) {
      const bool entersMode = script::entersMode(command);
      const auto* const entered = std::get_if<script::L2cpProfile>(&command);
      if (entersMode) profile = entered == nullptr ? "" : entered->name;
      const bool exits = std::holds_alternative<script::Exit>(command);
      if (exits && !profile.empty() && chance(20)) add(rule(profile));
      if (!inMode && chance(5)) step();
      if (entersMode || exits || !chance(7)) add(command);
      inMode = (inMode || entersMode) && !exits;
    }
    return made_;
  }

  unsigned int number(unsigned int below) { return static_cast<unsigned int>(engine_() % below); }

 private:
  bool chance(unsigned int percent) { return number(100) < percent; }

  std::string oneOf(std::initializer_list<const char*> names) {
    return *(names.begin() + number(static_cast<unsigned int>(names.size())));
  }

  std::string profile() { return oneOf({"gold", "silver", "two words", "DEFAULT"}); }
  std::string ownProtocol() { return oneOf({"PTP", "a \"b", "\xff"}); }
  std::string protocol() { return chance(60) ? oneOf({"LLDP", "CDP", "xSTP"}) : ownProtocol(); }
  std::string vlanProfile() { return oneOf({"metro", "core"}); }
  std::string service() { return oneOf({"business", "DEFAULT", "h\xc3\xb6me"}); }
  std::int32_t interface() { return static_cast<std::int32_t>(1 + number(3)); }
  std::uint32_t port() { return 1 + number(3); }
  std::uint16_t vid() { return chance(40) ? script::wholePort : svid(); }
  std::uint16_t etherType() {
    return chance(20) ? script::noEtherType : static_cast<std::uint16_t>(0x88f7 + number(2));
  }
  std::uint16_t svid() { return static_cast<std::uint16_t>(10 + number(2)); }

  bool add(const script::Command& command) {
    if (!made_.state.take(command).empty()) return false;
    made_.commands.push_back(command);
    return true;
  }

  template <class Enter, class Inside>
  void inMode(const std::string& name, Inside inside) {
    add(Enter{name});
    for (unsigned int i = number(4); i > 0; --i) add(inside());
    add(script::Exit{});
  }

  script::Command rule(const std::string& name) {
    if (chance(20)) return script::NoEntry{name, protocol()};
    return script::Entry{name, protocol(), static_cast<script::Rule>(number(3))};
  }

  script::Command svidOf(const std::string& name) {
    if (chance(20)) return script::NoSvid{name, interface()};
    return script::Svid{name, interface(), svid()};
  }

  script::Command partOf(const std::string& name) {
    const bool none = chance(10);
    if (chance(50)) return script::ServiceVlanProfile{name, none ? "" : vlanProfile()};
    return script::ServiceL2cpProfile{name, none ? "" : profile()};
  }

  void step() {
    switch (number(10)) {
      case 0:
        add(script::Protocol{ownProtocol(), {}, etherType()});
        break;
      case 1:
      case 2: {
        const std::string name = profile();
        inMode<script::L2cpProfile>(name, [&] { return rule(name); });
        break;
      }
      case 3: {
        const std::string name = vlanProfile();
        inMode<script::VlanProfile>(name, [&] { return svidOf(name); });
        break;
      }
      case 4: {
        const std::string name = service();
        inMode<script::ServiceProfile>(name, [&] { return partOf(name); });
        break;
      }
      case 5:
      case 6:
        add(script::Attach{profile(), port(), vid()});
        break;
      case 7:
      case 8:
        add(script::Apply{service(), interface()});
        break;
      default:
        undo();
    }
  }

  void undo() {
    switch (number(6)) {
      case 0:
        add(script::NoProtocol{ownProtocol()});
        break;
      case 1:
        add(script::NoL2cpProfile{profile()});
        break;
      case 2:
        add(script::NoVlanProfile{vlanProfile()});
        break;
      case 3:
        add(script::NoServiceProfile{service()});
        break;
      case 4:
        add(script::NoAttach{profile(), port(), vid()});
        break;
      default:
        add(script::NoApply{service(), interface()});
    }
  }

  std::mt19937 engine_;
  RandomState made_;
};

}  // namespace cli
