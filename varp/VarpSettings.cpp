#include "varp/VarpSettings.h"

#include <cstdlib>

namespace Vxlan {

namespace {

std::optional<long> decimalFromEnv(const char* name) {
  const char* text = std::getenv(name);
  if (!text || !*text) return std::nullopt;
  char* end = nullptr;
  const long v = std::strtol(text, &end, 10);
  if (*end != '\0') return std::nullopt;
  return v;
}

}  // namespace

const std::optional<long> PENDING_LIST_TIMELEFT = decimalFromEnv("PENDING_LIST_TIMELEFT");
const bool VXLAN_ARP_TEST = std::getenv("VXLAN_ARP_TEST") != nullptr;

}  // namespace Vxlan
