// The text trace of the local-to-remote direction, shared by the files of
// Local2RemoteForwarderSm. Its facility is "SwForwardingSm" and every line begins
// "L2RSm(<intfId>)::<function>": both are the operators' vocabulary (their filters and
// scripts look for them) and stay as they stand.
#pragma once

#include "platform/trace/Trace.h"

namespace Vxlan::L2R {

inline Lum::TraceFacility& trace = Lum::traceFacility("SwForwardingSm");

}  // namespace Vxlan::L2R

// Inside a member of LumVtiStatusSm (it names `intfId_`).
#define L2R_TRACE(level, message) \
  LUM_TRACE(::Vxlan::L2R::trace, level, "L2RSm(" << intfId_ << ")::" << __func__ << message)
