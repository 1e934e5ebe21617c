// The receive path of ARP reply replication: one packet that an interface's filter let
// through, per readable notification. A well-formed reply is handed to every VTI that
// is up: to the MLAG peer always, then into the overlay, or into the ARP cache when it
// is addressed to the switch's own bridge MAC. The VLAN is always the interface's.
#include <cstdio>
#include <string>

#include "frames/EthHdr.h"
#include "platform/trace/RingLog.h"
#include "varp/ArpReplyIpIntfStatus.h"
#include "varp/VarpTrace.h"
#include "varp/VirtualArpSm.h"

namespace Vxlan {

using Sm = ArpReplyReplicationVrfSm::LumIpIntfStatus;

namespace {

constexpr uint32_t kTagLen = 4;
constexpr uint32_t kArpLen = 28;

uint16_t be16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

ArpReplyFrame refused(VarpCounterId id, const char* why, bool dump) {
  return ArpReplyFrame{false, 0, id, why, dump};
}

// The packet's bytes in hex, 16 to a line, for the trace at level 9.
std::string hexDump(const uint8_t* data, uint32_t len) {
  std::string text;
  char byte[4];
  for (uint32_t i = 0; i < len; ++i) {
    std::snprintf(byte, sizeof byte, i % 16 == 15 ? "%02x\n" : "%02x ", data[i]);
    text += byte;
  }
  return text;
}

}  // namespace

ArpReplyFrame checkArpReplyFrame(const uint8_t* data, uint32_t len) {
  if (!data || len < Wire::kEthHdrLen) {
    return refused(VarpCounterId::rxTooShort, " length shorter than EthHdr", true);
  }
  // Up to two tags are skipped (each read only when the frame holds it); a third
  // leaves 0x8100 where the type should be.
  uint32_t offset = Wire::kEthHdrLen;
  uint16_t type = be16(data + 12);
  for (int tags = 0; tags < 2 && type == Wire::kEthTypeDot1q && len >= offset + kTagLen; ++tags) {
    type = be16(data + offset + 2);  // behind the tag's control word
    offset += kTagLen;
  }
  if (type != Wire::kEthTypeArp) return refused(VarpCounterId::rxBadType, " not an ARP pkt", true);
  if (offset + kArpLen > len) {
    return refused(VarpCounterId::rxBadArpHeader, " malformed ARP pkt", true);
  }
  const auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(data + offset);
  if (!arp->isEthernetIpv4())
    return refused(VarpCounterId::rxBadArpHeader, " invalid arp hdr", false);
  if (arp->op.value() != Wire::EthArpIpHdr::kOpReply) {
    return refused(VarpCounterId::rxNotArpReply, " not an arp reply", false);
  }
  return ArpReplyFrame{true, offset, VarpCounterId::rxTooShort, "", false};
}

void Sm::handleArpReplyRxReadable() {
  LUM_TRACE(varpTrace, 8,
            "ArpReplyReplicationVrfSm::LumIpIntfStatus::handleArpReplyRxReadable"
                << " intfId " << intfId_);
  RINGLOG(8, "handleArpReplyRxReadable %s", intfId_.stringValue().charPtr());
  if (!arpReplyRxPam_ || !arpReplyRxPamReactor_) {
    LUM_TRACE(varpTrace, 6, " arpReplyRxPam is NULL");
    RINGLOG(6, " arpReplyRxPam is NULL");
    return;
  }
  if (const Lum::Ptr<Wire::Pkt> pkt = arpReplyRxPam_->rxPkt()) handleArpReplyPkt(pkt);
}

void Sm::handleArpReplyPkt(const Lum::Ptr<Wire::Pkt>& pkt) {
  const ArpReplyFrame f = checkArpReplyFrame(pkt->data(), pkt->bytes());
  if (!f.ok) {
    LUM_TRACE(varpTrace, 0,
              "ArpReplyReplicationVrfSm::LumIpIntfStatus::" << LUM_TRACE_FUNCTION << f.why);
    RINGLOG(0, "handleArpReplyRxReadable%s", f.why);
    varpCounterInc(f.drop);
    if (f.dump) LUM_TRACE(varpTrace, 9, hexDump(pkt->data(), pkt->bytes()));
    return;
  }
  VirtualArpSm* varp = owner_ ? owner_->virtualArpSm() : nullptr;
  if (!varp) return;
  const Bridging::Config* bridging = varp->inputs().bridgingConfig.ptr();
  const Wire::EthAddr bridgeMac = bridging ? bridging->bridgeMacAddr() : Wire::EthAddr();
  const auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(pkt->data() + f.arpOffset);
  for (auto it = varp->vtiStatusSmIterator(); it; ++it) {
    if (!it->operUp()) continue;
    varpCounterInc(VarpCounterId::replicatedReplyRx);
    const Bridging::VlanIdOrNone vlan(vlanId_);
    it->syncArpEntryToPeer(vlan, *arp, pkt);
    const Wire::EthAddr targetMac = arp->targetHw;
    if (targetMac != bridgeMac) {
      it->rewriteAndSendArpReplyPkt(pkt, vlan, f.arpOffset, true);
      continue;
    }
    LUM_TRACE(varpTrace, 8,
              " Adding ARP entry for " << arp->targetIp() << " as the dst MAC is bridgeMacAddr "
                                       << targetMac);
    RINGLOG(8, " Adding ARP entry for %08x as the dst MAC is bridgeMacAddr",
            arp->targetIp().value());
    it->updateArpCache(*arp, targetMac, vlan);
  }
}

}  // namespace Vxlan
