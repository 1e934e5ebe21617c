// Fpemu: the per-frame conversions of the forwarding-plane emulator, pure functions
// (no I/O, clock or trace) shared by the emulator's loop, its unit tests and its fuzz
// target.
//
// The switch carries a frame inside a VLAN in its "inner" form: the frame without the
// tag that put it into the VLAN (the port's service tag). An access port's frames
// arrive untagged or with a tag of the port's VLAN (or a priority tag, VLAN 0); a
// trunk port's arrive tagged with one of its VLANs; a dot1q-tunnel port's arrive as the
// customer sent them, any tag of theirs staying in the frame.
//
// What goes to the agent on "vxlan" is the frame as it arrived, in the local form
// (frames/LocalFrameHdr.h): the agent takes the service tag off itself, as the flags
// tell it:
//
//   access, tagged      kStripTag          the first tag goes
//   trunk               kStripTagInTrunk   the first tag goes
//   dot1q-tunnel        kDot1qFlag         every tag stays
//
// What the agent writes on "txraw" is the inner frame with an 8-byte header behind its
// MAC addresses (tag 0x0008, VLAN, port id, zero); the inner frame leaves a trunk
// port with the VLAN's tag added, any other port as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Fpemu {

enum class PortMode : uint8_t { access, trunk, dot1qTunnel };

struct PortConfig {
  std::string name;
  PortMode mode = PortMode::access;
  // Access and dot1q-tunnel ports: exactly one.
  std::vector<uint16_t> vlans;

  bool carries(uint16_t vlan) const;
};

inline constexpr size_t kMacBytes = 12;
inline constexpr size_t kEthHdrLen = 14;
inline constexpr size_t kTagLen = 4;
inline constexpr size_t kLocalHdrLen = 12;  // what the local form adds behind the MACs
inline constexpr size_t kTxRawHdrLen = 8;   // what "txraw" adds behind the MACs
inline constexpr uint16_t kTpidDot1q = 0x8100;

// Why the emulator took a frame no further, for the counters.
enum class Drop : uint8_t {
  none,
  runt,            // shorter than an Ethernet header
  vlanNotAllowed,  // a tag the port does not carry, or untagged on a trunk
  sameSegment,     // the destination is learnt where the frame came from
  txRawBadHeader,  // shorter than the "txraw" header, or another tag than 0x0008
  txRawUnknownVlan,
  txRawToRemote,    // the destination is learnt from "txraw" itself
  txRawTrappedArp,  // ARP the software decapsulation handed over: the trap has it
  fabricBadPacket,  // on "fabric": not IPv4 UDP with a VXLAN header and an inner frame
  fabricUnknownVni,
  fabricUnknownVlan,
  fabricToRemote,
};

// A frame from a host port, placed in the switch: its VLAN, the flags the agent needs,
// and whether its first tag is the service tag (taken off for local delivery).
struct Ingress {
  Drop drop = Drop::none;
  uint16_t vlan = 0;
  uint16_t flags = 0;
  bool serviceTag = false;
};
Ingress classify(const PortConfig& port, std::span<const uint8_t> frame);

// The local form of a classified frame for the agent: its MAC addresses, the type
// 0x0041, the flags, the VLAN and the port's kernel index, then the frame from its
// Ethernet type field on (a tag included). `out` is overwritten.
void localFrameOf(std::span<const uint8_t> frame, const Ingress& in, uint32_t ifIndex,
                  std::vector<uint8_t>& out);
// The inner form of a classified frame: without the service tag.
void innerOf(std::span<const uint8_t> frame, const Ingress& in, std::vector<uint8_t>& out);
// The inner frame as it leaves `port` in `vlan`: tagged on a trunk, as it is elsewhere.
void egressOf(const PortConfig& port, uint16_t vlan, std::span<const uint8_t> inner,
              std::vector<uint8_t>& out);

// A frame read from "txraw": its VLAN and the inner frame (the header taken out), or
// why it is refused (the VLAN is not checked here).
struct TxRaw {
  Drop drop = Drop::none;
  uint16_t vlan = 0;
  uint16_t portId = 0;
};
TxRaw txRawOf(std::span<const uint8_t> frame, std::vector<uint8_t>& inner);

// A packet socket hands a frame whose tag the kernel took into its metadata without
// the tag; this puts it back. `buf` holds the frame from byte kTagLen on (`len`
// bytes): the MAC addresses move to the front and the tag follows them. The frame
// with its tag, or the untouched frame when it is too short to carry MACs.
std::span<uint8_t> withTagRestored(std::span<uint8_t> buf, size_t len, uint16_t tpid, uint16_t tci);

// The trap of ARP for this VTEP. A forwarding plane hands ARP that arrives inside VXLAN
// for the switch's VTEP to the agent on "vxlan" instead of decapsulating it: the
// datagram as it arrived, behind the pseudo type 0x0040 and two bytes (the switch's
// layout, as it stands):
//
//   dst | src | 0040 | 0000 | the datagram's type or tag onwards (IPv4, UDP, VXLAN, ...)
//
// `datagram` is a frame read on the underlay; it is trapped (written to `out`) when it
// is IPv4 UDP to `vtep` (network order) on `udpPort`, with an ARP inner frame.
bool overlayArpTrapped(std::span<const uint8_t> datagram, uint32_t vtep, uint16_t udpPort,
                       std::vector<uint8_t>& out);

// What the agent hands back on "fabric": a datagram as it came from the underlay (in
// the trap's layout or plain), which the forwarding plane decapsulates as if it had
// just arrived. Its VNI, with the inner frame written to `inner`, or why it is refused.
struct Fabric {
  Drop drop = Drop::none;
  uint32_t vni = 0;
};
Fabric fabricOf(std::span<const uint8_t> packet, std::vector<uint8_t>& inner);

// The six bytes of a MAC address as one number, and the group bit.
uint64_t macOf(const uint8_t* sixBytes);
inline bool isGroupMac(const uint8_t* sixBytes) {
  return (sixBytes[0] & 1) != 0;
}

}  // namespace Fpemu
