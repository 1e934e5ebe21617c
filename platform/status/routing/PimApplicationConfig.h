// Routing::Pim::Application::Config: the PIM mode that an application asks the PIM
// agent to run, per interface. This agent writes its own instance at
// "routing/pim/application/config/vxlan" alongside its IGMP memberships, so that
// the groups it joins on the interface of the local VTEP address are routed to it;
// the PIM agent reads it.
//
// Keys are the interface's full name as text ("Vlan10"), not an IntfId: that is how
// the PIM agent names interfaces. An interface without an entry reads as pimModeNone.
// A join sets the mode only where the interface has none yet; leaving the last group
// of an interface deletes its mode. The whole configuration is this agent's:
// intfModeDelAll() clears every interface.
#pragma once

#include <cstdint>

#include "platform/core/Attributes.h"

namespace Routing::Pim {

// The text form is the number; a number without a name is refused.
#define ROUTING_PIM_MODE_VALUES(X) \
  X(pimModeNone, 0)                \
  X(pimModeSparse, 1)
LUM_ENUM(Mode, uint32_t, ROUTING_PIM_MODE_VALUES)

namespace Application {

#define ROUTING_PIM_CONFIG_ATTRS(X) X(MAP, IntfMode, intfMode, Lum::Name, Mode)

class Config : public Lum::Entity {
  LUM_ENTITY(Routing::Pim::Application::Config, Lum::Entity, ROUTING_PIM_CONFIG_ATTRS)

  explicit Config(const Lum::Name& name) : Entity(name) {}
};

}  // namespace Application
}  // namespace Routing::Pim
