#include "platform/core/Dir.h"

namespace Lum {

namespace {
// The entries by name, for the generic interface: they can be read, reached and
// removed, but not created, since the type of an entry is not the directory's to choose.
TextAccess entityAccess() {
  TextAccess a;
  a.kind = AttrKind::collection;
  a.checkKey = [](std::string_view name) {
    if (name.empty()) throwRangeException("empty entity name");
  };
  a.elementType = [] { return &Entity::kType; };
  a.keys = [](const Entity& e) {
    std::vector<std::string> keys;
    for (const Name& n : static_cast<const Dir&>(e).entityNames()) keys.emplace_back(n.view());
    return keys;
  };
  a.element = [](const Entity& e, std::string_view name) {
    return static_cast<const Dir&>(e).entity(Name(name));
  };
  a.entryDel = [](Entity& e, std::string_view name) { static_cast<Dir&>(e).entityDel(Name(name)); };
  return a;
}
}  // namespace

const TypeInfo& Dir::kType =
    TypeRegistry::add(TypeInfo("Lum::Dir", "Lum::Entity")
                          .attribute("entity", kEntity, entityAccess())
                          .constructor({"name"}, [](const TypeInfo::Args& a) -> Ptr<Entity> {
                            return Ptr<Entity>(new Dir(Name(a[0].second)));
                          }));

Ptr<Entity> Dir::entity(const Name& name) const {
  auto it = entities_.find(name);
  return it == entities_.end() ? nullptr : it->second;
}

void Dir::entityIs(const Ptr<Entity>& e) {
  validPtr(e);
  auto [it, inserted] = entities_.try_emplace(e->name(), e);
  if (!inserted) {
    if (it->second == e) return;
    throwNameInUseException(e->name().view());
  }
  e->parentIs(this);
  e->parentAttrIdIs(kEntity);
  notify<&NotifieeConst::onEntity>(kEntity, e->name());
}

Ptr<Entity> Dir::entityDel(const Name& name) {
  auto it = entities_.find(name);
  if (it == entities_.end()) return nullptr;
  Ptr<Entity> e = std::move(it->second);
  entities_.erase(it);
  e->parentIs(nullptr);
  notify<&NotifieeConst::onEntity>(kEntity, name);
  return e;
}

std::vector<Name> Dir::entityNames() const {
  std::vector<Name> names;
  for (const auto& [name, e] : entities_) names.push_back(name);
  return names;
}

}  // namespace Lum
