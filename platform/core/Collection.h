// Lum::Collection: a collection attribute of reference-counted elements keyed by value
// (a state machine per tunnel interface, a map entity per VTI, and so on).
//
// Declaration, in the owner:
//
//   Lum::Collection<Owner, LumVtiStatusSm, Wire::IntfId, Lum::Ptr<const VtiStatus>>
//       vtiStatusSm_{this, "Vxlan::Remote2LocalForwarderSm::vtiStatusSm", {"vtiStatus"}};
//
// The first constructor parameter of an element gives its key (Elem::lumKeyOf(params)
// when the element declares it, else the parameter itself). An element is built by
// Elem::lumNewElement(params...) when the element type declares it (a type whose
// elements are of a derived type for some keys), else as Elem(params..., owner) when
// it has such a constructor, else as Elem(params...).
//
// is(params...):
//  1. an empty first parameter is a range exception:
//     null _<param> parameter to mutator for <attribute> not allowed"
//  2. an element with the same first parameter is returned as it is;
//  3. an element around another notifier is given the new one (notifierIs(), a
//     change to its reactions); a change of any other constructor parameter is a
//     range exception: Reinstantiating the pointer interface where constructor
//     parameter attribute _<param> has a different value of <new value>
//  4. else the element is built, entered, given its parent, and a reactor has its
//     notifications switched on.
//
// del(key), in this order: remove from the map; a reactor becomes a zombie; its
// doPrepareToDie() runs; the back pointer is cleared; notifications go off; the
// element is returned and freed with the last reference.
//
// Iteration is in key order and stable between changes. An Iterator holds a reference
// to the element under it, so deleting that element (or any other) while walking is
// safe: the walk goes on from the next key.
#pragma once

#include <array>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/core/Entity.h"
#include "platform/core/Reactor.h"

namespace Lum {

template <class Owner, class Elem, class Key, class First, class... Rest>
class Collection : private NestedSlotBase {
  static constexpr size_t kParams = 1 + sizeof...(Rest);
  // An element with the constructor parameters it was built with.
  struct Slot {
    Ptr<Elem> elem;
    First first;
    std::tuple<Rest...> rest;
  };
  using Map = std::map<Key, Slot>;

 public:
  class Iterator {
   public:
    Iterator() = default;
    Elem* operator->() const { return elem_.ptr(); }
    Elem& operator*() const { return *elem_; }
    const Ptr<Elem>& ptr() const { return elem_; }
    const Key& key() const { return key_; }
    explicit operator bool() const { return static_cast<bool>(elem_); }
    // True while the iterator stands on an element whose key is not the default.
    bool hasBookmark() const { return elem_ && !(key_ == Key{}); }
    Iterator& operator++() {
      auto it = c_->map_.upper_bound(key_);
      seat(it);
      return *this;
    }

   private:
    friend class Collection;
    Iterator(const Collection* c, typename Map::const_iterator it) : c_(c) { seat(it); }
    void seat(typename Map::const_iterator it) {
      if (it == c_->map_.end()) {
        elem_ = nullptr;
        key_ = Key{};
      } else {
        key_ = it->first;
        elem_ = it->second.elem;
      }
    }

    const Collection* c_ = nullptr;
    Key key_{};
    Ptr<Elem> elem_;
  };

  Collection(Owner* owner, std::string qualifiedName, std::array<const char*, kParams> paramNames)
      : NestedSlotBase(reactorOf(owner)),
        owner_(owner),
        qualifiedName_(std::move(qualifiedName)),
        paramNames_(paramNames) {}
  ~Collection() { delAll(); }

  Ptr<Elem> operator()(const Key& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? Ptr<Elem>() : it->second.elem;
  }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  Iterator iterator() const { return Iterator(this, map_.begin()); }
  Iterator iterator(const Key& from) const { return Iterator(this, map_.lower_bound(from)); }

  const Ptr<Elem>& is(const First& first, const Rest&... rest) {
    checkParam(first, paramNames_[0], qualifiedName_);
    const Key key = keyOf(first, rest...);
    auto it = map_.find(key);
    if (it != map_.end()) {
      Slot& slot = it->second;
      checkUnchanged(slot.rest, std::tie(rest...), std::index_sequence_for<Rest...>{});
      if (!(slot.first == first)) {
        slot.first = first;
        if constexpr (requires(Elem & e) { e.notifierIs(first); }) slot.elem->notifierIs(first);
      }
      return slot.elem;
    }
    Ptr<Elem> elem = build(first, rest...);
    auto [pos, inserted] = map_.emplace(key, Slot{elem, first, std::make_tuple(rest...)});
    if constexpr (std::is_base_of_v<Entity, Elem> && std::is_base_of_v<Entity, Owner>) {
      elem->parentIs(owner_);
    }
    if constexpr (std::is_base_of_v<ReactorBase, Elem>) elem->hasNotificationActiveIs(true);
    return pos->second.elem;
  }

  Ptr<Elem> del(const Key& key) {
    auto it = map_.find(key);
    if (it == map_.end()) return nullptr;
    Ptr<Elem> elem = std::move(it->second.elem);
    map_.erase(it);
    if constexpr (std::is_base_of_v<ReactorBase, Elem>) {
      elem->lumDoZombieReactors(true);
      elem->doPrepareToDie();
    }
    if constexpr (requires(Elem & e) { e.parentIs(nullptr); }) elem->parentIs(nullptr);
    if constexpr (std::is_base_of_v<ReactorBase, Elem>) elem->hasNotificationActiveIs(false);
    return elem;
  }
  Ptr<Elem> del(const Iterator& it) { return del(it.key()); }
  void delAll() {
    while (!map_.empty()) del(map_.begin()->first);
  }

 private:
  static ReactorBase* reactorOf(Owner* owner) {
    if constexpr (std::is_base_of_v<ReactorBase, Owner>) {
      return owner;
    } else {
      return nullptr;
    }
  }

  static Key keyOf(const First& first, const Rest&... rest) {
    if constexpr (requires { Elem::lumKeyOf(first, rest...); }) {
      return Elem::lumKeyOf(first, rest...);
    } else {
      return Key(first);
    }
  }

  Ptr<Elem> build(const First& first, const Rest&... rest) {
    Ptr<Elem> elem;
    if constexpr (requires { Elem::lumNewElement(first, rest...); }) {
      elem = Elem::lumNewElement(first, rest...);
    } else if constexpr (std::is_constructible_v<Elem, const First&, const Rest&..., Owner*>) {
      elem = new Elem(first, rest..., owner_);
    } else {
      elem = new Elem(first, rest...);
    }
    if constexpr (std::is_base_of_v<ReactorBase, Elem> && std::is_base_of_v<ReactorBase, Owner>) {
      const ReactorBase& o = *owner_;
      elem->lumFwkActivityIs(o.lumFwkActivity());
    }
    return validPtr(elem);
  }

  template <class Stored, class Given, size_t... I>
  void checkUnchanged(const Stored& stored, const Given& given, std::index_sequence<I...>) {
    (checkOne(std::get<I>(stored), std::get<I>(given), paramNames_[I + 1]), ...);
  }
  template <class T>
  void checkOne(const T& stored, const T& given, const char* name) {
    if (stored == given) return;
    std::ostringstream text;
    if constexpr (requires { given.ptr(); }) {
      text << static_cast<const void*>(given.ptr());
    } else {
      text << given;
    }
    throwRangeException(
        "Reinstantiating the pointer interface where constructor parameter attribute _" +
        std::string(name) + " has a different value of " + text.str());
  }

  void lumForEachReactor(const std::function<void(ReactorBase&)>& fn) override {
    if constexpr (std::is_base_of_v<ReactorBase, Elem>) {
      for (auto it = iterator(); it; ++it) fn(*it);
    }
  }

  Owner* owner_;
  std::string qualifiedName_;
  std::array<const char*, kParams> paramNames_;
  Map map_;
};

}  // namespace Lum
