// The text trace: readable, per-source, per-level lines for people debugging the agent.
//
// Every source file that traces owns one facility, looked up once when the file's
// statics are built:
//
//   static Lum::TraceFacility& traceSw = Lum::traceFacility("SwForwardingSm");
//   ...
//   LUM_TRACE(traceSw, 5, "R2LSm(" << intf << ")::handleFileDescriptor() read " << n << " bytes");
//
// Levels run 0 to 9: 0 dropped frames and faults, 1-2 failed operations, 5-7 per-frame
// detail, 8 handler entry, 9 byte dumps. A facility keeps one bit per level, so the
// test in LUM_TRACE is an inline load and mask; when the level is off the statement
// costs that one branch and none of its stream arguments is evaluated.
//
// Which levels are on comes from VXRELAY_TRACE, read once when the first facility is
// looked up, e.g. VXRELAY_TRACE="SwForwardingSm/0-9,VirtualArpSm/8,OverlayRelayAgent":
// comma separated items, each a facility name with an optional "/levels" part (single
// numbers or ranges; an item of only levels continues the previous facility's list, so
// "VirtualArpSm/1,8-9" works). A name without levels means all levels. "*" or "all"
// names every facility, present and future. Names not (yet) known are remembered and
// apply when their facility is created. The same syntax is accepted by traceSpecIs().
//
// Lines go to stderr, or are appended to the file named by VXRELAY_TRACE_FILE. Each is
// written with one write(2), so lines of several processes appending to one file do not
// interleave within a line.
//
// Tests set a coverage stream (coverageStreamIs): while it is set every trace
// statement builds its text whatever its level, and its line also goes to that stream,
// so a test can assert on the words a code path traces.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <sstream>
#include <string_view>

#include "platform/core/String8.h"

namespace Lum {

class TraceFacility {
 public:
  static constexpr int kLevels = 10;
  static constexpr uint32_t kAllLevels = (1u << kLevels) - 1;

  const String8& name() const { return name_; }

  // Out-of-range levels are simply off: a bad constant must not trace or crash.
  bool enabled(int level) const {
    return static_cast<unsigned>(level) < static_cast<unsigned>(kLevels) &&
           (levelMask_ & (1u << level)) != 0;
  }
  void levelEnabledIs(int level, bool on);
  // Whether a statement of `level` (or of any level from `from` to `to`) builds its
  // text: a level of those is on, or a coverage stream takes every line. What LUM_TRACE
  // tests, for code that skips the work of a whole group of statements.
  bool wanted(int level) const { return wanted(level, level); }
  bool wanted(int from, int to) const;

  // Bit n set means level n is on.
  uint32_t levelMask() const { return levelMask_; }
  void levelMaskIs(uint32_t mask);

  TraceFacility(const TraceFacility&) = delete;
  TraceFacility& operator=(const TraceFacility&) = delete;

 private:
  friend class TraceRegistry;
  TraceFacility(String8 name, uint32_t mask);
  // What wanted() tests: the levels that are on, or all of them while a coverage stream
  // is set. One mask, so that a statement whose level is off costs a load and a test.
  void wantedMaskIs();

  String8 name_;
  uint32_t levelMask_;
  uint32_t wantedMask_;
};

// Finds or creates the facility of that name. The reference stays valid for the life
// of the process; keep it in a static instead of looking it up per statement.
TraceFacility& traceFacility(std::string_view name);

// Applies an enabling string in the VXRELAY_TRACE syntax. Every facility it names gets
// exactly the levels listed for it (levels of several items for one name add up); a
// "*" item sets the levels every facility gets in addition to its own. Facilities it
// does not name keep their levels. Throws Lum::RangeException on a malformed string,
// leaving every facility as it was.
void traceSpecIs(std::string_view setting);

// Turns every level of every facility off and forgets remembered names and "*".
void traceAllDisabled();

// Where lines go: the file at `path` (appended, created if missing), or stderr for
// nullptr. Throws Lum::ErrnoException if the file cannot be opened.
void traceOutputFileIs(const char* path);

// While set, every trace statement runs and its line is also written to `os`.
void coverageStreamIs(std::ostream* os);

namespace detail {
// Read inline by LUM_TRACE; constant-initialized, so tracing during static
// initialization of other files is safe.
inline std::ostream* traceCoverageStream = nullptr;
}  // namespace detail

inline std::ostream* coverageStream() {
  return detail::traceCoverageStream;
}

inline bool TraceFacility::wanted(int from, int to) const {
  if (from < 0 || to >= kLevels || from > to) return false;  // out of range: off
  const uint32_t levels = (kAllLevels >> (kLevels - 1 - to)) & ~((1u << from) - 1);
  return (wantedMask_ & levels) != 0;
}

// Writes one line: time stamp, facility, level, text, then file:line. An empty text
// stands for handler entry and prints the function name instead.
void traceHelper(const TraceFacility& facility, std::string_view text, int level, const char* file,
                 int line, const char* function);

}  // namespace Lum

// `message` is a stream expression (`"a " << x << " b"`); it is built only when the level
// is on or a coverage stream is set. The building lives in a cold lambda of its own, so
// the function holding the statement pays for a disabled trace with one test and
// branch, and not with the stream's stack frame and saved registers on every call.
// Inside the lambda __func__ names the lambda: a message names the enclosing function
// with LUM_TRACE_FUNCTION.
#define LUM_TRACE_FUNCTION lumTraceFunction_
#define LUM_TRACE(facility, level, message)                                                   \
  do {                                                                                        \
    const ::Lum::TraceFacility& lumTraceFacility_ = (facility);                               \
    const int lumTraceLevel_ = (level);                                                       \
    if (lumTraceFacility_.wanted(lumTraceLevel_)) [[unlikely]] {                              \
      const char* lumTraceFunction_ = __func__;                                               \
      [&]() __attribute__((cold, noinline)) {                                                 \
        std::ostringstream lumTraceText_;                                                     \
        lumTraceText_ << message;                                                             \
        ::Lum::traceHelper(lumTraceFacility_, lumTraceText_.view(), lumTraceLevel_, __FILE__, \
                           __LINE__, lumTraceFunction_);                                      \
      }                                                                                       \
      ();                                                                                     \
    }                                                                                         \
  } while (0)
