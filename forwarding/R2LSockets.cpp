// The two sockets of LumVtiStatusSm: the remote socket on the source interface that
// carries the VTEP address, and the local socket on "txraw", with the readable watch
// on the remote one.
//
// Packet sockets are opened with protocol 0 and given their protocol (all, ETH_P_ALL)
// at bind: a packet socket opened with a protocol receives the frames of every
// interface from that moment until it is bound, and each of those binds then costs
// the kernel a synchronisation. A socket whose device has no index stays deaf.
#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "forwarding/ForwardingTrace.h"
#include "forwarding/PacketSocketBind.h"
#include "forwarding/Remote2LocalForwarderSm.h"
#include "forwarding/TestMode.h"
#include "frames/EthHdr.h"
#include "platform/os/InterfaceRequest.h"
#include "platform/os/UdpIngressDrop.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

namespace {

// The device of the local socket. Its name is the operators' vocabulary (and the
// forwarding plane's) and stays as it stands.
constexpr const char* kTxRaw = "txraw";

int openPacketSocket(Lum::SysCalls& sys) {
  return sys.socket(AF_PACKET, SOCK_RAW, 0);
}

}  // namespace

void Remote2LocalForwarderSm::LumVtiStatusSm::createLocalSocket() {
  R2L_TRACE(8, "() L2R_TEST:" << L2R_TEST << " R2L_TEST: " << R2L_TEST);
  Lum::SysCalls& sys = Lum::sysCalls();
  localSockIs(closeAndCheck(localSock_));
  int sock;
  if (R2L_TEST) {
    sock = sys.socket(AF_UNIX, SOCK_DGRAM, 0);
    if (sock < 0) throw Lum::ErrnoException(errno, "");
  } else {
    sock = openPacketSocket(sys);
    if (sock < 0) throw Lum::ErrnoException(errno, "creating txraw socket");
    const Lum::SysResult index = Lum::interfaceIndex(sys, sock, kTxRaw);
    deviceWaits_.lookedUp(intfId_, kTxRaw, index.failed());
    if (index.failed()) {
      // Bound without an index for now; the device's arrival rebuilds the socket.
      R2L_TRACE(0, "() unable to lookup ifindex for txraw: " << std::strerror(index.err));
      RINGLOG(0, "R2LSm(%s) unable to lookup ifindex for txraw: %d", intfId_.stringValue().view(),
              index.err);
      vxlanCounterInc(VxlanCounterId::r2lSocketErrors, 1);
    }
    if (bindToDevice(sys, sock, index.failed() ? 0 : static_cast<int>(index.rc)) < 0) {
      const int err = errno;
      R2L_TRACE(0, "() bind txraw: " << std::strerror(err));
      RINGLOG(0, "R2LSm(%s) bind txraw: %d", intfId_.stringValue().view(), err);
      vxlanCounterInc(VxlanCounterId::r2lSocketErrors, 1);
    }
  }
  // Stored before the last step, so that a failure there leaves no descriptor behind.
  localSockIs(sock);
  syncRemoteWatch();
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

namespace {

// The test mode's inbound path is a file in the working folder: it goes with its socket.
void removeInboundPath() {
  if (!R2L_TEST) return;
  sockaddr_un addr;
  testModeAddress(addr, "./VxlanR2LSM-inbound-%d");
  Lum::sysCalls().unlink(addr.sun_path);
}

}  // namespace

void Remote2LocalForwarderSm::LumVtiStatusSm::closeRemoteSocket() {
  // The entity lets go of the descriptor before it is closed: it does not own it, and
  // the number may be handed out again at once.
  if (fileDescriptor_ && fileDescriptor_->notifier()) fileDescriptor_->notifier()->descriptorIs(-1);
  if (remoteSock_ != -1) removeInboundPath();
  remoteSockIs(closeAndCheck(remoteSock_));
  closePortSink();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::syncRemoteWatch() {
  Lum::FileDescriptor* fd = fileDescriptor_ ? fileDescriptor_->notifier().ptr() : nullptr;
  if (fd && fd->descriptor() != -1) fd->notifyOnReadableIs(localSock_ != -1);
}

void Remote2LocalForwarderSm::LumVtiStatusSm::createRemoteSocket() {
  if (!initialized_) {
    R2L_TRACE(8, "() uninit return");
    return;
  }
  R2L_TRACE(8, "()");
  const Lum::Ptr<const VtiStatus> status = notifier();
  Lum::SysCalls& sys = Lum::sysCalls();
  closeRemoteSocket();
  if (R2L_TEST) {
    const int sock = sys.socket(AF_UNIX, SOCK_DGRAM, 0);
    if (sock < 0) throw Lum::ErrnoException(errno, "");
    remoteSockIs(sock);
    sockaddr_un addr;
    const socklen_t addrLen = testModeAddress(addr, "./VxlanR2LSM-inbound-%d");
    // A file left by an earlier run of this process id would make the bind fail.
    sys.unlink(addr.sun_path);
    if (sys.bind(sock, reinterpret_cast<const sockaddr*>(&addr), addrLen) < 0) {
      R2L_TRACE(0, " bind: " << std::strerror(errno));
    }
  } else {
    const int sock = openPacketSocket(sys);
    if (sock < 0) throw Lum::ErrnoException(errno, "");
    remoteSockIs(sock);
    if (FRAME_MODE == FrameMode::filtered) keepOnlyOwnDatagrams();
    if (batchMode()) openRing();
    R2L_TRACE(7, "(): floodMcastGrp:" << floodMcastGrp_
                                      << " ctrlClntMode:" << status->controllerClientMode());
    doRejoinMcastGroups();

    const Lum::String8& device = status->srcIntfKernelName();
    R2L_TRACE(7, "(): binding remoteSock to " << device);
    const Lum::SysResult index = Lum::interfaceIndex(sys, sock, device.view());
    deviceWaits_.lookedUp(intfId_, device.view(), index.failed());
    if (index.failed()) {
      R2L_TRACE(0, "() ioctl: " << device << ": " << std::strerror(index.err));
      doDisconnectSockets();
      return;
    }
    if (bindToDevice(sys, sock, static_cast<int>(index.rc)) < 0) {
      R2L_TRACE(0, " multicast bind: " << std::strerror(errno));
      doDisconnectSockets();
      return;
    }
    growReceiveBuffer();
    openPortSink(static_cast<int>(index.rc));
  }
  R2L_TRACE(7, "() multicast socket:" << remoteSock_ << " port:" << status->udpPort()
                                      << " initalized:" << initialized_
                                      << " intfName:" << status->srcIpIntf()
                                      << " shortName:" << status->srcIpIntf().shortName()
                                      << " group:" << floodMcastGrp_);
  Lum::Ptr<Lum::FileDescriptor> fd = new Lum::FileDescriptor("VxlanR2LSmMulticast");
  fd->descriptorIs(remoteSock_);
  // The frame loop ends on EAGAIN.
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(localSock_ != -1);
  fileDescriptorIs(fd);
}

// The filtered mode asks the kernel to drop, before the socket, what the frame path would
// filter anyway: frames the host sends itself, and all but IPv4 UDP datagrams (with
// or without one tag) for the VTEP address or the flood group on the VXLAN port that
// do not come from the VTEP address. Installed before the bind, so nothing slips in.
// Such frames are then counted nowhere; what the kernel does not hold it also does not
// report. A refusal leaves the socket taking everything, as in the other modes.
void Remote2LocalForwarderSm::LumVtiStatusSm::keepOnlyOwnDatagrams() {
  const VtiStatus* status = notifier().ptr();
  if (!status) return;
  const uint32_t vtep = status->localVtepAddr().hostOrder();
  const uint32_t group = floodMcastGrp_.isZero() ? vtep : floodMcastGrp_.hostOrder();
  const uint32_t port = status->udpPort();
  // The IPv4 checks, for a header at `ip` (14, or 18 behind a tag); 9 instructions.
  const auto ipv4 = [&](uint32_t ip, std::vector<sock_filter>& f) {
    f.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, ip + 16));  // destination
    f.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, vtep, 1, 0));
    f.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, group, 0, 5));
    f.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, ip + 12));  // source
    f.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, vtep, 3, 0));
    f.push_back(BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, ip));     // header length
    f.push_back(BPF_STMT(BPF_LD | BPF_H | BPF_IND, ip + 2));  // UDP destination port
    f.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, port, 1, 0));
    f.push_back(BPF_STMT(BPF_RET | BPF_K, 0));
    f.push_back(BPF_STMT(BPF_RET | BPF_K, 0x40000));
  };
  std::vector<sock_filter> f = {
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, Wire::kEthTypeIpv4, 0, 10),  // over the IPv4 checks
  };
  ipv4(14, f);
  // Not IPv4: a tag with IPv4 behind it, or nothing.
  f.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, Wire::kEthTypeDot1q, 0, 2));
  f.push_back(BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 16));
  f.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, Wire::kEthTypeIpv4, 1, 0));
  f.push_back(BPF_STMT(BPF_RET | BPF_K, 0));
  ipv4(18, f);
  const sock_fprog prog{static_cast<unsigned short>(f.size()), f.data()};
  Lum::SysCalls& sys = Lum::sysCalls();
  const int one = 1;
  if (sys.setsockopt(remoteSock_, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog) < 0 ||
      sys.setsockopt(remoteSock_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one) < 0) {
    R2L_TRACE(1, "() kernel filter not installed: " << std::strerror(errno));
  }
}

// The remote socket takes every frame of the underlay device; the kernel's default
// buffer holds a few hundred small frames, which a short scheduling stall at line
// rate overruns. Past the system's limit where the agent may (SO_RCVBUFFORCE), else up
// to it; a refusal costs only the headroom.
void Remote2LocalForwarderSm::LumVtiStatusSm::growReceiveBuffer() {
  Lum::SysCalls& sys = Lum::sysCalls();
  const int bytes = kRemoteRcvBuf;
  if (sys.setsockopt(remoteSock_, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) == 0) return;
  if (sys.setsockopt(remoteSock_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) < 0) {
    R2L_TRACE(1, "() receive buffer kept: " << std::strerror(errno));
  }
}

// The datagrams for the VTEP address reach the kernel's UDP input as well as the
// remote socket. With nothing bound to the VXLAN port the kernel answers each with an
// ICMP port unreachable, to every remote VTEP, for every frame. Two things prevent it:
// - a UDP socket bound to the port whose filter keeps nothing: the port is taken at
//   the cost of the filter run, nothing is queued, nothing is answered. When the port
//   is taken already (another VXLAN endpoint on this host) the bind fails, and the
//   datagrams are that endpoint's as well: nothing more is done;
// - then, the port being ours, a drop at the device's ingress after the remote socket
//   has its copy: the datagram never reaches the kernel's IP input, which costs the
//   kernel more than all the rest of a frame. The kernel undoes it when the descriptor
//   is closed, also when the process dies (UdpIngressDrop.h). What it leaves
//   (fragments, IP options) meets the socket.
void Remote2LocalForwarderSm::LumVtiStatusSm::openPortSink(int ifIndex) {
  const VtiStatus* status = notifier().ptr();
  if (!status || status->localVtepAddr().isZero()) return;
  Lum::SysCalls& sys = Lum::sysCalls();
  const int sock = sys.socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) return;
  sock_filter keepNothing[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
  const sock_fprog prog{1, keepNothing};
  sockaddr_in addr;
  std::memset(&addr, 0, sizeof addr);
  addr.sin_family = AF_INET;
  addr.sin_port = htons(status->udpPort());
  addr.sin_addr.s_addr = status->localVtepAddr().value();
  if (sys.setsockopt(sock, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog) < 0 ||
      sys.bind(sock, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) < 0) {
    R2L_TRACE(7, "() no port sink: " << std::strerror(errno));
    sys.close(sock);
    return;
  }
  portSink_ = sock;
  portDrop_ = Lum::attachUdpIngressDrop(sys, ifIndex, addr.sin_addr.s_addr, addr.sin_port);
  if (portDrop_ < 0) {
    // Still correct, only dearer: the kernel's IP input sees every datagram.
    const int err = errno;
    R2L_TRACE(1, "() no ingress drop: " << std::strerror(err));
    RINGLOG(1, "R2LSm(%s) no ingress drop: %d", intfId_.stringValue().view(), err);
  }
}

void Remote2LocalForwarderSm::LumVtiStatusSm::closePortSink() {
  Lum::SysCalls& sys = Lum::sysCalls();
  if (portSink_ != -1) sys.close(portSink_);
  if (portDrop_ != -1) sys.close(portDrop_);
  portSink_ = -1;
  portDrop_ = -1;
}

void Remote2LocalForwarderSm::LumVtiStatusSm::rebuildRemoteSocket() {
  closeRemoteSocket();
  if (!operUp()) return;
  // A pair, not a remote socket alone: a rebuild that failed before all of the status
  // had arrived (no device name yet) closed both, and whichever attribute comes last
  // must bring both back. A "txraw" known to be gone keeps the local socket closed,
  // and with it the watch off, until the device returns.
  if (localSock_ == -1 && !txRawGone_) createLocalSocket();
  createRemoteSocket();
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
    removeInboundPath();
    remoteSockIs(closeAndCheck(remoteSock_));
  }
  closePortSink();
  localSockIs(closeAndCheck(localSock_));
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleKernelDevice(const Lum::String8& name) {
  R2L_TRACE(8, "() name:" << name);
  if (name.view() != kTxRaw) return;
  // The sockets of a machine still being built are opened at the end of
  // handleInitialized, with the device's state of that moment.
  if (!initialized_) return;
  const KernelNetworkInfo::Root* root =
      kernelNetworkInfoRoot_ ? kernelNetworkInfoRoot_->notifier().ptr() : nullptr;
  const Lum::Ptr<KernelNetworkInfo::Interface> intf = root ? root->interfaceByName(name) : nullptr;
  txRawGone_ = !intf;
  if (!intf) {
    doDisconnectSockets();
    return;
  }
  R2L_TRACE(7, " flags:" << intf->flags());
  doDisconnectSockets();
  doConnectSockets();
}

void Remote2LocalForwarderSm::LumVtiStatusSm::handleKernelDevice() {
  handleKernelDevice(Lum::String8(kTxRaw));
}

}  // namespace Vxlan
