// Routing::Igmp::Application::Config and IntfConfig: multicast group memberships that
// an application asks the IGMP agent to hold, per interface. This agent writes its own
// instance at "routing/igmp/application/config/vxlan" to receive multicast VXLAN
// traffic on the interface of the local VTEP address; the IGMP agent reads it and
// joins.
//
// Use: intfConfigIs(intf) finds or creates an interface's entry (an existing one keeps
// its groups), groupIs(sg, true) adds a membership, groupDel(sg) drops it; an entry
// left without groups is removed with intfConfigDel(intf). The whole configuration is
// this agent's: intfConfigDelAll() clears every interface, which is what closing the
// remote sockets does. The flag of a membership belongs to the IGMP agent's model;
// this agent always writes true, and an absent membership reads as false.
#pragma once

#include "platform/core/Attributes.h"
#include "platform/types/IntfId.h"
#include "platform/types/SourceGroup.h"

namespace Routing::Igmp::Application {

#define ROUTING_IGMP_INTF_CONFIG_ATTRS(X) X(MAP, Group, group, SourceGroup, bool)

class IntfConfig : public Lum::Entity {
  LUM_ENTITY(Routing::Igmp::Application::IntfConfig, Lum::Entity, ROUTING_IGMP_INTF_CONFIG_ATTRS)

  explicit IntfConfig(const Wire::IntfId& id) : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

 private:
  Wire::IntfId intfId_;
};

#define ROUTING_IGMP_CONFIG_ATTRS(X) \
  X(COLLECTION, IntfConfig, intfConfig, Wire::IntfId, IntfConfig, intfId)

class Config : public Lum::Entity {
  LUM_ENTITY(Routing::Igmp::Application::Config, Lum::Entity, ROUTING_IGMP_CONFIG_ATTRS)

  explicit Config(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Routing::Igmp::Application
