#include "platform/memtab/MemtabTable.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/core/Exception.h"
#include "platform/memtab/Memtab.h"
#include "platform/os/SysCalls.h"
#include "platform/trace/Trace.h"

namespace LumMemtab {

namespace {

// Tables are the writer's alone: closed to other users, whose processes could forge
// counts or truncate the object under the writer's mapping.
constexpr mode_t kObjectMode = 0600;
// The most a reader copies of an object it has not yet checked.
constexpr size_t kMaxTableBytes = 16u << 20;

Lum::TraceFacility& traceLum = Lum::traceFacility("RootPathBase::Lum");

// The descriptor of a shared-memory object for the length of its set-up: the mapping
// outlives it.
class ObjectDescriptor {
 public:
  explicit ObjectDescriptor(int fd) : fd_(fd) {}
  ~ObjectDescriptor() {
    if (fd_ >= 0) Lum::sysCalls().close(fd_);
  }
  ObjectDescriptor(const ObjectDescriptor&) = delete;
  ObjectDescriptor& operator=(const ObjectDescriptor&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

uint64_t objectSize(const ObjectDescriptor& fd, const std::string& objectName) {
  struct stat st {};
  if (Lum::sysCalls().fstat(fd.fd(), &st) != 0) {
    throw Lum::ErrnoException(errno, "fstat " + objectName);
  }
  return static_cast<uint64_t>(st.st_size);
}

// Why the object of `foundBytes` at `base` cannot be kept as a table of `wanted`; empty
// when it can.
std::string mismatch(const unsigned char* base, uint64_t foundBytes, const Layout& wanted,
                     const std::string& objectName) {
  if (foundBytes != wanted.layoutBytes()) {
    return "object of " + std::to_string(foundBytes) + " bytes, layout of " +
           std::to_string(wanted.layoutBytes());
  }
  try {
    if (Layout::parse(base, foundBytes, objectName) != wanted) {
      return "another layout of the same size";
    }
  } catch (const Memtab::CorruptionDetectedException& e) {
    return e.what();
  }
  return {};
}

// Element `i` of `elementBytes` width at `at`, widened.
uint64_t loadElement(const unsigned char* at, uint32_t i, uint32_t elementBytes) {
  const unsigned char* p = at + static_cast<size_t>(i) * elementBytes;
  switch (elementBytes) {
    case 8: {
      uint64_t v;
      std::memcpy(&v, p, sizeof v);
      return v;
    }
    case 4: {
      uint32_t v;
      std::memcpy(&v, p, sizeof v);
      return v;
    }
    case 2: {
      uint16_t v;
      std::memcpy(&v, p, sizeof v);
      return v;
    }
    default:
      return *p;
  }
}

// Why an existing object is not this process's to adopt; empty when it is.
std::string foreignOwner(int fd, const std::string& objectName) {
  struct stat st {};
  if (Lum::sysCalls().fstat(fd, &st) != 0) throw Lum::ErrnoException(errno, "fstat " + objectName);
  if (st.st_uid != ::geteuid()) return "owned by uid " + std::to_string(st.st_uid);
  if ((st.st_mode & 0077) != 0) return "open to other users";
  return {};
}

// The descriptor of the object, made anew when the one there is not ours to keep.
int openOwnObject(const std::string& objectName) {
  Lum::SysCalls& sys = Lum::sysCalls();
  const int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
  int fd = sys.shmOpen(objectName.c_str(), flags, kObjectMode);
  // EACCES: another user's object that this user may not even open.
  if (fd < 0 && errno != EACCES) throw Lum::ErrnoException(errno, "shm_open " + objectName);
  const std::string why = fd < 0 ? std::string("not readable") : foreignOwner(fd, objectName);
  if (!why.empty()) {
    LUM_TRACE(traceLum, 0, "Table(" << objectName << ")::openOrCreate() replaced: " << why);
    if (fd >= 0) sys.close(fd);
    if (sys.shmUnlink(objectName.c_str()) != 0) {
      throw Lum::ErrnoException(errno, "shm_unlink " + objectName + " (" + why + ")");
    }
    fd = sys.shmOpen(objectName.c_str(), flags | O_EXCL, kObjectMode);
    if (fd < 0) throw Lum::ErrnoException(errno, "shm_open " + objectName);
  }
  // The mode asked of shm_open is cut by the umask; the object must be exactly ours.
  if (sys.fchmod(fd, kObjectMode) != 0) {
    const int err = errno;
    sys.close(fd);
    throw Lum::ErrnoException(err, "fchmod " + objectName);
  }
  return fd;
}

}  // namespace

Mapping::Mapping(Mapping&& o) noexcept
    : base_(std::exchange(o.base_, nullptr)), bytes_(std::exchange(o.bytes_, 0)) {}

Mapping& Mapping::operator=(Mapping&& o) noexcept {
  if (this != &o) {
    Mapping old(std::move(*this));
    base_ = std::exchange(o.base_, nullptr);
    bytes_ = std::exchange(o.bytes_, 0);
  }
  return *this;
}

Mapping::~Mapping() {
  if (base_) Lum::sysCalls().munmap(base_, bytes_);
}

Mapping Mapping::map(int fd, size_t bytes, int prot, const std::string& objectName) {
  void* base = Lum::sysCalls().mmap(nullptr, bytes, prot, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) throw Lum::ErrnoException(errno, "mmap " + objectName);
  return Mapping(base, bytes);
}

std::shared_ptr<Table> Table::openOrCreate(const std::string& objectName, const Layout& layout) {
  ObjectDescriptor fd(openOwnObject(objectName));
  const uint64_t found = objectSize(fd, objectName);
  if (found != layout.layoutBytes() &&
      Lum::sysCalls().ftruncate(fd.fd(), static_cast<off_t>(layout.layoutBytes())) != 0) {
    throw Lum::ErrnoException(errno, "ftruncate " + objectName);
  }
  Mapping mapping = Mapping::map(fd.fd(), layout.layoutBytes(), PROT_READ | PROT_WRITE, objectName);

  // A new object comes zeroed from ftruncate. An old one is kept only when it is
  // exactly this layout: anything else would place counts under the wrong ids.
  if (found == 0) {
    layout.writeHeader(mapping.base());
  } else if (const std::string why = mismatch(mapping.base(), found, layout, objectName);
             !why.empty()) {
    LUM_TRACE(traceLum, 0,
              "Table(" << objectName << ")::openOrCreate() re-initialised, counts lost: " << why);
    std::memset(mapping.base(), 0, mapping.bytes());
    layout.writeHeader(mapping.base());
  }
  return std::shared_ptr<Table>(new Table(objectName, std::move(mapping), layout));
}

Table::Table(std::string objectName, Mapping mapping, Layout layout)
    : objectName_(std::move(objectName)),
      mapping_(std::move(mapping)),
      layout_(std::move(layout)),
      sealMagic_(loadWord(0)),
      sealVersion_(loadWord(1)) {}

void Table::headerRewrite() {
  layout_.writeHeader(mapping_.base());
}

void Table::elementsClear() {
  const uint32_t header = layout_.headerBytes();
  std::memset(mapping_.base() + header, 0, mapping_.bytes() - header);
}

void Table::throwSealBroken() const {
  // Name the word that changed: a changed magic word usually means the table was
  // overwritten wholesale, a changed version word that one field was.
  const bool magic = loadWord(0) != sealMagic_;
  throw Memtab::CorruptionDetectedException(
      "shared table " + objectName_ +
      " damaged: " + (magic ? "bad magic" : "bad version or header checksum"));
}

const CollectionLayout& Table::collectionOfWidth(std::string_view name, size_t bytes) const {
  const CollectionLayout* c = layout_.collection(name);
  if (!c || c->elementBytes != bytes) {
    Lum::throwRangeException("shared table " + objectName_ + " has no collection \"" +
                             std::string(name) + "\" of " + std::to_string(bytes) +
                             "-byte elements");
  }
  return *c;
}

TableReader TableReader::open(const std::string& objectName) {
  const int fd = Lum::sysCalls().shmOpen(objectName.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC, 0);
  if (fd < 0) throw Lum::ErrnoException(errno, "shm_open " + objectName);
  // Owned from here: the reader closes it, also when the header is refused below.
  TableReader reader(objectName, fd, Layout());
  const std::vector<unsigned char> bytes = reader.snapshot(kMaxTableBytes);
  if (bytes.size() < sizeof(TableHeader)) {
    throw Memtab::CorruptionDetectedException(
        "shared table " + objectName + " damaged: object of " + std::to_string(bytes.size()) +
        " bytes has no header");
  }
  reader.layout_ = Layout::parse(bytes.data(), bytes.size(), objectName);
  return reader;
}

TableReader::TableReader(std::string objectName, int fd, Layout layout)
    : objectName_(std::move(objectName)), fd_(fd), layout_(std::move(layout)) {}

TableReader::TableReader(TableReader&& o) noexcept
    : objectName_(std::move(o.objectName_)),
      fd_(std::exchange(o.fd_, -1)),
      layout_(std::move(o.layout_)) {}

TableReader::~TableReader() {
  if (fd_ >= 0) Lum::sysCalls().close(fd_);
}

std::vector<unsigned char> TableReader::snapshot(size_t limit) const {
  std::vector<unsigned char> bytes(limit);
  size_t got = 0;
  while (got < limit) {
    const ssize_t n =
        Lum::sysCalls().pread(fd_, bytes.data() + got, limit - got, static_cast<off_t>(got));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw Lum::ErrnoException(errno, "read " + objectName_);
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  bytes.resize(got);
  return bytes;
}

std::vector<uint64_t> TableReader::elements(std::string_view collection,
                                            uint32_t elementBytes) const {
  const std::vector<unsigned char> bytes = snapshot(layout_.layoutBytes());
  if (bytes.size() < layout_.layoutBytes()) {
    throw Memtab::CorruptionDetectedException("shared table " + objectName_ + " shrunk to " +
                                              std::to_string(bytes.size()) + " bytes");
  }
  if (Layout::parse(bytes.data(), bytes.size(), objectName_) != layout_) {
    throw Memtab::CorruptionDetectedException("shared table " + objectName_ +
                                              " laid out again since it was opened");
  }
  const CollectionLayout* c = layout_.collection(collection);
  if (!c || c->elementBytes != elementBytes) {
    throw Memtab::CorruptionDetectedException(
        "shared table " + objectName_ + " has no collection \"" + std::string(collection) +
        "\" of " + std::to_string(elementBytes) + "-byte elements");
  }
  std::vector<uint64_t> out(c->elementCount);
  // The copy is private: plain loads. The writer stores aligned words, which pread()
  // copies whole, so no count comes out torn.
  const unsigned char* at = bytes.data() + c->offset;
  for (uint32_t i = 0; i < c->elementCount; ++i) out[i] = loadElement(at, i, elementBytes);
  return out;
}

}  // namespace LumMemtab
