#include "cli/shell/shellForms.h"

namespace cli {

namespace {

constexpr std::string_view undo = "Undoes such a line.";
constexpr std::string_view show = "Shows: \"show profile gold\" is \"profile show gold\".";
constexpr std::string_view leaveMode = "Leaves the mode.";
constexpr std::string_view toTop = "Leaves configuration level.";
constexpr std::string_view command = "Carries out a command.";
constexpr std::string_view help = "Shows help.";

constexpr LineForm top[] = {
    {"configure [terminal]", "Enters configuration level."},
    {"show WORD ...", show},
    {"help [COMMAND ...]", help},
    {"exit", "Leaves the shell."},
    {"quit", "Leaves the shell."},
};

constexpr LineForm configuration[] = {
    {"l2protocol PROTOCOL mac MAC|any [ethertype N [subtype N]]",
     "Makes a protocol or changes one."},
    {"l2cp-profile PROFILE", "Opens a profile for editing; makes it if it is not there."},
    {"vlan-profile VLAN-PROFILE", "Enters a VLAN profile's mode; makes it if it is not there."},
    {"service-profile SERVICE-PROFILE",
     "Enters a service profile's mode; makes it if it is not there."},
    {"attach PROFILE port PORT [vlan VID]", "Puts a profile in force on a port or VLAN."},
    {"apply SERVICE-PROFILE interface INTERFACE", "Applies a service profile."},
    {"no l2protocol PROTOCOL", undo},
    {"no l2cp-profile PROFILE", undo},
    {"no vlan-profile VLAN-PROFILE", undo},
    {"no service-profile SERVICE-PROFILE", undo},
    {"no attach PROFILE port PORT [vlan VID]", undo},
    {"no apply SERVICE-PROFILE interface INTERFACE", undo},
    {"show [WORD ...]", show},
    {"do COMMAND ...", command},
    {"help", help},
    {"exit", toTop},
    {"end", toTop},
};

constexpr LineForm l2cpProfile[] = {
    {"protocol PROTOCOL rule discard|peer|tunnel", "Sets the rule for a protocol."},
    {"no protocol PROTOCOL", undo},
    {"show [WORD ...]", "Shows what is edited, or what the words say."},
    {"do COMMAND ...", command},
    {"help", help},
    {"exit", "Puts the edited copy in the profile's place."},
    {"end", "The same, and leaves configuration level."},
    {"abort", "Leaves the profile as it was."},
};

constexpr LineForm vlanProfile[] = {
    {"interface INTERFACE svid VID", "Sets the S-VID on an interface."},
    {"no interface INTERFACE", undo},
    {"show [WORD ...]", show},
    {"do COMMAND ...", command},
    {"help", help},
    {"exit", leaveMode},
    {"end", toTop},
};

constexpr LineForm serviceProfile[] = {
    {"vlan-profile VLAN-PROFILE", "Sets the VLAN profile."},
    {"l2cp-profile PROFILE", "Sets the L2CP profile."},
    {"no vlan-profile", undo},
    {"no l2cp-profile", undo},
    {"show [WORD ...]", show},
    {"do COMMAND ...", command},
    {"help", help},
    {"exit", leaveMode},
    {"end", toTop},
};

}  // namespace

std::span<const LineForm> topForms() { return top; }

std::span<const LineForm> modeForms(script::Mode mode) {
  switch (mode) {
    case script::Mode::configuration:
      return configuration;
    case script::Mode::l2cpProfile:
      return l2cpProfile;
    case script::Mode::vlanProfile:
      return vlanProfile;
    case script::Mode::serviceProfile:
      return serviceProfile;
  }
  return {};
}

std::string_view shellHelp() {
  return "\"?\" tells what can stand at the cursor, TAB completes it. Words may be abbreviated; a "
         "name with\nblanks stands in quotation marks. The arrow keys bring earlier lines "
         "back.\n\"l2cpctl\" in front of a command may be left out: \"profile list\" is \"l2cpctl "
         "profile list\".\n";
}

}  // namespace cli
