// From one configuration to another, without a daemon.

#include "cli/apply/plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cli/apply/stateDifference.h"
#include "tests/cli/apply/random_state.h"

namespace cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

const std::map<std::string, Definition> builtIn{{"LLDP", {}}, {"CDP", {}}, {"xSTP", {}}};

State stateOf(const Lines& lines) {
  State state;
  state.protocols = builtIn;
  script::Reader reader;
  for (const std::string& line : lines) EXPECT_EQ(state.take(reader.read(line)), "") << line;
  return state;
}

Lines planned(const Lines& current, const Lines& wanted, const std::set<std::uint32_t>& gaps = {}) {
  return textOf(planFor(stateOf(current), stateOf(wanted), gaps));
}

Lines difference(const Lines& current, const Lines& wanted) {
  return linesBetween(stateOf(current), stateOf(wanted));
}

// The lines of several parts of a configuration.
Lines together(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

const Lines gold{"l2cp-profile gold", " protocol LLDP rule tunnel", "exit"};
const Lines silver{"l2cp-profile silver", " protocol LLDP rule peer", "exit"};
const Lines copper{"l2cp-profile copper", " protocol CDP rule peer", "exit"};
const Lines service{
    "vlan-profile metro",  " interface 3 svid 100", "exit", "service-profile business",
    " vlan-profile metro", " l2cp-profile gold",    "exit"};

// ---- States ----

TEST(State, RefusesWhatTheDaemonWouldRefuse) {
  State state = stateOf(together({gold, service, {"apply business interface 3"}}));
  const State before = state;
  const auto refusal = [&](const script::Command& command) { return state.take(command); };
  EXPECT_EQ(refusal(script::Entry{"gold", "CDP", script::Rule::peer}),
            "the profile is attached, and its rules cannot be changed");
  EXPECT_EQ(refusal(script::Entry{"gold", "none", script::Rule::peer}),
            "there is no protocol of this name");
  EXPECT_EQ(refusal(script::Entry{"none", "LLDP", script::Rule::peer}),
            "there is no profile of this name");
  EXPECT_EQ(refusal(script::NoEntry{"gold", "LLDP"}),
            "the profile is attached, and its rules cannot be changed");
  EXPECT_EQ(refusal(script::NoL2cpProfile{"gold"}), "the profile is attached");
  EXPECT_EQ(refusal(script::NoProtocol{"LLDP"}), "rules of profiles refer to the protocol");
  EXPECT_EQ(refusal(script::NoVlanProfile{"metro"}), "a service profile names the VLAN profile");
  EXPECT_EQ(refusal(script::NoSvid{"metro", 3}),
            "a service profile that names the VLAN profile is applied on an interface");
  EXPECT_EQ(refusal(script::NoServiceProfile{"business"}),
            "the service profile is applied on an interface");
  EXPECT_EQ(refusal(script::ServiceL2cpProfile{"business", ""}),
            "the service profile is applied on an interface");
  EXPECT_EQ(refusal(script::Apply{"business", 4}),
            "the VLAN profile has no S-VID on the interface");
  EXPECT_EQ(refusal(script::NoApply{"business", 4}), "the service profile is not applied there");
  EXPECT_EQ(refusal(script::NoAttach{"gold", 3, 101}), "the profile is not attached there");
  EXPECT_EQ(refusal(script::Protocol{std::string(31, 'x')}), "the name is empty or too long");
  EXPECT_EQ(state.protocols, before.protocols);
  EXPECT_EQ(state.l2cpProfiles, before.l2cpProfiles);
  EXPECT_EQ(state.vlanProfiles, before.vlanProfiles);
  EXPECT_EQ(state.services, before.services);
  EXPECT_EQ(state.ports, before.ports);
  EXPECT_EQ(state.applications, before.applications);
}

TEST(State, TakesWhatIsSoAlready) {
  const Lines lines = together({gold, service, {"apply business interface 3"}});
  const State once = stateOf(lines);
  const State twice = stateOf(together({lines, lines}));
  EXPECT_EQ(twice.l2cpProfiles, once.l2cpProfiles);
  EXPECT_EQ(twice.ports, once.ports);
  EXPECT_EQ(twice.applications, once.applications);
}

// ---- Plans ----

TEST(Plan, IsEmptyWithoutADifference) {
  const Lines lines =
      together({gold, service, {"attach gold port 1", "apply business interface 3"}});
  EXPECT_THAT(planned(lines, lines), IsEmpty());
  EXPECT_THAT(difference(lines, lines), IsEmpty());
}

TEST(Plan, MakesWhatOthersNeedFirstAndDeletesItLast) {
  const Lines all = together({{"l2protocol \"PTP\" mac any ethertype 0x88f7"},
                              {"l2cp-profile gold", " protocol \"PTP\" rule tunnel", "exit"},
                              service,
                              {"attach gold port 1", "apply business interface 3"}});
  EXPECT_THAT(planned({}, all),
              ElementsAre("l2protocol \"PTP\" mac any ethertype 0x88f7", "vlan-profile metro",
                          " interface 3 svid 100", "exit", "l2cp-profile gold",
                          " protocol \"PTP\" rule tunnel", "exit", "service-profile business",
                          " vlan-profile metro", " l2cp-profile gold", "exit", "attach gold port 1",
                          "apply business interface 3"));
  EXPECT_THAT(planned(all, {}),
              ElementsAre("no attach gold port 1", "no apply business interface 3",
                          "no service-profile business", "no vlan-profile metro",
                          "no l2cp-profile gold", "no l2protocol \"PTP\""));
}

TEST(Plan, ChangesAProfileThatIsNotInForceInPlace) {
  EXPECT_THAT(planned(gold, {"l2cp-profile gold", " protocol LLDP rule peer",
                             " protocol CDP rule peer", "exit"}),
              ElementsAre("l2cp-profile gold", " protocol \"CDP\" rule peer",
                          " protocol \"LLDP\" rule peer", "exit"));
}

TEST(Plan, EditsAProfileThatOnlyServiceProfilesPutInForce) {
  const Lines more{"l2cp-profile gold", " protocol CDP rule peer", "exit"};
  const Lines applied = together({service, {"apply business interface 3"}});
  EXPECT_THAT(planned(together({gold, applied}), together({gold, more, applied})),
              ElementsAre("! in force, edited as a copy that takes its place at \"exit\":",
                          "l2cp-profile gold", " protocol \"CDP\" rule peer", "exit",
                          "! interrupted: gold port 3 vlan 100"));
}

TEST(Plan, TakesAProfileOutOfForceWhereAnEditingCycleWouldFindItUnchanged) {
  const Lines other{"l2cp-profile gold", " protocol LLDP rule peer", "exit"};
  const Lines applied = together({service, {"apply business interface 3"}});
  EXPECT_THAT(planned(together({gold, applied}), together({other, applied})),
              ElementsAre("no apply business interface 3", "l2cp-profile gold",
                          " protocol \"LLDP\" rule peer", "exit", "apply business interface 3",
                          "! interrupted: gold port 3 vlan 100"));
}

TEST(Plan, TakesAProfileOutOfForceWhereItIsAttachedDirectly) {
  const Lines more{"l2cp-profile gold", " protocol CDP rule peer", "exit"};
  const Lines attached{"attach gold port 1 vlan 5", "attach gold port 2"};
  EXPECT_THAT(planned(together({gold, attached}), together({gold, more, attached})),
              ElementsAre("no attach gold port 1 vlan 5", "no attach gold port 2",
                          "l2cp-profile gold", " protocol \"CDP\" rule peer", "exit",
                          "attach gold port 1 vlan 5", "attach gold port 2",
                          "! interrupted: gold port 1 vlan 5", "! interrupted: gold port 2"));
}

// The module's editing procedures leave out what has this name.
TEST(Plan, EditsNothingThatIsCalledDefault) {
  const Lines more{" protocol CDP rule peer", "exit"};
  const Lines profile{"l2cp-profile DEFAULT", " protocol LLDP rule tunnel"};
  const Lines names{
      "vlan-profile metro",  " interface 3 svid 100", "exit", "service-profile business",
      " vlan-profile metro", " l2cp-profile DEFAULT", "exit", "apply business interface 3"};
  EXPECT_THAT(planned(together({profile, {"exit"}, names}), together({profile, more, names})),
              ElementsAre("no apply business interface 3", "l2cp-profile DEFAULT",
                          " protocol \"CDP\" rule peer", "exit", "apply business interface 3",
                          "! interrupted: DEFAULT port 3 vlan 100"));
  const Lines other{"l2cp-profile gold", " protocol LLDP rule tunnel"};
  const Lines isNamed{"service-profile DEFAULT", " l2cp-profile gold", "exit"};
  const Lines applied = together({service, isNamed, {"apply business interface 3"}});
  EXPECT_THAT(planned(together({other, {"exit"}, applied}), together({other, more, applied})),
              ElementsAre("no apply business interface 3", "l2cp-profile gold",
                          " protocol \"CDP\" rule peer", "exit", "apply business interface 3",
                          "! interrupted: gold port 3 vlan 100"));
}

TEST(Plan, EditsNoProfileThatAServiceProfileCannotBeTakenOffFor) {
  const Lines applied = together(
      {service,
       {"vlan-profile metro", " interface 4 svid 200", "exit", "apply business interface 3",
        "apply business interface 4", "no attach gold port 4 vlan 200"}});
  const Lines more{"l2cp-profile gold", " protocol CDP rule peer", "exit"};
  EXPECT_THAT(planned(together({gold, applied}), together({gold, more, applied})),
              ElementsAre("no apply business interface 3", "l2cp-profile gold",
                          " protocol \"CDP\" rule peer", "exit", "apply business interface 3",
                          "! interrupted: gold port 3 vlan 100"));
}

TEST(Plan, CountsOnThePositionsThatAnEditedProfileLeaves) {
  const Lines profiles = together({gold, copper, silver, service});
  const Lines attached{"apply business interface 3", "attach copper port 3 vlan 7"};
  const Lines more{"l2cp-profile gold", " protocol CDP rule peer", "exit"};
  EXPECT_THAT(
      planned(together({profiles, attached}),
              together({profiles, more, attached, {"attach silver port 3 vlan 7"}})),
      ElementsAre("no attach copper port 3 vlan 7",
                  "! in force, edited as a copy that takes its place at \"exit\":",
                  "l2cp-profile gold", " protocol \"CDP\" rule peer", "exit",
                  "attach copper port 3 vlan 7", "attach silver port 3 vlan 7",
                  "! interrupted: gold port 3 vlan 100", "! interrupted: copper port 3 vlan 7"));
}

TEST(Plan, TakesProfilesOutOfForceWhileAProtocolOfTheirsIsRedefined) {
  const Lines ptp{"l2cp-profile gold", " protocol PTP rule peer", "exit", "attach gold port 1"};
  EXPECT_THAT(planned(together({{"l2protocol PTP mac any ethertype 0x88f7"}, ptp}),
                      together({{"l2protocol PTP mac any ethertype 0x88f8"}, ptp})),
              ElementsAre("no attach gold port 1", "l2protocol \"PTP\" mac any ethertype 0x88f8",
                          "attach gold port 1", "! interrupted: gold port 1"));
}

TEST(Plan, TakesServiceProfilesOffWhileAnSvidOfTheirsChanges) {
  const Lines moved{"vlan-profile metro", " interface 4 svid 200", "exit"};
  const Lines applied{"apply business interface 3"};
  EXPECT_THAT(
      planned(together({gold, service, applied}), together({gold, service, moved, applied})),
      ElementsAre("no apply business interface 3", "vlan-profile metro", " interface 4 svid 200",
                  "exit", "apply business interface 3", "! interrupted: gold port 3 vlan 100"));
}

TEST(Plan, LeavesAttachmentsAloneWhenOneComesBehindThem) {
  const Lines profiles = together({gold, copper});
  EXPECT_THAT(planned(together({profiles, {"attach gold port 1"}}),
                      together({profiles, {"attach gold port 1", "attach copper port 1"}})),
              ElementsAre("attach copper port 1"));
}

TEST(Plan, AttachesAnewWhatOneIsToComeInFrontOf) {
  const Lines profiles = together({gold, copper});
  const Lines current = together({profiles, {"attach gold port 1"}});
  EXPECT_THAT(
      planned(current, together({profiles, {"attach copper port 1", "attach gold port 1"}})),
      ElementsAre("no attach gold port 1", "attach copper port 1", "attach gold port 1",
                  "! interrupted: gold port 1"));
  // Where a position is free in front, nothing else is sure to come behind.
  EXPECT_THAT(
      planned(current, together({profiles, {"attach gold port 1", "attach copper port 1"}}), {1}),
      ElementsAre("no attach gold port 1", "attach gold port 1", "attach copper port 1",
                  "! interrupted: gold port 1"));
}

TEST(Plan, LeavesTheOrderOfAttachmentsAloneThatNeverMeet) {
  const Lines profiles = together({gold, copper});
  EXPECT_THAT(
      planned(together({profiles, {"attach gold port 1 vlan 5", "attach gold port 1 vlan 6"}}),
              together({profiles,
                        {"attach gold port 1 vlan 6", "attach copper port 1 vlan 7",
                         "attach gold port 1 vlan 5"}})),
      ElementsAre("attach copper port 1 vlan 7"));
}

TEST(Plan, AttachesAnewWhatUsesTheSameObjectsAsWhatGoes) {
  const Lines profiles = together({gold, silver});
  EXPECT_THAT(planned(together({profiles, {"attach gold port 1", "attach silver port 1"}}),
                      together({profiles, {"attach silver port 1"}})),
              ElementsAre("no attach gold port 1", "no attach silver port 1",
                          "attach silver port 1", "! interrupted: silver port 1"));
}

TEST(Plan, PutsAnAttachmentBackThatWasTakenFromAServiceProfileToTakeThatOff) {
  const Lines detached =
      together({gold, service, {"apply business interface 3", "no attach gold port 3 vlan 100"}});
  EXPECT_THAT(planned(detached, together({gold, service})),
              ElementsAre("attach gold port 3 vlan 100", "no apply business interface 3"));
  EXPECT_THAT(planned(together({gold, service}), detached),
              ElementsAre("apply business interface 3", "no attach gold port 3 vlan 100"));
}

TEST(Plan, UnnamesAProfileToDeleteIt) {
  const Lines without{
      "vlan-profile metro",  " interface 3 svid 100", "exit", "service-profile business",
      " vlan-profile metro", " l2cp-profile gold",    "exit"};
  EXPECT_THAT(
      planned(together({gold, service}), without),
      ElementsAre("service-profile business", " no l2cp-profile", "exit", "no l2cp-profile gold",
                  "service-profile business", " l2cp-profile gold", "exit"));
}

// ---- Differences ----

TEST(Difference, ShowsLinesInTheirModes) {
  EXPECT_THAT(
      difference(together({gold, copper, {"attach gold port 1"}}),
                 together({{"l2protocol \"PTP\" mac any"},
                           {"l2cp-profile gold", " protocol LLDP rule peer", "exit"},
                           service,
                           {"attach gold port 1 vlan 7"}})),
      ElementsAre("+l2protocol \"PTP\" mac any", "-l2cp-profile copper",
                  "- protocol \"CDP\" rule peer", " l2cp-profile gold",
                  "- protocol \"LLDP\" rule tunnel", "+ protocol \"LLDP\" rule peer",
                  "+vlan-profile metro", "+ interface 3 svid 100", "+service-profile business",
                  "+ vlan-profile metro", "+ l2cp-profile gold", "-attach gold port 1",
                  "+attach gold port 1 vlan 7"));
}

TEST(Difference, ShowsAnAttachmentThatGoesBehindAnother) {
  const Lines profiles = together({gold, copper});
  EXPECT_THAT(difference(together({profiles, {"attach gold port 1", "attach copper port 1"}}),
                         together({profiles, {"attach copper port 1", "attach gold port 1"}})),
              ElementsAre("-attach gold port 1", "+attach gold port 1"));
}

// ---- Any two states ----

/// The module's side of a plan: what it refuses, and the positions of a port's entries, of which
/// new ones take the first that are free.
class Module {
 public:
  Module() { state_.protocols = builtIn; }

  std::set<std::uint32_t> portsWithGaps() const {
    std::set<std::uint32_t> ports;
    for (const auto& [port, entries] : entries_) {
      if (!entries.empty() && entries.rbegin()->first + 1 != entries.size()) ports.insert(port);
    }
    return ports;
  }

  void perform(const Plan& plan) {
    for (const script::Command& command : plan.commands) take(command, plan);
    EXPECT_FALSE(edited_) << "an edited profile was not left";
  }

  /// As the daemon shows it: attachments in the order of their last entries.
  State state() const {
    State state = state_;
    for (auto& [port, attachments] : state.ports) {
      std::map<Attachment, std::size_t> last;
      for (const auto& [position, attachment] : entries_.at(port)) last[attachment] = position;
      std::sort(attachments.begin(), attachments.end(),
                [&](const auto& one, const auto& other) { return last[one] < last[other]; });
    }
    return state;
  }

  /// The attachments of a port in the order in which a frame that meets both meets their entries.
  bool isInFront(std::uint32_t port, const Attachment& one, const Attachment& other) const {
    bool passedOther = false;
    for (const auto& [position, attachment] : entries_.at(port)) {
      if (attachment == other) passedOther = true;
      if (attachment == one && passedOther) return false;
    }
    return true;
  }

 private:
  void take(const script::Command& command, const Plan& plan) {
    if (const auto* profile = std::get_if<script::L2cpProfile>(&command)) {
      if (plan.edited.contains(profile->name)) return edit(profile->name);
    }
    if (edited_ && std::holds_alternative<script::Exit>(command)) return commit();
    const State before = state_;
    if (edited_) {
      ASSERT_EQ(edited_->take(command), "") << script::text(command);
      return;
    }
    ASSERT_EQ(state_.take(command), "") << script::text(command);
    for (std::uint32_t port = 0; port < 5; ++port) follow(before, port);
  }

  // Frees and takes positions as the attachments of a port came and went.
  void follow(const State& before, std::uint32_t port) {
    const auto of = [&](const State& state) {
      const auto found = state.ports.find(port);
      return found == state.ports.end() ? std::vector<Attachment>() : found->second;
    };
    for (const Attachment& attachment : of(before)) {
      if (!state_.isAttached(attachment, port)) leave(port, attachment);
    }
    for (const Attachment& attachment : of(state_)) {
      if (!before.isAttached(attachment, port)) enter(port, attachment);
    }
  }

  void enter(std::uint32_t port, const Attachment& attachment) {
    auto& entries = entries_[port];
    for (std::size_t i = 0; i < state_.l2cpProfiles.at(attachment.profile).size(); ++i) {
      std::size_t position = 0;
      while (entries.contains(position)) ++position;
      entries[position] = attachment;
    }
  }

  void leave(std::uint32_t port, const Attachment& attachment) {
    std::erase_if(entries_[port], [&](const auto& entry) { return entry.second == attachment; });
  }

  void edit(const std::string& profile) {
    ASSERT_FALSE(edited_);
    ASSERT_TRUE(state_.isAttached(profile)) << "there is no need to edit a copy";
    ASSERT_NE(profile, "DEFAULT");
    editedName_ = profile;
    edited_.emplace();
    edited_->protocols = state_.protocols;
    edited_->l2cpProfiles[profile] = state_.l2cpProfiles[profile];
  }

  void commit() {
    Rules& rules = state_.l2cpProfiles[editedName_];
    const Rules after = edited_->l2cpProfiles[editedName_];
    edited_.reset();
    const bool same = std::equal(rules.begin(), rules.end(), after.begin(), after.end(),
                                 [](const auto& a, const auto& b) { return a.first == b.first; });
    EXPECT_FALSE(same) << "the copy counts as unchanged";
    // All that is attached has to be by service profiles, which are applied again.
    std::vector<std::pair<std::uint32_t, Attachment>> places;
    for (const auto& [port, attachments] : state_.ports) {
      for (const Attachment& attachment : attachments) {
        if (attachment.profile != editedName_) continue;
        places.emplace_back(port, attachment);
        EXPECT_TRUE(isByService(port, attachment)) << "it is attached directly";
      }
    }
    for (const auto& [port, attachment] : places) leave(port, attachment);
    rules = after;
    for (const auto& [port, attachment] : places) enter(port, attachment);
  }

  bool isByService(std::uint32_t port, const Attachment& attachment) const {
    const auto interface = static_cast<std::int32_t>(port);
    return std::any_of(state_.services.begin(), state_.services.end(), [&](const auto& each) {
      return each.first != "DEFAULT" && state_.isApplied(each.first, interface) &&
             state_.attachedBy(each.first, interface) == attachment;
    });
  }

  State state_{};
  std::optional<State> edited_;
  std::string editedName_;
  std::map<std::uint32_t, std::map<std::size_t, Attachment>> entries_;
};

std::map<std::uint32_t, std::set<Attachment>> unordered(const State& state) {
  std::map<std::uint32_t, std::set<Attachment>> ports;
  for (const auto& [port, attachments] : state.ports) {
    ports[port] = {attachments.begin(), attachments.end()};
  }
  return ports;
}

void expectSame(const Module& module, const State& wanted) {
  EXPECT_EQ(module.state().protocols, wanted.protocols);
  EXPECT_EQ(module.state().l2cpProfiles, wanted.l2cpProfiles);
  EXPECT_EQ(module.state().vlanProfiles, wanted.vlanProfiles);
  EXPECT_EQ(module.state().services, wanted.services);
  EXPECT_EQ(module.state().applications, wanted.applications);
  EXPECT_EQ(unordered(module.state()), unordered(wanted));
  for (const auto& [port, attachments] : wanted.ports) {
    for (auto one = attachments.begin(); one != attachments.end(); ++one) {
      for (auto other = std::next(one); other != attachments.end(); ++other) {
        if (!canMeet(*one, *other)) continue;
        EXPECT_TRUE(module.isInFront(port, *one, *other))
            << one->profile << " " << one->vid << " is not in front of " << other->profile << " "
            << other->vid << " on port " << port;
      }
    }
  }
}

Lines textOf(const State& state) { return linesBetween({}, state); }

std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

TEST(Plan, LeadsFromAnyStateToAnyOtherWithoutARefusal) {
  const int pairs = pairsToTry(1000);
  RandomStates states(20261122);
  Module module;
  RandomState wanted;
  for (int i = 0; i < pairs && !testing::Test::HasFailure(); ++i) {
    const bool near = states.number(4) != 0;
    wanted = near ? states.variationOf(wanted, builtIn) : states.next(builtIn);
    const State current = module.state();
    const Plan plan = planFor(current, wanted.state, module.portsWithGaps());
    SCOPED_TRACE("pair " + std::to_string(i) + "\nfrom\n" + joined(textOf(current)) + "to\n" +
                 wanted.script() + "by\n" + joined(textOf(plan)));
    module.perform(plan);
    expectSame(module, wanted.state);
    EXPECT_EQ(plan.commands.empty(), linesBetween(current, wanted.state).empty());
    EXPECT_THAT(textOf(planFor(module.state(), wanted.state, module.portsWithGaps())), IsEmpty());
    EXPECT_THAT(linesBetween(module.state(), wanted.state), IsEmpty());
  }
}

}  // namespace
}  // namespace cli
