// Routing::Pim::Application::Config: the PIM mode that an application asks the PIM
// agent to run, per interface. This agent writes its own instance at
// "routing/pim/application/config/vxlan" alongside its IGMP memberships, so that
// the groups it joins on the interface of the local VTEP address are routed to it;
// the PIM agent reads it.
//
// Keys are the interface's full name as text ("Vlan10"), not an IntfId: that is how
// the PIM agent names interfaces. A join sets the mode only where the interface has
// none yet; leaving the last group of an interface deletes its mode. The whole
// configuration is this agent's: intfModeDelAll() clears every interface.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/core/Entity.h"
#include "platform/core/ValueMap.h"

namespace Routing::Pim {

// Interfaces without an entry read as pimModeNone. The text form is the number.
enum class Mode : uint32_t {
  pimModeNone = 0,
  pimModeSparse = 1,
};
inline std::ostream& operator<<(std::ostream& os, Mode m) {
  return os << static_cast<uint32_t>(m);
}

namespace Application {

class Config : public Lum::Entity {
 public:
  enum : int { kIntfMode = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Config> {
   public:
    virtual void onIntfMode(const Lum::Name&) {}
    virtual void onIntfMode() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, Config>;

  explicit Config(const Lum::Name& name) : Entity(name) {}

  Mode intfMode(const Lum::Name& intf) const { return intfMode_(intf, Mode::pimModeNone); }
  const Lum::ValueMap<Lum::Name, Mode>& intfMode() const { return intfMode_; }
  void intfModeIs(const Lum::Name& intf, Mode m) {
    if (intfMode_.is(intf, m)) notify<Lum::keyed(&NotifieeConst::onIntfMode)>(kIntfMode, intf);
  }
  void intfModeDel(const Lum::Name& intf) {
    if (intfMode_.del(intf)) notify<Lum::keyed(&NotifieeConst::onIntfMode)>(kIntfMode, intf);
  }
  void intfModeDelAll() {
    if (intfMode_.delAll().empty()) return;
    notify<Lum::whole(&NotifieeConst::onIntfMode)>(kIntfMode);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::ValueMap<Lum::Name, Mode> intfMode_;
};

}  // namespace Application
}  // namespace Routing::Pim
