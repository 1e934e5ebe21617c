// The ids of the two counter tables. The numbers are the format of the shared table
// that other programs read: they never change, and ids that nothing moves keep their
// place.
#pragma once

#include <cstdint>
#include <string_view>

namespace Vxlan {

enum class VxlanCounterId : uint16_t {
  l2rRxBytes = 0,
  l2rRxFrames = 1,
  l2rRxHiBytes = 2,
  l2rRxHiFrames = 3,
  l2rRxLoBytes = 4,
  l2rRxLoFrames = 5,
  l2rForwardBytes = 6,
  l2rForwardFrames = 7,
  l2rTxBytes = 8,
  l2rTxFrames = 9,
  l2rDot1qTunnelFrames = 10,
  r2lRxBytes = 11,
  r2lRxFrames = 12,
  r2lTxBytes = 13,
  r2lTxFrames = 14,
  l2rArpResolverFrames = 15,
  l2rReadErrors = 16,
  l2rBadLength = 17,
  l2rBadVlan = 18,
  l2rNoVni = 19,
  l2rPeerLinkDrops = 20,
  l2rNoDestination = 21,
  l2rNoBfdVtepUp = 22,
  l2rSendErrors = 23,
  l2rSendNoBufHi = 24,
  l2rSendNoBufLo = 25,
  l2rTimeBudgetExpired = 26,
  r2lBadLength = 27,
  r2lFilteredFrames = 28,
  r2lFilteredBytes = 29,
  r2lBadFlags = 30,
  r2lUnknownVlan = 31,
  // 32: unused
  r2lTimeBudgetExpired = 33,
  r2lSocketErrors = 34,
  l2rArpResolverSendErrors = 35,
  l2rNoBfdConfigured = 36,
  // 37: unused
  l2rNakedArpUnmodified = 38,
  // 39: unused
  l2rNakedArpRewritten = 40,
  l2rArpHerDrops = 41,
};
inline constexpr uint16_t kVxlanCounterIds = 42;

enum class VarpCounterId : uint16_t {
  arpCacheUpdated = 0,
  arpCacheUpdateFailed = 1,
  arpSyncMsgSent = 2,
  arpSyncNeighborAdded = 3,
  arpSyncReplyCopied = 4,
  arpSyncReplyProcessed = 5,
  arpSyncFailed = 6,
  vxlanArpRx = 7,
  varpVtepReplyRx = 8,
  replicatedReplyRx = 9,
  arpReplyFloodTx = 10,
  arpReplyUnicastTx = 11,
  decapTxPkts = 12,
  decapTxErrors = 13,
  decapPrependErrors = 14,
  rxTooShort = 15,
  rxBadType = 16,
  rxNotIp = 17,
  rxNotUdp = 18,
  rxNotVxlan = 19,
  rxInnerNotArp = 20,
  rxNotArpReply = 21,
  rxBadIpChecksum = 22,
  rxVniNotValid = 23,
  rxBadArpHeader = 24,
  rxNoVlanForVni = 25,
  txNoSourceAddr = 26,
  txNoFloodList = 27,
  // 28: unused
  decapTxRawHdr = 29,
  decapFabricHdr = 30,
  arpRequestOnSvi = 31,
  requestNoEntry = 32,
  requestRewritten = 33,
  arpReplyRx = 34,
  replyPlainPath = 35,
  replyRewritten = 36,
  arpDiscarded = 37,
  pendingListAged = 38,
};
inline constexpr uint16_t kVarpCounterIds = 39;

// The name of an id, "" for the ids that nothing moves.
std::string_view vxlanCounterName(uint16_t id);
std::string_view varpCounterName(uint16_t id);

}  // namespace Vxlan
