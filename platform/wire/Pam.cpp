#include "platform/wire/Pam.h"

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

void Pam::onReadable(int) {
  ++readableCount_;
  notify<&NotifieeConst::onReadableCount>(kReadableCount);
}

}  // namespace Wire
