#include "platform/Dir.h"

namespace Lum {

const TypeInfo& Dir::kType =
    TypeRegistry::add(TypeInfo("Lum::Dir", "Lum::Entity")
                          .attribute("entity", kEntity)
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
