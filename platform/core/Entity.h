// Entities: named, reference-counted objects of shared state that notify their
// reactors of every change.
//
// An entity type E:
//  - derives from Lum::Entity (or another entity type);
//  - declares its attribute ids (numbered after its base's) and registers its type;
//  - declares E::NotifieeConst, deriving from Lum::NotifieeConst<E>, with one virtual
//    `onX()` per attribute and `onX(key)` per collection, and `using Notifiee =
//    Lum::NotifieeMutable<NotifieeConst, E>`;
//  - writes its setters with attrIs() and notify(), which store, compare and call
//    every registered notifiee through the generated dispatch of ReactorBase.
//
// Notifiees may register, unregister, or drop the last reference to themselves or to
// the entity while a notification is being delivered: the walk holds a reference to
// the entity and to each notifiee for the length of its call, skips notifiees removed
// on the way, and does not deliver the present change to notifiees added on the way
// (they catch up through their new-notifier path).
#pragma once

#include <string>
#include <vector>

#include "platform/core/Reactor.h"
#include "platform/core/String8.h"
#include "platform/core/TypeRegistry.h"

namespace Lum {

class Entity : public VFPtrInterface {
 public:
  // Attribute ids of every entity type start after these.
  enum : int { kAttrName = 0, kAttrEnd };
  // The registered name of the type; entity types declared with LUM_ENTITY have one.
  static constexpr const char* kTypeFullName = "Lum::Entity";

  const Name& name() const { return name_; }
  Entity* parent() const { return parent_; }
  void parentIs(Entity* p) { parent_ = p; }
  int parentAttrId() const { return parentAttrId_; }
  void parentAttrIdIs(int id) { parentAttrId_ = id; }
  // The names from the root down, joined by '/'.
  std::string fullName() const;
  // fullName() as an absolute path: "/a/b/c".
  std::string uriPath() const;

  virtual const TypeInfo& fwkType() const;
  // The name of an attribute for its id, "unknown" for any other id.
  String8 attributeString(int attrId) const { return fwkType().attributeString(attrId); }

  // Registration of notifiees; called by NotifieeConst<E>.
  void lumNotifieeAdd(ReactorBase* n) const;
  void lumNotifieeDel(ReactorBase* n) const;
  size_t lumNotifieeCount() const;

  static const TypeInfo& kType;

 protected:
  explicit Entity(Name name) : name_(std::move(name)) { stateChanged(); }
  ~Entity() override;

  // Delivers a change of attribute `attrId` to every notifiee through its handler
  // `Fn` (a member of E::NotifieeConst), with the key for a collection entry.
  template <auto Fn, class... Key>
  void notify(int attrId, const Key&... key) const {
    stateChanged();
    notifyEvent<Fn>(attrId, key...);
  }
  // The same delivery for an event that changes no state (a descriptor became
  // readable): what was worked out from entities stays valid (Lum::stateChanges()).
  template <auto Fn, class... Key>
  void notifyEvent(int attrId, const Key&... key) const {
    using N = typename MemberOf<Fn>::Class;
    ReactorBase::Thunk thunk = nullptr;
    if constexpr (sizeof...(Key) == 0) thunk = &lumThunk<Fn>;
    forEachNotifiee([&](ReactorBase& r) {
      // A notifiee of a base entity type watches only the base's attributes.
      if (N* n = dynamic_cast<N*>(&r)) r.lumNotify(attrId, thunk, [&] { (n->*Fn)(key...); });
    });
  }

  // Stores `v` in `store` and notifies through `Fn` when the value changed.
  template <auto Fn, class T, class V>
  void attrIs(T& store, V&& v, int attrId) {
    if (store == v) return;
    store = std::forward<V>(v);
    notify<Fn>(attrId);
  }

  // Finds or creates the element `key` of the entity collection `c` (a
  // Lum::Collection); only a new element is notified, through the keyed `Fn`.
  template <auto Fn, class C, class K>
  auto elementIs(C& c, const K& key, int attrId) {
    const size_t before = c.size();
    auto elem = c.is(key);
    if (c.size() != before) notify<Fn>(attrId, key);
    return elem;
  }

 private:
  void forEachNotifiee(const std::function<void(ReactorBase&)>& fn) const;

  Name name_;
  Entity* parent_ = nullptr;
  int parentAttrId_ = -1;
  mutable std::vector<ReactorBase*> notifiees_;
  mutable int walking_ = 0;
};

}  // namespace Lum
