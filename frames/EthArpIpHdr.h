// ARP for Ethernet and IPv4 (RFC 826), directly behind the Ethernet header and tag.
//
//   0      2      4      5      6    8     14    18    24    28
//   | htype | ptype | hlen | plen | op | sha | spa | tha | tpa |
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/types/EthAddr.h"
#include "platform/types/IpAddr.h"
#include "platform/types/NetInt.h"

namespace Wire {

struct EthArpIpHdr {
  static constexpr uint16_t kHwEthernet = 1;
  static constexpr uint16_t kOpRequest = 1;
  static constexpr uint16_t kOpReply = 2;

  NetU16 hwType;
  NetU16 protoType;
  uint8_t hwLen;
  uint8_t protoLen;
  NetU16 op;
  EthAddr senderHw;
  uint8_t senderIpBytes[4];
  EthAddr targetHw;
  uint8_t targetIpBytes[4];

  IpAddr senderIp() const { return load(senderIpBytes); }
  IpAddr targetIp() const { return load(targetIpBytes); }
  void senderIpIs(IpAddr a) { store(senderIpBytes, a); }
  void targetIpIs(IpAddr a) { store(targetIpBytes, a); }
  // Ethernet hardware and IPv4 protocol addresses of the usual lengths.
  bool isEthernetIpv4() const {
    return hwType.value() == kHwEthernet && protoType.value() == 0x0800 && hwLen == 6 &&
           protoLen == 4;
  }

 private:
  static IpAddr load(const uint8_t (&b)[4]) {
    uint32_t w;
    std::memcpy(&w, b, 4);
    return IpAddr::fromNetworkOrder(w);
  }
  static void store(uint8_t (&b)[4], IpAddr a) {
    uint32_t w = a.value();
    std::memcpy(b, &w, 4);
  }
};
static_assert(sizeof(EthArpIpHdr) == 28 && alignof(EthArpIpHdr) == 1);
static_assert(offsetof(EthArpIpHdr, senderIpBytes) == 14 && offsetof(EthArpIpHdr, targetHw) == 18 &&
              offsetof(EthArpIpHdr, targetIpBytes) == 24);

}  // namespace Wire
