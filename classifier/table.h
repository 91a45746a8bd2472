#pragma once

/// A classifier table: the objects that requests make, and the software data plane that decides
/// with them. Another data plane can decide about the frames that arrive on some of the ports; it
/// is given the rules of those. All operations may be called from any thread.

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "classifier/briefLock.h"
#include "classifier/dataPlane.h"
#include "classifier/matcher.h"
#include "classifier/registry.h"
#include "classifier/rule.h"
#include "platform/acl_ioctl.h"

namespace classifier {

/// What happened to a frame.
struct Verdict {
  Fate fate = Fate::untouched;
  /// The entry that the frame met, with the counters it changed; null when it met none.
  std::shared_ptr<const Rule> entry;
};

class Table {
 public:
  /// Where ENOSPC begins.
  static constexpr std::size_t maxObjects = std::size_t{1} << 20;  ///< of each class
  static constexpr std::size_t maxConditions = 16;                 ///< of a selector
  static constexpr std::size_t maxActions = 16;                    ///< of an action list
  static constexpr std::size_t maxEntries = 100;                   ///< of one port and kind
  static constexpr std::size_t maxPortEntries = 1600;              ///< of one port

  /// The selector that every frame satisfies. It is always there and cannot be changed. An entry
  /// with it is a catch-all: hiding the frames that nothing else claimed leaves them untouched.
  static constexpr std::string_view everyFrame = "true";

  Table();
  ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  /// Carries out one request of acl_ioctl.h. `record` is the record that belongs to `code`.
  ///
  /// Deleting an object takes its name away at once. Whatever uses the object keeps it, and a new
  /// object of the same name is another one. A change to an object shows in the entries using it.
  ///
  /// Returns 0 or, with nothing changed, a negative error number:
  ///   EEXIST  creating an object that exists, an action at an index that its list has already, an
  ///           entry at a position that is taken
  ///   ENOENT  using or deleting an object or entry that does not exist
  ///   EINVAL  a name without end in its field, an empty name for a new object, an unknown type of
  ///           condition or action, a VLAN range that is not ascending within 0..4095, a payload
  ///           length other than 1, deleting or narrowing the selector "true", a port that is not
  ///           a decimal number in -2^31..2^32-1 (negative ones are what "%d" makes of the upper
  ///           half of the 32-bit numbers, and stand for those)
  ///   ENOSPC  a limit above is reached
  ///   EFAULT  no record, or no payload mask or value (addresses other than null are trusted)
  ///   ENOTTY  no such request
  ///   ENOMEM  no memory
  /// When several apply, EINVAL and EFAULT come before ENOENT, then EEXIST, then ENOSPC. Last comes
  /// what the data plane of a port says of its rules (dataPlane.h): EINVAL or ENOSPC.
  int request(std::uint32_t code, void* record) noexcept;

  /// Decides about a frame as if it arrived on the port, and changes the counters accordingly. That
  /// is done in software, whatever other data plane the port has.
  Verdict classify(std::uint32_t port, std::span<const std::uint8_t> frame);

  /// The rules of a port as they are now: by ascending index, equal ones by ascending kind. This is
  /// all that a data plane needs to know of the table.
  Rules rules(std::uint32_t port) const;

  /// From now on the plane gets the rules of the ports that it has, whenever they change. Null for
  /// none. It has to live until another one is set.
  void setDataPlane(DataPlane* plane);

  /// Gives the plane the rules of a port that it has now and did not have before. 0 or what the
  /// plane answers.
  int refresh(std::uint32_t port);

 private:
  struct Selector;
  struct NamedCounter;
  struct Action;
  struct ActionList;
  struct Entry;
  struct Port;

  /// Carries out one kind of request on the record that belongs to it.
  using Handler = int (*)(Table&, void* record);
  /// Null when there is no such request.
  static Handler handlerOf(std::uint32_t code);
  template <auto handler>
  static int call(Table& table, void* record);

  int addSelector(const acl_ioctl_selector& record);
  int deleteSelector(const acl_ioctl_selector& record);
  int addCondition(const acl_ioctl_selector& record);
  int addActionList(const acl_ioctl_action& record);
  int deleteActionList(const acl_ioctl_action& record);
  int addAction(const acl_ioctl_action& record);
  int addPortEntry(const acl_ioctl_port_entry& record);
  int deletePortEntry(const acl_ioctl_port_entry& record);
  int getPortEntry(acl_ioctl_port_entry& record);
  int addCounter(const acl_ioctl_counter& record);
  int deleteCounter(const acl_ioctl_counter& record);
  int getCounter(acl_ioctl_counter& record);

  using Ports = std::unordered_map<std::uint32_t, Port>;
  /// Finds the port that a request means. 0, -EINVAL, or -ENOENT for a port without entries.
  int findPort(const char (&field)[ACL_PORT_SIZE], Ports::value_type*& port);

  /// Ends a port whose last entry has gone.
  void forget(std::uint32_t port);

  /// What becomes of the rules of a port in its data plane: 0 or a negative error number.
  int follow(std::uint32_t number, const Port& port);
  /// Changes an object that entries use, and has all their ports follow. When one fails, `undo`
  /// takes the change back, and the ports get the rules that they had.
  template <class Object, class Change, class Undo>
  int changeUsed(boost::intrusive_ptr<Object> Entry::*part, const Object& object, Change change,
                 Undo undo);

  static std::shared_ptr<const Rule> ruleOf(const Entry& entry);
  Rules rulesOf(const Port& port) const;

  mutable BriefLock lock_;
  Registry<Selector> selectors_;
  Registry<ActionList> actionLists_;
  Registry<NamedCounter> counters_;
  Ports ports_;
  /// The field and the port of the last request that found one; null if that port is gone. A search
  /// for a free position asks for the same port again and again.
  char lastPortField_[ACL_PORT_SIZE];
  Ports::value_type* lastPort_ = nullptr;
  std::size_t entries_ = 0;
  /// Grows whenever an object changes that entries use already.
  std::uint64_t objectsRevision_ = 0;
  DataPlane* plane_ = nullptr;
};

/// The table "acl" of a bridge, made when it is first asked for and there for the rest of the
/// process. `bridge` is not empty.
Table& tableOf(std::string_view bridge);

}  // namespace classifier
