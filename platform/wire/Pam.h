// Wire::Pam: a packet access module, the base of the PAMs that carry the virtual ARP
// side's packets (Wire::Pkt) in and out of the kernel's sockets.
//
// A PAM owns one socket while it is enabled. While packets wait on it the event loop
// calls onReadableCount() of its reactors (level-triggered: once per pass of the loop
// while the socket is readable), and a reactor takes them one at a time with rxPkt(),
// which gives none when nothing waits. The counters are the PAM's own: failed reads
// (rxErrors), failed sends (txErrors) and packets it could not take or send for want
// of a packet or a socket (txDrops).
//
// The base keeps the loop registration and the counters; a kind of PAM opens its
// socket and calls watch(fd) / unwatch(), and reads packets in rxPkt() with
// rxDatagram(), which every kind shares.
#pragma once

#include <sys/socket.h>

#include <cstdint>

#include "platform/core/Entity.h"
#include "platform/loop/EventLoop.h"
#include "platform/wire/Pkt.h"

namespace Wire {

class Pam : public Lum::Entity, private Lum::ReadableHandler {
 public:
  enum : int {
    kReadableCount = Entity::kAttrEnd,
    kWritableCount,
    kTxDrops,
    kTxErrors,
    kRxErrors,
    kSavedPacket,
    kSavedPacketRx,
    kAttrEnd
  };

  class NotifieeConst : public Lum::NotifieeConst<Pam> {
   public:
    virtual void onReadableCount() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, Pam>;

  ~Pam() override;

  // The next packet received, or none when none waits (or the PAM is closed).
  virtual Lum::Ptr<Pkt> rxPkt() = 0;

  // Times the socket was found readable.
  uint64_t readableCount() const { return readableCount_; }
  uint64_t writableCount() const { return writableCount_; }
  uint64_t txDrops() const { return txDrops_; }
  uint64_t txErrors() const { return txErrors_; }
  uint64_t rxErrors() const { return rxErrors_; }
  // A packet kept by the PAM's user between calls, and whether it was a received one.
  const Lum::Ptr<Pkt>& savedPacket() const { return savedPacket_; }
  void savedPacketIs(const Lum::Ptr<Pkt>& pkt, bool received) {
    savedPacket_ = pkt;
    savedPacketRx_ = received;
  }
  bool savedPacketRx() const { return savedPacketRx_; }

  // Room left in front of every received packet, for the headers of a reply (a VXLAN
  // header of 8 bytes and more).
  static constexpr uint32_t kRxHeadRoom = 64;
  // The longest datagram a received packet can hold.
  static constexpr uint32_t kMaxRxData = Pkt::kStorageBytes - kRxHeadRoom;

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 protected:
  explicit Pam(const Lum::Name& name, Lum::EventLoop& loop = Lum::eventLoop());

  // Starts / stops the readable notifications for the PAM's socket.
  void watch(int fd);
  void unwatch();
  // One datagram of `fd` (read without waiting) in a new packet of the process-wide
  // manager, with its sender in `from`; none when nothing waits. A datagram longer than
  // `maxBytes` (or kMaxRxData) is dropped, and so is one that finds the manager at its
  // limit, so that a readable socket is drained and the loop does not spin on it; both
  // count in rxErrors, as does a failed read.
  Lum::Ptr<Pkt> rxDatagram(int fd, uint32_t maxBytes, sockaddr* from, socklen_t* fromLen);
  void rxErrorsInc() { ++rxErrors_; }
  void txErrorsInc() { ++txErrors_; }
  void txDropsInc() { ++txDrops_; }
  void writableCountInc() { ++writableCount_; }
  Lum::EventLoop& loop() const { return *loop_; }

 private:
  void onReadable(int fd) override;
  std::string_view facility() const override { return name().view(); }

  Lum::EventLoop* loop_;
  int watched_ = -1;
  uint64_t readableCount_ = 0;
  uint64_t writableCount_ = 0;
  uint64_t txDrops_ = 0;
  uint64_t txErrors_ = 0;
  uint64_t rxErrors_ = 0;
  Lum::Ptr<Pkt> savedPacket_;
  bool savedPacketRx_ = false;
};

}  // namespace Wire
