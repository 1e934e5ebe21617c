#include "forwarding/TestMode.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace Vxlan {

const bool R2L_TEST = std::getenv("VXLAN_R2L_TEST") != nullptr;
const bool L2R_TEST = std::getenv("VXLAN_L2R_TEST") != nullptr;

namespace {

// The modes' names, in the order of FrameMode.
constexpr const char* kFrameModeNames[] = {"batch", "single", "filtered"};

}  // namespace

FrameMode frameModeOf(const char* text, bool& known) {
  known = true;
  if (text == nullptr || *text == '\0') return FrameMode::batch;
  for (size_t i = 0; i < std::size(kFrameModeNames); ++i) {
    if (std::strcmp(text, kFrameModeNames[i]) == 0) return static_cast<FrameMode>(i);
  }
  known = false;
  return FrameMode::batch;
}

const char* frameModeName(FrameMode mode) {
  return kFrameModeNames[static_cast<size_t>(mode)];
}

namespace {

FrameMode frameModeAtLoad() {
  const char* text = std::getenv("VXRELAY_FRAME_MODE");
  bool known;
  const FrameMode mode = frameModeOf(text, known);
  // Nothing is set up yet to trace with: the one word goes to stderr.
  if (!known)
    std::fprintf(stderr,
                 "vxrelay: VXRELAY_FRAME_MODE=%s is not batch, single or filtered; batch is used\n",
                 text);
  return mode;
}

}  // namespace

const FrameMode FRAME_MODE = frameModeAtLoad();

socklen_t testModeAddress(sockaddr_un& addr, const char* format) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, format, static_cast<int>(::getpid()));
  return sizeof addr;
}

}  // namespace Vxlan
