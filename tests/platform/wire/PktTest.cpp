#include "platform/wire/Pkt.h"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/core/Exception.h"

namespace Wire {
namespace {

// A new packet is all head room; taking and giving back head room moves only the
// start, never the end or the bytes behind it; a move past either end of the storage
// is refused before any pointer leaves it.
TEST(PktTest, HeadRoomMovesTheStartAndKeepsTheBytes) {
  Pkt::Manager manager;
  Lum::Ptr<Pkt> pkt = manager.newPkt();
  ASSERT_TRUE(pkt);
  EXPECT_EQ(pkt->bytes(), 0u);
  EXPECT_EQ(pkt->headRoom(), Pkt::kStorageBytes);
  const uint8_t* end = pkt->sharedBuffer()->buffer_ + Pkt::kStorageBytes;

  pkt->newSharedHeadData(60);
  std::memset(pkt->data(), 0xab, 60);
  uint8_t* frame = pkt->data();
  pkt->newSharedHeadData(8);
  EXPECT_EQ(pkt->data(), frame - 8);
  EXPECT_EQ(pkt->bytes(), 68u);
  EXPECT_EQ(pkt->data() + pkt->bytes(), end);
  ASSERT_EQ(pkt->iovCount(), 1);
  EXPECT_EQ(pkt->iov()->iov_base, pkt->data());
  EXPECT_EQ(pkt->iov()->iov_len, 68u);

  pkt->delSharedHeadData(22);
  EXPECT_EQ(pkt->data(), frame + 14);
  EXPECT_EQ(pkt->bytes(), 46u);
  EXPECT_EQ(pkt->data()[45], 0xab);

  EXPECT_THROW(pkt->delSharedHeadData(47), Lum::RangeException);
  EXPECT_THROW(pkt->newSharedHeadData(pkt->headRoom() + 1), Lum::RangeException);
  EXPECT_EQ(pkt->bytes(), 46u);
  pkt->newSharedHeadData(pkt->headRoom());
  EXPECT_EQ(pkt->data(), pkt->sharedBuffer()->buffer_);
}

// The manager's cap counts the packets alive, not those ever made; storage that comes
// back is handed out again, with the new packet's data empty.
TEST(PktTest, ManagerCapsLivePacketsAndReusesStorage) {
  Pkt::Manager manager(2);
  Lum::Ptr<Pkt> a = manager.newPkt();
  Lum::Ptr<Pkt> b = manager.newPkt();
  EXPECT_FALSE(manager.newPkt());
  EXPECT_EQ(manager.refused(), 1u);
  const uint8_t* storage = a->sharedBuffer()->buffer_;
  a->newSharedHeadData(100);
  a = nullptr;
  EXPECT_EQ(manager.packets(), 1u);
  Lum::Ptr<Pkt> c = manager.newPkt();
  ASSERT_TRUE(c);
  EXPECT_EQ(c->sharedBuffer()->buffer_, storage);
  EXPECT_EQ(c->bytes(), 0u);
  manager.limitIs(1);
  EXPECT_FALSE(manager.newPkt());
}

}  // namespace
}  // namespace Wire
