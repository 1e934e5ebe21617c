// Interface::EthIntfStatusDir and Interface::EthIntfStatus: the status of every
// Ethernet-like interface, as the interface agents publish it at
// "interface/status/eth/intf". The local-to-remote forwarder keeps a reactor per
// interface that it tracks as a tunnel port or as the MLAG peer link, for its kernel
// device name. This agent only reads it.
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
};

#define INTERFACE_ETH_INTF_STATUS_DIR_ATTRS(X) \
  X(COLLECTION, IntfStatus, intfStatus, Wire::IntfId, EthIntfStatus, intfId)

class EthIntfStatusDir : public Lum::Entity {
  LUM_ENTITY(Interface::EthIntfStatusDir, Lum::Entity, INTERFACE_ETH_INTF_STATUS_DIR_ATTRS)

  explicit EthIntfStatusDir(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Interface
