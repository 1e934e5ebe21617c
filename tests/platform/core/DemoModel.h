// A small status model and state machine written against the framework the way the
// agent's own are: entity types declared with attribute tables (a directory entity
// with a keyed collection among them), and a state machine with nested reactors and a keyed
// collection of sub-machines. The tests drive it and read the calls it records in `log`.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/core/Attributes.h"
#include "platform/core/Instance.h"

namespace Demo {

using Lum::Ptr;

using Log = std::vector<std::string>;
inline Log log;
// What was recorded since the last call.
inline Log taken() {
  return std::exchange(log, {});
}

#define DEMO_LINK_ATTRS(X)                   \
  X(VALUE, OperStatus, operStatus, int, {0}) \
  X(MAP, VlanVni, vlanVni, int, int)

class Link : public Lum::Entity {
  LUM_ENTITY(Demo::Link, Lum::Entity, DEMO_LINK_ATTRS)
  explicit Link(const Lum::Name& name) : Entity(name) {}
};

#define DEMO_LINK_DIR_ATTRS(X) X(COLLECTION, Link, link, Lum::Name, Link, name)

class LinkDir : public Lum::Entity {
  LUM_ENTITY(Demo::LinkDir, Lum::Entity, DEMO_LINK_DIR_ATTRS)
  explicit LinkDir(const Lum::Name& name) : Entity(name) {}
};

#define DEMO_SETTINGS_ATTRS(X) X(VALUE, Enabled, enabled, bool, {false})

class Settings : public Lum::Entity {
  LUM_ENTITY(Demo::Settings, Lum::Entity, DEMO_SETTINGS_ATTRS)
  explicit Settings(const Lum::Name& name) : Entity(name) {}
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
