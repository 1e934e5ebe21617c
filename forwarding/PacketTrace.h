// Vxlan::PacketTrace: one frame's fate told against the agent's state as it stands
// now, the "packet" query of the control socket (vxrelayctl trace packet). The frame is
// copied into a buffer of its own and handed to the per-frame function that the frame
// loop calls (R2L::decapFrame, or L2R::encapFrame with the machine's own filter, ARP
// hook and destination choice); the answer says in order what was decided and why,
// the verdict, the counter the loop would move (from the drop tables, DropTables.h)
// and the bytes that would leave. It counts nothing, learns nothing, writes no ring
// record and sends nothing.
//
// The arguments, a JSON object:
//   "hex"        the frame as plain hex, two digits a byte
//   "direction"  "auto" (the default), "r2l" or "l2r"
//   "vti"        the tunnel interface; the first one when absent
//   "vlan", "port"  local-to-remote only: the frame is a user frame that came in on this
//                VLAN (and from the port of this kernel index, 0 when absent), and is
//                given the local header the forwarding plane would put on it
// The answer:
//   {"vti", "direction": "r2l"|"l2r", "directionWhy", "length",
//    "steps": [{"check", "passed", "text"}...]   the decisions in order
//    "verdict": "forwarded"|"dropped", "reason" (the drop's name, "none" when
//    forwarded), "counter" (the counter's name, null for a drop that none records),
//    "why" (the failed step's text, or where the frame goes), "vni", "vlan" (null
//    until known), "destinations": [addresses or "txraw"],
//    "output": [{"to", "length", "hex"}], "notes": [text]}
// A refusal (no machines, no such VTI, a VTI that is down, bad arguments) throws
// Lum::Exception with the reason.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <vector>

#include "forwarding/Local2RemoteForwarderSm.h"
#include "forwarding/Remote2LocalForwarderSm.h"

namespace Vxlan::PacketTrace {

struct Machines {
  const Remote2LocalForwarderSm* r2l = nullptr;
  // Not const only because its ARP answer and destination choice are members that the
  // frame loop calls; the trace changes nothing through it.
  Local2RemoteForwarderSm* l2r = nullptr;
};

nlohmann::json answer(const Machines& machines, const nlohmann::json& args);

// One frame through one machine in its direction: the answer above once the VTI and
// the direction are chosen ("directionWhy" reads "as asked").
nlohmann::json remoteToLocal(const Remote2LocalForwarderSm::LumVtiStatusSm& sm,
                             const std::vector<uint8_t>& frame);
nlohmann::json localToRemote(Local2RemoteForwarderSm::LumVtiStatusSm& sm,
                             const std::vector<uint8_t>& frame);

}  // namespace Vxlan::PacketTrace
