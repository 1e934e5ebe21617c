// The text trace of both forwarding directions. Its facility is "SwForwardingSm" and
// every line begins "R2LSm(<intfId>)::<function>" or "L2RSm(<intfId>)::<function>":
// these are the operators' vocabulary (their filters and scripts look for them) and
// stay as they stand.
#pragma once

#include <cstdint>
#include <cstdio>

#include "platform/trace/Trace.h"

namespace Vxlan {

inline Lum::TraceFacility& forwardingTrace = Lum::traceFacility("SwForwardingSm");

namespace R2L {
inline Lum::TraceFacility& trace = forwardingTrace;
}
namespace L2R {
inline Lum::TraceFacility& trace = forwardingTrace;
}

// A frame's bytes as hex lines of 32 bytes each, handed to `emit` one line at a time
// (the dump of level 9 that both directions write around a frame).
template <class Emit>
void forEachHexLine(const uint8_t* buf, uint32_t len, Emit emit) {
  char line[2 * 32 + 1];
  size_t used = 0;
  for (uint32_t i = 0; i < len; ++i) {
    used += static_cast<size_t>(std::snprintf(line + used, sizeof line - used, "%02x", buf[i]));
    if ((i + 1) % 32 == 0) {
      emit(static_cast<const char*>(line));
      used = 0;
    }
  }
  line[used] = '\0';
  emit(static_cast<const char*>(line));
}

}  // namespace Vxlan

// Inside a member of a LumVtiStatusSm (they name `intfId_`). R2L_TRACE_AS names the
// step `function` instead of the member it is in (a step made elsewhere in one mode).
#define R2L_TRACE(level, message) R2L_TRACE_AS(LUM_TRACE_FUNCTION, level, message)
#define R2L_TRACE_AS(function, level, message) \
  LUM_TRACE(::Vxlan::forwardingTrace, level, "R2LSm(" << intfId_ << ")::" << function << message)
#define L2R_TRACE(level, message)            \
  LUM_TRACE(::Vxlan::forwardingTrace, level, \
            "L2RSm(" << intfId_ << ")::" << LUM_TRACE_FUNCTION << message)
