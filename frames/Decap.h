// Turning a received VXLAN datagram into the frame that the local switch takes.
//
// "txraw" form: the inner frame's 12 MAC bytes move 8 bytes towards the buffer start,
// over the VXLAN header, and the `f64` header fills the 8 bytes behind them; the
// inner frame's Ethernet type and payload stay where they are. The frame is 8 bytes
// longer than the inner frame. "fabric" form: the received packet, outer headers and
// all, byte for byte.
//
// Nothing is copied but the 12 MAC bytes and the header written.
#pragma once

#include <cstdint>
#include <type_traits>

#include "frames/LocalFrameHdr.h"
#include "platform/types/HwPortId.h"
#include "platform/types/VlanId.h"

namespace Vxlan {

// The header carries both a VLAN and a port id: neither may pass for the other.
static_assert(!std::is_constructible_v<HwPortId, Bridging::VlanId> &&
              !std::is_constructible_v<Bridging::VlanId, HwPortId>);

// In place: `vxlan` points at the VXLAN header of a received datagram whose inner
// frame (at least its Ethernet header) follows. On return the "txraw" frame starts at
// `vxlan`; its length is the received length minus the VXLAN offset.
void decapInPlaceForTxRaw(uint8_t* vxlan, Bridging::VlanId vlan, HwPortId portId);

// Puts the "txraw" header in front of the inner frame at `pkt`, inside the buffer that
// starts at `buf`. Returns 8, the bytes put in front (the frame now starts at pkt - 8),
// or -1 when `portId` is 0xFFFF (no port known) or the space in front of `pkt` is less
// than 8 bytes. `pktLen`, `hdr` and `hdrLen` are not used by this form.
int32_t prependDecapHdrForTxRaw(uint8_t* pkt, uint32_t pktLen, uint8_t* buf, const uint8_t* hdr,
                                uint32_t hdrLen, HwPortId portId, Bridging::VlanIdOrNone vlan);

// Puts `hdrLen` bytes of `hdr` in front of `pkt`. Returns `hdrLen`, or -1 when that
// would start before `buf`. Given the received outer headers as `hdr` (buf, and the
// distance from buf to the inner frame) the packet goes out whole and unchanged.
int32_t prependDecapHdrForFabric(uint8_t* pkt, uint32_t pktLen, uint8_t* buf, const uint8_t* hdr,
                                 uint32_t hdrLen, HwPortId portId, Bridging::VlanIdOrNone vlan);

}  // namespace Vxlan
