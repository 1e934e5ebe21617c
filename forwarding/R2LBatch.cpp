// The batched frame loop of the remote-to-local machine: up to 32 frames to one
// recvmmsg and the frames made of them to one sendmmsg. Each frame goes through the
// same R2L::decapFrame, the same counters, traces and drop exit as one at a time; the
// budget is tested after each frame that is to be written, so it ends a batch between
// frames, and frames already read wait in the batch for the next run, in order.
#include <cerrno>
#include <cstring>

#include "forwarding/ForwardingTrace.h"
#include "forwarding/Remote2LocalForwarderSm.h"
#include "forwarding/TestMode.h"
#include "platform/loop/EventLoop.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

using Sm = Remote2LocalForwarderSm::LumVtiStatusSm;

R2LBatch::R2LBatch() {
  for (unsigned i = 0; i < kFrames; ++i) {
    inIov[i] = {frames[i], kFrameBytes};
    in[i] = {};
    in[i].msg_hdr.msg_iov = &inIov[i];
    in[i].msg_hdr.msg_iovlen = 1;
    out[i] = {};
    out[i].msg_hdr.msg_iov = &outIov[i];
    out[i].msg_hdr.msg_iovlen = 1;
  }
  // In test mode the frames go to a Unix address rather than a bound device.
  if (R2L_TEST) {
    const socklen_t len = testModeAddress(testAddr, "./VxlanR2LSM-outbound-%d");
    for (mmsghdr& m : out) {
      m.msg_hdr.msg_name = &testAddr;
      m.msg_hdr.msg_namelen = len;
    }
  }
}

void Sm::batchModeIs(bool on) {
  if (on == batchMode()) return;
  batch_ = on ? std::make_unique<R2LBatch>() : nullptr;
}

void Sm::handleBatch(int32_t desc) {
  R2LBatch& b = *batch_;
  if (b.ring) return handleRing(*b.ring);
  const Lum::Deadline deadline(maxProcessTime_);
  const R2L::FrameFilter filter = frameFilter();
  Lum::SysCalls& sys = Lum::sysCalls();
  for (;;) {
    if (b.next == b.count) {
      const int n = sys.recvmmsg(desc, b.in, R2LBatch::kFrames, MSG_DONTWAIT, nullptr);
      if (n < 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK) dropFrame(R2L::Drop::readError, 0, 0, errno);
        return;
      }
      b.count = static_cast<unsigned>(n);
      b.next = 0;
    }
    unsigned queued = 0;
    bool spent = false;
    while (b.next < b.count && !spent) {
      const uint32_t len = b.in[b.next].msg_len;
      if (takeFrame(b.frames[b.next++], len, filter, queued)) spent = deadline.passed();
    }
    const bool written = flushBatch(queued);
    if (spent) {
      vxlanCounterInc(VxlanCounterId::r2lTimeBudgetExpired, 1);
      // Frames already read are not in the socket any more: no readable event will
      // bring them back, so the next run is asked for here.
      if (b.next < b.count) {
        Lum::Ptr<Sm> self(this);
        Lum::eventLoop().defer([self] {
          if (self->batch_ && self->remoteSock_ != -1)
            self->handleFileDescriptor(self->remoteSock_);
        });
      }
      return;
    }
    // A short read means the socket is drained: no read that can only fail.
    if (!written || b.count < R2LBatch::kFrames) return;
  }
}

// The ring: frames are rewritten where they lie and written out from there, then
// their slots go back to the kernel. Frames the budget leaves stay in the ring, which
// keeps the socket readable: the next pass of the loop brings them.
void Sm::handleRing(Lum::PacketRxRing& ring) {
  const Lum::Deadline deadline(maxProcessTime_);
  const R2L::FrameFilter filter = frameFilter();
  for (;;) {
    unsigned queued = 0;
    bool spent = false;
    Lum::PacketRxRing::Frame f;
    while (queued < R2LBatch::kFrames && !spent && ring.next(f)) {
      if (takeFrame(f.data, f.len, filter, queued)) spent = deadline.passed();
    }
    countRingDrops(ring);
    const bool written = flushBatch(queued);
    ring.releaseRead();
    if (spent) {
      vxlanCounterInc(VxlanCounterId::r2lTimeBudgetExpired, 1);
      return;
    }
    if (!written || !ring.ready()) return;
  }
}

void Sm::countRingDrops(Lum::PacketRxRing& ring) {
  const uint32_t lost = ring.takeDrops();
  if (lost == 0) return;
  vxlanCounterInc(VxlanCounterId::r2lRxFrames, lost);
  vxlanCounterInc(VxlanCounterId::r2lSocketErrors, lost);
  R2L_TRACE(1, "() the ring had no room for " << lost << " frames");
  RINGLOG(1, "R2LSm(%s) the ring had no room for %u frames", intfId_.stringValue().view(), lost);
}

void Sm::openRing() {
  try {
    batch_->ring = std::make_unique<Lum::PacketRxRing>(
        Lum::sysCalls(), remoteSock_, R2LBatch::kRingSlotBytes, R2LBatch::kRingSlots);
  } catch (const Lum::ErrnoException& e) {
    // Without a ring the batches are read with recvmmsg.
    R2L_TRACE(1, "() no receive ring: " << e.step() << ": " << std::strerror(e.errNo()));
    RINGLOG(1, "R2LSm(%s) no receive ring: %d", intfId_.stringValue().view(), e.errNo());
  }
}

}  // namespace Vxlan
