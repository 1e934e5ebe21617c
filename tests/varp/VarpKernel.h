// The kernel as virtual ARP meets it, for unit tests: sockets that open, bind and take
// options; every frame or datagram sent, with where it went; devices by name; and the
// neighbor table's rtnetlink writes, each answered with `answer` (0: accepted).
#pragma once

#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if_packet.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/os/SysCalls.h"
#include "platform/types/EthAddr.h"

namespace TestSupport {

struct VarpKernel : Lum::SysCalls {
  struct Sent {
    int ifindex = 0;       // a packet socket's device
    uint32_t dstIp = 0;    // a UDP datagram's destination, network order
    uint16_t dstPort = 0;  // host order
    uint32_t srcIp = 0;    // the source asked for with IP_PKTINFO, 0 for none
    std::vector<uint8_t> bytes;
  };
  struct NeighborWrite {
    int fd;
    int ifindex;
    uint32_t ip;  // network order
    Wire::EthAddr mac;
  };
  std::vector<Sent> sent;
  std::vector<NeighborWrite> writes;
  std::map<std::string, unsigned> devices;
  int sendErrno = 0;
  int answer = 0;
  uint32_t seq = 0;

  // A real descriptor that the event loop can watch, on which nothing ever arrives.
  int socket(int, int, int) override { return ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }
  int bind(int, const sockaddr*, socklen_t) override { return 0; }
  int setsockopt(int, int, int, const void*, socklen_t) override { return 0; }
  int ioctl(int, unsigned long request, void* arg) override {
    if (request != SIOCGIFINDEX) return errno = EINVAL, -1;
    auto* req = static_cast<ifreq*>(arg);
    const unsigned index = ifNameToIndex(req->ifr_name);
    if (index == 0) return -1;
    req->ifr_ifindex = static_cast<int>(index);
    return 0;
  }
  unsigned ifNameToIndex(const char* name) override {
    auto it = devices.find(name);
    if (it == devices.end()) errno = ENODEV;
    return it == devices.end() ? 0 : it->second;
  }
  ssize_t sendmsg(int, const msghdr* msg, int) override {
    if (sendErrno) return errno = sendErrno, -1;
    Sent s;
    const auto* name = static_cast<const sockaddr*>(msg->msg_name);
    if (name && name->sa_family == AF_PACKET) {
      s.ifindex = reinterpret_cast<const sockaddr_ll*>(name)->sll_ifindex;
    } else if (name && name->sa_family == AF_INET) {
      const auto* in = reinterpret_cast<const sockaddr_in*>(name);
      s.dstIp = in->sin_addr.s_addr;
      s.dstPort = ntohs(in->sin_port);
    }
    for (cmsghdr* c = CMSG_FIRSTHDR(msg); c; c = CMSG_NXTHDR(const_cast<msghdr*>(msg), c)) {
      if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
        in_pktinfo info;
        std::memcpy(&info, CMSG_DATA(c), sizeof info);
        s.srcIp = info.ipi_spec_dst.s_addr;
      }
    }
    for (size_t i = 0; i < msg->msg_iovlen; ++i) {
      const auto* b = static_cast<const uint8_t*>(msg->msg_iov[i].iov_base);
      s.bytes.insert(s.bytes.end(), b, b + msg->msg_iov[i].iov_len);
    }
    sent.push_back(std::move(s));
    return static_cast<ssize_t>(sent.back().bytes.size());
  }
  // rtnetlink: a neighbor write is recorded; the next read answers it.
  Lum::SysResult sendto(int fd, const void* buf, size_t len, int, const sockaddr*,
                        socklen_t) override {
    const auto* nlh = static_cast<const nlmsghdr*>(buf);
    const auto* ndm = static_cast<const ndmsg*>(mnl_nlmsg_get_payload(nlh));
    NeighborWrite w{fd, ndm->ndm_ifindex, 0, {}};
    mnl_attr_parse(
        nlh, sizeof(ndmsg),
        [](const nlattr* attr, void* data) {
          auto* w = static_cast<NeighborWrite*>(data);
          const auto* p = static_cast<const uint8_t*>(mnl_attr_get_payload(attr));
          if (mnl_attr_get_type(attr) == NDA_DST) std::memcpy(&w->ip, p, 4);
          if (mnl_attr_get_type(attr) == NDA_LLADDR) w->mac = Wire::EthAddr::fromBytes(p);
          return int(MNL_CB_OK);
        },
        &w);
    writes.push_back(w);
    seq = nlh->nlmsg_seq;
    return {ssize_t(len), 0};
  }
  Lum::SysResult recv(int, void* buf, size_t, int) override {
    struct {
      nlmsghdr hdr;
      nlmsgerr err;
    } ack{};
    ack.hdr = {sizeof ack, NLMSG_ERROR, 0, seq, 0};
    ack.err.error = -answer;
    std::memcpy(buf, &ack, sizeof ack);
    return {ssize_t(sizeof ack), 0};
  }
};

}  // namespace TestSupport
