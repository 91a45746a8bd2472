#include "host/hostScripter.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "host/profiles.h"
#include "host/scriptText.h"
#include "l2cp/l2cp.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"
#include "script/script.h"

namespace {

using Commands = std::list<CliCommand>;
using Names = std::set<std::string>;

constexpr const char* notMade = "! left out (this script does not make the profile): ";
constexpr const char* noSuchProtocol = "! left out (the protocol is not in the catalogue): ";
constexpr const char* withoutRules = "! left out (none of its rules can be written): ";

const L2CP::Settings& settings() { return singleton<L2CP>::instance().settings; }

CliMode* configuration() { return CliMode::cliMode(scriptingProductDefs::CLI_MODE_CONF, nullptr); }

CliMode* modeOf(scriptingProductDefs::CliModeId id, const std::string& name) {
  return CliMode::cliMode(id, script::nameText(name).c_str(), configuration());
}

void add(Commands& out, CliMode* mode, std::string text) {
  // A line is written as it stands in its mode; the indentation is the writer's.
  if (!text.empty() && text.front() == ' ') text.erase(0, 1);
  out.emplace_back(mode, text, false, false);
}

// ---- What the module wrote ----

bool isL2cpProfile(const CliMode* mode) {
  return mode != nullptr && mode->id() == scriptingProductDefs::CLI_MODE_L2CP_PROFILE;
}

// Whether a line reads back in the mode of an L2CP profile.
bool isRule(const std::string& text) {
  script::Reader reader;
  reader.read(script::text(script::L2cpProfile{"P"}));
  try {
    reader.read(text);
    return true;
  } catch (const script::Problem&) {
    return false;
  }
}

// Whether the catalogue has the protocol of a rule: one that has left it may have left its name to
// another.
bool isCurrent(const L2CP::Protocol& proto) {
  const auto known = settings().protocols.find(proto.name);
  return known != settings().protocols.end() && &*known->second == &proto;
}

// Looks through the lines of a profile's mode, from `line` on, and returns where they end. A
// profile without a rule that can be restored is left out, as the module leaves out those that have
// none; others are added to `made`.
Commands::iterator checkRules(Commands& out, Commands::iterator line, Names& made) {
  const CliMode* const written = line->mode();
  const std::string name = l2cpProfileOf(*written);
  CliMode* const mode = CliMode::cliMode(written->id(), written->name().c_str(), configuration());
  const Commands::iterator begin = line;
  bool hasRules = false;
  // The module writes a line for each entry, in their order.
  for (const auto& [proto, rule] : settings().profiles.at(name)->protocols) {
    if (!isCurrent(*proto)) {
      *line = CliCommand(mode, noSuchProtocol + line->text(), false, false);
    } else if (isRule(line->text())) {
      hasRules = true;
    }
    ++line;
  }
  if (!hasRules) {
    out.erase(begin, line);
    out.emplace(line, configuration(), withoutRules + script::text(script::L2cpProfile{name}),
                false, false);
  } else if (script::isWritable(name)) {
    made.insert(name);
  }
  return line;
}

// The L2CP profiles that the script makes.
Names checkProfiles(Commands& out) {
  Names made;
  auto line = out.begin();
  while (line != out.end()) {
    if (isL2cpProfile(line->mode())) {
      line = checkRules(out, line, made);
    } else {
      ++line;
    }
  }
  return made;
}

// ---- VLAN profiles and service profiles ----

void addVlanProfiles(Commands& out) {
  for (const auto& [name, info] : singleton<vlanprofile>::instance().vlanProfiles) {
    CliMode* const mode = modeOf(scriptingProductDefs::CLI_MODE_VLAN_PROFILE, name);
    add(out, mode, "");
    for (const auto& [intf, svid] : info.svids) {
      add(out, mode, script::text(script::Svid{name, intf, static_cast<std::uint16_t>(svid)}));
    }
  }
}

void addServiceProfiles(Commands& out) {
  for (const auto& [name, info] : singleton<servprofile>::instance().servProfiles) {
    CliMode* const mode = modeOf(scriptingProductDefs::CLI_MODE_SERVICE_PROFILE, name);
    add(out, mode, "");
    if (info.vlanProfile[0] != '\0') {
      add(out, mode, script::text(script::ServiceVlanProfile{name, info.vlanProfile}));
    }
    if (info.l2cpProfile[0] != '\0') {
      add(out, mode, script::text(script::ServiceL2cpProfile{name, info.l2cpProfile}));
    }
  }
}

// ---- One port ----

// A service profile that is applied on the interface of the port's number, and what it attaches.
struct Application {
  script::Apply command;
  bool attaches = false;
  std::string profile = {};
  std::uint16_t vid = 0;
  bool canBeRestored = true;
};

// In the order in which they were applied.
std::vector<Application> applicationsOn(unsigned int port, const Names& made) {
  const auto& services = singleton<servprofile>::instance().servProfiles;
  const vlanprofile& vlans = singleton<vlanprofile>::instance();
  std::vector<Application> applications;
  const int intf = static_cast<int>(port);
  const auto applied = profiles::applied().find(intf);
  if (applied == profiles::applied().end()) return applications;
  for (const std::string& name : applied->second) {
    Application application{.command = {name, intf}};
    const auto service = services.find(name);
    if (service != services.end() && service->second.l2cpProfile[0] != '\0') {
      const std::string vlanProfile = service->second.vlanProfile;
      const auto vlan = vlans.vlanProfiles.find(vlanProfile);
      application.attaches = true;
      application.profile = service->second.l2cpProfile;
      application.canBeRestored = script::isWritable(name) && script::isWritable(vlanProfile) &&
                                  vlan != vlans.vlanProfiles.end() &&
                                  made.contains(application.profile);
      if (vlan != vlans.vlanProfiles.end()) {
        application.vid =
            static_cast<std::uint16_t>(vlans.vlanProfileSvidGet(intf, vlan->second.id));
      }
    }
    applications.push_back(application);
  }
  return applications;
}

// The lines of one port, in three parts.
class Port {
 public:
  Port(unsigned int number, const Names& made)
      : number_(number), made_(made), applications_(applicationsOn(number, made)) {
    const auto attachments = settings().ports.find(number);
    if (attachments != settings().ports.end()) addAttachments(attachments->second);
    addOtherApplications();
  }

  void write(Commands& out) const {
    for (const std::string& line : detached_) add(out, configuration(), line);
    for (const auto& [position, line] : attached_) add(out, configuration(), line);
    for (const std::string& line : idle_) add(out, configuration(), line);
  }

 private:
  // The order of the entries decides between attachments that hold for the same frame. The VLAN and
  // the name are for those whose positions do not tell, for want of entries or of room.
  using Position = std::tuple<unsigned int, unsigned short, std::string>;

  void addAttachments(const L2CP::VlanMap& vlans) {
    for (const auto& [vid, attached] : vlans) {
      for (const auto& [profile, positions] : attached) {
        const unsigned int position = positions.empty() ? 0 : positions.back();
        attached_.emplace(Position(position, vid, profile->name), attachment(*profile, vid));
      }
    }
  }

  std::string attachment(const L2CP::Profile& profile, unsigned short vid) {
    const script::Attach direct{profile.name, number_, vid};
    if (!isCurrent(profile)) return notMade + script::text(direct);
    // Of several that attach the same, only the last one can have done it.
    const auto application =
        std::find_if(applications_.rbegin(), applications_.rend(), [&](const auto& other) {
          return other.attaches && other.profile == profile.name && other.vid == vid;
        });
    if (application == applications_.rend()) {
      const std::string line = script::text(direct);
      return made_.contains(profile.name) ? line : notMade + line;
    }
    const std::string line = script::text(application->command);
    const bool canBeRestored = application->canBeRestored;
    applications_.erase(std::next(application).base());
    return canBeRestored ? line : notMade + line;
  }

  // What is attached may be a profile that has left the registry, where its name may be another's.
  static bool isCurrent(const L2CP::Profile& profile) {
    const auto known = settings().profiles.find(profile.name);
    return known != settings().profiles.end() && &*known->second == &profile;
  }

  void addOtherApplications() {
    for (const Application& application : applications_) {
      const std::string line = script::text(application.command);
      if (!application.attaches) {
        idle_.push_back(line);
      } else if (!application.canBeRestored) {
        detached_.push_back(notMade + line);
      } else {
        // Its attachment has been taken away.
        detached_.push_back(line);
        detached_.push_back(
            script::text(script::NoAttach{application.profile, number_, application.vid}));
      }
    }
  }

  unsigned int number_;
  const Names& made_;
  std::vector<Application> applications_;
  std::vector<std::string> detached_;
  std::map<Position, std::string> attached_;
  std::vector<std::string> idle_;
};

std::set<unsigned int> portsInUse() {
  std::set<unsigned int> ports;
  for (const auto& [port, vlans] : settings().ports) ports.insert(port);
  for (const auto& [intf, names] : profiles::applied()) {
    ports.insert(static_cast<unsigned int>(intf));
  }
  return ports;
}

}  // namespace

bool HostScripter::buildCliCommands(Commands& out, ConfigMode mode, bool /*verbose*/) {
  if (mode == configDynamicProfiles) return true;
  const Names made = checkProfiles(out);
  addVlanProfiles(out);
  addServiceProfiles(out);
  for (const unsigned int port : portsInUse()) Port(port, made).write(out);
  return true;
}
