#include "platform/wire/ArpNeighbor.h"

#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include <cerrno>

#include "platform/os/SysCalls.h"

namespace Arp {

namespace {

// Enough for the request and for an error answer, which repeats the request.
constexpr size_t kMessageBytes = 512;

uint32_t nextSequence() {
  static uint32_t seq = 0;
  return ++seq;
}

}  // namespace

int ipNeighAdd(int netlinkSocket, int ifindex, Wire::IpAddr ip, Wire::EthAddr mac,
               NeighState state) {
  alignas(nlmsghdr) uint8_t buf[kMessageBytes];
  nlmsghdr* nlh = mnl_nlmsg_put_header(buf);
  nlh->nlmsg_type = RTM_NEWNEIGH;
  nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_REPLACE | NLM_F_ACK;
  nlh->nlmsg_seq = nextSequence();
  auto* ndm = static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ndmsg)));
  ndm->ndm_family = AF_INET;
  ndm->ndm_ifindex = ifindex;
  ndm->ndm_state = static_cast<uint16_t>(state);
  ndm->ndm_type = RTN_UNICAST;
  const uint32_t dst = ip.value();
  mnl_attr_put(nlh, NDA_DST, sizeof dst, &dst);
  mnl_attr_put(nlh, NDA_LLADDR, mac.bytes().size(), mac.bytes().data());

  Lum::SysCalls& sys = Lum::sysCalls();
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  const Lum::SysResult sent = sys.sendto(netlinkSocket, nlh, nlh->nlmsg_len, 0,
                                         reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel);
  if (sent.failed()) return -sent.err;
  const uint32_t seq = nlh->nlmsg_seq;
  for (;;) {
    const Lum::SysResult got = sys.recv(netlinkSocket, buf, sizeof buf, 0);
    if (got.failed()) return -got.err;
    const auto* answer = reinterpret_cast<const nlmsghdr*>(buf);
    if (mnl_nlmsg_ok(answer, static_cast<int>(got.rc)) && answer->nlmsg_seq != seq) {
      continue;  // the late answer to an earlier request
    }
    // No callbacks: an answer is an error message, which mnl_cb_run turns into -1
    // with the kernel's errno, or into MNL_CB_STOP when the error is 0 (the ack).
    const int rc = mnl_cb_run(buf, static_cast<size_t>(got.rc), seq, 0, nullptr, nullptr);
    if (rc == MNL_CB_STOP) return 0;
    if (rc == MNL_CB_ERROR) return errno > 0 ? -errno : -EPROTO;
  }
}

}  // namespace Arp
