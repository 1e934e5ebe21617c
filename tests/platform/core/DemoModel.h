// A small status model and state machine written against the framework the way the
// agent's own are: two entity types, a directory entity with a keyed collection, and a
// state machine with nested reactors and a keyed collection of sub-machines. The
// tests drive it and read the calls it records in `log`.
#pragma once

#include <string>
#include <vector>

#include "platform/core/Collection.h"
#include "platform/core/Entity.h"
#include "platform/core/Instance.h"
#include "platform/core/ValueMap.h"

namespace Demo {

using Lum::Ptr;

inline std::vector<std::string> log;

class Link : public Lum::Entity {
 public:
  enum : int { kOperStatus = Entity::kAttrEnd, kMtu, kVlanVni, kAttrEnd };
  class NotifieeConst : public Lum::NotifieeConst<Link> {
   public:
    virtual void onOperStatus() {}
    virtual void onMtu() {}
    virtual void onVlanVni(int) {}
    virtual void onVlanVni() {}
  };

  explicit Link(const Lum::Name& name) : Entity(name) {}
  int operStatus() const { return operStatus_; }
  void operStatusIs(int v) { attrIs<&NotifieeConst::onOperStatus>(operStatus_, v, kOperStatus); }
  unsigned mtu() const { return mtu_; }
  void mtuIs(unsigned v) { attrIs<&NotifieeConst::onMtu>(mtu_, v, kMtu); }
  int vlanVni(int vlan) const { return vlanVni_(vlan); }
  void vlanVniIs(int vlan, int vni) {
    if (vlanVni_.is(vlan, vni)) notify<Lum::keyed(&NotifieeConst::onVlanVni)>(kVlanVni, vlan);
  }
  void vlanVniDel(int vlan) {
    if (vlanVni_.del(vlan)) notify<Lum::keyed(&NotifieeConst::onVlanVni)>(kVlanVni, vlan);
  }

  const Lum::TypeInfo& fwkType() const override { return kType; }
  static const Lum::TypeInfo& kType;

 private:
  int operStatus_ = 0;
  unsigned mtu_ = 1500;
  Lum::ValueMap<int, int> vlanVni_;
};

class LinkDir : public Lum::Entity {
 public:
  enum : int { kLink = Entity::kAttrEnd, kAttrEnd };
  class NotifieeConst : public Lum::NotifieeConst<LinkDir> {
   public:
    virtual void onLink(const Lum::Name&) {}
  };

  explicit LinkDir(const Lum::Name& name) : Entity(name) {}
  Ptr<Link> link(const Lum::Name& n) const { return link_(n); }
  Ptr<Link> linkIs(const Lum::Name& n) {
    size_t before = link_.size();
    Ptr<Link> l = link_.is(n);
    if (link_.size() != before) notify<&NotifieeConst::onLink>(kLink, n);
    return l;
  }
  void linkDel(const Lum::Name& n) {
    if (link_.del(n)) notify<&NotifieeConst::onLink>(kLink, n);
  }
  auto linkIterator() const { return link_.iterator(); }
  auto linkIterator(const Lum::Name& from) const { return link_.iterator(from); }

 private:
  Lum::Collection<LinkDir, Link, Lum::Name, Lum::Name> link_{this, "Demo::LinkDir::link", {"name"}};
};

class Settings : public Lum::Entity {
 public:
  enum : int { kEnabled = Entity::kAttrEnd, kAttrEnd };
  class NotifieeConst : public Lum::NotifieeConst<Settings> {
   public:
    virtual void onEnabled() {}
  };
  explicit Settings(const Lum::Name& name) : Entity(name) {}
  bool enabled() const { return enabled_; }
  void enabledIs(bool v) { attrIs<&NotifieeConst::onEnabled>(enabled_, v, kEnabled); }

 private:
  bool enabled_ = false;
};

// The state machine: one LumLinkSm per link of the directory, and a reactor on the
// settings. This is all the code a state machine of the agent needs.
class LinkWatcherSm : public LinkDir::NotifieeConst {
 public:
  class LumLinkSm : public Link::NotifieeConst {
   public:
    LumLinkSm(const Ptr<const Link>& link, LinkWatcherSm* parent) : parent_(parent) {
      notifierIs(link);
      isRegisteredNotifieeIs(true);
      handleInitialized();
    }
    static Lum::Name lumKeyOf(const Ptr<const Link>& l) { return l->name(); }
    void parentIs(LinkWatcherSm* p) { parent_ = p; }
    LinkWatcherSm* parent() const { return parent_; }

    void handleInitialized() { record("init"); }
    void onOperStatus() override {
      record("operStatus=" + std::to_string(notifier()->operStatus()));
    }
    void onVlanVni(int vlan) override { record("vlan " + std::to_string(vlan)); }
    void onNotifier() override { record("catch-up"); }
    void doPrepareToDie() override { record("prepareToDie"); }
    void record(const std::string& what) {
      log.push_back(std::string(notifier()->name().view()) + " " + what +
                    (parent_ ? "" : " (orphan)"));
    }

   private:
    LinkWatcherSm* parent_;
  };

  class LumSettings : public Lum::NestedReactor<LinkWatcherSm, Settings::NotifieeConst> {
   public:
    void onEnabled() override { s()->handleEnabled(); }
    void onNotifier() override { s()->handleEnabled(); }
  };

  LinkWatcherSm(const Ptr<const LinkDir>& dir, const Ptr<const Settings>& settings) {
    notifierIs(dir);
    isRegisteredNotifieeIs(true);
    settings_.is(settings);
    handleInitialized();
  }

  void handleInitialized() {
    for (auto it = notifier()->linkIterator(); it; ++it) linkSm_.is(it.ptr());
  }
  void onLink(const Lum::Name& name) override {
    if (Ptr<const Link> l = notifier()->link(name)) {
      linkSm_.is(l);
    } else {
      linkSm_.del(name);
    }
  }
  void handleEnabled() {
    log.push_back(std::string("enabled=") + (settings_->notifier()->enabled() ? "1" : "0"));
  }

  Ptr<LumLinkSm> linkSm(const Lum::Name& n) const { return linkSm_(n); }
  Ptr<LumLinkSm> linkSmDel(const Lum::Name& n) { return linkSm_.del(n); }
  size_t linkSms() const { return linkSm_.size(); }
  LumSettings* settings() const { return settings_.get(); }

 private:
  Lum::Nested<LumSettings> settings_{this};
  Lum::Collection<LinkWatcherSm, LumLinkSm, Lum::Name, Ptr<const Link>> linkSm_{
      this, "Demo::LinkWatcherSm::linkSm", {"link"}};
};

}  // namespace Demo
