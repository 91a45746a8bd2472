/// VLAN interfaces of the lab's customers, for kernels that have none: on the cable, frames of the
/// interface v100 have a tag for VLAN 100.
///
/// Such an interface is an end of a virtual cable whose other end has the VLAN's id for its number.
/// "push_s_tag" or "push_c_tag" stands behind that other end and sends on what comes out of it;
/// "pop" stands behind the cable to the switch and leads what comes in there to its VLAN.

#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
// The kernel's types come first.
#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

enum {
  /// The number of the interface on the cable to the switch: what no VLAN has for its id.
  cable = 4095,
  vlanIdMask = 0x0fff,
};

static __always_inline int push(struct __sk_buff* frame, __u16 tag) {
  if (bpf_skb_vlan_push(frame, bpf_htons(tag), (__u16)frame->ifindex) != 0) return TC_ACT_SHOT;
  return (int)bpf_redirect(cable, 0);
}

SEC("push_s_tag")
int pushServiceTag(struct __sk_buff* frame) { return push(frame, ETH_P_8021AD); }

SEC("push_c_tag")
int pushCustomerTag(struct __sk_buff* frame) { return push(frame, ETH_P_8021Q); }

SEC("pop")
int popTag(struct __sk_buff* frame) {
  if (!frame->vlan_present) return TC_ACT_SHOT;
  const __u32 vlan = frame->vlan_tci & vlanIdMask;
  if (bpf_skb_vlan_pop(frame) != 0) return TC_ACT_SHOT;
  return (int)bpf_redirect(vlan, 0);
}

const char licence[] SEC("license") = "BSD-3-Clause";
