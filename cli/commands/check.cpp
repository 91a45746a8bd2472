#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "cli/carry.h"
#include "cli/command.h"
#include "cli/commands/entry.h"
#include "cli/commands/finding.h"
#include "cli/commands/livePorts.h"
#include "cli/commands/overlap.h"
#include "cli/commands/useCount.h"
#include "cli/failure.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

// What the module names counters in entries with: a word of nine bytes, a name and a rule in a
// field of 40 with a NUL.
constexpr std::size_t counterRoom = 39 - 9;

// From the first position of a port to the last.
constexpr std::uint32_t firstPosition = 200;
constexpr std::uint32_t lastPosition = 298;

class Checker {
 public:
  explicit Checker(Client& client) : client_(client) {}

  std::vector<Finding> findings() {
    lookAtProfiles();
    lookAtProtocols();
    lookAtAttachments();
    lookAtServices();
    return std::move(findings_);
  }

 private:
  using Entries = std::span<const control_entry>;

  void add(Finding finding) { findings_.push_back(std::move(finding)); }

  // ---- Profiles ----

  void lookAtProfiles() {
    const auto profiles = client_.module<rpc_l2cp_profile_get_all_1>();
    accept(profiles->error);
    for (const auto& profile : std::span(profiles->list.list_val, profiles->list.list_len)) {
      if (isEditingCopy(profile.name)) {
        isEdited_ = true;
        addCopy(profile.name, profile.use_count != 0);
      }
      const auto rules = client_.module<rpc_l2cp_profile_proto_get_all_1>(profile.name);
      // One that was deleted in the meantime has none.
      if (rules->error == RPC_L2CP_ERR_PROFILE_NOT_FOUND) continue;
      accept(rules->error);
      if (rules->list.list_len == 0) withoutRules_.insert(profile.name);
      for (const auto& rule : std::span(rules->list.list_val, rules->list.list_len)) {
        ++uses_[rule.proto_name];
        rules_[{profile.name, rule.proto_name}] = ruleText(rule.rule);
      }
    }
  }

  void addCopy(const char* name, bool attached) {
    const std::string text = nameText(name);
    add({.what = "editing-copy",
         .profile = name,
         .problem = fmt::format("{} is a copy for editing that was neither put in its profile's "
                                "place nor given up{}",
                                text, attached ? ", and it is attached" : ""),
         .advice = fmt::format("If nobody is editing, {}give it up with \"l2cpctl profile delete "
                               "{}\".",
                               attached ? "detach it and " : "", argumentText(name))});
  }

  // ---- Protocols ----

  void lookAtProtocols() {
    const auto protocols = client_.module<rpc_l2cp_proto_get_all_1>();
    accept(protocols->error);
    for (const auto& protocol : std::span(protocols->list.list_val, protocols->list.list_len)) {
      const auto uses = uses_.find(protocol.name);
      auto finding = aboutCount(protocol, uses == uses_.end() ? 0 : uses->second, isEdited_);
      if (finding) add(std::move(*finding));
    }
  }

  // ---- Attachments ----

  void lookAtAttachments() {
    const auto attachments = client_.control<control_attachments_1>();
    std::set<std::uint32_t> ports;
    for (const auto& attachment :
         std::span(attachments->list.list_val, attachments->list.list_len)) {
      ports.insert(attachment.port);
      auto& known = attachment.listed == FALSE ? unlisted_ : attached_;
      known.emplace(attachment.port, attachment.vid, attachment.profile);
    }
    for (const auto& [port, vid, profile] : attached_) {
      if (withoutRules_.contains(profile)) addWithoutRules(port, vid, profile);
    }
    for (const auto& [port, vid, profile] : unlisted_) addUnlisted(port, vid, profile);
    for (const std::uint32_t port : ports) lookAtPort(port);
    lookAtInterfaces(ports);
  }

  // Where the kernel decides, what is attached to a port is for the frames of its interface.
  void lookAtInterfaces(const std::set<std::uint32_t>& ports) {
    const LivePorts live(client_);
    if (!live.areThere()) return;
    for (const std::uint32_t port : ports) {
      if (!live.isLive(port)) addUndecided(port, live);
    }
  }

  void addUndecided(std::uint32_t port, const LivePorts& live) {
    add({.what = "undecided-port",
         .port = port,
         .problem = fmt::format("port {}: what is attached there has no effect on frames that "
                                "arrive: {}",
                                port, live.problem(port)),
         .advice = live.isConfigured(port)
                       ? "See to its interface, \"l2cpctl daemon status\" shows how it fares; or "
                         "detach what is attached there."
                       : "Give the port an interface in l2cpd.toml and have that read with "
                         "\"l2cpctl daemon reload\", or detach what is attached there."});
  }

  void addWithoutRules(std::uint32_t port, std::uint32_t vid, const std::string& profile) {
    const auto number = static_cast<std::uint16_t>(vid);
    const std::string text = nameText(profile);
    add({.what = "no-rules",
         .port = port,
         .vid = number,
         .profile = profile,
         .problem = fmt::format("port {}, VLAN {}: {} is attached, but has no rules", port,
                                vlanText(number), text),
         .advice = fmt::format("Detach {}, give it rules with \"l2cpctl profile rule add\" and "
                               "attach it again.",
                               text)});
  }

  void addUnlisted(std::uint32_t port, std::uint32_t vid, const std::string& profile) {
    const std::string text = nameText(profile);
    add({.what = "unlisted-attachment",
         .port = port,
         .vid = static_cast<std::uint16_t>(vid),
         .profile = profile,
         .problem = fmt::format("port {}, VLAN {}: {} is in force there as it was before it was "
                                "renamed or replaced, and is not the profile of this name any more",
                                port, vlanText(static_cast<std::uint16_t>(vid)), text),
         .advice = fmt::format("Detach it with \"l2cpctl detach {} port {} vlan {}\" (for that, "
                               "there has to be a profile of this name: add an empty one if need "
                               "be) and attach the profile that is wanted.",
                               argumentText(profile), port, vid)});
  }

  void lookAtPort(std::uint32_t port) {
    const auto result = client_.control<control_entries_1>(port);
    const Entries entries(result->list.list_val, result->list.list_len);
    addUnplaced(port, *result);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].catch_all != FALSE) continue;
      lookAtVlan(port, entries[i]);
      lookAtCounters(entries[i]);
      const auto hiding =
          std::find_if(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(i),
                       [&](const control_entry& earlier) { return covers(earlier, entries[i]); });
      if (hiding != entries.begin() + static_cast<std::ptrdiff_t>(i)) {
        addHidden(port, entries[i], *hiding);
      } else {
        lookAtRule(port, entries[i]);
      }
    }
  }

  static bool isFull(Entries entries) {
    constexpr std::ptrdiff_t positions = std::ptrdiff_t{lastPosition} - firstPosition + 1;
    return std::count_if(entries.begin(), entries.end(), [](const control_entry& entry) {
             return entry.kind == 1 && entry.index >= firstPosition && entry.index <= lastPosition;
           }) == positions;
  }

  void addUnplaced(std::uint32_t port, const control_entries& entries) {
    std::map<std::pair<std::uint32_t, std::string>, std::set<std::string>> missing;
    for (const auto& of : std::span(entries.unplaced.unplaced_val, entries.unplaced.unplaced_len)) {
      missing[{of.vid, of.profile}].insert(of.protocol);
    }
    const bool full = isFull({entries.list.list_val, entries.list.list_len});
    for (const auto& [attachment, protocols] : missing) {
      const auto vid = static_cast<std::uint16_t>(attachment.first);
      std::vector<std::string> names;
      for (const std::string& protocol : protocols) names.push_back(nameText(protocol));
      const std::string profile = nameText(attachment.second);
      add({.what = "no-position",
           .port = port,
           .vid = vid,
           .profile = attachment.second,
           .protocol = protocols.size() == 1 ? *protocols.begin() : "",
           .problem = fmt::format("port {}, VLAN {}: {} is attached, but not in force for {}: {}",
                                  port, vlanText(vid), profile, fmt::join(names, ", "),
                                  full ? "all positions of the port are taken"
                                       : "there was no position for it, though there is one now"),
           .advice = fmt::format("{}etach {} and attach it again.",
                                 full ? "Detach from the port what it can do without, then d" : "D",
                                 profile)});
    }
  }

  void lookAtVlan(std::uint32_t port, const control_entry& entry) {
    const std::span conditions(entry.conditions.conditions_val, entry.conditions.conditions_len);
    const bool hasVlan =
        std::any_of(conditions.begin(), conditions.end(), [](const control_condition& condition) {
          return condition.type == CONTROL_CONDITION_VLAN;
        });
    if (hasVlan || *entry.protocol == '\0') return;
    const auto vid = static_cast<std::uint16_t>(entry.vid);
    if (!refused_.emplace(port, vid, entry.profile).second) return;
    const std::string profile = *entry.profile == '\0' ? "a profile" : nameText(entry.profile);
    add({.what = "refused-vlan",
         .port = port,
         .vid = vid,
         .profile = entry.profile,
         .problem = fmt::format("port {}: {} is attached on VLAN {}, which the classifier refuses, "
                                "so that it is in force on every VLAN of the port",
                                port, profile, vid),
         .advice = fmt::format("Detach it with \"l2cpctl detach {} port {} vlan {}\" and attach it "
                               "on a VLAN from 0 to 4094.",
                               argumentText(entry.profile), port, vid)});
  }

  // Attachments to one port and VLAN share the actions of a protocol. When the one goes that they
  // were made for, the other stays with them.
  void lookAtRule(std::uint32_t port, const control_entry& entry) {
    const auto rule = rules_.find({entry.profile, entry.protocol});
    const std::string fate = fateValue(entry.fate).word;
    if (rule == rules_.end() || rule->second == fate) return;
    if (unlisted_.contains({port, entry.vid, entry.profile})) return;
    const auto vid = static_cast<std::uint16_t>(entry.vid);
    const std::string profile = nameText(entry.profile);
    add({.what = "other-rule",
         .port = port,
         .vid = vid,
         .profile = entry.profile,
         .protocol = entry.protocol,
         .entry = entry.index,
         .problem = fmt::format(
             "port {}, VLAN {}: {} has the rule {} for {}, but {} is in force: it "
             "was attached beside a profile that has it",
             port, vlanText(vid), profile, rule->second, nameText(entry.protocol), fate),
         .advice = fmt::format("Detach {} and attach it again.", profile)});
  }

  // ---- Service profiles ----

  void lookAtServices() {
    std::map<std::pair<std::string, std::int32_t>, std::int32_t> svids;
    const auto vlans = client_.control<control_vlan_profile_list_1>();
    for (const auto& profile : std::span(vlans->list.list_val, vlans->list.list_len)) {
      for (const auto& [interface, svid] :
           std::span(profile.svids.svids_val, profile.svids.svids_len)) {
        svids[{profile.name, interface}] = svid;
      }
    }
    const auto services = client_.control<control_service_profile_list_1>();
    for (const auto& service : std::span(services->list.list_val, services->list.list_len)) {
      for (const std::int32_t interface :
           std::span(service.interfaces.interfaces_val, service.interfaces.interfaces_len)) {
        const auto svid = svids.find({service.vlan_profile, interface});
        if (*service.l2cp_profile == '\0' || svid == svids.end()) continue;
        const auto port = static_cast<std::uint32_t>(interface);
        const auto vid = static_cast<std::uint32_t>(svid->second);
        if (!attached_.contains({port, vid, service.l2cp_profile})) {
          addDetached(service.name, port, vid, service.l2cp_profile);
        }
      }
    }
  }

  void addDetached(const std::string& service, std::uint32_t port, std::uint32_t vid,
                   const std::string& profile) {
    add({.what = "detached-profile",
         .port = port,
         .vid = static_cast<std::uint16_t>(vid),
         .profile = profile,
         .problem =
             fmt::format("port {}, VLAN {}: the service profile {} is applied there, but its "
                         "profile {} is not attached any more",
                         port, vid, nameText(service), nameText(profile)),
         .advice = fmt::format("Attach it with \"l2cpctl attach {} port {} vlan {}\"; then the "
                               "service profile can be detached, too.",
                               argumentText(profile), port, vid)});
  }

  // ---- Counters ----

  void lookAtCounters(const control_entry& entry) {
    const std::string rule = fateValue(entry.fate).word;
    const auto counts = [&](std::string_view kind) {
      const std::span counters(entry.counters.counters_val, entry.counters.counters_len);
      return std::any_of(counters.begin(), counters.end(), [&](const auto& counter) {
        return counterName(counter.title).kind == kind;
      });
    };
    const std::size_t room = counterRoom - rule.size();
    const auto look = [&](std::string_view kind, const char* name) {
      if (std::string_view(name).size() <= room || counts(kind)) return;
      if (uncounted_.emplace(kind, name, rule).second) addUncounted(kind, name, rule, room);
    };
    look("profile", entry.profile);
    look("protocol", entry.protocol);
  }

  void addUncounted(std::string_view kind, const std::string& name, const std::string& rule,
                    std::size_t room) {
    Finding finding{.what = "missing-counter"};
    (kind == "profile" ? finding.profile : finding.protocol) = name;
    finding.problem = fmt::format(
        "{}: what becomes of frames by its rule {} is not counted for this {}: {} bytes are too "
        "long a name for that",
        nameText(name), rule, kind, name.size());
    finding.advice = fmt::format(
        "Ports and VLANs count all the same. For the {}'s own counter, detach it, give it a name "
        "of "
        "at most {} bytes and attach it again.",
        kind, room);
    add(std::move(finding));
  }

  // ---- Overlaps ----

  static std::string entryText(const control_entry& entry) {
    std::string text = fmt::format("entry {}", entry.index);
    if (*entry.protocol == '\0') return text;
    return text + fmt::format(" ({}{}{}, VLAN {})",
                              *entry.profile == '\0' ? "" : nameText(entry.profile),
                              *entry.profile == '\0' ? "" : ": ", nameText(entry.protocol),
                              vlanText(static_cast<std::uint16_t>(entry.vid)));
  }

  static std::string orderAdvice(const control_entry& hidden, const control_entry& earlier) {
    const bool together = *hidden.profile != '\0' && hidden.vid == earlier.vid &&
                          std::string_view(hidden.profile) == earlier.profile;
    if (together) {
      return fmt::format(
          "Make one of the two narrower, or give {} a profile of its own and attach that before "
          "the "
          "other: entries come in the order of attachments, and within one in no order of choice.",
          nameText(hidden.protocol));
    }
    return "Detach both, and attach first what is to be met first: entries come in the order of "
           "attachments.";
  }

  void addHidden(std::uint32_t port, const control_entry& hidden, const control_entry& earlier) {
    const std::string fate = fateValue(hidden.fate).word;
    const std::string instead = fateValue(earlier.fate).word;
    add({.what = "hidden-entry",
         .port = port,
         .vid = *hidden.protocol == '\0' ? std::nullopt
                                         : std::optional(static_cast<std::uint16_t>(hidden.vid)),
         .profile = hidden.profile,
         .protocol = hidden.protocol,
         .entry = hidden.index,
         .problem = fmt::format(
             "port {}: no frame ever meets {}: {} comes first and takes every "
             "frame that would{}",
             port, entryText(hidden), entryText(earlier),
             fate == instead ? "" : fmt::format("; its fate is {} instead of {}", instead, fate)),
         .advice = orderAdvice(hidden, earlier)});
  }

  Client& client_;
  std::vector<Finding> findings_;
  bool isEdited_ = false;                     ///< there is a copy for editing
  std::map<std::string, std::int64_t> uses_;  ///< rules by protocol
  std::map<std::pair<std::string, std::string>, std::string> rules_;  ///< by profile and protocol
  std::set<std::string> withoutRules_;
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::string>> attached_;
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::string>> unlisted_;
  std::set<std::tuple<std::uint32_t, std::uint16_t, std::string>> refused_;
  std::set<std::tuple<std::string, std::string, std::string>> uncounted_;
};

void check(Context& context) {
  context.words.end();
  const std::vector<Finding> findings = Checker(context.client).findings();
  if (context.output.format() == Format::table) {
    context.output.text(textOf(findings));
  } else {
    context.output.list(tableOf(findings));
  }
  context.output.flush();
  if (!findings.empty()) {
    throw Found(fmt::format("{} finding{}", findings.size(), findings.size() == 1 ? "" : "s"));
  }
}

constexpr Command commands[] = {
    {"check", "",
     "Looks for what is configured but has no effect, or not the one it seems to have.",
     "Each finding is said with what to do about it:\n"
     "editing-copy         a copy for editing that was left behind\n"
     "stuck-protocol       a protocol that cannot be deleted though no profile names it\n"
     "low-count            a protocol that counts fewer rules than name it\n"
     "no-rules             an attached profile that has no rules\n"
     "detached-profile     a service profile is applied, but its profile was detached\n"
     "unlisted-attachment  in force what was renamed or replaced since\n"
     "no-position          an attachment for which the port had no positions left\n"
     "undecided-port       attached to a port about whose frames the kernel does not decide\n"
     "other-rule           a rule in force that is not the profile's own\n"
     "refused-vlan         an attachment on a VLAN id that the classifier does not take\n"
     "missing-counter      a name too long for a counter of its own\n"
     "hidden-entry         an entry that no frame meets: an earlier one takes them all\n"
     "The exit status is 0 if there is nothing to say, and 5 if there is.",
     "l2cpctl check", check}};

}  // namespace

constinit const Noun checkNoun{"check", "Faults of what is configured", commands};

}  // namespace cli
