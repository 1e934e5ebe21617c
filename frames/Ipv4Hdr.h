// IPv4 and UDP headers as this system reads and writes them.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/types/IpAddr.h"
#include "platform/types/NetInt.h"

namespace Wire {

inline constexpr uint8_t kIpProtoUdp = 17;

//   0        1     2        4    6          8    9      10     12     16     20
//   | verIhl | tos | totLen | id | fragOff  | ttl | proto | check | saddr | daddr | options
struct Ipv4Hdr {
  uint8_t verIhl;
  uint8_t tos;
  NetU16 totLen;
  NetU16 id;
  NetU16 fragOff;
  uint8_t ttl;
  uint8_t protocol;
  NetU16 check;
  uint8_t saddrBytes[4];
  uint8_t daddrBytes[4];

  // Header length in bytes, options included: 4 times the low nibble of byte 0.
  uint32_t headerLen() const { return 4u * (verIhl & 0x0fu); }
  // Addresses in network order, so that they compare with Wire::IpAddr word for word.
  IpAddr saddr() const { return IpAddr::fromNetworkOrder(load(saddrBytes)); }
  IpAddr daddr() const { return IpAddr::fromNetworkOrder(load(daddrBytes)); }
  void saddrIs(IpAddr a) { store(saddrBytes, a.value()); }
  void daddrIs(IpAddr a) { store(daddrBytes, a.value()); }

 private:
  static uint32_t load(const uint8_t (&b)[4]) {
    uint32_t w;
    std::memcpy(&w, b, 4);
    return w;
  }
  static void store(uint8_t (&b)[4], uint32_t w) { std::memcpy(b, &w, 4); }
};
static_assert(sizeof(Ipv4Hdr) == 20 && alignof(Ipv4Hdr) == 1);

struct UdpHdr {
  NetU16 srcPort;
  NetU16 dstPort;
  NetU16 len;
  NetU16 check;
};
static_assert(sizeof(UdpHdr) == 8 && alignof(UdpHdr) == 1);

}  // namespace Wire
