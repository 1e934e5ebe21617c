// Bench::BenchTopology: one switch with one remote VTEP in network namespaces
// (TestSupport::SwitchTopology), set up for one of the two paths the benchmark
// compares:
//
//   vxrelay  the agent host in the switch namespace, pinned to the path's CPU; its
//            "txraw" is a sink: an IFB device, which counts what it is handed and frees it.
//   kernel   no host; beside the switch's devices a kernel VXLAN device "kvx" (the
//            same VNI, the remote VTEP as its default destination), a veth "kv" <->
//            "kv-p" and a sink "ks" (IFB), all ports of the bridge "kbr": the kernel
//            decapsulates into "ks" (R2L frames are addressed to it; it takes nothing
//            flooded) and encapsulates what is written into "kv-p".
//
// Both: the remote's kernel VXLAN device "vx0" bridged to a host veth ("h0-p" counts
// what it delivers), a permanent neighbour entry for the remote VTEP (no ARP while
// measuring), and receive packet steering: the switch's work to the path's CPU, the
// other machines' to the generator's (see steerTo). Where each direction's frames go in and are
// counted:
//
//   R2L vxrelay    fabric end of the underlay      "txraw" (the agent's writes)
//   R2L kernel     fabric end of the underlay      "ks"    (kvx decapsulated)
//   L2R vxrelay    "vxlan-p", local form           remote "h0-p"
//   L2R kernel     "kv-p", plain frame             remote "h0-p"
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/netns/SwitchTopology.h"

namespace Bench {

enum class Direction { r2l, l2r };
enum class Path { vxrelay, kernel };
// How the switch's receiving devices take frames on the path's CPU (see steerTo).
enum class Receive { napi, rps };

const char* name(Direction d);
const char* name(Path p);

// A device in a namespace.
struct Port {
  std::string netns;
  std::string device;
};

// The frames the device has received so far, from the kernel's own statistics: a veth
// counts a frame when its peer handed it over, a sink (an IFB device) when it was
// handed one to send, which it frees at once.
uint64_t rxPackets(const Port& port);

// CPU time spent so far, in seconds, by the switch's polling threads (none with receive
// packet steering, whose work runs in whatever the CPU was running) and by the agent
// host (all its threads; 0 on the kernel path).
struct PathTimes {
  std::optional<double> polling;
  double agent = 0;
};

class BenchTopology {
 public:
  // Builds the namespaces and the path's devices and steers the switch's receive work
  // to `pathCpu`, the rest to `generatorCpu`; the vxrelay path starts the host on
  // `pathCpu`, through `hostWrapper` when given (valgrind). Throws with the refused
  // command on failure, having removed it all.
  BenchTopology(Path path, int pathCpu, int generatorCpu, Receive receive = Receive::napi,
                std::vector<std::string> hostWrapper = {});

  Path path() const { return path_; }
  TestSupport::SwitchTopology& topo() { return topo_; }
  // Where the generator writes, and where delivered frames are counted.
  Port input(Direction d) const;
  Port output(Direction d) const;
  // The frame written for an inner (user) frame of `size` bytes: a VXLAN datagram from
  // the remote for R2L, the local form (vxrelay) or the plain frame (kernel) for L2R.
  std::vector<uint8_t> frame(Direction d, size_t size) const;
  PathTimes cpuTimes() const;

 private:
  void addKernelVtep();
  void addSink(const std::string& device);
  void steerTo(int pathCpu, int generatorCpu, Receive receive);
  void pollOn(const Port& device, const Port& peer, int cpu);
  std::string mac(const std::string& netns, const std::string& device) const;

  Path path_;
  TestSupport::SwitchTopology topo_;
  std::vector<pid_t> pollers_;  // the polling threads moved to the path's CPU
};

}  // namespace Bench
