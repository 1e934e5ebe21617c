#include "platform/core/Ptr.h"

namespace Lum {

uint32_t PtrInterface::loadAtomic() const {
  return __atomic_load_n(&word_, __ATOMIC_ACQUIRE);
}

}  // namespace Lum
