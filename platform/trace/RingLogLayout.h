// The layout of a trace ring file, shared by the writer (RingLog.h) and the decoder
// (platform/ringdecode/RingLogDecoder.h).
//
// File layout (integers in host byte order; every offset is 8-aligned):
//
//   0                 FileHeader, kFileHeaderBytes long
//   kFileHeaderBytes  descriptor table, kDescTableBytes long: DescEntry after DescEntry,
//                     each followed by the file name and the format (both NUL
//                     terminated) and padded to 8 bytes; descCount entries are valid
//   ringOffset[n]     for each level n with a ring: RingHeader, then dataBytes of ring data
//
// Ring data is a sequence of records, each stored whole (never split at the end):
//   RecordHeader (recordBytes, descId, seq, timeNs) then arguments, each a type byte
//   (ArgType) and its value: 4 bytes for i32/u32, 8 for i64/u64/f64/ptr, a 2-byte length
//   and the bytes for a string; ArgType::end or the record end closes the list.
// The data is cut into blocks of blockBytes (whole KiB; the last one may be shorter),
// and a record never crosses a block end: one that does not fit in what is left of its
// block starts at the next block, or at offset 0 after the last. A zero word where the
// next record would be (or the block end, or the data end) marks that step. Records
// are forgotten a block at a time, so tail is always at a block start. From
// RingHeader::tail, nextSeq - firstSeq records follow, the last one ending at head.
// Version 1 had no blocks: its blockBytes field is 0 and reads as one block.
#pragma once

#include <cstdint>
#include <cstring>

namespace RingLog {

// One ring per trace level, 0 to 9.
inline constexpr int kLevels = 10;
// A record including its header; longer messages are cut and marked as truncated.
inline constexpr uint32_t kMaxRecordBytes = 1024;
// Strings are stored up to this many bytes.
inline constexpr uint32_t kMaxStringBytes = 255;

inline constexpr char kMagic[8] = {'V', 'X', 'R', 'I', 'N', 'G', 'L', '1'};
inline constexpr uint32_t kVersion = 2;
inline constexpr uint32_t kFileHeaderBytes = 4096;
inline constexpr uint32_t kDescTableBytes = 64 * 1024;

struct FileHeader {
  char magic[8];
  uint32_t version;
  uint32_t levelCount;
  uint32_t pid;
  uint32_t descTableBytes;
  uint64_t descTableOffset;
  uint64_t createdNs;  // CLOCK_REALTIME at initialize
  // Entries are written first, then descBytesUsed and descCount.
  uint32_t descCount;
  uint32_t descBytesUsed;
  uint32_t descDropped;  // registrations that did not fit in the table
  uint32_t reserved;
  uint64_t ringOffset[kLevels];  // of the RingHeader; 0 for a level without a ring
};

struct DescEntry {
  uint32_t entryBytes;  // including the strings and padding
  uint32_t id;
  uint32_t line;
  uint16_t fileBytes;    // without the NUL
  uint16_t formatBytes;  // without the NUL
};

struct RingHeader {
  uint32_t dataBytes;
  uint32_t level;
  uint32_t head;      // where the next record goes
  uint32_t tail;      // the oldest intact record
  uint64_t firstSeq;  // sequence number of the record at tail
  uint64_t nextSeq;   // of the next record; nextSeq - firstSeq records are intact
  uint64_t wrapCount;
  uint32_t blockBytes;
  uint8_t reserved[20];
};
static_assert(sizeof(RingHeader) == 64);

struct RecordHeader {
  uint32_t recordBytes;  // multiple of 8, including this header
  uint32_t descId;
  uint64_t seq;
  uint64_t timeNs;  // CLOCK_REALTIME
};
static_assert(sizeof(RecordHeader) == 24);

enum class ArgType : uint8_t { end = 0, i32, u32, i64, u64, f64, str, ptr, truncated };

// Ring data holds records at 8-byte offsets only, but a damaged or foreign file may
// not: words are loaded byte-wise.
inline uint32_t loadU32(const unsigned char* p) {
  uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace RingLog
