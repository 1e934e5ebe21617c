// TestSupport::SocketPairs: a system-call fake for code that opens sockets on devices.
// A socket of a paired domain (of any domain when none is named) is one end of a
// datagram socket pair: the test reaches the other end through peer(), and closing
// the socket closes both. SIOCGIFINDEX on such a socket answers from `devices`,
// reading the name as the kernel does (at most 15 bytes); binding one succeeds without
// the kernel and records a packet socket's device index and protocol. bind() fails
// while `failBind` is set; other sockets and calls reach the kernel.
#pragma once

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "platform/os/SysCalls.h"

namespace TestSupport {

class SocketPairs : public Lum::SysCalls {
 public:
  explicit SocketPairs(std::set<int> pairedDomains = {}) : paired_(std::move(pairedDomains)) {}
  ~SocketPairs() override {
    for (auto [fd, other] : peer_) ::close(fd), ::close(other);
  }
  int socket(int domain, int type, int protocol) override {
    if (!paired_.empty() && !paired_.count(domain)) return SysCalls::socket(domain, type, protocol);
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_DGRAM, 0, fds) < 0) return -1;
    peer_[fds[0]] = fds[1];
    ++opened;
    openProtocols.insert(protocol);
    return fds[0];
  }
  int ioctl(int fd, unsigned long request, void* arg) override {
    if (request != SIOCGIFINDEX || !peer_.count(fd)) return SysCalls::ioctl(fd, request, arg);
    auto* req = static_cast<ifreq*>(arg);
    auto it = devices.find(std::string(req->ifr_name, strnlen(req->ifr_name, IFNAMSIZ - 1)));
    if (it == devices.end()) return errno = ENODEV, -1;
    req->ifr_ifindex = it->second;
    return 0;
  }
  int bind(int fd, const sockaddr* addr, socklen_t len) override {
    if (!peer_.count(fd)) return SysCalls::bind(fd, addr, len);
    if (failBind) return errno = failBind, -1;
    if (addr->sa_family == AF_PACKET) {
      const auto* ll = reinterpret_cast<const sockaddr_ll*>(addr);
      boundIndex[fd] = ll->sll_ifindex;
      boundProtocol[fd] = ntohs(ll->sll_protocol);
    }
    return 0;
  }
  int close(int fd) override {
    if (auto it = peer_.find(fd); it != peer_.end()) {
      ::close(it->second);
      peer_.erase(it);
      boundIndex.erase(fd);
    }
    return SysCalls::close(fd);
  }
  size_t openCount() const { return peer_.size(); }
  bool isOpen(int fd) const { return peer_.count(fd) != 0; }
  int peer(int fd) const { return peer_.at(fd); }

  std::map<std::string, int> devices;
  std::map<int, int> boundIndex;
  std::map<int, int> boundProtocol;
  std::set<int> openProtocols;
  int opened = 0;
  int failBind = 0;  // errno of every bind of a paired socket while set

 private:
  std::set<int> paired_;
  std::map<int, int> peer_;
};

}  // namespace TestSupport
