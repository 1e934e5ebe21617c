// Ctl::ShowView: what `vxrelayctl show` prints of the agent's answers, in the way of
// `ip -d link show`: one block per VTI, a "key: value" line each, aligned, and the
// reasons a direction does not forward on a line of their own under it:
//
//   frame mode: batch
//   Vxlan1
//     state:              up, VTEP 10.0.0.1, UDP port 4789
//     source interface:   Loopback0
//     device vtep0:       underlay, missing
//     remote-to-local:    stopped; sockets open: none
//       not forwarding: waiting for device vtep0
//     local-to-remote:    forwarding; sockets open: localHi localLo remoteHi ...; reads: ring
//
// Pure formatting: `show` is the tool's document ({"interfaces": <answer>, "arp":
// <answer>}, either may be absent), as the agent's queries answered it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Ctl {

// Every VTI of `show["interfaces"]`, then virtual ARP: in full, or (`brief`) one line.
std::string showView(const nlohmann::json& show, bool brief);

}  // namespace Ctl
