// The six sockets of the local-to-remote machine and the readable watches on the three
// that frames come from.
//
// The local sockets are packet sockets on "vxlan" that each receive one Ethernet type
// field, 0x0041 (high) or 0x0033 (low). Both values are below 0x0600, which Linux reads
// as an 802.3 length: such frames reach packet sockets as ETH_P_802_2, never under
// their own value, so a socket bound to 0x0041 would hear nothing. Each socket is
// therefore opened with protocol 0 (deaf), given a classic filter that keeps only the
// frames that arrive with its type field, and only then bound to the device for all
// protocols: no stray frame slips in between. A socket without the device stays
// deaf; the device's arrival rebuilds it.
#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "forwarding/ForwardingTrace.h"
#include "forwarding/L2RVtiStatusSm.h"
#include "forwarding/PacketSocketBind.h"
#include "forwarding/TestMode.h"
#include "frames/LocalFrameHdr.h"
#include "platform/os/InterfaceRequest.h"
#include "platform/trace/RingLog.h"

namespace Vxlan {

namespace {

using Sm = Local2RemoteForwarderSm::LumVtiStatusSm;

// Device and socket names are the forwarding plane's and the switch's vocabulary and
// stay as they stand.
constexpr const char* kVxlanDevice = "vxlan";
constexpr int kRawProtocol = 255;
constexpr int kLocalTestRcvBuf = 0x200000;
constexpr int kRemoteSndBuf = 0x800000;
constexpr double kMaxProcessTimeLo = 0.05;
constexpr double kMaxProcessTimeHi = 0.1;
constexpr double kMaxProcessTimeHiTest = 0.01;

// Keeps the frames that arrive on the device with Ethernet type field `type`.
int attachTypeFilter(Lum::SysCalls& sys, int sock, uint16_t type) {
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, type, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, 0x40000),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  sock_fprog prog{static_cast<unsigned short>(sizeof code / sizeof code[0]), code};
  return sys.setsockopt(sock, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog);
}

// The abstract Unix name: a zero byte, then `name`, the rest of the 108 bytes zero; the
// whole structure is the address (110 bytes), so the padding is part of the name.
socklen_t abstractAddress(sockaddr_un& addr, const char* name) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%c%s", 0, name);
  return sizeof addr;
}

}  // namespace

int32_t Sm::closeAndCheck(int32_t sock) {
  if (sock == -1) return -1;
  if (Lum::sysCalls().close(sock) < 0) throw Lum::ErrnoException(errno, "L2RSm closing socket");
  return -1;
}

void Sm::createLocalSocket() {
  L2R_TRACE(8, "()");
  Lum::SysCalls& sys = Lum::sysCalls();
  localSockHiIs(closeAndCheck(localSockHi_));
  localSockLoIs(closeAndCheck(localSockLo_));
  const int lo = sys.socket(AF_PACKET, SOCK_RAW, 0);
  if (lo < 0) throw Lum::ErrnoException(errno, "ETH_P_VELTRA_VLAN_ENCAP");
  localSockLoIs(lo);
  const int hi = sys.socket(AF_PACKET, SOCK_RAW, 0);
  if (hi < 0) throw Lum::ErrnoException(errno, "ETH_P_VELTRA_VLAN_ENCAP");
  localSockHiIs(hi);
  if (L2R_TEST) {
    for (int s : {lo, hi}) {
      sys.setsockopt(s, SOL_SOCKET, SO_RCVBUF, &kLocalTestRcvBuf, sizeof kLocalTestRcvBuf);
    }
  }
  const Lum::SysResult index = Lum::interfaceIndex(sys, hi, kVxlanDevice);
  deviceWaits_.lookedUp(intfId_, kVxlanDevice, index.failed());
  if (index.failed()) {
    L2R_TRACE(0, "() unable to lookup ifindex for vxlan");
    RINGLOG(0, "L2RSm(%s) unable to lookup ifindex for vxlan", intfId_.stringValue().view());
  }
  const int ifindex = index.failed() ? 0 : static_cast<int>(index.rc);
  openRing(0, hi);
  openRing(1, lo);
  const struct {
    int sock;
    uint16_t type;
    const char* words;
  } sockets[] = {{lo, kEncapTypeLo, "() bind sockLo vxlan: "},
                 {hi, kEncapTypeHi, "() bind sockHi vxlan: "}};
  for (const auto& s : sockets) {
    if (attachTypeFilter(sys, s.sock, s.type) < 0 || bindToDevice(sys, s.sock, ifindex) < 0) {
      const int err = errno;
      L2R_TRACE(0, s.words << std::strerror(err));
      RINGLOG(0, "L2RSm(%s)%s%d", intfId_.stringValue().view(), s.words, err);
    }
  }
}

void Sm::createArpSocket() {
  L2R_TRACE(8, "() L2R_TEST:" << L2R_TEST << " R2L_TEST:" << R2L_TEST);
  arpSockIs(closeAndCheck(arpSock_));
  const int sock = Lum::sysCalls().socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) throw Lum::ErrnoException(errno, "");
  arpSockIs(sock);
  L2R_TRACE(8, "() arp socket: " << sock);
}

void Sm::createArpInspectSocket() {
  L2R_TRACE(8, "()");
  Lum::SysCalls& sys = Lum::sysCalls();
  if (arpInspectSock_ != -1) {
    if (Lum::FileDescriptor* fd = fileDescriptorArpInspect()) fd->descriptorIs(-1);
    sys.close(arpInspectSock_);
    arpInspectSockIs(-1);
  }
  const int sock = sys.socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) throw Lum::ErrnoException(errno, "");
  sockaddr_un addr;
  const socklen_t len = abstractAddress(addr, kVxlanUnixDomainName);
  // An abstract name has no file; the unlink finds none and is harmless.
  sys.unlink(addr.sun_path);
  if (sys.bind(sock, reinterpret_cast<const sockaddr*>(&addr), len) < 0) {
    L2R_TRACE(0, "() bind arpInspectSocket: " << std::strerror(errno));
  }
  arpInspectSockIs(sock);
  // Each datagram comes with its sender's credentials, which the frame loop checks:
  // an abstract name has no file permissions to keep other users out.
  const int on = 1;
  if (sys.setsockopt(sock, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) < 0) {
    L2R_TRACE(0, "() SO_PASSCRED arpInspectSocket: " << std::strerror(errno));
  }
  L2R_TRACE(8, "() arpInspect socket: " << sock);
  if (Lum::FileDescriptor* fd = fileDescriptorArpInspect()) {
    fd->descriptorIs(sock);
    return;
  }
  fileDescriptorArpInspectIs(newFileDescriptor("VxlanL2RSmArpInspect", sock));
}

void Sm::dropRemoteSockets() {
  Lum::sysCalls().close(remoteSockHi_);
  Lum::sysCalls().close(remoteSockLo_);
  remoteSockHiIs(-1);
  remoteSockLoIs(-1);
}

void Sm::setRemoteOption(int level, int name, int value, const char* what) {
  Lum::SysCalls& sys = Lum::sysCalls();
  for (int s : {remoteSockHi_, remoteSockLo_}) {
    if (sys.setsockopt(s, level, name, &value, sizeof value) < 0) {
      const int err = errno;
      L2R_TRACE(0, "() setsockopt " << what << ": " << std::strerror(err));
      throw Lum::ErrnoException(err, what);
    }
  }
}

bool Sm::enableMulticast() {
  Lum::SysCalls& sys = Lum::sysCalls();
  L2R_TRACE(0, "() enabling multicast");
  ifreq req;
  const Lum::String8 device = status()->srcIntfKernelName();
  int rc = Lum::interfaceRequestIs(req, device.view()) == 0 ? 0 : -1;
  if (rc == 0) rc = sys.ioctl(remoteSockHi_, SIOCGIFFLAGS, &req);
  if (rc == 0) {
    req.ifr_flags = static_cast<short>(req.ifr_flags | IFF_MULTICAST);
    rc = sys.ioctl(remoteSockHi_, SIOCSIFFLAGS, &req);
  }
  if (rc < 0) {
    L2R_TRACE(0, "() ioctl " << device << ": " << std::strerror(errno));
    dropRemoteSockets();
    return false;
  }
  const Wire::IpAddr vtep = status()->localVtepAddr();
  L2R_TRACE(0, "() localVtepAddr:" << vtep);
  in_addr ifAddr{vtep.value()};
  const int loop = 1;
  for (int s : {remoteSockHi_, remoteSockLo_}) {
    if (sys.setsockopt(s, IPPROTO_IP, IP_MULTICAST_IF, &ifAddr, sizeof ifAddr) < 0) {
      L2R_TRACE(0, "() setsockopt IP_MCST_IF: " << std::strerror(errno));
      dropRemoteSockets();
      return false;
    }
    if (sys.setsockopt(s, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop) < 0) {
      L2R_TRACE(0, "() setsockopt IP_MCAST_LOOP " << std::strerror(errno));
      dropRemoteSockets();
      return false;
    }
  }
  return true;
}

void Sm::createRemoteSocket() {
  L2R_TRACE(8, "()");
  Lum::SysCalls& sys = Lum::sysCalls();
  remoteSockHiIs(closeAndCheck(remoteSockHi_));
  remoteSockLoIs(closeAndCheck(remoteSockLo_));
  remoteSockHiIs(sys.socket(AF_INET, SOCK_RAW, kRawProtocol));
  const int errHi = errno;
  remoteSockLoIs(sys.socket(AF_INET, SOCK_RAW, kRawProtocol));
  if (remoteSockHi_ < 0 || remoteSockLo_ < 0) {
    const int err = remoteSockHi_ < 0 ? errHi : errno;
    L2R_TRACE(0, "() raw: " << std::strerror(err));
    // Neither is kept: -1 is the only closed mark.
    if (remoteSockHi_ >= 0) sys.close(remoteSockHi_);
    if (remoteSockLo_ >= 0) sys.close(remoteSockLo_);
    remoteSockHiIs(-1);
    remoteSockLoIs(-1);
    throw Lum::ErrnoException(err, "creating RAW socket");
  }
  L2R_TRACE(7, "() remote socket Hi: " << remoteSockHi_ << " Lo: " << remoteSockLo_
                                       << " grp:" << floodMcastGrp_);
  setRemoteOption(IPPROTO_IP, IP_HDRINCL, 1, "IP_HDRINCL");
  const bool multicast =
      !floodMcastGrp_.isZero() && !(status() && status()->controllerClientMode());
  // A refused multicast step closes both sockets: an orderly stop, no exception.
  if (multicast && !enableMulticast()) return;
  // Nothing is ever read from these sockets.
  setRemoteOption(SOL_SOCKET, SO_RCVBUF, 0, "SO_RCVBUF");
  maxProcessTimeLoIs(kMaxProcessTimeLo);
  maxProcessTimeHiIs(L2R_TEST ? kMaxProcessTimeHiTest : kMaxProcessTimeHi);
  setRemoteOption(SOL_SOCKET, SO_SNDBUFFORCE, kRemoteSndBuf, "SO_SNDBUF");
  setRemoteOption(IPPROTO_IP, IP_RECVERR, 1, "IP_RECVERR");
  // The low-priority socket has the higher number: its packets queue behind.
  const int hiPriority = 0;
  const int loPriority = 2;
  if (sys.setsockopt(remoteSockHi_, SOL_SOCKET, SO_PRIORITY, &hiPriority, sizeof hiPriority) < 0 ||
      sys.setsockopt(remoteSockLo_, SOL_SOCKET, SO_PRIORITY, &loPriority, sizeof loPriority) < 0) {
    throw Lum::ErrnoException(errno, "SO_PRIORITY");
  }
}

Lum::Ptr<Lum::FileDescriptor> Sm::newFileDescriptor(const char* name, int32_t sock) {
  Lum::Ptr<Lum::FileDescriptor> fd = new Lum::FileDescriptor(name);
  fd->descriptorIs(sock);
  // The frame loop ends on EAGAIN.
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(true);
  return fd;
}

void Sm::doConnectSockets() {
  L2R_TRACE(8, "() oper:" << (status() ? status()->operStatus() : Interface::IntfOperStatus()));
  if (!operUp()) return;
  createLocalSocket();
  createArpSocket();
  createRemoteSocket();
  if (arpInspectSock_ != -1) {
    Lum::sysCalls().close(arpInspectSock_);
    arpInspectSockIs(-1);
  }
  createArpInspectSocket();
  if (Lum::FileDescriptor* fd = fileDescriptorHi()) fd->descriptorIs(-1);
  if (Lum::FileDescriptor* fd = fileDescriptorLo()) fd->descriptorIs(-1);
  fileDescriptorHiIs(newFileDescriptor("VxlanL2RSmiHi", localSockHi_));
  fileDescriptorLoIs(newFileDescriptor("VxlanL2RSmLo", localSockLo_));
}

void Sm::doDisconnectSockets() {
  L2R_TRACE(8, "()");
  // The entities let go of the descriptors before they are closed: they do not own
  // them, and the numbers may be handed out again at once.
  for (Lum::FileDescriptor* fd :
       {fileDescriptorHi(), fileDescriptorLo(), fileDescriptorArpInspect()}) {
    if (fd) fd->descriptorIs(-1);
  }
  Lum::SysCalls& sys = Lum::sysCalls();
  if (arpSock_ != -1) {
    if (sys.close(arpSock_) < 0) throw Lum::ErrnoException(errno, "L2RSm closing arpSock");
    arpSockIs(-1);
  }
  if (arpInspectSock_ != -1) {
    if (sys.close(arpInspectSock_) < 0) {
      throw Lum::ErrnoException(errno, "L2RSm closing arpInspectSock");
    }
    arpInspectSockIs(-1);
  }
  remoteSockHiIs(closeAndCheck(remoteSockHi_));
  remoteSockLoIs(closeAndCheck(remoteSockLo_));
  localSockHiIs(closeAndCheck(localSockHi_));
  localSockLoIs(closeAndCheck(localSockLo_));
  arpSockIs(closeAndCheck(arpSock_));
}

}  // namespace Vxlan
