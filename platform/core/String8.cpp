#include "platform/core/String8.h"

#include <cstdio>
#include <ostream>

namespace Lum {

String8::String8(std::string_view s) {
  if (!s.empty()) rep_ = std::make_shared<const std::string>(s);
}

String8 String8::operator+(std::string_view rhs) const {
  std::string joined(view());
  joined.append(rhs);
  return String8(joined);
}

String8& String8::operator+=(std::string_view rhs) {
  return *this = *this + rhs;
}

std::ostream& operator<<(std::ostream& os, const String8& s) {
  return os << s.view();
}

std::ostream& operator<<(std::ostream& os, const Name& n) {
  return os << n.view();
}

String8 vformat(const char* fmt, va_list args) {
  va_list again;
  va_copy(again, args);
  char small[256];
  int n = std::vsnprintf(small, sizeof small, fmt, args);
  if (n < 0) {
    va_end(again);
    return String8();
  }
  if (static_cast<size_t>(n) < sizeof small) {
    va_end(again);
    return String8(std::string_view(small, static_cast<size_t>(n)));
  }
  std::string big(static_cast<size_t>(n), '\0');
  std::vsnprintf(big.data(), big.size() + 1, fmt, again);
  va_end(again);
  return String8(big);
}

String8 format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  String8 s = vformat(fmt, args);
  va_end(args);
  return s;
}

}  // namespace Lum
