// Drops the IPv4 UDP datagrams for one address and port as a device takes them in,
// after the device's packet sockets have had their copy and before the kernel's IP
// input: a datagram that a packet socket reads and nothing else wants then costs the
// kernel no route lookup, no UDP lookup and no answer.
//
// A classifier program at the device's traffic-control ingress, held by a BPF link
// (tcx, Linux 6.6 and later): it goes when the link's descriptor is closed, also when
// the process dies, so nothing is left behind on the device. It matches only plain
// datagrams (Ethernet, IPv4 without options, not a fragment); everything else, and
// everything on a kernel without BPF or tcx or a process without the privilege, takes
// the kernel's normal path, so a caller that needs the port taken keeps a socket on it.
#pragma once

#include <cstdint>

#include "platform/os/SysCalls.h"

namespace Lum {

// Attaches the drop for `addr`:`port` (both in network byte order) to the device
// `ifIndex`. Returns the link's descriptor (close it to detach), or -1 with errno set.
int attachUdpIngressDrop(SysCalls& sys, int ifIndex, uint32_t addr, uint16_t port);

// The classifier program alone, loaded and not attached (for a test run): its
// descriptor, or -1 with errno set. It answers 2 (drop) or -1 (next).
int loadUdpIngressDrop(SysCalls& sys, uint32_t addr, uint16_t port);

}  // namespace Lum
