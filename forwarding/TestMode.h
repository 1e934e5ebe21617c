// The load-time switches of the two forwarding directions, read once when the
// program is loaded. Test modes: VXLAN_R2L_TEST and VXLAN_L2R_TEST make them true when present at
// all, whatever their value. In test mode a direction exchanges frames over Unix datagram sockets
// with paths named by the process id instead of raw sockets on devices.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

namespace Vxlan {

extern const bool R2L_TEST;
extern const bool L2R_TEST;
// How the frame loops read and write, chosen when the program is loaded from
// VXRELAY_FRAME_MODE (README, "Frame modes"):
//   batch     (the default, also when unset) frames read from a memory-mapped receive
//             ring and written many to a system call, each still through the same
//             per-frame function, counters, traces and time budget;
//   single    one read and one write system call per frame;
//   filtered  batch, and the kernel drops before the remote-to-local socket what the
//             frame path would filter, so those frames are counted nowhere.
enum class FrameMode { batch, single, filtered };
extern const FrameMode FRAME_MODE;
// The mode that `text` names; `known` false (and batch) for any other text.
FrameMode frameModeOf(const char* text, bool& known);
// The name of `mode`, as VXRELAY_FRAME_MODE takes it.
const char* frameModeName(FrameMode mode);

// The Unix address of a test-mode socket: `format` with the process id for its "%d",
// cut to the 108-byte path field. Returns the address length, the whole structure
// (110): the peers that read these sockets expect that length.
socklen_t testModeAddress(sockaddr_un& addr, const char* format);

}  // namespace Vxlan
