// Lum::FileDescriptor: an entity around a descriptor number that tells its reactors
// when the descriptor is readable.
//
// With notifyOnReadableIs(true) the descriptor is watched by the event loop,
// level-triggered: onReadableCount() is called on every pass of the loop while data
// waits, so a reactor that leaves data unread is called again and one that drained
// the descriptor is not. The entity does not own the descriptor: whoever opened it
// closes it, after taking it out of the entity (descriptorIs(-1)).
#pragma once

#include "platform/core/Entity.h"
#include "platform/loop/EventLoop.h"

namespace Lum {

class FileDescriptor : public Entity, private ReadableHandler {
 public:
  enum : int {
    kDescriptor = Entity::kAttrEnd,
    kNonBlocking,
    kNotifyOnReadable,
    kReadableCount,
    kAttrEnd
  };

  class NotifieeConst : public Lum::NotifieeConst<FileDescriptor> {
   public:
    virtual void onReadableCount() {}
  };
  using Notifiee = NotifieeMutable<NotifieeConst, FileDescriptor>;

  explicit FileDescriptor(const Name& name, EventLoop& loop = eventLoop());
  ~FileDescriptor() override;

  int descriptor() const { return fd_; }
  void descriptorIs(int fd);
  bool nonBlocking() const { return nonBlocking_; }
  // Sets or clears O_NONBLOCK on the descriptor; throws ErrnoException on failure.
  void nonBlockingIs(bool v);
  bool notifyOnReadable() const { return notifyOnReadable_; }
  void notifyOnReadableIs(bool v);
  // How many times the descriptor was found readable.
  uint64_t readableCount() const { return readableCount_; }

  const TypeInfo& fwkType() const override { return kType; }
  static const TypeInfo& kType;

 private:
  void onReadable(int fd) override;
  std::string_view facility() const override { return name().view(); }
  void applyNonBlocking();
  void watch();

  EventLoop* loop_;
  int fd_ = -1;
  bool nonBlocking_ = false;
  bool notifyOnReadable_ = false;
  uint64_t readableCount_ = 0;
};

}  // namespace Lum
