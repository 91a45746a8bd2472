#include "cli/command.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

struct Attachment {
  Attachment(Context& context, std::uint16_t (*take)(Words&))
      : profile(parseName(context.words.take("PROFILE"), "the profile")) {
    Words& words = context.words;
    words.expect("port");
    // To be looked up last: that may mean to ask the daemon.
    const std::string portWord = words.take("PORT");
    if (!words.empty()) {
      words.expect("vlan");
      vid = take(words);
    }
    words.end();
    port = portNumber(portWord, context.client);
  }

  std::string profile;
  std::uint32_t port = 0;
  std::uint16_t vid = wholePort;
};

void attach(Context& context) {
  Attachment attachment(context, &takeVlan);
  accept(context.client.module<rpc_l2cp_profile_port_attach_1>(wireText(attachment.profile),
                                                               attachment.port, attachment.vid),
         {{RPC_L2CP_ERR_FAILED,
           "the profile is attached there already; \"l2cpctl port show\" lists what is"}});
}

void detach(Context& context) {
  Attachment attachment(context, &takeAnyVlan);
  accept(context.client.module<rpc_l2cp_profile_port_detach_1>(wireText(attachment.profile),
                                                               attachment.port, attachment.vid),
         {{RPC_L2CP_ERR_PROTO_NOT_FOUND, advice::nothingOnPort}});
}

constexpr Command attachCommands[] = {
    {"attach", "PROFILE port PORT [vlan VID]",
     "Puts a profile in force for the frames that arrive on a port.",
     "With \"vlan\", only for frames with this outer VLAN id (0 to 4095); without it, or with "
     "\"all\"\n"
     "or 4095, for all frames of the port, tagged or not. PORT is a number, or a name from the "
     "daemon's\n"
     "configuration (\"l2cpctl daemon status\" lists them).",
     "l2cpctl attach customer port 3 vlan 100", attach}};

constexpr Command detachCommands[] = {{"detach", "PROFILE port PORT [vlan VID]",
                                       "Ends what \"attach\" with the same words began.",
                                       "Without \"vlan\", what is attached to the whole port is "
                                       "detached, not what is attached to its\n"
                                       "VLANs. VID may be up to 65535 here: other clients may have "
                                       "used one\n"
                                       "that the classifier refuses.",
                                       "l2cpctl detach customer port 3 vlan 100", detach}};

}  // namespace

constinit const Noun attachNoun{"attach", "Put a profile in force on a port or one of its VLANs",
                                attachCommands};
constinit const Noun detachNoun{"detach", "Put it out of force", detachCommands};

}  // namespace cli
