// Interface::EthIntfStatusDir and Interface::EthIntfStatus: the status of every
// Ethernet-like interface, as the interface agents publish it at
// "interface/status/eth/intf". The local-to-remote forwarder keeps a reactor per
// interface that it tracks as a tunnel port or as the MLAG peer link, for its kernel
// device name. This agent only reads it.
#pragma once

#include "platform/core/Collection.h"
#include "platform/status/interface/IntfStatus.h"

namespace Interface {

// Everything this agent reads of an Ethernet interface is in the common interface
// status; the type exists so that its reactors and the directory name it.
class EthIntfStatus : public IntfStatus {
 public:
  enum : int { kAttrEnd = IntfStatus::kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConstOf<IntfStatus::NotifieeConst, EthIntfStatus> {};

  explicit EthIntfStatus(const Wire::IntfId& id) : IntfStatus(id) {}

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;
};

class EthIntfStatusDir : public Lum::Entity {
 public:
  enum : int { kIntfStatus = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<EthIntfStatusDir> {
   public:
    virtual void onIntfStatus(const Wire::IntfId&) {}
    virtual void onIntfStatus() {}
  };

  explicit EthIntfStatusDir(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<EthIntfStatus> intfStatus(const Wire::IntfId& id) const { return intfStatus_(id); }
  Lum::Ptr<EthIntfStatus> intfStatusIs(const Wire::IntfId& id);
  void intfStatusDel(const Wire::IntfId& id);
  auto intfStatusIterator() const { return intfStatus_.iterator(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<EthIntfStatusDir, EthIntfStatus, Wire::IntfId, Wire::IntfId> intfStatus_{
      this, "Interface::EthIntfStatusDir::intfStatus", {"intfId"}};
};

}  // namespace Interface
