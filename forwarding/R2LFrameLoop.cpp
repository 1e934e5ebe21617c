// The frame loop of LumVtiStatusSm: reads the remote socket, hands each frame to
// R2L::decapFrame, writes what it forwards to the local socket and sends every drop
// through one exit. The batched loop (R2LBatch.cpp) takes its frames and writes its
// batches through the steps here.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ostream>

#include "forwarding/DropTables.h"
#include "forwarding/ForwardingTrace.h"
#include "forwarding/Remote2LocalForwarderSm.h"
#include "forwarding/TestMode.h"
#include "frames/LocalFrameHdr.h"
#include "frames/VxlanDatagram.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

namespace {

using R2L::Drop;

// The rows are in DropTables.h, where the packet trace reads them too.
using R2L::DropRow;
using Detail = R2L::DropDetail;

// The text behind a drop's words: the detail its row names.
struct DropText {
  const DropRow& row;
  Drop why;
  uint32_t len;
  uint32_t detail;
  int err;
};

std::ostream& operator<<(std::ostream& os, const DropText& t) {
  os << " " << t.row.words;
  switch (t.row.detail) {
    case Detail::lengthLimit:
      return os << " " << t.len << " < " << t.detail;
    case Detail::flags:
      return os << " " << std::hex << t.detail << std::dec;
    case Detail::vni:
      return os << " vni " << t.detail;
    case Detail::error:
      // The " 100" behind a send error is the operators' vocabulary and stays as it is.
      return os << " " << std::strerror(t.err) << " errno:" << t.err
                << (t.why == Drop::sendError ? " 100" : "");
    case Detail::none:
      break;
  }
  return os;
}

}  // namespace

R2L::FrameFilter Remote2LocalForwarderSm::LumVtiStatusSm::frameFilter() const {
  R2L::FrameFilter f;
  if (const VtiStatus* status = notifier().ptr()) {
    f.localVtep = status->localVtepAddr();
    f.udpPort = status->udpPort();
  }
  f.floodGroup = floodMcastGrp_;
  f.portId = portId_;
  if (const VniToVlanMap* map = vniToVlanMapOfVti()) f.vniToVlan = &map->vniToVlanMap();
  return f;
}

void Remote2LocalForwarderSm::LumVtiStatusSm::dropFrame(Drop why, uint32_t len, uint32_t detail,
                                                        int err) {
  const DropRow& row = R2L::dropRow(why);
  R2L_TRACE(row.level, (DropText{row, why, len, detail, err}));
  RINGLOG(row.level, "R2LSm(%s) %s len %u detail %u errno %d", intfId_.stringValue().view(),
          row.words, len, detail, err);
  vxlanCounterInc(row.counter, 1);
  if (row.countBytes) vxlanCounterInc(VxlanCounterId::r2lFilteredBytes, len);
}

[[gnu::always_inline]] void Remote2LocalForwarderSm::LumVtiStatusSm::countReceived(
    const uint8_t* buf, uint32_t len) {
  dumpIfTraced("R2LSm encaped frame", buf, len);
  vxlanCounterInc(VxlanCounterId::r2lRxFrames, 1);
  vxlanCounterInc(VxlanCounterId::r2lRxBytes, len);
  R2L_TRACE(7, "() read " << len << " bytes");
  RINGLOG(7, "R2LSm(%s)::handleFileDescriptor() read %u bytes", intfId_.stringValue().view(), len);
}

[[gnu::always_inline]] void Remote2LocalForwarderSm::LumVtiStatusSm::traceWrote(ssize_t rc,
                                                                                int32_t len) {
  // The step is the frame loop's, wherever the write was made: the text names it.
  R2L_TRACE_AS("handleFileDescriptor", 7, ") wrote " << rc << " of " << len << " bytes");
  RINGLOG(7, "R2LSm(%s) wrote %zd of %d bytes", intfId_.stringValue().view(), rc, len);
}

// The steps both loops take per frame, in this file so that the receive and write
// records go inline into them.
using Sm = Remote2LocalForwarderSm::LumVtiStatusSm;

bool Sm::takeFrame(uint8_t* buf, uint32_t len, const R2L::FrameFilter& filter, unsigned& queued) {
  countReceived(buf, len);
  const R2L::Decap d = R2L::decapFrame(buf, len, filter);
  if (d.drop != R2L::Drop::tooShort && d.drop != R2L::Drop::empty) traceHeadersIfTraced(buf, d);
  if (!d.forwarded()) {
    dropFrame(d.drop, len, d.detail, 0);
    return false;
  }
  batch_->outIov[queued++] = {buf + d.offset, d.length};
  return true;
}

bool Sm::flushBatch(unsigned n) {
  R2LBatch& b = *batch_;
  unsigned done = 0;
  bool reopened = false;
  while (done < n) {
    for (unsigned i = done; i < n; ++i) b.out[i].msg_len = 0;
    const int sent = Lum::sysCalls().sendmmsg(localSock_, b.out + done, n - done, 0);
    const int err = sent < 0 ? errno : 0;
    for (int i = 0; i < sent; ++i) {
      const unsigned at = done + static_cast<unsigned>(i);
      const uint32_t bytes = b.out[at].msg_len;
      traceWrote(bytes, static_cast<int32_t>(b.outIov[at].iov_len));
      vxlanCounterInc(VxlanCounterId::r2lTxFrames, 1);
      vxlanCounterInc(VxlanCounterId::r2lTxBytes, bytes);
    }
    if (sent > 0) {
      done += static_cast<unsigned>(sent);
      continue;
    }
    if (err == ENETDOWN && !reopened) {
      // The device went down and came back under the socket: a new one, once.
      createLocalSocket();
      reopened = true;
      continue;
    }
    // Each frame that was not written is dropped and counted as one at a time would.
    for (unsigned i = done; i < n; ++i) {
      traceWrote(-1, static_cast<int32_t>(b.outIov[i].iov_len));
      dropFrame(R2L::Drop::sendError, static_cast<uint32_t>(b.outIov[i].iov_len), 0, err);
    }
    return false;
  }
  return true;
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleFileDescriptor(int32_t desc) {
  R2L_TRACE(8,
            "() initialized:" << initialized_ << " localSock:" << localSock_ << " desc:" << desc);
  RINGLOG(8, "R2LSm(%s)::handleFileDescriptor() initialized:%d localSock:%d desc:%d",
          intfId_.stringValue().view(), int{initialized_}, localSock_, desc);
  if (!initialized_ || desc == -1) return;
  if (localSock_ == -1) {
    // Nowhere to write: stop watching until the local socket is back, rather than
    // leave the datagram to wake the loop on every pass.
    syncRemoteWatch();
    return;
  }
  const VxlanAgentCounter::Run counting(counters_);
  if (batch_) return handleBatch(desc);

  const Lum::Deadline deadline(maxProcessTime_);
  const R2L::FrameFilter filter = frameFilter();
  Lum::SysCalls& sys = Lum::sysCalls();
  uint8_t buf[kFrameBufferSize];
  for (;;) {
    const Lum::SysResult got = sys.read(desc, buf, sizeof buf);
    if (got.failed()) {
      if (got.err != EAGAIN && got.err != EWOULDBLOCK) dropFrame(Drop::readError, 0, 0, got.err);
      return;  // EAGAIN: drained
    }
    const uint32_t len = static_cast<uint32_t>(got.rc);
    countReceived(buf, len);

    const R2L::Decap d = R2L::decapFrame(buf, len, filter);
    if (d.drop != Drop::tooShort && d.drop != Drop::empty) traceHeadersIfTraced(buf, d);
    if (!d.forwarded()) {
      dropFrame(d.drop, len, d.detail, 0);
      continue;
    }
    const int32_t frameLen = static_cast<int32_t>(d.length);
    const Lum::SysResult sent = sendFrame(buf + d.offset, frameLen);
    traceWrote(sent.rc, frameLen);
    if (sent.rc != frameLen) {
      // A short write ends the run as a failure does; the rest waits in the socket.
      dropFrame(Drop::sendError, d.length, 0, sent.err);
      return;
    }
    vxlanCounterInc(VxlanCounterId::r2lTxFrames, 1);
    vxlanCounterInc(VxlanCounterId::r2lTxBytes, static_cast<uint32_t>(sent.rc));

    // Only a written frame looks at the clock; what is left waits in the socket for
    // the next readable notification.
    if (deadline.passed()) {
      vxlanCounterInc(VxlanCounterId::r2lTimeBudgetExpired, 1);
      return;
    }
  }
}

// The per-frame detail of a frame long enough to have its headers read, at level 7
// only. The outer headers in front of the VXLAN offset are as received even when the
// frame has been rewritten.
void Remote2LocalForwarderSm::LumVtiStatusSm::traceHeaders(const uint8_t* buf,
                                                           const R2L::Decap& d) const {
  const uint32_t tag = VxlanDatagram::tagLen(buf);
  const Wire::Ipv4Hdr* ip = VxlanDatagram::ip(buf, tag);
  const uint16_t port = VxlanDatagram::udp(buf, tag, ip->headerLen())->dstPort.value();
  R2L_TRACE(7, " proto:0x" << std::hex << VxlanDatagram::ethType(buf, tag) << std::dec
                           << " saddr:" << ip->saddr() << " daddr:" << ip->daddr() << " port:0x"
                           << std::hex << port << std::dec << " vtep:" << frameFilter().localVtep
                           << " grp:" << floodMcastGrp_);
  if (!d.forwarded()) return;
  R2L_TRACE(7, " vni:" << d.detail << "-->vlan:" << d.vlan << ") building frame");
  R2L_TRACE(7, " recircPort:" << portId_ << " htons'd:" << htons(portId_.value()) << " glort:"
                              << Wire::hdrAt<TxRawHdr>(buf + d.offset)->hdr.glort.value());
}

Lum::SysResult Remote2LocalForwarderSm::LumVtiStatusSm::sendFrame(const uint8_t* frame,
                                                                  int32_t len) {
  if (!R2L_TEST) return writeDecapdFrame(frame, len);
  sockaddr_un addr;
  const socklen_t addrLen = testModeAddress(addr, "./VxlanR2LSM-outbound-%d");
  return Lum::sysCalls().sendto(localSock_, frame, static_cast<size_t>(len), 0,
                                reinterpret_cast<const sockaddr*>(&addr), addrLen);
}

Lum::SysResult Remote2LocalForwarderSm::LumVtiStatusSm::writeDecapdFrame(const uint8_t* frame,
                                                                         int32_t len) {
  if (len <= 0) return {0, 0};
  Lum::SysCalls& sys = Lum::sysCalls();
  const Lum::SysResult first = sys.write(localSock_, frame, static_cast<size_t>(len));
  if (!first.failed() || first.err != ENETDOWN) return first;
  // The device went down and came back under the socket: open a new one, try once more.
  createLocalSocket();
  const Lum::SysResult again = sys.write(localSock_, frame, static_cast<size_t>(len));
  R2L_TRACE(7, " resend len: " << again.rc << " errno:" << again.err);
  RINGLOG(7, "R2LSm(%s) resend len: %zd errno:%d", intfId_.stringValue().view(), again.rc,
          again.err);
  return again;
}

void Remote2LocalForwarderSm::LumVtiStatusSm::dump_buf(const char* label, const uint8_t* buf,
                                                       uint32_t len) {
  R2L_TRACE(9, label << " buf start. len is " << len);
  forEachHexLine(buf, len, [this](const char* line) {
    LUM_TRACE(forwardingTrace, 9, "R2LSm(" << intfId_ << ")::dump_buf" << line);
  });
  R2L_TRACE(9, label << " buf end ");
}

}  // namespace Vxlan
