// Binding a packet socket to one device, as both forwarding directions do: by index,
// for all protocols. A socket without a device index is bound with protocol 0, which
// leaves it deaf until it is rebuilt for the device: bound to index 0 with a protocol
// it would hear that protocol on every interface.
#pragma once

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <cstring>

#include "platform/os/SysCalls.h"

namespace Vxlan {

inline int bindToDevice(Lum::SysCalls& sys, int sock, int ifindex) {
  sockaddr_ll ll;
  std::memset(&ll, 0, sizeof ll);
  ll.sll_family = AF_PACKET;
  ll.sll_protocol = ifindex > 0 ? htons(ETH_P_ALL) : 0;
  ll.sll_ifindex = ifindex;
  return sys.bind(sock, reinterpret_cast<const sockaddr*>(&ll), sizeof ll);
}

}  // namespace Vxlan
