#include "frames/ArpPkt.h"

#include "frames/EthArpIpHdr.h"
#include "frames/EthHdr.h"

namespace Arp {

Lum::Ptr<Wire::Pkt> makeArpPkt(Wire::EthAddr ethDst, Wire::EthAddr ethSrc, uint16_t op,
                               Wire::EthAddr senderMac, Wire::IpAddr senderIp,
                               Wire::EthAddr targetMac, Wire::IpAddr targetIp) {
  Lum::Ptr<Wire::Pkt> pkt = Wire::globalPktManager().newPkt();
  if (!pkt) return pkt;
  pkt->newSharedHeadData(kArpFrameBytes);
  auto* eth = Wire::hdrAt<Wire::EthHdr>(pkt->data());
  eth->dst = ethDst;
  eth->src = ethSrc;
  eth->typeOrLen = Wire::NetU16::fromHost(Wire::kEthTypeArp);
  auto* arp = Wire::hdrAt<Wire::EthArpIpHdr>(pkt->data() + Wire::kEthHdrLen);
  arp->hwType = Wire::NetU16::fromHost(Wire::EthArpIpHdr::kHwEthernet);
  arp->protoType = Wire::NetU16::fromHost(Wire::kEthTypeIpv4);
  arp->hwLen = 6;
  arp->protoLen = 4;
  arp->op = Wire::NetU16::fromHost(op);
  arp->senderHw = senderMac;
  arp->senderIpIs(senderIp);
  arp->targetHw = targetMac;
  arp->targetIpIs(targetIp);
  return pkt;
}

}  // namespace Arp
