// The frame loop of the local-to-remote machine: the three readable handlers and their
// priority scheme, handleFrames (read, L2R::encapFrame, send to each destination),
// the one exit of a dropped frame, and the copy to the ARP resolver.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ostream>

#include "forwarding/DropTables.h"
#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"
#include "forwarding/TestMode.h"
#include "frames/ArpResolverMsg.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

namespace {

using L2R::Drop;
using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;
using Id = VxlanCounterId;

// The name the ARP resolver listens on: the switch's vocabulary, it stays as it is.
constexpr const char* kArpResolverName = "VeltraArpResolver";
// The rows are in DropTables.h, where the packet trace reads them too.
using L2R::DropRow;
using L2R::kNoCounter;

struct DropText {
  const DropRow& row;
  uint32_t detail;
  int err;
};

std::ostream& operator<<(std::ostream& os, const DropText& t) {
  os << t.row.words;
  if (t.row.why == Drop::readError) return os << " " << std::strerror(t.err);
  if (t.row.why == Drop::badType) return os << "0x" << std::hex << t.detail << std::dec;
  return os << t.detail << t.row.after;
}

}  // namespace

void Sm::dropFrame(Drop why, uint32_t detail, int err) {
  const DropRow& row = L2R::dropRow(why);
  L2R_TRACE(row.level, (DropText{row, detail, err}));
  RINGLOG(row.level, "L2RSm(%s)::handleFrames%s%u errno %d", intfId_.stringValue().view(),
          row.words, detail, err);
  if (row.counter != kNoCounter) vxlanCounterInc(static_cast<Id>(row.counter), 1);
}

void Sm::handleFileDescriptorHi() {
  L2R_TRACE(7, "Received packet on local socket with high priority, sock: " << localSockHi_);
  handleFrames(localSockHi_, remoteSockHi_);
}

void Sm::handleFileDescriptorLo() {
  L2R_TRACE(7, "Received packet on local socket with low priority, sock:" << localSockLo_);
  if (highPriorityNotFinished_) {
    L2R_TRACE(7, "Work not finished on High Priority Socket");
    L2R_TRACE(7, "Calling handleFrames for High prio socket");
    handleFrames(localSockHi_, remoteSockHi_);
    return;
  }
  handleFrames(localSockLo_, remoteSockLo_);
}

void Sm::handleFileDescriptorArpInspect() {
  L2R_TRACE(7, "Received packet on arp inspect socket");
  if (highPriorityNotFinished_) {
    L2R_TRACE(7, "Work not finished on High Priority Socket");
    L2R_TRACE(7, "Calling handleFrames for High prio socket");
    handleFrames(localSockHi_, remoteSockHi_);
    return;
  }
  handleFrames(arpInspectSock_, remoteSockLo_);
}

L2R::EncapFilter Sm::encapFilter() {
  L2R::EncapFilter f;
  if (const VtiStatus* s = status()) {
    f.vlanToVni = &vniByVlan_;
    f.localVtep = s->localVtepAddr();
    f.vArpVtep = s->vArpVtepAddr();
    f.ttl = s->ttl();
    f.udpPort = s->udpPort();
  }
  if (owner_ && owner_->inputs().fhrpVarpMacStatus) {
    f.varpVirtualMac = owner_->inputs().fhrpVarpMacStatus->varpVirtualMac();
  }
  f.tunnelPorts = &dot1QTunnelIfIndex_;
  f.peerLinkIfIndex = peerLinkIfIndex_;
  f.arp = this;
  return f;
}

void Sm::handleFrames(int32_t localSock, int32_t remoteSock) {
  if (!initialized_) return;
  if (localSock == -1 || remoteSock == -1) {
    L2R_TRACE(8, "() invalid socket");
    return;
  }
  if (!operUp()) return;
  const VxlanAgentCounter::Run counting(counters_);
  if (L2RBatch* b = batchFor(localSock)) return handleFramesBatch(localSock, remoteSock, *b);
  const bool hi = localSock == localSockHi_;
  const Lum::Deadline deadline(hi ? maxProcessTimeHi_ : maxProcessTimeLo_);
  const L2R::EncapFilter filter = encapFilter();
  Lum::SysCalls& sys = Lum::sysCalls();
  L2R::FrameBuffer buf;
  for (;;) {
    const Lum::SysResult got = localSock == arpInspectSock_
                                   ? readInspected(localSock, buf.read, sizeof buf.read)
                                   : sys.read(localSock, buf.read, sizeof buf.read);
    L2R_TRACE(7, "() read " << got.rc << " bytes");
    if (got.failed()) {
      if (got.err == EAGAIN || got.err == EWOULDBLOCK) {
        if (hi) highPriorityDrained();
      } else {
        dropFrame(Drop::readError, 0, got.err);
      }
      return;
    }
    // Only a forwarded frame looks at the clock; what is left waits in the socket.
    if (forwardFrame(buf.bytes(), static_cast<uint32_t>(got.rc), hi, filter, remoteSock, nullptr) &&
        deadline.passed()) {
      budgetSpent(hi);
      return;
    }
  }
}

bool Sm::forwardFrame(uint8_t* bytes, uint32_t len, bool hi, const L2R::EncapFilter& filter,
                      int32_t remoteSock, L2RBatch* batch) {
  vxlanCounterInc(Id::l2rRxFrames, 1);
  vxlanCounterInc(Id::l2rRxBytes, len);
  vxlanCounterInc(hi ? Id::l2rRxHiFrames : Id::l2rRxLoFrames, 1);
  vxlanCounterInc(hi ? Id::l2rRxHiBytes : Id::l2rRxLoBytes, len);

  const L2R::Encap e = L2R::encapFrame(bytes, len, filter);
  if (!e.forwarded()) {
    dropFrame(e.drop, e.detail, 0);
    return false;
  }
  traceAcceptedIfNeeded(e);
  uint8_t* frame = bytes + e.frameOffset();
  uint32_t hostIp = 0;
  const BumVtepList* const list =
      getRemoteVtepAddr(Wire::EthAddr::fromBytes(frame), e.vlan, hostIp);
  const size_t listSize = list ? list->remoteVtepAddrSize() : 0;
  L2R_TRACE(7, "L2RSm() total dest vteps: " << listSize + (hostIp != 0 ? 1 : 0));
  if (hostIp == 0 && listSize == 0) {
    dropFrame(Drop::noDestination, e.vlan, 0);
    return false;
  }
  vxlanCounterInc(Id::l2rForwardFrames, 1);
  vxlanCounterInc(Id::l2rForwardBytes, len);
  uint8_t* hdr = bytes + e.offset;
  const auto toVtep = [&](Wire::IpAddr addr) {
    // The filter holds the VTI's two addresses: the status is looked at (and the skip
    // traced) only for a match.
    if ((addr == filter.localVtep || addr == filter.vArpVtep) && ownAddress(addr)) return;
    if (batch) {
      queueToVtep(*batch, hdr, e, remoteSock, addr);
    } else {
      sendToVtep(hdr, e, remoteSock, addr);
    }
  };
  // hostIp first, then the list in its order.
  if (hostIp != 0) toVtep(Wire::IpAddr::fromHostOrder(hostIp));
  if (list) {
    for (const auto& [addr, member] : list->remoteVtepAddr()) toVtep(addr);
  }
  return true;
}

void Sm::budgetSpent(bool hi) {
  vxlanCounterInc(Id::l2rTimeBudgetExpired, 1);
  L2R_TRACE(7, "Timeout");
  if (hi) highPriorityNotFinishedIs(true);
}

void Sm::traceAccepted(const L2R::Encap& e) {
  if (e.tagsRemoved & L2R::Encap::kStripped) {
    L2R_TRACE(0, " vlan " << e.vlan << " removing vlan tag vlan " << e.strippedVlan);
  }
  if (e.tunnelPort) {
    vxlanCounterInc(Id::l2rDot1qTunnelFrames, 1);
    L2R_TRACE(0, " vlan " << e.vlan << " received on dot1q tunnel port " << e.srcIfIndex
                          << " dot1q flag " << e.tunnelPort);
  }
  if (e.tagsRemoved & L2R::Encap::kStrippedInTrunk) {
    L2R_TRACE(0, " vlan " << e.vlan << " removing vlan tag vlan in trunk " << e.strippedTrunkVlan);
  }
  L2R_TRACE(7, " vlan " << e.vlan << " vni " << e.vni << " arpFlag:" << e.arpFlag << " srcIfIndex "
                        << e.srcIfIndex);
}

bool Sm::ownAddress(Wire::IpAddr addr) const {
  const VtiStatus* s = status();
  if (s && addr == s->localVtepAddr()) {
    L2R_TRACE(7, "L2RSm() skipped sendto localVtep " << addr);
    return true;
  }
  if (s && addr == s->vArpVtepAddr()) {
    L2R_TRACE(7, "L2RSm() skipped sendto vArpVtep " << addr);
    return true;
  }
  return false;
}

void Sm::sendToVtep(uint8_t* hdr, const L2R::Encap& e, int32_t remoteSock, Wire::IpAddr addr) {
  L2R::destinationIs(hdr, addr);
  const sockaddr_in to = vtepAddress(hdr, addr);
  dumpBuf("L2RSm encaped frame", hdr, e.length);
  const Lum::SysResult sent = Lum::sysCalls().sendto(
      remoteSock, hdr, e.length, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  L2R_TRACE(7, "L2RSm() sendto " << addr << " returned " << sent.rc);
  sentToVtep(sent.failed() ? sent.err : 0, remoteSock, addr, e.length);
  if (!sent.failed() && e.arpFlag)
    sendToArpResolver(hdr, hdr + L2R::kOuterHdrLen, e.length, e.vlan);
}

sockaddr_in Sm::vtepAddress(const uint8_t* hdr, Wire::IpAddr addr) {
  sockaddr_in to;
  std::memset(&to, 0, sizeof to);
  to.sin_family = AF_INET;
  std::memcpy(&to.sin_port, hdr + 22, sizeof to.sin_port);
  to.sin_addr.s_addr = addr.value();
  return to;
}

void Sm::sendFailed(int err, int32_t remoteSock, Wire::IpAddr addr) {
  const Id id = err != ENOBUFS                ? Id::l2rSendErrors
                : remoteSock == remoteSockHi_ ? Id::l2rSendNoBufHi
                                              : Id::l2rSendNoBufLo;
  vxlanCounterInc(id, 1);
  L2R_TRACE(0, "send error: " << std::strerror(err));
  RINGLOG(0, "L2RSm(%s) send error to %08x: %d", intfId_.stringValue().view(), addr.hostOrder(),
          err);
}

void Sm::sendToArpResolver(const uint8_t* hdr, const uint8_t* frame, uint32_t length,
                           uint32_t vlan) {
  ArpResolverMsg msg{};
  msg.tag.valueIs(ArpResolverMsg::kTag);
  msg.vlan.valueIs(static_cast<uint16_t>(vlan));
  msg.eth.typeOrLen.valueIs(Wire::kEthTypeIpv4);
  // The packet's first bytes: the outer header, then the frame behind it.
  const uint32_t copied = std::min<uint32_t>(length, ArpResolverMsg::kPacketBytes);
  std::memcpy(msg.packet, hdr, L2R::kOuterHdrLen);
  std::memcpy(msg.packet + L2R::kOuterHdrLen, frame, copied - L2R::kOuterHdrLen);
  vxlanCounterInc(Id::l2rArpResolverFrames, 1);
  sockaddr_un addr;
  socklen_t addrLen;
  if (L2R_TEST) {
    addrLen = testModeAddress(addr, "./VxlanL2RSM-arp-%d");
  } else {
    std::memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%c%s", 0, kArpResolverName);
    addrLen = sizeof addr;
  }
  const Lum::SysResult sent = Lum::sysCalls().sendto(
      arpSock_, &msg, sizeof msg, 0, reinterpret_cast<const sockaddr*>(&addr), addrLen);
  L2R_TRACE(8, "L2RSm() arp sent : " << sent.rc);
  if (sent.failed()) {
    const char* path = addr.sun_path[0] ? addr.sun_path : kArpResolverName;
    L2R_TRACE(0, "arp send error to " << path << " : " << std::strerror(sent.err));
    vxlanCounterInc(Id::l2rArpResolverSendErrors, 1);
  }
}

void Sm::dumpBuf(const char* label, const uint8_t* buf, uint32_t len) {
  if (!L2R::trace.enabled(9)) return;
  L2R_TRACE(9, label << " buf start. len is " << len);
  forEachHexLine(buf, len, [this](const char* line) {
    LUM_TRACE(forwardingTrace, 9, "L2RSm(" << intfId_ << ")::dumpBuf" << line);
  });
  L2R_TRACE(9, label << " buf end ");
}

}  // namespace Vxlan
