// Lum::BoundedValue: an unsigned number that stays within fixed limits.
//
// The numeric value types of the platform (VlanId, Vni, VrId, ...) are each a thin
// class deriving from BoundedValue with itself as the first argument:
//
//   class VrId : public Lum::BoundedValue<VrId, uint16_t, 0, 256> {
//    public:
//     using BoundedValue::BoundedValue;
//     static constexpr std::string_view kTypeName = "VrId";
//     static constexpr std::string_view kRangeText = "VrId::value ... not allowed";
//   };
//   template <> struct std::hash<Routing::Fhrp::VrId> : Lum::BoundedValueHash<...> {};
//
// Guarantees:
//  - A value is always within [kMin, kMax]. Building one from any integer outside
//    that range throws Lum::RangeException with the type's kRangeText; the check is
//    made on the caller's integer before narrowing, so 65537 never becomes VLAN 1.
//  - Each type is distinct: the constructor is explicit and takes integers only, and
//    comparisons take two values of the same type, so a VLAN and a VNI never mix.
//  - A default value is kDefault (kMin unless the type says otherwise), so every type
//    can key the framework's maps.
//  - The text form is the decimal number; `fromString` reads it back, rejecting
//    anything but plain digits as malformed and an out-of-range number with kRangeText.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Lum {

// The integer types std::cmp_less accepts: character types and bool are excluded so
// that a char never passes as a number.
template <class T>
concept PlainInteger = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                       !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                       !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

template <class Derived, class Rep, Rep kMinV, Rep kMaxV, Rep kDefaultV = kMinV>
class BoundedValue {
  static_assert(std::is_unsigned_v<Rep>, "BoundedValue holds unsigned numbers");
  static_assert(kMinV <= kDefaultV && kDefaultV <= kMaxV, "default outside the limits");

 public:
  using ValueType = Rep;
  static constexpr Rep kMin = kMinV;
  static constexpr Rep kMax = kMaxV;
  static constexpr Rep kDefault = kDefaultV;

  constexpr BoundedValue() = default;
  template <PlainInteger I>
  explicit constexpr BoundedValue(I value) : value_(checked(value)) {}

  constexpr Rep value() const { return value_; }
  // Its text is the decimal number: JSON views show it as a number.
  static constexpr bool kTextIsNumber = true;

  template <PlainInteger I>
  static constexpr bool isValid(I value) {
    return !std::cmp_less(value, kMin) && !std::cmp_greater(value, kMax);
  }

  static Derived fromString(std::string_view text) {
    std::optional<uint64_t> n = parseDecimal(text);
    if (!n) throwMalformedText(Derived::kTypeName, text);
    return Derived(*n);
  }

  friend constexpr bool operator==(const Derived& a, const Derived& b) {
    return a.value() == b.value();
  }
  friend constexpr std::strong_ordering operator<=>(const Derived& a, const Derived& b) {
    return a.value() <=> b.value();
  }
  friend std::ostream& operator<<(std::ostream& os, const Derived& v) {
    return os << static_cast<uint64_t>(v.value());
  }

 private:
  template <PlainInteger I>
  static constexpr Rep checked(I value) {
    if (!isValid(value)) throwRangeException(Derived::kRangeText);
    return static_cast<Rep>(value);
  }

  Rep value_ = kDefaultV;
};

// Base of the std::hash specialization every BoundedValue type declares.
template <class T>
struct BoundedValueHash {
  size_t operator()(const T& v) const noexcept {
    return std::hash<typename T::ValueType>()(v.value());
  }
};

}  // namespace Lum
