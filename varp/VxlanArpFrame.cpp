#include "varp/VxlanArpFrame.h"

#include "platform/types/VlanId.h"

namespace Vxlan {

namespace {

uint16_t be16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

// The ones' complement sum over the header, stored checksum included: 0 when it holds.
uint16_t ipv4HeaderSum(const uint8_t* ip, uint32_t bytes) {
  uint32_t sum = 0;
  for (uint32_t i = 0; i + 1 < bytes; i += 2) sum += be16(ip + i);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

VxlanArpFrame refused(VarpCounterId id, const char* why) {
  VxlanArpFrame f;
  f.drop = id;
  f.why = why;
  return f;
}

}  // namespace

VxlanArpFrame checkVxlanArpFrame(uint8_t* frame, uint32_t len, uint16_t udpPort) {
  constexpr const char* kShort = " length shorter than vxlan ARP packet";
  if (len < 14) return refused(VarpCounterId::rxTooShort, " length shorter than EthHdr");
  if (be16(frame + 12) != kVxlanArpType) {
    return refused(VarpCounterId::rxBadType, " not a VELTRA_VXLAN_ARP pkt");
  }
  frame[12] = 0x81;
  frame[13] = 0x00;
  // The tags, each read only when the bytes are there.
  if (len < 18) return refused(VarpCounterId::rxTooShort, kShort);
  VxlanArpFrame f;
  uint16_t type = be16(frame + 16);
  uint32_t l2Len = 18;
  if (type == 0x8100) {
    if (len < 22) return refused(VarpCounterId::rxTooShort, kShort);
    f.pktVlan = Bridging::VlanIdOrNone(be16(frame + 18) & 0x0fff).value();
    type = be16(frame + 20);
    l2Len = 22;
    if (type == 0x8100) {
      if (len < 26) return refused(VarpCounterId::rxTooShort, kShort);
      type = be16(frame + 24);
      l2Len = 26;
    }
  }
  if (type != 0x0800) return refused(VarpCounterId::rxNotIp, " not an IP pkt");
  if (l2Len + kVxlanArpMinBehindL2 > len) return refused(VarpCounterId::rxTooShort, kShort);
  const uint8_t* ip = frame + l2Len;
  const uint32_t ipLen = (ip[0] & 0x0f) * 4u;
  // Options push everything behind them further on: the headers must still fit.
  if (ipLen < 20 || l2Len + ipLen + (kVxlanArpMinBehindL2 - 20) > len) {
    return refused(VarpCounterId::rxTooShort, kShort);
  }
  if (ipv4HeaderSum(ip, ipLen) != 0) {
    return refused(VarpCounterId::rxBadIpChecksum, " invalid IP checksum");
  }
  if (ip[9] != 17) return refused(VarpCounterId::rxNotUdp, " not a udp pkt");
  const uint8_t* udp = ip + ipLen;
  if (be16(udp + 2) != udpPort) return refused(VarpCounterId::rxNotVxlan, " not a vxlan pkt");
  const uint8_t* vxlan = udp + 8;
  if ((vxlan[0] & 0x08) == 0) {
    return refused(VarpCounterId::rxVniNotValid, " vniValid bit is not set");
  }
  f.ok = true;
  f.ipOffset = l2Len;
  f.vxlanOffset = static_cast<uint32_t>(vxlan - frame);
  return f;
}

}  // namespace Vxlan
