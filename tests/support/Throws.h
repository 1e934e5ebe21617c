// What a call throws, for tests that check an exception's text or its fields in one
// line instead of a try block around the call.
#pragma once

#include <optional>
#include <string>

namespace TestSupport {

// The exception of type E that `f` throws, or nothing when it returns; an exception
// of another type passes through and fails the test.
template <class E, class F>
std::optional<E> thrown(F&& f) {
  try {
    f();
  } catch (const E& e) {
    return e;
  }
  return std::nullopt;
}

// The text of the E that `f` throws, or a marker when it throws none.
template <class E, class F>
std::string thrownText(F&& f) {
  const std::optional<E> e = thrown<E>(f);
  return e ? std::string(e->what()) : "<no exception>";
}

}  // namespace TestSupport
