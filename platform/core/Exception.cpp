#include "platform/core/Exception.h"

#include <cstring>

namespace Lum {

namespace {
// Innermost Expect scope of this thread; the chain runs through `outer_`.
thread_local Expect* innermostExpect = nullptr;
}  // namespace

Exception::Exception(std::string text, ExceptionId id)
    : text_(std::move(text)), id_(id), expected_(Expect::isExpected(id)) {}

ErrnoException::ErrnoException(int err, std::string_view step)
    : Exception(
          std::string(step) + ": " + std::strerror(err) + " (errno " + std::to_string(err) + ")",
          ExceptionId::errnoFailure),
      errno_(err),
      step_(step) {}

void throwRangeException(std::string_view text) {
  throw RangeException(std::string(text));
}

void throwNameInUseException(std::string_view name) {
  throw NameInUseException("name in use: " + std::string(name));
}

Expect::Expect(ExceptionId id) : id_(id), outer_(innermostExpect) {
  innermostExpect = this;
}

Expect::~Expect() {
  innermostExpect = outer_;
}

bool Expect::isExpected(ExceptionId id) {
  for (const Expect* e = innermostExpect; e != nullptr; e = e->outer_) {
    if (e->id_ == id) return true;
  }
  return false;
}

}  // namespace Lum
