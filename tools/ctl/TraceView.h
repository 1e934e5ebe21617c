// Ctl::TraceView: decoded trace ring lines as vxrelayctl prints them. Several ring
// files (one per process: the host, a second host, ...) are merged into one story by
// time, each line led by its file's name; "errno N" in a line gains the error's text.
//
//   L0 #3 2026-11-25 22:41:07.120001 LocalSend.cpp:74  sendPkt ... failed with errno 19
//   -> L0 #3 2026-11-25 22:41:07.120001 LocalSend.cpp:74  sendPkt ... failed with errno 19 (No such
//   device)
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Ctl {

// "errno N" with N a number gains " (<strerror(N)>)".
std::string withErrnoText(const std::string& line);

// The lines of each (file name, decoded lines), ordered by their time stamps (lines
// without one stay in front of their file's first stamped line); with more than one
// file each line begins "<file name>: ".
std::vector<std::string> mergedByTime(
    const std::vector<std::pair<std::string, std::vector<std::string>>>& files);

}  // namespace Ctl
