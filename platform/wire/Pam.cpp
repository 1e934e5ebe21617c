#include "platform/wire/Pam.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/os/SysCalls.h"

namespace Wire {

const Lum::TypeInfo& Pam::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Wire::Pam", "Lum::Entity")
        .attribute("readableCount", kReadableCount, Lum::textAttr<&Pam::readableCount>())
        .attribute("writableCount", kWritableCount, Lum::textAttr<&Pam::writableCount>())
        .attribute("txDrops", kTxDrops, Lum::textAttr<&Pam::txDrops>())
        .attribute("txErrors", kTxErrors, Lum::textAttr<&Pam::txErrors>())
        .attribute("rxErrors", kRxErrors, Lum::textAttr<&Pam::rxErrors>())
        .attribute("savedPacketRx", kSavedPacketRx, Lum::textAttr<&Pam::savedPacketRx>()));

Pam::Pam(const Lum::Name& name, Lum::EventLoop& loop) : Entity(name), loop_(&loop) {}

Pam::~Pam() {
  unwatch();
}

void Pam::watch(int fd) {
  if (fd == watched_) return;
  unwatch();
  watched_ = fd;
  if (fd >= 0) loop_->readableHandlerIs(fd, this);
}

void Pam::unwatch() {
  if (watched_ >= 0) loop_->readableHandlerDel(watched_);
  watched_ = -1;
}

Lum::Ptr<Pkt> Pam::rxDatagram(int fd, uint32_t maxBytes, sockaddr* from, socklen_t* fromLen) {
  Lum::SysCalls& sys = Lum::sysCalls();
  const auto quiet = [](int err) { return err == EAGAIN || err == EWOULDBLOCK || err == EINTR; };
  Lum::Ptr<Pkt> pkt = globalPktManager().newPkt();
  if (!pkt) {
    uint8_t byte;
    const ssize_t n =
        sys.recvfrom(fd, &byte, sizeof byte, MSG_DONTWAIT | MSG_TRUNC, nullptr, nullptr);
    if (n >= 0 || !quiet(errno)) rxErrorsInc();
    return nullptr;
  }
  // The datagram is read behind the head room, then moved to the end of the storage,
  // where a packet's data ends: for frames of ARP size the move costs less than asking
  // the kernel for the length first.
  const uint32_t cap = std::min(maxBytes, kMaxRxData);
  uint8_t* at = pkt->sharedBuffer()->buffer_ + kRxHeadRoom;
  const ssize_t n = sys.recvfrom(fd, at, cap, MSG_DONTWAIT | MSG_TRUNC, from, fromLen);
  if (n < 0) {
    if (!quiet(errno)) rxErrorsInc();
    return nullptr;
  }
  if (static_cast<size_t>(n) > cap) {
    rxErrorsInc();
    return nullptr;
  }
  pkt->newSharedHeadData(static_cast<uint32_t>(n));
  std::memmove(pkt->data(), at, static_cast<size_t>(n));
  return pkt;
}

void Pam::onReadable(int) {
  ++readableCount_;
  notifyEvent<&NotifieeConst::onReadableCount>(kReadableCount);
}

}  // namespace Wire
