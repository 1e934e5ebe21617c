// Fpemu::EmulatorConfig: the emulator's ports and its ends of the agent's devices,
// from `--port NAME:MODE:VLANS` options or a JSON file:
//
//   {"vxlan": "vxlan-p", "txraw": "txraw-p",
//    "ports": [{"name": "host0", "mode": "access", "vlans": [10]},
//              {"name": "trunk1", "mode": "trunk", "vlans": [10, 20]}]}
//
// MODE is access, trunk or dot1q-tunnel; VLANS a comma list of 1 to 4094, exactly one
// for access and dot1q-tunnel. "vxlan" and "txraw" name the devices the emulator
// writes local frames into and reads the agent's frames from: with veth pairs, the
// peers of the agent's "vxlan" and "txraw".
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/fpemu/FpFrames.h"

namespace Fpemu {

struct EmulatorConfig {
  std::string vxlanDevice = "vxlan-p";
  std::string txRawDevice = "txraw-p";
  std::vector<PortConfig> ports;
  // The trap of ARP for the VTEP: the underlay device it watches, the VTEP's address
  // (network order) and UDP port, and the port id on which the agent's software
  // decapsulation writes to "txraw" (its ARP copies are dropped: the trap has them).
  // No trap without an underlay device.
  std::string underlayDevice;
  uint32_t vtepAddr = 0;
  uint16_t vxlanUdpPort = 4789;
  std::optional<uint16_t> r2lPortId;
  // The device the agent hands whole received datagrams back on when the plane takes
  // no "txraw" ("fabric"'s peer), and the VLAN of each VNI for decapsulating them. No
  // fabric without a device.
  std::string fabricDevice;
  std::map<uint32_t, uint16_t> vniToVlan;
};

// Each throws std::invalid_argument naming what is wrong.
PortConfig portOf(std::string_view text);
// "VNI:VLAN", a VNI of 1 to 16777215 and a VLAN of 1 to 4094, into `map`.
void vniMapEntryOf(std::string_view text, std::map<uint32_t, uint16_t>& map);
EmulatorConfig configOf(const nlohmann::json& doc);
// Device names that fit the kernel's, at least one port, no port twice, VLAN counts
// that fit each mode.
void check(const EmulatorConfig& config);

}  // namespace Fpemu
