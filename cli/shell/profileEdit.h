#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/client.h"
#include "cli/daemonRun.h"
#include "cli/shell/dialogue.h"
#include "cli/shell/neighbours.h"
#include "cli/shell/placement.h"
#include "cli/shell/rules.h"
#include "script/script.h"

namespace cli {

/// Editing a profile: its rules are changed in a temporary copy, which takes the profile's place in
/// the end. A profile that does not exist yet is made, and changed itself.
///
/// What the module would get wrong without a word is seen coming and is done differently, once the
/// user has agreed:
///
/// - It discards a copy whose rules alone are different. The rules are set in the profile itself if
///   that is not in force; else they are taken away in one cycle and added in the next.
/// - It takes a profile out of service half-way if that is protected, attached directly or named by
///   the service profile DEFAULT. What is in the way is removed before and put back after.
/// - It takes from other profiles, which have rules for the same protocols on the same VLAN of a
/// port,
///   what these are made of. They are detached before and attached after, too.
/// - It makes a dynamic profile an ordinary one. That is put right afterwards.
/// - It goes on counting what was added to a copy that is deleted as uses of the protocols, and not
///   counting what was taken from it. Changes are undone before a copy is deleted.
class ProfileEdit {
 public:
  ProfileEdit(std::string profile, Client& client, Dialogue& dialogue)
      : profile_(std::move(profile)), client_(client), dialogue_(dialogue) {}

  /// Begins. False if the user does not want to; nothing has changed then. Throws Failure.
  bool open();

  const std::string& profile() const { return profile_; }
  /// Whether there is still a copy to work with: not after a restart of the daemon.
  bool isOpen() const { return open_; }

  /// Carries out an Entry or NoEntry of the profile in its copy. Throws Failure.
  void carry(script::Command command);
  const Rules& rulesBefore() const { return before_; }
  Rules rules() const;

  /// Ends the edit: the copy takes the profile's place. False if it goes on, since the user did not
  /// agree to how. Throws Failure, with the edit going on if isOpen.
  bool commit();

  /// Ends the edit without a change. Throws Failure if something is left behind, and says what.
  void discard();

 private:
  struct Target {
    bool protect = false;
    bool dynamic = false;
    bool inForce = false;
    Rules rules;
    Placement placement;
    Seats seats;  ///< its own and those of profiles beside it
  };

  Target look() const;
  Target lookAround(const Rules& after) const;
  bool isServed(const Target& target) const;
  bool exists(std::string name) const;
  void makeCopy();
  DaemonRun askDaemon();
  void checkDaemon();
  void deleteCopy();
  std::vector<std::string> inTheWay(const Target& target) const;
  bool agreeToRemove(const Target& target);
  bool agreeToTwoCycles(const Rules& before, const Rules& after);
  void replace(const Target& target, const Rules& after);
  void takeAway(const Target& target);
  void takeNeighbours(const Target& target);
  std::vector<script::Command> inOrder(std::vector<script::Command> commands,
                                       const Target& target) const;
  void putBack(const Target& target);
  void setFlags(const Target& target);
  void setInPlace(const Rules& before, const Rules& after);
  void inTwoCycles(const Rules& before, const Rules& after);
  void carryAll(const std::vector<script::Command>& commands);
  void exitCycle();

  std::string profile_;
  Client& client_;
  Dialogue& dialogue_;
  std::string copy_;  ///< empty for a new profile
  Rules before_;
  std::vector<script::Command> neighbours_;  ///< what puts those back that were taken away
  std::vector<std::string> agreed_;          ///< what is in the way, as the user knows
  bool open_ = false;
  std::optional<DaemonRun> daemon_;  ///< that the copy is in
};

}  // namespace cli
