// Attribute tables: each attribute of an entity type is stated once, in one line of a
// table, and its id, its notifications, its accessors, its storage and its
// registration with the type registry follow from that line.
//
// Why: an attribute written by hand appears in six places (id, `onX` handler, `x()`,
// `xIs()`/`xDel()`, storage, registration), and the copies drift. A table keeps the
// attribute's kind, name and types in one place; rules that belong to one entity
// (defaults, a refused pair) stay in that entity's own file, named in its table.
//
// Layout. An entity's header defines its table as an X-macro, one line per
// attribute, kind first, in the order of the ids:
//
//   #define VXLAN_VTI_STATUS_ATTRS(X)
//     X(VALUE, FloodMcastGrp, floodMcastGrp, Wire::IpAddr, {})
//     X(MAP, VlanToVniMap, vlanToVniMap, Bridging::VlanId, VniOrNone)
//     X(VALUE, UdpPort, udpPort, uint16_t, {kDefaultUdpPort})
//
// (each line of the table ending in a backslash)
//
//   class VtiStatus : public Interface::IntfStatus {
//    public:
//     static constexpr uint16_t kDefaultUdpPort = 4789;
//     LUM_ENTITY(Vxlan::VtiStatus, Interface::IntfStatus, VXLAN_VTI_STATUS_ATTRS)
//     explicit VtiStatus(const Wire::IntfId& id) : IntfStatus(id) {}
//   };
//
// and its source file registers the type from the same table, with what else the
// registry needs (a constructor by name for a type that is mounted):
//
//   LUM_ENTITY_TYPE(VtiStatus, VXLAN_VTI_STATUS_ATTRS)
//
// LUM_ENTITY takes the entity's full name (its registered name), its base entity type
// and its table, and declares, in this order: `kTypeFullName`; the ids `kX`, numbered
// after the base's, and `kAttrEnd`; `NotifieeConst` with the handlers below, and
// `Notifiee`; the accessors; `fwkType()` and `kType`; the storage `x_`, private. What
// follows it in the class is public.
//
// The kinds, for an attribute `x` (id `kX`, handler `onX`):
//
//   VALUE(X, x, T, {init})   a plain value, read and written as text. `const T& x()`,
//                            `xIs(v)`, which notifies `onX()` when the value changes.
//   RO_VALUE(X, x, T, {init}) the same, read-only through the generic interface (what
//                            the agent itself reports).
//   MAP(X, x, K, V)          a Lum::ValueMap. `V x(key)` (V{} when absent), `x()` the
//                            map, `xIs(key, v)`, `xDel(key)`, `xDelAll()`, `xSize()`;
//                            `onX(key)` for each changed key, `onX()` for `xDelAll()`.
//   MAP_CHECKED(X, x, K, V, rule)  the same, with `static void rule(const K&, const V&)`
//                            of the entity refusing pairs: `xIs` and the registry's
//                            check both run it.
//   SET(X, x, K)             a map to bool whose members are true: `bool x(key)`,
//                            `xIs(key)` adds, the rest as for MAP.
//   COLLECTION(X, x, K, E, param)  entities E keyed by K, E built from its key (its
//                            constructor parameter `param`). `Ptr<E> x(key)`,
//                            `xIs(key)` finds or creates (an empty key is a range
//                            exception), `xDel(key)`, `xDelAll()`, `xIterator()`,
//                            `xSize()`; `onX(key)` for each element added or removed,
//                            `onX()` for `xDelAll()`.
//   CHILD(X, x, E)           one owned entity E named `x`, built with the owner and
//                            parented to it, alive as long as it: `const Ptr<E>& x()`.
//                            It never changes, so it has no handler.
//
// A keyed handler takes a key of at most four bytes that copies trivially by value,
// any other by const reference: `onVlanToVniMap(Bridging::VlanId)`,
// `onVtiStatus(const Wire::IntfId&)`. Every generated handler that a notifiee does not
// override calls `onAnyAttribute(kX)`, which is how Lum::Watcher sees every change.
#pragma once

#include <array>
#include <functional>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>

#include "platform/core/Collection.h"
#include "platform/core/Entity.h"
#include "platform/core/ValueMap.h"

namespace Lum {

template <class K>
using KeyArg = std::conditional_t<std::is_trivially_copyable_v<K> && sizeof(K) <= 4, K, const K&>;

// The NotifieeConst that an entity type's own derives from: its base's, or the root.
template <class Base, class E>
struct NotifieeBaseOf {
  using type = NotifieeConstOf<typename Base::NotifieeConst, E>;
};
template <class E>
struct NotifieeBaseOf<Entity, E> {
  using type = NotifieeConst<E>;
};

// The storage of a CHILD attribute: the owned entity, parented while the owner lives.
// Readers may hold the child longer than the owner: it then has no parent.
template <class T>
class Child {
 public:
  Child(Entity* owner, const char* name, int attrId) : child_(new T(Name(name))) {
    child_->parentIs(owner);
    child_->parentAttrIdIs(attrId);
  }
  ~Child() { child_->parentIs(nullptr); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  const Ptr<T>& ptr() const { return child_; }

 private:
  Ptr<T> child_;
};

// A notifiee of an entity of type E that reports the id of every change it is told.
template <class E>
class Watcher : public E::NotifieeConst {
 public:
  explicit Watcher(std::function<void(int)> seen) : seen_(std::move(seen)) {}
  void onAnyAttribute(int attrId) override { seen_(attrId); }

 private:
  std::function<void(int)> seen_;
};

template <class E>
Ptr<ReactorBase> watcherOf(const Entity& e, std::function<void(int)> seen) {
  Ptr<Watcher<E>> w(new Watcher<E>(std::move(seen)));
  w->notifierIs(Ptr<const E>(static_cast<const E*>(&e)));
  w->isRegisteredNotifieeIs(true);
  return Ptr<ReactorBase>(w.ptr());
}

// The rule of a MAP: every pair of good key and value is taken.
template <class K, class V>
constexpr void anyEntry(const K&, const V&) {}

// The factory of a type that is mounted: builds it from its name.
template <class E>
Ptr<Entity> newByName(const TypeInfo::Args& args) {
  return Ptr<Entity>(new E(Name(args.at(0).second)));
}

}  // namespace Lum

// ---- The entity's declaration ----------------------------------------------------

#define LUM_ENTITY(C, Base, ATTRS)                                                    \
 public:                                                                              \
  using LumSelf = C;                                                                  \
  using LumBase = Base;                                                               \
  static constexpr const char* kTypeFullName = #C;                                    \
  enum : int { kLumFirstAttr = Base::kAttrEnd - 1, ATTRS(LUM_ATTR_ID) kAttrEnd };     \
  class NotifieeConst : public Lum::NotifieeBaseOf<Base, C>::type {                   \
   public:                                                                            \
    ATTRS(LUM_ATTR_ON)                                                                \
  };                                                                                  \
  using Notifiee = Lum::NotifieeMutable<NotifieeConst, C>;                            \
  ATTRS(LUM_ATTR_API)                                                                 \
  /* Out of line, as the key function: any use of the type links its registration. */ \
  const Lum::TypeInfo& fwkType() const override;                                      \
  static const Lum::TypeInfo& kType;                                                  \
                                                                                      \
 private:                                                                             \
  static Lum::TypeInfo lumTypeInfo();                                                 \
  ATTRS(LUM_ATTR_STORE)                                                               \
                                                                                      \
 public:

// Registers the type of class C (named as in its namespace) from its table. Further
// arguments continue the TypeInfo: `.constructor({"name"}, &Lum::newByName<C>)`.
#define LUM_ENTITY_TYPE(C, ATTRS, ...)                                                  \
  Lum::TypeInfo C::lumTypeInfo() {                                                      \
    return Lum::TypeInfo(kTypeFullName, LumBase::kTypeFullName)                         \
        .watcher(&Lum::watcherOf<LumSelf>) ATTRS(LUM_ATTR_REGISTER);                    \
  }                                                                                     \
  const Lum::TypeInfo& C::kType = Lum::TypeRegistry::add(C::lumTypeInfo() __VA_ARGS__); \
  const Lum::TypeInfo& C::fwkType() const {                                             \
    return kType;                                                                       \
  }

// A closed enumeration with its names, its text (the number) and the list of its
// values that the generic interface checks texts against (Lum::ClosedEnum):
//   #define INTF_OPER_STATUS_VALUES(X) X(intfOperUnknown, 0) X(intfOperUp, 1)
//   LUM_ENUM(IntfOperStatus, uint32_t, INTF_OPER_STATUS_VALUES)
#define LUM_ENUM(E, Underlying, VALUES)                    \
  enum class E : Underlying { VALUES(LUM_ENUM_ITEM) };     \
  constexpr auto lumEnumValues(E) {                        \
    using LumEnum = E;                                     \
    return std::array{VALUES(LUM_ENUM_ENTRY)};             \
  }                                                        \
  inline std::ostream& operator<<(std::ostream& os, E v) { \
    return os << static_cast<Underlying>(v);               \
  }
#define LUM_ENUM_ITEM(name, value) name = value,
#define LUM_ENUM_ENTRY(name, value) Lum::EnumValue<LumEnum>{LumEnum::name, #name},

// ---- One line of a table, expanded per use: the kind picks the expansion ----------

#define LUM_ATTR_ID(kind, X, ...) k##X,
#define LUM_ATTR_ON(kind, X, x, ...) LUM_ON_##kind(X, __VA_ARGS__)
#define LUM_ATTR_API(kind, X, x, ...) LUM_API_##kind(X, x, __VA_ARGS__)
#define LUM_ATTR_STORE(kind, X, x, ...) LUM_STORE_##kind(X, x, __VA_ARGS__)
#define LUM_ATTR_REGISTER(kind, X, x, ...) .attribute(#x, k##X, LUM_REG_##kind(x, __VA_ARGS__))

// Handlers.
#define LUM_ON_VALUE(X, ...)    \
  virtual void on##X() {        \
    this->onAnyAttribute(k##X); \
  }
#define LUM_ON_RO_VALUE LUM_ON_VALUE
#define LUM_ON_KEYED(X, K)             \
  virtual void on##X(Lum::KeyArg<K>) { \
    this->onAnyAttribute(k##X);        \
  }                                    \
  virtual void on##X() {               \
    this->onAnyAttribute(k##X);        \
  }
#define LUM_ON_MAP(X, K, ...) LUM_ON_KEYED(X, K)
#define LUM_ON_MAP_CHECKED LUM_ON_MAP
#define LUM_ON_SET LUM_ON_MAP
#define LUM_ON_COLLECTION LUM_ON_MAP
#define LUM_ON_CHILD(...)

// Accessors.
#define LUM_API_VALUE(X, x, T, init)              \
  const T& x() const {                            \
    return x##_;                                  \
  }                                               \
  void x##Is(const T& v) {                        \
    attrIs<&NotifieeConst::on##X>(x##_, v, k##X); \
  }
#define LUM_API_RO_VALUE LUM_API_VALUE
#define LUM_API_MAP(X, x, K, V) LUM_API_MAP_CHECKED(X, x, K, V, Lum::anyEntry)
#define LUM_API_MAP_CHECKED(X, x, K, V, rule)                                  \
  V x(const K& key) const {                                                    \
    return x##_(key);                                                          \
  }                                                                            \
  const Lum::ValueMap<K, V>& x() const {                                       \
    return x##_;                                                               \
  }                                                                            \
  void x##Is(const K& key, const V& v) {                                       \
    rule(key, v);                                                              \
    if (x##_.is(key, v)) notify<Lum::keyed(&NotifieeConst::on##X)>(k##X, key); \
  }                                                                            \
  LUM_API_MAP_COMMON(X, x, K)
#define LUM_API_SET(X, x, K)                                                      \
  bool x(const K& key) const {                                                    \
    return x##_.contains(key);                                                    \
  }                                                                               \
  const Lum::ValueMap<K, bool>& x() const {                                       \
    return x##_;                                                                  \
  }                                                                               \
  void x##Is(const K& key) {                                                      \
    if (x##_.is(key, true)) notify<Lum::keyed(&NotifieeConst::on##X)>(k##X, key); \
  }                                                                               \
  LUM_API_MAP_COMMON(X, x, K)
#define LUM_API_MAP_COMMON(X, x, K)                                              \
  void x##Del(const K& key) {                                                    \
    if (x##_.del(key)) notify<Lum::keyed(&NotifieeConst::on##X)>(k##X, key);     \
  }                                                                              \
  /* One whole-map notification, not one per key. */                             \
  void x##DelAll() {                                                             \
    if (!x##_.delAll().empty()) notify<Lum::whole(&NotifieeConst::on##X)>(k##X); \
  }                                                                              \
  size_t x##Size() const {                                                       \
    return x##_.size();                                                          \
  }
#define LUM_API_COLLECTION(X, x, K, E, param)                                \
  Lum::Ptr<E> x(const K& key) const {                                        \
    return x##_(key);                                                        \
  }                                                                          \
  Lum::Ptr<E> x##Is(const K& key) {                                          \
    return elementIs<Lum::keyed(&NotifieeConst::on##X)>(x##_, key, k##X);    \
  }                                                                          \
  void x##Del(const K& key) {                                                \
    if (x##_.del(key)) notify<Lum::keyed(&NotifieeConst::on##X)>(k##X, key); \
  }                                                                          \
  /* One whole-collection notification, not one per element. */              \
  void x##DelAll() {                                                         \
    if (x##_.empty()) return;                                                \
    x##_.delAll();                                                           \
    notify<Lum::whole(&NotifieeConst::on##X)>(k##X);                         \
  }                                                                          \
  auto x##Iterator() const {                                                 \
    return x##_.iterator();                                                  \
  }                                                                          \
  size_t x##Size() const {                                                   \
    return x##_.size();                                                      \
  }
#define LUM_API_CHILD(X, x, E)   \
  const Lum::Ptr<E>& x() const { \
    return x##_.ptr();           \
  }

// Storage.
#define LUM_STORE_VALUE(X, x, T, init) T x##_ = T init;
#define LUM_STORE_RO_VALUE LUM_STORE_VALUE
#define LUM_STORE_MAP(X, x, K, V, ...) Lum::ValueMap<K, V> x##_;
#define LUM_STORE_MAP_CHECKED LUM_STORE_MAP
#define LUM_STORE_SET(X, x, K) Lum::ValueMap<K, bool> x##_;
#define LUM_STORE_COLLECTION(X, x, K, E, param) \
  Lum::Collection<LumSelf, E, K, K> x##_{this, std::string(kTypeFullName) + "::" #x, {#param}};
#define LUM_STORE_CHILD(X, x, E) Lum::Child<E> x##_{this, #x, k##X};

// Registration, in the scope of the class (LumSelf).
#define LUM_REG_VALUE(x, T, init) Lum::textAttr<&LumSelf::x, &LumSelf::x##Is>()
#define LUM_REG_RO_VALUE(x, T, init) Lum::textAttr<&LumSelf::x>()
#define LUM_REG_MAP(x, K, V) \
  Lum::mapAttr<Lum::reader(&LumSelf::x), LUM_MAP_SETTER(x, K, V), LUM_MAP_DELETER(x, K)>()
#define LUM_REG_MAP_CHECKED(x, K, V, rule)                                               \
  Lum::mapAttr<Lum::reader(&LumSelf::x), LUM_MAP_SETTER(x, K, V), LUM_MAP_DELETER(x, K), \
               &LumSelf::rule>()
#define LUM_REG_SET(x, K)                \
  Lum::setAttr<Lum::reader(&LumSelf::x), \
               static_cast<void (LumSelf::*)(const K&)>(&LumSelf::x##Is), LUM_MAP_DELETER(x, K)>()
#define LUM_REG_COLLECTION(x, K, E, param)                                                    \
  Lum::collectionAttr<&LumSelf::x, &LumSelf::x##Is, &LumSelf::x##Del, &LumSelf::x##Iterator>( \
      std::string(kTypeFullName) + "::" #x, #param)
#define LUM_REG_CHILD(x, E) Lum::childAttr<&LumSelf::x>()
// The generated writers, picked from hand-written overloads of the same name.
#define LUM_MAP_SETTER(x, K, V) static_cast<void (LumSelf::*)(const K&, const V&)>(&LumSelf::x##Is)
#define LUM_MAP_DELETER(x, K) static_cast<void (LumSelf::*)(const K&)>(&LumSelf::x##Del)
