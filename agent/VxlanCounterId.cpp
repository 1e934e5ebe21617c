#include "agent/VxlanCounterId.h"

#include <array>

namespace Vxlan {

namespace {
constexpr std::array<std::string_view, kVxlanCounterIds> kVxlanNames = {
    "l2rRxBytes",
    "l2rRxFrames",
    "l2rRxHiBytes",
    "l2rRxHiFrames",
    "l2rRxLoBytes",
    "l2rRxLoFrames",
    "l2rForwardBytes",
    "l2rForwardFrames",
    "l2rTxBytes",
    "l2rTxFrames",
    "l2rDot1qTunnelFrames",
    "r2lRxBytes",
    "r2lRxFrames",
    "r2lTxBytes",
    "r2lTxFrames",
    "l2rArpResolverFrames",
    "l2rReadErrors",
    "l2rBadLength",
    "l2rBadVlan",
    "l2rNoVni",
    "l2rPeerLinkDrops",
    "l2rNoDestination",
    "l2rNoBfdVtepUp",
    "l2rSendErrors",
    "l2rSendNoBufHi",
    "l2rSendNoBufLo",
    "l2rTimeBudgetExpired",
    "r2lBadLength",
    "r2lFilteredFrames",
    "r2lFilteredBytes",
    "r2lBadFlags",
    "r2lUnknownVlan",
    "",
    "r2lTimeBudgetExpired",
    "r2lSocketErrors",
    "l2rArpResolverSendErrors",
    "l2rNoBfdConfigured",
    "",
    "l2rNakedArpUnmodified",
    "",
    "l2rNakedArpRewritten",
    "l2rArpHerDrops",
};

constexpr std::array<std::string_view, kVarpCounterIds> kVarpNames = {
    "arpCacheUpdated",
    "arpCacheUpdateFailed",
    "arpSyncMsgSent",
    "arpSyncNeighborAdded",
    "arpSyncReplyCopied",
    "arpSyncReplyProcessed",
    "arpSyncFailed",
    "vxlanArpRx",
    "varpVtepReplyRx",
    "replicatedReplyRx",
    "arpReplyFloodTx",
    "arpReplyUnicastTx",
    "decapTxPkts",
    "decapTxErrors",
    "decapPrependErrors",
    "rxTooShort",
    "rxBadType",
    "rxNotIp",
    "rxNotUdp",
    "rxNotVxlan",
    "rxInnerNotArp",
    "rxNotArpReply",
    "rxBadIpChecksum",
    "rxVniNotValid",
    "rxBadArpHeader",
    "rxNoVlanForVni",
    "txNoSourceAddr",
    "txNoFloodList",
    "",
    "decapTxRawHdr",
    "decapFabricHdr",
    "arpRequestOnSvi",
    "requestNoEntry",
    "requestRewritten",
    "arpReplyRx",
    "replyPlainPath",
    "replyRewritten",
    "arpDiscarded",
    "pendingListAged",
};

// The names are kept beside the enumerators by hand; these catch a slip.
static_assert(kVxlanNames[static_cast<size_t>(VxlanCounterId::r2lTimeBudgetExpired)] ==
              "r2lTimeBudgetExpired");
static_assert(kVxlanNames[static_cast<size_t>(VxlanCounterId::l2rArpHerDrops)] == "l2rArpHerDrops");
static_assert(kVarpNames[static_cast<size_t>(VarpCounterId::decapTxRawHdr)] == "decapTxRawHdr");
static_assert(kVarpNames[static_cast<size_t>(VarpCounterId::pendingListAged)] == "pendingListAged");
}  // namespace

std::string_view vxlanCounterName(uint16_t id) {
  return id < kVxlanNames.size() ? kVxlanNames[id] : std::string_view();
}

std::string_view varpCounterName(uint16_t id) {
  return id < kVarpNames.size() ? kVarpNames[id] : std::string_view();
}

}  // namespace Vxlan
