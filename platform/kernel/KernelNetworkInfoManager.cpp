#include "platform/kernel/KernelNetworkInfoManager.h"

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "platform/os/NetnsSocket.h"
#include "platform/os/SysCalls.h"
#include "platform/trace/Trace.h"

namespace KernelNetworkInfo {

namespace {

Lum::TraceFacility& traceKni = Lum::traceFacility("KernelNetworkInfo");

[[noreturn]] void fail(int err, const std::string& step) {
  LUM_TRACE(traceKni, 1, "Manager: " << step << " failed, errno " << err);
  throw Lum::ErrnoException(err, step);
}

// The attributes parseLink reads, by IFLA_* type.
struct LinkAttrs {
  const nlattr* name = nullptr;
  const nlattr* mtu = nullptr;
  const nlattr* operState = nullptr;
  const nlattr* address = nullptr;
};

int collectLinkAttr(const nlattr* attr, void* data) {
  auto* a = static_cast<LinkAttrs*>(data);
  switch (mnl_attr_get_type(attr)) {
    case IFLA_IFNAME:
      if (mnl_attr_validate(attr, MNL_TYPE_NUL_STRING) < 0) return MNL_CB_ERROR;
      a->name = attr;
      break;
    case IFLA_MTU:
      if (mnl_attr_validate(attr, MNL_TYPE_U32) < 0) return MNL_CB_ERROR;
      a->mtu = attr;
      break;
    case IFLA_OPERSTATE:
      if (mnl_attr_validate(attr, MNL_TYPE_U8) < 0) return MNL_CB_ERROR;
      a->operState = attr;
      break;
    case IFLA_ADDRESS:
      a->address = attr;
      break;
    default:
      break;
  }
  return MNL_CB_OK;
}

}  // namespace

std::optional<InterfaceState> parseLink(const nlmsghdr* nlh, std::string* fault) {
  auto bad = [fault](const char* why) -> std::optional<InterfaceState> {
    if (fault) *fault = why;
    return std::nullopt;
  };
  if (nlh->nlmsg_type != RTM_NEWLINK && nlh->nlmsg_type != RTM_DELLINK) return std::nullopt;
  if (nlh->nlmsg_len < mnl_nlmsg_size(sizeof(ifinfomsg))) return bad("link message too short");
  const auto* ifi = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(nlh));
  if (ifi->ifi_family != AF_UNSPEC) return std::nullopt;
  if (ifi->ifi_index <= 0) return bad("link message without an index");
  LinkAttrs attrs;
  if (mnl_attr_parse(nlh, sizeof(ifinfomsg), collectLinkAttr, &attrs) < 0) {
    return bad("malformed link attribute");
  }
  if (!attrs.name || mnl_attr_get_payload_len(attrs.name) <= 1) return bad("link without a name");
  InterfaceState s;
  s.ifindex = Wire::IfIndex(ifi->ifi_index);
  s.name = Lum::String8(mnl_attr_get_str(attrs.name));
  s.flags = ifi->ifi_flags;
  if (attrs.operState) s.operState = mnl_attr_get_u8(attrs.operState);
  if (attrs.mtu) s.mtu = mnl_attr_get_u32(attrs.mtu);
  // Tunnels carry 4- or 16-byte addresses and some devices none: only an Ethernet
  // address is kept.
  if (attrs.address && mnl_attr_get_payload_len(attrs.address) == 6) {
    s.hwAddr =
        Wire::EthAddr::fromBytes(static_cast<const uint8_t*>(mnl_attr_get_payload(attrs.address)));
  }
  return s;
}

void Manager::Reader::onReadableCount() {
  if (manager_) manager_->drain();
}

Manager::Manager(const Lum::Ptr<Lum::ActivityConfig>& activity, const Lum::Ptr<Root>& root,
                 const Wire::NamespaceName& ns, Lum::EventLoop& loop)
    : activity_(activity),
      root_(Lum::validPtr(root)),
      ns_(ns),
      loop_(loop),
      buffer_(kReceiveBufferBytes) {
  // The name becomes a path: it must not climb out of the namespace directory.
  Lum::checkNamespaceName(ns_.view());
  sock_ = openSocket();
  try {
    fd_ = new Lum::FileDescriptor(Lum::Name("KernelNetworkInfo"), loop_);
    fd_->descriptorIs(sock_);
    fd_->nonBlockingIs(true);
    if (!requestDump()) fail(errno, "send RTM_GETLINK dump request");
    drain();
    reader_ = new Reader(this);
    if (activity_) reader_->lumFwkActivityIs(activity_);
    reader_->notifierIs(fd_);
    reader_->isRegisteredNotifieeIs(true);
    fd_->notifyOnReadableIs(true);
  } catch (...) {
    closeSocket();
    throw;
  }
}

Manager::~Manager() {
  closeSocket();
}

int Manager::openSocket() {
  Lum::SysCalls& sys = Lum::sysCalls();
  int fd = -1;
  try {
    fd = Lum::socketInNamespace(ns_.view(), AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  } catch (const Lum::ErrnoException& e) {
    fail(e.errNo(), e.step());
  }

  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = RTMGRP_LINK;
  socklen_t len = sizeof local;
  if (sys.bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) < 0 ||
      sys.getsockname(fd, reinterpret_cast<sockaddr*>(&local), &len) < 0) {
    const int err = errno;
    sys.close(fd);
    fail(err, "bind NETLINK_ROUTE RTMGRP_LINK");
  }
  portId_ = local.nl_pid;
  const int queue = kSocketQueueBytes;
  if (sys.setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &queue, sizeof queue) < 0) {
    LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): SO_RCVBUF failed, errno " << errno);
  }
  return fd;
}

void Manager::closeSocket() noexcept {
  if (reader_) {
    // A reaction an activity still holds queued finds no manager and does nothing.
    reader_->managerIs(nullptr);
    reader_->isRegisteredNotifieeIs(false);
  }
  if (fd_) {
    fd_->notifyOnReadableIs(false);
    fd_->descriptorIs(-1);
  }
  if (sock_ >= 0) Lum::sysCalls().close(sock_);
  sock_ = -1;
}

bool Manager::requestDump() {
  if (dumpSeq_ != 0) {
    // The kernel runs one dump per socket at a time; the next starts when this ends.
    dumpDue_ = true;
    return true;
  }
  dumpDue_ = false;
  alignas(nlmsghdr) std::array<uint8_t, 64> buf{};
  nlmsghdr* nlh = mnl_nlmsg_put_header(buf.data());
  nlh->nlmsg_type = RTM_GETLINK;
  nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  if (++lastSeq_ == 0) ++lastSeq_;
  nlh->nlmsg_seq = lastSeq_;
  auto* ifi = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifinfomsg)));
  ifi->ifi_family = AF_UNSPEC;
  // Counters are not read here; leaving them out keeps the dump small.
  mnl_attr_put_u32(nlh, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);

  dumpSeq_ = lastSeq_;
  seen_.clear();
  dumpInterrupted_ = false;
  ++dumpRequests_;
  if (Lum::sysCalls().send(sock_, nlh, nlh->nlmsg_len, 0) < 0) {
    const int err = errno;
    dumpSeq_ = 0;
    LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): dump request failed, errno " << err);
    errno = err;
    return false;
  }
  return true;
}

void Manager::drain() {
  LUM_TRACE(traceKni, 8, "");
  Lum::SysCalls& sys = Lum::sysCalls();
  for (;;) {
    sockaddr_nl from{};
    socklen_t fromLen = sizeof from;
    // MSG_TRUNC: the result is the datagram's full length, so a cut one is seen.
    const ssize_t n = sys.recvfrom(sock_, buffer_.data(), buffer_.size(), MSG_TRUNC,
                                   reinterpret_cast<sockaddr*>(&from), &fromLen);
    if (n < 0) {
      const int err = errno;
      if (err == EINTR) continue;
      if (err == EAGAIN || err == EWOULDBLOCK) return;
      if (err == ENOBUFS) {
        LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): link events lost, resync");
        requestDump();
        continue;
      }
      LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): recv failed, errno " << err);
      return;
    }
    if (n == 0) return;
    if (fromLen < sizeof from || from.nl_family != AF_NETLINK || from.nl_pid != 0) {
      LUM_TRACE(traceKni, 1,
                "Manager(" << ns_ << "): ignored a datagram from port " << from.nl_pid);
      continue;
    }
    if (static_cast<size_t>(n) > buffer_.size()) {
      LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): datagram of " << n << " bytes cut, resync");
      if (dumpSeq_ != 0) dumpInterrupted_ = true;
      requestDump();
      continue;
    }
    handleDatagram(buffer_.data(), static_cast<size_t>(n));
  }
}

void Manager::handleDatagram(const uint8_t* data, size_t len) {
  int rest = static_cast<int>(len);
  const auto* nlh = reinterpret_cast<const nlmsghdr*>(data);
  while (mnl_nlmsg_ok(nlh, rest)) {
    handleMessage(nlh);
    nlh = mnl_nlmsg_next(nlh, &rest);
  }
  if (rest != 0) {
    LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): " << rest << " bytes after the last message");
  }
}

void Manager::handleMessage(const nlmsghdr* nlh) {
  const bool ofDump = dumpSeq_ != 0 && nlh->nlmsg_seq == dumpSeq_ && nlh->nlmsg_pid == portId_;
  switch (nlh->nlmsg_type) {
    case NLMSG_DONE:
      if (ofDump) handleDumpEnd((nlh->nlmsg_flags & NLM_F_DUMP_INTR) != 0);
      return;
    case NLMSG_ERROR:
      if (ofDump) {
        const bool whole = nlh->nlmsg_len >= mnl_nlmsg_size(sizeof(nlmsgerr));
        const auto* e = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(nlh));
        // Error 0 is an acknowledgement, which a dump request does not ask for.
        if (!whole || e->error != 0) handleDumpError(whole ? -e->error : EPROTO);
      }
      return;
    case RTM_NEWLINK:
    case RTM_DELLINK:
      break;
    default:
      return;
  }
  if (ofDump && (nlh->nlmsg_flags & NLM_F_DUMP_INTR) != 0) dumpInterrupted_ = true;
  std::string fault;
  const std::optional<InterfaceState> s = parseLink(nlh, &fault);
  if (!s) {
    if (!fault.empty()) LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): " << fault);
    return;
  }
  if (nlh->nlmsg_type == RTM_NEWLINK) {
    linkIs(*s);
  } else {
    linkDel(s->ifindex);
  }
}

void Manager::linkIs(const InterfaceState& s) {
  if (dumpSeq_ != 0) seen_.insert(s.ifindex);
  const Lum::Ptr<Interface> before = root_->interface(s.ifindex);
  if (before && before->state() == s) return;
  const bool added = !before;
  root_->interfaceIs(s);
  LUM_TRACE(traceKni, 5,
            "Manager(" << ns_ << "): " << (added ? "added " : "changed ") << s.name << " index "
                       << s.ifindex << " flags 0x" << std::hex << s.flags << std::dec << " oper "
                       << unsigned(s.operState) << " mtu " << s.mtu << " " << s.hwAddr);
}

void Manager::linkDel(Wire::IfIndex i) {
  seen_.erase(i);
  const Lum::Ptr<Interface> gone = root_->interface(i);
  if (!gone) return;
  root_->interfaceDel(i);
  LUM_TRACE(traceKni, 5, "Manager(" << ns_ << "): removed " << gone->name() << " index " << i);
}

void Manager::handleDumpEnd(bool interrupted) {
  // An interrupted or cut dump may have missed devices: nothing is deleted on its word.
  const bool complete = !interrupted && !dumpInterrupted_;
  if (complete) {
    std::vector<Wire::IfIndex> vanished;
    for (auto it = root_->interfaceIterator(); it; ++it) {
      if (!seen_.contains(it.key())) vanished.push_back(it.key());
    }
    for (Wire::IfIndex i : vanished) linkDel(i);
    dumpFailures_ = 0;
  }
  LUM_TRACE(traceKni, 6,
            "Manager(" << ns_ << "): dump " << dumpSeq_ << (complete ? " done, " : " interrupted, ")
                       << root_->interfaceCount() << " devices");
  dumpSeq_ = 0;
  seen_.clear();
  dumpInterrupted_ = false;
  if (!complete || dumpDue_) requestDump();
}

void Manager::handleDumpError(int err) {
  LUM_TRACE(traceKni, 1, "Manager(" << ns_ << "): dump " << dumpSeq_ << " failed, errno " << err);
  dumpSeq_ = 0;
  seen_.clear();
  dumpInterrupted_ = false;
  if (++dumpFailures_ <= kDumpRetries) {
    requestDump();
  } else {
    // Given up until the next loss of events asks again.
    dumpDue_ = false;
  }
}

}  // namespace KernelNetworkInfo
