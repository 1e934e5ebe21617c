#include "bench/netns/LoopCost.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "agent/VxlanCounterId.h"
#include "bench/netns/BenchTopology.h"
#include "bench/netns/CallgrindCost.h"
#include "bench/netns/FrameGenerator.h"
#include "platform/core/Exception.h"
#include "tests/support/TempDir.h"

namespace Bench {
namespace {

using namespace std::chrono_literals;
using Id = Vxlan::VxlanCounterId;

constexpr size_t kInnerBytes = 64;

// How the frames come: paced, slow enough for a host under callgrind (some 50 times
// slower) to take each one by itself, so that every frame pays for a whole wake-up;
// or in bursts that wait in the ring or the socket, as under load.
struct Traffic {
  const char* name;
  double pps;      // paced: frames per second for kPacedTime
  unsigned burst;  // bursts: frames each, kBursts of them
};
constexpr auto kPacedTime = 2s;
constexpr int kBursts = 6;
constexpr auto kBurstGap = 500ms;
const Traffic kTraffic[] = {{"paced, 2000 pps", 2000, 0}, {"in bursts of 1000", 0, 1000}};

struct Loop {
  Direction direction;
  const char* handler;  // the frame loop's handler, as callgrind names it
  Id received;
  Id lost;  // frames a full ring lost: counted as received, never handled
};

const Loop kLoops[] = {
    {Direction::r2l, "Remote2LocalForwarderSm::LumVtiStatusSm::handleFileDescriptor(",
     Id::r2lRxFrames, Id::r2lSocketErrors},
    {Direction::l2r, "Local2RemoteForwarderSm::LumVtiStatusSm::handleFrames(", Id::l2rRxFrames,
     Id::l2rReadErrors},
};

uint64_t handled(BenchTopology& t, const Loop& l) {
  const auto c = t.topo().counters();
  return c.count(l.received) - c.count(l.lost);
}

void sendTraffic(FrameGenerator& gen, const Traffic& traffic) {
  if (traffic.burst == 0) {
    gen.run(traffic.pps, kPacedTime);
    return;
  }
  for (int i = 0; i < kBursts; ++i) {
    gen.burst(traffic.burst);
    std::this_thread::sleep_for(kBurstGap);
  }
}

void measureLoops(const Traffic& traffic, int pathCpu, int generatorCpu, const std::string& keep,
                  int which) {
  TestSupport::TempDir dir("vxloop");
  const std::string out =
      (keep.empty() ? dir.path().string() : keep) + "/callgrind.out." + std::to_string(which);
  uint64_t frames[2] = {0, 0};
  {
    BenchTopology t(Path::vxrelay, pathCpu, generatorCpu, Receive::napi,
                    {"valgrind", "--tool=callgrind", "--callgrind-out-file=" + out});
    for (const Loop& l : kLoops) {
      const Port in = t.input(l.direction);
      FrameGenerator gen(in.netns, in.device, t.frame(l.direction, kInnerBytes));
      sendTraffic(gen, traffic);
      std::this_thread::sleep_for(1s);
    }
    // Over the host's whole life, as the cost is: the remote-to-local socket also reads
    // (and filters) the datagrams that the local-to-remote run sends out.
    for (int i = 0; i < 2; ++i) frames[i] = handled(t, kLoops[i]);
    // callgrind writes its output when the host ends.
    t.topo().stopHost();
  }
  for (int i = 0; i < 2; ++i) {
    const CallCost c = callgrindFileCost(out, kLoops[i].handler);
    const char* dir = name(kLoops[i].direction);
    if (frames[i] == 0) throw Lum::Exception(std::string(dir) + ": no frame was handled");
    std::printf("  %s %-18s %7.1f instructions/frame  (%llu frames in %llu runs)\n", dir,
                traffic.name, static_cast<double>(c.instructions) / static_cast<double>(frames[i]),
                static_cast<unsigned long long>(frames[i]),
                static_cast<unsigned long long>(c.calls));
  }
}

}  // namespace

void runLoopCost(int pathCpu, int generatorCpu, const std::string& keep) {
  std::printf(
      "\nthe whole frame loops under callgrind (%zu-byte inner frames; inclusive Ir of the "
      "handler / frames it read):\n",
      kInnerBytes);
  int which = 0;
  for (const Traffic& t : kTraffic) measureLoops(t, pathCpu, generatorCpu, keep, which++);
  if (!keep.empty()) std::printf("  (callgrind's outputs are in %s)\n", keep.c_str());
}

}  // namespace Bench
