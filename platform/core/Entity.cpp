#include "platform/core/Entity.h"

#include <algorithm>

namespace Lum {

const TypeInfo& Entity::kType = TypeRegistry::add(
    TypeInfo("Lum::Entity").attribute("name", kAttrName, textAttr<&Entity::name>()));

Entity::~Entity() {
  stateChanged();
}

const TypeInfo& Entity::fwkType() const {
  return kType;
}

std::string Entity::fullName() const {
  std::string path(name_.view());
  for (const Entity* p = parent_; p; p = p->parent_) {
    path = std::string(p->name_.view()) + "/" + path;
  }
  return path;
}

std::string Entity::uriPath() const {
  return "/" + fullName();
}

void Entity::lumNotifieeAdd(ReactorBase* n) const {
  if (std::find(notifiees_.begin(), notifiees_.end(), n) == notifiees_.end()) {
    notifiees_.push_back(n);
  }
}

void Entity::lumNotifieeDel(ReactorBase* n) const {
  auto it = std::find(notifiees_.begin(), notifiees_.end(), n);
  if (it == notifiees_.end()) return;
  // While a walk is under way the slot is emptied, not erased, so that the walk's
  // positions stay valid; the outermost walk compacts.
  if (walking_ > 0) {
    *it = nullptr;
  } else {
    notifiees_.erase(it);
  }
}

size_t Entity::lumNotifieeCount() const {
  return static_cast<size_t>(std::count_if(notifiees_.begin(), notifiees_.end(),
                                           [](ReactorBase* n) { return n != nullptr; }));
}

void Entity::forEachNotifiee(const std::function<void(ReactorBase&)>& fn) const {
  if (notifiees_.empty()) return;
  KeepAlive self(this);
  ++walking_;
  struct Unwalk {
    const Entity* e;
    ~Unwalk() {
      if (--e->walking_ == 0) {
        auto& v = e->notifiees_;
        v.erase(std::remove(v.begin(), v.end(), nullptr), v.end());
      }
    }
  } unwalk{this};
  const size_t count = notifiees_.size();
  for (size_t i = 0; i < count; ++i) {
    ReactorBase* n = notifiees_[i];
    if (n) fn(*n);
  }
}

}  // namespace Lum
