#include <algorithm>
#include <vector>

#include "cli/command.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::uint32_t highestSvid = 4094;

std::string vlanProfileName(Words& words) { return parseName(words.take("NAME"), "the name"); }

using Profile = control_vlan_profile;

std::span<const control_svid> svidsOf(const Profile& profile) {
  return {profile.svids.svids_val, profile.svids.svids_len};
}

constexpr Field<Profile> fields[] = {
    {{"name"}, [](const Profile& of) { return nameValue(of.name); }},
    {{"interfaces"}, [](const Profile& of) {
       std::vector<std::int64_t> interfaces;
       for (const control_svid& svid : svidsOf(of)) interfaces.push_back(svid.intf);
       return numbersValue(std::move(interfaces));
     }}};
constexpr Kind<Profile> kind{"vlan_profile", "vlan_profiles", fields};

constexpr Field<control_svid> svidFields[] = {
    {{"interface", Align::right}, [](const control_svid& of) { return numberValue(of.intf); }},
    {{"svid", Align::right}, [](const control_svid& of) { return numberValue(of.svid); }}};
constexpr Kind<control_svid> svidKind{"svid", "svids", svidFields};

void list(Context& context) {
  context.words.end();
  const auto all = context.client.control<control_vlan_profile_list_1>();
  context.output.list(tableOf(kind, std::span(all->list.list_val, all->list.list_len)));
}

void show(Context& context) {
  const std::string name = vlanProfileName(context.words);
  context.words.end();
  const auto all = context.client.control<control_vlan_profile_list_1>();
  const std::span profiles(all->list.list_val, all->list.list_len);
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const Profile& profile) { return profile.name == name; });
  if (found == profiles.end()) acceptResult(-2, {{-2, advice::noSuchVlanProfile}});
  const Table svids = tableOf(svidKind, svidsOf(*found));
  context.output.show(tableOf(kind, *found), {&svids, 1});
}

void add(Context& context) {
  std::string name = parseNewName(context.words.take("NAME"), "the name");
  context.words.end();
  acceptResult(context.client.control<control_vlan_profile_add_1>(wireText(name)));
}

void remove(Context& context) {
  std::string name = vlanProfileName(context.words);
  context.words.end();
  acceptResult(context.client.control<control_vlan_profile_delete_1>(wireText(name)),
               {{-2, advice::noSuchVlanProfile}, {-16, advice::vlanProfileNamed}});
}

void setSvid(Context& context, std::string& name, const std::string& interface, int svid) {
  const std::int32_t number = interfaceNumber(interface, context.client);
  acceptResult(
      context.client.control<control_vlan_profile_set_svid_1>(wireText(name), number, svid),
      {{-2, advice::noSuchVlanProfile}, {-16, advice::vlanProfileInForce}});
}

void set(Context& context) {
  Words& words = context.words;
  std::string name = vlanProfileName(words);
  words.expect("interface");
  const std::string interface = words.take("INTERFACE");
  words.expect("svid");
  const std::uint32_t svid = parseNumber(words.take("VID"), "svid", 1, highestSvid);
  words.end();
  setSvid(context, name, interface, static_cast<int>(svid));
}

void unset(Context& context) {
  Words& words = context.words;
  std::string name = vlanProfileName(words);
  words.expect("interface");
  const std::string interface = words.take("INTERFACE");
  words.end();
  setSvid(context, name, interface, 0);
}

constexpr Command commands[] = {
    {"vlan-profile list", "", "Lists the VLAN profiles, in name order.",
     "INTERFACES are those on which a VLAN profile has an S-VID.", "l2cpctl vlan-profile list",
     list},
    {"vlan-profile show", "NAME", "Shows a VLAN profile and its S-VIDs.", "",
     "l2cpctl vlan-profile show metro", show},
    {"vlan-profile add", "NAME", "Adds a VLAN profile without S-VIDs.", "",
     "l2cpctl vlan-profile add metro", add},
    {"vlan-profile delete", "NAME", "Deletes a VLAN profile that no service profile names.", "",
     "l2cpctl vlan-profile delete metro", remove},
    {"vlan-profile set", "NAME interface INTERFACE svid VID",
     "Gives a VLAN profile its S-VID on an interface.",
     "VID is from 1 to 4094. INTERFACE is a number, or a port's name from the daemon's\n"
     "configuration. A VLAN profile in force through a service profile is not changed.",
     "l2cpctl vlan-profile set metro interface 3 svid 100", set},
    {"vlan-profile unset", "NAME interface INTERFACE",
     "Takes a VLAN profile's S-VID on an interface away.",
     "A VLAN profile in force through a service profile is not changed.",
     "l2cpctl vlan-profile unset metro interface 3", unset},
};

}  // namespace

constinit const Noun vlanProfileNoun{"vlan-profile", "VLAN profiles: S-VIDs by interface",
                                     commands};

}  // namespace cli
