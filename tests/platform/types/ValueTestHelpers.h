// Helpers shared by the value-type tests.
#pragma once

#include <string>

#include "platform/core/Exception.h"
#include "tests/support/Throws.h"

namespace ValueTest {

// The text of the RangeException `f` throws, or a marker when it throws none.
template <class F>
std::string rangeText(F f) {
  return TestSupport::thrownText<Lum::RangeException>(f);
}

template <class A, class B>
concept EqualityMixes = requires(A a, B b) {
  a == b;
};

}  // namespace ValueTest
