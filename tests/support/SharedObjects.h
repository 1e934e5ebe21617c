// Shared-memory objects in tests: unique names, removal when a test ends (also when it
// fails), and damage done to a table as a stray writer would.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TestSupport {

// An agent name no other test process uses: the pid keeps parallel runs apart.
inline std::string uniqueAgentName(std::string_view tag) {
  return "test" + std::to_string(::getpid()) + "-" + std::string(tag);
}

// Unlinks the object when the scope ends; unlinking one that was never made is fine.
class SharedObjectGuard {
 public:
  explicit SharedObjectGuard(std::string name) : name_(std::move(name)) {}
  ~SharedObjectGuard() { ::shm_unlink(name_.c_str()); }
  SharedObjectGuard(const SharedObjectGuard&) = delete;
  SharedObjectGuard& operator=(const SharedObjectGuard&) = delete;
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

// Flips bits of one byte of the object through a writable mapping of its own, as a
// stray writer would, behind the back of the table that owns it.
inline void flipByte(const std::string& name, size_t offset, unsigned char bits) {
  const int fd = ::shm_open(name.c_str(), O_RDWR, 0);
  if (fd < 0) throw std::runtime_error("shm_open " + name);
  void* p = ::mmap(nullptr, offset + 1, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ::close(fd);
  if (p == MAP_FAILED) throw std::runtime_error("mmap " + name);
  static_cast<unsigned char*>(p)[offset] ^= bits;
  ::munmap(p, offset + 1);
}

}  // namespace TestSupport
