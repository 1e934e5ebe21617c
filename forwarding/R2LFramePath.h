// Vxlan::R2L::decapFrame: the per-frame work of the remote-to-local direction, as a
// pure function. Given one frame as read from the remote socket (Ethernet header
// first) and what the frame is checked against, it either rewrites the frame in place
// into the "txraw" form and says where that frame stands, or names the reason it is
// dropped. It makes no system call, reads no clock, traces nothing, allocates nothing
// and copies no payload: the 12 MAC bytes and the 8 header bytes are all it writes.
//
// The frame loop of Remote2LocalForwarderSm, the frame-path benchmark and the fuzz
// target all call this one function, so what is measured and fuzzed is what runs.
//
// The checks, in this order (offsets in frames/VxlanDatagram.h):
//   1. longer than an Ethernet header (14), else tooShort;
//   2. longer than Ethernet, IPv4 without options and UDP (42, +4 with a tag), else
//      tooShort;
//   3. longer than the VXLAN offset plus a VXLAN and an inner Ethernet header (22),
//      else empty;
//   4. filtered when the Ethernet type is not IPv4, the source is our VTEP address,
//      the destination is neither the flood group nor our VTEP address, or the UDP
//      destination port is not ours;
//   5. the VXLAN flags carry the VNI-valid bit, else badFlags (the VNI is not looked up);
//   6. the VNI has a VLAN in the VTI's table, else unknownVlan.
// The IP version, protocol, length and fragment fields and the UDP length and checksum
// are not examined.
#pragma once

#include <cstdint>

#include "platform/core/ValueMap.h"
#include "platform/types/HwPortId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"

namespace Vxlan::R2L {

// Why a frame went no further. The frame loop adds the two socket failures; every
// reason has one row in its drop table (counter, trace level, trace words).
enum class Drop : uint8_t {
  none,
  tooShort,
  empty,
  filtered,
  badFlags,
  unknownVlan,
  readError,
  sendError,
};
inline constexpr int kDropReasons = 8;

using VniToVlanTable = Lum::ValueMap<Vni, Bridging::VlanIdOrNone>;

// What a frame is checked against: the VTI's addresses and port, its VNI table and
// the port id that written frames carry.
struct FrameFilter {
  Wire::IpAddr localVtep;
  Wire::IpAddr floodGroup;
  uint16_t udpPort = 0;
  HwPortId portId = HwPortId::unknown();
  // Null: no VNI has a VLAN.
  const VniToVlanTable* vniToVlan = nullptr;
};

struct Decap {
  Drop drop = Drop::none;
  // Forwarded: where the "txraw" frame starts in the buffer, and its length (the read
  // length less that offset).
  uint32_t offset = 0;
  uint32_t length = 0;
  // What the traces name: for tooShort and empty the length the frame had to exceed,
  // for badFlags the flags byte, for unknownVlan and a forwarded frame the VNI.
  uint32_t detail = 0;
  Bridging::VlanIdOrNone vlan;

  bool forwarded() const { return drop == Drop::none; }
};

// `buf` holds `len` bytes of one received frame; on a forwarded result the bytes from
// `offset` on are the "txraw" frame.
Decap decapFrame(uint8_t* buf, uint32_t len, const FrameFilter& filter);

}  // namespace Vxlan::R2L
