#include "platform/memtab/MemtabTable.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/core/Exception.h"
#include "platform/memtab/Memtab.h"
#include "platform/os/SysCalls.h"
#include "platform/trace/Trace.h"

namespace LumMemtab {

namespace {

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
  ObjectDescriptor fd(
      Lum::sysCalls().shmOpen(objectName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (fd.fd() < 0) throw Lum::ErrnoException(errno, "shm_open " + objectName);
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
  ObjectDescriptor fd(Lum::sysCalls().shmOpen(objectName.c_str(), O_RDONLY | O_CLOEXEC, 0));
  if (fd.fd() < 0) throw Lum::ErrnoException(errno, "shm_open " + objectName);
  const uint64_t bytes = objectSize(fd, objectName);
  if (bytes < sizeof(TableHeader)) {
    throw Memtab::CorruptionDetectedException("shared table " + objectName +
                                              " damaged: object of " + std::to_string(bytes) +
                                              " bytes has no header");
  }
  Mapping mapping = Mapping::map(fd.fd(), bytes, PROT_READ, objectName);
  Layout layout = Layout::parse(mapping.base(), mapping.bytes(), objectName);
  return TableReader(objectName, std::move(mapping), std::move(layout));
}

TableReader::TableReader(std::string objectName, Mapping mapping, Layout layout)
    : objectName_(std::move(objectName)),
      mapping_(std::move(mapping)),
      layout_(std::move(layout)) {}

std::vector<uint64_t> TableReader::elements(std::string_view collection,
                                            uint32_t elementBytes) const {
  if (Layout::parse(mapping_.base(), mapping_.bytes(), objectName_) != layout_) {
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
  const unsigned char* at = mapping_.base() + c->offset;
  for (uint32_t i = 0; i < c->elementCount; ++i) {
    switch (elementBytes) {
      case 8:
        out[i] = __atomic_load_n(reinterpret_cast<const uint64_t*>(at) + i, __ATOMIC_RELAXED);
        break;
      case 4:
        out[i] = __atomic_load_n(reinterpret_cast<const uint32_t*>(at) + i, __ATOMIC_RELAXED);
        break;
      case 2:
        out[i] = __atomic_load_n(reinterpret_cast<const uint16_t*>(at) + i, __ATOMIC_RELAXED);
        break;
      default:
        out[i] = __atomic_load_n(at + i, __ATOMIC_RELAXED);
        break;
    }
  }
  return out;
}

}  // namespace LumMemtab
