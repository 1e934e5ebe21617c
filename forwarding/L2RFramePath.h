// Vxlan::L2R::encapFrame: the per-frame work of the local-to-remote direction, as a
// pure function. Given one frame as read from a local socket of the device "vxlan"
// (MAC addresses, the 12-byte local header, the rest of the user frame) and what it is
// checked against, it either takes the user frame out of the local frame, writes the
// 36-byte outer header (IPv4, UDP, VXLAN) in front of it in place and says where the
// packet stands, or names the reason the frame is dropped. It makes no system call,
// reads no clock, traces nothing and allocates nothing; the payload never moves. Only
// the 12 MAC bytes move (forward by 12 over the local header, by 4 more over each tag
// removed), and the header is written into the bytes in front of them.
//
// The frame loop of Local2RemoteForwarderSm, the frame-path benchmark and the fuzz
// target all call this one function, so what is measured and fuzzed is what runs.
// Destinations are not its business: the loop writes each one with destinationIs.
//
// Buffer layout (FrameBuffer): 24 bytes of head room, then the 10024 bytes a read may
// fill. The user frame starts at least 12 bytes behind the read position, so the
// header start is never before the buffer: 24 + 12 = 36.
//
// The checks, in this order:
//   1. length 24 to 9999, else badLength;
//   2. Ethernet type field 0x0041 or 0x0033 (either, whichever socket), else badType;
//   3. user VLAN 1 to 4094, else badVlan;
//   4. a VNI for the VLAN, else noVni;
//   5. srcIfIndex, when not 0, is not the MLAG peer link, else peerLink;
//   6. an ARP request (opcode 1, with the whole 28-byte ARP header in the frame) that
//      the ARP hook says not to flood: arpNotRequired. A request cut shorter is
//      flooded as it is, without asking.
// Fields that a frame is too short to hold read as zero: a short frame hashes and
// strips as if they were zero, and nothing behind the read length is ever looked at.
#pragma once

#include <array>
#include <cstdint>

#include "platform/core/ValueMap.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IpAddr.h"
#include "platform/types/VlanId.h"
#include "platform/types/Vni.h"

namespace Vxlan::L2R {

inline constexpr uint32_t kHeadroom = 24;
inline constexpr uint32_t kReadSize = 10024;
inline constexpr uint32_t kMinFrameLen = 24;
inline constexpr uint32_t kMaxFrameLen = 9999;
inline constexpr uint32_t kOuterHdrLen = 36;
// The local header that the user frame is taken out of, behind the MAC addresses.
inline constexpr uint32_t kLocalHdrLen = 12;

struct FrameBuffer {
  uint8_t headroom[kHeadroom];
  uint8_t read[kReadSize];

  uint8_t* bytes() { return headroom; }
};
static_assert(sizeof(FrameBuffer) == kHeadroom + kReadSize);
// "hdr >= buf": the outer header fits in the head room plus the local header.
static_assert(kHeadroom + kLocalHdrLen >= kOuterHdrLen);

// Why a frame went no further. The frame loop adds the read failure and the frame
// without destination; every reason has one row in its drop table.
enum class Drop : uint8_t {
  none,
  badLength,
  badType,
  badVlan,
  noVni,
  peerLink,
  arpNotRequired,
  readError,
  noDestination,
};
inline constexpr int kDropReasons = 9;

using VlanToVniTable = Lum::ValueMap<Bridging::VlanId, VniOrNone>;
using IfIndexTable = Lum::ValueMap<uint32_t, bool>;

// The VNI of every VLAN id in one array, so that the frame path finds a VLAN's VNI with
// one load: built from a VlanToVniTable, where a VLAN it lacks has none.
class VniByVlan {
 public:
  VniByVlan() { vni_.fill(kVniNone); }
  explicit VniByVlan(const VlanToVniTable& m) { is(m); }
  void is(const VlanToVniTable& m) {
    vni_.fill(kVniNone);
    for (const auto& [vlan, vni] : m) entryIs(vlan, vni);
  }
  void entryIs(Bridging::VlanId vlan, VniOrNone vni) { vni_[vlan.value()] = vni.value(); }
  VniOrNone operator()(uint32_t vlan) const {
    return VniOrNone(vlan < vni_.size() ? vni_[vlan] : kVniNone);
  }

 private:
  std::array<uint32_t, Bridging::VlanId::kMax + 1> vni_;
};

// What an ARP request that is about to be flooded goes through first: whether it is
// to be flooded at all (a request for an address of this switch is not), and a
// rewrite of the frame in place before its header is built.
class ArpRequestHook {
 public:
  // vlan as the local header gives it, targetIp in host order.
  virtual bool herRequired(uint32_t vlan, uint32_t targetIp) = 0;
  // frame: the user frame; l2Offset: its ARP header (14, or 18 behind a tag).
  virtual void rewriteNakedRequest(uint8_t* frame, uint32_t l2Offset, VniOrNone vni) = 0;

 protected:
  ~ArpRequestHook() = default;
};

// What a frame is checked against and what its header is built from.
struct EncapFilter {
  // Null: no VLAN has a VNI.
  const VniByVlan* vlanToVni = nullptr;
  // The dot1q-tunnel access ports by kernel index; null: none.
  const IfIndexTable* tunnelPorts = nullptr;
  uint32_t peerLinkIfIndex = 0;
  Wire::IpAddr localVtep;
  Wire::IpAddr vArpVtep;
  Wire::EthAddr varpVirtualMac;
  uint8_t ttl = 64;
  uint16_t udpPort = 4789;
  // Null: every ARP request is flooded unchanged.
  ArpRequestHook* arp = nullptr;
};

struct Encap {
  // Bits of `tagsRemoved`.
  static constexpr uint8_t kStripped = 1;
  static constexpr uint8_t kStrippedInTrunk = 2;

  Drop drop = Drop::none;
  // Forwarded: where the outer header starts from the head room's start, and the length to
  // send (user frame plus 36).
  uint32_t offset = 0;
  uint32_t length = 0;
  // What the traces name: the length (badLength), the type (badType), the VLAN
  // (badVlan, noVni) or the interface (peerLink).
  uint32_t detail = 0;
  uint32_t vlan = 0;
  uint32_t vni = 0;
  uint32_t srcIfIndex = 0;
  bool arpFlag = false;
  bool tunnelPort = false;
  uint8_t tagsRemoved = 0;
  // The VLAN ids of the removed tags, by the bits above.
  uint16_t strippedVlan = 0;
  uint16_t strippedTrunkVlan = 0;

  bool forwarded() const { return drop == Drop::none; }
  // The user frame behind the header: its MAC addresses start here.
  uint32_t frameOffset() const { return offset + kOuterHdrLen; }
};

// `len` bytes were read at `bytes` + kHeadroom; the kHeadroom bytes in front of them
// are free for the header (a FrameBuffer, or a receive ring slot with that room).
Encap encapFrame(uint8_t* bytes, uint32_t len, const EncapFilter& filter);
inline Encap encapFrame(FrameBuffer& buf, uint32_t len, const EncapFilter& filter) {
  return encapFrame(buf.bytes(), len, filter);
}

// Writes one destination into the header that encapFrame built at `hdr`.
void destinationIs(uint8_t* hdr, Wire::IpAddr addr);

}  // namespace Vxlan::L2R
