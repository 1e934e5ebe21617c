// Wire::RawTxPam: sends whole Ethernet frames out of a device chosen per send by its
// kernel interface index; it receives nothing.
//
//   Lum::Ptr<Wire::RawTxPam> tx = new Wire::RawTxPam(Lum::Name("RawTxPam"));
//   tx->enabledIs(true);
//   if (!tx->sendPktToIfIndex(pkt, ifindex)) { ... errno tells why ... }
//
// The socket is a packet socket opened with protocol 0, so the kernel queues nothing
// on it: a send-only PAM that asked for every type (ETH_P_ALL) would be handed a copy
// of every frame of the namespace and never read them. `ethProtocol` is kept as the
// model states it; the protocol of each frame sent is its own type field.
#pragma once

#include <cstdint>

#include "platform/types/NamespaceName.h"
#include "platform/wire/Pam.h"

namespace Wire {

class RawTxPam : public Pam {
 public:
  enum : int { kEthProtocol = Pam::kAttrEnd, kNetNs, kEnabled, kAttrEnd };

  explicit RawTxPam(const Lum::Name& name, Lum::EventLoop& loop = Lum::eventLoop());
  ~RawTxPam() override;

  uint16_t ethProtocol() const { return ethProtocol_; }
  void ethProtocolIs(uint16_t p) { ethProtocol_ = p; }
  // The namespace of the devices it sends to; a change takes effect at the next enable.
  const NamespaceName& netNs() const { return netNs_; }
  void netNsIs(const NamespaceName& ns) { netNs_ = ns; }
  bool enabled() const { return fd_ >= 0; }
  // Opens or closes the socket; a failed open raises ErrnoException naming its step.
  void enabledIs(bool enable);
  int fileDesc() const { return fd_; }

  // Sends the packet's bytes as one frame out of device `ifIndex`. False with errno
  // set when it fails: ENETDOWN while disabled, the kernel's errno otherwise (ENXIO or
  // ENODEV for a device that has gone). Counted as writableCount or txErrors.
  bool sendPktToIfIndex(const Lum::Ptr<Pkt>& pkt, int ifIndex);

  // A send-only PAM: never a packet.
  Lum::Ptr<Pkt> rxPkt() override { return nullptr; }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  uint16_t ethProtocol_ = 0;
  NamespaceName netNs_;
  int fd_ = -1;
};

}  // namespace Wire
