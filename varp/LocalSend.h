// Vxlan::decapAndSendLocal: hands a VXLAN ARP packet that this switch neither answers
// nor consumes on to the local switch.
//
// Hardware that takes a transmit header gets the inner frame behind the "txraw"
// header (the inner MACs move 8 bytes forward over the VXLAN header, the packet's
// head moves over everything in front), on the device "txraw"; other hardware gets the
// whole received packet, outer headers in place, on the device "fabric". The device
// is looked up by name at each send, so one that comes and goes needs no state here.
// Nothing is copied but the 12 MAC bytes.
//
// The per-VTI machine of virtual ARP calls it with what it holds: the VTI, the
// hardware status directory (its cpuSourcePortId, 0xFFFF when unknown), the switch's
// capabilities (vxlanTxRawSupported), its raw send PAM and the counter table.
#pragma once

#include <cstdint>

#include "agent/VxlanAgentCounter.h"
#include "platform/status/StatusModel.h"
#include "platform/types/IntfId.h"
#include "platform/types/VlanId.h"
#include "platform/wire/Pkt.h"
#include "platform/wire/RawTxPam.h"

namespace Vxlan {

struct LocalSendContext {
  Wire::IntfId intfId;
  const VxlanHwStatusDir* vxHwStatusDir = nullptr;
  const Bridging::HwCapabilities* bridgingHwCapabilities = nullptr;
  Wire::RawTxPam* rawTxPam = nullptr;
  VxlanAgentCounter* counters = nullptr;
};

// The device names are the switch's own and stay as they stand.
inline constexpr const char* kTxRawDevice = "txraw";
inline constexpr const char* kFabricDevice = "fabric";

// `pkt` starts at the outer Ethernet header; `vxlanHdr` points at the VXLAN header
// inside it; `vlanId` is the VLAN the caller settled (not 0).
void decapAndSendLocal(const LocalSendContext& vti, const Lum::Ptr<Wire::Pkt>& pkt,
                       uint8_t* vxlanHdr, Bridging::VlanIdOrNone vlanId);

}  // namespace Vxlan
