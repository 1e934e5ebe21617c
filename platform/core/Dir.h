// Lum::Dir: a directory of entities by name. Entering an entity makes the directory
// its parent; a name taken by another entity is refused with a name-in-use exception.
// Through the generic interface the entries are the collection "entity": readable,
// reachable by name and removable, but not created (their type is the writer's).
#pragma once

#include <map>

#include "platform/core/Entity.h"

namespace Lum {

class Dir : public Entity {
 public:
  enum : int { kEntity = Entity::kAttrEnd, kAttrEnd };

  class NotifieeConst : public Lum::NotifieeConst<Dir> {
   public:
    virtual void onEntity(const Name&) {}
  };
  using Notifiee = NotifieeMutable<NotifieeConst, Dir>;

  explicit Dir(Name name) : Entity(std::move(name)) {}

  Ptr<Entity> entity(const Name& name) const;
  // Enters `e` under its own name; the same entity again is a no-op.
  void entityIs(const Ptr<Entity>& e);
  Ptr<Entity> entityDel(const Name& name);
  size_t entities() const { return entities_.size(); }
  // The names in order, for walking.
  std::vector<Name> entityNames() const;

  const TypeInfo& fwkType() const override { return kType; }
  static const TypeInfo& kType;

 private:
  std::map<Name, Ptr<Entity>> entities_;
};

}  // namespace Lum
