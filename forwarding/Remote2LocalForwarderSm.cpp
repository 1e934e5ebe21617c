#include "forwarding/Remote2LocalForwarderSm.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "forwarding/TestMode.h"
#include "frames/Decap.h"
#include "frames/VxlanDatagram.h"
#include "platform/RingLog.h"
#include "platform/SysCalls.h"
#include "platform/TimeSource.h"
#include "platform/Trace.h"

namespace Vxlan {

namespace {

Lum::TraceFacility& trace = Lum::traceFacility("SwForwardingSm");

// Every socket of this direction listens to or writes all protocols.
const uint16_t kEthPAllNet = htons(ETH_P_ALL);

// The Unix address of the test mode: "<format>" with the process id, the whole
// 108-byte path field counted in the address length (110).
socklen_t testAddress(sockaddr_un& addr, const char* format) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, format, static_cast<int>(::getpid()));
  return sizeof addr;
}

}  // namespace

// Trace lines of this direction begin "R2LSm(<intfId>)::<function>".
#define R2L_TRACE(level, message) \
  LUM_TRACE(trace, level, "R2LSm(" << intfId_ << ")::" << __func__ << message)

Remote2LocalForwarderSm::LumVtiStatusSm::LumVtiStatusSm(
    const Lum::Ptr<Lum::ActivityConfig>& activity, const Lum::Ptr<const VtiStatus>& status,
    Remote2LocalForwarderSm* parent)
    : parent_(parent), intfId_(status->intfId()) {
  lumFwkActivityIs(activity);
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  handleInitialized();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleInitialized() {
  R2L_TRACE(8, "()");
  RINGLOG(8, "R2LSm(%s)::handleInitialized()", intfId_.stringValue().charPtr());
  if (parent_ && parent_->vniToVlanMaps()) {
    Lum::Ptr<VniToVlanMap> map = parent_->vniToVlanMaps()->vtiVniToVlanMap(intfId_);
    if (!map) {
      R2L_TRACE(8, " set vtiVniToVlanMap with intf Id " << intfId_);
      map = parent_->vniToVlanMaps()->vtiVniToVlanMapIs(intfId_);
    }
    vniToVlanForVtiIs(map);
  }
  initializedIs(true);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::vxlanCounterInc(VxlanCounterId id, uint32_t count) {
  if (VxlanAgentCounter* c = parent_ ? parent_->vxAgentCounter() : nullptr) {
    c->vxlanCounterAdd(id, count);
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleFileDescriptor(int32_t desc) {
  R2L_TRACE(8,
            "() initialized:" << initialized_ << " localSock:" << localSock_ << " desc:" << desc);
  RINGLOG(8, "R2LSm(%s)::handleFileDescriptor() initialized:%d localSock:%d desc:%d",
          intfId_.stringValue().charPtr(), int{initialized_}, localSock_, desc);
  if (!initialized_ || localSock_ == -1 || desc == -1) return;

  const double deadline = Lum::now() + maxProcessTime_;
  Lum::SysCalls& sys = Lum::sysCalls();
  uint8_t buf[kFrameBufferSize];
  for (;;) {
    const ssize_t n = sys.read(desc, buf, sizeof buf);
    if (n < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) return;  // drained
      R2L_TRACE(0, " read error: " << std::strerror(errno));
      RINGLOG(0, "R2LSm(%s)::handleFileDescriptor read error: %d", intfId_.stringValue().charPtr(),
              errno);
      vxlanCounterInc(VxlanCounterId::r2lSocketErrors, 1);
      return;
    }
    const uint32_t len = static_cast<uint32_t>(n);
    dump_buf("R2LSm encaped frame", buf, len);
    vxlanCounterInc(VxlanCounterId::r2lRxFrames, 1);
    vxlanCounterInc(VxlanCounterId::r2lRxBytes, len);
    R2L_TRACE(7, "() read " << len << " bytes");
    RINGLOG(7, "R2LSm(%s)::handleFileDescriptor() read %u bytes", intfId_.stringValue().charPtr(),
            len);

    int32_t offset = 0;
    if (!checkRawFrame(buf, len, offset)) continue;

    Wire::VxlanHdr* vxlan = Wire::hdrAt<Wire::VxlanHdr>(buf + offset);
    if (!vxlan->flagsVniValid()) {
      R2L_TRACE(0, " invalid vxlan flags " << std::hex << unsigned{vxlan->flags});
      RINGLOG(0, "R2LSm(%s) invalid vxlan flags %x", intfId_.stringValue().charPtr(),
              unsigned{vxlan->flags});
      vxlanCounterInc(VxlanCounterId::r2lBadFlags, 1);
      continue;
    }
    const Vni vni(vxlan->vniValue());
    Bridging::VlanIdOrNone vlan;
    if (LumVniToVlanForVti* map = vniToVlanForVti_.get(); map && map->notifier()) {
      vlan = map->notifier()->vniToVlanMap(vni);
    }
    R2L_TRACE(7, " vni:" << vni << "-->vlan:" << vlan);
    if (vlan.isNone()) {
      R2L_TRACE(0, " discard unknown vlan");
      RINGLOG(0, "R2LSm(%s) discard unknown vlan vni %u", intfId_.stringValue().charPtr(),
              vni.value());
      vxlanCounterInc(VxlanCounterId::r2lUnknownVlan, 1);
      continue;
    }

    R2L_TRACE(7, ") building frame");
    decapInPlaceForTxRaw(buf + offset, vlan.vlanId(), portId_);
    R2L_TRACE(
        7, " recircPort:" << portId_ << " htons'd:" << htons(portId_) << " glort:" << [&] {
          uint16_t stored;
          std::memcpy(&stored, &Wire::hdrAt<TxRawHdr>(buf + offset)->hdr.glort, sizeof stored);
          return stored;
        }());

    const int32_t frameLen = static_cast<int32_t>(len) - offset;
    ssize_t result = 0;
    sendFrame(buf + offset, frameLen, result);
    R2L_TRACE(7, ") wrote " << result << " of " << frameLen << " bytes");
    RINGLOG(7, "R2LSm(%s) wrote %zd of %d bytes", intfId_.stringValue().charPtr(), result,
            frameLen);
    if (result != frameLen) {
      const int err = errno;
      R2L_TRACE(0, " send error: " << std::strerror(err) << " errno:" << err << " " << 100);
      RINGLOG(0, "R2LSm(%s) send error: errno %d", intfId_.stringValue().charPtr(), err);
      vxlanCounterInc(VxlanCounterId::r2lSocketErrors, 1);
      return;
    }
    vxlanCounterInc(VxlanCounterId::r2lTxFrames, 1);
    vxlanCounterInc(VxlanCounterId::r2lTxBytes, static_cast<uint32_t>(result));

    // Only a written frame looks at the clock; what is left waits in the socket for
    // the next readable notification.
    if (Lum::now() > deadline) {
      vxlanCounterInc(VxlanCounterId::r2lTimeBudgetExpired, 1);
      return;
    }
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::sendFrame(const uint8_t* frame, int32_t len,
                                                        ssize_t& result) {
  if (R2L_TEST) {
    sockaddr_un addr;
    const socklen_t addrLen = testAddress(addr, "./VxlanR2LSM-outbound-%d");
    result = Lum::sysCalls().sendto(localSock_, frame, static_cast<size_t>(len), 0,
                                    reinterpret_cast<const sockaddr*>(&addr), addrLen);
  } else {
    result = writeDecapdFrame(frame, len);
  }
}

bool Remote2LocalForwarderSm::LumVtiStatusSm::checkRawFrame(const uint8_t* buf, uint32_t len,
                                                            int32_t& offset) {
  auto badLength = [&](const char* what, uint32_t limit) {
    LUM_TRACE(trace, 0,
              "R2LSm(" << intfId_ << ")::checkRawFrame discard " << what << " frame " << len
                       << " < " << limit);
    RINGLOG(0, "R2LSm(%s) discard %s frame %u < %u", intfId_.stringValue().charPtr(), what, len,
            limit);
    vxlanCounterInc(VxlanCounterId::r2lBadLength, 1);
    return false;
  };
  if (len <= Wire::kEthHdrLen) return badLength("too short", Wire::kEthHdrLen);
  const uint32_t tag = VxlanDatagram::tagLen(buf);
  offset = static_cast<int32_t>(tag);
  if (len <= VxlanDatagram::kMinIpUdpLen + tag) {
    return badLength("too short", VxlanDatagram::kMinIpUdpLen + tag);
  }
  const Wire::Ipv4Hdr* ip = VxlanDatagram::ip(buf, tag);
  const uint32_t vxlanOffset = VxlanDatagram::vxlanOffset(tag, ip->headerLen());
  offset = static_cast<int32_t>(vxlanOffset);
  if (len <= vxlanOffset + VxlanDatagram::kVxlanAndInnerEthLen) {
    return badLength("empty", vxlanOffset + VxlanDatagram::kVxlanAndInnerEthLen);
  }

  const uint16_t ethType = VxlanDatagram::ethType(buf, tag);
  const Wire::IpAddr saddr = ip->saddr();
  const Wire::IpAddr daddr = ip->daddr();
  const uint16_t port = VxlanDatagram::udp(buf, tag, ip->headerLen())->dstPort.value();
  const VtiStatus* status = notifier().ptr();
  const Wire::IpAddr localVtep = status ? status->localVtepAddr() : Wire::IpAddr();
  const uint16_t udpPort = status ? status->udpPort() : 0;
  R2L_TRACE(7, " proto:0x" << std::hex << ethType << std::dec << " saddr:" << saddr
                           << " daddr:" << daddr << " port:0x" << std::hex << port << std::dec
                           << " vtep:" << localVtep << " grp:" << floodMcastGrp_);

  // The filters, in this order: not IPv4, our own datagram, not for us, not our port.
  const bool filtered = ethType != Wire::kEthTypeIpv4 || saddr == localVtep ||
                        (daddr != floodMcastGrp_ && daddr != localVtep) || port != udpPort;
  if (filtered) {
    R2L_TRACE(7, " filter frame");
    RINGLOG(7, "R2LSm(%s) filter frame", intfId_.stringValue().charPtr());
    vxlanCounterInc(VxlanCounterId::r2lFilteredFrames, 1);
    vxlanCounterInc(VxlanCounterId::r2lFilteredBytes, len);
    return false;
  }
  return true;
}

ssize_t Remote2LocalForwarderSm::LumVtiStatusSm::writeDecapdFrame(const uint8_t* frame,
                                                                  int32_t len) {
  if (len <= 0) return 0;
  Lum::SysCalls& sys = Lum::sysCalls();
  ssize_t result = sys.write(localSock_, frame, static_cast<size_t>(len));
  if (result >= 0 || errno != ENETDOWN) return result;
  // The device went down and came back under the socket: open a new one, try once more.
  createLocalSocket();
  result = sys.write(localSock_, frame, static_cast<size_t>(len));
  R2L_TRACE(7, " resend len: " << result << " errno:" << errno);
  RINGLOG(7, "R2LSm(%s) resend len: %zd errno:%d", intfId_.stringValue().charPtr(), result, errno);
  return result;
}

void Remote2LocalForwarderSm::LumVtiStatusSm::dump_buf(const char* label, const uint8_t* buf,
                                                       uint32_t len) {
  if (!trace.enabled(9)) return;
  R2L_TRACE(9, label << " buf start. len is " << len);
  char line[128];
  size_t used = 0;
  for (uint32_t i = 0; i < len; ++i) {
    used += static_cast<size_t>(std::snprintf(line + used, sizeof line - used, "%02x", buf[i]));
    if ((i + 1) % 32 == 0) {
      R2L_TRACE(9, line);
      used = 0;
    }
  }
  line[used] = '\0';
  R2L_TRACE(9, line);
  R2L_TRACE(9, label << " buf end ");
}

void Remote2LocalForwarderSm::LumVtiStatusSm::createLocalSocket() {
  R2L_TRACE(8, "() L2R_TEST:" << L2R_TEST << " R2L_TEST: " << R2L_TEST);
  Lum::SysCalls& sys = Lum::sysCalls();
  localSockIs(closeAndCheck(localSock_));
  int sock;
  if (R2L_TEST) {
    sock = sys.socket(AF_UNIX, SOCK_DGRAM, 0);
    if (sock < 0) throw Lum::ErrnoException(errno, "");
  } else {
    sock = sys.socket(AF_PACKET, SOCK_RAW, kEthPAllNet);
    if (sock < 0) throw Lum::ErrnoException(errno, "creating txraw socket");
    ifreq req;
    std::memset(&req, 0, sizeof req);
    std::strncpy(req.ifr_name, "txraw", IFNAMSIZ - 1);
    if (sys.ioctl(sock, SIOCGIFINDEX, &req) < 0) {
      // Bound with index 0 for now; the device's arrival rebuilds the socket.
      R2L_TRACE(0, "() unable to lookup ifindex for txraw: " << std::strerror(errno));
      RINGLOG(0, "R2LSm(%s) unable to lookup ifindex for txraw: %d",
              intfId_.stringValue().charPtr(), errno);
      vxlanCounterInc(VxlanCounterId::r2lSocketErrors, 1);
    }
    sockaddr_ll ll;
    std::memset(&ll, 0, sizeof ll);
    ll.sll_family = AF_PACKET;
    ll.sll_protocol = kEthPAllNet;
    ll.sll_ifindex = req.ifr_ifindex;
    if (sys.bind(sock, reinterpret_cast<const sockaddr*>(&ll), sizeof ll) < 0) {
      R2L_TRACE(0, "() bind txraw: " << std::strerror(errno));
      RINGLOG(0, "R2LSm(%s) bind txraw: %d", intfId_.stringValue().charPtr(), errno);
      vxlanCounterInc(VxlanCounterId::r2lSocketErrors, 1);
    }
  }
  // Stored before the last step, so that a failure there leaves no descriptor behind.
  localSockIs(sock);
  const int zero = 0;
  if (sys.setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &zero, sizeof zero) < 0) {
    const int err = errno;
    vxlanCounterInc(VxlanCounterId::r2lSocketErrors, 1);
    throw Lum::ErrnoException(err, "SO_RCVBUF");
  }
}

int32_t Remote2LocalForwarderSm::LumVtiStatusSm::closeAndCheck(int32_t sock) {
  if (sock == -1) return -1;
  if (Lum::sysCalls().close(sock) < 0) throw Lum::ErrnoException(errno, "R2LSm closing socket");
  return -1;
}

}  // namespace Vxlan
