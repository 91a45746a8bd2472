#include "cli/commands/profile.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/carry.h"
#include "cli/command.h"
#include "cli/commands/setting.h"
#include "cli/commands/statistics.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

std::string profileName(Words& words, std::string_view what = "NAME") {
  return parseName(words.take(what), "the name");
}

// ---- Profiles ----

using Profile = rpc_l2cp_profile;
constexpr Field<Profile> profileFields[] = {
    {{"name"}, [](const Profile& of) { return nameValue(of.name); }},
    {{"protect"}, [](const Profile& of) { return truthValue(of.protect != FALSE); }},
    {{"dynamic"}, [](const Profile& of) { return truthValue(of.dynamic != FALSE); }},
    {{"attachments", Align::right}, [](const Profile& of) { return numberValue(of.use_count); }}};
constexpr Kind<Profile> profileKind{"profile", "profiles", profileFields};

using Rule = rpc_l2cp_profile_proto;
constexpr Field<Rule> ruleFields[] = {
    {{"protocol"}, [](const Rule& of) { return nameValue(of.proto_name); }},
    {{"rule"}, [](const Rule& of) { return ruleValue(of.rule); }}};
constexpr Kind<Rule> ruleKind{"rule", "rules", ruleFields};

using Place = rpc_l2cp_port_vlan_t;
constexpr Field<Place> placeFields[] = {
    {{"port", Align::right}, [](const Place& of) { return numberValue(of.port); }},
    {{"vlan", Align::right}, [](const Place& of) { return vlanValue(of.vid); }}};
constexpr Kind<Place> placeKind{"attachment", "attachments", placeFields};

void list(Context& context) {
  context.words.end();
  const auto all = context.client.module<rpc_l2cp_profile_get_all_1>();
  accept(all->error);
  context.output.list(profileTable(std::span(all->list.list_val, all->list.list_len)));
}

Table rulesOf(Context& context, std::string& name) {
  const auto entries = context.client.module<rpc_l2cp_profile_proto_get_all_1>(wireText(name));
  accept(entries->error);
  return tableOf(ruleKind, std::span(entries->list.list_val, entries->list.list_len));
}

void showWithRules(Context& context, const Profile& profile) {
  std::string name = profile.name;
  const Table rules = rulesOf(context, name);
  context.output.show(tableOf(profileKind, profile), {&rules, 1});
}

void show(Context& context) {
  Words& words = context.words;
  if (words.size() == 2 && words.takeIf("position")) {
    const std::uint32_t position = takePosition(words);
    const auto found = context.client.module<rpc_l2cp_profile_get_1>(position);
    accept(found->error, {{RPC_L2CP_ERR_PROFILE_NOT_FOUND,
                           "there are no more profiles than this; positions count from 0"}});
    return showWithRules(context, *found);
  }
  const std::string name = profileName(words);
  words.end();
  const auto all = context.client.module<rpc_l2cp_profile_get_all_1>();
  accept(all->error);
  const std::span profiles(all->list.list_val, all->list.list_len);
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const Profile& profile) { return profile.name == name; });
  if (found == profiles.end()) accept(RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  showWithRules(context, *found);
}

void add(Context& context) {
  Words& words = context.words;
  std::string name = parseNewName(words.take("NAME"), "the name");
  rpc_l2cp_profile profile{};
  Keywords keywords({"protect", "dynamic"});
  while (!words.empty()) {
    (keywords.take(words) == "protect" ? profile.protect : profile.dynamic) = TRUE;
  }
  profile.name = wireText(name);
  accept(context.client.module<rpc_l2cp_profile_add_1>(profile));
}

void remove(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_del_1>(wireText(name)),
         {{RPC_L2CP_ERR_PROFILE_IN_USE, advice::profileInUseOrNamed}});
}

void rename(Context& context) {
  std::string oldName = parseName(context.words.take("OLD"), "the old name");
  std::string newName = parseNewName(context.words.take("NEW"), "the new name");
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_ren_1>(wireText(oldName), wireText(newName)),
         {{RPC_L2CP_ERR_FAILED,
           "the service profiles that use the profile could not all be moved to the new name; look "
           "at them with \"l2cpctl service-profile list\" and at both profiles with \"l2cpctl "
           "profile show\""},
          {RPC_L2CP_ERR_PROFILE_EXISTS, "there is a profile of the new name; choose another"}});
}

void set(Context& context) {
  Words& words = context.words;
  std::string name = profileName(words);
  const std::string_view what = words.choose({"protect", "dynamic"});
  const bool_t on = takeSwitch(words) ? TRUE : FALSE;
  words.end();
  if (what == "protect") {
    accept(context.client.module<rpc_l2cp_profile_set_protect_1>(wireText(name), on));
  } else {
    accept(context.client.module<rpc_l2cp_profile_set_dynamic_1>(wireText(name), on));
  }
}

void statistics(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  const auto counters = context.client.module<rpc_l2cp_profile_stat_1>(wireText(name));
  accept(counters->error, {{RPC_L2CP_ERR_NO_COUNTERS, countersElsewhere}});
  showStatistics(context, "profile", nameValue(name), *counters);
}

// Whether a profile may be changed, in a word.
std::string_view statusOf(Context& context, std::string& name) {
  const rpc_l2cp_error state = context.client.module<rpc_l2cp_profile_status_1>(wireText(name));
  // These two are what was asked for, not a refusal.
  if (state == RPC_L2CP_ERR_PROFILE_PROTECTED) return "protected";
  if (state == RPC_L2CP_ERR_PROFILE_IN_USE) return "attached";
  accept(state);
  return "changeable";
}

void status(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  const std::string_view state = statusOf(context, name);
  context.output.show(
      {"profile", "profiles", {{"name"}, {"status"}}, {{nameValue(name), wordValue(state)}}});
}

void ports(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  const auto places = context.client.module<rpc_l2cp_profile_get_ports_1>(wireText(name));
  accept(places->error);
  context.output.list(tableOf(placeKind, std::span(places->list.list_val, places->list.list_len)));
}

void uses(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  const auto users = context.client.module<rpc_l2cp_profile_get_use_1>(wireText(name));
  accept(users->error);
  Table table{"use", "uses", {{"service_profile"}}, {}};
  for (const char* user : std::span(users->list.list_val, users->list.list_len)) {
    table.rows.push_back({nameValue(user)});
  }
  context.output.list(table);
}

// ---- Editing ----

void edit(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  const auto edit = context.client.module<rpc_l2cp_profile_edit_1>(wireText(name));
  accept(edit->error,
         {{RPC_L2CP_ERR_FAILED,
           "there is no profile of this name; \"l2cpctl profile list\" shows those there are"},
          {RPC_L2CP_EDIT_FAILED, "no name is free for the copy; delete copies that nobody needs"}});
  context.output.show({"edit",
                       "edits",
                       {{"profile"}, {"copy"}},
                       {{nameValue(name), nameValue(static_cast<const char*>(edit->name))}}});
}

void copy(Context& context) {
  std::string source = parseName(context.words.take("NAME"), "the name");
  std::string target = parseNewName(context.words.take("NEW"), "the new name");
  context.words.end();
  accept(
      context.client.module<rpc_l2cp_profile_copy_1>(wireText(source), wireText(target)),
      {{RPC_L2CP_ERR_PROTO_NOT_FOUND,
        "there is no profile of this name to copy; \"l2cpctl profile list\" shows those there are"},
       {RPC_L2CP_ERR_FAILED, "there is a profile of the new name; choose another"}});
}

void commit(Context& context) {
  std::string name = profileName(context.words);
  std::string working = parseName(context.words.take("COPY"), "the copy");
  context.words.end();
  // The module makes empty profiles of names that it does not know here.
  statusOf(context, name);
  statusOf(context, working);
  // Of two that are alike the module deletes the second, whichever profile that is.
  if (working == name || !isEditingCopy(working)) {
    throw LocalError(fmt::format(
        "{} is no copy that \"l2cpctl profile edit\" has made of the profile; nothing was done",
        quotedText(working)));
  }
  accept(
      context.client.module<rpc_l2cp_profile_on_exit_1>(wireText(name), wireText(working)),
      {{RPC_L2CP_EDIT_FAILED,
        "the copy could not take the profile's place, or only part-way: the profile is protected, "
        "or attached other than by service profiles; look at both with \"l2cpctl profile show\""},
       {RPC_L2CP_EDIT_UNCHANGED,
        "the copy has the same protocols, so the module discarded it without a look at their "
        "rules; to change rules alone, detach the profile and use \"l2cpctl profile rule set\""}});
}

// ---- Rules ----

struct RuleNames {
  explicit RuleNames(Words& words)
      : profile(parseName(words.take("PROFILE"), "the profile")),
        protocol(parseName(words.take("PROTOCOL"), "the protocol")) {}

  std::string profile;
  std::string protocol;
};

void addRule(Context& context) {
  RuleNames names(context.words);
  const rpc_l2cp_rule rule = takeRule(context.words);
  context.words.end();
  accept(
      context.client.module<rpc_l2cp_profile_proto_add_1>(wireText(names.profile),
                                                          wireText(names.protocol), rule),
      {{RPC_L2CP_ERR_PROTO_IN_USE,
        "the profile has a rule for this protocol; change it with \"l2cpctl profile rule set\""}});
}

void setRule(Context& context) {
  RuleNames names(context.words);
  const rpc_l2cp_rule rule = takeRule(context.words);
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_proto_set_1>(wireText(names.profile),
                                                             wireText(names.protocol), rule));
}

void deleteRule(Context& context) {
  RuleNames names(context.words);
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_proto_del_1>(wireText(names.profile),
                                                             wireText(names.protocol)),
         {{RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE, advice::noSuchRule}});
}

void clearRules(Context& context) {
  std::string name = profileName(context.words, "PROFILE");
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_proto_del_all_1>(wireText(name)));
}

void listRules(Context& context) {
  std::string name = profileName(context.words, "PROFILE");
  context.words.end();
  context.output.list(rulesOf(context, name));
}

void showRule(Context& context) {
  Words& words = context.words;
  std::string profile = parseName(words.take("PROFILE"), "the profile");
  if (words.size() == 2 && words.takeIf("position")) {
    const std::uint32_t position = takePosition(words);
    const auto found =
        context.client.module<rpc_l2cp_profile_proto_get_1>(wireText(profile), position);
    accept(found->error, {{RPC_L2CP_ERR_PROTO_NOT_FOUND,
                           "the profile has no more rules than this; positions count from 0"}});
    return context.output.show(tableOf(ruleKind, *found));
  }
  const std::string protocol = parseName(words.take("PROTOCOL"), "the protocol");
  words.end();
  const auto entries = context.client.module<rpc_l2cp_profile_proto_get_all_1>(wireText(profile));
  accept(entries->error);
  const std::span rules(entries->list.list_val, entries->list.list_len);
  const auto found = std::find_if(rules.begin(), rules.end(),
                                  [&](const Rule& rule) { return rule.proto_name == protocol; });
  if (found == rules.end()) accept(RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE);
  context.output.show(tableOf(ruleKind, *found));
}

constexpr std::string_view whoMayBeChanged =
    "A profile that is protected or attached is not changed: see \"l2cpctl profile status\".";

constexpr Command commands[] = {
    {"profile list", "", "Lists the profiles, in name order.",
     "ATTACHMENTS counts the ports and VLANs where a profile is in force.", "l2cpctl profile list",
     list},
    {"profile show", "NAME | position N", "Shows a profile and its rules.",
     "Positions are those in name order, from 0.", "l2cpctl profile show customer", show},
    {"profile add", "NAME [protect] [dynamic]", "Adds a profile without rules.",
     "A protected profile takes no rules and cannot be deleted until its protection is switched\n"
     "off. A dynamic one is left out of the running configuration's usual form.",
     "l2cpctl profile add customer", add},
    {"profile delete", "NAME",
     "Deletes a profile that is neither protected nor attached, nor named by a service profile.",
     "Clear its rules first: the rules of a deleted profile go on counting as uses of their\n"
     "protocols, which then cannot be deleted any more.",
     "l2cpctl profile delete customer", remove},
    {"profile rename", "OLD NEW", "Gives a profile another name.",
     "Service profiles that use it go on using it. The renamed profile is neither protected nor\n"
     "dynamic. Where the old one is attached directly, it stays in force, unseen under its name.",
     "l2cpctl profile rename customer gold", rename},
    {"profile set", "NAME {protect on|off | dynamic on|off}", "Changes one thing about a profile.",
     R"("dynamic on" protects the profile as well, and "protect off" makes it non-dynamic.)",
     "l2cpctl profile set customer protect on", set},
    {"profile statistics", "NAME", "Asks for a profile's counters.",
     "The module always answers that there are none. Read those of ports and VLANs instead:\n"
     "\"l2cpctl port statistics\", \"l2cpctl vlan statistics\".",
     "l2cpctl profile statistics customer", statistics},
    {"profile status", "NAME", "Shows whether a profile may be changed.",
     R"(The answer is "changeable", "protected" or "attached".)", "l2cpctl profile status customer",
     status},
    {"profile ports", "NAME", "Lists the ports and VLANs that a profile is attached to.",
     "VLAN \"all\" stands for the whole port.", "l2cpctl profile ports customer", ports},
    {"profile uses", "NAME", "Lists the service profiles that use a profile.", "",
     "l2cpctl profile uses customer", uses},
    {"profile edit", "NAME", "Makes a copy of a profile to be edited, and shows its name.",
     "A profile in force is not changed. Its copy is: change that with \"l2cpctl profile rule\" "
     "and\n"
     "put it in the profile's place with \"l2cpctl profile commit\", or give it up with\n"
     "\"l2cpctl profile delete\".",
     "l2cpctl profile edit customer", edit},
    {"profile commit", "NAME COPY", "Puts an edited copy in a profile's place.",
     "Service profiles that use the profile are detached and attached again. A profile that is\n"
     "protected, or attached directly, is not replaced. A copy with the same protocols is "
     "discarded\n"
     "and the profile left as it is, even if their rules differ. COPY has to have such a name as\n"
     "\"l2cpctl profile edit\" gives.",
     "l2cpctl profile commit customer temp_l2cp_prof_1", commit},
    {"profile copy", "NAME NEW", "Copies a profile with its rules.",
     "The copy is neither protected nor dynamic. Its rules do not count as uses of their "
     "protocols.",
     "l2cpctl profile copy customer gold", copy},
    {"profile rule add", "PROFILE PROTOCOL discard|peer|tunnel",
     "Adds a rule to a profile: what happens to a protocol's frames.",
     "discard  the frame goes nowhere\n"
     "peer     it is handed to the switch itself and not forwarded\n"
     "tunnel   it is forwarded in its VLAN and not handed to the switch\n"
     "A profile that is protected or attached is not changed: see \"l2cpctl profile status\".",
     "l2cpctl profile rule add customer LLDP tunnel", addRule},
    {"profile rule set", "PROFILE PROTOCOL discard|peer|tunnel", "Changes a rule of a profile.",
     whoMayBeChanged, "l2cpctl profile rule set customer LLDP peer", setRule},
    {"profile rule delete", "PROFILE PROTOCOL", "Deletes a rule of a profile.", whoMayBeChanged,
     "l2cpctl profile rule delete customer LLDP", deleteRule},
    {"profile rule clear", "PROFILE", "Deletes all rules of a profile.", whoMayBeChanged,
     "l2cpctl profile rule clear customer", clearRules},
    {"profile rule list", "PROFILE", "Lists the rules of a profile, in the protocols' name order.",
     "", "l2cpctl profile rule list customer", listRules},
    {"profile rule show", "PROFILE {PROTOCOL | position N}", "Shows one rule of a profile.",
     "Positions count from 0 in the module's own order, not that of names.",
     "l2cpctl profile rule show customer LLDP", showRule},
};

}  // namespace

Table profileTable(std::span<const rpc_l2cp_profile> profiles) {
  return tableOf(profileKind, profiles);
}

constinit const Noun profileNoun{"profile", "Profiles: what happens to protocols' frames",
                                 commands};

}  // namespace cli
