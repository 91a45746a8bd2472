#include <algorithm>
#include <vector>

#include "cli/command.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::size_t longestServiceProfile = 65;

std::string serviceProfileName(Words& words) {
  return parseName(words.take("NAME"), "the name", longestServiceProfile);
}

using Profile = control_service_profile;
constexpr Field<Profile> fields[] = {
    {{"name"}, [](const Profile& of) { return nameValue(of.name); }},
    {{"vlan_profile"}, [](const Profile& of) { return nameOrNothing(of.vlan_profile); }},
    {{"l2cp_profile"}, [](const Profile& of) { return nameOrNothing(of.l2cp_profile); }},
    {{"interfaces"}, [](const Profile& of) {
       const std::span applied(of.interfaces.interfaces_val, of.interfaces.interfaces_len);
       return numbersValue({applied.begin(), applied.end()});
     }}};
constexpr Kind<Profile> kind{"service_profile", "service_profiles", fields};

void list(Context& context) {
  context.words.end();
  const auto all = context.client.control<control_service_profile_list_1>();
  context.output.list(tableOf(kind, std::span(all->list.list_val, all->list.list_len)));
}

void show(Context& context) {
  const std::string name = serviceProfileName(context.words);
  context.words.end();
  const auto all = context.client.control<control_service_profile_list_1>();
  const std::span profiles(all->list.list_val, all->list.list_len);
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const Profile& profile) { return profile.name == name; });
  if (found == profiles.end()) acceptResult(-2, {{-2, advice::noSuchServiceProfile}});
  context.output.show(tableOf(kind, *found));
}

void add(Context& context) {
  std::string name = parseNewName(context.words.take("NAME"), "the name", longestServiceProfile);
  context.words.end();
  acceptResult(context.client.control<control_service_profile_add_1>(wireText(name)));
}

void remove(Context& context) {
  std::string name = serviceProfileName(context.words);
  context.words.end();
  acceptResult(context.client.control<control_service_profile_delete_1>(wireText(name)),
               {{-2, advice::noSuchServiceProfile}});
}

void setProfile(Context& context, std::string& name, std::string_view which, std::string& profile) {
  if (which == "vlan-profile") {
    acceptResult(context.client.control<control_service_profile_set_vlan_1>(wireText(name),
                                                                            wireText(profile)),
                 {{-2, advice::noSuchServiceOrVlanProfile}});
  } else {
    acceptResult(context.client.control<control_service_profile_set_l2cp_1>(wireText(name),
                                                                            wireText(profile)),
                 {{-2, advice::noSuchServiceProfile}});
  }
}

void set(Context& context) {
  Words& words = context.words;
  std::string name = serviceProfileName(words);
  const std::string_view which = words.choose({"vlan-profile", "l2cp-profile"});
  // An empty one would stand for none.
  std::string profile = parseNewName(words.take("PROFILE"), "the profile");
  words.end();
  setProfile(context, name, which, profile);
}

void unset(Context& context) {
  Words& words = context.words;
  std::string name = serviceProfileName(words);
  const std::string_view which = words.choose({"vlan-profile", "l2cp-profile"});
  words.end();
  std::string none;
  setProfile(context, name, which, none);
}

struct Application {
  explicit Application(Context& context) : name(serviceProfileName(context.words)) {
    context.words.expect("interface");
    const std::string word = context.words.take("INTERFACE");
    context.words.end();
    interface = interfaceNumber(word, context.client);
  }

  std::string name;
  std::int32_t interface = 0;
};

void attach(Context& context) {
  Application application(context);
  acceptResult(context.client.control<control_service_profile_attach_1>(wireText(application.name),
                                                                        application.interface),
               {{-2, advice::noServiceOrItsProfile},
                {-16, advice::attachedByOther},
                {-17, "the service profile is applied on this interface already"}});
}

void detach(Context& context) {
  Application application(context);
  acceptResult(context.client.control<control_service_profile_detach_1>(wireText(application.name),
                                                                        application.interface),
               {{-2, advice::noServiceOrItsProfile},
                {-9, advice::notAppliedOrDetached},
                {-19, advice::nothingToDetach},
                {-20, advice::nothingToDetach}});
}

constexpr std::string_view notWhileApplied =
    "One that is applied on an interface is not changed: detach it first.";

constexpr Command commands[] = {
    {"service-profile list", "", "Lists the service profiles, in name order.",
     "INTERFACES are those on which a service profile is applied.", "l2cpctl service-profile list",
     list},
    {"service-profile show", "NAME", "Shows one service profile.", "",
     "l2cpctl service-profile show business", show},
    {"service-profile add", "NAME", "Adds a service profile that names no other profiles.", "",
     "l2cpctl service-profile add business", add},
    {"service-profile delete", "NAME", "Deletes a service profile.", notWhileApplied,
     "l2cpctl service-profile delete business", remove},
    {"service-profile set", "NAME {vlan-profile PROFILE | l2cp-profile PROFILE}",
     "Makes a service profile name a VLAN profile or an L2CP profile.",
     "The L2CP profile need not exist before the service profile is applied.\n"
     "One that is applied on an interface is not changed: detach it first.",
     "l2cpctl service-profile set business l2cp-profile customer", set},
    {"service-profile unset", "NAME {vlan-profile | l2cp-profile}",
     "Makes a service profile name no VLAN profile or no L2CP profile.", notWhileApplied,
     "l2cpctl service-profile unset business l2cp-profile", unset},
    {"service-profile attach", "NAME interface INTERFACE",
     "Applies a service profile on an interface.",
     "This attaches its L2CP profile to the port of the interface's number, on the S-VID that its\n"
     "VLAN profile has there. INTERFACE is a number, or a port's name from the daemon's\n"
     "configuration.",
     "l2cpctl service-profile attach business interface 3", attach},
    {"service-profile detach", "NAME interface INTERFACE",
     "Takes a service profile off an interface.", "",
     "l2cpctl service-profile detach business interface 3", detach},
};

}  // namespace

constinit const Noun serviceProfileNoun{
    "service-profile", "Service profiles: L2CP profiles applied on interfaces", commands};

}  // namespace cli
