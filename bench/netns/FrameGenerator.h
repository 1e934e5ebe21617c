// Bench::FrameGenerator: the benchmark's packet generator. One pre-built frame, written
// over and over with sendmmsg on a packet socket bound to one device of a namespace,
// flat out or at a fixed rate, for a fixed time.
//
//   Bench::FrameGenerator gen(ns, "vxlan-p", frame);
//   Bench::Offered o = gen.run(0, 3s);      // flat out: o.sent frames in o.seconds
//   gen.run(300000, 3s);                    // 300 kpps, paced per batch
//
// The socket is made inside the namespace (the calling thread moves there and back)
// and used from outside. It receives nothing (protocol 0) and bypasses the queueing
// discipline, so a send costs the packet socket, the device and whatever the kernel
// does with the frame on the sending CPU (a veth hands it to the peer's backlog).
// Nothing pushes back: a frame the receiving side cannot take is dropped there, and
// counted only by what reaches the far end.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

struct Offered {
  uint64_t sent = 0;
  double seconds = 0;
  double pps() const { return seconds > 0 ? static_cast<double>(sent) / seconds : 0; }
};

class FrameGenerator {
 public:
  // Throws Lum::ErrnoException naming the failed step.
  FrameGenerator(const std::string& netns, const std::string& device, std::vector<uint8_t> frame);
  ~FrameGenerator();
  FrameGenerator(const FrameGenerator&) = delete;
  FrameGenerator& operator=(const FrameGenerator&) = delete;

  // Sends for `duration`: flat out when `pps` is 0, else at that rate as far as the CPU
  // allows (a generator that falls behind sends flat out; what it achieved is returned).
  Offered run(double pps, std::chrono::duration<double> duration);
  // Sends `frames` frames at once, for warming a path up.
  void burst(unsigned frames);

  // Makes every run and burst, now and later, throw Lum::Exception("interrupted"), so
  // that the benchmark unwinds and removes what it made. Safe in a signal handler.
  static void interrupt();

 private:
  // One sendmmsg of up to `count` frames; how many the kernel took.
  unsigned sendBatch(unsigned count);

  static void throwIfInterrupted();

  static std::atomic<bool> interrupted_;
  int fd_ = -1;
  std::vector<uint8_t> frame_;
};

}  // namespace Bench
