// Fpemu::FpSwitch: the forwarding decisions of the emulated switch, with no I/O.
//
// A frame from a host port: its source is learnt on that port in its VLAN; a unicast
// destination learnt on another port goes there, one learnt from "txraw" goes to the
// agent, one learnt on the same port is dropped (sameSegment); anything else
// (broadcast, multicast, unknown unicast) floods to the VLAN's other ports and to the
// agent.
//
// A frame from "txraw": its VLAN must be carried by some port (else txRawUnknownVlan);
// its source is learnt as remote; a destination learnt on a port goes there, one learnt
// as remote is dropped (txRawToRemote: never back to the agent), anything else floods
// to the VLAN's ports. A packet from "fabric" is decapsulated, its VNI giving the VLAN
// (else fabricUnknownVni), and its inner frame goes on as one from "txraw" would.
//
// Each call counts the frame read and its outcome; the caller counts its writes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "tools/fpemu/FpCounters.h"
#include "tools/fpemu/FpFrames.h"
#include "tools/fpemu/MacTable.h"

namespace Fpemu {

struct Decision {
  Drop drop = Drop::none;
  uint16_t vlan = 0;
  // A host port's frame as classified (what the local form and the inner form need).
  Ingress in;
  bool toAgent = false;
  // The host ports the inner frame goes to, by index.
  std::vector<int> ports;
  // The inner frame, when `ports` is not empty.
  std::vector<uint8_t> inner;
};

class FpSwitch {
 public:
  explicit FpSwitch(std::vector<PortConfig> ports, size_t macCapacity = 16384);

  const std::vector<PortConfig>& ports() const { return ports_; }
  // The decision stays valid until the next call.
  const Decision& fromPort(int port, std::span<const uint8_t> frame);
  const Decision& fromTxRaw(std::span<const uint8_t> frame);
  const Decision& fromFabric(std::span<const uint8_t> packet);
  // The VLAN of each VNI, for what comes on "fabric".
  void vniMapIs(std::map<uint32_t, uint16_t> vniToVlan) { vniToVlan_ = std::move(vniToVlan); }
  // With the trap of ARP on, ARP that "txraw" brings on this port id (the agent's
  // software decapsulation) is dropped: the trap handed it to the agent already, and
  // what the agent does not answer comes back on its own port id.
  void trappedArpPortIs(std::optional<uint16_t> portId) { trappedArpPort_ = portId; }

  const MacTable& macs() const { return macs_; }
  Counters& counters() { return counters_; }
  const Counters& counters() const { return counters_; }

 private:
  void reset();
  const Decision& dropped(Drop why);
  void learn(uint16_t vlan, const uint8_t* src, int where);
  // The VLAN's ports but `except`.
  void flood(uint16_t vlan, int except);
  // The inner frame of the overlay (d_.inner) in d_.vlan, to the host ports.
  struct OverlayPath {
    Counter local;
    Counter flooded;
    Drop unknownVlan;
    Drop toRemote;
  };
  const Decision& fromOverlay(const OverlayPath& path);

  std::vector<PortConfig> ports_;
  std::optional<uint16_t> trappedArpPort_;
  std::map<uint32_t, uint16_t> vniToVlan_;
  MacTable macs_;
  Counters counters_;
  Decision d_;
};

}  // namespace Fpemu
