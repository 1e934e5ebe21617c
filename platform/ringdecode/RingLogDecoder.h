// Turns a trace ring file back into text, from the file alone. Only the operator's tool
// and tests need it, so it is a library of its own beside the platform.
//
//   for (const std::string& line : RingLog::decodeFile(path)) std::cout << line << "\n";
#pragma once

#include <string>
#include <vector>

namespace RingLog {

// The records of a ring file as text, ring by ring from level 0, oldest first:
//   "L5 #17 2024-11-23 00:38:12.123456 Agent.cpp:120 recv 64 bytes on vx0"
// Arguments that do not match their conversion print as "<?%d:str>"; a damaged ring
// ends with a line "L5 <...>" saying what is wrong. Throws Lum::ErrnoException when the
// file cannot be read and Lum::Exception when it is not a ring file.
std::vector<std::string> decodeFile(const std::string& path);
// The same for the bytes of a ring file read already; `path` names it in errors.
std::vector<std::string> decode(const std::vector<unsigned char>& file, const std::string& path);

}  // namespace RingLog
