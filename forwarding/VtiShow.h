// Vxlan::VtiShow: the operator's view of the VTIs as both forwarding directions see
// them, the answer of the agent's "interfaces" query (vxrelayctl show interface).
//
//   {"vtis": [{"name": "Vxlan1", "operUp": true, "localVtepAddr": "10.0.0.1", ...,
//              "devices": [{"name": "vtep0", "use": "underlay", "exists": false}, ...],
//              "remoteToLocal": {"forwarding": false, "sockets": {...},
//                                "reasons": ["waiting for device vtep0"]},
//              "localToRemote": {...}, "vniToVlan": [{"vni": 5010, "vlan": 10}],
//              "floodLists": [...], "learnedHosts": [...], "multicast": {...}}]}
//
// Keys are camelCase and stay; numbers are numbers, flags booleans, lists arrays. It
// reads the machines and changes nothing.
//
// The reasons of a direction are the conditions its machine checks before it opens
// its sockets, one per condition that stands, most basic first (a VTI that is down
// also lacks its devices, but being down is what to fix first). A direction whose
// conditions all hold but whose sockets are closed says that instead.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "forwarding/Local2RemoteForwarderSm.h"
#include "forwarding/Remote2LocalForwarderSm.h"

namespace Vxlan::VtiShow {

// The remote-to-local conditions: the VTI up, a local VTEP address, a source device
// named, that device and "txraw" in the kernel's view.
std::vector<std::string> remoteToLocalReasons(const VtiStatus& status,
                                              const KernelNetworkInfo::Root* kernel);
// The local-to-remote conditions: the VTI up, a local VTEP address, "vxlan" in the
// kernel's view, and with a flood group outside controller mode the source device.
std::vector<std::string> localToRemoteReasons(const VtiStatus& status,
                                              const KernelNetworkInfo::Root* kernel,
                                              Wire::IpAddr floodGroup);

// The answer: every VTI, or the one `args` names ({"name": "Vxlan1"}; Lum::Exception
// "no VTI <name>" when there is none). Either machine may be missing.
nlohmann::json interfaces(const Remote2LocalForwarderSm* r2l, const Local2RemoteForwarderSm* l2r,
                          const nlohmann::json& args);

}  // namespace Vxlan::VtiShow
