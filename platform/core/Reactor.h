// Reactors: the objects that react to changes of entities.
//
// Every state machine, and every nested reactor `LumX` inside one, is a ReactorBase.
// What the framework does for all of them lives here, once:
//
//  - Change. An entity calls lumNotify() on each registered notifiee. If the reactor
//    runs in an activity the change is queued (lumOnAttribute() returns true) and
//    handled later by handleNotification(); otherwise, unless the reactor is marked
//    for deletion (a zombie), the handler runs at once.
//  - New notifier. NotifieeConst<E>::notifierIs() treats a real change of notifier as
//    a change of everything: it calls onNotifier(), the reactor's catch-up.
//  - Queued notification. handleNotification() runs the handler of each pending
//    attribute, or the catch-up for "all attributes" (id kAllAttributes).
//  - hasNotificationActiveIs(), lumDoZombieReactors(), lumFwkActivityIs(): stored here
//    and passed on to the nested reactors and collections that the reactor declares
//    as members (see Nested and Collection).
//
// Invariants: a zombie never reacts; the last change of an attribute is never lost
// (queued changes collapse per attribute, keyed changes collapse to a catch-up).
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

#include "platform/core/Ptr.h"

namespace Lum {

class ReactorBase;
class Entity;

// Counts the changes of shared state in the process: every change an entity delivers,
// every entity made or destroyed, every reactor given another entity. What is worked
// out from entities may be kept for as long as the count stays where it was (a frame
// path asking the same question of the same state for every frame).
namespace detail {
extern uint64_t stateChanges;  // one for the process, in the platform's library
}  // namespace detail
inline uint64_t stateChanges() {
  return detail::stateChanges;
}
inline void stateChanged() {
  ++detail::stateChanges;
}

// Where a reactor's reactions run when they are not run at once. The event-loop
// implementation is in ActivityManager.
class ActivityConfig : public VFPtrInterface {
 public:
  // Asks for reactor->handleNotification() to run later, on the loop.
  virtual void lumSchedule(const Ptr<ReactorBase>& reactor) = 0;
};

// A member of a reactor that holds further reactors (a nested reactor or a
// collection of state machines). It registers itself with its owner on construction
// so that the owner's state changes reach what it holds.
class NestedSlotBase {
 public:
  virtual void lumForEachReactor(const std::function<void(ReactorBase&)>& fn) = 0;

 protected:
  explicit NestedSlotBase(ReactorBase* owner);
  ~NestedSlotBase();
  NestedSlotBase(const NestedSlotBase&) = delete;
  NestedSlotBase& operator=(const NestedSlotBase&) = delete;

 private:
  ReactorBase* owner_;
};

class ReactorBase : public VFPtrInterface {
 public:
  // Attribute id that stands for all attributes of the notifier.
  static constexpr int kAllAttributes = -1;
  using Thunk = void (*)(ReactorBase&);

  bool hasNotificationActive() const { return notificationActive(); }
  void hasNotificationActiveIs(bool v);
  void lumDoZombieReactors(bool zombie);
  const Ptr<ActivityConfig>& lumFwkActivity() const { return activity_; }
  void lumFwkActivityIs(const Ptr<ActivityConfig>& activity);

  // Queues a change of `attrId` when the reactor runs in an activity; `thunk` runs
  // its handler later (nullptr: the catch-up). Returns true when queued.
  bool lumOnAttribute(int attrId, Thunk thunk);
  void handleNotification();

  // The generated dispatch of one change: queue, or drop for a zombie, or run `call`.
  template <class F>
  void lumNotify(int attrId, Thunk thunk, F&& call) {
    if (lumOnAttribute(attrId, thunk)) return;
    if (lumMarkedForDeletion()) return;
    KeepAlive alive(this);
    call();
  }

  // Hand-written counterpart of handleInitialized(): gives back what it took. Runs
  // once at deletion, when the reactor is already a zombie.
  virtual void doPrepareToDie() {}

 protected:
  ReactorBase() = default;
  ~ReactorBase() override = default;
  ReactorBase(const ReactorBase&) = delete;
  ReactorBase& operator=(const ReactorBase&) = delete;

  // The catch-up: runs the handlers of everything the reactor watches. Called for a
  // new notifier and for a queued "all attributes" change.
  virtual void onNotifier() {}

 private:
  friend class NestedSlotBase;
  struct Pending {
    int attrId;
    Thunk thunk;
  };
  void forEachNested(const std::function<void(ReactorBase&)>& fn);

  Ptr<ActivityConfig> activity_;
  std::vector<Pending> pending_;
  bool scheduled_ = false;
  std::vector<NestedSlotBase*> nested_;
};

template <auto Fn>
struct MemberOf;
template <class C, class R, class... A, R (C::*Fn)(A...)>
struct MemberOf<Fn> {
  using Class = C;
};

// Pick one form of an overloaded handler pair `onX()` / `onX(key)` for notify<>():
// notify<Lum::keyed(&NotifieeConst::onX)>(id, key).
template <class N, class K>
constexpr auto keyed(void (N::*f)(K)) {
  return f;
}
template <class N>
constexpr auto whole(void (N::*f)()) {
  return f;
}

// Runs the handler `Fn` of a notifiee class on a reactor known to be one.
template <auto Fn>
void lumThunk(ReactorBase& r) {
  (static_cast<typename MemberOf<Fn>::Class&>(r).*Fn)();
}

// The notifiee side of an entity type E. E::NotifieeConst derives from
// NotifieeConst<E> and declares one virtual `onX()` per attribute (and `onX(key)` for
// collections); every notifiee registered with an E is an E::NotifieeConst.
template <class E>
class NotifieeConst : public ReactorBase {
 public:
  using Notifier = E;

  const Ptr<const E>& notifier() const { return notifier_; }
  // A real change of notifier counts as a change of everything watched.
  void notifierIs(const Ptr<const E>& n) {
    if (n == notifier_) return;
    stateChanged();
    setNotifier(n);
    if (notifier_ && !lumMarkedForDeletion()) onNotifier();
  }
  bool isRegisteredNotifiee() const { return registered_; }
  void isRegisteredNotifieeIs(bool v) {
    if (v == registered_) return;
    registered_ = v;
    if (!notifier_) return;
    if (v) {
      notifier_->lumNotifieeAdd(this);
    } else {
      notifier_->lumNotifieeDel(this);
    }
  }
  virtual void onIsNondestructing() {}
  // Where the handlers that the attribute tables generate (platform/core/Attributes.h)
  // end when they are not overridden: a reactor that watches every attribute of an
  // entity, whatever its type, overrides this one instead (Lum::Watcher).
  virtual void onAnyAttribute(int attrId) { (void)attrId; }

 protected:
  ~NotifieeConst() override {
    if (registered_ && notifier_) notifier_->lumNotifieeDel(this);
  }

 private:
  void setNotifier(const Ptr<const E>& n) {
    if (registered_ && notifier_) notifier_->lumNotifieeDel(this);
    notifier_ = n;
    if (registered_ && notifier_) notifier_->lumNotifieeAdd(this);
  }

  Ptr<const E> notifier_;
  bool registered_ = false;
};

// The notifiee of an entity type E derived from another entity type: it reacts to the
// base's attributes too, and its notifier is an E.
template <class Base, class E>
class NotifieeConstOf : public Base {
 public:
  using Notifier = E;
  Ptr<const E> notifier() const {
    return Ptr<const E>(static_cast<const E*>(Base::notifier().ptr()));
  }
  void notifierIs(const Ptr<const E>& n) { Base::notifierIs(n); }
};

// E::Notifiee: the same reactions, with write access to the notifier.
template <class Base, class E>
class NotifieeMutable : public Base {
 public:
  Ptr<E> notifier() const {
    return Ptr<E>(const_cast<E*>(static_cast<const E*>(Base::notifier().ptr())));
  }
  void notifierIs(const Ptr<E>& n) { Base::notifierIs(n); }
};

// A nested reactor `LumX` of a state machine S: a reactor on one further entity, with
// a plain pointer back to S that is cleared when the reactor is deleted.
template <class S, class Base>
class NestedReactor : public Base {
 public:
  using Owner = S;
  S* s() const { return s_; }
  void sIs(S* s) { s_ = s; }

 private:
  S* s_ = nullptr;
};

// The instantiating attribute that holds a nested reactor R (a NestedReactor). `is`
// builds the reactor around a notifier, or hands an existing one the new notifier,
// which it treats as a change; `del` turns it into a zombie, runs its
// doPrepareToDie(), clears its back pointer and switches its notifications off.
template <class R>
class Nested : private NestedSlotBase {
 public:
  using NotifierPtr = decltype(std::declval<R&>().notifier());
  using Owner = typename R::Owner;

  explicit Nested(Owner* owner) : NestedSlotBase(owner), owner_(owner) {}
  ~Nested() { del(); }

  R* operator->() const { return r_.ptr(); }
  R* get() const { return r_.ptr(); }
  const Ptr<R>& ptr() const { return r_; }
  explicit operator bool() const { return static_cast<bool>(r_); }

  // An empty notifier builds nothing; it empties an existing reactor's notifier.
  template <class N>
  const Ptr<R>& is(const N& notifier) {
    if (r_) {
      r_->notifierIs(notifier);
      return r_;
    }
    if (!notifier) return r_;
    // Stored before it is attached: the catch-up of the new reactor runs handlers of
    // the owner, which reach the reactor through this attribute.
    r_ = new R();
    r_->sIs(owner_);
    const ReactorBase& o = *owner_;
    r_->lumFwkActivityIs(o.lumFwkActivity());
    r_->notifierIs(notifier);
    r_->isRegisteredNotifieeIs(true);
    r_->hasNotificationActiveIs(true);
    return r_;
  }

  Ptr<R> del() {
    Ptr<R> r = std::move(r_);
    if (!r) return r;
    r->lumDoZombieReactors(true);
    r->doPrepareToDie();
    r->isRegisteredNotifieeIs(false);
    r->sIs(nullptr);
    r->hasNotificationActiveIs(false);
    return r;
  }

 private:
  void lumForEachReactor(const std::function<void(ReactorBase&)>& fn) override {
    if (r_) fn(*r_);
  }

  Owner* owner_;
  Ptr<R> r_;
};

}  // namespace Lum
