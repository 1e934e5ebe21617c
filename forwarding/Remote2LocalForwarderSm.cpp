#include "forwarding/Remote2LocalForwarderSm.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "forwarding/TestMode.h"
#include "frames/Decap.h"
#include "frames/VxlanDatagram.h"
#include "platform/os/SysCalls.h"
#include "platform/os/TimeSource.h"
#include "platform/trace/RingLog.h"
#include "platform/trace/Trace.h"

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

// Binds a packet socket of this direction, all protocols, to one device by index.
int bindToDevice(Lum::SysCalls& sys, int sock, int ifindex) {
  sockaddr_ll ll;
  std::memset(&ll, 0, sizeof ll);
  ll.sll_family = AF_PACKET;
  ll.sll_protocol = kEthPAllNet;
  ll.sll_ifindex = ifindex;
  return sys.bind(sock, reinterpret_cast<const sockaddr*>(&ll), sizeof ll);
}

}  // namespace

// Trace lines of this direction begin "R2LSm(<intfId>)::<function>".
#define R2L_TRACE(level, message) \
  LUM_TRACE(trace, level, "R2LSm(" << intfId_ << ")::" << __func__ << message)

// ---- The manager -------------------------------------------------------------

Remote2LocalForwarderSm::Remote2LocalForwarderSm(const Inputs& inputs) : inputs_(inputs) {
  vxHwStatusDirReactor_.is(inputs_.vxHwStatusDir);
  igmpConfigReactor_.is(inputs_.igmpConfig);
  vxBumStatusReactor_.is(inputs_.vxBumStatus);
  vniToVlanMapsReactor_.is(inputs_.vniToVlanMaps);
  kernelNetInfoRootReactor_.is(inputs_.kernelNetInfoRoot);
  mlagStatusReactor_.is(inputs_.mlagStatus);
  if (!inputs_.vtiStatusDir) return;
  // The catch-up of the new notifier builds the machines.
  notifierIs(inputs_.vtiStatusDir);
  isRegisteredNotifieeIs(true);
}

Remote2LocalForwarderSm::~Remote2LocalForwarderSm() = default;

Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> Remote2LocalForwarderSm::vtiStatusSm(
    const Wire::IntfId& id) const {
  return vtiStatusSm_(id);
}

size_t Remote2LocalForwarderSm::vtiStatusSmSize() const {
  return vtiStatusSm_.size();
}

Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> Remote2LocalForwarderSm::vtiStatusSmIs(
    const Lum::Ptr<const VtiStatus>& status) {
  return vtiStatusSm_.is(status);
}

Lum::Ptr<Remote2LocalForwarderSm::LumVtiStatusSm> Remote2LocalForwarderSm::vtiStatusSmDel(
    const Wire::IntfId& id) {
  return vtiStatusSm_.del(id);
}

void Remote2LocalForwarderSm::vtiStatusSmDelAll() {
  vtiStatusSm_.delAll();
}

void Remote2LocalForwarderSm::onVtiStatus(const Wire::IntfId& id) {
  const Lum::Ptr<const VtiStatusDir> dir = notifier();
  if (Lum::Ptr<const VtiStatus> status = dir ? dir->vtiStatus(id) : nullptr) {
    vtiStatusSmIs(status);
  } else {
    vtiStatusSmDel(id);
  }
}

void Remote2LocalForwarderSm::onVtiStatus() {
  syncVtiStatusSm();
}

void Remote2LocalForwarderSm::onNotifier() {
  syncVtiStatusSm();
}

void Remote2LocalForwarderSm::syncVtiStatusSm() {
  const Lum::Ptr<const VtiStatusDir> dir = notifier();
  if (!dir) return;
  for (auto it = dir->vtiStatusIterator(); it; ++it) vtiStatusSmIs(it.ptr());
  for (auto it = vtiStatusSm_.iterator(); it; ++it) {
    if (!dir->vtiStatus(it.key())) vtiStatusSmDel(it.key());
  }
}

// ---- One hardware status entry ------------------------------------------------

Remote2LocalForwarderSm::LumVtiStatusSm::LumVxHwStatusSm::LumVxHwStatusSm(
    const Lum::Ptr<const VxlanHwStatus>& status, LumVtiStatusSm* owner)
    : lumVtiStatusSm_(owner) {
  notifierIs(status);
  isRegisteredNotifieeIs(true);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::LumVxHwStatusSm::handlePortId() {
  if (!lumVtiStatusSm_ || !notifier()) return;
  LUM_TRACE(trace, 8,
            "R2LSm(" << lumVtiStatusSm_->intfId() << ")::handlePortId portId:"
                     << notifier()->portId() << " lumVtiStatusSm():" << lumVtiStatusSm_);
  lumVtiStatusSm_->portIdIs(notifier()->portId());
}

// ---- Construction and the lifecycle -------------------------------------------

Remote2LocalForwarderSm::LumVtiStatusSm::LumVtiStatusSm(
    const Lum::Ptr<Lum::ActivityConfig>& activity, const Lum::Ptr<const VtiStatus>& status,
    Remote2LocalForwarderSm* parent)
    : parent_(parent), intfId_(status->intfId()) {
  lumFwkActivityIs(activity);
  notifierIs(status);
  isRegisteredNotifieeIs(true);
  if (parent_ && parent_->vxHwStatusDir()) syncVxHwStatusSm(parent_->vxHwStatusDir().ptr());
  handleInitialized();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleInitialized() {
  R2L_TRACE(8, "()");
  RINGLOG(8, "R2LSm(%s)::handleInitialized()", intfId_.stringValue().charPtr());
  if (parent_ && parent_->vtiStatusDir()) {
    notifierIs(parent_->vtiStatusDir()->vtiStatusIs(intfId_));
  }
  if (parent_) {
    vxHwStatusDirIs(parent_->vxHwStatusDir());
    vxBumStatusIs(parent_->vxBumStatus());
    kernelNetworkInfoRootIs(parent_->kernelNetInfoRoot());
    mlagStatusIs(parent_->mlagStatus());
  }
  if (parent_ && parent_->vniToVlanMaps()) {
    Lum::Ptr<VniToVlanMap> map = parent_->vniToVlanMaps()->vtiVniToVlanMap(intfId_);
    if (!map) {
      R2L_TRACE(8, " set vtiVniToVlanMap with intf Id " << intfId_);
      map = parent_->vniToVlanMaps()->vtiVniToVlanMapIs(intfId_);
    }
    vniToVlanForVtiIs(map);
  }
  initializedIs(true);
  handleBumMcastGrp();
  handleVlanToVniMap();
  // A socket that cannot be opened now (no privilege, a device missing) must not undo
  // the machine: it stays, with the sockets closed, for the next event to repair. An
  // exception here would leave the constructor and with it the whole start.
  try {
    handleOperStatus();
  } catch (const Lum::ErrnoException& e) {
    R2L_TRACE(1, "() sockets not opened: " << e.what());
    RINGLOG(1, "R2LSm(%s)::handleInitialized sockets not opened: %s",
            intfId_.stringValue().charPtr(), e.what());
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::onNotifier() {
  // Before the end of handleInitialized there is nothing to catch up on: it does the
  // same work itself, once everything is in place.
  if (!initialized_) return;
  handleVlanToVniMap();
  handleOperStatus();
  handleControllerMode();
  handleLocalVtepAddr();
  handleSrcIpIntf();
  handleUdpPort();
  handleBumMcastGrp();
  handleMcastGrpDecap();
}

bool Remote2LocalForwarderSm::LumVtiStatusSm::operUp() const {
  const Lum::Ptr<const VtiStatus> status = notifier();
  return status && status->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

Routing::Igmp::Application::Config* Remote2LocalForwarderSm::LumVtiStatusSm::igmpConfig() const {
  return parent_ ? parent_->igmpConfig().ptr() : nullptr;
}

Routing::Pim::Application::Config* Remote2LocalForwarderSm::LumVtiStatusSm::pimConfig() const {
  return parent_ ? parent_->pimConfig().ptr() : nullptr;
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleOperStatus() {
  if (operUp()) {
    R2L_TRACE(8, "() UP");
    doConnectSockets();
  } else {
    R2L_TRACE(8, "() DOWN");
    doDisconnectSockets();
  }
  handleMcastGrpDecap();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleControllerMode() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  const bool mode = status && status->controllerClientMode();
  if (operUp()) {
    R2L_TRACE(8, "() Oper UP, Controller Mode:" << mode);
    doDisconnectSockets();
    doConnectSockets();
  } else {
    R2L_TRACE(8, "() Oper DOWN, Controller Mode:" << mode);
    doDisconnectSockets();
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleUdpPort() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  R2L_TRACE(8, "() udpPort:" << (status ? status->udpPort() : 0));
  remoteSockIs(closeAndCheck(remoteSock_));
  if (operUp()) createRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleSrcIpIntf() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  R2L_TRACE(8, "() srcIpIntf:" << (status ? status->srcIpIntf() : Wire::IntfId()));
  remoteSockIs(closeAndCheck(remoteSock_));
  if (operUp()) createRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleLocalVtepAddr() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  const Wire::IpAddr vtep = status ? status->localVtepAddr() : Wire::IpAddr();
  R2L_TRACE(8, "() localVtepAddr:" << vtep);
  remoteSockIs(closeAndCheck(remoteSock_));
  // Without an address there is nothing to receive for.
  if (operUp() && !vtep.isZero()) createRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVxlanHwStatus(const Wire::IntfId& id) {
  R2L_TRACE(8, " name:" << id);
  const VxlanHwStatusDir* dir = vxHwStatusDir_ ? vxHwStatusDir_->notifier().ptr() : nullptr;
  if (Lum::Ptr<const VxlanHwStatus> hw = dir ? dir->vxlanHwStatus(id) : nullptr) {
    portIdIs(hw->portId());
    vxHwStatusSmIs(hw);
  } else {
    portIdIs(HwPortId::unknown());
    vxHwStatusSmDel(id);
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVxlanHwStatus() {
  R2L_TRACE(8, "()");
  handleVxlanHwStatus(intfId_);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVxlanHwStatusAll() {
  syncVxHwStatusSm(vxHwStatusDir_ ? vxHwStatusDir_->notifier().ptr() : nullptr);
  handleVxlanHwStatus();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::syncVxHwStatusSm(const VxlanHwStatusDir* dir) {
  if (!dir) return;
  for (auto it = dir->vxlanHwStatusIterator(); it; ++it) vxHwStatusSmIs(it.ptr());
  for (auto it = vxHwStatusSm_.iterator(); it; ++it) {
    if (!dir->vxlanHwStatus(it.key())) vxHwStatusSmDel(it.key());
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::doPrepareToDie() {
  R2L_TRACE(8, "() remote:" << remoteSock_ << " local:" << localSock_);
  doDisconnectSockets();
  portIdIs(HwPortId::unknown());
  vxHwStatusSmDel(intfId_);
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
    if (const VniToVlanMap* map = vniToVlanMapOfVti()) vlan = map->vniToVlanMap(vni);
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
        7, " recircPort:" << portId_ << " htons'd:" << htons(portId_.value()) << " glort:" << [&] {
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
    if (bindToDevice(sys, sock, req.ifr_ifindex) < 0) {
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

// ---- The remote socket and the pair -------------------------------------------

void Remote2LocalForwarderSm::LumVtiStatusSm::createRemoteSocket() {
  if (!initialized_) {
    R2L_TRACE(8, "() uninit return");
    return;
  }
  R2L_TRACE(8, "()");
  const Lum::Ptr<const VtiStatus> status = notifier();
  Lum::SysCalls& sys = Lum::sysCalls();
  remoteSockIs(closeAndCheck(remoteSock_));
  if (R2L_TEST) {
    const int sock = sys.socket(AF_UNIX, SOCK_DGRAM, 0);
    if (sock < 0) throw Lum::ErrnoException(errno, "");
    remoteSockIs(sock);
    sockaddr_un addr;
    const socklen_t addrLen = testAddress(addr, "./VxlanR2LSM-inbound-%d");
    // A file left by an earlier run of this process id would make the bind fail.
    sys.unlink(addr.sun_path);
    if (sys.bind(sock, reinterpret_cast<const sockaddr*>(&addr), addrLen) < 0) {
      R2L_TRACE(0, " bind: " << std::strerror(errno));
    }
  } else {
    const int sock = sys.socket(AF_PACKET, SOCK_RAW, kEthPAllNet);
    if (sock < 0) throw Lum::ErrnoException(errno, "");
    remoteSockIs(sock);
    const bool ctrlClntMode = status->controllerClientMode();
    R2L_TRACE(7, "(): floodMcastGrp:" << floodMcastGrp_ << " ctrlClntMode:" << ctrlClntMode);
    // A rebuild drops every membership for an instant and writes them anew.
    if (!floodMcastGrp_.isZero() && !ctrlClntMode) {
      R2L_TRACE(8, " join multicast group " << floodMcastGrp_);
      if (auto* igmp = igmpConfig()) igmp->intfConfigDelAll();
      joinMcastGroup(floodMcastGrp_);
    } else {
      R2L_TRACE(8, " not joining any multicast group ");
      if (auto* igmp = igmpConfig()) igmp->intfConfigDelAll();
      if (auto* pim = pimConfig()) pim->intfModeDelAll();
      handleMcastGrpDecap();
    }

    const Lum::String8& device = status->srcIntfKernelName();
    R2L_TRACE(7, "(): binding remoteSock to " << device);
    ifreq req;
    std::memset(&req, 0, sizeof req);
    std::memcpy(req.ifr_name, device.charPtr(),
                std::min(device.view().size(), sizeof req.ifr_name));
    if (sys.ioctl(sock, SIOCGIFINDEX, &req) < 0) {
      R2L_TRACE(0, "() ioctl: " << std::strerror(errno));
      doDisconnectSockets();
      return;
    }
    if (bindToDevice(sys, sock, req.ifr_ifindex) < 0) {
      R2L_TRACE(0, " multicast bind: " << std::strerror(errno));
      doDisconnectSockets();
      return;
    }
  }
  R2L_TRACE(7, "() multicast socket:" << remoteSock_ << " port:" << status->udpPort()
                                      << " initalized:" << initialized_
                                      << " intfName:" << status->srcIpIntf()
                                      << " shortName:" << status->srcIpIntf().shortName()
                                      << " group:" << floodMcastGrp_);
  // The old entity lets go of the descriptor before it is dropped: it does not own it.
  if (fileDescriptor_ && fileDescriptor_->notifier()) fileDescriptor_->notifier()->descriptorIs(-1);
  Lum::Ptr<Lum::FileDescriptor> fd = new Lum::FileDescriptor("VxlanR2LSmMulticast");
  fd->descriptorIs(remoteSock_);
  // The frame loop ends on EAGAIN.
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(true);
  fileDescriptorIs(fd);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::doConnectSockets() {
  const Lum::Ptr<const VtiStatus> status = notifier();
  R2L_TRACE(8, "() oper:" << (status ? status->operStatus() : Interface::IntfOperStatus()));
  if (!operUp()) return;
  createLocalSocket();
  createRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::doDisconnectSockets() {
  R2L_TRACE(8, "()");
  if (fileDescriptor_ && fileDescriptor_->notifier()) fileDescriptor_->notifier()->descriptorIs(-1);
  // The configuration is the agent's as a whole; cleared even with no socket open.
  if (auto* igmp = igmpConfig()) igmp->intfConfigDelAll();
  if (auto* pim = pimConfig()) pim->intfModeDelAll();
  if (remoteSock_ != -1) {
    R2L_TRACE(7, " removing implicit igmp and pim");
    remoteSockIs(closeAndCheck(remoteSock_));
  }
  localSockIs(closeAndCheck(localSock_));
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleKernelDevice(const Lum::String8& name) {
  R2L_TRACE(8, "() name:" << name);
  if (name.view() != "txraw") return;
  // The sockets of a machine still being built are opened at the end of
  // handleInitialized, with the device's state of that moment.
  if (!initialized_) return;
  const KernelNetworkInfo::Root* root =
      kernelNetworkInfoRoot_ ? kernelNetworkInfoRoot_->notifier().ptr() : nullptr;
  const Lum::Ptr<KernelNetworkInfo::Interface> intf = root ? root->interfaceByName(name) : nullptr;
  if (!intf) {
    doDisconnectSockets();
    return;
  }
  R2L_TRACE(7, " flags:" << intf->flags());
  doDisconnectSockets();
  doConnectSockets();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleKernelDevice() {
  handleKernelDevice(Lum::String8("txraw"));
}

// ---- The VNI to VLAN table -----------------------------------------------------

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVlanToVniMap(Bridging::VlanId vlan) {
  const Lum::Ptr<const VtiStatus> status = notifier();
  if (!status) return;
  const VniOrNone vni = status->vlanToVniMap(vlan);
  R2L_TRACE(8, "() vlan:" << vlan << " vni:" << vni);
  VniToVlanMap* map = vniToVlanForVti_ ? vniToVlanForVti_->notifier().ptr() : nullptr;
  if (!map) return;
  if (vni.isNone()) {
    // Only the first entry of this VLAN goes; a VNI that another VLAN also named
    // keeps no reverse entry until the next rebuild.
    for (const auto& [entryVni, entryVlan] : map->vniToVlanMap()) {
      if (entryVlan != Bridging::VlanIdOrNone(vlan)) continue;
      const Vni gone = entryVni;
      R2L_TRACE(7, "() removing vlan:" << vlan << " vni:" << gone);
      map->vniToVlanMapDel(gone);
      return;
    }
    return;
  }
  R2L_TRACE(7, "() adding vlan:" << vlan << " vni:" << vni);
  map->vniToVlanMapIs(Vni(vni.value()), Bridging::VlanIdOrNone(vlan));
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleVlanToVniMap() {
  R2L_TRACE(8, "()");
  const Lum::Ptr<const VtiStatus> status = notifier();
  VniToVlanMap* map = vniToVlanForVti_ ? vniToVlanForVti_->notifier().ptr() : nullptr;
  if (!map || !status) return;
  map->vniToVlanMapDelAll();
  for (Bridging::VlanId vlan : status->vlanToVniMap().keys()) handleVlanToVniMap(vlan);
}

// ---- Multicast membership ------------------------------------------------------

void Remote2LocalForwarderSm::LumVtiStatusSm::joinMcastGroup(Wire::IpAddr group) {
  R2L_TRACE(8, "() group:" << group);
  if (!group.isMulticast()) return;
  const Lum::Ptr<const VtiStatus> status = notifier();
  auto* igmp = igmpConfig();
  // No interface to join on: an empty id is no key of the configuration.
  if (!status || !igmp || status->srcIpIntf().empty()) return;
  const Lum::String8 text = status->srcIpIntf().stringValue();
  const Wire::IntfId intf(text);
  igmp->intfConfigIs(intf)->groupIs(Routing::Igmp::SourceGroup(Wire::IpAddr(), group), true);
  auto* pim = pimConfig();
  if (pim && !pim->intfMode().contains(Lum::Name(text))) {
    pim->intfModeIs(Lum::Name(text), Routing::Pim::Mode::pimModeSparse);
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::leaveMcastGroup(Wire::IpAddr group) {
  R2L_TRACE(8, "() group:" << group);
  if (!group.isMulticast()) return;
  const Lum::Ptr<const VtiStatus> status = notifier();
  auto* igmp = igmpConfig();
  if (!status || !igmp) return;
  const Lum::String8 text = status->srcIpIntf().stringValue();
  const Wire::IntfId intf(text);
  const Lum::Ptr<Routing::Igmp::Application::IntfConfig> entry = igmp->intfConfig(intf);
  if (!entry) return;
  entry->groupDel(Routing::Igmp::SourceGroup(Wire::IpAddr(), group));
  if (!entry->group().empty()) return;
  igmp->intfConfigDel(intf);
  if (auto* pim = pimConfig()) pim->intfModeDel(Lum::Name(text));
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleMcastGrpDecap(Wire::IpAddr group) {
  R2L_TRACE(8, "() group:" << group);
  if (!initialized_) return;
  const Lum::Ptr<const VtiStatus> status = notifier();
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  const uint32_t mode = bum ? bum->bumReplicationMode() : 0;
  const Mlag::Status* mlag = mlagStatus_ ? mlagStatus_->notifier().ptr() : nullptr;
  const Mlag::MlagState mlagState = mlag ? mlag->mlagState() : Mlag::MlagState::mlagStateDisabled;
  // Of an MLAG pair only the primary joins.
  const bool member =
      status && status->mcastGrpDecap(group) && (mode == 2 || mode == 3) &&
      (!Mlag::isMlagActive(mlagState) || mlagState == Mlag::MlagState::mlagStatePrimary) &&
      operUp();
  if (member) {
    joinMcastGroup(group);
  } else {
    leaveMcastGroup(group);
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleMcastGrpDecap() {
  R2L_TRACE(8, "()");
  const Lum::Ptr<const VtiStatus> status = notifier();
  if (!status) return;
  // Groups deleted from the status are named by no event: find them in what we wrote.
  if (auto* igmp = igmpConfig()) {
    const Wire::IntfId intf(status->srcIpIntf().stringValue());
    if (const auto entry = igmp->intfConfig(intf)) {
      for (const Routing::Igmp::SourceGroup& sg : entry->group().keys()) {
        const Wire::IpAddr g = sg.group();
        if (status->mcastGrpDecap().find(g) == std::optional<bool>(true)) continue;
        if (g == floodMcastGrp_) continue;
        leaveMcastGroup(g);
      }
    }
  }
  for (Wire::IpAddr g : status->mcastGrpDecap().keys()) handleMcastGrpDecap(g);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleBumMcastGrp(Bridging::VlanId vlan) {
  const Wire::IpAddr prev = floodMcastGrp_;
  R2L_TRACE(8, "() vlan " << vlan);
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  // One flood group serves the interface: the first entry's, whatever the VLAN.
  if (bum && !bum->bumMcastGrp().empty()) {
    R2L_TRACE(8, " Multicast enabled ");
    floodMcastGrpIs(bum->bumMcastGrp().begin()->second);
  } else {
    R2L_TRACE(8, " Multicast disabled ");
    floodMcastGrpIs(Wire::IpAddr());
  }
  R2L_TRACE(8, "(), vlanId " << vlan << " Mcast Group Prev:" << prev << " New:" << floodMcastGrp_);
  if (floodMcastGrp_ != prev && operUp()) createRemoteSocket();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleBumMcastGrp() {
  R2L_TRACE(8, "()");
  const BumStatus* bum = vxBumStatus_ ? vxBumStatus_->notifier().ptr() : nullptr;
  if (!bum) return;
  for (Bridging::VlanId vlan : bum->bumMcastGrp().keys()) handleBumMcastGrp(vlan);
}

}  // namespace Vxlan
