#include "platform/wire/RawTxPam.h"

#include <linux/if_packet.h>
#include <net/ethernet.h>

#include <cerrno>
#include <cstring>

#include "platform/os/NetnsSocket.h"
#include "platform/os/SysCalls.h"

namespace Wire {

const Lum::TypeInfo& RawTxPam::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Wire::RawTxPam", "Wire::Pam")
        .attribute("ethProtocol", kEthProtocol, Lum::textAttr<&RawTxPam::ethProtocol>())
        .attribute("enabled", kEnabled, Lum::textAttr<&RawTxPam::enabled>()));

RawTxPam::RawTxPam(const Lum::Name& name, Lum::EventLoop& loop) : Pam(name, loop) {}

RawTxPam::~RawTxPam() {
  enabledIs(false);
}

void RawTxPam::enabledIs(bool enable) {
  if (enable == enabled()) return;
  if (!enable) {
    Lum::sysCalls().close(fd_);
    fd_ = -1;
    return;
  }
  fd_ = Lum::socketInNamespace(netNs_.view(), AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
}

bool RawTxPam::sendPktToIfIndex(const Lum::Ptr<Pkt>& pkt, int ifIndex) {
  if (fd_ < 0) {
    txDropsInc();
    errno = ENETDOWN;
    return false;
  }
  sockaddr_ll to{};
  to.sll_family = AF_PACKET;
  to.sll_ifindex = ifIndex;
  // The frame's own type field, as the kernel would read it from the bytes.
  if (pkt->bytes() >= ETH_HLEN) std::memcpy(&to.sll_protocol, pkt->data() + 12, 2);
  msghdr msg{};
  msg.msg_name = &to;
  msg.msg_namelen = sizeof to;
  msg.msg_iov = const_cast<iovec*>(pkt->iov());
  msg.msg_iovlen = static_cast<size_t>(pkt->iovCount());
  if (Lum::sysCalls().sendmsg(fd_, &msg, 0) < 0) {
    const int err = errno;
    txErrorsInc();
    errno = err;
    return false;
  }
  writableCountInc();
  return true;
}

}  // namespace Wire
