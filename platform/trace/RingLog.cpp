#include "platform/trace/RingLog.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/core/Exception.h"

namespace RingLog {

namespace {

constexpr uint32_t align8(uint32_t n) {
  return (n + 7u) & ~7u;
}

void storeU32(unsigned char* p, uint32_t v) {
  std::memcpy(p, &v, sizeof v);
}

// Every registered site, in id order. Never destroyed: sites may log while statics of
// other files are torn down.
std::vector<const MsgDesc*>& registeredDescs() {
  static auto* descs = new std::vector<const MsgDesc*>;
  return *descs;
}

// "%d" becomes the pid; a relative result goes into $RINGLOGDIR when that is set.
std::string resolvedPath(std::string_view name) {
  std::string expanded;
  const std::string pid = std::to_string(::getpid());
  for (size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '%' && i + 1 < name.size() && name[i + 1] == 'd') {
      expanded += pid;
      ++i;
    } else {
      expanded += name[i];
    }
  }
  const char* dir = std::getenv("RINGLOGDIR");
  if (dir != nullptr && *dir != '\0' && !expanded.starts_with('/')) {
    std::string joined(dir);
    if (!joined.ends_with('/')) joined += '/';
    return joined + expanded;
  }
  return expanded;
}

std::string_view dirName(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash + 1);
}

// Makes `link` point at `target`, replacing an older link but never a real file.
void makeLink(const std::string& target, const std::string& link) {
  std::string pointTo = target;
  if (dirName(target) == dirName(link)) {
    pointTo = target.substr(dirName(target).size());  // relative: survives moving the folder
  } else if (!target.starts_with('/')) {
    char* absolute = ::realpath(target.c_str(), nullptr);
    if (absolute == nullptr) throw Lum::ErrnoException(errno, "resolve ring log " + target);
    pointTo = absolute;
    std::free(absolute);
  }
  struct stat st {};
  if (::lstat(link.c_str(), &st) == 0) {
    if (!S_ISLNK(st.st_mode)) throw Lum::ErrnoException(EEXIST, "link ring log as " + link);
    ::unlink(link.c_str());
  }
  if (::symlink(pointTo.c_str(), link.c_str()) != 0) {
    throw Lum::ErrnoException(errno, "link ring log as " + link);
  }
}

}  // namespace

// ---- MsgDesc -------------------------------------------------------------------------

MsgDesc::MsgDesc(const char* file, int line, const char* format)
    : file_(file == nullptr ? "" : file), line_(line), format_(format == nullptr ? "" : format) {
  auto& descs = registeredDescs();
  id_ = static_cast<uint32_t>(descs.size());
  descs.push_back(this);
  if (TraceFile* tf = TraceFile::current()) tf->descIs(*this);
}

size_t msgDescCount() {
  return registeredDescs().size();
}

// ---- RingBuf -------------------------------------------------------------------------

void RingBuf::put(std::string_view s) {
  size_t n = std::min<size_t>(s.size(), kMaxStringBytes);
  const uint32_t overhead = 1 + sizeof(uint16_t);
  if (staged_ + overhead + n > kStageLimit) {
    truncated_ = true;
    if (staged_ + overhead >= kStageLimit) return;
    n = kStageLimit - staged_ - overhead;
  }
  const auto len = static_cast<uint16_t>(n);
  stage_[staged_] = static_cast<unsigned char>(ArgType::str);
  std::memcpy(stage_ + staged_ + 1, &len, sizeof len);
  std::memcpy(stage_ + staged_ + overhead, s.data(), n);
  staged_ += overhead + static_cast<uint32_t>(n);
}

void RingBuf::endMsg() {
  if (truncated_) stage_[staged_++] = static_cast<unsigned char>(ArgType::truncated);
  const uint32_t bytes = align8(staged_);
  std::memset(stage_ + staged_, 0, bytes - staged_);
  unsigned char* at = reserve(bytes);
  std::memcpy(at + sizeof(RecordHeader), stage_ + sizeof(RecordHeader),
              bytes - sizeof(RecordHeader));
  commit(at, bytes, descId_);
}

void RingBuf::makeRoom() {
  RingHeader& h = *header_;
  if (clear_ != 0) {
    // Leaving a block: a zero word after its last record tells the decoder to go on at
    // the next block (there is room for one: records and blocks are 8-aligned).
    if (h.head < clear_) storeU32(data_ + h.head, 0);
    h.head = clear_ < h.dataBytes ? clear_ : 0;
    if (h.head == 0) ++h.wrapCount;
  }
  const uint32_t end = std::min(h.head + h.blockBytes, h.dataBytes);
  const bool empty = h.firstSeq == h.nextSeq;
  // The tail is always at a block start; in the block entered it is the oldest block,
  // and the chain goes on at the next block, whose first record is intact.
  if (!empty && h.tail == h.head) {
    const uint32_t next = end < h.dataBytes ? end : 0;
    if (next == h.head) {
      h.firstSeq = h.nextSeq;  // a ring of one block: everything goes
    } else {
      RecordHeader first;
      std::memcpy(&first, data_ + next, sizeof first);
      h.tail = next;
      h.firstSeq = first.seq;
    }
  }
  if (h.firstSeq == h.nextSeq) h.tail = h.head;
  clear_ = end;
}

// ---- Clock ---------------------------------------------------------------------------

uint64_t clockNs() {
  return recordClock.readNs();
}

// ---- TraceFile -----------------------------------------------------------------------

TraceFile::~TraceFile() {
  if (map_ != nullptr) ::munmap(map_, mapBytes_);
  if (fd_ >= 0) ::close(fd_);
}

void TraceFile::descIs(const MsgDesc& desc) {
  auto* fh = reinterpret_cast<FileHeader*>(map_);
  const size_t fileBytes = std::min<size_t>(std::strlen(desc.file()), 1024);
  const size_t formatBytes = std::min<size_t>(std::strlen(desc.format()), 4096);
  const auto entryBytes =
      align8(static_cast<uint32_t>(sizeof(DescEntry) + fileBytes + 1 + formatBytes + 1));
  if (fh->descBytesUsed + entryBytes > fh->descTableBytes) {
    ++fh->descDropped;
    return;
  }
  unsigned char* at = map_ + fh->descTableOffset + fh->descBytesUsed;
  const DescEntry entry{entryBytes, desc.id(), static_cast<uint32_t>(desc.line()),
                        static_cast<uint16_t>(fileBytes), static_cast<uint16_t>(formatBytes)};
  std::memcpy(at, &entry, sizeof entry);
  unsigned char* text = at + sizeof entry;
  std::memcpy(text, desc.file(), fileBytes);
  text[fileBytes] = '\0';
  std::memcpy(text + fileBytes + 1, desc.format(), formatBytes);
  text[fileBytes + 1 + formatBytes] = '\0';
  std::atomic_signal_fence(std::memory_order_seq_cst);
  fh->descBytesUsed += entryBytes;
  ++fh->descCount;
}

TraceFile* initialize(const char* name, const uint32_t sizes[kLevels], const char* secondName,
                      int flags) {
  if (name == nullptr || *name == '\0') Lum::throwRangeException("ring log file name is empty");
  uint64_t ringOffset[kLevels] = {};
  uint64_t total = kFileHeaderBytes + kDescTableBytes;
  for (int level = 0; level < kLevels; ++level) {
    if (sizes[level] > kMaxRingKiB) {
      Lum::throwRangeException("ring log level " + std::to_string(level) + " larger than " +
                               std::to_string(kMaxRingKiB) + " KiB");
    }
    if (sizes[level] == 0) continue;
    ringOffset[level] = total;
    total += sizeof(RingHeader) + uint64_t{sizes[level]} * 1024;
  }

  shutdown();
  std::unique_ptr<TraceFile> tf(new TraceFile);
  tf->flags_ = flags;
  tf->path_ = resolvedPath(name);
  // Never through a link and never into a file of someone else's: the folder may be
  // one that others can write (RINGLOGDIR), and the host may run as root.
  tf->fd_ = ::open(tf->path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (tf->fd_ < 0) throw Lum::ErrnoException(errno, "create ring log " + tf->path_);
  struct stat st {};
  if (::fstat(tf->fd_, &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ::geteuid()) {
    throw Lum::ErrnoException(EPERM, "ring log " + tf->path_ + " is not a regular file of ours");
  }
  // Emptied first, so that every byte of the new size reads as zero.
  if (::ftruncate(tf->fd_, 0) != 0 || ::ftruncate(tf->fd_, static_cast<off_t>(total)) != 0) {
    const int err = errno;
    ::unlink(tf->path_.c_str());
    throw Lum::ErrnoException(err, "size ring log " + tf->path_);
  }
  void* map = ::mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, tf->fd_, 0);
  if (map == MAP_FAILED) {
    const int err = errno;
    ::unlink(tf->path_.c_str());
    throw Lum::ErrnoException(err, "map ring log " + tf->path_);
  }
  tf->map_ = static_cast<unsigned char*>(map);
  tf->mapBytes_ = total;

  // The file is fresh from ftruncate, so every field not set here is zero.
  auto* fh = reinterpret_cast<FileHeader*>(tf->map_);
  fh->version = kVersion;
  fh->levelCount = kLevels;
  fh->pid = static_cast<uint32_t>(::getpid());
  fh->descTableBytes = kDescTableBytes;
  fh->descTableOffset = kFileHeaderBytes;
  fh->createdNs = clockNs();
  for (int level = 0; level < kLevels; ++level) {
    fh->ringOffset[level] = ringOffset[level];
    if (ringOffset[level] == 0) continue;
    auto* rh = reinterpret_cast<RingHeader*>(tf->map_ + ringOffset[level]);
    rh->dataBytes = sizes[level] * 1024;
    // Whole KiB, so that every block, the last one too, holds the largest record.
    rh->blockBytes = std::max<uint32_t>(sizes[level] / 8, 1) * 1024;
    rh->level = static_cast<uint32_t>(level);
    tf->rings_[level].reset(new RingBuf(rh, tf->map_ + ringOffset[level] + sizeof(RingHeader)));
  }
  for (const MsgDesc* desc : registeredDescs()) tf->descIs(*desc);
  // Last, so a reader never takes a half-built file for a ring file.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  std::memcpy(fh->magic, kMagic, sizeof kMagic);

  if (secondName != nullptr && *secondName != '\0') {
    tf->secondPath_ = resolvedPath(secondName);
    try {
      makeLink(tf->path_, tf->secondPath_);
    } catch (...) {
      ::unlink(tf->path_.c_str());
      throw;
    }
  }
  TraceFile::current_ = tf.release();
  return TraceFile::current_;
}

void shutdown() {
  TraceFile* tf = TraceFile::current_;
  if (tf == nullptr) return;
  TraceFile::current_ = nullptr;
  if ((tf->flags_ & kRemoveAtShutdown) != 0) {
    ::unlink(tf->path_.c_str());
    if (!tf->secondPath_.empty()) ::unlink(tf->secondPath_.c_str());
  }
  delete tf;
}

}  // namespace RingLog
