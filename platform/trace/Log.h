// The operator's log: a few lines a person running the agent should see (it started,
// it waits for something, it failed), apart from the trace, which is for debugging.
//
//   Lum::logLine(Lum::LogSeverity::warning, "Vxlan1 waits for device vtep0");
//
// Lines go to stderr as "<program>: [warning: ]<text>" (info lines to stdout),
// or, once logToSyslogIs() has been called, to syslog (and so to the journal) under the
// program's name, with the severity as the priority. Each line is written whole with one
// call, so lines of several threads or processes do not interleave.
#pragma once

#include <string>
#include <string_view>

namespace Lum {

enum class LogSeverity { info, warning, error };

// The name lines are led by ("vxrelay" until a program says otherwise).
void logProgramIs(std::string_view program);
// From now on, lines go to syslog (facility daemon) instead of stdout and stderr.
void logToSyslogIs();
bool logToSyslog();

void logLine(LogSeverity severity, std::string_view text);

}  // namespace Lum
