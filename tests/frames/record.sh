#!/bin/bash
# Records control frames from real daemons on veth pairs: record.sh [DIRECTORY]
#
# The capture files go to DIRECTORY, by default the folder of this script, once all of them are
# there. Everything happens in network, mount, UTS and PID namespaces that end with the script, so
# the machine keeps its own links, names and /run, and nothing that was started here can stay
# behind. Run as root on Debian 12 with lldpd, hostapd, wpasupplicant, openvswitch-switch and
# tcpdump; takes about a minute.
set -euo pipefail

if [[ ${1-} != --inside ]]; then
  for program in lldpd hostapd wpa_supplicant ovs-vswitchd tcpdump; do
    command -v "$program" >/dev/null || { echo "record.sh: no $program here" >&2; exit 1; }
  done
  directory=$(realpath -- "${1:-$(dirname -- "$0")}")
  # unshare ignores the signals that should end it; the namespaces' processes die with it.
  unshare --net --mount --uts --pid --fork --kill-child --mount-proc \
    -- "$(realpath -- "$0")" --inside "$directory" &
  trap 'kill -KILL $! 2>/dev/null || true' EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  wait $!
  exit
fi

directory=$2

end() {
  local pid
  for pid in "$@"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
}

# lldpd has its socket and its privilege separation folder in /run, and reads its configuration as
# a user of its own.
mount -t tmpfs -o mode=755 tmpfs /run
scratch=/run/record
frames=$scratch/frames
mkdir -p /run/lldpd "$frames"

hostname ce1.example
# Bridges and daemons alone may speak: no neighbour discovery, no multicast reports.
echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6
echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6

# await SECONDS COMMAND...: until the command succeeds.
await() {
  local tries=$(($1 * 10))
  shift
  until "$@" >/dev/null 2>&1; do
    if ((tries-- == 0)); then
      tail -n 5 "$scratch"/*.log >&2
      echo "record.sh: gave up waiting for: $*" >&2
      exit 1
    fi
    sleep 0.1
  done
}

# run NAME COMMAND...: in the background; the process id is in $started, the output in NAME.log.
run() {
  local name=$1
  shift
  "$@" >"$scratch/$name.log" 2>&1 &
  started=$!
}

# wire LEFT LEFT-MAC RIGHT RIGHT-MAC: a veth pair, both ends up.
wire() {
  ip link add "$1" address "$2" type veth peer name "$3" address "$4"
  ip link set "$1" up
  ip link set "$3" up
}

# capture FILE LINK FRAMES FILTER: starts to record at most that many frames, in both directions.
capture() {
  run "tcpdump-$1" tcpdump -Z root -U --immediate-mode -i "$2" -c "$3" -w "$frames/$1" "$4"
  capturing=$started
  await 5 grep -q 'listening on' "$scratch/tcpdump-$1.log"
}

# holds FILE FRAMES: whether the capture has that many frames already.
holds() {
  [[ $(tcpdump --count -r "$frames/$1" 2>/dev/null) == "$2 packet"* ]]
}

# --- LLDP and CDP: lldpd ---------------------------------------------------------------------

wire ce1 02:00:00:00:00:01 pe1 02:00:00:00:01:01

# discovery FILE FRAMES LLDPD-OPTIONS LLDPCLI-LINE FILTER: lldpd on ce1, stopped after FRAMES
# frames. Where it speaks LLDP, its last word is the LLDPDU with a time to live of zero.
discovery() {
  local file=$1 count=$2 options=$3 line=$4 filter=$5
  cat >"$scratch/lldpd.conf" <<CONF
configure system hostname ce1.example
configure system description "L2CP test frames"
configure system platform "L2CP test"
configure system interface pattern ce1
configure system capabilities enabled bridge
configure ports ce1 lldp portdescription "customer port"
configure lldp tx-interval 1
$line
CONF
  capture "$file" pe1 "$((count + 1))" "$filter"
  # shellcheck disable=SC2086
  run lldpd lldpd -d -k -i -I ce1 -C ce1 -O "$scratch/lldpd.conf" $options
  local daemon=$started
  await 20 holds "$file" "$count"
  end "$daemon"
  sleep 0.5
  end "$capturing"
}

discovery lldp.pcap 3 "" "" "ether proto 0x88cc"
discovery lldp-customer-bridge.pcap 2 "" "configure lldp agent-type nearest-customer-bridge" "ether proto 0x88cc"
discovery lldp-non-tpmr-bridge.pcap 2 "" "configure lldp agent-type nearest-non-tpmr-bridge" "ether proto 0x88cc"
discovery lldp-vlan100.pcap 2 "" "configure ports ce1 lldp vlan-tx 100 prio 6" "vlan 100"
discovery cdp-v1.pcap 2 -cc "" "ether dst 01:00:0c:cc:cc:cc"
discovery cdp.pcap 3 -ccc "" "ether dst 01:00:0c:cc:cc:cc"

ip link del ce1

# --- STP: the kernel's bridge ----------------------------------------------------------------

# A port of the second bridge that starts to forward makes it tell the root of the change.
wire pe1 02:00:00:00:01:01 ce1 02:00:00:00:00:01
wire ce1-lan 02:00:00:00:00:02 station 02:00:00:00:00:03
ip link add pe type bridge
ip link set pe address 02:00:00:00:01:00 type bridge \
  stp_state 1 priority 4096 hello_time 200 forward_delay 400 max_age 600 mcast_snooping 0
ip link add ce type bridge
ip link set ce address 02:00:00:00:00:00 type bridge \
  stp_state 1 priority 32768 hello_time 200 forward_delay 400 max_age 600 mcast_snooping 0
ip link set pe1 master pe
ip link set ce1 master ce
ip link set ce1-lan master ce
capture stp.pcap ce1 10 "ether dst 01:80:c2:00:00:00"
ip link set pe up
ip link set ce up
await 40 holds stp.pcap 10
ip link del pe
ip link del ce
ip link del ce1
ip link del station

# --- EAPOL: hostapd and wpa_supplicant -------------------------------------------------------

cat >"$scratch/eap-users" <<'CONF'
"ce1.example" MD5 "l2cp-test"
CONF
cat >"$scratch/supplicant.conf" <<CONF
ctrl_interface=$scratch/supplicant
ap_scan=0
network={
  key_mgmt=IEEE8021X
  eap=MD5
  identity="ce1.example"
  password="l2cp-test"
  eapol_flags=0
}
CONF

# authentication FILE GROUP: one EAP-MD5 exchange and the log-off. With GROUP 1 both sides send to
# the PAE group address, with 0 the authenticator answers to the supplicant's own address.
authentication() {
  cat >"$scratch/hostapd.conf" <<CONF
interface=pe1
driver=wired
ieee8021x=1
eap_server=1
eap_user_file=$scratch/eap-users
use_pae_group_addr=$2
eap_reauth_period=0
CONF
  wire ce1 02:00:00:00:00:01 pe1 02:00:00:00:01:01
  capture "$1" pe1 12 "ether proto 0x888e"
  run "hostapd-$1" hostapd "$scratch/hostapd.conf"
  local authenticator=$started
  await 10 grep -q 'AP-ENABLED' "$scratch/hostapd-$1.log"
  run "supplicant-$1" wpa_supplicant -D wired -i ce1 -c "$scratch/supplicant.conf"
  local supplicant=$started
  await 20 grep -q 'CTRL-EVENT-EAP-SUCCESS' "$scratch/supplicant-$1.log"
  wpa_cli -p "$scratch/supplicant" -i ce1 logoff >/dev/null
  sleep 0.5
  end "$supplicant" "$authenticator" "$capturing"
  ip link del ce1
}

authentication eapol.pcap 1
authentication eapol-unicast.pcap 0

# --- RSTP and LACP: Open vSwitch in user space -----------------------------------------------

export OVS_RUNDIR=$scratch OVS_LOGDIR=$scratch OVS_DBDIR=$scratch OVS_SYSCONFDIR=$scratch
ovsdb-tool create "$scratch/conf.db" /usr/share/openvswitch/vswitch.ovsschema
run ovsdb ovsdb-server --remote="punix:$scratch/db.sock" "$scratch/conf.db"
await 10 test -S "$scratch/db.sock"
ovs-vsctl --no-wait init
run vswitchd ovs-vswitchd "unix:$scratch/db.sock"

wire ce1 02:00:00:00:00:01 pe1 02:00:00:00:01:01
capture rstp.pcap ce1 8 "ether dst 01:80:c2:00:00:00"
ovs-vsctl \
  -- add-br pe -- set bridge pe datapath_type=netdev other_config:hwaddr='"02:00:00:00:01:00"' \
  rstp_enable=true other_config:rstp-priority=4096 \
  -- add-port pe pe1 \
  -- add-br ce -- set bridge ce datapath_type=netdev other_config:hwaddr='"02:00:00:00:00:00"' \
  rstp_enable=true other_config:rstp-priority=32768 \
  -- add-port ce ce1
await 40 holds rstp.pcap 8
ovs-vsctl del-br pe -- del-br ce
ip link del ce1

wire ce1 02:00:00:00:00:01 pe1 02:00:00:00:01:01
wire ce2 02:00:00:00:00:02 pe2 02:00:00:00:01:02
capture lacp.pcap ce1 8 "ether proto 0x8809"
ovs-vsctl \
  -- add-br pe -- set bridge pe datapath_type=netdev other_config:hwaddr='"02:00:00:00:01:00"' \
  -- add-bond pe pe-bond pe1 pe2 lacp=active other_config:lacp-time=fast \
  -- add-br ce -- set bridge ce datapath_type=netdev other_config:hwaddr='"02:00:00:00:00:00"' \
  -- add-bond ce ce-bond ce1 ce2 lacp=active other_config:lacp-time=fast
await 40 holds lacp.pcap 8

install -m 644 "$frames"/*.pcap "$directory"
