// Lum::Instance: an instantiating attribute, an object that its owner builds and owns.
//
// is(params...) compares the parameters with those the present object was built with:
// all equal returns the present object; otherwise the present one is deleted (del())
// and a new one is built, stored, and, for a reactor, its notifications are switched
// on. del() detaches the object and returns it; a reactor goes through its end of
// life on the way: zombie, doPrepareToDie(), notifications off.
#pragma once

#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/core/Reactor.h"

namespace Lum {

template <class T, class... Params>
class Instance : private NestedSlotBase {
 public:
  // `owner` is the reactor whose state changes reach the object, if any.
  explicit Instance(ReactorBase* owner = nullptr) : NestedSlotBase(owner), owner_(owner) {}
  ~Instance() { del(); }

  T* operator->() const { return obj_.ptr(); }
  T* get() const { return obj_.ptr(); }
  const Ptr<T>& ptr() const { return obj_; }
  explicit operator bool() const { return static_cast<bool>(obj_); }

  // A new object without storing it.
  static Ptr<T> newObject(const Params&... params) { return validPtr(Ptr<T>(new T(params...))); }

  const Ptr<T>& is(const Params&... params) {
    if (obj_ && params_ == std::tie(params...)) return obj_;
    del();
    Ptr<T> obj = newObject(params...);
    params_ = std::make_tuple(params...);
    obj_ = std::move(obj);
    if constexpr (std::is_base_of_v<ReactorBase, T>) {
      if (owner_) obj_->lumFwkActivityIs(owner_->lumFwkActivity());
      obj_->hasNotificationActiveIs(true);
    }
    return obj_;
  }

  Ptr<T> del() {
    Ptr<T> obj = std::move(obj_);
    params_ = {};
    if constexpr (std::is_base_of_v<ReactorBase, T>) {
      if (obj) {
        obj->lumDoZombieReactors(true);
        obj->doPrepareToDie();
        obj->hasNotificationActiveIs(false);
      }
    }
    return obj;
  }

 private:
  void lumForEachReactor(const std::function<void(ReactorBase&)>& fn) override {
    if constexpr (std::is_base_of_v<ReactorBase, T>) {
      if (obj_) fn(*obj_);
    }
  }

  ReactorBase* owner_;
  Ptr<T> obj_;
  std::tuple<Params...> params_;
};

}  // namespace Lum
