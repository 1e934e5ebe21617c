// Ctl::pcapFrame: one frame of a capture file, for `vxrelayctl trace packet --pcap`.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Ctl {

// Frame `index` (the first is 1) of the pcap file `file`, as captured (a frame cut by
// the capture's snap length is what it holds). Throws std::runtime_error when the file
// cannot be read or has fewer frames.
std::vector<uint8_t> pcapFrame(const std::string& file, unsigned index);

}  // namespace Ctl
