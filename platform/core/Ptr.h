// Reference counting for every object with identity.
//
// Usage: derive from Lum::VFPtrInterface, allocate with new, and hold through
// Lum::Ptr<T> (or Lum::Ptr<const T> for state that is only read). The count lives in
// the object, so a Ptr can be rebuilt from a raw pointer at any time.
//
// The count word (atomic operations are the compiler's builtins on the plain word, so
// that one object can be counted either way): the low 30 bits are the count; bit 31 is "marked for
// deletion", so a negative word means that the object is dying; bit 30 is "notification active".
// Counting is plain unless the process-wide switch VFPtrInterface::enableThreadSafePointersIs(true)
// is set; then every change to the word is atomic. The agent is single-threaded and leaves it off.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "platform/core/Exception.h"

namespace Lum {

class PtrInterface {
 public:
  static constexpr uint32_t kMarkedForDeletion = 0x80000000u;
  static constexpr uint32_t kNotificationActive = 0x40000000u;
  static constexpr uint32_t kCountMask = 0x3fffffffu;

  uint32_t references() const { return load() & kCountMask; }
  bool lumMarkedForDeletion() const { return static_cast<int32_t>(load()) < 0; }
  void lumMarkedForDeletionIs(bool v) const { flagIs(kMarkedForDeletion, v); }
  bool notificationActive() const { return (load() & kNotificationActive) != 0; }

  void newRef() const;
  // Drops one reference and calls handleZeroRef() when it was the last.
  void deleteRef() const;

 protected:
  PtrInterface() = default;
  // A copy is a new object: it starts with no references and no flags.
  PtrInterface(const PtrInterface&) : word_(0) {}
  PtrInterface& operator=(const PtrInterface&) { return *this; }
  virtual ~PtrInterface() = default;

  virtual void handleZeroRef() const = 0;
  void notificationActiveIs(bool v) const { flagIs(kNotificationActive, v); }

 private:
  uint32_t load() const;
  // Out of line: inlined, g++ 12 misreads the atomic load of a mutable member as an
  // overflow (-Wstringop-overflow).
  uint32_t loadAtomic() const;
  void flagIs(uint32_t flag, bool v) const;

  mutable uint32_t word_ = 0;
};

// The base of every framework object: frees itself when the last reference goes.
class VFPtrInterface : public PtrInterface {
 public:
  static bool enableThreadSafePointers() { return threadSafe_; }
  static void enableThreadSafePointersIs(bool v) { threadSafe_ = v; }

 protected:
  void handleZeroRef() const override { delete this; }

 private:
  static inline bool threadSafe_ = false;
};

inline uint32_t PtrInterface::load() const {
  return VFPtrInterface::enableThreadSafePointers() ? loadAtomic() : word_;
}

inline void PtrInterface::newRef() const {
  if (VFPtrInterface::enableThreadSafePointers()) {
    __atomic_fetch_add(&word_, 1u, __ATOMIC_RELAXED);
  } else {
    ++word_;
  }
}

inline void PtrInterface::deleteRef() const {
  uint32_t before;
  if (VFPtrInterface::enableThreadSafePointers()) {
    before = __atomic_fetch_sub(&word_, 1u, __ATOMIC_ACQ_REL);
  } else {
    before = word_--;
  }
  if ((before & kCountMask) == 1) handleZeroRef();
}

inline void PtrInterface::flagIs(uint32_t flag, bool v) const {
  if (VFPtrInterface::enableThreadSafePointers()) {
    if (v) {
      __atomic_fetch_or(&word_, flag, __ATOMIC_ACQ_REL);
    } else {
      __atomic_fetch_and(&word_, ~flag, __ATOMIC_ACQ_REL);
    }
  } else {
    word_ = v ? (word_ | flag) : (word_ & ~flag);
  }
}

// Counted reference. Ptr<const T> is the const variant.
template <class T>
class Ptr {
 public:
  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}  // NOLINT
  Ptr(T* p) : p_(p) {              // NOLINT: intrusive counts make this safe
    if (p_) p_->newRef();
  }
  Ptr(const Ptr& o) : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& o) : Ptr(o.ptr()) {}  // NOLINT
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}  // NOLINT
  ~Ptr() {
    if (p_) p_->deleteRef();
  }

  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* ptr() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }

  // Gives up the reference without dropping it; the caller owns it.
  T* release() { return std::exchange(p_, nullptr); }

  template <class U>
  bool operator==(const Ptr<U>& o) const {
    return p_ == o.ptr();
  }
  bool operator==(std::nullptr_t) const { return p_ == nullptr; }
  bool operator==(const T* o) const { return p_ == o; }

 private:
  T* p_ = nullptr;
};

// Run-time type cast of a reference; an empty result when the object is not a T.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.ptr()));
}

// For factories and mutators whose result must not be empty.
template <class T>
const Ptr<T>& validPtr(const Ptr<T>& p) {
  if (!p) throwRangeException("null ValidPtr");
  return p;
}

// Holds a reference for the length of a call on an object, so that a reaction that
// drops the last outside reference (deletes its own state machine, say) frees it
// only when the call returns. An object whose count is still zero is being built by
// its creator, which takes the first reference when the constructor returns: it is
// not touched.
class KeepAlive {
 public:
  explicit KeepAlive(const PtrInterface* p) : p_(p && p->references() > 0 ? p : nullptr) {
    if (p_) p_->newRef();
  }
  ~KeepAlive() {
    if (p_) p_->deleteRef();
  }
  KeepAlive(const KeepAlive&) = delete;
  KeepAlive& operator=(const KeepAlive&) = delete;

 private:
  const PtrInterface* p_;
};

}  // namespace Lum

template <class T>
struct std::hash<Lum::Ptr<T>> {
  size_t operator()(const Lum::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.ptr()); }
};
