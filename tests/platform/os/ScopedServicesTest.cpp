// The services that tests replace: system calls and time.
#include <gtest/gtest.h>

#include "platform/os/SysCalls.h"
#include "platform/os/TimeSource.h"

namespace Lum {
namespace {

// Guards against nested guards not restoring the service that was current before them,
// which would leave later code on a fake that is gone (the time source's guard is
// written the same way), and against a default time source that is not monotonic. (That a fake's
// failures reach the code, that the calls it does not override reach the kernel and that the real
// service takes errno at the call is what every fake-based test relies on: the failure paths of the
// shared-memory table, the local-to-remote sockets and the kernel watcher, and the frame loops that
// end on EAGAIN.)
TEST(ScopedServicesTest, NestedGuardsRestoreTheServiceBeforeThem) {
  SysCalls* const real = &sysCalls();
  SysCalls outer, inner;
  {
    ScopedSysCalls outerGuard(outer);
    {
      ScopedSysCalls innerGuard(inner);
      EXPECT_EQ(&sysCalls(), &inner);
    }
    EXPECT_EQ(&sysCalls(), &outer);
  }
  EXPECT_EQ(&sysCalls(), real);

  EXPECT_NE(dynamic_cast<MonotonicTimeSource*>(&timeSource()), nullptr);
}

}  // namespace
}  // namespace Lum
