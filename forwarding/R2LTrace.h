// The text trace of the remote-to-local direction, shared by the files of
// Remote2LocalForwarderSm. Its facility is "SwForwardingSm" and every line begins
// "R2LSm(<intfId>)::<function>": both are the operators' vocabulary (their filters and
// scripts look for them) and stay as they stand.
#pragma once

#include "platform/trace/Trace.h"

namespace Vxlan::R2L {

inline Lum::TraceFacility& trace = Lum::traceFacility("SwForwardingSm");

}  // namespace Vxlan::R2L

// Inside a member of LumVtiStatusSm (it names `intfId_`).
#define R2L_TRACE(level, message) \
  LUM_TRACE(::Vxlan::R2L::trace, level, "R2LSm(" << intfId_ << ")::" << __func__ << message)
