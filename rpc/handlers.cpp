// The procedures of the service. Each releases what its last result holds, if it holds memory,
// calls an operation of the entity, fills the result and maps the operation's error. The result
// stays valid until the same procedure runs again; procedures run one at a time, on the thread of
// the RPC loop.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "l2cp/key.h"
#include "l2cp/l2cp.h"
#include "rpc/error_map.h"
#include "rpc/l2cp.h"

namespace {

L2CP& entity() { return singleton<L2CP>::instance(); }

// ---- Arguments ----

using MacBytes = std::array<unsigned char, 6>;

// The wire lets a MAC be shorter than its six bytes.
MacBytes macBytes(const rpc_l2cp_mac_t& mac) {
  MacBytes bytes{};
  std::copy_n(mac.rpc_l2cp_mac_t_val, std::min<std::size_t>(mac.rpc_l2cp_mac_t_len, bytes.size()),
              bytes.begin());
  return bytes;
}

L2CP::Rule ruleOf(rpc_l2cp_rule rule) {
  switch (rule) {
    case RPC_L2CP_RULE_PEER:
      return L2CP::Rule::peer;
    case RPC_L2CP_RULE_TUNNEL:
      return L2CP::Rule::tunnel;
    default:
      return L2CP::Rule::discard;
  }
}

// ---- Results: release ----

// NOLINTBEGIN(cppcoreguidelines-no-malloc): strdup's and malloc's memory
void release(rpc_l2cp_proto& proto) {
  std::free(proto.name);
  std::free(proto.mac.rpc_l2cp_mac_t_val);
}

void release(rpc_l2cp_profile& profile) { std::free(profile.name); }

void release(rpc_l2cp_profile_proto& entry) { std::free(entry.proto_name); }

void release(rpc_l2cp_profile_link& link) { std::free(link.profile_name); }

void release(rpc_service_profile_name_t& name) { std::free(name); }

void release(rpc_l2cp_port_vlan_t& /*holdsNothing*/) {}
// NOLINTEND(cppcoreguidelines-no-malloc)

template <class ListResult>
requires requires(ListResult result) { result.list.list_val; }
void release(ListResult& result) {
  for (u_int i = 0; i < result.list.list_len; ++i) release(result.list.list_val[i]);
  delete[] result.list.list_val;
}

template <class Result>
void clear(Result& result) {
  release(result);
  result = {};
}

// ---- Results: fill ----

void fill(rpc_l2cp_proto& result, const L2CP::Protocol& proto) {
  result.protect = proto.protect;
  result.name = strdup(proto.name.c_str());
  // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): released with free, as all of a result's parts
  auto* mac = static_cast<unsigned char*>(std::malloc(sizeof(proto.mac)));
  if (mac != nullptr) {
    std::copy_n(proto.mac, sizeof(proto.mac), mac);
    result.mac = {.rpc_l2cp_mac_t_len = sizeof(proto.mac), .rpc_l2cp_mac_t_val = mac};
  }
  result.ether_type = proto.etherType;
  result.sub_type = proto.subType;
  result.use_count = proto.useCount;
}

void fill(rpc_l2cp_profile& result, const L2CP::Profile& profile) {
  result.dynamic = profile.dynamic;
  result.protect = profile.protect;
  result.name = strdup(profile.name.c_str());
  result.use_count = profile.useCount;
}

void fill(rpc_l2cp_profile_proto& result, const std::pair<const std::string, L2CP::Rule>& entry) {
  result.proto_name = strdup(entry.first.c_str());
  result.rule = static_cast<rpc_l2cp_rule>(entry.second);
}

void fill(rpc_l2cp_port_vlan_t& result, const std::pair<unsigned int, unsigned short>& place) {
  result.port = place.first;
  result.vid = place.second;
}

void fill(rpc_service_profile_name_t& result, const std::string& name) {
  result = strdup(name.c_str());
}

void fill(rpc_l2cp_counters& result, const L2CP::Statistics& stats) {
  result.total = stats.peer + stats.tunnel + stats.discard;
  result.discard = stats.discard;
  result.peer = stats.peer;
  result.tunnel = stats.tunnel;
}

// Fills a list record of zeroed elements; an empty one has no array.
template <class ListResult, class Elements>
void fillList(ListResult& result, const Elements& elements) {
  if (elements.empty()) return;
  using Element = std::remove_reference_t<decltype(*result.list.list_val)>;
  result.list.list_val = new Element[elements.size()]();
  result.list.list_len = static_cast<u_int>(elements.size());
  Element* next = result.list.list_val;
  for (const auto& element : elements) fill(*next++, element);
}

}  // namespace

// ---- Protocols ----

rpc_l2cp_error* rpc_l2cp_proto_add_1_svc(rpc_l2cp_proto proto, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  // Deliberate: a protocol made over RPC always has the mask that holds for any address.
  result =
      wireError(entity().protoAdd(proto.name, proto.protect != FALSE, macBytes(proto.mac).data(),
                                  L2CP::m_anyMac, proto.ether_type, proto.sub_type),
                errors::protoAdd);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_proto_del_1_svc(rpc_l2cp_proto_name_t name, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().protoDel(name), errors::protoDel);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_proto_ren_1_svc(rpc_l2cp_proto_name_t oldName,
                                         rpc_l2cp_proto_name_t newName, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().protoRen(oldName, newName), errors::protoRen);
  return &result;
}

rpc_l2cp_proto* rpc_l2cp_proto_get_1_svc(u_int index, svc_req* /*request*/) {
  static rpc_l2cp_proto result;
  clear(result);
  L2CP::Protocol proto;
  const int got = entity().protoGet(index, proto);
  if (got == 0) fill(result, proto);
  result.error = wireError(got, errors::protoGet);
  return &result;
}

rpc_l2cp_proto_all* rpc_l2cp_proto_get_all_1_svc(svc_req* /*request*/) {
  static rpc_l2cp_proto_all result;
  clear(result);
  std::vector<L2CP::Protocol> protocols;
  entity().protoGetAll(protocols);
  fillList(result, protocols);
  result.error = RPC_L2CP_OK;
  return &result;
}

rpc_l2cp_error* rpc_l2cp_proto_set_protect_1_svc(rpc_l2cp_proto_name_t name, bool_t protect,
                                                 svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().protoSetProtect(name, protect != FALSE), errors::protoSet);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_proto_set_mac_1_svc(rpc_l2cp_proto_name_t name, rpc_l2cp_mac_t mac,
                                             svc_req* /*request*/) {
  static rpc_l2cp_error result;
  MacBytes bytes = macBytes(mac);
  result = wireError(entity().protoSetMac(name, bytes.data()), errors::protoSet);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_proto_set_ether_type_1_svc(rpc_l2cp_proto_name_t name,
                                                    rpc_l2cp_ethertype_hf_t etherType,
                                                    svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().protoSetEtherType(name, etherType), errors::protoSet);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_proto_set_sub_type_1_svc(rpc_l2cp_proto_name_t name,
                                                  rpc_l2cp_subtype_t subType,
                                                  svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().protoSetSubType(name, subType), errors::protoSet);
  return &result;
}

// Deliberate, here and in the other statistics: nothing is cleared, so beside an error stand the
// counters of the last success.
rpc_l2cp_counters* rpc_l2cp_proto_stat_1_svc(rpc_l2cp_proto_name_t name, svc_req* /*request*/) {
  static rpc_l2cp_counters result;
  L2CP::Statistics stats;
  const int read = entity().protoStat(name, stats);
  if (read == 0) fill(result, stats);
  result.error = wireError(read, errors::protoStat);
  return &result;
}

// ---- Profiles ----

rpc_l2cp_error* rpc_l2cp_profile_add_1_svc(rpc_l2cp_profile profile, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(
      entity().profileAdd(profile.name, profile.protect != FALSE, profile.dynamic != FALSE),
      errors::profileAdd);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_del_1_svc(rpc_l2cp_profile_name_t name, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileDel(name), errors::profileDel);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_ren_1_svc(rpc_l2cp_profile_name_t oldName,
                                           rpc_l2cp_profile_name_t newName, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileRen(oldName, newName), errors::profileRen);
  return &result;
}

rpc_l2cp_profile* rpc_l2cp_profile_get_1_svc(u_int index, svc_req* /*request*/) {
  static rpc_l2cp_profile result;
  clear(result);
  L2CP::Profile profile;
  const int got = entity().profileGet(index, profile);
  if (got == 0) fill(result, profile);
  result.error = wireError(got, errors::profileGet);
  return &result;
}

rpc_l2cp_profile_all* rpc_l2cp_profile_get_all_1_svc(svc_req* /*request*/) {
  static rpc_l2cp_profile_all result;
  clear(result);
  std::list<L2CP::Profile> profiles;
  entity().profileGetAll(profiles);
  fillList(result, profiles);
  result.error = RPC_L2CP_OK;
  return &result;
}

rpc_l2cp_port_all* rpc_l2cp_profile_get_ports_1_svc(rpc_l2cp_profile_name_t name,
                                                    svc_req* /*request*/) {
  static rpc_l2cp_port_all result;
  clear(result);
  std::list<std::pair<unsigned int, unsigned short>> ports;
  const int got = entity().profileGetPorts(name, ports);
  if (got == 0) fillList(result, ports);
  result.error = wireError(got, errors::profileGetPorts);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_set_dynamic_1_svc(rpc_l2cp_profile_name_t name, bool_t dynamic,
                                                   svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileSetDynamic(name, dynamic != FALSE), errors::profileSet);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_set_protect_1_svc(rpc_l2cp_profile_name_t name, bool_t protect,
                                                   svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileSetProtect(name, protect != FALSE), errors::profileSet);
  return &result;
}

rpc_l2cp_counters* rpc_l2cp_profile_stat_1_svc(rpc_l2cp_profile_name_t name, svc_req* /*request*/) {
  static rpc_l2cp_counters result;
  L2CP::Statistics stats;
  const int read = entity().profileStat(name, stats);
  if (read == 0) fill(result, stats);
  result.error = wireError(read, errors::profileStat);
  return &result;
}

rpc_l2cp_profile_use* rpc_l2cp_profile_get_use_1_svc(rpc_l2cp_profile_name_t name,
                                                     svc_req* /*request*/) {
  static rpc_l2cp_profile_use result;
  clear(result);
  std::list<std::string> serviceProfiles;
  const int got = entity().profileGetServiceProfiles(name, serviceProfiles);
  if (got == 0) fillList(result, serviceProfiles);
  result.error = wireError(got, errors::profileGetUse);
  return &result;
}

// ---- Entries of profiles ----

rpc_l2cp_error* rpc_l2cp_profile_proto_add_1_svc(rpc_l2cp_profile_name_t profileName,
                                                 rpc_l2cp_proto_name_t protoName,
                                                 rpc_l2cp_rule rule, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileProtoAdd(profileName, protoName, ruleOf(rule)),
                     errors::profileProtoAdd);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_proto_del_1_svc(rpc_l2cp_profile_name_t profileName,
                                                 rpc_l2cp_proto_name_t protoName,
                                                 svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileProtoDel(profileName, protoName), errors::profileProtoDel);
  return &result;
}

rpc_l2cp_profile_proto* rpc_l2cp_profile_proto_get_1_svc(rpc_l2cp_profile_name_t profileName,
                                                         u_int index, svc_req* /*request*/) {
  static rpc_l2cp_profile_proto result;
  clear(result);
  std::string protoName;
  L2CP::Rule rule{};
  const int got = entity().profileProtoGet(profileName, index, protoName, rule);
  if (got == 0) fill(result, {protoName, rule});
  result.error = wireError(got, errors::profileProtoGet);
  return &result;
}

rpc_l2cp_profile_proto_all* rpc_l2cp_profile_proto_get_all_1_svc(
    rpc_l2cp_profile_name_t profileName, svc_req* /*request*/) {
  static rpc_l2cp_profile_proto_all result;
  clear(result);
  std::map<std::string, L2CP::Rule> protocols;
  const int got = entity().profileGetProtocols(profileName, protocols);
  if (got == 0) fillList(result, protocols);
  result.error = wireError(got, errors::profileProtoGetAll);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_proto_set_1_svc(rpc_l2cp_profile_name_t profileName,
                                                 rpc_l2cp_proto_name_t protoName,
                                                 rpc_l2cp_rule rule, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileProtoSet(profileName, protoName, ruleOf(rule)),
                     errors::profileProtoSet);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_proto_del_all_1_svc(rpc_l2cp_profile_name_t profileName,
                                                     svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().profileProtoDelAll(profileName), errors::profileProtoDelAll);
  return &result;
}

// ---- Attachments ----

rpc_l2cp_error* rpc_l2cp_profile_port_attach_1_svc(rpc_l2cp_profile_name_t profileName,
                                                   rpc_l2cp_port_t port, rpc_l2cp_vid_t vid,
                                                   svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().portAttach(registryKey(profileName), port, vid), errors::portAttach);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_port_detach_1_svc(rpc_l2cp_profile_name_t profileName,
                                                   rpc_l2cp_port_t port, rpc_l2cp_vid_t vid,
                                                   svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().portDetach(registryKey(profileName), port, vid), errors::portDetach);
  return &result;
}

rpc_l2cp_profile_link* rpc_l2cp_profile_port_get_1_svc(rpc_l2cp_port_t port, u_int index,
                                                       svc_req* /*request*/) {
  static rpc_l2cp_profile_link result;
  clear(result);
  std::string profileName;
  const int got = entity().portGet(port, index, result.vid, profileName);
  if (got == 0) result.profile_name = strdup(profileName.c_str());
  result.error = wireError(got, errors::portGet);
  return &result;
}

rpc_l2cp_profile_all* rpc_l2cp_profile_port_get_all_1_svc(rpc_l2cp_port_t port,
                                                          svc_req* /*request*/) {
  static rpc_l2cp_profile_all result;
  clear(result);
  std::list<L2CP::Profile> profiles;
  // Deliberate: a port without attachments is no error.
  entity().profileGetAllForPort(port, profiles);
  fillList(result, profiles);
  result.error = RPC_L2CP_OK;
  return &result;
}

// ---- Statistics of ports and VLANs ----

rpc_l2cp_counters* rpc_l2cp_port_stat_1_svc(rpc_l2cp_port_t port, svc_req* /*request*/) {
  static rpc_l2cp_counters result;
  L2CP::Statistics stats;
  const int read = entity().portStat(port, stats);
  if (read == 0) fill(result, stats);
  result.error = wireError(read, errors::portStat);
  return &result;
}

rpc_l2cp_counters* rpc_l2cp_vlan_stat_1_svc(rpc_l2cp_vid_t vid, svc_req* /*request*/) {
  static rpc_l2cp_counters result;
  L2CP::Statistics stats;
  const int read = entity().vlanStat(vid, stats);
  if (read == 0) fill(result, stats);
  result.error = wireError(read, errors::vlanStat);
  return &result;
}

// ---- Editing ----

rpcl2cpProfEditResult* rpc_l2cp_profile_edit_1_svc(char* profileName, svc_req* /*request*/) {
  static rpcl2cpProfEditResult result;
  result = entity().l2cpProfileEdit(profileName);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_copy_1_svc(rpc_l2cp_text_t source, rpc_l2cp_text_t destination,
                                            svc_req* /*request*/) {
  static rpc_l2cp_error result;
  int copied = entity().l2cpProfileCopy(source, destination);
  // The operation does not tell its refusals apart; the service promises to name a missing source.
  if (copied != 0 && entity().l2cpProfileStatus(source) == -ENOENT) copied = -ENOENT;
  result = wireError(copied, errors::profileCopy);
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_on_exit_1_svc(rpc_l2cp_text_t target, rpc_l2cp_text_t temporary,
                                               svc_req* /*request*/) {
  static rpc_l2cp_error result;
  // Deliberate: the operation's own result, not mapped.
  result = static_cast<rpc_l2cp_error>(entity().l2cpProfileOnExit(target, temporary));
  return &result;
}

rpc_l2cp_error* rpc_l2cp_profile_status_1_svc(char* profileName, svc_req* /*request*/) {
  static rpc_l2cp_error result;
  result = wireError(entity().l2cpProfileStatus(profileName), errors::profileStatus);
  return &result;
}
