// The trace ring: binary, low-cost tracing into a memory-mapped file.
//
// Use:
//   const uint32_t sizes[RingLog::kLevels] = {32, 32, 32, 32, 32, 32, 32, 32, 32, 32};
//   RingLog::initialize("vxrelay-%d.rl", sizes);       // "%d" becomes the process id
//   RINGLOG(5, "recv %d bytes on %s", n, name);
//   RingLog::shutdown();
//
// The file has ten rings, one per level 0..9 (same meaning as the text trace levels).
// A message site costs, when a file is open, a static guard check, a few stores into a
// staging buffer and one copy into the mapped ring: no allocation, no system call
// except the clock read (vDSO). With no file open RINGLOG tests one pointer and does
// nothing else: it neither registers its site nor evaluates its arguments.
//
// Each site registers a MsgDesc (file, line, printf format) the first time it runs and
// keeps it in a static; the descriptor goes into the file's descriptor table, so a
// record holds only the descriptor id and the argument values. Formats are checked
// against the arguments at compile time, as for printf.
//
// Old records are overwritten when a ring is full, a block (an eighth of the ring, at
// least 1 KiB) at a time, so that a record costs one compare for its room and the
// forgetting is paid once per block, not per record. The writer keeps in the ring
// header the offset and sequence number of the oldest record still intact, so a
// decoder walks exactly the intact records, oldest first, and never a half-overwritten
// one.
//
// One writer thread; the agent is single-threaded. A reader in another process may
// catch a record being written; the decoder detects that by its sequence number and
// stops that ring with a marker line. The file layout is in RingLogLayout.h; the
// decoder, which only the operator's tool needs, is platform/ringdecode/.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/os/TickClock.h"
#include "platform/trace/RingLogLayout.h"

namespace RingLog {

class TraceFile;

// The largest ring, in KiB.
inline constexpr uint32_t kMaxRingKiB = 64 * 1024;

// initialize() flags.
// Remove the file (and its second name) at shutdown(); for tests and short runs.
inline constexpr int kRemoveAtShutdown = 1;

// ---- Writing -------------------------------------------------------------------------

// The description of one message site. Must have static storage: the registry keeps a
// pointer to it, and a file opened later copies every registered descriptor.
class MsgDesc {
 public:
  MsgDesc(const char* file, int line, const char* format);
  MsgDesc(const MsgDesc&) = delete;
  MsgDesc& operator=(const MsgDesc&) = delete;

  uint32_t id() const { return id_; }
  const char* file() const { return file_; }
  int line() const { return line_; }
  const char* format() const { return format_; }

 private:
  const char* file_;
  int line_;
  const char* format_;
  uint32_t id_;
};

// Number of message sites registered in this process.
size_t msgDescCount();

// CLOCK_REALTIME in nanoseconds, read from the kernel.
uint64_t clockNs();

// The time of a record: CLOCK_REALTIME through the time-stamp counter (TickClock.h).
// One writer thread, as for the rings.
inline Lum::TickClock recordClock{CLOCK_REALTIME};

// The ring of one level. A message is startMsg(id), put() per argument, endMsg(); it
// is built in a staging buffer and copied into the ring whole at endMsg().
class RingBuf {
 public:
  RingBuf(const RingBuf&) = delete;
  RingBuf& operator=(const RingBuf&) = delete;

  void startMsg(uint32_t descId) {
    descId_ = descId;
    staged_ = sizeof(RecordHeader);
    truncated_ = false;
  }

  template <std::integral T>
  void put(T v) {
    if constexpr (sizeof(T) <= 4) {
      if constexpr (std::is_signed_v<T>) {
        putScalar(ArgType::i32, static_cast<int32_t>(v));
      } else {
        putScalar(ArgType::u32, static_cast<uint32_t>(v));
      }
    } else if constexpr (std::is_signed_v<T>) {
      putScalar(ArgType::i64, static_cast<int64_t>(v));
    } else {
      putScalar(ArgType::u64, static_cast<uint64_t>(v));
    }
  }
  void put(double v) { putScalar(ArgType::f64, v); }
  void put(const char* s) { put(std::string_view(s == nullptr ? "(null)" : s)); }
  void put(std::string_view s);
  void put(const std::string& s) { put(std::string_view(s)); }
  template <class T>
  requires(!std::is_same_v<std::remove_cv_t<T>, char>) void put(T* p) {
    putScalar(ArgType::ptr, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p)));
  }

  void endMsg();

  // One message, written straight into the ring: its size is known before a byte is
  // written, so there is no staging copy. A message too large for one record goes the
  // staged way, which cuts it and marks the cut.
  template <class... Args>
  [[gnu::always_inline]] void record(uint32_t descId, const Args&... args) {
    recordViews(descId, view(args)...);
  }

  const RingHeader& header() const { return *header_; }

 private:
  friend TraceFile* initialize(const char*, const uint32_t*, const char*, int);
  RingBuf(RingHeader* header, unsigned char* data) : header_(header), data_(data) {}

  // One byte stays free for the truncation mark.
  static constexpr uint32_t kStageLimit = kMaxRecordBytes - 1;

  // Arguments as they are written: strings as views (measured once), the rest as is.
  static std::string_view view(const char* s) {
    return s == nullptr ? std::string_view("(null)") : std::string_view(s);
  }
  static std::string_view view(const std::string& s) { return s; }
  static std::string_view view(std::string_view s) { return s; }
  template <class T>
  static const T& view(const T& v) {
    return v;
  }
  static constexpr uint32_t argBytes(double) { return 1 + sizeof(double); }
  template <std::integral T>
  static constexpr uint32_t argBytes(T) {
    return 1 + (sizeof(T) <= 4 ? 4 : 8);
  }
  template <class T>
  static constexpr uint32_t argBytes(T*) {
    return 1 + 8;
  }
  static uint32_t argBytes(std::string_view s) {
    return 1 + sizeof(uint16_t) + static_cast<uint32_t>(s.size());
  }
  static bool tooLong(std::string_view s) { return s.size() > kMaxStringBytes; }
  template <class T>
  static bool tooLong(const T&) {
    return false;
  }
  template <class V>
  static void putAt(unsigned char*& p, ArgType type, V v) {
    *p = static_cast<unsigned char>(type);
    std::memcpy(p + 1, &v, sizeof v);
    p += 1 + sizeof v;
  }
  template <std::integral T>
  static void putAt(unsigned char*& p, T v) {
    if constexpr (sizeof(T) <= 4) {
      if constexpr (std::is_signed_v<T>) {
        putAt(p, ArgType::i32, static_cast<int32_t>(v));
      } else {
        putAt(p, ArgType::u32, static_cast<uint32_t>(v));
      }
    } else if constexpr (std::is_signed_v<T>) {
      putAt(p, ArgType::i64, static_cast<int64_t>(v));
    } else {
      putAt(p, ArgType::u64, static_cast<uint64_t>(v));
    }
  }
  static void putAt(unsigned char*& p, double v) { putAt(p, ArgType::f64, v); }
  template <class T>
  static void putAt(unsigned char*& p, T* v) {
    putAt(p, ArgType::ptr, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(v)));
  }
  static void putAt(unsigned char*& p, std::string_view s) {
    const auto len = static_cast<uint16_t>(s.size());
    *p = static_cast<unsigned char>(ArgType::str);
    std::memcpy(p + 1, &len, sizeof len);
    putBytes(p + 3, s.data(), s.size());
    p += 3 + s.size();
  }
  // Names and short words are most of what is traced: copied inline in two moves that
  // may overlap, rather than through a call of memcpy.
  static void putBytes(unsigned char* to, const char* from, size_t n) {
    if (n >= 8 && n <= 16) {
      std::memcpy(to, from, 8);
      std::memcpy(to + n - 8, from + n - 8, 8);
    } else if (n >= 4 && n < 8) {
      std::memcpy(to, from, 4);
      std::memcpy(to + n - 4, from + n - 4, 4);
    } else if (n < 4) {
      for (size_t i = 0; i < n; ++i) to[i] = static_cast<unsigned char>(from[i]);
    } else {
      std::memcpy(to, from, n);
    }
  }

  template <class... Args>
  [[gnu::always_inline]] void recordViews(uint32_t descId, const Args&... args) {
    const uint32_t body = (0u + ... + argBytes(args));
    if ((tooLong(args) || ...) || sizeof(RecordHeader) + body > kStageLimit) [[unlikely]] {
      startMsg(descId);
      (put(args), ...);
      endMsg();
      return;
    }
    const uint32_t bytes = (static_cast<uint32_t>(sizeof(RecordHeader)) + body + 7u) & ~7u;
    unsigned char* at = reserve(bytes);
    // The padding (under 8 bytes) lies in the record's last word: zeroed first with
    // one store, then the arguments written over what they fill of it.
    std::memset(at + bytes - 8, 0, 8);
    [[maybe_unused]] unsigned char* p = at + sizeof(RecordHeader);
    (putAt(p, args), ...);
    commit(at, bytes, descId);
  }
  // Makes room for a record of `bytes` at head and says where it goes; commit() then
  // writes its header and counts it. Both inline: they run for every record. While the
  // record fits below clear_ nothing old is in its way and it costs one compare.
  unsigned char* reserve(uint32_t bytes) {
    RingHeader& h = *header_;
    if (h.head + bytes > clear_) [[unlikely]] {
      makeRoom();
      // The header must say the overwritten records are gone before their bytes
      // change (for a reader that looks at the file while we run; a single thread
      // needs no more than compiler ordering).
      std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    return data_ + h.head;
  }
  void commit(unsigned char* at, uint32_t bytes, uint32_t descId) {
    RingHeader& h = *header_;
    const RecordHeader rec{bytes, descId, h.nextSeq, recordClock.ns()};
    std::memcpy(at, &rec, sizeof rec);
    // The new record must be whole before the header counts it.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    h.head += bytes;
    ++h.nextSeq;
  }
  // Moves head to the start of the next block (writing the mark that says the rest of
  // the block it leaves is unused), forgets the records of that block when they are
  // the oldest ones, and sets clear_ to its end.
  void makeRoom();

  template <class V>
  void putScalar(ArgType type, V v) {
    if (staged_ + 1 + sizeof(V) > kStageLimit) {
      truncated_ = true;
      return;
    }
    stage_[staged_] = static_cast<unsigned char>(type);
    std::memcpy(stage_ + staged_ + 1, &v, sizeof(V));
    staged_ += 1 + sizeof(V);
  }

  RingHeader* header_;
  unsigned char* data_;
  // The end of the block head is in, whose old records are all forgotten: up to there
  // a record goes without a look at what it overwrites. 0 before the first record.
  uint32_t clear_ = 0;
  uint32_t descId_ = 0;
  uint32_t staged_ = 0;
  bool truncated_ = false;
  alignas(8) unsigned char stage_[kMaxRecordBytes];
};

// One open ring file.
class TraceFile {
 public:
  ~TraceFile();
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  static TraceFile* current() { return current_; }

  // nullptr for a level out of 0..9 or one given no ring.
  RingBuf* ring(int level) const {
    return static_cast<unsigned>(level) < static_cast<unsigned>(kLevels) ? rings_[level].get()
                                                                         : nullptr;
  }
  const std::string& path() const { return path_; }
  // The second name (a symbolic link to path()), empty when none was asked for.
  const std::string& secondPath() const { return secondPath_; }

 private:
  friend TraceFile* initialize(const char*, const uint32_t*, const char*, int);
  friend void shutdown();
  friend class MsgDesc;
  TraceFile() = default;

  void descIs(const MsgDesc& desc);

  static inline TraceFile* current_ = nullptr;

  int fd_ = -1;
  unsigned char* map_ = nullptr;
  size_t mapBytes_ = 0;
  int flags_ = 0;
  std::string path_;
  std::string secondPath_;
  std::unique_ptr<RingBuf> rings_[kLevels];
};

// Opens (creates, truncates) the ring file and maps it. A file already open is closed
// first, even when the new one then fails. "%d" in `name` and `secondName` becomes the
// process id; a relative name is taken in $RINGLOGDIR when that is set, else in the
// current directory. `sizes` are the ring sizes in KiB per level (0: no ring for that
// level). `secondName`, when given, is made a symbolic link to the file, replacing an
// older link of that name (never a regular file), so a fixed name leads to the newest
// file. Throws Lum::ErrnoException when the file cannot be set up and
// Lum::RangeException for a ring larger than kMaxRingKiB.
TraceFile* initialize(const char* name, const uint32_t sizes[kLevels],
                      const char* secondName = nullptr, int flags = 0);

// Unmaps and closes the open file, if any. What was written stays in the file.
void shutdown();

inline TraceFile* traceFile() {
  return TraceFile::current();
}

namespace detail {

// Never called: RINGLOG passes its format and (mapped) arguments here in a dead
// branch so that the compiler checks them as it does for printf.
__attribute__((format(printf, 1, 2))) inline void formatCheck(const char*, ...) {}

template <std::integral T>
T printfArg(T v) {
  return v;
}
inline double printfArg(double v) {
  return v;
}
template <class T>
requires std::is_convertible_v<const T&, std::string_view>
const char* printfArg(const T&) {
  return "";
}
template <class T>
requires(!std::is_same_v<std::remove_cv_t<T>, char>) const void* printfArg(T* p) {
  return p;
}

}  // namespace detail

}  // namespace RingLog

// `fmt` must be a string literal. The arguments are evaluated once, and only when a
// ring file is open and has a ring for `level`.
#define RINGLOG(level, fmt, ...)                                                                \
  do {                                                                                          \
    if (::RingLog::TraceFile* ringLogFile_ = ::RingLog::traceFile()) {                          \
      if (::RingLog::RingBuf* ringLogRing_ = ringLogFile_->ring(level)) {                       \
        static const ::RingLog::MsgDesc ringLogDesc_(__FILE__, __LINE__, fmt);                  \
        [ringLogRing_](const auto&... ringLogArgs_) __attribute__((always_inline)) {            \
          if (false) {                                                                          \
            ::RingLog::detail::formatCheck(fmt, ::RingLog::detail::printfArg(ringLogArgs_)...); \
          }                                                                                     \
          ringLogRing_->record(ringLogDesc_.id(), ringLogArgs_...);                             \
        }                                                                                       \
        (__VA_ARGS__);                                                                          \
      }                                                                                         \
    }                                                                                           \
  } while (0)
