#include "platform/trace/Log.h"

#include <syslog.h>
#include <unistd.h>

#include <mutex>

namespace Lum {

namespace {

struct LogState {
  std::mutex mutex;
  std::string program = "vxrelay";
  bool syslog = false;
};

LogState& state() {
  static LogState s;
  return s;
}

// write(2) until done; a line that cannot be written is dropped, there is nowhere to say so.
void writeAll(int fd, std::string_view s) {
  while (!s.empty()) {
    const ssize_t n = ::write(fd, s.data(), s.size());
    if (n <= 0) return;
    s.remove_prefix(static_cast<size_t>(n));
  }
}

}  // namespace

void logProgramIs(std::string_view program) {
  std::lock_guard lock(state().mutex);
  // syslog holds the name given to openlog: once there, it stays.
  if (!state().syslog) state().program = program;
}

void logToSyslogIs() {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  if (s.syslog) return;
  // openlog keeps the pointer: the string lives as long as the process's log state.
  ::openlog(s.program.c_str(), LOG_PID | LOG_NDELAY, LOG_DAEMON);
  s.syslog = true;
}

bool logToSyslog() {
  std::lock_guard lock(state().mutex);
  return state().syslog;
}

void logLine(LogSeverity severity, std::string_view text) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  if (s.syslog) {
    const int priority = severity == LogSeverity::error     ? LOG_ERR
                         : severity == LogSeverity::warning ? LOG_WARNING
                                                            : LOG_INFO;
    ::syslog(priority, "%.*s", static_cast<int>(text.size()), text.data());
    return;
  }
  std::string line = s.program + ": ";
  if (severity == LogSeverity::warning) line += "warning: ";
  line.append(text).push_back('\n');
  writeAll(severity == LogSeverity::info ? STDOUT_FILENO : STDERR_FILENO, line);
}

}  // namespace Lum
