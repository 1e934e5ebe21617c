#include "tools/fpemu/FpFrames.h"

#include <algorithm>
#include <cstring>

#include "frames/LocalFrameHdr.h"

namespace Fpemu {

namespace {

uint16_t be16(std::span<const uint8_t> f, size_t at) {
  return static_cast<uint16_t>(f[at] << 8 | f[at + 1]);
}

void put16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}

void put32(uint8_t* p, uint32_t v) {
  put16(p, static_cast<uint16_t>(v >> 16));
  put16(p + 2, static_cast<uint16_t>(v));
}

bool tagged(std::span<const uint8_t> f) {
  return f.size() >= kEthHdrLen + kTagLen && be16(f, kMacBytes) == kTpidDot1q;
}

// Copies `f` into `out` with `gap` bytes left open behind the MAC addresses (or, with a
// negative gap, that many bytes behind them left out); returns where the gap starts.
uint8_t* copyAround(std::span<const uint8_t> f, long gap, std::vector<uint8_t>& out) {
  out.resize(static_cast<size_t>(static_cast<long>(f.size()) + gap));
  std::memcpy(out.data(), f.data(), kMacBytes);
  const size_t from = gap < 0 ? kMacBytes + static_cast<size_t>(-gap) : kMacBytes;
  const size_t to = gap < 0 ? kMacBytes : kMacBytes + static_cast<size_t>(gap);
  std::memcpy(out.data() + to, f.data() + from, f.size() - from);
  return out.data() + kMacBytes;
}

}  // namespace

bool PortConfig::carries(uint16_t vlan) const {
  return std::find(vlans.begin(), vlans.end(), vlan) != vlans.end();
}

Ingress classify(const PortConfig& port, std::span<const uint8_t> frame) {
  Ingress in;
  if (frame.size() < kEthHdrLen) {
    in.drop = Drop::runt;
    return in;
  }
  const bool hasTag = tagged(frame);
  const uint16_t tagVlan = hasTag ? be16(frame, kEthHdrLen) & 0x0fff : 0;
  switch (port.mode) {
    case PortMode::access:
      in.vlan = port.vlans.front();
      // A priority tag (VLAN 0) or the port's own VLAN; any other is not this port's.
      if (hasTag && tagVlan != 0 && tagVlan != in.vlan) in.drop = Drop::vlanNotAllowed;
      in.serviceTag = hasTag;
      in.flags = hasTag ? Vxlan::LocalFrameHdr::kStripTag : 0;
      break;
    case PortMode::trunk:
      if (!hasTag || !port.carries(tagVlan)) in.drop = Drop::vlanNotAllowed;
      in.vlan = tagVlan;
      in.serviceTag = true;
      in.flags = Vxlan::LocalFrameHdr::kStripTagInTrunk;
      break;
    case PortMode::dot1qTunnel:
      in.vlan = port.vlans.front();
      in.flags = Vxlan::LocalFrameHdr::kDot1qFlag;
      break;
  }
  return in;
}

void localFrameOf(std::span<const uint8_t> frame, const Ingress& in, uint32_t ifIndex,
                  std::vector<uint8_t>& out) {
  if (frame.size() < kMacBytes) {
    out.clear();
    return;
  }
  uint8_t* hdr = copyAround(frame, static_cast<long>(kLocalHdrLen), out);
  put16(hdr, Vxlan::kEncapTypeHi);
  put16(hdr + 2, in.flags);
  put32(hdr + 4, in.vlan);
  put32(hdr + 8, ifIndex);
}

void innerOf(std::span<const uint8_t> frame, const Ingress& in, std::vector<uint8_t>& out) {
  if (in.serviceTag && tagged(frame)) {
    copyAround(frame, -static_cast<long>(kTagLen), out);
  } else {
    out.assign(frame.begin(), frame.end());
  }
}

void egressOf(const PortConfig& port, uint16_t vlan, std::span<const uint8_t> inner,
              std::vector<uint8_t>& out) {
  if (port.mode != PortMode::trunk || inner.size() < kMacBytes) {
    out.assign(inner.begin(), inner.end());
    return;
  }
  uint8_t* tag = copyAround(inner, static_cast<long>(kTagLen), out);
  put16(tag, kTpidDot1q);
  put16(tag + 2, vlan);
}

TxRaw txRawOf(std::span<const uint8_t> frame, std::vector<uint8_t>& inner) {
  TxRaw t;
  if (frame.size() < kMacBytes + kTxRawHdrLen || be16(frame, kMacBytes) != Vxlan::kTxRawTag) {
    t.drop = Drop::txRawBadHeader;
    return t;
  }
  t.vlan = be16(frame, kMacBytes + 2) & 0x0fff;
  t.portId = be16(frame, kMacBytes + 4);
  copyAround(frame, -static_cast<long>(kTxRawHdrLen), inner);
  return t;
}

bool overlayArpTrapped(std::span<const uint8_t> datagram, uint32_t vtep, uint16_t udpPort,
                       std::vector<uint8_t>& out) {
  size_t ip = kEthHdrLen;
  if (datagram.size() < kEthHdrLen) return false;
  uint16_t type = be16(datagram, kMacBytes);
  if (type == kTpidDot1q) {
    if (datagram.size() < kEthHdrLen + kTagLen) return false;
    type = be16(datagram, kMacBytes + kTagLen);
    ip += kTagLen;
  }
  if (type != 0x0800 || datagram.size() < ip + 20) return false;
  const size_t ipLen = (datagram[ip] & 0x0f) * 4u;
  const size_t vxlan = ip + ipLen + 8;
  const size_t inner = vxlan + 8;
  if (ipLen < 20 || datagram[ip + 9] != 17 || datagram.size() < inner + kEthHdrLen) return false;
  uint32_t dst;
  std::memcpy(&dst, datagram.data() + ip + 16, 4);
  if (dst != vtep || be16(datagram, ip + ipLen + 2) != udpPort) return false;
  if (be16(datagram, inner + kMacBytes) != 0x0806) return false;
  out.assign(datagram.begin(), datagram.begin() + kMacBytes);
  out.insert(out.end(), {0x00, 0x40, 0x00, 0x00});
  out.insert(out.end(), datagram.begin() + kMacBytes, datagram.end());
  return true;
}

Fabric fabricOf(std::span<const uint8_t> packet, std::vector<uint8_t>& inner) {
  size_t at = kMacBytes;
  if (packet.size() >= at + 4 && be16(packet, at) == 0x0040) at += 4;  // the trap's layout
  if (packet.size() >= at + 2 && be16(packet, at) == kTpidDot1q) at += kTagLen;
  const size_t ip = at + 2;
  if (packet.size() < ip + 20 || be16(packet, at) != 0x0800) return {Drop::fabricBadPacket};
  const size_t ipLen = (packet[ip] & 0x0f) * 4u;
  const size_t vxlan = ip + ipLen + 8;
  const size_t frame = vxlan + 8;
  if (ipLen < 20 || packet[ip + 9] != 17 || packet.size() < frame + kEthHdrLen ||
      (packet[vxlan] & 0x08) == 0) {
    return {Drop::fabricBadPacket};
  }
  inner.assign(packet.begin() + static_cast<std::ptrdiff_t>(frame), packet.end());
  return {Drop::none, static_cast<uint32_t>(packet[vxlan + 4] << 16 | packet[vxlan + 5] << 8 |
                                            packet[vxlan + 6])};
}

std::span<uint8_t> withTagRestored(std::span<uint8_t> buf, size_t len, uint16_t tpid,
                                   uint16_t tci) {
  if (len < kMacBytes) return buf.subspan(kTagLen, len);
  std::memmove(buf.data(), buf.data() + kTagLen, kMacBytes);
  put16(buf.data() + kMacBytes, tpid);
  put16(buf.data() + kMacBytes + 2, tci);
  return buf.first(len + kTagLen);
}

uint64_t macOf(const uint8_t* b) {
  uint64_t m = 0;
  for (int i = 0; i < 6; ++i) m = m << 8 | b[i];
  return m;
}

}  // namespace Fpemu
