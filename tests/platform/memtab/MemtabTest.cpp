#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <sstream>

#include "platform/memtab/Memtab.h"
#include "platform/memtab/MemtabLayout.h"
#include "platform/memtab/MemtabMount.h"
#include "platform/memtab/MemtabTable.h"
#include "platform/os/SysCalls.h"
#include "platform/trace/Trace.h"
#include "tests/support/SharedObjects.h"
#include "tests/support/Throws.h"

namespace LumMemtab {
namespace {

using TestSupport::flipByte;
using TestSupport::SharedObjectGuard;
using TestSupport::uniqueAgentName;

// A table type of the tests: an entity that only holds its table.
struct SlotsEntity : Lum::Entity {
  SlotsEntity(const Lum::Name& name, std::shared_ptr<Table> t)
      : Entity(name), table(std::move(t)) {}
  std::shared_ptr<Table> table;
};

const TableType& kSlotsType = TableTypes::add(
    {"Test::Slots",
     {{"wide", 8}, {"narrow", 2}},
     [](const Lum::Name& name, std::shared_ptr<Table> table) -> Lum::Ptr<Lum::Entity> {
       return new SlotsEntity(name, std::move(table));
     }});

Layout twoCollections(uint32_t wide = 5, uint32_t narrow = 3) {
  return Layout::plan({{"wide", 8, wide}, {"narrow", 2, narrow}});
}

// Whether `fn` throws a corruption error whose text holds `what`.
template <class Fn>
bool refusedAs(Fn fn, const char* what) {
  return TestSupport::thrownText<Memtab::CorruptionDetectedException>(fn).find(what) !=
         std::string::npos;
}

void resealChecksum(unsigned char* header) {
  uint32_t headerBytes;
  std::memcpy(&headerBytes, header + offsetof(TableHeader, headerBytes), 4);
  const uint32_t sum = headerChecksum(header, headerBytes);
  std::memcpy(header + offsetof(TableHeader, headerChecksum), &sum, 4);
}

// Guards against a damaged header being taken for a table: every field the reader
// relies on is checked, geometry behind a forged checksum included.
TEST(MemtabLayoutTest, ParseRejectsEachDamagedHeaderField) {
  const Layout layout = twoCollections();
  std::vector<unsigned char> sound(layout.layoutBytes());
  layout.writeHeader(sound.data());
  ASSERT_EQ(Layout::parse(sound.data(), sound.size(), "t"), layout);
  for (const CollectionLayout& c : layout.collections()) EXPECT_EQ(c.offset % kAlign, 0u);

  const size_t firstCollection = sizeof(TableHeader);
  const struct {
    std::function<void(unsigned char*)> damage;
    const char* expected;
  } cases[] = {
      {[](unsigned char* h) { h[3] ^= 1; }, "bad magic"},
      {[](unsigned char* h) { h[8] = 2, resealChecksum(h); }, "version 2, expected 1"},
      {[](unsigned char* h) { h[12] ^= 0x40; }, "bad header checksum"},
      {[&](unsigned char* h) { h[firstCollection + 36] += 1; }, "bad header checksum"},
      {[](unsigned char* h) { h[24] = 17, resealChecksum(h); }, "header of 17 collections"},
      {[&](unsigned char* h) {
         std::memset(h + firstCollection, 0, kNameBytes), resealChecksum(h);
       },
       "collection 0 has no name of its own"},
      {[&](unsigned char* h) {
         std::memcpy(h + firstCollection + 48, h + firstCollection, kNameBytes), resealChecksum(h);
       },
       "collection 1 has no name of its own"},
      // The second collection moved onto the first one.
      {[&](unsigned char* h) {
         h[firstCollection + 48 + 41] = 0, h[firstCollection + 48 + 40] = 128, resealChecksum(h);
       },
       "collection \"narrow\""},
  };
  for (const auto& c : cases) {
    std::vector<unsigned char> damaged = sound;
    c.damage(damaged.data());
    EXPECT_TRUE(refusedAs([&] { Layout::parse(damaged.data(), damaged.size(), "t"); }, c.expected))
        << c.expected;
  }
  EXPECT_TRUE(
      refusedAs([&] { Layout::parse(sound.data(), sound.size() - kAlign, "t"); }, "layout of"));
}

// Guards the zeroing rules for an existing table of the right size (the agent's tests
// cover new, kept and resized tables): another layout or a damaged header is zeroed,
// with a trace line, rather than read under the wrong ids.
TEST(MemtabTableTest, SameSizeOtherLayoutOrDamagedHeaderIsReinitialised) {
  SharedObjectGuard guard(Mount::objectName(uniqueAgentName("zeroing"), "t"));
  Table::openOrCreate(guard.name(), twoCollections())->slots<uint64_t>("wide")[4] = 77;
  std::ostringstream trace;
  Lum::coverageStreamIs(&trace);
  auto table = Table::openOrCreate(guard.name(), twoCollections(5, 4));
  EXPECT_EQ(table->slots<uint64_t>("wide")[4], 0u);
  table->slots<uint64_t>("wide")[0] = 5;
  flipByte(guard.name(), 0, 0x20);
  EXPECT_EQ(Table::openOrCreate(guard.name(), twoCollections(5, 4))->slots<uint64_t>("wide")[0],
            0u);
  Lum::coverageStreamIs(nullptr);
  EXPECT_NE(trace.str().find("another layout of the same size"), std::string::npos) << trace.str();
  EXPECT_NE(trace.str().find("bad magic"), std::string::npos) << trace.str();
  EXPECT_THROW(table->slots<uint32_t>("wide"), Lum::RangeException);
}

// Guards the reader against a table read at the wrong width, laid out again or shrunk
// under it. (A missing table: the agent's shared-memory counter test.)
TEST(MemtabTableTest, ReaderReportsMissingAndRelaidTables) {
  SharedObjectGuard guard(Mount::objectName(uniqueAgentName("reader"), "t"));
  Table::openOrCreate(guard.name(), twoCollections());
  TableReader reader = TableReader::open(guard.name());
  EXPECT_THROW(reader.elements("wide", 4), Memtab::CorruptionDetectedException);
  Table::openOrCreate(guard.name(), Layout::plan({{"narrow", 2, 3}, {"wide", 8, 5}}));
  EXPECT_TRUE(refusedAs([&] { reader.elements("wide", 8); }, "laid out again"));

  // A table truncated while a reader has it open faulted the reader (SIGBUS).
  TableReader shrinking = TableReader::open(guard.name());
  const int fd = ::shm_open(guard.name().c_str(), O_RDWR, 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::ftruncate(fd, 100), 0);
  ::close(fd);
  EXPECT_TRUE(refusedAs([&] { shrinking.elements("wide", 8); }, "shrunk"));
}

// Guards adoption: an object that another user could reach (planted open to all, or of
// another owner) was kept, letting that user forge counts or truncate the table under
// the writer. It is replaced by one of the writer's own, closed to others.
TEST(MemtabTableTest, ObjectOpenToOthersIsReplaced) {
  SharedObjectGuard guard(Mount::objectName(uniqueAgentName("planted"), "t"));
  const int fd = ::shm_open(guard.name().c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::fchmod(fd, 0666), 0);  // whatever the umask
  struct stat st {};
  ::close(fd);
  std::ostringstream trace;
  Lum::coverageStreamIs(&trace);
  Table::openOrCreate(guard.name(), twoCollections());
  Lum::coverageStreamIs(nullptr);
  EXPECT_NE(trace.str().find("replaced: open to other users"), std::string::npos) << trace.str();
  const int again = ::shm_open(guard.name().c_str(), O_RDONLY, 0);
  ASSERT_GE(again, 0);
  ASSERT_EQ(::fstat(again, &st), 0);
  ::close(again);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(st.st_uid, ::geteuid());
}

// A service whose mmap fails, and that tracks the descriptor opened before it.
struct FailingMmap : Lum::SysCalls {
  int opened = -1;
  bool closedOpened = false;
  int shmOpen(const char* name, int flags, mode_t mode) override {
    return opened = SysCalls::shmOpen(name, flags, mode);
  }
  void* mmap(void*, size_t, int, int, int, off_t) override { return errno = ENOMEM, MAP_FAILED; }
  int close(int fd) override {
    closedOpened |= fd == opened;
    return SysCalls::close(fd);
  }
};

// Guards failed set-up: the errno and the step reach the caller in the exception's
// text ("<step>: <strerror> (errno N)"), and the descriptor opened before the failure
// is not leaked.
TEST(MemtabTableTest, FailedSystemCallNamesTheStepAndClosesTheDescriptor) {
  SharedObjectGuard guard(Mount::objectName(uniqueAgentName("fail"), "t"));
  FailingMmap fake;
  Lum::ScopedSysCalls scope(fake);
  const auto e = TestSupport::thrown<Lum::ErrnoException>(
      [&] { Table::openOrCreate(guard.name(), twoCollections()); });
  ASSERT_TRUE(e && e->errNo() == ENOMEM);
  EXPECT_EQ(e->what(), "mmap " + guard.name() + ": " + std::strerror(ENOMEM) + " (errno " +
                           std::to_string(ENOMEM) + ")");
  EXPECT_TRUE(fake.opened >= 0 && fake.closedOpened);
}

// Guards the mount: the type's widths used, and unknown types, foreign collections and
// a second mount of a path refused. (Naming, the factory and a kept table: the agent's
// shared-memory counter test.)
TEST(MemtabMountTest, MountBuildsTheEntityOfTheType) {
  EXPECT_THROW(Mount::objectName("a/b", "c"), Lum::RangeException);
  const std::string agent = uniqueAgentName("mount");
  SharedObjectGuard guard(Mount::objectName(agent, "slots/a"));
  MountInfo info;
  info.collectionInfoIs("narrow", 4);
  info.collectionInfoIs("wide", 2);
  info.collectionInfoIs("narrow", 6);
  Mount mount(agent);
  mount.doMount("slots/a", kSlotsType.typeName, info);
  auto entity = Lum::ptrCast<SlotsEntity>(mount.getEntity("slots/a"));
  ASSERT_TRUE(entity);
  EXPECT_EQ(entity->table->layout(), Layout::plan({{"narrow", 2, 6}, {"wide", 8, 2}}));
  EXPECT_THROW(mount.doMount("slots/a", kSlotsType.typeName, info), Lum::NameInUseException);
  EXPECT_THROW(mount.doMount("slots/b", "Test::None", info), Lum::RangeException);
  MountInfo foreign = info;
  foreign.collectionInfoIs("other", 1);
  EXPECT_THROW(mount.doMount("slots/b", kSlotsType.typeName, foreign), Lum::RangeException);
}

}  // namespace
}  // namespace LumMemtab
