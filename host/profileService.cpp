// The procedures of the control service for service profiles and VLAN profiles.

#include <algorithm>
#include <string>
#include <vector>

#include "host/control.h"
#include "host/profiles.h"
#include "host/wireText.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace {

servprofile& services() { return singleton<servprofile>::instance(); }

std::vector<int> interfacesOf(const std::string& serviceProfile) {
  std::vector<int> interfaces;
  for (const auto& [intf, names] : profiles::applied()) {
    if (std::find(names.begin(), names.end(), serviceProfile) != names.end()) {
      interfaces.push_back(intf);
    }
  }
  return interfaces;
}

}  // namespace

control_service_profiles* control_service_profile_list_1_svc(svc_req* /*request*/) {
  static control_service_profiles result;
  static std::vector<control_service_profile> list;
  static std::vector<std::vector<int>> interfaces;
  list.clear();
  interfaces.clear();
  for (const auto& [name, info] : services().servProfiles) {
    std::vector<int>& own = interfaces.emplace_back(interfacesOf(name));
    list.push_back({wireText(name),
                    wireText(info.vlanProfile),
                    wireText(info.l2cpProfile),
                    {static_cast<u_int>(own.size()), own.data()}});
  }
  result.list = {static_cast<u_int>(list.size()), list.data()};
  return &result;
}

control_result* control_service_profile_add_1_svc(control_name name, svc_req* /*request*/) {
  static control_result result;
  result = profiles::addServiceProfile(name);
  return &result;
}

control_result* control_service_profile_delete_1_svc(control_name name, svc_req* /*request*/) {
  static control_result result;
  result = profiles::deleteServiceProfile(name);
  return &result;
}

control_result* control_service_profile_set_vlan_1_svc(control_name name, control_name vlanProfile,
                                                       svc_req* /*request*/) {
  static control_result result;
  result = profiles::setVlanProfile(name, vlanProfile);
  return &result;
}

control_result* control_service_profile_set_l2cp_1_svc(control_name name, control_name l2cpProfile,
                                                       svc_req* /*request*/) {
  static control_result result;
  result = services().servProfileL2cpProfile(name, l2cpProfile);
  return &result;
}

control_result* control_service_profile_attach_1_svc(control_name name, int intf,
                                                     svc_req* /*request*/) {
  static control_result result;
  result = services().servProfileAttach(name, intf);
  return &result;
}

control_result* control_service_profile_detach_1_svc(control_name name, int intf,
                                                     svc_req* /*request*/) {
  static control_result result;
  result = services().servProfileDetach(name, intf);
  return &result;
}

control_vlan_profiles* control_vlan_profile_list_1_svc(svc_req* /*request*/) {
  static control_vlan_profiles result;
  static std::vector<control_vlan_profile> list;
  static std::vector<std::vector<control_svid>> svids;
  list.clear();
  svids.clear();
  for (const auto& [name, info] : singleton<vlanprofile>::instance().vlanProfiles) {
    std::vector<control_svid>& own = svids.emplace_back();
    for (const auto& [intf, svid] : info.svids) own.push_back({intf, svid});
    list.push_back({wireText(name), {static_cast<u_int>(own.size()), own.data()}});
  }
  result.list = {static_cast<u_int>(list.size()), list.data()};
  return &result;
}

control_result* control_vlan_profile_add_1_svc(control_name name, svc_req* /*request*/) {
  static control_result result;
  result = profiles::addVlanProfile(name);
  return &result;
}

control_result* control_vlan_profile_delete_1_svc(control_name name, svc_req* /*request*/) {
  static control_result result;
  result = profiles::deleteVlanProfile(name);
  return &result;
}

control_result* control_vlan_profile_set_svid_1_svc(control_name name, int intf, int svid,
                                                    svc_req* /*request*/) {
  static control_result result;
  result = profiles::setSvid(name, intf, svid);
  return &result;
}
