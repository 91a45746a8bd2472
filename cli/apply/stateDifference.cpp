#include "cli/apply/stateDifference.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "cli/apply/portPlan.h"

namespace cli {

namespace {

using Commands = std::vector<script::Command>;

Commands commandsOf(const std::string& profile, const Rules& rules) {
  Commands commands;
  for (const auto& [protocol, rule] : rules) {
    commands.emplace_back(script::Entry{profile, protocol, rule});
  }
  return commands;
}

Commands commandsOf(const std::string& vlanProfile, const Svids& svids) {
  Commands commands;
  for (const auto& [interface, vid] : svids) {
    commands.emplace_back(script::Svid{vlanProfile, interface, vid});
  }
  return commands;
}

Commands commandsOf(const std::string& name, const Service& service) {
  Commands commands;
  if (!service.vlanProfile.empty()) {
    commands.emplace_back(script::ServiceVlanProfile{name, service.vlanProfile});
  }
  if (!service.l2cpProfile.empty()) {
    commands.emplace_back(script::ServiceL2cpProfile{name, service.l2cpProfile});
  }
  return commands;
}

script::Command commandOf(const std::string& name, const Definition& definition) {
  return script::Protocol{name, definition.mac, definition.etherType, definition.subType};
}

/// What is in force on a port, as lines, each with what it attaches.
struct PortLine {
  PortLine(const script::Command& line, std::optional<Attachment> attached)
      : command(line), text(script::text(line)), attachment(std::move(attached)) {}

  script::Command command;
  std::string text;
  std::optional<Attachment> attachment;
};

class PortLines {
 public:
  PortLines(const State& state, std::uint32_t port) : state_(state), port_(port) {
    addAttachments();
    addOtherApplications();
  }

  const std::vector<PortLine>& all() const { return lines_; }
  bool has(const std::string& text) const {
    return std::any_of(lines_.begin(), lines_.end(),
                       [&](const PortLine& line) { return line.text == text; });
  }

 private:
  void addAttachments() {
    const auto found = state_.ports.find(port_);
    if (found == state_.ports.end()) return;
    for (const Attachment& attachment : found->second) {
      const auto services = applicationsOf(state_, attachment, port_);
      if (services.empty()) {
        lines_.emplace_back(script::Attach{attachment.profile, port_, attachment.vid}, attachment);
      } else {
        lines_.emplace_back(apply(services.back()), attachment);
        attaching_.insert(services.back());
      }
    }
  }

  void addOtherApplications() {
    const auto interface = static_cast<std::int32_t>(port_);
    if (interface < 0) return;
    for (const auto& [service, interfaces] : state_.applications) {
      if (!interfaces.contains(interface) || attaching_.contains(service)) continue;
      lines_.emplace_back(apply(service), std::nullopt);
      const Attachment attachment = state_.attachedBy(service, interface);
      if (attachment.profile.empty()) continue;
      lines_.emplace_back(script::NoAttach{attachment.profile, port_, attachment.vid},
                          std::nullopt);
    }
  }

  script::Command apply(const std::string& service) const {
    return script::Apply{service, static_cast<std::int32_t>(port_)};
  }

  const State& state_;
  std::uint32_t port_;
  std::vector<PortLine> lines_;
  std::set<std::string> attaching_;
};

class Difference {
 public:
  Difference(const State& current, const State& wanted) : current_(current), wanted_(wanted) {}

  std::vector<std::string> make() {
    protocols();
    blocks<script::L2cpProfile>(current_.l2cpProfiles, wanted_.l2cpProfiles);
    blocks<script::VlanProfile>(current_.vlanProfiles, wanted_.vlanProfiles);
    blocks<script::ServiceProfile>(current_.services, wanted_.services);
    ports();
    return std::move(lines_);
  }

 private:
  // At configuration level.
  void add(char sign, const script::Command& command) {
    writer_ = {};
    addInMode(sign, command);
  }
  void addInMode(char sign, const script::Command& command) {
    lines_.push_back(sign + writer_.line(command));
  }

  void protocols() {
    for (const auto& [name, definition] : current_.protocols) {
      const auto other = wanted_.protocols.find(name);
      const bool stays = other != wanted_.protocols.end();
      if (stays && other->second == definition) continue;
      add('-', commandOf(name, definition));
      if (stays) add('+', commandOf(name, other->second));
    }
    for (const auto& [name, definition] : wanted_.protocols) {
      if (!current_.protocols.contains(name)) add('+', commandOf(name, definition));
    }
  }

  template <class Enter, class Objects>
  void blocks(const Objects& before, const Objects& after) {
    for (const auto& [name, object] : before) {
      const auto other = after.find(name);
      if (other == after.end()) {
        add('-', Enter{name});
        inMode(commandsOf(name, object), {});
      } else if (other->second != object) {
        add(' ', Enter{name});
        inMode(commandsOf(name, object), commandsOf(name, other->second));
      }
    }
    for (const auto& [name, object] : after) {
      if (before.contains(name)) continue;
      add('+', Enter{name});
      inMode({}, commandsOf(name, object));
    }
  }

  void inMode(const Commands& before, const Commands& after) {
    const auto lacks = [](const Commands& commands, const script::Command& command) {
      return std::find(commands.begin(), commands.end(), command) == commands.end();
    };
    for (const script::Command& command : before) {
      if (lacks(after, command)) addInMode('-', command);
    }
    for (const script::Command& command : after) {
      if (lacks(before, command)) addInMode('+', command);
    }
  }

  void ports() {
    for (const std::uint32_t port : portsOf(current_, wanted_)) {
      onPort(PortLines(current_, port), PortLines(wanted_, port));
    }
  }

  void onPort(const PortLines& before, const PortLines& after) {
    const std::set<std::string> moved = linesOutOfOrder(before, after);
    for (const PortLine& line : before.all()) {
      if (!after.has(line.text) || moved.contains(line.text)) add('-', line.command);
    }
    for (const PortLine& line : after.all()) {
      if (!before.has(line.text) || moved.contains(line.text)) add('+', line.command);
    }
  }

  // Of two that can hold for the same frame and change places, the one that goes behind the other.
  std::set<std::string> linesOutOfOrder(const PortLines& before, const PortLines& after) const {
    std::set<std::string> moved;
    const auto& lines = before.all();
    for (auto one = lines.begin(); one != lines.end(); ++one) {
      for (auto other = std::next(one); other != lines.end(); ++other) {
        if (!one->attachment || !other->attachment ||
            !compete(*one->attachment, *other->attachment)) {
          continue;
        }
        if (comesBefore(after, other->text, one->text)) moved.insert(one->text);
      }
    }
    return moved;
  }

  bool compete(const Attachment& one, const Attachment& other) const {
    const auto hasRules = [&](const std::string& profile) {
      const auto found = wanted_.l2cpProfiles.find(profile);
      return found == wanted_.l2cpProfiles.end() || !found->second.empty();
    };
    return canMeet(one, other) && hasRules(one.profile) && hasRules(other.profile);
  }

  static bool comesBefore(const PortLines& lines, const std::string& one,
                          const std::string& other) {
    bool hasOne = false;
    for (const PortLine& line : lines.all()) {
      if (line.text == one) hasOne = true;
      if (line.text == other) return hasOne;
    }
    return false;
  }

  const State& current_;
  const State& wanted_;
  script::LineWriter writer_;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> linesBetween(const State& current, const State& wanted) {
  return Difference(current, wanted).make();
}

}  // namespace cli
