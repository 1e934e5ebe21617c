// The text trace of virtual ARP. Its facility is "VirtualArpSm" and every line begins
// "VarpSm(<intfId>)::<function>", in the form of the forwarders' lines, so that one
// filter of the operators' finds the lines of a VTI on every side.
#pragma once

#include "platform/trace/Trace.h"

namespace Vxlan {

inline Lum::TraceFacility& varpTrace = Lum::traceFacility("VirtualArpSm");

}  // namespace Vxlan

// Inside code that has the VTI's context as `vti` (its intfId names the line).
#define VARP_TRACE(level, message)     \
  LUM_TRACE(::Vxlan::varpTrace, level, \
            "VarpSm(" << vti.intfId << ")::" << LUM_TRACE_FUNCTION << message)

// Inside a member of the per-VTI machine (it names `intfId_`).
#define VTI_TRACE(level, message)      \
  LUM_TRACE(::Vxlan::varpTrace, level, \
            "VarpSm(" << intfId_ << ")::" << LUM_TRACE_FUNCTION << message)
