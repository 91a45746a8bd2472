#include "tests/model/model.h"

#include <algorithm>
#include <tuple>

namespace model {

namespace {

constexpr std::size_t longestProtocolName = 30;
constexpr std::size_t longestNameOnWire = 33;
constexpr std::size_t longestTemporaryName = 32;
constexpr std::size_t longestServiceName = 65;
constexpr std::size_t longestNameInService = 33;

constexpr std::size_t positions = 99;  // 200 to 298

bool contains(const std::list<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

template <class Map>
std::vector<std::string> keys(const Map& map) {
  std::vector<std::string> result;
  for (const auto& [key, value] : map) result.push_back(key);
  return result;
}

}  // namespace

Model::Model(Shown shown, std::string lastTemporary)
    : shown_(shown), lastTemporary_(std::move(lastTemporary)) {}

// ---- The built-in protocols, copies -------------------------------------------------------------

Model::Settings Model::defaults() {
  struct Row {
    const char* name;
    Bytes mac;
    unsigned int etherType;
    unsigned int subType;
  };
  const Bytes exact{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
  const Row rows[] = {
      {"xSTP", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x00}, 0xffff, 0xff},
      {"Pause-Frame", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x01}, 0xffff, 0xff},
      {"LACP-LAMP", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x02}, 0x8809, 0x01},
      {"OAM-EFM", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x02}, 0x8809, 0x03},
      {"PNAC", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x03}, 0x888e, 0xff},
      {"E-LMI", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x07}, 0xffff, 0xff},
      {"LLDP", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e}, 0xffff, 0xff},
      {"GMRP-MMRP", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x20}, 0xffff, 0xff},
      {"GVRP-MVRP", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x21}, 0xffff, 0xff},
      {"All-Bridges", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x10}, 0xffff, 0xff},
      {"OAM-CFM", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x30}, 0x8902, 0xff},
      {"MSPP", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x03}, 0x22e2, 0xff},
      {"CDP", {0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc}, 0x2000, 0xff},
      {"UDLD", {0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc}, 0x0111, 0xff},
  };
  Settings settings;
  for (const Row& row : rows) {
    settings.protocols[row.name] = std::make_shared<Protocol>(
        Protocol{row.name, true, row.mac, exact, row.etherType, row.subType, 0});
  }
  settings.protocols["OAM-CFM"]->mask[5] = 0xf0;
  return settings;
}

// Protocols and profiles are copied; entries and attachments still point at the originals.
Model::Settings Model::copy(const Settings& settings) {
  Settings result;
  for (const auto& [name, proto] : settings.protocols) {
    result.protocols[name] = std::make_shared<Protocol>(*proto);
  }
  for (const auto& [name, prof] : settings.profiles) {
    result.profiles[name] = std::make_shared<Profile>(*prof);
  }
  result.ports = settings.ports;
  return result;
}

void Model::Profile::setProtect(bool on) {
  if (protect && !on) dynamic = false;
  protect = on;
}

void Model::Profile::setDynamic(bool on) {
  if (!dynamic && on) protect = true;
  dynamic = on;
}

// ---- What answers show --------------------------------------------------------------------------

std::string Model::shownName(const std::string& name) const {
  return shown_ == Shown::wire ? name.substr(0, longestNameOnWire) : name;
}

std::string Model::shown(const Protocol& protocol) const {
  ProtocolLine line{protocol.name,      protocol.protect, protocol.mac,     std::nullopt,
                    protocol.etherType, protocol.subType, protocol.useCount};
  if (shown_ == Shown::entity) line.mask = protocol.mask;
  return line.text();
}

std::string Model::shown(const Profile& profile) const {
  ProfileLine line{shownName(profile.name), profile.protect, profile.dynamic, profile.useCount,
                   std::nullopt};
  if (shown_ == Shown::entity) {
    line.protocols.emplace();
    for (const auto& [proto, rules] : profile.entries) line.protocols->push_back(proto->name);
    std::sort(line.protocols->begin(), line.protocols->end());
  }
  return line.text();
}

void Model::addInAnyOrder(Answer& answer, std::vector<std::string> lines) const {
  const auto begin = static_cast<std::ptrdiff_t>(answer.lines.size());
  const auto end = begin + static_cast<std::ptrdiff_t>(lines.size());
  if (seen_ != nullptr && end <= std::ssize(seen_->lines) &&
      std::is_permutation(lines.begin(), lines.end(), seen_->lines.begin() + begin)) {
    lines.assign(seen_->lines.begin() + begin, seen_->lines.begin() + end);
  }
  answer.lines.insert(answer.lines.end(), lines.begin(), lines.end());
}

const std::string& Model::any(const std::vector<std::string>& candidates) const {
  for (const std::string& candidate : candidates) {
    if (seen_ != nullptr && std::count(seen_->lines.begin(), seen_->lines.end(), candidate) != 0) {
      return candidate;
    }
  }
  return candidates.front();
}

std::vector<std::string> Model::protocolNames() const { return keys(live_.protocols); }
std::vector<std::string> Model::profileNames() const { return keys(live_.profiles); }
std::vector<std::string> Model::serviceNames() const { return keys(services_); }

std::vector<Model::Attached> Model::attached() const {
  std::vector<Attached> result;
  for (const auto& [port, vlans] : live_.ports) {
    for (const auto& [vid, profiles] : vlans) {
      for (const auto& prof : profiles) result.push_back({prof->name, port, vid});
    }
  }
  return result;
}

std::vector<std::pair<std::string, std::string>> Model::members() const {
  std::vector<std::pair<std::string, std::string>> result;
  for (const auto& [name, prof] : live_.profiles) {
    for (const auto& [proto, rules] : prof->entries) result.emplace_back(name, proto->name);
  }
  std::sort(result.begin(), result.end());  // not by where objects happen to lie
  return result;
}

std::vector<std::pair<std::string, int>> Model::applied() const {
  std::vector<std::pair<std::string, int>> result;
  for (const auto& [intf, services] : applied_) {
    for (const std::string& service : services) result.emplace_back(service, intf);
  }
  return result;
}

Model::Protocol* Model::protocol(const std::string& name) {
  const auto found = live_.protocols.find(name);
  return found == live_.protocols.end() ? nullptr : found->second.get();
}

Model::Profile* Model::profile(const std::string& name) {
  const auto found = live_.profiles.find(name);
  return found == live_.profiles.end() ? nullptr : found->second.get();
}

// ---- Protocols ----------------------------------------------------------------------------------

Answer Model::protoAdd(const std::string& name, bool protect, const Bytes& mac, const Bytes& mask,
                       unsigned int etherType, unsigned int subType) {
  if (hasProtocol(name)) return {-17};
  if (name.size() > longestProtocolName) return {-22};
  live_.protocols[name] =
      std::make_shared<Protocol>(Protocol{name, protect, mac, mask, etherType, subType, 0});
  return {0};
}

Answer Model::protoDel(const std::string& name) {
  if (!hasProtocol(name)) return {-2};
  if (protocol(name)->useCount != 0) return {-16};
  live_.protocols.erase(name);
  return {0};
}

// The object of the new name takes the contents; entries that point at the old one keep it.
Answer Model::protoRen(const std::string& from, const std::string& to) {
  if (from == to) return {0};
  if (!hasProtocol(to)) return {-16};
  if (!hasProtocol(from)) return {-2};
  *protocol(to) = *protocol(from);
  protocol(to)->name = to;
  live_.protocols.erase(from);
  return {0};
}

Answer Model::protoSetProtect(const std::string& name, bool protect) {
  if (!hasProtocol(name)) return {-2};
  protocol(name)->protect = protect;
  return {0};
}

Answer Model::protoSetMac(const std::string& name, const Bytes& mac) {
  if (!hasProtocol(name)) return {-2};
  protocol(name)->mac = mac;
  return {0};
}

Answer Model::protoSetEtherType(const std::string& name, unsigned int type) {
  if (!hasProtocol(name)) return {-2};
  protocol(name)->etherType = type;
  return {0};
}

Answer Model::protoSetSubType(const std::string& name, unsigned int subType) {
  if (!hasProtocol(name)) return {-2};
  protocol(name)->subType = subType;
  return {0};
}

Answer Model::protoGet(unsigned int index) {
  if (index >= live_.protocols.size()) return {-22};
  return {0, {shown(*std::next(live_.protocols.begin(), index)->second)}};
}

Answer Model::protoGetAll() {
  Answer all;
  for (const auto& [name, proto] : live_.protocols) all.lines.push_back(shown(*proto));
  return all;
}

// ---- Profiles -----------------------------------------------------------------------------------

Answer Model::profileAdd(const std::string& name, bool protect, bool dynamic) {
  if (hasProfile(name)) return {-17};
  const auto added = insertIfAbsent(name);
  added->protect = protect;
  added->dynamic = dynamic;
  return {0};
}

Answer Model::profileDel(const std::string& name) {
  const int status = profileStatus(name).code;
  if (status != 0) return {status};
  for (const auto& [service, info] : services_) {
    if (!name.empty() && info.l2cpProfile == name) return {-16};
  }
  live_.profiles.erase(name);
  return {0};
}

Answer Model::profileSetProtect(const std::string& name, bool protect) {
  if (!hasProfile(name)) return {-2};
  profile(name)->setProtect(protect);
  return {0};
}

Answer Model::profileSetDynamic(const std::string& name, bool dynamic) {
  if (!hasProfile(name)) return {-2};
  profile(name)->setDynamic(dynamic);
  return {0};
}

Answer Model::profileGetByName(const std::string& name) {
  if (!hasProfile(name)) return {-2};
  return {0, {shown(*profile(name))}};
}

Answer Model::profileGet(unsigned int index) {
  if (index >= live_.profiles.size()) return {-2};
  return {0, {shown(*std::next(live_.profiles.begin(), index)->second)}};
}

Answer Model::profileGetAll() {
  Answer all;
  for (const auto& [name, prof] : live_.profiles) all.lines.push_back(shown(*prof));
  return all;
}

Answer Model::profileStatus(const std::string& name) {
  const Profile* found = profile(name);
  if (found == nullptr) return {-2};
  return {whyUnchangeable(*found)};
}

int Model::whyUnchangeable(const Profile& profile) const {
  if (profile.protect) return -1;
  return profile.useCount != 0 ? -16 : 0;
}

std::shared_ptr<Model::Profile> Model::insertIfAbsent(const std::string& name) {
  std::shared_ptr<Profile>& found = live_.profiles[name];
  if (!found) {
    found = std::make_shared<Profile>();
    found->name = name;
  }
  return found;
}

// ---- Entries of profiles ------------------------------------------------------------------------

Answer Model::profileProtoAdd(const std::string& profileName, const std::string& protocolName,
                              unsigned int rule) {
  Profile* of = profile(profileName);
  if (of == nullptr) return {-2};
  if (of->protect && !scripting_) return {-1};
  if (of->useCount != 0) return {-16};
  if (!hasProtocol(protocolName)) return {-19};
  const auto& proto = live_.protocols.at(protocolName);
  if (of->entries.contains(proto)) return {-17};
  ++proto->useCount;
  of->entries[proto] = {rule};
  return {0};
}

Answer Model::profileProtoSet(const std::string& profileName, const std::string& protocolName,
                              unsigned int rule) {
  const int status = profileStatus(profileName).code;
  if (status != 0) return {status};
  if (!hasProtocol(protocolName)) return {-19};
  auto& entries = profile(profileName)->entries;
  const auto entry = entries.find(live_.protocols.at(protocolName));
  if (entry == entries.end()) return {-22};
  entry->second = {rule};
  return {0};
}

Answer Model::profileProtoDel(const std::string& profileName, const std::string& protocolName) {
  const int status = profileStatus(profileName).code;
  if (status != 0) return {status};
  if (!hasProtocol(protocolName)) return {-19};
  const auto& proto = live_.protocols.at(protocolName);
  if (profile(profileName)->entries.erase(proto) == 0) return {-22};
  --proto->useCount;
  return {0};
}

Answer Model::profileProtoDelAll(const std::string& profileName) {
  const int status = profileStatus(profileName).code;
  if (status != 0) return {status};
  auto& entries = profile(profileName)->entries;
  for (const auto& [proto, rules] : entries) --proto->useCount;
  entries.clear();
  return {0};
}

// Any entry may be at any position that there is.
Answer Model::profileProtoGet(const std::string& profileName, unsigned int index) {
  const Profile* of = profile(profileName);
  if (of == nullptr) return {-2};
  if (index >= of->entries.size()) return {-22};
  std::vector<std::string> candidates;
  for (const auto& [proto, rules] : of->entries) {
    for (const unsigned int rule : rules) candidates.push_back(entryLine(proto->name, rule));
  }
  return {0, {any(candidates)}};
}

Answer Model::entries(const std::string& profileName) {
  const Profile* of = profile(profileName);
  if (of == nullptr) return {-2};
  Answer all{-22};
  std::vector<std::string> lines;
  for (const auto& [proto, rules] : of->entries) {
    std::vector<std::string> candidates;
    for (const unsigned int rule : rules) candidates.push_back(entryLine(proto->name, rule));
    lines.push_back(any(candidates));
  }
  addInAnyOrder(all, lines);
  return all;
}

// Of several entries of the same protocol name, the last in memory is shown. One that alone bears
// its name shows which of its possible rules it has.
Answer Model::profileGetProtocols(const std::string& profileName) {
  Profile* of = profile(profileName);
  if (of == nullptr) return {-2};
  struct Candidate {
    std::string line;
    unsigned int rule;
  };
  std::map<std::string, std::vector<std::pair<unsigned int, Rules*>>> byName;
  for (auto& [proto, rules] : of->entries) {
    for (const unsigned int rule : rules) byName[proto->name].emplace_back(rule, &rules);
  }
  Answer all;
  for (const auto& [name, possible] : byName) {
    std::vector<std::string> candidates;
    for (const auto& [rule, rules] : possible) candidates.push_back(entryLine(name, rule));
    all.lines.push_back(any(candidates));
    Rules* const first = possible.front().second;
    if (std::all_of(possible.begin(), possible.end(),
                    [&](const auto& candidate) { return candidate.second == first; })) {
      const auto chosen = std::find(candidates.begin(), candidates.end(), all.lines.back());
      const unsigned int rule =
          possible[static_cast<std::size_t>(chosen - candidates.begin())].first;
      *first = {rule};
    }
  }
  return all;
}

// ---- Editing ------------------------------------------------------------------------------------

Answer Model::profileCopy(const std::string& source, const std::string& destination) {
  if (!hasProfile(source) || hasProfile(destination)) return {-1};
  insertIfAbsent(destination)->entries = profile(source)->entries;
  return {0};
}

Answer Model::profileEdit(const std::string& name) {
  std::string candidate;
  unsigned int number = 0;
  do {
    candidate = fmt::format("temp_l2cp_prof_{}", ++number);
    if (candidate.size() > longestTemporaryName) return {-1, {lastTemporary_}};
  } while (hasProfile(candidate));
  if (profileCopy(name, candidate).code != 0) return {1, {lastTemporary_}};
  lastTemporary_ = candidate;
  return {0, {candidate}};
}

bool Model::sameContent(const std::string& first, const std::string& second, int codeIfSame) {
  const auto one = insertIfAbsent(first);
  const auto other = insertIfAbsent(second);
  if (one->dynamic != other->dynamic || one->protect != other->protect ||
      one->entries.size() != other->entries.size()) {
    return false;
  }
  const auto objects = [](const Profile& profile) {
    std::vector<const Protocol*> result;
    for (const auto& [proto, rules] : profile.entries) result.push_back(proto.get());
    return result;
  };
  if (objects(*one) == objects(*other)) return true;
  // Entries are compared in pairs, in the order of memory. Different objects that are alike can
  // meet in one order and miss each other in another one.
  const auto values = [](const Profile& profile) {
    std::vector<std::tuple<unsigned int, Bytes, Bytes, unsigned int, std::string, bool, unsigned>>
        result;
    for (const auto& [proto, rules] : profile.entries) {
      result.emplace_back(proto->subType, proto->mac, proto->mask, proto->etherType, proto->name,
                          proto->protect, proto->useCount);
    }
    std::sort(result.begin(), result.end());
    return result;
  };
  const auto ofOne = values(*one);
  if (ofOne != values(*other)) return false;
  if (ofOne.front() == ofOne.back()) return true;
  return seen_ != nullptr && seen_->code == codeIfSame;
}

Answer Model::profileCompareContent(const std::string& first, const std::string& second) {
  return {sameContent(first, second, 0) ? 0 : -2};
}

Model::Use Model::useOf(const std::string& profileName) {
  Use use;
  for (const auto& [name, info] : services_) {
    if (info.l2cpProfile != profileName) continue;
    if (info.name != "DEFAULT" && profileName != "DEFAULT") use.services.push_back(name);
  }
  for (const auto& [intf, services] : applied_) {
    for (const std::string& service : services) {
      if (services_.at(service).l2cpProfile == profileName) use.applied[intf].push_back(service);
    }
  }
  return use;
}

bool Model::takeOff(const Use& use) {
  for (const auto& [intf, services] : use.applied) {
    for (const std::string& service : services) {
      if (serviceProfileDetach(service, intf).code != 0) return false;
    }
  }
  return std::all_of(use.services.begin(), use.services.end(), [&](const std::string& service) {
    return serviceProfileSetL2cp(service, "").code == 0;
  });
}

bool Model::putOn(const Use& use, const std::string& profileName) {
  for (const std::string& service : use.services) {
    if (serviceProfileSetL2cp(service, profileName).code != 0) return false;
  }
  for (const auto& [intf, services] : use.applied) {
    for (const std::string& service : services) {
      if (serviceProfileAttach(service, intf).code != 0) return false;
    }
  }
  return true;
}

Answer Model::profileReplace(const std::string& target, const std::string& temporary) {
  const Use use = useOf(target);
  const bool done = takeOff(use) && profileDel(target).code == 0 &&
                    profileCopy(temporary, target).code == 0 && profileDel(temporary).code == 0 &&
                    putOn(use, target);
  return {done ? 0 : -1};
}

// The old profile stays alive in direct attachments, though no name leads to it any more.
Answer Model::profileRen(const std::string& from, const std::string& to) {
  if (!hasProfile(from)) return {-2};
  if (hasProfile(to)) return {-28};
  profileCopy(from, to);
  const Use use = useOf(from);
  if (!takeOff(use)) return {-100};
  live_.profiles.erase(from);
  return {putOn(use, to) ? 0 : -100};
}

Answer Model::profileOnExit(const std::string& target, const std::string& temporary) {
  if (sameContent(target, temporary, -2)) {
    profileDel(temporary);
    return {-2};
  }
  return profileReplace(target, temporary);
}

Answer Model::dynamicProfilesDeleteAll() {
  for (const std::string& name : profileNames()) {
    if (!profile(name)->dynamic) continue;
    profileSetProtect(name, false);
    profileDel(name);
  }
  return {0};
}

// ---- Where profiles are used --------------------------------------------------------------------

Answer Model::profileGetPorts(const std::string& name) {
  if (!hasProfile(name)) return {-2};
  Answer all;
  for (const Attached& at : attached()) {
    if (at.profile == name) all.lines.push_back(placeLine(at.port, at.vid));
  }
  return all;
}

Answer Model::profileGetAllForPort(unsigned int port) {
  if (!live_.ports.contains(port)) return {-2};
  Answer all;
  std::set<std::string> listed;
  for (const auto& [vid, profiles] : live_.ports.at(port)) {
    std::vector<std::string> lines;
    for (const auto& prof : profiles) {
      if (listed.insert(prof->name).second) lines.push_back(shown(*prof));
    }
    addInAnyOrder(all, lines);
  }
  return all;
}

Answer Model::profileGetServiceProfiles(const std::string& name) {
  if (!hasProfile(name)) return {-2};
  Answer all;
  for (const auto& [service, info] : services_) {
    if (info.l2cpProfile == name) all.lines.push_back(service);
  }
  return all;
}

Answer Model::getL2cpProfilesPerServiceProfile(const std::string& name) {
  return {0, useOf(name).services};
}

// ---- Attachments --------------------------------------------------------------------------------

namespace {

std::string macText(const Bytes& mac) { return fmt::format("{:02x}", fmt::join(mac, ":")); }

/// The full names of selector and action list.
template <class Protocol>
std::pair<std::string, std::string> entryNames(unsigned int port, unsigned int vid,
                                               const Protocol& proto) {
  const std::string rest =
      fmt::format("{}/{}/{:04x}/{:02x}", vid, macText(proto.mac), proto.etherType, proto.subType);
  return {fmt::format("{}/{}", proto.name, rest),
          fmt::format("{}/{}/{}", proto.name, static_cast<std::int32_t>(port), rest)};
}

}  // namespace

Answer Model::portAttach(const std::string& profileName, unsigned int port, unsigned int vid) {
  if (!hasProfile(profileName)) return {-2};
  const auto& prof = live_.profiles.at(profileName);
  Attachments& attached = live_.ports[port][vid];
  for (const auto& other : attached) {
    if (other->name == profileName) return {-16};
  }
  for (const auto& [proto, rules] : prof->entries) addEntry(port, entryNames(port, vid, *proto));
  ++prof->useCount;
  attached.push_back(prof);
  prof->interfaces.insert(port);
  return {0};
}

// What is detached is the profile found there by its name, even if another one bears it by now.
Answer Model::portDetach(const std::string& profileName, unsigned int port, unsigned int vid) {
  if (!hasProfile(profileName)) return {-2};
  if (!live_.ports.contains(port)) return {-19};
  if (!live_.ports[port].contains(vid)) return {-20};
  const Attachments& attached = live_.ports[port][vid];
  const auto found = std::find_if(attached.begin(), attached.end(),
                                  [&](const auto& prof) { return prof->name == profileName; });
  if (found == attached.end()) return {-9};
  detach(*found, port, vid);
  return {0};
}

// The port leaves the profile's interfaces also if the profile is still attached on another VLAN.
void Model::detach(const std::shared_ptr<Profile>& profile, unsigned int port, unsigned int vid) {
  const std::shared_ptr<Profile> kept = profile;
  for (const auto& [proto, rules] : kept->entries) {
    removeEntry(port, entryNames(port, vid, *proto));
  }
  --kept->useCount;
  kept->interfaces.erase(port);
  Vlans& vlans = live_.ports.at(port);
  std::erase(vlans.at(vid), kept);
  if (vlans.at(vid).empty()) vlans.erase(vid);
  if (vlans.empty()) live_.ports.erase(port);
}

// Any profile of the VLAN may be at any of the VLAN's positions.
Answer Model::portGet(unsigned int port, unsigned int index) {
  if (!live_.ports.contains(port)) return {-2};
  for (const auto& [vid, profiles] : live_.ports.at(port)) {
    if (index >= profiles.size()) {
      index -= static_cast<unsigned int>(profiles.size());
      continue;
    }
    std::vector<std::string> candidates;
    for (const auto& prof : profiles) candidates.push_back(linkLine(vid, shownName(prof->name)));
    return {0, {any(candidates)}};
  }
  return {-22};
}

Answer Model::shownLinks(unsigned int port) const {
  Answer all;
  for (const auto& [vid, profiles] : live_.ports.at(port)) {
    std::vector<std::string> lines;
    for (const auto& prof : profiles) lines.push_back(linkLine(vid, shownName(prof->name)));
    addInAnyOrder(all, lines);
  }
  return all;
}

Answer Model::links(unsigned int port) {
  if (!live_.ports.contains(port)) return {-2};
  Answer all = shownLinks(port);
  all.code = -22;
  return all;
}

Answer Model::attachments() {
  Answer all;
  for (const auto& [port, vlans] : live_.ports) {
    for (const auto& [vid, profiles] : vlans) {
      std::vector<std::string> lines;
      for (const auto& prof : profiles) {
        lines.push_back(placeLine(port, vid) + " " + prof->name + " @1");
      }
      addInAnyOrder(all, lines);
    }
  }
  return all;
}

// A port's entries are counted under a key of 32 bits that two ports can share, and the catch-all
// of the port at hand comes and goes with the first and the last of them.
void Model::addEntry(unsigned int port, std::pair<std::string, std::string> names) {
  Entries& entries = classifier_[port];
  if (entryCounts_[2 * port + 1]++ == 0) entries.catchAll = true;
  if (entries.list.size() == positions) crowded_ = true;
  entries.list.insert(std::move(names));
}

void Model::removeEntry(unsigned int port, const std::pair<std::string, std::string>& names) {
  Entries& entries = classifier_[port];
  const auto found = entries.list.find(names);
  if (found == entries.list.end()) return;
  entries.list.erase(found);
  if (--entryCounts_[2 * port + 1] == 0) entries.catchAll = false;
}

Answer Model::portEntries(unsigned int port) {
  if (crowded_ && seen_ != nullptr) return *seen_;
  const Entries& entries = classifier_[port];
  Answer all;
  for (const auto& [selector, actionList] : entries.list) {
    all.lines.push_back(selector + " --> " + actionList);
  }
  if (entries.catchAll) all.lines.emplace_back("true --> l2cp:hide");
  return all;
}

// ---- Service profiles ---------------------------------------------------------------------------

std::pair<int, int> Model::svidOf(int intf, const ServiceProfile& service, int codeIfNone) const {
  const auto vlan = vlans_.find(service.vlanProfile);
  if (vlan == vlans_.end()) return {0, -19};
  const auto svid = vlan->second.find(intf);
  if (svid == vlan->second.end() || svid->second < 1 || svid->second > 4094) return {0, codeIfNone};
  return {svid->second, 0};
}

Answer Model::profileApplyCheck(int /*intf*/, const std::string& /*service*/) { return {0}; }

Answer Model::profileApply(int intf, const std::string& service) {
  const ServiceProfile& info = services_[service];
  if (info.l2cpProfile.empty()) return {-2};
  const auto [svid, refusal] = svidOf(intf, info, -99);
  if (refusal != 0) return {refusal};
  return portAttach(info.l2cpProfile, static_cast<unsigned int>(intf),
                    static_cast<unsigned int>(svid));
}

Answer Model::profileUnApply(int intf, const std::string& service) {
  const ServiceProfile& info = services_[service];
  if (info.l2cpProfile.empty()) return {0};
  const auto [svid, refusal] = svidOf(intf, info, -64);
  if (refusal != 0) return {refusal};
  return portDetach(info.l2cpProfile, static_cast<unsigned int>(intf),
                    static_cast<unsigned int>(svid));
}

Answer Model::profileIsApplied(const std::string& name) {
  return {hasProfile(name) && !profile(name)->interfaces.empty() ? 1 : 0};
}

Answer Model::profileAppliedIntfGet(const std::string& name) {
  if (!hasProfile(name)) return {0};
  Answer all{1};
  for (const unsigned int port : profile(name)->interfaces) {
    all.lines.push_back(std::to_string(port));
  }
  return all;
}

// ---- Settings -----------------------------------------------------------------------------------

Answer Model::keepSettings(unsigned int place) {
  kept_.at(place) = copy(live_);
  return {0};
}

Answer Model::applySettings(unsigned int place) {
  apply(kept_.at(place));
  return {0};
}

Answer Model::applyDefaultSettings() {
  apply(defaults());
  return {1};
}

void Model::apply(const Settings& wanted) {
  const auto ports = live_.ports;
  for (const auto& [port, vlans] : ports) {
    const auto wantedPort = wanted.ports.find(port);
    for (const auto& [vid, profiles] : vlans) {
      for (const auto& prof : profiles) {
        if (wantedPort == wanted.ports.end()) {
          // Also if no name leads to the profile any more.
          detach(prof, port, vid);
          continue;
        }
        const auto wantedVlan = wantedPort->second.find(vid);
        if (wantedVlan == wantedPort->second.end() ||
            std::count(wantedVlan->second.begin(), wantedVlan->second.end(), prof) == 0) {
          portDetach(prof->name, port, vid);
        }
      }
    }
  }
  for (const std::string& profileName : profileNames()) {
    for (const std::string& name : protocolNames()) {
      if (!wanted.protocols.contains(name)) profileProtoDel(profileName, name);
    }
  }
  for (const std::string& name : profileNames()) {
    if (!wanted.profiles.contains(name)) profileDel(name);
  }
  for (const std::string& name : protocolNames()) {
    if (!wanted.protocols.contains(name)) protoDel(name);
  }
  for (const auto& [name, proto] : wanted.protocols) {
    protoAdd(name, proto->protect, proto->mac, proto->mask, proto->etherType, proto->subType);
  }
  for (const auto& [name, prof] : wanted.profiles) {
    if (profileAdd(name, prof->protect, prof->dynamic).code != 0) continue;
    // Of several entries of the same protocol name, the first in memory is added.
    std::map<std::string, Rules> byName;
    for (const auto& [proto, rules] : prof->entries) {
      byName[proto->name].insert(rules.begin(), rules.end());
    }
    for (const auto& [protocolName, rules] : byName) {
      if (profileProtoAdd(name, protocolName, *rules.begin()).code == 0) {
        profile(name)->entries.at(live_.protocols.at(protocolName)) = rules;
      }
    }
  }
}

Answer Model::scriptDynamicProfiles(bool on) {
  scripting_ = on;
  return {0};
}

// ---- The daemon's service profiles and VLAN profiles
// ----------------------------------------------

bool Model::isApplied(const std::string& service) const {
  return std::any_of(applied_.begin(), applied_.end(),
                     [&](const auto& element) { return contains(element.second, service); });
}

Answer Model::serviceProfiles() {
  Answer all;
  for (const auto& [name, info] : services_) {
    std::vector<int> interfaces;
    for (const auto& [intf, services] : applied_) {
      if (contains(services, name)) interfaces.push_back(intf);
    }
    all.lines.push_back(serviceLine(name, info.vlanProfile, info.l2cpProfile, interfaces));
  }
  return all;
}

Answer Model::serviceProfileAdd(const std::string& name) {
  if (name.empty() || name.size() > longestServiceName) return {-22};
  return {services_.emplace(name, ServiceProfile{name, "", ""}).second ? 0 : -17};
}

Answer Model::serviceProfileDelete(const std::string& name) {
  if (!services_.contains(name)) return {-2};
  if (isApplied(name)) return {-16};
  services_.erase(name);
  return {0};
}

Answer Model::serviceProfileSetVlan(const std::string& name, const std::string& vlanProfile) {
  if (!services_.contains(name)) return {-2};
  if (isApplied(name)) return {-16};
  if (!vlanProfile.empty() && !vlans_.contains(vlanProfile)) return {-2};
  services_[name].vlanProfile = vlanProfile;
  return {0};
}

Answer Model::serviceProfileSetL2cp(const std::string& name, const std::string& l2cpProfile) {
  if (!services_.contains(name)) return {-2};
  if (isApplied(name)) return {-16};
  if (l2cpProfile.size() > longestNameInService) return {-22};
  services_[name].l2cpProfile = l2cpProfile;
  return {0};
}

Answer Model::serviceProfileAttach(const std::string& name, int intf) {
  if (!services_.contains(name)) return {-2};
  if (intf < 0) return {-22};
  if (applied_.contains(intf) && contains(applied_[intf], name)) return {-17};
  if (!services_[name].l2cpProfile.empty()) {
    const int refusal = profileApply(intf, name).code;
    if (refusal != 0) return {refusal};
  }
  applied_[intf].push_back(name);
  return {0};
}

Answer Model::serviceProfileDetach(const std::string& name, int intf) {
  if (!services_.contains(name)) return {-2};
  if (!applied_.contains(intf) || !contains(applied_[intf], name)) return {-9};
  const int refusal = profileUnApply(intf, name).code;
  if (refusal != 0) return {refusal};
  applied_[intf].remove(name);
  if (applied_[intf].empty()) applied_.erase(intf);
  return {0};
}

Answer Model::vlanProfiles() {
  Answer all;
  for (const auto& [name, svids] : vlans_) all.lines.push_back(vlanLine(name, svids));
  return all;
}

Answer Model::vlanProfileAdd(const std::string& name) {
  if (name.empty() || name.size() > longestNameInService) return {-22};
  return {vlans_.emplace(name, std::map<int, int>()).second ? 0 : -17};
}

Answer Model::vlanProfileDelete(const std::string& name) {
  if (!vlans_.contains(name)) return {-2};
  for (const auto& [service, info] : services_) {
    if (info.vlanProfile == name) return {-16};
  }
  vlans_.erase(name);
  return {0};
}

Answer Model::vlanProfileSetSvid(const std::string& name, int intf, int svid) {
  if (!vlans_.contains(name)) return {-2};
  if (intf < 0 || svid < 0 || svid > 4094) return {-22};
  for (const auto& [service, info] : services_) {
    if (info.vlanProfile == name && isApplied(service)) return {-16};
  }
  if (svid == 0) {
    vlans_[name].erase(intf);
  } else {
    vlans_[name][intf] = svid;
  }
  return {0};
}

Answer Model::plantSvid(const std::string& name, int intf, int svid) {
  if (!vlans_.contains(name)) return {-2};
  vlans_[name][intf] = svid;
  return {0};
}

}  // namespace model
