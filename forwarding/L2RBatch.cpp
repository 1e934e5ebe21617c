// The batched frame loop of the local-to-remote machine: up to 16 frames of a local
// socket to one recvmmsg, and the packets made of them, one per destination, to one
// sendmmsg on the remote socket. Each frame goes through the same forwardFrame (the
// same L2R::encapFrame, selection, counters, traces and drop exit) as one at a time;
// the budget is tested after each forwarded frame, so it ends a batch between frames,
// and the frames already read wait, in order, for a deferred run of their socket's
// handler, which keeps the priority scheme.
#include <cerrno>
#include <cstring>

#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"
#include "forwarding/TestMode.h"
#include "platform/loop/EventLoop.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;
using Id = VxlanCounterId;

L2RBatch::L2RBatch() {
  for (unsigned i = 0; i < kFrames; ++i) {
    inIov[i] = {frames[i].read, sizeof frames[i].read};
    in[i] = {};
    in[i].msg_hdr.msg_iov = &inIov[i];
    in[i].msg_hdr.msg_iovlen = 1;
  }
  for (unsigned i = 0; i < kFrames; ++i) {
    in[i].msg_hdr.msg_control = creds[i];
    in[i].msg_hdr.msg_controllen = sizeof creds[i];
  }
  for (unsigned i = 0; i < kMsgs; ++i) {
    out[i] = {};
    out[i].msg_hdr.msg_iov = outIov[i];
    out[i].msg_hdr.msg_iovlen = 2;
    out[i].msg_hdr.msg_name = &to[i];
    out[i].msg_hdr.msg_namelen = sizeof to[i];
  }
}

void Sm::batchModeIs(bool on) {
  if (on == batchMode()) return;
  for (auto& b : batches_) b = on ? std::make_unique<L2RBatch>() : nullptr;
}

bool Sm::hasReceiveRings() const {
  return batches_[0] && batches_[0]->ring && batches_[1] && batches_[1]->ring;
}

L2RBatch* Sm::batchFor(int32_t localSock) const {
  if (!batches_[0] || localSock == -1) return nullptr;
  if (localSock == localSockHi_) return batches_[0].get();
  if (localSock == localSockLo_) return batches_[1].get();
  return localSock == arpInspectSock_ ? batches_[2].get() : nullptr;
}

void Sm::highPriorityDrained() {
  highPriorityNotFinishedIs(false);
  // Low frames read before the high socket took over wait in their batches.
  for (int32_t sock : {localSockLo_, arpInspectSock_}) {
    const L2RBatch* b = batchFor(sock);
    if (b && b->next < b->count) deferRun(sock);
  }
}

void Sm::deferRun(int32_t localSock) {
  Lum::Ptr<Sm> self(this);
  const int which = localSock == localSockHi_ ? 0 : localSock == localSockLo_ ? 1 : 2;
  Lum::eventLoop().defer([self, which] {
    if (which == 0) self->handleFileDescriptorHi();
    if (which == 1) self->handleFileDescriptorLo();
    if (which == 2) self->handleFileDescriptorArpInspect();
  });
}

void Sm::handleFramesBatch(int32_t localSock, int32_t remoteSock, L2RBatch& b) {
  if (b.ring) return handleRingFrames(localSock, remoteSock, b);
  const bool hi = localSock == localSockHi_;
  const Lum::Deadline deadline(hi ? maxProcessTimeHi_ : maxProcessTimeLo_);
  const L2R::EncapFilter filter = encapFilter();
  for (;;) {
    if (b.next == b.count) {
      for (mmsghdr& m : b.in) m.msg_hdr.msg_controllen = sizeof b.creds[0];
      const int n =
          Lum::sysCalls().recvmmsg(localSock, b.in, L2RBatch::kFrames, MSG_DONTWAIT, nullptr);
      if (n < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
          if (hi) highPriorityDrained();
        } else {
          dropFrame(L2R::Drop::readError, 0, errno);
        }
        return;
      }
      b.count = static_cast<unsigned>(n);
      b.next = 0;
    }
    bool spent = false;
    while (b.next < b.count && !spent) {
      const unsigned i = b.next++;
      if (localSock == arpInspectSock_ && !inspectedSenderAllowed(b.in[i].msg_hdr)) continue;
      spent = forwardFrame(b.frames[i].bytes(), b.in[i].msg_len, hi, filter, remoteSock, &b) &&
              deadline.passed();
    }
    flushSends(b, remoteSock);
    if (spent) {
      budgetSpent(hi);
      // Frames already read are not in the socket any more: no readable event brings
      // them back, so their socket's handler is asked for here.
      if (b.next < b.count) deferRun(localSock);
      return;
    }
    // A short read means the socket is drained: no read that can only fail.
    if (b.count < L2RBatch::kFrames) {
      if (hi) highPriorityDrained();
      return;
    }
  }
}

// The ring: frames are turned into packets where they lie and sent from there, then
// their slots go back to the kernel. Frames the budget leaves stay in the ring, which
// keeps the socket readable, so nothing needs to be asked for: the priority scheme
// decides which socket the next pass reads.
void Sm::handleRingFrames(int32_t localSock, int32_t remoteSock, L2RBatch& b) {
  const bool hi = localSock == localSockHi_;
  const Lum::Deadline deadline(hi ? maxProcessTimeHi_ : maxProcessTimeLo_);
  const L2R::EncapFilter filter = encapFilter();
  Lum::PacketRxRing& ring = *b.ring;
  for (;;) {
    bool spent = false;
    unsigned taken = 0;
    Lum::PacketRxRing::Frame f;
    while (taken < L2RBatch::kFrames && !spent && ring.next(f)) {
      ++taken;
      spent = forwardFrame(f.data - L2R::kHeadroom, f.len, hi, filter, remoteSock, &b) &&
              deadline.passed();
    }
    countRingDrops(ring, hi);
    flushSends(b, remoteSock);
    ring.releaseRead();
    if (spent) return budgetSpent(hi);
    if (!ring.ready()) {
      if (hi) highPriorityDrained();
      return;
    }
  }
}

void Sm::countRingDrops(Lum::PacketRxRing& ring, bool hi) {
  const uint32_t lost = ring.takeDrops();
  if (lost == 0) return;
  vxlanCounterInc(Id::l2rRxFrames, lost);
  vxlanCounterInc(hi ? Id::l2rRxHiFrames : Id::l2rRxLoFrames, lost);
  vxlanCounterInc(Id::l2rReadErrors, lost);
  L2R_TRACE(1, "() the ring had no room for " << lost << " frames");
  RINGLOG(1, "L2RSm(%s) the ring had no room for %u frames", intfId_.stringValue().view(), lost);
}

void Sm::openRing(int which, int32_t sock) {
  if (!batches_[which] || L2R_TEST) return;
  try {
    batches_[which]->ring = std::make_unique<Lum::PacketRxRing>(
        Lum::sysCalls(), sock, L2RBatch::kRingSlotBytes, L2RBatch::kRingSlots, L2R::kHeadroom);
  } catch (const Lum::ErrnoException& e) {
    // Without a ring the batches are read with recvmmsg.
    L2R_TRACE(1, "() no receive ring: " << e.step() << ": " << std::strerror(e.errNo()));
    RINGLOG(1, "L2RSm(%s) no receive ring: %d", intfId_.stringValue().view(), e.errNo());
  }
}

void Sm::queueToVtep(L2RBatch& b, const uint8_t* hdr, const L2R::Encap& e, int32_t remoteSock,
                     Wire::IpAddr addr) {
  if (b.queued == L2RBatch::kMsgs) flushSends(b, remoteSock);
  const unsigned q = b.queued++;
  std::memcpy(b.hdrs[q], hdr, L2R::kOuterHdrLen);
  L2R::destinationIs(b.hdrs[q], addr);
  b.to[q] = vtepAddress(hdr, addr);
  b.outIov[q][0] = {b.hdrs[q], L2R::kOuterHdrLen};
  b.outIov[q][1] = {const_cast<uint8_t*>(hdr) + L2R::kOuterHdrLen, e.length - L2R::kOuterHdrLen};
  b.meta[q] = {e.vlan, e.arpFlag};
}

void Sm::flushSends(L2RBatch& b, int32_t remoteSock) {
  unsigned done = 0;
  while (done < b.queued) {
    const int sent = Lum::sysCalls().sendmmsg(remoteSock, b.out + done, b.queued - done, 0);
    // Each packet's outcome as one at a time: a failure costs that destination only.
    const unsigned settled = sent > 0 ? static_cast<unsigned>(sent) : 1;
    const int err = sent > 0 ? 0 : errno;
    for (unsigned i = done; i < done + settled; ++i) {
      const Wire::IpAddr addr = Wire::IpAddr::fromNetworkOrder(b.to[i].sin_addr.s_addr);
      const auto bytes = static_cast<uint32_t>(b.outIov[i][0].iov_len + b.outIov[i][1].iov_len);
      L2R_TRACE(7, "L2RSm() sendto " << addr << " returned " << (err ? -1 : int64_t{bytes}));
      sentToVtep(err, remoteSock, addr, bytes);
      if (!err && b.meta[i].arpFlag) {
        sendToArpResolver(b.hdrs[i], static_cast<const uint8_t*>(b.outIov[i][1].iov_base), bytes,
                          b.meta[i].vlan);
      }
    }
    done += settled;
  }
  b.queued = 0;
}

}  // namespace Vxlan
