#include "platform/types/NetInt.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "tests/platform/types/ValueTestHelpers.h"

namespace {

using Wire::NetU16;
using Wire::NetU32;

using ValueTest::EqualityMixes;

// Guards byte-order safety: a host integer must never slip into or out of a wire
// field without fromHost()/value().
static_assert(!std::is_convertible_v<uint16_t, NetU16>);
static_assert(!std::is_convertible_v<NetU16, uint16_t>);
static_assert(!std::is_constructible_v<uint32_t, NetU32>);
static_assert(!EqualityMixes<NetU16, uint16_t>);
static_assert(!EqualityMixes<NetU16, NetU32>);

// A wire header as frame code declares it: NetInts land at odd offsets, no padding.
struct TestHeader {
  uint8_t kind;
  NetU16 length;
  NetU32 sequence;
};
static_assert(sizeof(TestHeader) == 7 && offsetof(TestHeader, sequence) == 3);

// Guards the wire layout: the bytes in memory are big-endian, and a header laid over
// a buffer at an odd address reads and writes the right bytes (UBSan flags any
// misaligned access in the sanitizer build).
TEST(NetIntTest, HeaderAtOddOffset) {
  alignas(8) uint8_t buffer[16] = {};
  const uint8_t wire[] = {0x07, 0x12, 0x34, 0x0a, 0x00, 0x00, 0x01};
  std::memcpy(buffer + 1, wire, sizeof wire);

  auto* header = reinterpret_cast<TestHeader*>(buffer + 1);
  EXPECT_EQ(header->length.value(), 0x1234);
  EXPECT_EQ(header->sequence.value(), 0x0a000001u);

  header->length.valueIs(0xbeef);
  header->sequence = NetU32::fromHost(0xc0a80102);
  const uint8_t expected[] = {0x07, 0xbe, 0xef, 0xc0, 0xa8, 0x01, 0x02};
  EXPECT_EQ(std::memcmp(buffer + 1, expected, sizeof expected), 0);
  EXPECT_EQ(buffer[0] | buffer[8], 0);
}

}  // namespace
