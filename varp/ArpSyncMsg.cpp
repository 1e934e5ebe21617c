#include "varp/ArpSyncMsg.h"

namespace Vxlan {

ArpSyncMsgCheck checkArpSyncMsg(const uint8_t* bytes, uint32_t len) {
  if (len < kArpSyncMsgBytes) return ArpSyncMsgCheck::tooShort;
  const auto* msg = reinterpret_cast<const ArpSyncMsg*>(bytes);
  if (msg->type.value() == ArpSyncMsg::arpReplyPktType &&
      len - kArpSyncMsgBytes < kArpReplyFrameBytes) {
    return ArpSyncMsgCheck::frameTooShort;
  }
  return ArpSyncMsgCheck::ok;
}

ArpSyncMsgWrapper::ArpSyncMsgWrapper(const Lum::Ptr<Wire::Pkt>& pkt, uint32_t offset,
                                     uint32_t arpPktLen)
    : pkt_(Lum::validPtr(pkt)), offset_(offset), arpPktLen_(arpPktLen) {
  handleArpSyncMsg();
}

void ArpSyncMsgWrapper::handleArpSyncMsg() {
  if (arpPktLen_ > pkt_->bytes()) pkt_->newSharedHeadData(arpPktLen_);
  arpSyncMsg_ = reinterpret_cast<ArpSyncMsg*>(pkt_->data() + offset_);
}

Lum::Ptr<ArpSyncMsgWrapper> arpSyncMsgWrapperFactory(const Lum::Ptr<Wire::Pkt>& pkt,
                                                     uint32_t offset, uint32_t arpPktLen) {
  return new ArpSyncMsgWrapper(pkt, offset, arpPktLen);
}

}  // namespace Vxlan
