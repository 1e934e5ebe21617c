// Helpers shared by the status entity tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/core/Entity.h"

namespace StatusTest {

// Builds a mounted entity type the way the state database does, by its registered
// full name, and checks that the name leads to T's own type. Naming T::kType also
// keeps T's registration linked into the test binary.
template <class T>
Lum::Ptr<T> mounted(const char* fullName) {
  const Lum::TypeInfo* t = Lum::TypeRegistry::type(fullName);
  EXPECT_EQ(t, &T::kType) << fullName;
  if (!t) return nullptr;
  Lum::Ptr<T> e = Lum::ptrCast<T>(t->construct({{"name", "mnt"}}));
  EXPECT_TRUE(e) << fullName << " builds another type";
  if (e) {
    EXPECT_EQ(&e->fwkType(), &T::kType) << fullName;
  }
  return e;
}

// Registers `w` as a notifiee of `e`.
template <class W, class E>
Lum::Ptr<W> watching(const Lum::Ptr<E>& e) {
  Lum::Ptr<W> w(new W);
  w->notifierIs(e);
  w->isRegisteredNotifieeIs(true);
  return w;
}

}  // namespace StatusTest
