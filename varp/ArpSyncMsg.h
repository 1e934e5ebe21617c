// Vxlan::ArpSyncMsg: the message that tells the MLAG peer of an ARP entry, sent in a
// UDP datagram from port 51023 to port 51023 of the peer.
//
//   0       2      4        6         12                          32
//   | type  | len  | vlanId | macAddr | ipAddr (IpGenAddr, 20 bytes) | carried frame
//
// type 0 (arpInfoType) is the entry alone, len 32; type 1 (arpReplyPktType) carries
// the Ethernet frame of an ARP reply behind the head, len 32 plus the frame. The
// 16-bit fields are big-endian; ipAddr is the 20-byte value of Wire::IpGenAddr as it
// is held in memory (its family word, then 16 address bytes): both peers run the same
// build, which is all the field promises.
//
// Vxlan::ArpSyncMsgWrapper is a view of such a message at an offset in a packet;
// building one on a packet that is shorter than the message first takes head room
// for it.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/core/Ptr.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IpAddr.h"
#include "platform/types/NetInt.h"
#include "platform/wire/Pkt.h"

namespace Vxlan {

struct ArpSyncMsg {
  static constexpr uint16_t arpInfoType = 0;
  static constexpr uint16_t arpReplyPktType = 1;
  static constexpr uint16_t kPort = 51023;

  Wire::NetU16 type;
  Wire::NetU16 len;
  Wire::NetU16 vlanId;
  Wire::EthAddr macAddr;
  uint8_t ipAddrBytes[sizeof(Wire::IpGenAddr)];

  Wire::IpGenAddr ipAddr() const {
    Wire::IpGenAddr a;
    std::memcpy(&a, ipAddrBytes, sizeof a);
    return a;
  }
  void ipAddrIs(const Wire::IpGenAddr& a) { std::memcpy(ipAddrBytes, &a, sizeof a); }
};
static_assert(sizeof(ArpSyncMsg) == 32 && alignof(ArpSyncMsg) == 1);

inline constexpr uint32_t kArpSyncMsgBytes = sizeof(ArpSyncMsg);
// The shortest frame a type-1 message may carry: an ARP reply, Ethernet and ARP.
inline constexpr uint32_t kArpReplyFrameBytes = 14 + 28;

// How a received message reads: usable, or why not. Only the length decides here; a
// usable message may still name a VLAN out of range or an unknown type.
enum class ArpSyncMsgCheck { ok, tooShort, frameTooShort };
ArpSyncMsgCheck checkArpSyncMsg(const uint8_t* bytes, uint32_t len);

class ArpSyncMsgWrapper : public Lum::VFPtrInterface {
 public:
  ArpSyncMsgWrapper(const Lum::Ptr<Wire::Pkt>& pkt, uint32_t offset, uint32_t arpPktLen);

  const Lum::Ptr<Wire::Pkt>& pkt() const { return pkt_; }
  uint32_t offset() const { return offset_; }
  uint32_t arpPktLen() const { return arpPktLen_; }
  ArpSyncMsg* arpSyncMsg() const { return arpSyncMsg_; }

 private:
  void handleArpSyncMsg();

  Lum::Ptr<Wire::Pkt> pkt_;
  uint32_t offset_;
  uint32_t arpPktLen_;
  ArpSyncMsg* arpSyncMsg_ = nullptr;
};

Lum::Ptr<ArpSyncMsgWrapper> arpSyncMsgWrapperFactory(const Lum::Ptr<Wire::Pkt>& pkt,
                                                     uint32_t offset, uint32_t arpPktLen);

}  // namespace Vxlan
