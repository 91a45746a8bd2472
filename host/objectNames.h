#pragma once

/// What the module's names of objects in the classifier tell of them.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "classifier/rule.h"

/// The names that the module gives to the objects of one port's attachments, as they are now. The
/// classifier knows short names, from which nobody sees what they stand for; so the full names are
/// made as the module makes them, and asked of it for their short ones. To be used on the thread
/// that serves requests.
class ObjectNames {
 public:
  explicit ObjectNames(std::uint32_t port);

  /// What an entry was made for. Empty names: it is not known.
  struct Origin {
    std::string profile;
    std::string protocol;
    std::uint16_t vid = 0;
  };
  /// The entries of a port are asked for once each, in their order: when several are alike, the
  /// first belongs to the profile that it counts for, and the next to another one.
  Origin originOf(const classifier::Rule& entry);

  /// What no entry was asked for that was made for it.
  std::vector<Origin> rest() const;

  /// The full name of a counter, empty if it is not known.
  std::string titleOf(std::string_view counter) const;

 private:
  /// A rule of an attached profile, and the short names of what it uses: empty where there is none.
  struct Candidate {
    Origin origin;
    std::string actionList;
    std::string vlanCounter;
    std::string profileCounter;
    std::string protocolCounter;
    bool taken = false;
  };

  /// The short name of a counter, whose title is kept.
  std::string counter(const std::string& title);

  std::vector<Candidate> candidates_;
  std::map<std::string, std::string, std::less<>> titles_;
};
