#!/usr/bin/env bash
# The agent carrying real traffic between two hosts, in network namespaces (as root):
#
#   demo.sh [--peer kernel|vxrelay] [--mlag] [--keep] [--tag TAG]   ping, transfer, show
#   demo.sh --stop TAG                                              remove what --keep left up
#
# host-a sits on an access port (VLAN 10) of a switch namespace that runs vxrelay-host
# and vxrelay-fpemu (the forwarding plane); host-b sits behind the far VTEP: a Linux
# kernel VXLAN device with a bridge (--peer kernel, the default) or a second switch like
# the first (--peer vxrelay; it has a trunk port "tr" for VLANs 10 and 20 besides, whose
# peer "tr-p" nothing uses). VLAN 10 is VNI 5010 on both sides; the underlay is one veth
# pair, 10.99.0.1 to 10.99.0.2. The hosts are 192.168.50.1 and .2.
#
# --mlag adds switch 2 (10.99.0.3, no host of its own) as the MLAG peer of switch 1,
# the three VTEPs on one underlay bridge in the far namespace; the kernel peer sends
# only to switch 1, so what switch 2 knows of host-b it learns from switch 1 over the
# MLAG sync channel (UDP 51023).
#
# Everything made is listed in /tmp/vxrelay-demo-TAG (namespaces, processes, agents)
# and removed on exit, on Ctrl-C and on failure; --keep leaves it up until --stop.
# VXRELAY_BIN names the folder of the built programs (default build/release/bin).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
bin=${VXRELAY_BIN:-$root/build/release/bin}
peer=kernel
mlag=0
keep=0
stop=""
tag="vxd$$"
vlan=10
vni=5010
transfer_bytes=262144

usage() { sed -n '2,5p' "$0" >&2; exit 2; }
while [ $# -gt 0 ]; do
  case $1 in
    --peer) peer=${2:-}; shift 2 ;;
    --mlag) mlag=1; shift ;;
    --keep) keep=1; shift ;;
    --tag) tag=${2:-}; shift 2 ;;
    --stop) stop=${2:-}; shift 2 ;;
    *) usage ;;
  esac
done
[ "$peer" = kernel ] || [ "$peer" = vxrelay ] || usage
[ "$mlag" = 0 ] || [ "$peer" = kernel ] || usage
[ -n "$stop" ] && tag=$stop
case $tag in "" | *[!A-Za-z0-9]*) echo "demo.sh: a tag is letters and digits" >&2; exit 2 ;; esac
[ "$(id -u)" -eq 0 ] || { echo "demo.sh: needs root (network namespaces)" >&2; exit 1; }

work=/tmp/vxrelay-demo-$tag
say() { echo "== $*"; }

# --- teardown: from the lists in $work, so that --stop finds what another run made --

# A process of this run: started with RINGLOGDIR naming $work (a pid reused since by
# someone else's process is left alone); a zombie no longer counts.
ours() { grep -qzx "RINGLOGDIR=$work/" "/proc/$1/environ" 2>/dev/null; }

teardown() {
  [ -d "$work" ] || return 0
  local name pid i
  if [ -f "$work/pids" ]; then
    while read -r name pid; do ours "$pid" && kill -TERM "$pid" 2>/dev/null; done <"$work/pids"
    while read -r name pid; do
      for i in $(seq 50); do ours "$pid" || break; sleep 0.1; done
      ours "$pid" && kill -KILL "$pid" 2>/dev/null
    done <"$work/pids"
    wait 2>/dev/null || true
  fi
  [ -f "$work/netns" ] && while read -r name; do ip netns del "$name" 2>/dev/null || true; done <"$work/netns"
  [ -f "$work/agents" ] && while read -r name; do
    rm -f "/dev/shm/vxrelay-$name-vxlan-counter" "/run/vxrelay/$name.lock"
  done <"$work/agents"
  rm -rf "$work"
}

if [ -n "$stop" ]; then
  [ -d "$work" ] || { echo "demo.sh: nothing of $tag is up"; exit 0; }
  teardown
  echo "demo $tag removed"
  exit 0
fi

[ -x "$bin/vxrelay-host" ] && [ -x "$bin/vxrelay-fpemu" ] || {
  echo "demo.sh: build first (make build): no programs in $bin" >&2; exit 1; }
[ -e "$work" ] && { echo "demo.sh: $work exists; demo.sh --stop $tag first" >&2; exit 1; }
mkdir -m 0700 "$work"
finish() { local rc=$?; [ "$keep" = 1 ] && [ "$rc" = 0 ] || teardown; exit "$rc"; }
trap finish EXIT
trap 'exit 130' INT TERM

# --- building blocks -----------------------------------------------------------------

netns() {  # a namespace without IPv6, so that nothing talks of its own accord
  ip netns add "$1"
  echo "$1" >>"$work/netns"
  ip netns exec "$1" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
  ip -n "$1" link set lo up
}

start() {  # start NAME NS PROGRAM ARGS...: in the background, detached, logged
  local name=$1 ns=$2
  shift 2
  RINGLOGDIR=$work/ setsid ip netns exec "$ns" "$@" >"$work/$name.log" 2>&1 </dev/null &
  echo "$name $!" >>"$work/pids"
}

make_host() {  # make_host NS ADDR SWITCH_NS PORT: eth0 in NS, its peer PORT in the switch
  netns "$1"
  ip -n "$3" link add "$4" type veth peer name eth0 netns "$1"
  ip -n "$1" addr add "$2/24" dev eth0
  # Frames cross the emulator whole: checksums complete, no segmentation offload.
  ip netns exec "$1" ethtool -K eth0 tx off tso off gso off >/dev/null
  ip -n "$1" link set eth0 up
  ip -n "$3" link set "$4" up
}

mlag_json() {  # mlag_json INDEX: the MLAG state of switch INDEX (primary 3, secondary 4)
  if [ "$mlag" = 0 ]; then
    echo '"mlag/status": {"mlagState": 0}'
  else
    local state=3 peer=10.99.0.3
    [ "$1" = 1 ] || { state=4; peer=10.99.0.1; }
    echo "\"mlag/status\": {\"mlagState\": $state, \"peerLinkIntf\": \"Port-Channel10\"},"
    echo "  \"mlag/config\": {\"peerAddress\": \"$peer\"}"
  fi
}

state_file() {  # state_file FILE INDEX LOCAL REMOTE SVI
  cat >"$1" <<EOF
{
  "interface/status/eth/vxlan": {"vtiStatus": {"Vxlan1": {
    "operStatus": 1, "localVtepAddr": "$3", "vArpVtepAddr": "$3", "srcIpIntf": "Loopback0",
    "srcIntfKernelName": "underlay", "udpPort": 4789, "ttl": 64,
    "floodMcastGrp": "0.0.0.0", "vlanToVniMap": {"$vlan": $vni}}}},
  "vxlan/hardware/status": {
    "vxlanHwStatus": {"Vxlan1": {"portId": 16, "cpuSourcePortId": 17,
                                 "remoteVtep": {"$4": true}}},
    "bumStatus": {"bumReplicationMode": 0, "bumVtepList": {
      "00:00:00:00:00:00/$vlan": {"remoteVtepAddr": {"$4": true}, "listType": 0}}}},
  "bridging/config": {"bridgeMacAddr": "00:1c:73:00:00:01"},
  "ip/status": {"ipIntfStatus": {"Vlan$vlan": {
    "activeAddrWithMask": "$5/24",
    "activeVirtualAddrWithMask": "192.168.50.254/24"}}},
  "routing/fhrp/vrMacStatus": {"varpVirtualMac": "00:00:5e:00:01:01"},
  "bridging/hwcapabilities": {"vxlanTxRawSupported": true},
  $(mlag_json "$2")
}
EOF
}

make_switch() {  # make_switch NS INDEX LOCAL REMOTE SVI NAME:MODE:VLANS...: all of a switch
  local ns=$1 agent="demo-$tag-$2" port ports=()
  for dev in vxlan txraw; do
    ip -n "$ns" link add "$dev" mtu 9000 type veth peer name "$dev-p" mtu 9000
    ip -n "$ns" link set "$dev-p" up
    ip -n "$ns" link set "$dev" up
  done
  # The SVI of the VLAN as the kernel has it: virtual ARP writes what it learns there.
  ip -n "$ns" link add "vlan$vlan" type veth peer name "vlan$vlan-p"
  ip -n "$ns" addr add "$5/24" dev "vlan$vlan"
  ip -n "$ns" link set "vlan$vlan-p" up
  ip -n "$ns" link set "vlan$vlan" up
  echo "$agent" >>"$work/agents"
  state_file "$work/state-$2.json" "$2" "$3" "$4" "$5"
  start "host-$2" "$ns" "$bin/vxrelay-host" --state "$work/state-$2.json" --name "$agent" \
    --control "$work/$agent.sock"
  for port in "${@:6}"; do ports+=(--port "$port"); done
  # The emulator traps ARP for the VTEP, as the forwarding plane does, and drops the
  # copies that the agent's own decapsulation (port 16) hands back.
  start "fpemu-$2" "$ns" "$bin/vxrelay-fpemu" "${ports[@]}" --vxlan vxlan-p --txraw txraw-p \
    --underlay underlay --vtep "$3" --r2l-port 16
}

wait_for() {  # wait_for WHAT TENTHS COMMAND...: until the command succeeds
  local what=$1 tenths=$2 i
  shift 2
  for i in $(seq "$tenths"); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done
  echo "demo.sh: $what did not come up; logs in $work" >&2
  tail -n 5 "$work"/*.log >&2 || true
  return 1
}

# --- the topology --------------------------------------------------------------------

a=$tag-a b=$tag-b sw1=$tag-sw1 sw2=$tag-sw2 far=$tag-$([ "$peer" = kernel ] && echo vtep || echo sw2)
say "namespaces $a $sw1 $far $b$([ "$mlag" = 1 ] && echo " $sw2") (peer: $peer)"
netns "$sw1"
netns "$far"

link_underlay() {  # link_underlay NS ADDR FAR_END: the switch's "underlay" to the far side
  ip -n "$1" link add underlay mtu 9000 type veth peer name "$3" netns "$far" mtu 9000
  ip -n "$1" addr add "$2/24" dev underlay
  ip -n "$1" link set underlay up
  ip -n "$far" link set "$3" up
}

# The far side's underlay device: the veth end itself, or with --mlag a bridge that
# joins the two switches' ends.
far_ul=underlay
link_underlay "$sw1" 10.99.0.1 "$([ "$mlag" = 1 ] && echo ul1 || echo underlay)"
if [ "$mlag" = 1 ]; then
  far_ul=ul
  netns "$sw2"
  link_underlay "$sw2" 10.99.0.3 ul3
  ip -n "$far" link add ul mtu 9000 type bridge stp_state 0
  ip -n "$far" link set ul1 master ul
  ip -n "$far" link set ul3 master ul
  ip -n "$far" link set ul up
fi
ip -n "$far" addr add 10.99.0.2/24 dev "$far_ul"
make_host "$a" 192.168.50.1 "$sw1" ha
make_switch "$sw1" 1 10.99.0.1 10.99.0.2 192.168.50.253 "ha:access:$vlan"
if [ "$peer" = kernel ]; then
  ip netns exec "$far" ethtool -K "$far_ul" tx off >/dev/null
  ip -n "$far" link add vx0 mtu 1500 type vxlan id "$vni" remote 10.99.0.1 local 10.99.0.2 \
    dstport 4789 dev "$far_ul"
  ip -n "$far" link add br0 type bridge stp_state 0
  ip -n "$far" link set vx0 master br0 up
  make_host "$b" 192.168.50.2 "$far" hb
  ip -n "$far" link set hb master br0
  ip -n "$far" link set br0 up
else
  make_host "$b" 192.168.50.2 "$far" hb
  # A trunk port besides, its far end "tr-p" free for a capture or a packet writer.
  ip -n "$far" link add tr type veth peer name tr-p
  ip -n "$far" link set tr-p up
  ip -n "$far" link set tr up
  make_switch "$far" 2 10.99.0.2 10.99.0.1 192.168.50.253 "hb:access:$vlan" "tr:trunk:$vlan,20"
fi
if [ "$mlag" = 1 ]; then
  # The MLAG peer: its own SVI address, the same virtual router address; one access
  # port whose far end nothing uses.
  ip -n "$sw2" link add p1 type veth peer name p1-p
  ip -n "$sw2" link set p1-p up
  ip -n "$sw2" link set p1 up
  make_switch "$sw2" 2 10.99.0.3 10.99.0.2 192.168.50.252 "p1:access:$vlan"
fi

say "waiting for the agents and the emulators"
for f in "$work"/state-*.json; do
  i=${f##*state-}; i=${i%.json}
  wait_for "agent demo-$tag-$i" 100 test -e "/dev/shm/vxrelay-demo-$tag-$i-vxlan-counter"
  wait_for "vxrelay-fpemu $i" 50 grep -q 'ports,' "$work/fpemu-$i.log"
done
# The agents open their sockets once they have taken their state in: the first ARP
# exchange may need a few tries.
wait_for "traffic from host-a to host-b" 20 ip netns exec "$a" ping -c 1 -W 1 192.168.50.2

# --- traffic -------------------------------------------------------------------------

say "ping -c 5 192.168.50.2 (host-a to host-b)"
ip netns exec "$a" ping -c 5 -i 0.2 192.168.50.2 | tail -n 2

say "TCP: $transfer_bytes bytes from host-a to host-b (socat, port 5001)"
head -c "$transfer_bytes" /dev/urandom >"$work/sent"
RINGLOGDIR=$work/ ip netns exec "$b" socat -u TCP-LISTEN:5001,reuseaddr "OPEN:$work/received,creat,trunc" &
listener=$!
echo "listener $listener" >>"$work/pids"
wait_for "the listener on host-b" 50 sh -c "ip netns exec $b ss -ltn | grep -q ':5001 '"
ip netns exec "$a" timeout 20 socat -u "OPEN:$work/sent" TCP:192.168.50.2:5001
wait "$listener"
if cmp -s "$work/sent" "$work/received"; then
  echo "received intact: $(sha256sum <"$work/received" | cut -c1-16)..."
else
  echo "demo.sh: the transfer arrived damaged" >&2
  exit 1
fi

# Virtual ARP: host-b asks for the VLAN's virtual router address and for the SVI's own
# address; the switch of host-a answers from inside the overlay, with the virtual MAC
# and with its bridge MAC, and learns host-b on its SVI.
say "ARP from host-b for the virtual router address 192.168.50.254 and the SVI's .253"
for addr in 192.168.50.254 192.168.50.253; do
  ip netns exec "$b" ping -c 1 -W 1 "$addr" >/dev/null 2>&1 || true
done
wait_for "the virtual router's MAC at host-b" 30 \
  sh -c "ip -n '$b' neigh show 192.168.50.254 | grep -q 00:00:5e:00:01:01"
echo "host-b:   $(ip -n "$b" neigh show 192.168.50.254)"
# Behind a second vxrelay switch, host-b's ARP for .253 stays on that switch (its own
# SVI address): only behind the kernel's VXLAN device does switch 1 answer it.
if [ "$peer" = kernel ]; then
  wait_for "the bridge MAC at host-b" 30 \
    sh -c "ip -n '$b' neigh show 192.168.50.253 | grep -q 00:1c:73:00:00:01"
  echo "host-b:   $(ip -n "$b" neigh show 192.168.50.253)"
fi
echo "switch 1: $(ip -n "$sw1" neigh show 192.168.50.2 dev "vlan$vlan")"
if [ "$mlag" = 1 ]; then
  wait_for "host-b at switch 1's MLAG peer" 30 \
    sh -c "ip -n '$sw2' neigh show 192.168.50.2 dev vlan$vlan | grep -q lladdr"
  echo "switch 2: $(ip -n "$sw2" neigh show 192.168.50.2 dev "vlan$vlan") (from switch 1 over UDP 51023)"
fi

# --- counters --------------------------------------------------------------------------

for f in "$work"/state-*.json; do
  i=${f##*state-}; i=${i%.json}
  say "switch $i: vxrelayctl counters (rows that moved)"
  "$bin/vxrelayctl" --agent "demo-$tag-$i" counters
  say "switch $i: vxrelay-fpemu counters (rows that moved)"
  lines=$(wc -l <"$work/fpemu-$i.log")
  kill -USR1 "$(awk -v n="fpemu-$i" '$1 == n {print $2}' "$work/pids")"
  wait_for "the counters of vxrelay-fpemu $i" 20 \
    sh -c "[ \$(wc -l <'$work/fpemu-$i.log') -gt $lines ]"
  sleep 0.1
  tail -n +"$((lines + 1))" "$work/fpemu-$i.log" | awk '/counters$/ || $NF != 0'
done

if [ "$keep" = 1 ]; then
  say "left up (--keep); enter a namespace with:"
  for ns in $a $sw1 $far $b $([ "$mlag" = 1 ] && echo "$sw2"); do echo "  ip netns exec $ns bash"; done
  echo "  logs, state files and control sockets: $work"
  echo "  counters: $bin/vxrelayctl --agent demo-$tag-1 counters"
  echo "  stop it all: $0 --stop $tag"
fi
