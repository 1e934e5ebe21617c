#include "forwarding/TestMode.h"

#include <cstdlib>

namespace Vxlan {

const bool R2L_TEST = std::getenv("VXLAN_R2L_TEST") != nullptr;
const bool L2R_TEST = std::getenv("VXLAN_L2R_TEST") != nullptr;

}  // namespace Vxlan
