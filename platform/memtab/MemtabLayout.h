// LumMemtab::Layout: the byte layout of a shared-memory table, the one format that the
// agent writes and that other programs of the switch read.
//
// A table is one POSIX shared-memory object holding named collections of fixed-width
// unsigned elements, indexed from 0. The layout is fixed and versioned; integers are
// in host byte order (the readers run on the same machine):
//
//   offset 0    TableHeader (32 bytes)
//               +0   magic            8 bytes  "VXMEMTAB"
//               +8   version          u32      kLayoutVersion
//               +12  headerChecksum   u32      FNV-1a over bytes [0, headerBytes),
//                                              this field counted as zero
//               +16  layoutBytes      u64      size of the whole object
//               +24  collectionCount  u32      at most kMaxCollections
//               +28  headerBytes      u32      32 + 48 * collectionCount
//   offset 32   CollectionHeader[collectionCount] (48 bytes each)
//               +0   name             32 bytes NUL-padded, at least one NUL
//               +32  elementBytes     u32      1, 2, 4 or 8
//               +36  elementCount     u32
//               +40  offset           u64      from the start of the object
//   then        the elements of each collection in header order, each collection
//               starting on a kAlign boundary; the object ends on one too.
//
// What the checksum buys: the header describes where every element is, so it is the
// part whose damage would send a reader astray; it is small and written only when a
// table is laid out, so it can carry a checksum that nobody recomputes on the add
// path. The elements themselves carry none: a checksum over them would cost a pass
// or a second write on every add. Layout::parse() checks everything in the header
// (see there); the writer's cheap per-read check is Table::checkSeal().
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace LumMemtab {

inline constexpr char kMagic[8] = {'V', 'X', 'M', 'E', 'M', 'T', 'A', 'B'};
inline constexpr uint32_t kLayoutVersion = 1;
inline constexpr uint32_t kNameBytes = 32;
inline constexpr uint32_t kMaxCollections = 16;
// Collections start on a cache line, so that no two share one and every element is
// naturally aligned for the atomic loads and stores of its width.
inline constexpr uint32_t kAlign = 64;

struct TableHeader {
  char magic[8];
  uint32_t version;
  uint32_t headerChecksum;
  uint64_t layoutBytes;
  uint32_t collectionCount;
  uint32_t headerBytes;
};
static_assert(sizeof(TableHeader) == 32);

struct CollectionHeader {
  char name[kNameBytes];
  uint32_t elementBytes;
  uint32_t elementCount;
  uint64_t offset;
};
static_assert(sizeof(CollectionHeader) == 48);

// Where one collection lies.
struct CollectionLayout {
  std::string name;
  uint32_t elementBytes = 0;
  uint32_t elementCount = 0;
  uint64_t offset = 0;
  bool operator==(const CollectionLayout&) const = default;
};

// What a collection is to hold, before it is placed.
struct CollectionShape {
  std::string name;
  uint32_t elementBytes = 0;
  uint32_t elementCount = 0;
};

class Layout {
 public:
  // Places the collections one after the other in the order given. Throws
  // Lum::RangeException for a name that is empty, has a NUL or does not fit, a name
  // given twice, an element width other than 1, 2, 4 or 8, or too many collections.
  static Layout plan(const std::vector<CollectionShape>& shapes);

  // Reads and checks the header of a table of `objectBytes` bytes at `base`. Throws
  // Memtab::CorruptionDetectedException naming `objectName` and the first fault found:
  // an object too
  // short for its header, a bad magic, another version, a collection count or header
  // size out of bounds, a checksum that does not match, a layout size that is not the
  // object's, or a collection with an empty, unterminated or repeated name, a bad
  // width, alignment or extent, or one overlapping the header or the collection before
  // it.
  static Layout parse(const void* base, size_t objectBytes, std::string_view objectName);

  // Writes the header (and nothing else) at `base`: every byte of [0, headerBytes()).
  void writeHeader(void* base) const;

  uint32_t headerBytes() const {
    return static_cast<uint32_t>(sizeof(TableHeader) +
                                 collections_.size() * sizeof(CollectionHeader));
  }
  uint64_t layoutBytes() const { return layoutBytes_; }
  const std::vector<CollectionLayout>& collections() const { return collections_; }
  // The collection of that name, nullptr if there is none.
  const CollectionLayout* collection(std::string_view name) const;

  bool operator==(const Layout&) const = default;

 private:
  std::vector<CollectionLayout> collections_;
  uint64_t layoutBytes_ = 0;
};

// The checksum of the header of `headerBytes` bytes at `base`, its checksum field
// counted as zero.
uint32_t headerChecksum(const void* base, uint32_t headerBytes);

}  // namespace LumMemtab
