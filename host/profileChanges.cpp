#include "host/profileChanges.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "host/profiles.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"
#include "script/script.h"

namespace {

using Svids = std::map<int, int>;

class Changes {
 public:
  Changes(Config& current, const Config& wanted) : current_(current), wanted_(wanted) {}

  // In this order: a service profile can name only a VLAN profile that is there, and a VLAN profile
  // can go only when none names it.
  std::vector<std::string> make() {
    for (const auto& [name, svids] : wanted_.vlanProfiles) {
      if (!current_.vlanProfiles.contains(name)) addVlanProfile(name);
    }
    removeServiceProfiles();
    for (const auto& [name, profile] : wanted_.serviceProfiles) setServiceProfile(name, profile);
    for (const auto& [name, svids] : wanted_.vlanProfiles) setSvids(name, svids);
    removeVlanProfiles();
    return std::move(left_);
  }

 private:
  // The names and numbers have been checked with the file: what is refused is in use.
  static bool isDone(int answer) { return answer == 0; }
  // A client may have been first.
  static bool isGone(int answer) { return answer == 0 || answer == -ENOENT; }

  template <class... Arguments>
  void leave(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    left_.push_back(fmt::format(format, std::forward<Arguments>(arguments)...));
  }

  void addVlanProfile(const std::string& name) {
    const bool isNew = isDone(profiles::addVlanProfile(name));
    Svids& svids = current_.vlanProfiles[name];
    if (isNew) svids.clear();
  }

  void removeServiceProfiles() {
    std::erase_if(current_.serviceProfiles, [&](const auto& element) {
      const std::string& name = element.first;
      if (wanted_.serviceProfiles.contains(name)) return false;
      if (isGone(profiles::deleteServiceProfile(name))) return true;
      leave("the service profile \"{}\" is applied on an interface and stays", name);
      return false;
    });
  }

  void setServiceProfile(const std::string& name, const Config::ServiceProfile& profile) {
    const auto known = current_.serviceProfiles.find(name);
    if (known != current_.serviceProfiles.end() && known->second == profile) return;
    if (!profile.vlanProfile.empty()) addVlanProfile(profile.vlanProfile);
    profiles::addServiceProfile(name);
    if (isDone(profiles::setVlanProfile(name, profile.vlanProfile)) &&
        isDone(
            singleton<servprofile>::instance().servProfileL2cpProfile(name, profile.l2cpProfile))) {
      current_.serviceProfiles[name] = profile;
    } else {
      leave("the service profile \"{}\" is applied on an interface and stays as it is", name);
    }
  }

  void setSvids(const std::string& name, const Svids& wanted) {
    Svids& svids = current_.vlanProfiles.at(name);
    if (svids == wanted) return;
    addVlanProfile(name);
    Svids changed;
    std::set_difference(wanted.begin(), wanted.end(), svids.begin(), svids.end(),
                        std::inserter(changed, changed.end()));
    for (const auto& [port, svid] : svids) {
      if (!wanted.contains(port)) changed.emplace(port, 0);
    }
    for (const auto& [port, svid] : changed) {
      if (!isDone(profiles::setSvid(name, port, svid))) {
        leave("the VLAN profile \"{}\" is in force on an interface and keeps its S-VIDs", name);
        return;
      }
    }
    svids = wanted;
  }

  void removeVlanProfiles() {
    std::erase_if(current_.vlanProfiles, [&](const auto& element) {
      const std::string& name = element.first;
      if (wanted_.vlanProfiles.contains(name)) return false;
      if (isGone(profiles::deleteVlanProfile(name))) return true;
      leave("the VLAN profile \"{}\" is named by a service profile and stays", name);
      return false;
    });
  }

  Config& current_;
  const Config& wanted_;
  std::vector<std::string> left_;
};

class Removals {
 public:
  // In this order: a VLAN profile can go only when no service profile names it.
  std::vector<std::string> of(const Config& file) {
    for (const auto& [name, profile] : file.serviceProfiles) addServiceProfile(name, profile);
    for (const auto& [name, svids] : file.vlanProfiles) addVlanProfile(name, svids);
    return std::move(lines_);
  }

 private:
  void addServiceProfile(const std::string& name, const Config::ServiceProfile& profile) {
    if (!script::isWritable(name)) return;
    const auto& services = singleton<servprofile>::instance().servProfiles;
    const auto now = services.find(name);
    if (now == services.end()) return add(script::NoServiceProfile{name});
    std::vector<script::Command> commands;
    if (profile.vlanProfile != now->second.vlanProfile) {
      commands.emplace_back(script::ServiceVlanProfile{name, ""});
    }
    if (profile.l2cpProfile != now->second.l2cpProfile) {
      commands.emplace_back(script::ServiceL2cpProfile{name, ""});
    }
    addMode(script::ServiceProfile{name}, commands);
  }

  void addVlanProfile(const std::string& name, const Svids& svids) {
    if (!script::isWritable(name)) return;
    const auto& vlans = singleton<vlanprofile>::instance().vlanProfiles;
    const auto now = vlans.find(name);
    if (now == vlans.end()) return add(script::NoVlanProfile{name});
    std::vector<script::Command> commands;
    for (const auto& [port, svid] : svids) {
      if (!now->second.svids.contains(port)) commands.emplace_back(script::NoSvid{name, port});
    }
    addMode(script::VlanProfile{name}, commands);
  }

  void addMode(const script::Command& mode, const std::vector<script::Command>& commands) {
    if (commands.empty()) return;
    add(mode);
    for (const script::Command& command : commands) add(command);
    add(script::Exit{});
  }

  void add(const script::Command& command) { lines_.push_back(script::text(command)); }

  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> removalLines(const Config& file) { return Removals().of(file); }

std::vector<std::string> changeProfiles(Config& current, const Config& wanted) {
  return Changes(current, wanted).make();
}
