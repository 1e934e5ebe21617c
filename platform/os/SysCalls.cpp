#include "platform/os/SysCalls.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace Lum {

namespace {

// Null means the real service; see TimeSource.cpp for why the default is not stored.
SysCalls* current = nullptr;

SysCalls& realSysCalls() {
  // Never destroyed: descriptors may still be closed by objects destroyed at exit.
  static SysCalls* service = new SysCalls;
  return *service;
}

// Read right behind the call, before anything else can overwrite errno.
SysResult withErrno(ssize_t rc) {
  return {rc, rc < 0 ? errno : 0};
}

}  // namespace

int SysCalls::socket(int domain, int type, int protocol) {
  return ::socket(domain, type, protocol);
}

int SysCalls::socketpair(int domain, int type, int protocol, int fds[2]) {
  return ::socketpair(domain, type, protocol, fds);
}

int SysCalls::close(int fd) {
  return ::close(fd);
}

int SysCalls::fcntl(int fd, int cmd, int arg) {
  return ::fcntl(fd, cmd, arg);
}

int SysCalls::ioctl(int fd, unsigned long request, void* arg) {
  return ::ioctl(fd, request, arg);
}

int SysCalls::bind(int fd, const sockaddr* addr, socklen_t len) {
  return ::bind(fd, addr, len);
}

int SysCalls::connect(int fd, const sockaddr* addr, socklen_t len) {
  return ::connect(fd, addr, len);
}

int SysCalls::getsockname(int fd, sockaddr* addr, socklen_t* len) {
  return ::getsockname(fd, addr, len);
}

int SysCalls::setsockopt(int fd, int level, int name, const void* value, socklen_t len) {
  return ::setsockopt(fd, level, name, value, len);
}

int SysCalls::getsockopt(int fd, int level, int name, void* value, socklen_t* len) {
  return ::getsockopt(fd, level, name, value, len);
}

int SysCalls::listen(int fd, int backlog) {
  return ::listen(fd, backlog);
}

int SysCalls::accept4(int fd, sockaddr* addr, socklen_t* len, int flags) {
  return ::accept4(fd, addr, len, flags);
}

SysResult SysCalls::read(int fd, void* buf, size_t len) {
  return withErrno(::read(fd, buf, len));
}

SysResult SysCalls::write(int fd, const void* buf, size_t len) {
  return withErrno(::write(fd, buf, len));
}

SysResult SysCalls::recv(int fd, void* buf, size_t len, int flags) {
  return withErrno(::recv(fd, buf, len, flags));
}

ssize_t SysCalls::recvfrom(int fd, void* buf, size_t len, int flags, sockaddr* from,
                           socklen_t* fromLen) {
  return ::recvfrom(fd, buf, len, flags, from, fromLen);
}

ssize_t SysCalls::recvmsg(int fd, msghdr* msg, int flags) {
  return ::recvmsg(fd, msg, flags);
}

int SysCalls::recvmmsg(int fd, mmsghdr* msgs, unsigned int count, int flags, timespec* timeout) {
  return ::recvmmsg(fd, msgs, count, flags, timeout);
}

ssize_t SysCalls::send(int fd, const void* buf, size_t len, int flags) {
  return ::send(fd, buf, len, flags);
}

SysResult SysCalls::sendto(int fd, const void* buf, size_t len, int flags, const sockaddr* to,
                           socklen_t toLen) {
  return withErrno(::sendto(fd, buf, len, flags, to, toLen));
}

ssize_t SysCalls::sendmsg(int fd, const msghdr* msg, int flags) {
  return ::sendmsg(fd, msg, flags);
}

int SysCalls::sendmmsg(int fd, mmsghdr* msgs, unsigned int count, int flags) {
  return ::sendmmsg(fd, msgs, count, flags);
}

int SysCalls::open(const char* path, int flags, mode_t mode) {
  return ::open(path, flags, mode);
}

int SysCalls::unlink(const char* path) {
  return ::unlink(path);
}

int SysCalls::setns(int fd, int nstype) {
  return ::setns(fd, nstype);
}

int SysCalls::setrlimit(int resource, const rlimit* limit) {
  return ::setrlimit(static_cast<__rlimit_resource_t>(resource), limit);
}

int SysCalls::bpf(int cmd, void* attr, unsigned int size) {
  return static_cast<int>(::syscall(SYS_bpf, cmd, attr, size));
}

unsigned int SysCalls::ifNameToIndex(const char* name) {
  return ::if_nametoindex(name);
}

int SysCalls::shmOpen(const char* name, int flags, mode_t mode) {
  return ::shm_open(name, flags, mode);
}

int SysCalls::shmUnlink(const char* name) {
  return ::shm_unlink(name);
}

int SysCalls::ftruncate(int fd, off_t length) {
  return ::ftruncate(fd, length);
}

int SysCalls::fstat(int fd, struct stat* st) {
  return ::fstat(fd, st);
}

int SysCalls::mkdir(const char* path, mode_t mode) {
  return ::mkdir(path, mode);
}

int SysCalls::lstat(const char* path, struct stat* st) {
  return ::lstat(path, st);
}

int SysCalls::chmod(const char* path, mode_t mode) {
  return ::chmod(path, mode);
}

int SysCalls::fchmod(int fd, mode_t mode) {
  return ::fchmod(fd, mode);
}

int SysCalls::flock(int fd, int operation) {
  return ::flock(fd, operation);
}

ssize_t SysCalls::pread(int fd, void* buf, size_t len, off_t offset) {
  return ::pread(fd, buf, len, offset);
}

void* SysCalls::mmap(void* addr, size_t length, int prot, int flags, int fd, off_t offset) {
  return ::mmap(addr, length, prot, flags, fd, offset);
}

int SysCalls::munmap(void* addr, size_t length) {
  return ::munmap(addr, length);
}

SysCalls& sysCalls() {
  return current ? *current : realSysCalls();
}

ScopedSysCalls::ScopedSysCalls(SysCalls& service) : previous_(current) {
  current = &service;
}

ScopedSysCalls::~ScopedSysCalls() {
  current = previous_;
}

}  // namespace Lum
