// Routing::Igmp::Application::Config and IntfConfig: multicast group memberships that
// an application asks the IGMP agent to hold, per interface. This agent writes its own
// instance at "routing/igmp/application/config/vxlan" to receive multicast VXLAN
// traffic on the interface of the local VTEP address; the IGMP agent reads it and
// joins.
//
// Use: intfConfigIs(intf) finds or creates an interface's entry, groupIs(sg, true)
// adds a membership, groupDel(sg) drops it; an entry left without groups is removed
// with intfConfigDel(intf). The whole configuration is this agent's: intfConfigDelAll()
// clears every interface, which is what closing the remote sockets does.
#pragma once

#include "platform/core/Collection.h"
#include "platform/core/ValueMap.h"
#include "platform/types/IntfId.h"
#include "platform/types/SourceGroup.h"

namespace Routing::Igmp::Application {

class IntfConfig : public Lum::Entity {
 public:
  enum : int { kGroup = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<IntfConfig> {
   public:
    virtual void onGroup(SourceGroup) {}
    virtual void onGroup() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, IntfConfig>;

  explicit IntfConfig(const Wire::IntfId& id) : Entity(Lum::Name(id.stringValue())), intfId_(id) {}
  const Wire::IntfId& intfId() const { return intfId_; }

  // The flag belongs to the IGMP agent's model; this agent always writes true. A
  // membership that is absent reads as false.
  bool group(SourceGroup sg) const { return group_(sg); }
  const Lum::ValueMap<SourceGroup, bool>& group() const { return group_; }
  void groupIs(SourceGroup sg, bool v) {
    if (group_.is(sg, v)) notify<Lum::keyed(&NotifieeConst::onGroup)>(kGroup, sg);
  }
  void groupDel(SourceGroup sg) {
    if (group_.del(sg)) notify<Lum::keyed(&NotifieeConst::onGroup)>(kGroup, sg);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Wire::IntfId intfId_;
  Lum::ValueMap<SourceGroup, bool> group_;
};

class Config : public Lum::Entity {
 public:
  enum : int { kIntfConfig = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Config> {
   public:
    virtual void onIntfConfig(const Wire::IntfId&) {}
    virtual void onIntfConfig() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, Config>;

  explicit Config(const Lum::Name& name) : Entity(name) {}

  Lum::Ptr<IntfConfig> intfConfig(const Wire::IntfId& id) const { return intfConfig_(id); }
  // Finds or creates; an existing entry keeps its groups.
  Lum::Ptr<IntfConfig> intfConfigIs(const Wire::IntfId& id);
  void intfConfigDel(const Wire::IntfId& id);
  // One whole-collection notification, not one per interface.
  void intfConfigDelAll();
  auto intfConfigIterator() const { return intfConfig_.iterator(); }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::Collection<Config, IntfConfig, Wire::IntfId, Wire::IntfId> intfConfig_{
      this, "Routing::Igmp::Application::Config::intfConfig", {"intfId"}};
};

}  // namespace Routing::Igmp::Application
