#!/usr/bin/env python3
"""Builds the control frames that no daemon at hand sends: build_frames.py [DIRECTORY]

Each frame is written field by field after the standard named above it. mixed.pcap and mixed.pcapng
copy frames of the other captures byte for byte, among them those of record.sh, which therefore runs
first. Frames are padded to the 60 bytes that reach a port from a wire, except those of
short-frames.pcap. The same files come out every time.
"""

import struct
import sys
from pathlib import Path

CUSTOMER = "02:00:00:00:00:01"
PROVIDER = "02:00:00:00:01:01"

STP = "01:80:c2:00:00:00"
PAUSE = "01:80:c2:00:00:01"
SLOW_PROTOCOLS = "01:80:c2:00:00:02"
PAE = "01:80:c2:00:00:03"
E_LMI = "01:80:c2:00:00:07"
PROVIDER_STP = "01:80:c2:00:00:08"
ALL_BRIDGES = "01:80:c2:00:00:10"
MMRP = "01:80:c2:00:00:20"
MVRP = "01:80:c2:00:00:21"
CDP_UDLD = "01:00:0c:cc:cc:cc"
PVST = "01:00:0c:cc:cc:cd"

C_TAG = 0x8100
S_TAG = 0x88A8
EXPERIMENTAL = 0x88B5  # IEEE 802 clause 9.2.3: for local experiments

# --- Layers -------------------------------------------------------------------------------------


def u8(*values):
  return bytes(values)


def u16(*values):
  return struct.pack(f">{len(values)}H", *values)


def u32(*values):
  return struct.pack(f">{len(values)}I", *values)


def u64(value):
  return struct.pack(">Q", value)


def mac(text):
  return bytes.fromhex(text.replace(":", ""))


def tag(vlan, priority=0, tpid=C_TAG):
  """IEEE 802.1Q clause 9.6."""
  return u16(tpid, priority << 13 | vlan)


def ethernet(destination, ether_type, payload, source=CUSTOMER, tags=b""):
  """IEEE 802.3 clause 3.1.1, with a type."""
  return (mac(destination) + mac(source) + tags + u16(ether_type) + payload).ljust(60, b"\0")


def llc(destination, payload, source=CUSTOMER, tags=b""):
  """IEEE 802.3 clause 3.1.1, with the length of the LLC header and what follows it."""
  return ethernet(destination, len(payload), payload, source, tags)


def snap(destination, oui, protocol, payload, source=CUSTOMER, tags=b""):
  """IEEE 802 clause 9.4."""
  return llc(destination, u8(0xAA, 0xAA, 0x03) + oui + u16(protocol) + payload, source, tags)


CISCO = u8(0x00, 0x00, 0x0C)
ENCAPSULATED_ETHERNET = u8(0x00, 0x00, 0x00)
BRIDGE_LLC = u8(0x42, 0x42, 0x03)


def internet_checksum(data):
  """RFC 1071."""
  data += b"\0" * (len(data) % 2)
  total = sum(struct.unpack(f">{len(data) // 2}H", data))
  while total >> 16:
    total = (total & 0xFFFF) + (total >> 16)
  return total ^ 0xFFFF


def with_checksum(data, offset):
  return data[:offset] + u16(internet_checksum(data)) + data[offset + 2 :]


def even_odd_byte(data):
  """CDP sums an odd last byte as the low half of its word, where RFC 1071 has it as the high one."""
  return data[:-1] + b"\0" + data[-1:] if len(data) % 2 else data


def llc_test(destination, data):
  """IEEE 802.2 clause 5.4.1: a command from and to the null SAP, with the poll bit."""
  return llc(destination, u8(0x00, 0x00, 0xF3) + data)


# --- Link protocols -----------------------------------------------------------------------------


def pause(opcode, parameters):
  """IEEE 802.3 annex 31B (PAUSE) and 31D (priority-based flow control)."""
  return ethernet(PAUSE, 0x8808, u16(opcode) + parameters)


def marker(tlv_type, source, transaction):
  """IEEE 802.1AX clause 6.5.3.3: Marker Information is 1, Marker Response 2."""
  tlv = u8(tlv_type, 16) + u16(1) + mac(CUSTOMER) + u32(transaction) + u16(0)
  return ethernet(SLOW_PROTOCOLS, 0x8809, u8(2, 1) + tlv + u8(0, 0) + bytes(90), source)


def lacpdu():
  """IEEE 802.1AX clause 6.4.2.3: a port that knows no partner yet."""
  actor = u8(1, 20) + u16(0x8000) + mac("02:00:00:00:00:00") + u16(1, 0x8000, 1) + u8(0x45) + bytes(3)
  partner = u8(2, 20) + bytes(18)
  collector = u8(3, 16) + u16(0) + bytes(12)
  return u8(1, 1) + actor + partner + collector + u8(0, 0) + bytes(50)


def oampdu(flags, code, data, source=CUSTOMER):
  """IEEE 802.3 clause 57.4."""
  return ethernet(SLOW_PROTOCOLS, 0x8809, u8(3) + u16(flags) + u8(code) + data, source)


def oam_information(tlv_type):
  """IEEE 802.3 clause 57.5.2: active mode, loopback and link events supported, 1518 byte OAMPDUs."""
  return u8(tlv_type, 16, 1) + u16(1) + u8(0, 0x0D) + u16(1518) + u8(0x02, 0, 0) + u32(1)


def udld(opcode, flags, *tlvs, tags=b""):
  """RFC 5171 section 4: TLV lengths count their own header."""
  body = b"".join(u16(kind, 4 + len(value)) + value for kind, value in tlvs)
  packet = with_checksum(u8(1 << 5 | opcode, flags) + u16(0) + body, 2)
  return snap(CDP_UDLD, CISCO, 0x0111, packet, tags=tags)


def cdp(description=b"L2CP test frames"):
  """Version 2, as lldpd sends it: device, port and software; TLV lengths count their own header."""
  tlvs = ((0x0001, b"ce1.example"), (0x0003, b"ce1"), (0x0005, description))
  body = b"".join(u16(kind, 4 + len(value)) + value for kind, value in tlvs)
  checksum = internet_checksum(even_odd_byte(u8(2, 180) + u16(0) + body))
  return u8(2, 180) + u16(checksum) + body


def e_lmi(message_type, elements, source=CUSTOMER):
  """MEF 16 section 5.5: an element is an identifier, a length and that many bytes."""
  body = b"".join(u8(identifier, len(value)) + value for identifier, value in elements)
  return ethernet(E_LMI, 0x88EE, u8(1, message_type) + body, source)


# --- Bridge protocols ---------------------------------------------------------------------------


def rst_bpdu():
  """IEEE 802.1Q clause 14: the root's own, designated and forwarding."""
  bridge = u16(0x8000) + mac("02:00:00:00:00:00")
  times = u16(0, 20 << 8, 2 << 8, 15 << 8)
  return BRIDGE_LLC + u16(0) + u8(2, 2, 0x3C) + bridge + u32(0) + bridge + u16(0x8001) + times + u8(0)


def garp(destination, attribute_type, *attributes):
  """IEEE 802.1D clause 12.10: an attribute's length counts itself and the event."""
  body = b"".join(u8(2 + len(value), event) + value for event, value in attributes)
  return llc(destination, BRIDGE_LLC + u16(1) + u8(attribute_type) + body + u8(0, 0))


def mrp(destination, ether_type, attribute_type, first_value, events):
  """IEEE 802.1Q clause 10.8: one message with one vector of up to three events."""
  a, b, c = events + [0] * (3 - len(events))
  vector = u16(len(events)) + first_value + u8((a * 6 + b) * 6 + c)
  return ethernet(destination, ether_type, u8(0, attribute_type, len(first_value)) + vector + u16(0, 0))


def ccm(level, destination=None, tags=b"", sequence=1):
  """IEEE 802.1Q clause 21.6: one a second, from MEP 1, to the group address of its level."""
  domain, association = b"l2cp.example", b"ce1-pe1"
  maid = u8(4, len(domain)) + domain + u8(2, len(association)) + association
  header = u8(level << 5, 1, 4, 70) + u32(sequence) + u16(1) + maid.ljust(48, b"\0") + bytes(16)
  port_and_interface_up = u8(2) + u16(1) + u8(2) + u8(4) + u16(1) + u8(1)
  destination = destination or f"01:80:c2:00:00:{0x30 + level:02x}"
  return ethernet(destination, 0x8902, header + port_and_interface_up + u8(0), tags=tags)


def ltm(level):
  """IEEE 802.1Q clause 21.8: link trace, to the other eight group addresses."""
  header = u8(level << 5, 5, 0x80, 17) + u32(1) + u8(64) + mac(CUSTOMER) + mac(PROVIDER)
  egress = u8(8) + u16(8) + u16(0) + mac(CUSTOMER)
  return ethernet(f"01:80:c2:00:00:{0x38 + level:02x}", 0x8902, header + egress + u8(0))


# --- Plain traffic ------------------------------------------------------------------------------

CUSTOMER_IP = u8(192, 0, 2, 1)
PROVIDER_IP = u8(192, 0, 2, 2)


def arp(operation, source, source_ip, target, target_ip):
  """RFC 826."""
  return u16(1, 0x0800) + u8(6, 4) + u16(operation) + mac(source) + source_ip + mac(target) + target_ip


def ipv4(protocol, destination_ip, payload, ttl=64):
  """RFC 791."""
  header = u8(0x45, 0) + u16(20 + len(payload), 1, 0x4000) + u8(ttl, protocol) + u16(0)
  return with_checksum(header + CUSTOMER_IP + destination_ip, 10) + payload


def echo_request(sequence):
  """RFC 792."""
  return ipv4(1, PROVIDER_IP, with_checksum(u8(8, 0) + u16(0, 1, sequence) + b"L2CP test frames", 2))


def udp(destination_ip, ttl=64):
  """RFC 768; a checksum of zero means none."""
  text = b"L2CP test frames"
  return ipv4(17, destination_ip, u16(50000, 9, 8 + len(text), 0) + text, ttl)


def neighbour_solicitation(target, group, source):
  """RFC 4861 section 4.3."""
  message = u8(135, 0) + u16(0) + bytes(4) + target + u8(1, 1) + mac(CUSTOMER)
  pseudo_header = source + group + u32(len(message), 58)
  checksum = internet_checksum(pseudo_header + message)
  message = message[:2] + u16(checksum) + message[4:]
  return u32(6 << 28) + u16(len(message)) + u8(58, 255) + source + group + message


def traffic():
  broadcast = "ff:ff:ff:ff:ff:ff"
  prefix = bytes.fromhex("20010db8") + bytes(8)
  solicited_node = bytes.fromhex("ff02" + "00" * 9 + "01ff000002")
  return [
    ethernet(broadcast, 0x0806, arp(1, CUSTOMER, CUSTOMER_IP, "00:00:00:00:00:00", PROVIDER_IP)),
    ethernet(CUSTOMER, 0x0806, arp(2, PROVIDER, PROVIDER_IP, CUSTOMER, CUSTOMER_IP), PROVIDER),
    ethernet(PROVIDER, 0x0800, echo_request(1)),
    ethernet(PROVIDER, 0x0800, echo_request(2), tags=tag(100)),
    ethernet(PROVIDER, 0x0800, udp(PROVIDER_IP), tags=tag(200, tpid=S_TAG) + tag(100)),
    ethernet("01:00:5e:00:00:01", 0x0800, udp(u8(224, 0, 0, 1), ttl=1)),
    ethernet(
      "33:33:ff:00:00:02",
      0x86DD,
      neighbour_solicitation(prefix + u32(2), solicited_node, prefix + u32(1)),
    ),
  ]


# --- Captures -----------------------------------------------------------------------------------


def near_misses():
  """Each has everything of a control frame but one thing."""
  return [
    # DTP: version and an empty domain.
    snap(CDP_UDLD, CISCO, 0x2004, u8(1) + u16(1, 5) + b"\0"),
    # VTP: a request of the domain "L2CP" for all VLANs.
    snap(CDP_UDLD, CISCO, 0x2003, u8(1, 3, 0, 4) + b"L2CP".ljust(32, b"\0") + u32(0)),
    snap(PVST, CISCO, 0x2000, cdp()),
    # A length that reads as UDLD's protocol id, with an LLC header that is not SNAP's.
    llc_test(CDP_UDLD, b"L2CP test frames".ljust(0x0111 - 3, b".")),
    ethernet(PROVIDER, 0x888E, u8(1, 1) + u16(0)),
    ethernet(PAE, EXPERIMENTAL, b"L2CP test frames"),
    # ESMC, ITU-T G.8264 clause 11.3.1: quality level 4.
    ethernet(
      SLOW_PROTOCOLS,
      0x8809,
      u8(0x0A, 0x00, 0x19, 0xA7) + u16(1) + u8(0x10, 0, 0, 0) + u8(1) + u16(4) + u8(4),
    ),
    ethernet(PAE, 0x8809, lacpdu()),
    llc(PROVIDER_STP, rst_bpdu()),
    # The per-VLAN spanning tree: a BPDU in SNAP.
    snap(PVST, CISCO, 0x010B, rst_bpdu()[3:] + u16(0, 2, 1)),
    ccm(3, "01:80:c2:00:00:2f"),
    ccm(3, "01:80:c2:00:00:40"),
    ethernet("01:80:c2:00:00:33", EXPERIMENTAL, b"L2CP test frames"),
    ethernet("01:80:c2:00:00:06", 0x88EE, u8(1, 0x75, 1, 1, 1)),
  ]


def edge_cases():
  """Each is a control frame, in a less usual dress."""
  snap_header = 8
  room = 0x0111 - snap_header - len(cdp(b""))
  return [
    # The length reads as UDLD's protocol id.
    snap(CDP_UDLD, CISCO, 0x2000, cdp(b"L2CP test frames".ljust(room, b"."))),
    ethernet(CDP_UDLD, 0x2000, cdp()),
    udld(1, 0, *udld_identity(), tags=tag(100)),
    udld(1, 0, *udld_identity(), tags=tag(200, tpid=S_TAG) + tag(100)),
    llc(STP, rst_bpdu(), tags=tag(200, 7, S_TAG)),
    ethernet(PAE, 0x888E, u8(1, 1) + u16(0), tags=tag(100)),
    # Priority-tagged: the VLAN is the port's own.
    ethernet(PAE, 0x888E, u8(1, 1) + u16(0), tags=tag(0, 7)),
    # RFC 1042 carries an EtherType as the protocol id.
    snap(PAE, ENCAPSULATED_ETHERNET, 0x888E, u8(1, 1) + u16(0)),
    ethernet(SLOW_PROTOCOLS, 0x8809, lacpdu(), tags=tag(4094, 7)),
  ]


def short_frames():
  """Each ends where a reader of headers might still expect a byte."""
  slow = mac(SLOW_PROTOCOLS) + mac(CUSTOMER)
  tagged = slow + tag(100)
  snapped = mac(CDP_UDLD) + mac(CUSTOMER) + u16(8) + u8(0xAA, 0xAA, 0x03) + CISCO
  return [
    slow[:6],
    slow,
    slow + u8(0x88),
    slow + u16(0x8809),
    slow + u16(0x8809) + u8(1),
    tagged[:15],
    tagged,
    tagged + u16(0x8809),
    tagged + u16(0x8809) + u8(3),
    snapped[:17],
    snapped,
    snapped + u8(0x20),
    snapped + u16(0x2000),
  ]


def udld_identity():
  return (1, b"CE100000001"), (2, b"port 1"), (4, u8(7)), (5, u8(5)), (6, b"ce1.example"), (7, u32(1))


def built():
  """The captures by file name."""
  udld_echo = u32(1) + u16(11) + b"PE100000001" + u16(7) + b"port 12"
  active = 0x0050  # discovery complete on both sides
  dying_gasp = 0x0002
  errored_frames = u8(2, 26) + u16(1, 10) + u32(1, 3) + u64(3) + u32(1)
  check = (1, u8(1))
  data_instance = (3, u8(0) + u32(1))
  join_in, leave_all = 2, u8(2, 0)
  return {
    "pause.pcap": [
      pause(0x0001, u16(0xFFFF)),
      pause(0x0001, u16(0)),
      pause(0x0101, u16(0x0008) + u16(0, 0, 0, 0xFFFF, 0, 0, 0, 0)),
    ],
    "marker.pcap": [marker(1, CUSTOMER, 1), marker(2, PROVIDER, 1)],
    "oam-efm.pcap": [
      oampdu(0x0008, 0, oam_information(1)),
      oampdu(active, 0, oam_information(1) + oam_information(2)),
      oampdu(active, 0, oam_information(1) + oam_information(2), PROVIDER),
      oampdu(active, 1, u16(1) + errored_frames),
      oampdu(active, 4, u8(1), PROVIDER),
      oampdu(active | dying_gasp, 0, oam_information(1) + oam_information(2)),
    ],
    # Only the address and the EtherType matter here; the body is all zeros.
    "mspp.pcap": [ethernet(PAE, 0x22E2, b""), ethernet(PAE, 0x22E2, b"", tags=tag(100))],
    "e-lmi.pcap": [
      e_lmi(0x75, [(1, u8(0)), (2, u8(1, 0)), data_instance]),
      e_lmi(0x75, [check, (2, u8(2, 1)), data_instance]),
      e_lmi(0x7D, [check, (2, u8(2, 2)), data_instance], PROVIDER),
      e_lmi(0x7D, [(1, u8(2)), (0x21, u16(1) + u8(2))], PROVIDER),
    ],
    "all-bridges.pcap": [
      llc_test(ALL_BRIDGES, b"L2CP test frames"),
      ethernet(ALL_BRIDGES, EXPERIMENTAL, b"L2CP test frames"),
    ],
    "gmrp-mmrp.pcap": [
      garp(MMRP, 1, (join_in, mac("01:00:5e:00:02:01"))),
      mrp(MMRP, 0x88F6, 2, mac("01:00:5e:00:02:01"), [1]),
    ],
    "gvrp-mvrp.pcap": [
      garp(MVRP, 1, (join_in, u16(100)), (join_in, u16(200))),
      llc(MVRP, BRIDGE_LLC + u16(1) + u8(1) + leave_all + u8(0, 0)),
      mrp(MVRP, 0x88F5, 1, u16(100), [1, 1, 1]),
    ],
    "cfm.pcap": [ccm(level) for level in range(8)] + [ltm(0), ltm(7)],
    "cfm-tagged.pcap": [
      ccm(3, tags=tag(0, 7)),
      ccm(3, tags=tag(99, 7)),
      ccm(3, tags=tag(100, 7)),
      ccm(3, tags=tag(101, 7)),
      ccm(5, tags=tag(200, 7, S_TAG)),
      ccm(3, tags=tag(200, 7, S_TAG) + tag(100, 7)),
    ],
    "udld.pcap": [
      udld(1, 0x03, *udld_identity()),
      udld(2, 0, *udld_identity(), (3, udld_echo)),
      udld(3, 0, *udld_identity()),
    ],
    "edge-cases.pcap": edge_cases(),
    "near-misses.pcap": near_misses(),
    "short-frames.pcap": short_frames(),
    "traffic.pcap": traffic(),
  }


def mixed(first):
  """A customer's port comes up: its protocols speak, then its traffic."""
  return [
    first("stp.pcap", 6, mac(CUSTOMER)),
    first("lacp.pcap", 6, mac(CUSTOMER)),
    first("eapol.pcap", 15, u8(1)),
    first("eapol.pcap", 6, mac(PROVIDER)),
    first("lldp.pcap", 6, mac(CUSTOMER)),
    first("cdp.pcap", 6, mac(CUSTOMER)),
    first("udld.pcap", 22, u8(0x21)),
    first("oam-efm.pcap", 14, u8(3)),
    first("e-lmi.pcap", 15, u8(0x75)),
    first("stp.pcap", 20, u8(0x80)),
    first("gvrp-mvrp.pcap", 12, u16(0x88F5)),
    first("cfm.pcap", 0, mac("01:80:c2:00:00:33")),
    first("cfm-tagged.pcap", 12, tag(100, 7)),
    first("near-misses.pcap", 20, u16(0x2004)),
    first("traffic.pcap", 12, u16(0x0806)),
    first("traffic.pcap", 12, tag(100)),
    first("pause.pcap", 12, u16(0x8808)),
  ]


# --- Files --------------------------------------------------------------------------------------

ETHERNET_LINK = 1
START = 1767225600  # 2026-01-01 00:00:00 UTC; frames follow a tenth of a second apart


def pcap(frames):
  """Version 2.4, microseconds, little-endian."""
  records = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, ETHERNET_LINK)]
  for number, frame in enumerate(frames):
    seconds, tenths = divmod(number, 10)
    records += [struct.pack("<IIII", START + seconds, tenths * 100000, len(frame), len(frame)), frame]
  return b"".join(records)


def pcapng_padded(data):
  return data + b"\0" * (-len(data) % 4)


def pcapng_block(kind, body):
  size = struct.pack("<I", 12 + len(body))
  return struct.pack("<I", kind) + size + body + size


def pcapng_option(code, value):
  return struct.pack("<HH", code, len(value)) + pcapng_padded(value)


def pcapng(frames):
  """One section with one interface "ce1" that counts nanoseconds, little-endian."""
  end_of_options = pcapng_option(0, b"")
  interface = pcapng_option(2, b"ce1") + pcapng_option(9, u8(9)) + end_of_options
  blocks = [
    pcapng_block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)),
    pcapng_block(1, struct.pack("<HHI", ETHERNET_LINK, 0, 262144) + interface),
  ]
  for number, frame in enumerate(frames):
    time = START * 10**9 + number * 10**8
    header = struct.pack("<IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(frame), len(frame))
    blocks.append(pcapng_block(6, header + pcapng_padded(frame)))
  return b"".join(blocks)


def pcap_frames(data):
  """The frames of a capture that pcap() or record.sh wrote."""
  magic, *_ = struct.unpack_from("<I", data)
  if magic != 0xA1B2C3D4:
    raise ValueError("not a little-endian capture with microseconds")
  frames, offset = [], 24
  while offset < len(data):
    (size,) = struct.unpack_from("<I", data, offset + 8)
    frames.append(data[offset + 16 : offset + 16 + size])
    offset += 16 + size
  return frames


def main(arguments):
  if len(arguments) > 1:
    return "usage: build_frames.py [DIRECTORY]"
  directory = Path(arguments[0]) if arguments else Path(__file__).parent
  captures = built()

  def first(name, offset, field):
    if name not in captures:
      captures[name] = pcap_frames((directory / name).read_bytes())
    for frame in captures[name]:
      if frame[offset : offset + len(field)] == field:
        return frame
    raise ValueError(f"{name}: no frame with {field.hex(' ')} at byte {offset}")

  files = {name: pcap(frames) for name, frames in captures.items()}
  try:
    story = mixed(first)
  except FileNotFoundError as error:
    return f"{error.filename}: not there; record.sh makes it"
  except ValueError as error:
    return str(error)
  files |= {"mixed.pcap": pcap(story), "mixed.pcapng": pcapng(story)}
  for name, data in files.items():
    (directory / name).write_bytes(data)
  return 0


if __name__ == "__main__":
  sys.exit(main(sys.argv[1:]))
