// Interface::EthIntfStatusDir and Interface::EthIntfStatus: the status of every
// Ethernet-like interface, as the interface agents publish it at
// "interface/status/eth/intf". The local-to-remote forwarder keeps a reactor per
// interface that it tracks as a tunnel port or as the MLAG peer link, for its kernel
// device name. This agent only reads it. intfStatusIs makes a port channel's element
// an EthLagIntfStatus. A state document checks a new element against EthIntfStatus, so
// a port channel's lagDeviceName is written once the element exists (a second
// document).
#pragma once

#include "platform/core/Attributes.h"
#include "platform/status/interface/IntfStatus.h"

namespace Interface {

// Everything this agent reads of an Ethernet interface is in the common interface
// status; the type exists so that its reactors and the directory name it.
#define INTERFACE_ETH_INTF_STATUS_ATTRS(X)

class EthIntfStatus : public IntfStatus {
  LUM_ENTITY(Interface::EthIntfStatus, IntfStatus, INTERFACE_ETH_INTF_STATUS_ATTRS)

  explicit EthIntfStatus(const Wire::IntfId& id) : IntfStatus(id) {}
  // The directory's element for `id`: a port channel's status is an EthLagIntfStatus.
  static Lum::Ptr<EthIntfStatus> lumNewElement(const Wire::IntfId& id);
};

// A port channel's status. The kernel knows a port channel by the name of its bond
// device, which the LAG agent publishes in lagDeviceName.
#define INTERFACE_ETH_LAG_INTF_STATUS_ATTRS(X) \
  X(VALUE, LagDeviceName, lagDeviceName, Lum::String8, {})

class EthLagIntfStatus : public EthIntfStatus {
  LUM_ENTITY(Interface::EthLagIntfStatus, EthIntfStatus, INTERFACE_ETH_LAG_INTF_STATUS_ATTRS)

  explicit EthLagIntfStatus(const Wire::IntfId& id) : EthIntfStatus(id) {}
};

#define INTERFACE_ETH_INTF_STATUS_DIR_ATTRS(X) \
  X(COLLECTION, IntfStatus, intfStatus, Wire::IntfId, EthIntfStatus, intfId)

class EthIntfStatusDir : public Lum::Entity {
  LUM_ENTITY(Interface::EthIntfStatusDir, Lum::Entity, INTERFACE_ETH_INTF_STATUS_DIR_ATTRS)

  explicit EthIntfStatusDir(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Interface
