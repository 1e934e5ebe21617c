// Shared-memory tables as mapped by the process that writes them (LumMemtab::Table)
// and by the processes that only read them (LumMemtab::TableReader).
//
// The writer:
//
//   auto table = LumMemtab::Table::openOrCreate("/vxrelay-a-vxlan-counter", layout);
//   std::span<uint64_t> slots = table->slots<uint64_t>("vxlanCounter");
//   table->checkSeal();   // before trusting a read: throws if the header was damaged
//
// openOrCreate() creates the object zeroed when it is new, keeps an existing object of
// the same layout as it is (its counts outlive the writer), and zeroes and lays out
// again, with a trace line, an object of any other size, layout or version or one
// whose header is damaged. The object is never removed by the table: it stays until
// someone calls shm_unlink on it. A reader that opens the object while its header is
// being written finds it damaged; it opens it again later.
//
// A reader:
//
//   LumMemtab::TableReader r = LumMemtab::TableReader::open("/vxrelay-a-vxlan-counter");
//   std::vector<uint64_t> counts = r.elements("vxlanCounter", 8);
//
// What is detected, and when (see MemtabLayout.h for the layout):
//  - the writer's checkSeal(), meant for every read on the frame path: any change to the
//    magic, the version or the header checksum field, by comparing the two 8-byte words
//    that hold them with the values the writer stored. Two loads and two compares.
//  - TableReader::open() and every elements(): everything Layout::parse() checks (a
//    damaged or foreign header anywhere, including collection geometry whose checksum
//    no longer matches), and a layout that changed since the reader opened the table.
//  - not detected: damaged element values (they carry no checksum). A reader copies
//    the object instead of mapping it, so one truncated while it reads is reported as
//    damaged rather than faulting the reader.
//
// Ownership: the writer adopts an existing object only when it is its own user's and
// closed to others (mode 0600); any other object (planted by another user, who could
// forge counts or truncate it under the writer) is removed and made anew, with a trace
// line.
//
// Elements are naturally aligned; the writer stores and the readers load them with
// relaxed atomic operations, so a reader never sees a torn count. There is one writer
// per table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/memtab/MemtabLayout.h"

namespace LumMemtab {

// A mapped range; unmapped (through Lum::sysCalls()) when the last owner lets it go.
class Mapping {
 public:
  Mapping() = default;
  Mapping(void* base, size_t bytes) : base_(static_cast<unsigned char*>(base)), bytes_(bytes) {}
  Mapping(Mapping&& o) noexcept;
  Mapping& operator=(Mapping&& o) noexcept;
  ~Mapping();

  // Maps `bytes` of descriptor `fd` shared, with protection `prot`. Throws
  // Lum::ErrnoException naming `objectName` when mmap fails.
  static Mapping map(int fd, size_t bytes, int prot, const std::string& objectName);

  unsigned char* base() const { return base_; }
  size_t bytes() const { return bytes_; }

 private:
  unsigned char* base_ = nullptr;
  size_t bytes_ = 0;
};

// The two header words that a table's writer checks before it writes elements, with
// the values they must hold: a copy that the frame paths test inline, with no call.
struct Seal {
  const uint64_t* words = nullptr;
  uint64_t magic = 0;
  uint64_t version = 0;

  bool holds() const {
    return __atomic_load_n(words, __ATOMIC_RELAXED) == magic &&
           __atomic_load_n(words + 1, __ATOMIC_RELAXED) == version;
  }
};

class Table {
 public:
  // Creates or opens the object `objectName` read-write (mode 0644) and makes it hold
  // `layout`. Throws Lum::ErrnoException when shm_open, fstat, ftruncate or mmap fails.
  static std::shared_ptr<Table> openOrCreate(const std::string& objectName, const Layout& layout);

  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  const std::string& objectName() const { return objectName_; }
  const Layout& layout() const { return layout_; }

  // Throws Memtab::CorruptionDetectedException when the magic, version or checksum word
  // of the header is no longer what this table wrote. No allocation, no system call
  // unless it throws.
  void checkSeal() const {
    if (loadWord(0) != sealMagic_ || loadWord(1) != sealVersion_) [[unlikely]] {
      throwSealBroken();
    }
  }
  // What checkSeal() tests, for a writer that tests it inline.
  Seal seal() const {
    return {reinterpret_cast<const uint64_t*>(mapping_.base()), sealMagic_, sealVersion_};
  }
  // Writes the whole header again as this table laid it out; elements stay as they are.
  void headerRewrite();
  // Zeroes every element; the header stays.
  void elementsClear();

  // The elements of `collection`. Throws Lum::RangeException when there is no such
  // collection or its elements are not sizeof(T) wide.
  template <class T>
  std::span<T> slots(std::string_view collection) const {
    const CollectionLayout& c = collectionOfWidth(collection, sizeof(T));
    return {reinterpret_cast<T*>(mapping_.base() + c.offset), c.elementCount};
  }

 private:
  Table(std::string objectName, Mapping mapping, Layout layout);
  uint64_t loadWord(size_t index) const {
    return __atomic_load_n(reinterpret_cast<const uint64_t*>(mapping_.base()) + index,
                           __ATOMIC_RELAXED);
  }
  [[noreturn, gnu::cold]] void throwSealBroken() const;
  const CollectionLayout& collectionOfWidth(std::string_view name, size_t bytes) const;

  std::string objectName_;
  Mapping mapping_;
  Layout layout_;
  // The words 0 (magic) and 1 (version, checksum) of the header as written.
  uint64_t sealMagic_ = 0;
  uint64_t sealVersion_ = 0;
};

class TableReader {
 public:
  // Opens the object read-only and checks its header. Throws Lum::ErrnoException when
  // the object cannot be opened (ENOENT: no such table), and
  // Memtab::CorruptionDetectedException when its header is damaged.
  static TableReader open(const std::string& objectName);

  const std::string& objectName() const { return objectName_; }
  // The layout as found at open().
  const Layout& layout() const { return layout_; }

  // Copies the table, checks its header again, then gives the elements of
  // `collection`, each widened to 64 bits. Throws Memtab::CorruptionDetectedException
  // when the header is damaged or no longer the one found at open(), when the object
  // has shrunk, or when the collection is missing or its elements are not
  // `elementBytes` wide.
  std::vector<uint64_t> elements(std::string_view collection, uint32_t elementBytes) const;

  TableReader(TableReader&& o) noexcept;
  TableReader& operator=(TableReader&&) = delete;
  ~TableReader();

 private:
  TableReader(std::string objectName, int fd, Layout layout);
  // The table's bytes as they are now, at most `limit` of them. The reader copies them
  // with pread() rather than mapping them: a mapping of an object that someone
  // truncates faults (SIGBUS) on the next read, a copy just comes out short.
  std::vector<unsigned char> snapshot(size_t limit) const;

  std::string objectName_;
  int fd_ = -1;
  Layout layout_;
};

}  // namespace LumMemtab
