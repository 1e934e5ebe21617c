#include "forwarding/R2LFramePath.h"

#include "frames/Decap.h"
#include "frames/VxlanDatagram.h"

namespace Vxlan::R2L {

namespace {

Decap dropped(Drop why, uint32_t detail = 0) {
  Decap d;
  d.drop = why;
  d.detail = detail;
  return d;
}

// Step 4; the header offsets are in bounds once the length checks have passed.
bool filtered(const uint8_t* buf, uint32_t tag, const Wire::Ipv4Hdr* ip, const FrameFilter& f) {
  if (VxlanDatagram::ethType(buf, tag) != Wire::kEthTypeIpv4) return true;
  const Wire::IpAddr saddr = ip->saddr();
  const Wire::IpAddr daddr = ip->daddr();
  if (saddr == f.localVtep) return true;
  if (daddr != f.floodGroup && daddr != f.localVtep) return true;
  return VxlanDatagram::udp(buf, tag, ip->headerLen())->dstPort.value() != f.udpPort;
}

}  // namespace

Decap decapFrame(uint8_t* buf, uint32_t len, const FrameFilter& filter) {
  if (len <= Wire::kEthHdrLen) return dropped(Drop::tooShort, Wire::kEthHdrLen);
  const uint32_t tag = VxlanDatagram::tagLen(buf);
  if (len <= VxlanDatagram::kMinIpUdpLen + tag) {
    return dropped(Drop::tooShort, VxlanDatagram::kMinIpUdpLen + tag);
  }
  const Wire::Ipv4Hdr* ip = VxlanDatagram::ip(buf, tag);
  const uint32_t offset = VxlanDatagram::vxlanOffset(tag, ip->headerLen());
  if (len <= offset + VxlanDatagram::kVxlanAndInnerEthLen) {
    return dropped(Drop::empty, offset + VxlanDatagram::kVxlanAndInnerEthLen);
  }
  if (filtered(buf, tag, ip, filter)) return dropped(Drop::filtered);

  const Wire::VxlanHdr* vxlan = Wire::hdrAt<Wire::VxlanHdr>(buf + offset);
  if (!vxlan->flagsVniValid()) return dropped(Drop::badFlags, vxlan->flags);
  const uint32_t vni = vxlan->vniValue();
  const Bridging::VlanIdOrNone vlan =
      filter.vniToVlan ? (*filter.vniToVlan)(Vni(vni)) : Bridging::VlanIdOrNone();
  if (vlan.isNone()) return dropped(Drop::unknownVlan, vni);

  decapInPlaceForTxRaw(buf + offset, vlan.vlanId(), filter.portId);
  Decap d;
  d.offset = offset;
  d.length = len - offset;
  d.detail = vni;
  d.vlan = vlan;
  return d;
}

}  // namespace Vxlan::R2L
