// Bridging::Config and Bridging::SwitchIntfConfig: the bridging configuration of the
// switch at "bridging/config": the switchport settings of each port and the switch's
// own bridge MAC.
//
// The local-to-remote forwarder keeps a reactor per port's SwitchIntfConfig to know
// which ports are dot1q tunnels; the ARP path reads the bridge MAC. A port's mode and
// native VLAN are one attribute, so that such a reactor sees one consistent change.
// This agent only reads it.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"
#include "platform/types/SwitchportModeAndNativeVlan.h"

namespace Bridging {

#define BRIDGING_SWITCH_INTF_CONFIG_ATTRS(X)                                                      \
  X(VALUE, SwitchportModeAndNativeVlan, switchportModeAndNativeVlan, SwitchportModeAndNativeVlan, \
    {})

class SwitchIntfConfig : public Lum::Entity {
  LUM_ENTITY(Bridging::SwitchIntfConfig, Lum::Entity, BRIDGING_SWITCH_INTF_CONFIG_ATTRS)

  explicit SwitchIntfConfig(const Wire::IntfId& id)
      : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }
  SwitchportMode switchportMode() const { return switchportModeAndNativeVlan_.mode(); }
  VlanId nativeVlan() const { return switchportModeAndNativeVlan_.nativeVlan(); }

 private:
  Wire::IntfId intfId_;
};

#define BRIDGING_CONFIG_ATTRS(X)                                                            \
  X(COLLECTION, SwitchIntfConfig, switchIntfConfig, Wire::IntfId, SwitchIntfConfig, intfId) \
  X(VALUE, BridgeMacAddr, bridgeMacAddr, Wire::EthAddr, {})

class Config : public Lum::Entity {
  LUM_ENTITY(Bridging::Config, Lum::Entity, BRIDGING_CONFIG_ATTRS)

  explicit Config(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Bridging
