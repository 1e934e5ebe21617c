#include "platform/core/Reactor.h"

#include <algorithm>

namespace Lum {

uint64_t detail::stateChanges = 0;

NestedSlotBase::NestedSlotBase(ReactorBase* owner) : owner_(owner) {
  if (owner_) owner_->nested_.push_back(this);
}

NestedSlotBase::~NestedSlotBase() {
  if (!owner_) return;
  auto& v = owner_->nested_;
  v.erase(std::remove(v.begin(), v.end(), this), v.end());
}

void ReactorBase::forEachNested(const std::function<void(ReactorBase&)>& fn) {
  // A slot may change what it holds while we walk it; walk a copy of the slot list.
  std::vector<NestedSlotBase*> slots = nested_;
  for (NestedSlotBase* slot : slots) slot->lumForEachReactor(fn);
}

void ReactorBase::hasNotificationActiveIs(bool v) {
  if (v == hasNotificationActive()) return;
  notificationActiveIs(v);
  forEachNested([v](ReactorBase& r) { r.hasNotificationActiveIs(v); });
}

void ReactorBase::lumDoZombieReactors(bool zombie) {
  if (zombie == lumMarkedForDeletion()) return;
  hasNotificationActiveIs(!zombie);
  forEachNested([zombie](ReactorBase& r) { r.lumDoZombieReactors(zombie); });
  lumMarkedForDeletionIs(zombie);
  if (zombie) pending_.clear();
}

void ReactorBase::lumFwkActivityIs(const Ptr<ActivityConfig>& activity) {
  activity_ = activity;
  forEachNested([&activity](ReactorBase& r) { r.lumFwkActivityIs(activity); });
}

bool ReactorBase::lumOnAttribute(int attrId, Thunk thunk) {
  if (!activity_) return false;
  if (lumMarkedForDeletion()) return true;  // queued reactions of a zombie are dropped
  // A keyed change has no thunk: it is made up for by the catch-up.
  if (thunk == nullptr) attrId = kAllAttributes;
  auto same = [attrId](const Pending& p) { return p.attrId == attrId; };
  if (std::find_if(pending_.begin(), pending_.end(), same) == pending_.end()) {
    pending_.push_back({attrId, thunk});
  }
  if (!scheduled_) {
    scheduled_ = true;
    activity_->lumSchedule(Ptr<ReactorBase>(this));
  }
  return true;
}

void ReactorBase::handleNotification() {
  scheduled_ = false;
  std::vector<Pending> work;
  work.swap(pending_);
  KeepAlive alive(this);
  bool all = std::any_of(work.begin(), work.end(),
                         [](const Pending& p) { return p.attrId == kAllAttributes; });
  if (all) {
    if (!lumMarkedForDeletion()) onNotifier();
    return;
  }
  for (const Pending& p : work) {
    if (lumMarkedForDeletion()) return;
    p.thunk(*this);
  }
}

}  // namespace Lum
