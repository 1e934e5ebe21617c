// The test modes of the two forwarding directions, read once when the program is
// loaded: VXLAN_R2L_TEST and VXLAN_L2R_TEST make them true when present at all,
// whatever their value. In test mode a direction exchanges frames over Unix datagram
// sockets with paths named by the process id instead of raw sockets on devices.
#pragma once

namespace Vxlan {

extern const bool R2L_TEST;
extern const bool L2R_TEST;

}  // namespace Vxlan
