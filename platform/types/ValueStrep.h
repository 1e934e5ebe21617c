// The record text form of composite value types, which the generic interface reads
// and writes:
//
//   Value('<Namespace::Type>', ** {'<attr>': <value>, '<attr>': <value>})
//
// where a string value is quoted ('et1', with \\ \' and \xNN escapes) and a number is
// plain decimal. A type writes its form with valueToStrep of each field and reads it
// with a constructor from a position and an end that moves the position past what it
// read, built from the pieces below:
//
//   needString(pos, end, " Value");                 // blanks in a pattern: any run
//   Lum::String8 name = sequenceToValue<Lum::String8>(pos, end);
//   deserializeAttr(pos, end, "devname", devname_); // range faults name the attribute
//
// strepToValue reads a whole string and refuses text left behind the value. Every
// fault is a RangeException; nothing partly read is handed out.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>
#include <type_traits>

#include "platform/core/Exception.h"
#include "platform/core/String8.h"

namespace Lum {

using StrepPos = String8::IteratorConst;

// Consumes `pattern` at `pos`. A blank in the pattern matches any run of blanks (none
// too); every other character matches itself. Throws `expected "<pattern>" at
// "<the rest>"` and leaves `pos` where the mismatch was.
void needString(StrepPos& pos, StrepPos end, std::string_view pattern);

// A quoted string ('...' or "...") at `pos`.
String8 strepToString(StrepPos& pos, StrepPos end);
// An unsigned decimal number at `pos`, at most `max`.
uint64_t strepToUnsigned(StrepPos& pos, StrepPos end, uint64_t max);

// Reads one value of type T at `pos` and moves past it: a String8 or an unsigned
// number.
template <class T>
T sequenceToValue(StrepPos& pos, StrepPos end) {
  if constexpr (std::is_same_v<T, String8>) {
    return strepToString(pos, end);
  } else {
    static_assert(std::is_unsigned_v<T>, "a string or an unsigned number");
    return static_cast<T>(strepToUnsigned(pos, end, std::numeric_limits<T>::max()));
  }
}

// The range fault `e` met while reading attribute `attr`, thrown again naming it.
[[noreturn]] void rethrowFromDeserializeAttr(std::string_view attr, const RangeException& e);

// Reads the value of attribute `attr` into `into`.
template <class T>
void deserializeAttr(StrepPos& pos, StrepPos end, std::string_view attr, T& into) {
  try {
    into = sequenceToValue<T>(pos, end);
  } catch (const RangeException& e) {
    rethrowFromDeserializeAttr(attr, e);
  }
}

// The text forms of the fields: a string quoted, a number in decimal.
String8 valueToStrep(const String8& s);
String8 valueToStrep(uint64_t n);

[[noreturn]] void throwJunkAfterValue(const String8& text, StrepPos pos);

// Reads the whole of `text` into `into` through V's constructor from a position and an
// end; text left behind the value is refused: "junk at column <n> deserializing
// <text>", n counting from 0.
template <class V>
void strepToValue(const String8& text, V& into) {
  const std::string_view view = text.view();
  StrepPos pos = view.begin();
  V value(pos, view.end());
  if (pos != view.end()) throwJunkAfterValue(text, pos);
  into = value;
}

}  // namespace Lum
