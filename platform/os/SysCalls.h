// The system-call service: the one door through which logic reaches the kernel's
// socket, descriptor and resource calls, so that tests can make any of them fail.
//
// Each method has the signature and the semantics of the call it is named after:
// it returns what the call returns and, on failure, -1 (0 for ifNameToIndex,
// MAP_FAILED for mmap) with errno set. The data calls read, write, recv and sendto are
// the exception: they return a SysResult that carries the errno with the result, taken
// at the call, so that a trace or a ring record between the call and the check of its
// error cannot change the error seen. The base class calls the real ones. A test fake
// derives and overrides only the calls it wants to fail or observe; everything else
// still reaches the kernel:
//
//   struct BindInUse : Lum::SysCalls {
//     int bind(int, const sockaddr*, socklen_t) override { errno = EADDRINUSE; return -1; }
//     Lum::SysResult write(int, const void*, size_t) override { return {-1, ENETDOWN}; }
//   };
//   BindInUse fake;
//   Lum::ScopedSysCalls guard(fake);   // Lum::sysCalls() is `fake` until the scope ends
//
// Code reaches the service either through `Lum::sysCalls()` or through a `SysCalls&`
// given to its constructor. Guards nest and restore the previous service; the current
// service is process-wide (the agent runs on one thread).
//
// Descriptors, lengths and indexes stay the kernel's raw integer types here on
// purpose: this is the boundary where strong types are unwrapped.
#pragma once

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

namespace Lum {

// The result of a data call: `rc` as the call returned it (-1 on failure), and `err`,
// the errno of a failure taken at once (0 when the call succeeded).
struct SysResult {
  ssize_t rc;
  int err;
  bool failed() const { return rc < 0; }
};

class SysCalls {
 public:
  virtual ~SysCalls() = default;

  // Descriptors.
  virtual int socket(int domain, int type, int protocol);
  virtual int socketpair(int domain, int type, int protocol, int fds[2]);
  virtual int close(int fd);
  virtual int fcntl(int fd, int cmd, int arg);
  virtual int ioctl(int fd, unsigned long request, void* arg);

  // Addresses and options.
  virtual int bind(int fd, const sockaddr* addr, socklen_t len);
  virtual int connect(int fd, const sockaddr* addr, socklen_t len);
  virtual int getsockname(int fd, sockaddr* addr, socklen_t* len);
  virtual int setsockopt(int fd, int level, int name, const void* value, socklen_t len);
  virtual int getsockopt(int fd, int level, int name, void* value, socklen_t* len);
  virtual int listen(int fd, int backlog);
  virtual int accept4(int fd, sockaddr* addr, socklen_t* len, int flags);

  // Data.
  virtual SysResult read(int fd, void* buf, size_t len);
  virtual SysResult write(int fd, const void* buf, size_t len);
  virtual SysResult recv(int fd, void* buf, size_t len, int flags);
  virtual ssize_t recvfrom(int fd, void* buf, size_t len, int flags, sockaddr* from,
                           socklen_t* fromLen);
  virtual ssize_t recvmsg(int fd, msghdr* msg, int flags);
  virtual int recvmmsg(int fd, mmsghdr* msgs, unsigned int count, int flags, timespec* timeout);
  virtual ssize_t send(int fd, const void* buf, size_t len, int flags);
  virtual SysResult sendto(int fd, const void* buf, size_t len, int flags, const sockaddr* to,
                           socklen_t toLen);
  virtual ssize_t sendmsg(int fd, const msghdr* msg, int flags);
  virtual int sendmmsg(int fd, mmsghdr* msgs, unsigned int count, int flags);

  // Files, limits, namespaces and interfaces.
  virtual int open(const char* path, int flags, mode_t mode);
  virtual int unlink(const char* path);
  // setns(2): moves the calling thread into the namespace that `fd` refers to.
  virtual int setns(int fd, int nstype);
  virtual int setrlimit(int resource, const rlimit* limit);
  // if_nametoindex: 0 with errno set when there is no such interface.
  virtual unsigned int ifNameToIndex(const char* name);
  // bpf(2): `attr` is the command's union bpf_attr, `size` its size.
  virtual int bpf(int cmd, void* attr, unsigned int size);

  // Shared-memory objects and mappings.
  virtual int shmOpen(const char* name, int flags, mode_t mode);
  virtual int shmUnlink(const char* name);
  virtual int ftruncate(int fd, off_t length);
  virtual int fstat(int fd, struct stat* st);
  virtual void* mmap(void* addr, size_t length, int prot, int flags, int fd, off_t offset);
  virtual int munmap(void* addr, size_t length);

  // Owner-only files and folders: the runtime folder, sockets, locks.
  virtual int mkdir(const char* path, mode_t mode);
  virtual int lstat(const char* path, struct stat* st);
  virtual int chmod(const char* path, mode_t mode);
  virtual int fchmod(int fd, mode_t mode);
  virtual int flock(int fd, int operation);
  virtual ssize_t pread(int fd, void* buf, size_t len, off_t offset);
};

// The current service.
SysCalls& sysCalls();

// Makes `service` the current service for the guard's lifetime. Guards must end in
// the reverse order of their construction.
class ScopedSysCalls {
 public:
  explicit ScopedSysCalls(SysCalls& service);
  ~ScopedSysCalls();
  ScopedSysCalls(const ScopedSysCalls&) = delete;
  ScopedSysCalls& operator=(const ScopedSysCalls&) = delete;

 private:
  SysCalls* previous_;
};

}  // namespace Lum
