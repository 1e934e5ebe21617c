// Ctl::PacketTraceView: the answer of the agent's "packet" query (forwarding/
// PacketTrace.h) as `vxrelayctl trace packet` prints it, in the manner of a packet
// trace tool: the direction, one numbered line per decision, the verdict with the
// counter it moves, then the bytes that would leave as a hex dump.
//
//   Vxlan1: 96 bytes, remote-to-local (IPv4/UDP to port 4789 of our VTEP address ...)
//    1. length       96 bytes, longer than its Ethernet, IPv4 and UDP headers
//    ...
//    5. vni          failed: no VLAN for VNI 5000
//   verdict: dropped (r2lUnknownVlan: no VLAN for VNI 5000)
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace Ctl {

// The frame of the operator's HEX as plain lower-case hex, two digits a byte: spaces,
// tabs and colons between the digits and a 0x in front of a word are left out. Throws
// std::invalid_argument saying what is wrong (a stray character, an odd count, none).
std::string frameHex(std::string_view text);

// The whole text, lines ending in "\n".
std::string packetTraceView(const nlohmann::json& answer);

}  // namespace Ctl
