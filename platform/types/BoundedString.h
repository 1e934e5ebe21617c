// Lum::BoundedString: a Lum::String8 of at most kMaxBytes bytes.
//
// The name types of the platform (VrfName, NamespaceName) are each a thin class
// deriving from BoundedString with itself as the first argument and a kRangeText.
// Building one from a longer text throws Lum::RangeException with that text. Any
// bytes are accepted otherwise, so `fromString` only ever fails on length. The
// default value is the empty name. Copies share the String8 buffer.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/core/Exception.h"
#include "platform/core/String8.h"

namespace Lum {

template <class Derived, size_t kMaxBytesV>
class BoundedString {
 public:
  static constexpr size_t kMaxBytes = kMaxBytesV;

  BoundedString() = default;
  explicit BoundedString(std::string_view text) : value_(checked(text)) {}
  explicit BoundedString(const char* text) : BoundedString(std::string_view(text)) {}
  explicit BoundedString(const std::string& text) : BoundedString(std::string_view(text)) {}
  // Shares the caller's buffer instead of copying it.
  explicit BoundedString(const String8& text) : value_(text) { checked(text.view()); }

  const String8& value() const { return value_; }
  std::string_view view() const { return value_.view(); }
  const char* charPtr() const { return value_.charPtr(); }
  size_t size() const { return value_.size(); }
  bool empty() const { return value_.empty(); }

  static Derived fromString(std::string_view text) { return Derived(text); }

  friend bool operator==(const Derived& a, const Derived& b) { return a.view() == b.view(); }
  friend std::strong_ordering operator<=>(const Derived& a, const Derived& b) {
    return a.view() <=> b.view();
  }
  friend std::ostream& operator<<(std::ostream& os, const Derived& s) { return os << s.view(); }

 private:
  static std::string_view checked(std::string_view text) {
    if (text.size() > kMaxBytes) throwRangeException(Derived::kRangeText);
    return text;
  }

  String8 value_;
};

template <class T>
struct BoundedStringHash {
  size_t operator()(const T& s) const noexcept { return std::hash<std::string_view>()(s.view()); }
};

}  // namespace Lum
