#include "platform/os/UdpIngressDrop.h"

#include <arpa/inet.h>
#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace Lum {

namespace {

// Not in every header set this is built with; the value is the kernel's ABI.
constexpr int kAttachTcxIngress = 46;  // BPF_TCX_INGRESS
// Program results at tcx: drop, or let the next program and then the kernel decide.
constexpr int32_t kTcxDrop = 2;
constexpr int32_t kTcxNext = -1;

constexpr bpf_insn insn(uint8_t code, uint8_t dst, uint8_t src, int16_t off, int32_t imm) {
  return bpf_insn{code, dst, src, off, imm};
}
// Where every failed test goes: the two instructions that end the program with "next".
constexpr int kNextAt = 20;
// The jump at index `at` to kNextAt: a 32-bit compare of a register with a constant.
constexpr bpf_insn nextIfNot(int at, uint8_t reg, uint32_t value) {
  return insn(BPF_JMP32 | BPF_JNE | BPF_K, reg, 0, static_cast<int16_t>(kNextAt - at - 1),
              static_cast<int32_t>(value));
}
// A load of `size` bytes at `off` of the frame (r2), as the memory holds them.
constexpr bpf_insn loadFrame(uint8_t size, int16_t off) {
  return insn(BPF_LDX | size | BPF_MEM, BPF_REG_5, BPF_REG_2, off, 0);
}

// Frame offsets: Ethernet type, IPv4 header (no options) and the UDP header behind it.
constexpr int16_t kEthType = 12;
constexpr int16_t kVerIhl = 14;
constexpr int16_t kFragOff = 20;
constexpr int16_t kProto = 23;
constexpr int16_t kDaddr = 30;
constexpr int16_t kDport = 36;
constexpr int32_t kHeaders = 42;

}  // namespace

// `addr` and `port` in network byte order: what a load of the frame's bytes gives.
int loadUdpIngressDrop(SysCalls& sys, uint32_t addr, uint16_t port) {
  const bpf_insn prog[] = {
      insn(BPF_LDX | BPF_W | BPF_MEM, BPF_REG_2, BPF_REG_1, offsetof(__sk_buff, data), 0),
      insn(BPF_LDX | BPF_W | BPF_MEM, BPF_REG_3, BPF_REG_1, offsetof(__sk_buff, data_end), 0),
      insn(BPF_ALU64 | BPF_MOV | BPF_X, BPF_REG_4, BPF_REG_2, 0, 0),
      insn(BPF_ALU64 | BPF_ADD | BPF_K, BPF_REG_4, 0, 0, kHeaders),
      insn(BPF_JMP | BPF_JGT | BPF_X, BPF_REG_4, BPF_REG_3, kNextAt - 5, 0),  // too short
      loadFrame(BPF_H, kEthType),
      nextIfNot(6, BPF_REG_5, htons(ETH_P_IP)),
      loadFrame(BPF_B, kVerIhl),
      nextIfNot(8, BPF_REG_5, 0x45),
      loadFrame(BPF_B, kProto),
      nextIfNot(10, BPF_REG_5, IPPROTO_UDP),
      loadFrame(BPF_H, kFragOff),
      insn(BPF_ALU | BPF_AND | BPF_K, BPF_REG_5, 0, 0, htons(0x3fff)),  // MF and offset
      nextIfNot(13, BPF_REG_5, 0),
      loadFrame(BPF_W, kDaddr),
      nextIfNot(15, BPF_REG_5, addr),
      loadFrame(BPF_H, kDport),
      nextIfNot(17, BPF_REG_5, port),
      insn(BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_0, 0, 0, kTcxDrop),
      insn(BPF_JMP | BPF_EXIT, 0, 0, 0, 0),
      insn(BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_0, 0, 0, kTcxNext),  // kNextAt
      insn(BPF_JMP | BPF_EXIT, 0, 0, 0, 0),
  };
  static_assert(std::size(prog) == kNextAt + 2);
  static const char kLicense[] = "GPL";
  bpf_attr attr;
  std::memset(&attr, 0, sizeof attr);
  attr.prog_type = BPF_PROG_TYPE_SCHED_CLS;
  attr.insns = reinterpret_cast<uintptr_t>(prog);
  attr.insn_cnt = static_cast<uint32_t>(std::size(prog));
  attr.license = reinterpret_cast<uintptr_t>(kLicense);
  attr.expected_attach_type = kAttachTcxIngress;
  return sys.bpf(BPF_PROG_LOAD, &attr, sizeof attr);
}

int attachUdpIngressDrop(SysCalls& sys, int ifIndex, uint32_t addr, uint16_t port) {
  const int prog = loadUdpIngressDrop(sys, addr, port);
  if (prog < 0) return -1;
  bpf_attr attr;
  std::memset(&attr, 0, sizeof attr);
  attr.link_create.prog_fd = static_cast<uint32_t>(prog);
  attr.link_create.target_ifindex = static_cast<uint32_t>(ifIndex);
  attr.link_create.attach_type = kAttachTcxIngress;
  const int link = sys.bpf(BPF_LINK_CREATE, &attr, sizeof attr);
  // The link holds the program.
  const int err = errno;
  sys.close(prog);
  errno = err;
  return link;
}

}  // namespace Lum
