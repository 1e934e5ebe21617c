// Vxlan::VarpShow: the operator's view of virtual ARP and ARP reply replication, the
// answer of the agent's "arp" query (vxrelayctl show arp).
//
//   {"pendingLists": [{"vni": 5010, "ip": "10.1.1.9", "timeLeft": 4, "macs": [...]}],
//    "vrfs": [{"name": "default", "namespace": "", "netlinkOpen": true}],
//    "mlagSync": {"mlagState": 3, "peerAddress": "10.99.0.3", "vtis": [
//        {"name": "Vxlan1", "syncing": true, "socketOpen": true,
//         "local": {"port": 51023}, "peer": {"address": "10.99.0.3", "port": 51023}}]},
//    "replication": [{"vrf": "default", "namespace": "",
//                     "interfaces": [{"name": "Vlan10", "filterInstalled": true}]}]}
//
// timeLeft is in seconds as the last review left it. Keys are camelCase and stay. It
// reads the machines and changes nothing; either may be missing.
#pragma once

#include <nlohmann/json.hpp>

#include "varp/ArpReplyReplicationSm.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan::VarpShow {

nlohmann::json arp(const VirtualArpSm* varp, const ArpReplyReplicationSm* replication);

}  // namespace Vxlan::VarpShow
