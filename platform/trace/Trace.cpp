#include "platform/trace/Trace.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>

#include "platform/core/Exception.h"

namespace Lum {

namespace {

// An enabling string taken apart, before anything is applied: a malformed string must
// leave all facilities as they were.
struct ParsedSpec {
  bool hasEvery = false;
  uint32_t everyMask = 0;
  std::map<std::string, uint32_t, std::less<>> named;
};

std::string_view trimmed(std::string_view s) {
  const auto first = s.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const auto last = s.find_last_not_of(" \t");
  return s.substr(first, last - first + 1);
}

bool isLevelList(std::string_view s) {
  return !s.empty() && s.front() >= '0' && s.front() <= '9' &&
         s.find_first_not_of("0123456789-") == std::string_view::npos;
}

int parseLevel(std::string_view s, std::string_view item) {
  if (s.empty() || s.size() > 1 || s[0] < '0' || s[0] > '9') {
    throwRangeException("trace level must be 0 to 9 in \"" + std::string(item) + "\"");
  }
  return s[0] - '0';
}

// "3" or "2-7"
uint32_t parseLevelRange(std::string_view s, std::string_view item) {
  const auto dash = s.find('-');
  const int low = parseLevel(s.substr(0, dash), item);
  const int high = dash == std::string_view::npos ? low : parseLevel(s.substr(dash + 1), item);
  if (high < low) throwRangeException("empty trace level range in \"" + std::string(item) + "\"");
  return ((1u << (high + 1)) - 1) & ~((1u << low) - 1);
}

ParsedSpec parseSpec(std::string_view setting) {
  ParsedSpec parsed;
  uint32_t* current = nullptr;  // the mask a bare level list continues
  while (!setting.empty()) {
    const auto comma = setting.find(',');
    const std::string_view item = trimmed(setting.substr(0, comma));
    setting = comma == std::string_view::npos ? std::string_view() : setting.substr(comma + 1);
    if (item.empty()) continue;

    if (isLevelList(item)) {
      if (current == nullptr) {
        throwRangeException("trace levels \"" + std::string(item) + "\" without a facility");
      }
      *current |= parseLevelRange(item, item);
      continue;
    }
    const auto slash = item.find('/');
    const std::string_view name = trimmed(item.substr(0, slash));
    if (name.empty())
      throwRangeException("trace item without a name: \"" + std::string(item) + "\"");
    uint32_t levels = TraceFacility::kAllLevels;
    if (slash != std::string_view::npos)
      levels = parseLevelRange(trimmed(item.substr(slash + 1)), item);

    if (name == "*" || name == "all") {
      parsed.hasEvery = true;
      current = &parsed.everyMask;
    } else {
      current = &parsed.named[std::string(name)];
    }
    *current |= levels;
  }
  return parsed;
}

// write(2) until done; a trace line that cannot be written is dropped, never reported
// through another trace.
void writeAll(int fd, std::string_view s) {
  while (!s.empty()) {
    const ssize_t n = ::write(fd, s.data(), s.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    s.remove_prefix(static_cast<size_t>(n));
  }
}

std::string_view baseName(const char* path) {
  std::string_view p(path == nullptr ? "" : path);
  const auto slash = p.rfind('/');
  return slash == std::string_view::npos ? p : p.substr(slash + 1);
}

void appendTimeStamp(std::string& out) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  ::localtime_r(&now.tv_sec, &local);
  char buf[48];
  const size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(buf + n, sizeof buf - n, ".%06ld", now.tv_nsec / 1000);
  out += buf;
}

}  // namespace

// All facilities of the process, the remembered enabling and the output file. Built at
// first use, which is also when the environment is read.
class TraceRegistry {
 public:
  // Never destroyed: facilities are held by reference in statics of other files and may
  // trace while those are torn down.
  static TraceRegistry& instance() {
    static TraceRegistry* registry = new TraceRegistry;
    return *registry;
  }

  TraceFacility& facility(std::string_view name) {
    std::lock_guard lock(mutex_);
    auto it = facilities_.find(name);
    if (it == facilities_.end()) {
      auto created =
          std::unique_ptr<TraceFacility>(new TraceFacility(String8(name), maskFor(name)));
      it = facilities_.emplace(std::string(name), std::move(created)).first;
    }
    return *it->second;
  }

  void apply(const ParsedSpec& parsed) {
    std::lock_guard lock(mutex_);
    if (parsed.hasEvery) everyMask_ = parsed.everyMask;
    for (const auto& [name, mask] : parsed.named) configured_[name] = mask;
    for (auto& [name, facility] : facilities_) {
      if (parsed.hasEvery || parsed.named.contains(name)) facility->levelMaskIs(maskFor(name));
    }
  }

  void coverageStreamIs(std::ostream* os) {
    std::lock_guard lock(mutex_);
    detail::traceCoverageStream = os;
    for (auto& [name, facility] : facilities_) facility->wantedMaskIs();
  }

  void disableAll() {
    std::lock_guard lock(mutex_);
    everyMask_ = 0;
    configured_.clear();
    for (auto& [name, facility] : facilities_) facility->levelMaskIs(0);
  }

  void outputFileIs(const char* path) {
    int fd = STDERR_FILENO;
    if (path != nullptr) {
      fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
      if (fd < 0) throw ErrnoException(errno, std::string("open trace file ") + path);
    }
    std::lock_guard lock(mutex_);
    if (fd_ != STDERR_FILENO) ::close(fd_);
    fd_ = fd;
  }

  void write(std::string_view line) {
    std::lock_guard lock(mutex_);
    writeAll(fd_, line);
  }

 private:
  TraceRegistry() {
    if (const char* setting = std::getenv("VXRELAY_TRACE"); setting != nullptr) {
      try {
        apply(parseSpec(setting));
      } catch (const Exception& e) {
        std::fprintf(stderr, "vxrelay: VXRELAY_TRACE ignored: %s\n", e.what());
      }
    }
    if (const char* path = std::getenv("VXRELAY_TRACE_FILE"); path != nullptr && *path != '\0') {
      try {
        outputFileIs(path);
      } catch (const Exception& e) {
        std::fprintf(stderr, "vxrelay: tracing to stderr: %s\n", e.what());
      }
    }
  }

  uint32_t maskFor(std::string_view name) const {
    const auto it = configured_.find(name);
    return everyMask_ | (it == configured_.end() ? 0u : it->second);
  }

  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<TraceFacility>, std::less<>> facilities_;
  std::map<std::string, uint32_t, std::less<>> configured_;
  uint32_t everyMask_ = 0;
  int fd_ = STDERR_FILENO;
};

TraceFacility::TraceFacility(String8 name, uint32_t mask)
    : name_(std::move(name)), levelMask_(mask & kAllLevels) {
  wantedMaskIs();
}

void TraceFacility::wantedMaskIs() {
  wantedMask_ = coverageStream() != nullptr ? kAllLevels : levelMask_;
}

void TraceFacility::levelMaskIs(uint32_t mask) {
  levelMask_ = mask & kAllLevels;
  wantedMaskIs();
}

void TraceFacility::levelEnabledIs(int level, bool on) {
  if (level < 0 || level >= kLevels) throwRangeException("trace level " + std::to_string(level));
  const uint32_t bit = 1u << level;
  levelMaskIs(on ? (levelMask_ | bit) : (levelMask_ & ~bit));
}

TraceFacility& traceFacility(std::string_view name) {
  return TraceRegistry::instance().facility(name);
}

void traceSpecIs(std::string_view setting) {
  TraceRegistry::instance().apply(parseSpec(setting));
}

void traceAllDisabled() {
  TraceRegistry::instance().disableAll();
}

void traceOutputFileIs(const char* path) {
  TraceRegistry::instance().outputFileIs(path);
}

void coverageStreamIs(std::ostream* os) {
  TraceRegistry::instance().coverageStreamIs(os);
}

void traceHelper(const TraceFacility& facility, std::string_view text, int level, const char* file,
                 int line, const char* function) {
  std::string out;
  out.reserve(64 + facility.name().size() + text.size());
  appendTimeStamp(out);
  out += ' ';
  out += facility.name().view();
  out += '/';
  out += std::to_string(level);
  out += ' ';
  if (text.empty() && function != nullptr) {
    out += function;
    out += "()";
  } else {
    out += text;
  }
  out += "  [";
  out += baseName(file);
  out += ':';
  out += std::to_string(line);
  out += "]\n";

  if (facility.enabled(level)) TraceRegistry::instance().write(out);
  if (std::ostream* os = coverageStream()) *os << out;
}

}  // namespace Lum
