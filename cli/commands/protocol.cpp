#include <algorithm>

#include "cli/command.h"
#include "cli/commands/setting.h"
#include "cli/commands/statistics.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

std::string protocolName(Words& words) { return parseName(words.take("NAME"), "the name"); }

rpc_l2cp_mac_t wireMac(Mac& mac) {
  return {.rpc_l2cp_mac_t_len = static_cast<u_int>(mac.size()), .rpc_l2cp_mac_t_val = mac.data()};
}

using Protocol = rpc_l2cp_proto;
constexpr Field<Protocol> protocolFields[] = {
    {{"name"}, [](const Protocol& of) { return nameValue(of.name); }},
    {{"mac"}, [](const Protocol& of) { return macValue(of.mac); }},
    {{"ethertype"}, [](const Protocol& of) { return etherTypeValue(of.ether_type); }},
    {{"subtype"}, [](const Protocol& of) { return subTypeValue(of.sub_type); }},
    {{"protect"}, [](const Protocol& of) { return truthValue(of.protect != FALSE); }},
    {{"rules", Align::right}, [](const Protocol& of) { return numberValue(of.use_count); }}};
constexpr Kind<Protocol> protocolKind{"protocol", "protocols", protocolFields};

void list(Context& context) {
  context.words.end();
  const auto all = context.client.module<rpc_l2cp_proto_get_all_1>();
  accept(all->error);
  context.output.list(tableOf(protocolKind, std::span(all->list.list_val, all->list.list_len)));
}

void showAt(Context& context) {
  const std::uint32_t position = takePosition(context.words);
  context.words.end();
  const auto found = context.client.module<rpc_l2cp_proto_get_1>(position);
  accept(found->error,
         {{RPC_L2CP_ERR_FAILED, "there are no more protocols than this; positions count from 0"}});
  context.output.show(tableOf(protocolKind, *found));
}

void show(Context& context) {
  if (context.words.size() == 2 && context.words.takeIf("position")) return showAt(context);
  const std::string name = protocolName(context.words);
  context.words.end();
  const auto all = context.client.module<rpc_l2cp_proto_get_all_1>();
  accept(all->error);
  const std::span protocols(all->list.list_val, all->list.list_len);
  const auto found = std::find_if(protocols.begin(), protocols.end(),
                                  [&](const rpc_l2cp_proto& proto) { return proto.name == name; });
  if (found == protocols.end()) accept(RPC_L2CP_ERR_PROTO_NOT_FOUND);
  context.output.show(tableOf(protocolKind, *found));
}

void add(Context& context) {
  Words& words = context.words;
  std::string name = parseNewName(words.take("NAME"), "the name");
  Mac mac{};
  bool hasMac = false;
  rpc_l2cp_proto proto{};
  proto.ether_type = noEtherType;
  proto.sub_type = noSubType;
  Keywords keywords({"mac", "ethertype", "subtype", "protect"});
  while (!words.empty()) {
    const std::string_view keyword = keywords.take(words);
    if (keyword == "mac") {
      mac = parseMac(words.take("MAC"));
      hasMac = true;
    } else if (keyword == "ethertype") {
      proto.ether_type = parseEtherType(words.take("the ethertype"));
    } else if (keyword == "subtype") {
      proto.sub_type = parseSubType(words.take("the subtype"));
    } else {
      proto.protect = TRUE;
    }
  }
  if (!hasMac) throw UsageError("\"mac\" is missing");
  proto.name = wireText(name);
  proto.mac = wireMac(mac);
  accept(context.client.module<rpc_l2cp_proto_add_1>(proto),
         {{RPC_L2CP_ERR_INVALID, advice::protocolNameTooLong}});
}

void remove(Context& context) {
  std::string name = protocolName(context.words);
  context.words.end();
  accept(context.client.module<rpc_l2cp_proto_del_1>(wireText(name)));
}

void rename(Context& context) {
  // Both are there: the new one is replaced.
  std::string oldName = parseName(context.words.take("OLD"), "the old name");
  std::string newName = parseName(context.words.take("NEW"), "the new name");
  context.words.end();
  accept(context.client.module<rpc_l2cp_proto_ren_1>(wireText(oldName), wireText(newName)),
         {{RPC_L2CP_ERR_PROTO_NOT_FOUND,
           "there is no protocol of the old name; \"l2cpctl protocol "
           "list\" shows those there are"},
          {RPC_L2CP_ERR_PROTO_IN_USE,
           "there is no protocol of the new name to be replaced; add one with \"l2cpctl protocol "
           "add\" first"}});
}

void set(Context& context) {
  Words& words = context.words;
  std::string name = protocolName(words);
  const std::string_view what = words.choose({"protect", "mac", "ethertype", "subtype"});
  if (what == "protect") {
    const bool on = takeSwitch(words);
    words.end();
    accept(context.client.module<rpc_l2cp_proto_set_protect_1>(wireText(name), on ? TRUE : FALSE));
  } else if (what == "mac") {
    Mac mac = parseMac(words.take("MAC"));
    words.end();
    accept(context.client.module<rpc_l2cp_proto_set_mac_1>(wireText(name), wireMac(mac)));
  } else if (what == "ethertype") {
    const std::uint16_t etherType = parseEtherType(words.take("the ethertype"));
    words.end();
    accept(context.client.module<rpc_l2cp_proto_set_ether_type_1>(wireText(name), etherType));
  } else {
    const std::uint8_t subType = parseSubType(words.take("the subtype"));
    words.end();
    accept(context.client.module<rpc_l2cp_proto_set_sub_type_1>(wireText(name), subType));
  }
}

void statistics(Context& context) {
  std::string name = protocolName(context.words);
  context.words.end();
  const auto counters = context.client.module<rpc_l2cp_proto_stat_1>(wireText(name));
  accept(counters->error, {{RPC_L2CP_ERR_NO_COUNTERS, countersElsewhere}});
  showStatistics(context, "protocol", nameValue(name), *counters);
}

constexpr Command commands[] = {
    {"protocol list", "", "Lists the protocols of the catalogue, in name order.",
     "RULES counts the rules of profiles that refer to a protocol.", "l2cpctl protocol list", list},
    {"protocol show", "NAME | position N", "Shows one protocol.",
     "Positions are those in name order, from 0.", "l2cpctl protocol show LACP-LAMP", show},
    {"protocol add", "NAME mac MAC|any [ethertype N] [subtype N] [protect]",
     "Adds a protocol to the catalogue.",
     "The subtype is the first byte behind the EtherType. It is matched only beside an EtherType:\n"
     "with \"ethertype none\", or without one, a subtype has no effect.\n"
     "A protocol that is added over RPC always gets the all-zero mask for its MAC address: it\n"
     "matches any destination address, whatever \"mac\" says. The built-in protocols match "
     "theirs.\n"
     "Write the address as aa:bb:cc:dd:ee:ff, aa-bb-cc-dd-ee-ff or aabb.ccdd.eeff, and numbers as\n"
     "decimal or 0x hexadecimal ones: EtherTypes to 0xfffe, subtypes to 0xfe, each also \"none\".",
     "l2cpctl protocol add PTP mac any ethertype 0x88f7", add},
    {"protocol delete", "NAME", "Deletes a protocol.",
     "One that rules of profiles refer to is refused. Built-in and protected ones are not.",
     "l2cpctl protocol delete PTP", remove},
    {"protocol rename", "OLD NEW", "Puts a protocol in the place of another.",
     "The module takes a new name only if there is a protocol of that name. Its definition is\n"
     "replaced by that of OLD, and OLD goes.",
     "l2cpctl protocol rename PTP PTP-old", rename},
    {"protocol set", "NAME {protect on|off | mac MAC|any | ethertype N|none | subtype N|none}",
     "Changes one thing about a protocol.",
     "A new address is matched under the mask that the protocol has: all of it for most built-in\n"
     "protocols, nothing for those added over RPC.\n"
     "What is attached already goes on with the old definition until it is attached anew.",
     "l2cpctl protocol set PTP ethertype 0x88f7", set},
    {"protocol statistics", "NAME", "Asks for a protocol's counters.",
     "The module always answers that there are none. Read those of ports and VLANs instead:\n"
     "\"l2cpctl port statistics\", \"l2cpctl vlan statistics\".",
     "l2cpctl protocol statistics LLDP", statistics},
};

}  // namespace

constinit const Noun protocolNoun{"protocol", "Protocols: which frames they are", commands};

}  // namespace cli
