#include <algorithm>
#include <iterator>

#include "cli/command.h"
#include "cli/failure.h"
#include "cli/refusal.h"
#include "cli/statistics.h"
#include "cli/value.h"

namespace cli {

namespace {

std::string profileName(Words& words, std::string_view what = "NAME") {
  return parseName(words.take(what), "the name");
}

// ---- Profiles ----

void list(Context& context) {
  context.words.end();
  const auto all = context.client.module<rpc_l2cp_profile_get_all_1>();
  accept(all->error);
  std::vector<Row> rows;
  for (const rpc_l2cp_profile& profile : std::span(all->list.list_val, all->list.list_len)) {
    rows.push_back({nameText(profile.name), std::string(yesNo(profile.protect != FALSE)),
                    std::string(yesNo(profile.dynamic != FALSE)),
                    std::to_string(profile.use_count)});
  }
  context.output.table({{"NAME"}, {"PROTECT"}, {"DYNAMIC"}, {"ATTACHMENTS", Column::Align::right}},
                       rows);
}

void showRules(Context& context, std::string& name) {
  const auto entries = context.client.module<rpc_l2cp_profile_proto_get_all_1>(wireText(name));
  accept(entries->error);
  std::vector<Row> rows;
  for (const rpc_l2cp_profile_proto& entry :
       std::span(entries->list.list_val, entries->list.list_len)) {
    rows.push_back({nameText(entry.proto_name), ruleText(entry.rule)});
  }
  context.output.table({{"PROTOCOL"}, {"RULE"}}, rows);
}

void show(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  const auto all = context.client.module<rpc_l2cp_profile_get_all_1>();
  accept(all->error);
  const std::span profiles(all->list.list_val, all->list.list_len);
  const auto found =
      std::find_if(profiles.begin(), profiles.end(),
                   [&](const rpc_l2cp_profile& profile) { return profile.name == name; });
  if (found == profiles.end()) accept(RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  context.output.record({{"name", nameText(found->name)},
                         {"protect", std::string(yesNo(found->protect != FALSE))},
                         {"dynamic", std::string(yesNo(found->dynamic != FALSE))},
                         {"attachments", std::to_string(found->use_count)}});
  context.output.line("");
  showRules(context, name);
}

void add(Context& context) {
  Words& words = context.words;
  std::string name = profileName(words);
  rpc_l2cp_profile profile{};
  while (!words.empty()) {
    if (profile.protect == FALSE && words.takeIf("protect")) {
      profile.protect = TRUE;
    } else if (profile.dynamic == FALSE && words.takeIf("dynamic")) {
      profile.dynamic = TRUE;
    } else {
      words.end();
    }
  }
  profile.name = wireText(name);
  accept(context.client.module<rpc_l2cp_profile_add_1>(profile));
}

void remove(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_del_1>(wireText(name)),
         {{RPC_L2CP_ERR_PROFILE_IN_USE,
           "the profile is attached, or a service profile names it; detach it everywhere first "
           "with \"l2cpctl detach\""}});
}

void set(Context& context) {
  Words& words = context.words;
  std::string name = profileName(words);
  if (words.takeIf("protect")) {
    const bool on = parseSwitch(words.take(R"("on" or "off")"), "protect");
    words.end();
    accept(
        context.client.module<rpc_l2cp_profile_set_protect_1>(wireText(name), on ? TRUE : FALSE));
  } else if (words.takeIf("dynamic")) {
    const bool on = parseSwitch(words.take(R"("on" or "off")"), "dynamic");
    words.end();
    accept(
        context.client.module<rpc_l2cp_profile_set_dynamic_1>(wireText(name), on ? TRUE : FALSE));
  } else {
    words.expectOneOf(R"("protect" or "dynamic")");
  }
}

void statistics(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  showStatistics(context, *context.client.module<rpc_l2cp_profile_stat_1>(wireText(name)),
                 {{RPC_L2CP_ERR_NO_COUNTERS, countersElsewhere}});
}

void status(Context& context) {
  std::string name = profileName(context.words);
  context.words.end();
  const rpc_l2cp_error state = context.client.module<rpc_l2cp_profile_status_1>(wireText(name));
  // These two are what was asked for, not a refusal.
  if (state == RPC_L2CP_ERR_PROFILE_PROTECTED) return context.output.line("protected");
  if (state == RPC_L2CP_ERR_PROFILE_IN_USE) return context.output.line("attached");
  accept(state);
  context.output.line("changeable");
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
  const rpc_l2cp_rule rule = parseRule(context.words.take("the rule"));
  context.words.end();
  accept(
      context.client.module<rpc_l2cp_profile_proto_add_1>(wireText(names.profile),
                                                          wireText(names.protocol), rule),
      {{RPC_L2CP_ERR_PROTO_IN_USE,
        "the profile has a rule for this protocol; change it with \"l2cpctl profile rule set\""}});
}

void setRule(Context& context) {
  RuleNames names(context.words);
  const rpc_l2cp_rule rule = parseRule(context.words.take("the rule"));
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_proto_set_1>(wireText(names.profile),
                                                             wireText(names.protocol), rule));
}

void deleteRule(Context& context) {
  RuleNames names(context.words);
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_proto_del_1>(wireText(names.profile),
                                                             wireText(names.protocol)),
         {{RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE,
           "the profile has no rule for this protocol; \"l2cpctl profile rule list\" shows those "
           "there are"}});
}

void clearRules(Context& context) {
  std::string name = profileName(context.words, "PROFILE");
  context.words.end();
  accept(context.client.module<rpc_l2cp_profile_proto_del_all_1>(wireText(name)));
}

void listRules(Context& context) {
  std::string name = profileName(context.words, "PROFILE");
  context.words.end();
  showRules(context, name);
}

constexpr std::string_view whoMayBeChanged =
    "A profile that is protected or attached is not changed: see \"l2cpctl profile status\".";

constexpr Command commands[] = {
    {"profile list", "", "Lists the profiles, in name order.",
     "ATTACHMENTS counts the ports and VLANs where a profile is in force.", "l2cpctl profile list",
     list},
    {"profile show", "NAME", "Shows a profile and its rules.", "", "l2cpctl profile show customer",
     show},
    {"profile add", "NAME [protect] [dynamic]", "Adds a profile without rules.",
     "A protected profile takes no rules and cannot be deleted until its protection is switched\n"
     "off. A dynamic one is left out of the running configuration's usual form.",
     "l2cpctl profile add customer", add},
    {"profile delete", "NAME", "Deletes a profile that is neither protected nor attached.",
     "Clear its rules first: the rules of a deleted profile go on counting as uses of their\n"
     "protocols, which then cannot be deleted any more.",
     "l2cpctl profile delete customer", remove},
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
};

}  // namespace

constinit const Noun profileNoun{"profile", "Profiles: what happens to protocols' frames",
                                 commands};

}  // namespace cli
