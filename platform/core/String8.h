// Lum::String8 and Lum::Name: the framework's immutable strings.
//
// A String8 is a counted, immutable byte string: copies share one buffer, so handing
// names and attribute texts around costs a reference count, not an allocation.
// A Name is a String8 used as the name of an entity; it is a type of its own so that
// a name and a free text do not mix by accident.
#pragma once

#include <cstdarg>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

namespace Lum {

class String8 {
 public:
  // A position in the text, for parsers that read a value from a position and move it
  // on (Lum::needString and the value types' constructors from a position and an end).
  // Copies share the buffer, so positions from any copy of a string belong together.
  using IteratorConst = std::string_view::const_iterator;

  String8() = default;
  String8(const char* s) : String8(std::string_view(s)) {}         // NOLINT: implicit by design
  String8(std::string_view s);                                     // NOLINT
  String8(const std::string& s) : String8(std::string_view(s)) {}  // NOLINT

  const char* charPtr() const { return rep_ ? rep_->c_str() : ""; }
  std::string_view view() const { return rep_ ? std::string_view(*rep_) : std::string_view(); }
  std::string str() const { return std::string(view()); }
  size_t size() const { return rep_ ? rep_->size() : 0; }
  bool empty() const { return size() == 0; }

  String8 operator+(std::string_view rhs) const;
  String8& operator+=(std::string_view rhs);
  operator std::string_view() const { return view(); }  // NOLINT

  friend bool operator==(const String8& a, const String8& b) { return a.view() == b.view(); }
  friend auto operator<=>(const String8& a, const String8& b) { return a.view() <=> b.view(); }

 private:
  std::shared_ptr<const std::string> rep_;
};

std::ostream& operator<<(std::ostream& os, const String8& s);

class Name {
 public:
  Name() = default;
  Name(const char* s) : s_(s) {}         // NOLINT
  Name(std::string_view s) : s_(s) {}    // NOLINT
  Name(const std::string& s) : s_(s) {}  // NOLINT
  explicit Name(const String8& s) : s_(s) {}

  const char* charPtr() const { return s_.charPtr(); }
  std::string_view view() const { return s_.view(); }
  const String8& string() const { return s_; }
  bool empty() const { return s_.empty(); }

  friend bool operator==(const Name& a, const Name& b) = default;
  friend auto operator<=>(const Name& a, const Name& b) = default;

 private:
  String8 s_;
};

std::ostream& operator<<(std::ostream& os, const Name& n);

// printf-style formatting into a String8.
String8 format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
String8 vformat(const char* fmt, va_list args);

}  // namespace Lum

template <>
struct std::hash<Lum::String8> {
  size_t operator()(const Lum::String8& s) const noexcept {
    return std::hash<std::string_view>()(s.view());
  }
};

template <>
struct std::hash<Lum::Name> {
  size_t operator()(const Lum::Name& n) const noexcept {
    return std::hash<std::string_view>()(n.view());
  }
};
