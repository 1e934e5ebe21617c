#include "varp/LocalSend.h"

#include <cerrno>

#include "frames/Decap.h"
#include "frames/VxlanHdr.h"
#include "platform/os/SysCalls.h"
#include "platform/trace/RingLog.h"
#include "platform/trace/Trace.h"
#include "varp/VarpTrace.h"

namespace Vxlan {

namespace {

HwPortId cpuSourcePortId(const LocalSendContext& vti) {
  if (!vti.vxHwStatusDir) return HwPortId::unknown();
  const Lum::Ptr<const VxlanHwStatus> hw = vti.vxHwStatusDir->vxlanHwStatus(vti.intfId);
  return hw ? hw->cpuSourcePortId() : HwPortId::unknown();
}

void count(const LocalSendContext& vti, VarpCounterId id) {
  if (vti.counters) vti.counters->varpCounterAdd(id);
}

}  // namespace

void decapAndSendLocal(const LocalSendContext& vti, const Lum::Ptr<Wire::Pkt>& pkt,
                       uint8_t* vxlanHdr, Bridging::VlanIdOrNone vlanId) {
  if (vlanId.value() == 0) Lum::throwRangeException("vlanId != 0");
  const HwPortId portId = cpuSourcePortId(vti);
  uint8_t* inner = vxlanHdr + Wire::kVxlanHdrLen;
  uint8_t* buf = pkt->data();
  const uint32_t innerLen = pkt->bytes() - static_cast<uint32_t>(inner - buf);
  const bool txRaw =
      vti.bridgingHwCapabilities && vti.bridgingHwCapabilities->vxlanTxRawSupported();
  int32_t added;
  if (txRaw) {
    added = prependDecapHdrForTxRaw(inner, innerLen, buf, nullptr, 0, portId, vlanId);
    count(vti, VarpCounterId::decapTxRawHdr);
  } else {
    added = prependDecapHdrForFabric(inner, innerLen, buf, buf, static_cast<uint32_t>(inner - buf),
                                     portId, vlanId);
    count(vti, VarpCounterId::decapFabricHdr);
  }
  if (added < 0) {
    VARP_TRACE(0, " header prepend failed");
    RINGLOG(0, " header prepend failed");
    count(vti, VarpCounterId::decapPrependErrors);
    return;
  }
  // The frame now starts `added` bytes before the inner frame; what lies in front of
  // it leaves the packet ("fabric": nothing does).
  pkt->delSharedHeadData(static_cast<uint32_t>(inner - added - buf));
  const char* device = txRaw ? kTxRawDevice : kFabricDevice;
  VARP_TRACE(7, " sending " << pkt->bytes() << " bytes to " << device << " device with portId "
                            << portId.value());
  RINGLOG(7, " sending %u bytes to %s device with portId %u", pkt->bytes(), device,
          static_cast<unsigned>(portId.value()));
  bool sent = false;
  int err = ENETDOWN;  // no send PAM
  const unsigned ifIndex = Lum::sysCalls().ifNameToIndex(device);
  if (ifIndex == 0) {
    err = errno;
  } else if (vti.rawTxPam) {
    sent = vti.rawTxPam->sendPktToIfIndex(pkt, static_cast<int>(ifIndex));
    err = errno;
  }
  if (sent) {
    count(vti, VarpCounterId::decapTxPkts);
    return;
  }
  VARP_TRACE(0, " sendPkt to dev " << device << " failed with errno " << err);
  RINGLOG(0, " sendPkt to dev %s failed with errno %d", device, err);
  count(vti, VarpCounterId::decapTxErrors);
}

}  // namespace Vxlan
