#include "tools/ctl/JsonEnvelope.h"

#include <cstdio>
#include <ctime>
#include <exception>

#include "platform/statehub/ControlClient.h"

namespace Ctl {

std::string isoTime(std::chrono::system_clock::time_point t) {
  using namespace std::chrono;
  const auto ms = duration_cast<milliseconds>(t.time_since_epoch()).count();
  const time_t secs = static_cast<time_t>(ms / 1000);
  std::tm tm{};
  gmtime_r(&secs, &tm);
  char text[40];
  const size_t n = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
  std::snprintf(text + n, sizeof text - n, ".%03dZ", static_cast<int>(ms % 1000));
  return text;
}

nlohmann::json envelope(const std::string& agent, bool running,
                        std::chrono::system_clock::time_point now) {
  return {{"agent", agent}, {"time", isoTime(now)}, {"running", running}};
}

bool hostRunning(const std::string& controlSocket) {
  try {
    Statehub::ControlClient client(controlSocket);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace Ctl
