#include "tools/ctl/PcapFrame.h"

#include <pcap/pcap.h>

#include <memory>
#include <stdexcept>

namespace Ctl {

std::vector<uint8_t> pcapFrame(const std::string& file, unsigned index) {
  char err[PCAP_ERRBUF_SIZE] = "";
  const std::unique_ptr<pcap_t, void (*)(pcap_t*)> p(pcap_open_offline(file.c_str(), err),
                                                     pcap_close);
  if (!p) throw std::runtime_error(file + ": " + err);
  pcap_pkthdr* hdr = nullptr;
  const u_char* data = nullptr;
  for (unsigned n = 1;; ++n) {
    const int got = pcap_next_ex(p.get(), &hdr, &data);
    // The end of a file reads as a break.
    if (got == PCAP_ERROR_BREAK) {
      throw std::runtime_error(file + ": " + std::to_string(n - 1) + " frames, no frame " +
                               std::to_string(index));
    }
    if (got < 0) throw std::runtime_error(file + ": " + pcap_geterr(p.get()));
    if (n == index) return std::vector<uint8_t>(data, data + hdr->caplen);
  }
}

}  // namespace Ctl
