#include "host/hostScripter.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "host/profiles.h"
#include "l2cp/l2cp.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"
#include "script/script.h"

namespace {

using Attachment = std::tuple<std::string, unsigned int, unsigned short>;
using Application = std::pair<std::string, int>;

CliMode* configuration() { return CliMode::cliMode(scriptingProductDefs::CLI_MODE_CONF, nullptr); }

CliMode* modeOf(scriptingProductDefs::CliModeId id, const std::string& name) {
  return CliMode::cliMode(id, script::nameText(name).c_str(), configuration());
}

void add(std::list<CliCommand>& out, CliMode* mode, std::string text) {
  // A line is written as it stands in its mode; the indentation is the writer's.
  if (!text.empty() && text.front() == ' ') text.erase(0, 1);
  out.emplace_back(mode, text, false, false);
}

void addVlanProfiles(std::list<CliCommand>& out) {
  for (const auto& [name, info] : singleton<vlanprofile>::instance().vlanProfiles) {
    CliMode* const mode = modeOf(scriptingProductDefs::CLI_MODE_VLAN_PROFILE, name);
    add(out, mode, "");
    for (const auto& [intf, svid] : info.svids) {
      add(out, mode, script::text(script::Svid{name, intf, static_cast<std::uint16_t>(svid)}));
    }
  }
}

void addServiceProfiles(std::list<CliCommand>& out) {
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

// Attachments that service profiles made, and which.
std::map<Attachment, std::string> appliedAttachments() {
  const vlanprofile& vlans = singleton<vlanprofile>::instance();
  const auto& services = singleton<servprofile>::instance().servProfiles;
  std::map<Attachment, std::string> attachments;
  for (const auto& [intf, names] : profiles::applied()) {
    for (const std::string& name : names) {
      const auto info = services.find(name);
      if (info == services.end()) continue;
      const auto vlanProfile = vlans.vlanProfiles.find(info->second.vlanProfile);
      if (vlanProfile == vlans.vlanProfiles.end()) continue;
      const int svid = vlans.vlanProfileSvidGet(intf, vlanProfile->second.id);
      attachments.emplace(Attachment(info->second.l2cpProfile, static_cast<unsigned int>(intf),
                                     static_cast<unsigned short>(svid)),
                          name);
    }
  }
  return attachments;
}

bool isScripted(const std::list<CliCommand>& out, const std::string& profile) {
  return std::any_of(out.begin(), out.end(), [&](const CliCommand& command) {
    const CliMode* const mode = command.mode();
    return mode != nullptr && mode->id() == scriptingProductDefs::CLI_MODE_L2CP_PROFILE &&
           mode->name() == script::nameText(profile);
  });
}

// The attachments of a port in the order of their entries, which decides between those that hold
// for the same frame. What a service profile attached is written as its application; those are
// returned.
std::set<Application> addAttachments(std::list<CliCommand>& out) {
  const L2CP::Settings& settings = singleton<L2CP>::instance().settings;
  const std::map<Attachment, std::string> applied = appliedAttachments();
  std::list<CliCommand> lines;
  std::set<Application> written;
  for (const auto& [port, vlans] : settings.ports) {
    std::multimap<unsigned int, std::string> byPosition;
    for (const auto& [vid, attached] : vlans) {
      for (const auto& [profile, positions] : attached) {
        const unsigned int position = positions.empty() ? 0 : positions.back();
        const auto application = applied.find({profile->name, port, vid});
        if (application != applied.end()) {
          const script::Apply apply{application->second, static_cast<int>(port)};
          byPosition.emplace(position, script::text(apply));
          written.emplace(apply.serviceProfile, apply.interface);
          continue;
        }
        std::string line = script::text(script::Attach{profile->name, port, vid});
        const auto known = settings.profiles.find(profile->name);
        const bool isCurrent =
            known != settings.profiles.end() && known->second.pointer() == profile;
        if (!isCurrent || !isScripted(out, profile->name)) {
          line.insert(0, "! left out (this script does not make the profile): ");
        }
        byPosition.emplace(position, line);
      }
    }
    for (const auto& [position, line] : byPosition) add(lines, configuration(), line);
  }
  out.splice(out.end(), lines);
  return written;
}

// Where service profiles are applied that attach nothing there.
void addIdleApplications(std::list<CliCommand>& out, const std::set<Application>& written) {
  for (const auto& [intf, names] : profiles::applied()) {
    for (const std::string& name : names) {
      if (!written.contains({name, intf})) {
        add(out, configuration(), script::text(script::Apply{name, intf}));
      }
    }
  }
}

}  // namespace

bool HostScripter::buildCliCommands(std::list<CliCommand>& out, ConfigMode mode, bool /*verbose*/) {
  if (mode == configDynamicProfiles) return true;
  addVlanProfiles(out);
  addServiceProfiles(out);
  addIdleApplications(out, addAttachments(out));
  return true;
}
