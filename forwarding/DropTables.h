// The drop tables of both forwarding directions: for each reason a frame goes no
// further, the counter it moves, the level and words of its trace line and the name
// the packet trace gives it. The frame loops count and trace from these rows and the
// packet trace (PacketTrace.h) names its verdict from them, so the counter a trace
// names is the one the loop moves for the same frame.
#pragma once

#include <cstdint>
#include <string_view>

#include "agent/VxlanCounterId.h"
#include "forwarding/L2RFramePath.h"
#include "forwarding/R2LFramePath.h"

namespace Vxlan {

// A drop table is indexed by its reason: each row must stand at its reason's place.
template <class Row, size_t N>
constexpr bool rowsInOrder(const Row (&rows)[N]) {
  for (size_t i = 0; i < N; ++i) {
    if (static_cast<size_t>(rows[i].why) != i) return false;
  }
  return true;
}

namespace R2L {

// What a drop's trace line adds behind its words.
enum class DropDetail : uint8_t { none, lengthLimit, flags, vni, error };

struct DropRow {
  Drop why;
  const char* name;        // the reason as the packet trace names it
  VxlanCounterId counter;  // +1 per drop
  bool countBytes;         // r2lFilteredBytes gets the frame's length as well
  int level;
  // The words are the operators' vocabulary: their filters and scripts look for them,
  // so they stay as they stand, "too short" for both length limits included.
  std::string_view words;  // measured at compile time: the frame loops record it per drop
  DropDetail detail;
};

using Id = VxlanCounterId;
using D = DropDetail;
// clang-format off
inline constexpr DropRow kDropRows[kDropReasons] = {
    {Drop::none,        "none",        Id::r2lSocketErrors,   false, 0, "",                        D::none},
    {Drop::tooShort,    "tooShort",    Id::r2lBadLength,      false, 0, "discard too short frame", D::lengthLimit},
    {Drop::empty,       "empty",       Id::r2lBadLength,      false, 0, "discard empty frame",     D::lengthLimit},
    {Drop::filtered,    "filtered",    Id::r2lFilteredFrames, true,  7, "filter frame",            D::none},
    {Drop::badFlags,    "badFlags",    Id::r2lBadFlags,       false, 0, "invalid vxlan flags",     D::flags},
    {Drop::unknownVlan, "unknownVlan", Id::r2lUnknownVlan,    false, 0, "discard unknown vlan",    D::vni},
    {Drop::readError,   "readError",   Id::r2lSocketErrors,   false, 0, "read error:",             D::error},
    {Drop::sendError,   "sendError",   Id::r2lSocketErrors,   false, 0, "send error:",             D::error},
};
// clang-format on

static_assert(rowsInOrder(kDropRows));

inline const DropRow& dropRow(Drop why) {
  return kDropRows[static_cast<size_t>(why)];
}

}  // namespace R2L

namespace L2R {

// The counter of a drop that no counter records (a frame of a foreign type).
inline constexpr uint32_t kNoCounter = kVxlanCounterIds;

struct DropRow {
  Drop why;
  const char* name;  // the reason as the packet trace names it
  uint32_t counter;  // +1 per drop, kNoCounter for none
  int level;
  // The words are the operators' vocabulary: their filters and scripts look for them,
  // so they stay as they stand, " max 10000" for a limit of 9999 included.
  std::string_view words;  // measured at compile time: the frame loops record it per drop
  const char* after;
};

constexpr uint32_t id(VxlanCounterId c) {
  return static_cast<uint32_t>(c);
}
using Id = VxlanCounterId;
// clang-format off
inline constexpr DropRow kDropRows[kDropReasons] = {
    {Drop::none,           "none",           kNoCounter,                0, "", ""},
    {Drop::badLength,      "badLength",      id(Id::l2rBadLength),      0, " frame check failure, got ", " min 24 max 10000"},
    {Drop::badType,        "badType",        kNoCounter,                0, " received a frame with unexpected ether type: ", ""},
    {Drop::badVlan,        "badVlan",        id(Id::l2rBadVlan),        0, " user vlan out of range ", ". Discarding frame"},
    {Drop::noVni,          "noVni",          id(Id::l2rNoVni),          0, " no vni for vlan ", ". Discarding frame"},
    {Drop::peerLink,       "peerLink",       id(Id::l2rPeerLinkDrops),  0, " received on mlag peer link ", ". Discarding frame"},
    {Drop::arpNotRequired, "arpNotRequired", id(Id::l2rArpHerDrops),    7, " arp request for an own address not flooded, vlan ", ""},
    {Drop::readError,      "readError",      id(Id::l2rReadErrors),     0, "read error:", ""},
    {Drop::noDestination,  "noDestination",  id(Id::l2rNoDestination),  7, " no destination, vlan ", ""},
};
// clang-format on

static_assert(rowsInOrder(kDropRows));

inline const DropRow& dropRow(Drop why) {
  return kDropRows[static_cast<size_t>(why)];
}

}  // namespace L2R

}  // namespace Vxlan
