#include "frames/Decap.h"

#include <cstring>

#include "frames/VxlanHdr.h"
#include "platform/trace/RingLog.h"
#include "platform/trace/Trace.h"

namespace Vxlan {

namespace {
// The prepend functions serve the virtual ARP side and trace in its facility.
Lum::TraceFacility& trace = Lum::traceFacility("VirtualArpSm");

// Writes the MAC bytes (already at `frame`) and the f64 header of a "txraw" frame.
void fillTxRaw(uint8_t* frame, uint16_t vlan, HwPortId portId) {
  f64* h = Wire::hdrAt<f64>(frame + Wire::kEthMacBytes);
  h->tag.valueIs(kTxRawTag);
  h->vlan.valueIs(vlan);
  h->glort.valueIs(portId.value());
  h->reserved.valueIs(0);
}
}  // namespace

void decapInPlaceForTxRaw(uint8_t* vxlan, Bridging::VlanId vlan, HwPortId portId) {
  Wire::moveMacAddrs(vxlan, vxlan + Wire::kVxlanHdrLen);
  fillTxRaw(vxlan, vlan.value(), portId);
}

int32_t prependDecapHdrForTxRaw(uint8_t* pkt, uint32_t, uint8_t* buf, const uint8_t*, uint32_t,
                                HwPortId portId, Bridging::VlanIdOrNone vlan) {
  if (portId.isUnknown()) {
    LUM_TRACE(trace, 0, " portId is not available");
    RINGLOG(0, " portId is not available");
    return -1;
  }
  // The space in front of the inner frame is the distance from the buffer start; with
  // at least 8 bytes there the new frame start (pkt - 8) cannot fall before `buf`.
  if (pkt < buf || static_cast<size_t>(pkt - buf) < sizeof(f64)) {
    LUM_TRACE(trace, 0, "space >= sizeof( struct f64 )");
    RINGLOG(0, "space >= sizeof( struct f64 )");
    return -1;
  }
  uint8_t* frame = pkt - sizeof(f64);
  Wire::moveMacAddrs(frame, pkt);
  fillTxRaw(frame, vlan.value(), portId);
  return sizeof(f64);
}

int32_t prependDecapHdrForFabric(uint8_t* pkt, uint32_t, uint8_t* buf, const uint8_t* hdr,
                                 uint32_t hdrLen, HwPortId, Bridging::VlanIdOrNone) {
  if (pkt < buf || static_cast<size_t>(pkt - buf) < hdrLen) {
    LUM_TRACE(trace, 0, "pkt >= buf");
    RINGLOG(0, "pkt >= buf");
    return -1;
  }
  uint8_t* start = pkt - hdrLen;
  // The usual caller hands the received headers, which already stand there.
  if (start != hdr) std::memmove(start, hdr, hdrLen);
  return static_cast<int32_t>(hdrLen);
}

}  // namespace Vxlan
