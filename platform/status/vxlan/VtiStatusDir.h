// Vxlan::VtiStatusDir: the directory of VXLAN tunnel interfaces (VTIs), one
// Vxlan::VtiStatus per interface id. The interface agent publishes it; both
// forwarders and virtual ARP keep one state machine per element and follow the
// keyed notifications to create and remove them. The remote-to-local forwarder also
// writes it: it looks up or creates the status of its own VTI with vtiStatusIs().
#pragma once

#include <cstdint>

#include "platform/core/Collection.h"
#include "platform/status/vxlan/VtiStatus.h"
#include "platform/types/IntfId.h"

namespace Vxlan {

class VtiStatusDir : public Lum::Entity {
 public:
  enum : int { kValue = Entity::kAttrEnd, kVtiStatus, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<VtiStatusDir> {
   public:
    virtual void onValue() {}
    virtual void onVtiStatus(const Wire::IntfId&) {}
    virtual void onVtiStatus() {}
  };
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, VtiStatusDir>;

  explicit VtiStatusDir(const Lum::Name& name) : Entity(name) {}

  // A number that the directory carries for its writers; state machines that create
  // a status hand it on unchanged, nothing here interprets it.
  uint32_t value() const { return value_; }
  void valueIs(uint32_t v) { attrIs<&NotifieeConst::onValue>(value_, v, kValue); }

  Lum::Ptr<VtiStatus> vtiStatus(const Wire::IntfId& id) const { return vtiStatus_(id); }
  // Returns the present status of `id`, or a new one; an empty id is a range exception.
  Lum::Ptr<VtiStatus> vtiStatusIs(const Wire::IntfId& id);
  void vtiStatusDel(const Wire::IntfId& id);
  auto vtiStatusIterator() const { return vtiStatus_.iterator(); }
  size_t vtiStatusSize() const { return vtiStatus_.size(); }

  // Out of line, as the key function: any use of the type, even a dynamic_cast,
  // links the file that registers it.
  const Lum::TypeInfo& fwkType() const override;
  static const Lum::TypeInfo& kType;

 private:
  uint32_t value_ = 0;
  Lum::Collection<VtiStatusDir, VtiStatus, Wire::IntfId, Wire::IntfId> vtiStatus_{
      this, "Vxlan::VtiStatusDir::vtiStatus", {"intfId"}};
};

}  // namespace Vxlan
