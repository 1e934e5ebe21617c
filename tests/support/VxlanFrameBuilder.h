// Builds VXLAN datagrams as a packet socket delivers them, field by field, and the
// "txraw" frames the agent must make of them, for tests. Bytes are written out here,
// not taken from the agent's own headers, so that a wrong constant there shows.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/types/HwPortId.h"
#include "platform/types/VlanId.h"

namespace TestSupport {

// Appends a number in network order.
inline void push16(std::vector<uint8_t>& f, uint16_t v) {
  f.push_back(static_cast<uint8_t>(v >> 8));
  f.push_back(static_cast<uint8_t>(v));
}
inline void push16(std::vector<uint8_t>& f, std::initializer_list<uint16_t> vs) {
  for (uint16_t v : vs) push16(f, v);
}
inline void push32(std::vector<uint8_t>& f, uint32_t v) {
  push16(f, static_cast<uint16_t>(v >> 16));
  push16(f, static_cast<uint16_t>(v));
}

// The bytes as plain lower-case hex, as the packet trace writes and takes them.
inline std::string hexOf(const std::vector<uint8_t>& f) {
  std::string s;
  for (uint8_t b : f) s += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 0xf]};
  return s;
}

struct VxlanFrameBuilder {
  bool tagged = false;          // one 802.1Q tag on the outer frame
  uint16_t outerVlan = 7;       // VLAN of that tag
  uint16_t ethType = 0x0800;    // outer Ethernet type behind the tag
  uint8_t ipHdrWords = 5;       // IPv4 header length in 32-bit words (options when > 5)
  uint32_t saddr = 0x0a000002;  // outer source, host order (10.0.0.2)
  uint32_t daddr = 0x0a000001;  // outer destination, host order (10.0.0.1)
  uint16_t dport = 4789;        // UDP destination port
  uint8_t vxlanFlags = 0x08;    // VNI-valid flag set
  uint32_t vni = 5000;          // 24-bit VNI
  std::vector<uint8_t> inner = defaultInner();  // inner Ethernet frame

  // An inner frame: dst 02:00:00:00:00:01, src 02:00:00:00:00:02, IPv4, then a
  // counting payload.
  static std::vector<uint8_t> defaultInner(size_t payload = 32) {
    std::vector<uint8_t> f = {0x02, 0, 0, 0, 0, 0x01, 0x02, 0, 0, 0, 0, 0x02, 0x08, 0x00};
    for (size_t i = 0; i < payload; ++i) f.push_back(static_cast<uint8_t>(i));
    return f;
  }

  size_t vxlanOffset() const { return 14u + (tagged ? 4u : 0u) + ipHdrWords * 4u + 8u; }

  std::vector<uint8_t> build() const {
    std::vector<uint8_t> f = {0x00, 0x1c, 0x73, 0, 0, 0x01,   // outer dst
                              0x00, 0x1c, 0x73, 0, 0, 0x02};  // outer src
    if (tagged) push16(f, {0x8100, outerVlan});
    push16(f, ethType);
    const size_t ipStart = f.size();
    f.push_back(static_cast<uint8_t>(0x40 | ipHdrWords));  // version 4, IHL
    f.push_back(0);                                        // tos
    push16(f, {0, 0, 0x4000});  // total length (not examined), id, don't fragment
    f.push_back(64);            // ttl
    f.push_back(17);            // UDP
    push16(f, 0);               // checksum: not examined
    push32(f, saddr);
    push32(f, daddr);
    while (f.size() < ipStart + ipHdrWords * 4u) f.push_back(0x01);  // options: NOPs
    // UDP source port, destination port, length and checksum.
    push16(f, {0xc000, dport, static_cast<uint16_t>(8 + 8 + inner.size()), 0});
    f.push_back(vxlanFlags);
    f.insert(f.end(), {0, 0, 0});
    push16(f, static_cast<uint16_t>(vni >> 8));
    f.push_back(static_cast<uint8_t>(vni));
    f.push_back(0);
    f.insert(f.end(), inner.begin(), inner.end());
    return f;
  }
};

// The "txraw" frame of an inner Ethernet frame: its MAC addresses, then tag 0x0008,
// the VLAN, the port id (glort) and two zero bytes, then the inner frame from its
// Ethernet type on.
inline std::vector<uint8_t> txRawFrame(const std::vector<uint8_t>& inner, Bridging::VlanId vlan,
                                       Vxlan::HwPortId glort) {
  std::vector<uint8_t> f(inner.begin(), inner.begin() + 12);
  push16(f, {0x0008, vlan.value(), glort.value(), 0});
  f.insert(f.end(), inner.begin() + 12, inner.end());
  return f;
}

// The local frame that the forwarding plane hands to the agent on "vxlan" for a user
// frame: its MAC addresses, the type field (0x0041 high, 0x0033 low), the flags, the
// 32-bit VLAN and source interface index, then the user frame from its type on.
inline std::vector<uint8_t> localFrame(const std::vector<uint8_t>& user, uint16_t type,
                                       uint16_t flags, uint32_t vlan, uint32_t srcIfIndex = 0) {
  std::vector<uint8_t> f(user.begin(), user.begin() + 12);
  push16(f, {type, flags});
  push32(f, vlan);
  push32(f, srcIfIndex);
  f.insert(f.end(), user.begin() + 12, user.end());
  return f;
}

}  // namespace TestSupport
