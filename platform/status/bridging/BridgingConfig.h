// Bridging::Config and Bridging::SwitchIntfConfig: the bridging configuration of the
// switch at "bridging/config": the switchport settings of each port and the switch's
// own bridge MAC.
//
// The local-to-remote forwarder keeps a reactor per port's SwitchIntfConfig to know
// which ports are dot1q tunnels; the ARP path reads the bridge MAC. A port's mode and
// native VLAN are one attribute, so that such a reactor sees one consistent change.
// This agent only reads it.
#pragma once

#include "platform/core/Collection.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"
#include "platform/types/SwitchportModeAndNativeVlan.h"

namespace Bridging {

class SwitchIntfConfig : public Lum::Entity {
 public:
  enum : int { kSwitchportModeAndNativeVlan = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<SwitchIntfConfig> {
   public:
    virtual void onSwitchportModeAndNativeVlan() {}
  };

  explicit SwitchIntfConfig(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

  const SwitchportModeAndNativeVlan& switchportModeAndNativeVlan() const {
    return switchportModeAndNativeVlan_;
  }
  void switchportModeAndNativeVlanIs(const SwitchportModeAndNativeVlan& v) {
    attrIs<&NotifieeConst::onSwitchportModeAndNativeVlan>(switchportModeAndNativeVlan_, v,
                                                          kSwitchportModeAndNativeVlan);
  }
  SwitchportMode switchportMode() const { return switchportModeAndNativeVlan_.mode(); }
  VlanId nativeVlan() const { return switchportModeAndNativeVlan_.nativeVlan(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Wire::IntfId intfId_;
  SwitchportModeAndNativeVlan switchportModeAndNativeVlan_;
};

class Config : public Lum::Entity {
 public:
  enum : int { kSwitchIntfConfig = Entity::kAttrEnd, kBridgeMacAddr, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Config> {
   public:
    virtual void onSwitchIntfConfig(const Wire::IntfId&) {}
    virtual void onSwitchIntfConfig() {}
    virtual void onBridgeMacAddr() {}
  };

  explicit Config(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<SwitchIntfConfig> switchIntfConfig(const Wire::IntfId& id) const {
    return switchIntfConfig_(id);
  }
  Lum::Ptr<SwitchIntfConfig> switchIntfConfigIs(const Wire::IntfId& id);
  void switchIntfConfigDel(const Wire::IntfId& id);
  auto switchIntfConfigIterator() const { return switchIntfConfig_.iterator(); }

  const Wire::EthAddr& bridgeMacAddr() const { return bridgeMacAddr_; }
  void bridgeMacAddrIs(const Wire::EthAddr& v) {
    attrIs<&NotifieeConst::onBridgeMacAddr>(bridgeMacAddr_, v, kBridgeMacAddr);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<Config, SwitchIntfConfig, Wire::IntfId, Wire::IntfId> switchIntfConfig_{
      this, "Bridging::Config::switchIntfConfig", {"intfId"}};
  Wire::EthAddr bridgeMacAddr_;
};

}  // namespace Bridging
