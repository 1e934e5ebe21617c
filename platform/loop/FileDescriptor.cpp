#include "platform/loop/FileDescriptor.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/os/SysCalls.h"

namespace Lum {

const TypeInfo& FileDescriptor::kType = TypeRegistry::add(
    TypeInfo("Lum::FileDescriptor", "Lum::Entity")
        .attribute("descriptor", kDescriptor, textAttr<&FileDescriptor::descriptor>())
        .attribute("nonBlocking", kNonBlocking, textAttr<&FileDescriptor::nonBlocking>())
        .attribute("notifyOnReadable", kNotifyOnReadable,
                   textAttr<&FileDescriptor::notifyOnReadable>())
        .attribute("readableCount", kReadableCount, textAttr<&FileDescriptor::readableCount>()));

FileDescriptor::FileDescriptor(const Name& name, EventLoop& loop) : Entity(name), loop_(&loop) {}

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0 && notifyOnReadable_) loop_->readableHandlerDel(fd_);
}

void FileDescriptor::descriptorIs(int fd) {
  if (fd == fd_) return;
  if (fd_ >= 0 && notifyOnReadable_) loop_->readableHandlerDel(fd_);
  fd_ = fd;
  applyNonBlocking();
  watch();
}

void FileDescriptor::nonBlockingIs(bool v) {
  nonBlocking_ = v;
  applyNonBlocking();
}

void FileDescriptor::applyNonBlocking() {
  if (fd_ < 0) return;
  SysCalls& sys = sysCalls();
  int flags = sys.fcntl(fd_, F_GETFL, 0);
  if (flags < 0) throw ErrnoException(errno, "fcntl F_GETFL");
  int wanted = nonBlocking_ ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
  if (wanted != flags && sys.fcntl(fd_, F_SETFL, wanted) < 0) {
    throw ErrnoException(errno, "fcntl F_SETFL O_NONBLOCK");
  }
}

void FileDescriptor::notifyOnReadableIs(bool v) {
  if (v == notifyOnReadable_) return;
  notifyOnReadable_ = v;
  if (!v && fd_ >= 0) loop_->readableHandlerDel(fd_);
  watch();
}

void FileDescriptor::watch() {
  if (fd_ >= 0 && notifyOnReadable_) loop_->readableHandlerIs(fd_, this);
}

void FileDescriptor::onReadable(int) {
  ++readableCount_;
  notifyEvent<&NotifieeConst::onReadableCount>(kReadableCount);
}

}  // namespace Lum
