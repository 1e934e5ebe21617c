// What virtual ARP reads from the environment, once, when the library is loaded.
#pragma once

#include <optional>

namespace Vxlan {

// PENDING_LIST_TIMELEFT: the time, in whole seconds, that a new pending list starts
// with instead of its default. A test hook; the variable's name is the operators' and
// stays as it stands. Absent (or not a number) when unset.
extern const std::optional<long> PENDING_LIST_TIMELEFT;

// VXLAN_ARP_TEST: set, the receive PAM on "vxlan" takes frames of every type, not only
// those the forwarding plane marks as ARP from the overlay. A test hook, as above.
extern const bool VXLAN_ARP_TEST;

}  // namespace Vxlan
