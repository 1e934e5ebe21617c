// Arp::ipNeighAdd: writes an IPv4 neighbor entry into the kernel's table through an
// rtnetlink socket (Wire::createNetlinkSocket), in that socket's namespace.
//
//   int rc = Arp::ipNeighAdd(fd, ifindex, ip, mac, Arp::NeighState(2));
//   if (rc < 0) ... strerror(-rc) ...
//
// The entry is added or replaced (NLM_F_CREATE | NLM_F_REPLACE) with the given state;
// the state values are the kernel's NUD_* bits, so 2 is a reachable entry. The call
// waits for the kernel's acknowledgement and returns 0, or the negative errno of the
// kernel's answer or of the failed send or read (-EAGAIN when no answer came in the
// socket's wait). Answers to earlier requests that came too late are skipped.
#pragma once

#include <cstdint>

#include "platform/types/EthAddr.h"
#include "platform/types/IpAddr.h"

namespace Arp {

enum class NeighState : uint16_t {};
inline constexpr NeighState kNeighReachable{2};

int ipNeighAdd(int netlinkSocket, int ifindex, Wire::IpAddr ip, Wire::EthAddr mac,
               NeighState state);

}  // namespace Arp
