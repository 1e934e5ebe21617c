// Ctl::envelope: the keys every JSON answer of vxrelayctl starts with, so that a script
// reading several answers knows which agent each is about, when it was taken and
// whether that agent's host was answering:
//
//   {"agent": "vxrelay", "time": "2026-11-26T01:55:03.120Z", "running": true, ...}
//
// The command's own keys are added beside them; none of them is ever renamed.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace Ctl {

// UTC, milliseconds, as ISO 8601 with a "Z".
std::string isoTime(std::chrono::system_clock::time_point t);

nlohmann::json envelope(
    const std::string& agent, bool running,
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// Whether a host answers on `controlSocket` (something listens there).
bool hostRunning(const std::string& controlSocket);

}  // namespace Ctl
