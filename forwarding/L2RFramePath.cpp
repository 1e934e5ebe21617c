#include "forwarding/L2RFramePath.h"

#include <bit>
#include <cstddef>
#include <cstring>

#include "frames/EthArpIpHdr.h"
#include "frames/EthHdr.h"
#include "frames/LocalFrameHdr.h"
#include "frames/VxlanOuterHdr.h"

namespace Vxlan::L2R {

namespace {

constexpr uint8_t kIpProtoTcp = 6;

// Bounded loads of a frame of `len` bytes: a field that does not lie wholly inside
// the frame reads as zero.
struct Bytes {
  const uint8_t* p;
  uint32_t len;

  uint8_t u8(uint32_t at) const { return at < len ? p[at] : 0; }
  // Network order, as a number.
  uint16_t be16(uint32_t at) const {
    return at + 2 <= len ? static_cast<uint16_t>(p[at] << 8 | p[at + 1]) : 0;
  }
  uint32_t be32(uint32_t at) const {
    return at + 4 <= len ? uint32_t{be16(at)} << 16 | be16(at + 2) : 0;
  }
  // As the memory holds it: the flow hash mixes words without byte swaps.
  uint16_t host16(uint32_t at) const {
    uint16_t w = 0;
    if (at + 2 <= len) std::memcpy(&w, p + at, 2);
    return w;
  }
  uint16_t xorHost16(uint32_t at, int words) const {
    uint16_t h = 0;
    if (at + 2u * static_cast<uint32_t>(words) <= len) {
      // All inside the frame: no check per word.
      for (int i = 0; i < words; ++i) {
        uint16_t w;
        std::memcpy(&w, p + at + 2 * static_cast<uint32_t>(i), 2);
        h ^= w;
      }
      return h;
    }
    for (int i = 0; i < words; ++i) h ^= host16(at + 2 * static_cast<uint32_t>(i));
    return h;
  }
};

// Marks `e` dropped. Every exit of encapFrame returns its one Encap, so that the
// compiler builds it in the caller's place (a copy of the whole result per frame
// otherwise).
void dropped(Encap& e, Drop why, uint32_t detail) {
  e.drop = why;
  e.detail = detail;
}

// Takes a leading tag out of the frame at `frame` (MAC addresses first) when it has a
// complete one: the MAC addresses move forward by 4. Returns the tag's VLAN id, or -1.
int stripTag(uint8_t*& frame, uint32_t& len) {
  const Bytes b{frame, len};
  if (b.be16(Wire::kEthMacBytes) != Wire::kEthTypeDot1q || len < Wire::kEthHdrLen + 2) return -1;
  const int vlan = Wire::Dot1qHdr::vlanFromTci(b.be16(Wire::kEthHdrLen));
  Wire::moveMacAddrs(frame + Wire::kDot1qTagLen, frame);
  frame += Wire::kDot1qTagLen;
  len -= Wire::kDot1qTagLen;
  return vlan;
}

// The 16-bit flow hash of the user frame: addresses and ports of IPv4 and IPv6,
// read at their untagged offsets even in a tagged frame.
uint16_t flowHash(const Bytes& f, uint16_t type) {
  if (type == Wire::kEthTypeIpv4) {
    uint16_t h = f.xorHost16(26, 4);
    const uint8_t proto = f.u8(23);
    if (proto == kIpProtoTcp || proto == Wire::kIpProtoUdp) {
      h ^= f.xorHost16(14 + 4u * (f.u8(14) & 0x0fu), 2);
    }
    return h;
  }
  if (type == Wire::kEthTypeIpv6) {
    uint16_t h = f.xorHost16(22, 8) ^ f.xorHost16(38, 8);
    const uint8_t next = f.u8(20);
    if (next == kIpProtoTcp || next == Wire::kIpProtoUdp) h ^= f.xorHost16(54, 2);
    return h;
  }
  return 0;
}

// The six words of both MAC addresses as numbers (bytes 2i, 2i+1), XORed: the XOR of
// the words as the memory holds them, byte-swapped once (a swap commutes with XOR).
uint16_t macWords(const uint8_t* macs) {
  uint32_t w[3];
  std::memcpy(w, macs, sizeof w);
  const uint32_t x = w[0] ^ w[1] ^ w[2];
  const auto h = static_cast<uint16_t>(x ^ (x >> 16));
  return std::endian::native == std::endian::little ? static_cast<uint16_t>(h << 8 | h >> 8) : h;
}

void writeHeader(uint8_t* hdrAt, const uint8_t* frame, uint32_t frameLen, uint16_t hash,
                 uint32_t vni, const EncapFilter& f) {
  std::memset(hdrAt, 0, kOuterHdrLen);
  VxlanOuterHdr* hdr = Wire::hdrAt<VxlanOuterHdr>(hdrAt);
  hdr->ip.verIhl = 0x45;
  hdr->ip.fragOff.valueIs(0x4000);  // don't fragment
  hdr->ip.ttl = f.ttl;
  hdr->ip.protocol = Wire::kIpProtoUdp;
  const bool fromVirtualMac = Wire::EthAddr::fromBytes(frame + 6) == f.varpVirtualMac;
  hdr->ip.saddrIs(!f.vArpVtep.isZero() && fromVirtualMac ? f.vArpVtep : f.localVtep);
  // The source port is the flow hash as it stands, not byte-swapped and not confined to
  // a range: a flow keeps its port, which is all the underlay's load sharing needs.
  const uint16_t sport = hash ^ macWords(frame);
  std::memcpy(hdrAt + offsetof(VxlanOuterHdr, udp), &sport, sizeof sport);
  hdr->udp.dstPort.valueIs(f.udpPort);
  hdr->udp.len.valueIs(static_cast<uint16_t>(frameLen + 16));
  hdr->vxlan.flagsVniValidIs(true);
  hdr->vxlan.vniIs(Vni(vni));
}

// The tag flags: the first tag goes with the strip flag; the (next) one with the trunk
// flag, unless the frame came from a dot1q tunnel port, whose tag stays in the tunnel.
void stripTags(Encap& e, uint16_t flags, uint8_t*& frame, uint32_t& frameLen,
               const EncapFilter& f) {
  if (flags & LocalFrameHdr::kStripTag) {
    const int vlan = stripTag(frame, frameLen);
    if (vlan >= 0) {
      e.tagsRemoved |= Encap::kStripped;
      e.strippedVlan = static_cast<uint16_t>(vlan);
    }
  }
  e.tunnelPort = (e.srcIfIndex != 0 && f.tunnelPorts && (*f.tunnelPorts)(e.srcIfIndex)) ||
                 (flags & LocalFrameHdr::kDot1qFlag) != 0;
  if (!e.tunnelPort && (flags & LocalFrameHdr::kStripTagInTrunk)) {
    const int vlan = stripTag(frame, frameLen);
    if (vlan >= 0) {
      e.tagsRemoved |= Encap::kStrippedInTrunk;
      e.strippedTrunkVlan = static_cast<uint16_t>(vlan);
    }
  }
}

// An ARP request in the user frame, offered to the hook when its header is whole (the
// hook reads and rewrites its fields): false when the hook keeps it from the tunnel.
bool arpRequestGoes(ArpRequestHook& arp, uint8_t* frame, uint32_t frameLen, bool tagged,
                    const Encap& e, VniOrNone vni) {
  const Bytes user{frame, frameLen};
  const uint32_t l2 = tagged ? Wire::kEthHdrLen + Wire::kDot1qTagLen : Wire::kEthHdrLen;
  if (user.len < l2 + sizeof(Wire::EthArpIpHdr) ||
      user.be16(l2 + offsetof(Wire::EthArpIpHdr, op)) != Wire::EthArpIpHdr::kOpRequest) {
    return true;
  }
  if (!arp.herRequired(e.vlan, user.be32(l2 + offsetof(Wire::EthArpIpHdr, targetIpBytes)))) {
    return false;
  }
  arp.rewriteNakedRequest(frame, l2, vni);
  return true;
}

}  // namespace

Encap encapFrame(uint8_t* bytes, uint32_t len, const EncapFilter& f) {
  Encap e;
  if (len < kMinFrameLen || len > kMaxFrameLen) {
    dropped(e, Drop::badLength, len);
    return e;
  }
  uint8_t* read = bytes + kHeadroom;
  const LocalFrameHdr* local = Wire::hdrAt<LocalFrameHdr>(read);
  const uint16_t type = local->encapType.value();
  if (type != kEncapTypeHi && type != kEncapTypeLo) {
    dropped(e, Drop::badType, type);
    return e;
  }
  const uint16_t flags = local->encapFlags.value();
  e.vlan = local->userVlan.value();
  e.srcIfIndex = local->srcIfIndex.value();
  if (e.vlan == 0 || e.vlan > Bridging::VlanId::kMax) {
    dropped(e, Drop::badVlan, e.vlan);
    return e;
  }
  const VniOrNone vni = f.vlanToVni ? (*f.vlanToVni)(e.vlan) : VniOrNone();
  if (vni.isNone()) {
    dropped(e, Drop::noVni, e.vlan);
    return e;
  }
  e.vni = vni.value();
  e.arpFlag = (flags & LocalFrameHdr::kArpFlag) != 0;
  if (e.srcIfIndex != 0 && e.srcIfIndex == f.peerLinkIfIndex) {
    dropped(e, Drop::peerLink, e.srcIfIndex);
    return e;
  }

  // The user frame: its MAC addresses over the local header.
  Wire::moveMacAddrs(read + kLocalHdrLen, read);
  uint8_t* frame = read + kLocalHdrLen;
  uint32_t frameLen = len - kLocalHdrLen;
  stripTags(e, flags, frame, frameLen, f);

  const Bytes user{frame, frameLen};
  const bool tagged = user.be16(Wire::kEthMacBytes) == Wire::kEthTypeDot1q;
  const uint16_t innerType = user.be16(tagged ? Wire::kEthHdrLen + 2 : Wire::kEthMacBytes);
  const uint16_t hash = flowHash(user, innerType);
  if (innerType == Wire::kEthTypeArp && f.arp &&
      !arpRequestGoes(*f.arp, frame, frameLen, tagged, e, vni)) {
    dropped(e, Drop::arpNotRequired, e.vlan);
    return e;
  }

  uint8_t* hdr = frame - kOuterHdrLen;
  writeHeader(hdr, frame, frameLen, hash, e.vni, f);
  e.offset = static_cast<uint32_t>(hdr - bytes);
  e.length = frameLen + kOuterHdrLen;
  return e;
}

void destinationIs(uint8_t* hdr, Wire::IpAddr addr) {
  Wire::hdrAt<VxlanOuterHdr>(hdr)->ip.daddrIs(addr);
}

}  // namespace Vxlan::L2R
