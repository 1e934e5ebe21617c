// A mountable status directory for the state database tests: a collection of VTI
// statuses (plain, map and read-only attributes underneath), one owned entity and a
// plain attribute, which is every kind of attribute a state document can describe.
#pragma once

#include "platform/core/Collection.h"
#include "platform/status/vxlan/VtiStatus.h"

namespace StatehubTest {

class TunnelSettings : public Lum::Entity {
 public:
  enum : int { kEnabled = Entity::kAttrEnd, kVersion, kAttrEnd };
  class NotifieeConst : public Lum::NotifieeConst<TunnelSettings> {
   public:
    virtual void onEnabled() {}
  };

  explicit TunnelSettings(const Lum::Name& name) : Entity(name) {}
  bool enabled() const { return enabled_; }
  void enabledIs(bool v) { attrIs<&NotifieeConst::onEnabled>(enabled_, v, kEnabled); }
  uint32_t version() const { return 3; }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  bool enabled_ = false;
};

class VtiDir : public Lum::Entity {
 public:
  enum : int { kLabel = Entity::kAttrEnd, kVtiStatus, kSettings, kAttrEnd };
  class NotifieeConst : public Lum::NotifieeConst<VtiDir> {
   public:
    virtual void onLabel() {}
    virtual void onVtiStatus(const Wire::IntfId&) {}
  };

  explicit VtiDir(const Lum::Name& name) : Entity(name), settings_(new TunnelSettings("settings")) {
    settings_->parentIs(this);
  }
  const Lum::String8& label() const { return label_; }
  void labelIs(const Lum::String8& v) { attrIs<&NotifieeConst::onLabel>(label_, v, kLabel); }
  Lum::Ptr<Vxlan::VtiStatus> vtiStatus(const Wire::IntfId& id) const { return vti_(id); }
  Lum::Ptr<Vxlan::VtiStatus> vtiStatusIs(const Wire::IntfId& id) {
    const size_t before = vti_.size();
    Lum::Ptr<Vxlan::VtiStatus> v = vti_.is(id);
    if (vti_.size() != before) notify<&NotifieeConst::onVtiStatus>(kVtiStatus, id);
    return v;
  }
  void vtiStatusDel(const Wire::IntfId& id) {
    if (vti_.del(id)) notify<&NotifieeConst::onVtiStatus>(kVtiStatus, id);
  }
  auto vtiStatusIterator() const { return vti_.iterator(); }
  const Lum::Ptr<TunnelSettings>& settings() const { return settings_; }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  Lum::String8 label_;
  Lum::Collection<VtiDir, Vxlan::VtiStatus, Wire::IntfId, Wire::IntfId> vti_{
      this, "StatehubTest::VtiDir::vtiStatus", {"intfId"}};
  Lum::Ptr<TunnelSettings> settings_;
};

}  // namespace StatehubTest
