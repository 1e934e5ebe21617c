// Mlag::Config: the MLAG configuration, mounted read-only. Virtual ARP reads
// peerAddress, the IPv4 address of the MLAG peer, as the destination of the ARP
// entries it syncs to the peer; 0.0.0.0 while none is configured.
#pragma once

#include "platform/core/Entity.h"
#include "platform/types/IpAddr.h"

namespace Mlag {

class Config : public Lum::Entity {
 public:
  enum : int { kPeerAddress = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Config> {
   public:
    virtual void onPeerAddress() {}
  };

  explicit Config(const Lum::Name& name) : Entity(name) {}

  Wire::IpAddr peerAddress() const { return peerAddress_; }
  void peerAddressIs(Wire::IpAddr v) {
    attrIs<&NotifieeConst::onPeerAddress>(peerAddress_, v, kPeerAddress);
  }

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  Wire::IpAddr peerAddress_;
};

}  // namespace Mlag
