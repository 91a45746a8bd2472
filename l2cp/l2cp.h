#pragma once

#include <pthread.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "l2cp/nameHash.h"
#include "l2cp/node.h"
#include "l2cp/shortName.h"
#include "platform/BLEntity.h"
#include "platform/singleton.h"
#include "rpc/l2cp.h"
#include "rpc/rte/BLL/core/rpcProxy.h"

struct acl_ioctl_action;
struct acl_ioctl_port_entry;
struct acl_ioctl_selector;

/// The entity for Layer 2 control protocols: which frames they are, what profiles say about them,
/// and the ports and VLANs where a profile is in force.
///
/// Operations that return an int return 0, or a negative error number:
///
///     -1  the profile is protected          -20  the VLAN has no attachment
///     -2  no such object                    -22  invalid, not in the profile, past the end
///     -9  not attached                      -28  the new name is taken
///    -11  a counter could not be read       -64  no S-VID to detach from
///    -16  in use, or no lock to be had      -99  no S-VID to attach to
///    -17  exists already                   -100  renamed part-way
///    -19  no such protocol or VLAN profile; the port has no attachment
///
/// The checks run in the order in which an operation lists its errors, and a refusal changes
/// nothing unless the operation says otherwise. Operations that look a protocol or profile up throw
/// std::logic_error when they come to a null name.
///
/// Registry operations take no lock: the daemon's RPC loop runs them one at a time. Only the table
/// of names is guarded. VLAN id 4095 stands for the whole port wherever a VLAN id is passed. Port
/// numbers are any 32-bit number; traces and kernel names print them with "%d".
class L2CP : public BLEntity, public singleton<L2CP> {
 public:
  // ---- Value types (types.cpp) ------------------------------------------------------------------

  /// What happens to a protocol's frames. The numbers travel over RPC; any other 32-bit number may
  /// stand where a rule does, and prints as "unknown".
  enum class Rule : std::uint32_t { discard = 0, peer = 1, tunnel = 2 };

  /// A class of frames: destination MAC under a mask, EtherType, first payload byte.
  struct Protocol {
    /// All zeros, not the markers for an absent value; only the mask is full.
    Protocol() = default;
    /// Address and mask are six bytes each. A null name is the empty one.
    Protocol(const char* protoName, bool isProtected, const unsigned char* address,
             const unsigned char* addressMask, unsigned short type, unsigned char firstByte);

    std::string name;
    bool protect = false;
    unsigned char mac[6] = {};
    unsigned char macMask[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    unsigned short etherType = 0;  ///< host order; `m_noEtherType`: not matched
    unsigned char subType = 0;     ///< `m_noSubType`: not matched
    unsigned int useCount = 0;     ///< entries of profiles that refer to the protocol
  };

  /// A named set of entries: protocol to rule. Equal to every profile of the same name.
  struct Profile {
    Profile() : Profile(nullptr, false, false) {}
    /// A null name is the empty one. The flags are stored as given.
    Profile(const char* profileName, bool isProtected, bool isDynamic);
    /// Copies everything but `interfaces`, which starts empty: a copy is applied nowhere.
    Profile(const Profile& other);
    /// Assigns everything but `interfaces`, which keeps its value.
    Profile& operator=(const Profile& other);
    ~Profile() = default;

    bool operator==(const Profile& other) const { return name == other.name; }

    /// Switching protection off a protected profile makes it non-dynamic as well.
    void setProtect(bool on);
    /// Making a profile dynamic protects it as well.
    void setDynamic(bool on);

    std::string name;
    unsigned int useCount = 0;  ///< attachments to ports and VLANs
    /// In the order of the protocols' addresses.
    std::map<std::shared_ptr<Protocol>, Rule> protocols;
    /// Ports on which the profile is attached.
    std::set<unsigned int> interfaces;
    bool protect;
    bool dynamic;
  };

  /// Frames counted by what happened to them, modulo 2^32.
  struct Statistics {
    unsigned int peer = 0;
    unsigned int tunnel = 0;
    unsigned int discard = 0;
  };

  // ---- Settings (settings.cpp) ------------------------------------------------------------------

  /// Port to VLAN id to attached profile to positions of its port entries. An attachment has one
  /// position on its list: that of the last entry made for it.
  using ProfileMap = std::map<std::shared_ptr<Profile>, std::list<unsigned int>>;
  using VlanMap = std::map<unsigned short, ProfileMap>;
  using PortMap = std::map<unsigned int, VlanMap>;

  /// Everything about the entity that can be configured. The default value is the factory
  /// configuration: the built-in protocols, no profiles, no attachments. Copies share the profiles
  /// and protocols that attachments and entries point at.
  struct Settings {
    Settings();

    std::map<std::string, Node<Protocol>> protocols;
    std::map<std::string, Node<Profile>> profiles;
    PortMap ports;
  };

  // ---- Constants (types.cpp) --------------------------------------------------------------------

  /// Published marker for "no free position". `findFreeIndex` itself reports 299.
  static const unsigned int m_noIndexAvailable;
  static const unsigned long m_max_proto_len;  ///< longest name that `protoAdd` accepts
  static const char m_selector_true[5];        ///< the classifier's own selector for every frame
  static const char m_action_list_drop[5];     ///< action list of `kernelProtoAdd` for discard
  static const char m_action_list_hide[10];    ///< shared list with one hide action
  static const char m_action_list_tunnel[12];  ///< shared list with two no-L2CP actions
  static const char m_rule_discard[8];         ///< text of a rule, and suffix of counter names
  static const char m_rule_tunnel[7];
  static const char m_rule_peer[5];
  static const char m_counter_profile_mask[14];  ///< profile name, rule
  static const char m_counter_proto_mask[14];    ///< protocol name, rule
  static const char m_counter_port_mask[13];     ///< port number, rule
  static const char m_counter_vlan_mask[13];     ///< VLAN id, rule
  static const char m_acl_mask[16];              ///< protocol name, port number, VLAN id
  static const unsigned char m_subTypeMask;      ///< mask under which the subtype is matched
  static const unsigned char m_noSubType;
  static const unsigned short m_noEtherType;
  static const unsigned char m_allMac[6];  ///< full mask
  static const unsigned char m_anyMac[6];  ///< no address; as a mask it holds for any

  // ---- Entity (l2cp.cpp) ------------------------------------------------------------------------

  L2CP();
  /// Frees the table of names. The kernel and the daemon's event are left as they are: an entity
  /// that was started has to be stopped first.
  ~L2CP() noexcept override;

  /// Writes to the system log at LOG_DEBUG while the debug switch is on.
  [[gnu::format(printf, 2, 3)]] void Debug(const char* format, ...) const;

  /// The operator's commands: "l2cp_debug" switches the trace on for a non-zero number, else off;
  /// "l2cp_dump" writes the table of names to the system log at LOG_INFO. Others are ignored.
  /// `output` is never written.
  void externalMessage(const std::string& command, const std::string& argument,
                       std::ostringstream* output);

  // ---- Lifecycle (lifecycle.cpp) ----------------------------------------------------------------

  /// Nothing: the configuration arrives through `applySettings`.
  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override;
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override;

  /// Opens the classifier, makes the shared action lists, listens to operator commands and starts
  /// the RPC service. False if a step fails; what was done before it is left to `stop`.
  bool start() override;
  /// Undoes `start`. Attachments and counters stay in the kernel. Always true.
  bool stop() override;
  /// Applies a default `Settings`. True unless the lock was not to be had.
  bool applyDefaultSettings() override;
  int getDependencies(std::list<std::string>& entities) override;

  /// Removes the attachments, profiles and protocols that `wanted` lacks and adds the protocols
  /// and profiles that it has more. Goes by name (attachments: by profile object) and updates
  /// nothing that exists on both sides; makes no attachments. Refusals on the way are passed over.
  /// Takes the daemon's exclusive lock: -16 if it is not to be had. `bridgeName` is not used.
  int applySettings(const char* bridgeName, const Settings& wanted);

  // ---- Names (names.cpp) ------------------------------------------------------------------------

  /// Counts a use of `name`, entering it into the table if need be, and writes its short name, the
  /// one that the kernel is given: "l2cp:" and the entry's address. Every call is a use, also one
  /// that reads or deletes. `shortName` (40 bytes suffice; may be `name` itself) and `useCount` may
  /// be null. Returns `shortName`, or null with nothing written if memory is out.
  char* GetName(const char* name, char* shortName, int* useCount);

  /// Takes `count` uses off `name`, and the name off the table when none is left. Returns the uses
  /// left (0 or less: removed), or -1 for an unknown name. Not called in operation: a short name
  /// stays good for the life of the process.
  int PutName(const char* name, int count);

  /// Short names of kernel objects, through `GetName`. Full names are cut at 199 characters.
  char* aclName(char* shortName, const std::string& protoName, unsigned int port,
                unsigned short vid);
  char* nameSelector(char* shortName, unsigned short vid, const Protocol& proto);
  char* nameActionList(char* shortName, unsigned int port, unsigned short vid,
                       const Protocol& proto);

  /// Six bytes as "01:80:c2:00:00:02", into `buffer` (18 bytes) or, if that is null, into a buffer
  /// that the next such call overwrites.
  static const char* mac2str(const unsigned char* mac, char* buffer = nullptr);
  static const char* rule2str(Rule rule);
  static const char* bool2yesno(bool value);

  // ---- Kernel counters, hide entry, positions, statistics (kernel.cpp) --------------------------

  /// Creates, deletes or reads the counter whose full name is `mask` with a name or a number and
  /// `suffix`, cut at 99 characters. True if the kernel did it. `value` is 0 after a failed read.
  bool kernelCounterAdd(const char* mask, const std::string& name, const char* suffix);
  bool kernelCounterAdd(const char* mask, int number, const char* suffix);
  bool kernelCounterDel(const char* mask, const std::string& name, const char* suffix);
  bool kernelCounterDel(const char* mask, int number, const char* suffix);
  bool kernelCounterGet(const char* mask, const std::string& name, const char* suffix,
                        unsigned int& value);
  bool kernelCounterGet(const char* mask, int number, const char* suffix, unsigned int& value);

  /// The port's catch-all at position 299, behind all protocols.
  bool kernelHideRuleAdd(unsigned int port, int kind);
  bool kernelHideRuleDel(unsigned int port, int kind);

  /// The lowest free position of the port from 200 to 298, or 299 if there is none.
  unsigned int findFreeIndex(unsigned int port) const;

  /// Counters of a port or VLAN: 0, or -11 at the first that cannot be read.
  int portStat(unsigned int port, Statistics& stats);
  int vlanStat(unsigned short vid, Statistics& stats);

  // ---- Kernel protocol entries (kernelProto.cpp) ------------------------------------------------

  /// Installs one protocol alone, without counters: a selector and a port entry at `index`, dropped
  /// (discard) or hidden (tunnel). Non-zero if it is installed or, for peer, needs nothing.
  unsigned int kernelProtoAdd(unsigned int port, unsigned short vid, const char* protoName,
                              Rule rule, unsigned int index);
  /// Deletes the protocol's selector, and the port's first entry that the kernel reports without
  /// names. Always 1.
  unsigned int kernelProtoDel(unsigned int port, unsigned short vid, const char* protoName,
                              Rule rule, unsigned int index);

  /// Adds a port entry, and before a port's first one is added, its catch-all. Returns the
  /// request's result: 0, or non-zero with `errno` set.
  int portEntryAdd(int port, const acl_ioctl_port_entry& entry);
  /// Deletes the port entry from 200 to 298 that has the selector and action list of `entry`, and
  /// after a port's last one its catch-all. Nothing happens if the kernel knows no such entry.
  void portEntryDel(int port, const acl_ioctl_port_entry& entry);

  // ---- Protocols (proto.cpp) --------------------------------------------------------------------
  // Changing a protocol does not touch what is installed in the kernel for profiles that use it.

  /// -17, -22 (name longer than `m_max_proto_len`).
  int protoAdd(const char* protoName, bool protect, const unsigned char* mac,
               const unsigned char* macMask, unsigned short etherType, unsigned char subType);
  /// -2, -16 (an entry of a profile refers to it). Protected protocols can be deleted.
  int protoDel(const char* protoName);
  /// Replaces the definition of the existing protocol `newProtoName` by that of `oldProtoName`,
  /// which goes. -16 (no `newProtoName`), -2 (no `oldProtoName`); 0 for twice the same name.
  int protoRen(const char* oldProtoName, const char* newProtoName);
  /// -2.
  int protoSetProtect(const char* protoName, bool protect);
  /// -2. The mask stays.
  int protoSetMac(const char* protoName, unsigned char* mac);
  /// -2.
  int protoSetEtherType(const char* protoName, unsigned short etherType);
  /// -2.
  int protoSetSubType(const char* protoName, unsigned char subType);
  /// The protocol at position `idx` in name order, from 0. -22.
  int protoGet(unsigned int idx, Protocol& proto);
  /// Appends all protocols in name order. 0.
  int protoGetAll(std::list<Protocol>& protocols);
  int protoGetAll(std::vector<Protocol>& protocols);
  /// -2, -11.
  int protoStat(const char* protoName, Statistics& stats);

  // ---- Profiles (profile.cpp) -------------------------------------------------------------------

  /// -17. The flags are stored as given.
  int profileAdd(const char* profileName, bool protect, bool dynamic);
  /// -2, -1, -16 (attached, or named by a service profile). Its protocols keep their use counts.
  int profileDel(const char* profileName);
  /// -2.
  int profileSetProtect(const char* profileName, bool protect);
  int profileSetDynamic(const char* profileName, bool dynamic);
  /// Assigns the profile to `profile`, which keeps its `interfaces`. -2.
  int profileGet(const char* profileName, Profile& profile);
  /// The same by position in name order, from 0. -2 past the end.
  int profileGet(unsigned int idx, Profile& profile);
  /// Appends all profiles in name order. 0.
  int profileGetAll(std::list<Profile>& profiles);
  /// -2, -11.
  int profileStat(const char* profileName, Statistics& stats);
  /// Whether the profile may be changed: 0, -2, -1, -16.
  int l2cpProfileStatus(const char* profileName);
  /// Renames by copying: the new profile is unprotected, not dynamic and attached where service
  /// profiles name it; direct attachments stay with the old one. -2, -28, -100 (part-way:
  /// both profiles or the new one are there, and service profiles may be detached or point
  /// nowhere).
  int profileRen(const char* oldName, const char* newName);

  // ---- Entries of profiles (profileProto.cpp) ---------------------------------------------------
  // Nothing here reaches the kernel, which is why a profile in use is refused.

  /// -2, -1 (unless dynamic profiles are being scripted), -16, -19, -17.
  int profileProtoAdd(const char* profileName, const char* protoName, Rule rule);
  /// -2, -1, -16, -19, -22.
  int profileProtoSet(const char* profileName, const char* protoName, Rule newRule);
  /// -2, -1, -16, -19, -22.
  int profileProtoDel(const char* profileName, const char* protoName);
  /// -2, -1, -16.
  int profileProtoDelAll(const char* profileName);
  /// The entry at position `idx` in the order of the protocols' addresses, from 0. -2, -22.
  int profileProtoGet(const char* profileName, unsigned int idx, std::string& protoName,
                      Rule& rule);
  /// Sets the element of every entry in `protocols`. -2.
  int profileGetProtocols(const char* profileName, std::map<std::string, Rule>& protocols);

  // ---- Editing (l2cpProfile.cpp) ----------------------------------------------------------------
  // A profile in use is edited as a temporary copy that takes its place in the end. Only what
  // these operations call is traced.

  /// Copies a profile: unprotected, not dynamic, attached nowhere. The use counts of its protocols
  /// stay as they are. -1 for a missing source, and for an existing destination.
  int l2cpProfileCopy(const char* source, const char* destination);
  /// Makes a temporary copy "temp_l2cp_prof_" and the first free number. The result's error is 0,
  /// -1 (no name of at most 32 characters is free) or 1 (there is no such profile); beside an error
  /// stands the name of the last success.
  rpcl2cpProfEditResult l2cpProfileEdit(const char* profileName);
  /// Whether two profiles cover the same protocols, rules aside: 0, or -2. A profile that does not
  /// exist is made.
  int l2cpProfileCompareContent(const std::string& first, const std::string& second);
  /// Puts `temporary` in the place of `target`, taking the service profiles that use it off their
  /// interfaces meanwhile. -1 at the first step that fails; what was done before it stays.
  int l2cpProfileReplace(const char* target, const char* temporary);
  /// Ends editing: 0 (replaced), -2 (same content; the copy is discarded if it can be), -1
  /// (replacing failed).
  int l2cpProfileOnExit(const char* target, const char* temporary);
  /// Takes the protection off all dynamic profiles and deletes them. One that is in use stays, and
  /// is named in the daemon's log. 0.
  int l2cpDynamicProfilesDeleteAll();

  // ---- Where profiles are used (relations.cpp) --------------------------------------------------

  /// Appends the ports and VLANs under which a profile of that name is attached. -2.
  int profileGetPorts(const char* profileName,
                      std::list<std::pair<unsigned int, unsigned short>>& ports);
  /// Appends the profiles attached to the port whose names `profiles` lacks. -2 (none at all).
  int profileGetAllForPort(unsigned int port, std::list<Profile>& profiles);
  /// Appends the names of the service profiles that name the profile. -2.
  int profileGetServiceProfiles(const char* profileName, std::list<std::string>& serviceProfiles);
  /// Replaces `profiles` by the service profiles that name the L2CP profile, each with that name.
  /// Service and L2CP profiles called "DEFAULT" are left out. 0.
  int getL2cpProfilesPerServiceProfile(const std::string& profileName,
                                       std::map<std::string, std::string>& profiles);

  // ---- Attachments (port.cpp) -------------------------------------------------------------------

  /// Puts a profile in force for frames that arrive on a port with an outer VLAN id. -2, -16 (it is
  /// attached there already). What the kernel refuses is traced and does not fail the attachment.
  int portAttach(const std::string& profileName, unsigned int port, unsigned short vid);
  /// -2, -19, -20, -9. Counters stay.
  int portDetach(const std::string& profileName, unsigned int port, unsigned short vid);
  /// The attachment at position `idx` of the port, VLANs ascending. -2 (none at all), -22.
  int portGet(unsigned int port, unsigned int idx, unsigned short& vid, std::string& profileName);

  // ---- Service profiles (service.cpp) -----------------------------------------------------------

  // Called by the daemon's service profiles. An interface is the port of the same number, and the
  // VLAN is the S-VID that the service profile's VLAN profile has there. A service profile that the
  // daemon does not know comes into being, empty.

  /// Whether a service profile may be applied on an interface: 0, always.
  int profileApplyCheck(int intf, const std::string& serviceProfile);
  /// Attaches the service profile's L2CP profile: -2 (it has none), -19 (no such VLAN profile), -99
  /// (no S-VID in 1..4094), or what `portAttach` returns.
  int profileApply(int intf, const std::string& serviceProfile);
  /// Detaches it again: 0 (it has none), -19, -64 (no S-VID), or what `portDetach` returns.
  int profileUnApply(int intf, const std::string& serviceProfile);
  /// Whether the profile is attached to any port. Takes the daemon's shared lock; false without it.
  bool profileIsApplied(const std::string& profileName) const;
  /// Replaces `interfaces` by the ports on which the profile is attached. False, with nothing
  /// changed, for an unknown profile or without the daemon's shared lock.
  bool profileAppliedIntfGet(const std::string& profileName,
                             std::set<unsigned int>& interfaces) const;

 private:
  /// The head of a heap block that goes on with the full name and its NUL.
  struct NameEntry {
    std::int32_t useCount;

    char* name() { return reinterpret_cast<char*>(this + 1); }  // NOLINT: see above
  };

  RPCProxy rpcProxy;

 public:
  Settings settings;

 private:
  using NameList = std::list<NameEntry*>;

  /// Where a name stands in the table, and the short name that it has for as long as it does.
  struct TableName {
    NameList::iterator place;
    ShortName shortName;
  };

  /// A full name that is used again and again: it is looked up once, unless names are removed.
  struct RepeatedName {
    std::string_view text;
    const TableName* known = nullptr;
    std::uint64_t removals = 0;  ///< `nameRemovals` when it was looked up
  };

  struct Attachment;

  bool debug = false;
  int aclFd = -1;
  pthread_mutex_t nameMutex{};
  NameList nameTable;
  /// How often a name was removed from the table.
  std::uint64_t nameRemovals = 0;
  /// Entries that the module has added, by twice the port number plus 1 for kinds other than 0.
  std::map<int, unsigned int> portEntryCount;
  /// Finds an entry of the name table without walking it.
  std::unordered_map<std::string_view, TableName, NameHash> nameIndex;

  void dumpNames();
  bool kernelCounterAdd(RepeatedName& name);
  /// `GetName` without a count.
  char* getName(std::string_view name, char* shortName);
  char* getName(RepeatedName& name, char* shortName);
  static char* writeShortName(const TableName* used, char* shortName);
  /// Counts a use of the name. Null if memory is out. For who holds `nameMutex`.
  const TableName* useName(std::string_view name);
  const TableName* useName(RepeatedName& name);
  template <class NameOrNumber>
  int readStatistics(const char* mask, const NameOrNumber& of, Statistics& stats);
  bool addKernelProtoConditions(acl_ioctl_selector& selector, unsigned short vid,
                                const Protocol& proto);
  bool addSharedActionList(const char* name, acl_ioctl_action& action);
  unsigned int attachProtocol(Attachment& attachment, const Protocol& proto, Rule rule);
  void attachConditions(acl_ioctl_selector& selector, unsigned short vid,
                        const Protocol& proto) const;
  void attachActions(acl_ioctl_action& action, Attachment& attachment, Rule rule);
  void attachCounterChanges(acl_ioctl_action& action, Attachment& attachment);
  void detach(PortMap::iterator portIt, VlanMap::iterator vlanIt, ProfileMap::iterator profileIt);
  void detachAll(unsigned int port);
  void detachMissing(unsigned int port, const VlanMap& kept);
};

extern template class singleton<L2CP>;
