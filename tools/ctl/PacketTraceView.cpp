#include "tools/ctl/PacketTraceView.h"

#include <cctype>
#include <cstdio>
#include <stdexcept>

namespace Ctl {

namespace {

using nlohmann::json;

// A dump line: the offset, then up to 16 bytes in groups of two, as tcpdump -xx does.
void dumpHex(std::string& out, const std::string& hex) {
  const size_t bytes = hex.size() / 2;
  for (size_t at = 0; at < bytes; at += 16) {
    char offset[32];
    std::snprintf(offset, sizeof offset, "\t0x%04zx: ", at);
    out += offset;
    for (size_t i = at; i < bytes && i < at + 16; ++i) {
      if ((i - at) % 2 == 0) out += ' ';
      out += hex.substr(2 * i, 2);
    }
    out += "\n";
  }
}

std::string verdictLine(const json& a) {
  if (a.value("verdict", "") == "forwarded") {
    const size_t n = a["destinations"].size();
    return "verdict: forwarded to " + std::to_string(n) +
           (n == 1 ? " destination" : " destinations") + " (counts " +
           a["counter"].get<std::string>() + ")\n";
  }
  const std::string counter = a["counter"].is_string()
                                  ? a["counter"].get<std::string>()
                                  : a["reason"].get<std::string>() + ", counted nowhere";
  return "verdict: dropped (" + counter + ": " + a["why"].get<std::string>() + ")\n";
}

}  // namespace

std::string frameHex(std::string_view text) {
  std::string hex;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool wordStart = i == 0 || text[i - 1] == ' ' || text[i - 1] == '\t';
    if (wordStart && c == '0' && i + 1 < text.size() &&
        (text[i + 1] == 'x' || text[i + 1] == 'X')) {
      ++i;
    } else if (c == ' ' || c == '\t' || c == ':') {
      continue;
    } else if (std::isxdigit(static_cast<unsigned char>(c))) {
      hex += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else {
      throw std::invalid_argument("HEX: '" + std::string(1, c) + "' at " + std::to_string(i + 1) +
                                  " is not a hex digit");
    }
  }
  if (hex.empty()) throw std::invalid_argument("HEX: no bytes");
  if (hex.size() % 2 != 0) {
    throw std::invalid_argument("HEX: " + std::to_string(hex.size()) +
                                " digits, not two for each byte");
  }
  return hex;
}

std::string packetTraceView(const json& a) {
  const bool l2r = a.value("direction", "") == "l2r";
  std::string out = a.value("vti", "") + ": " + std::to_string(a.value("length", 0)) + " bytes, " +
                    (l2r ? "local-to-remote" : "remote-to-local") + " (" +
                    a.value("directionWhy", "") + ")\n";
  int n = 0;
  for (const json& s : a["steps"]) {
    char lead[32];
    std::snprintf(lead, sizeof lead, "%2d. %-13s", ++n, s["check"].get<std::string>().c_str());
    out += lead;
    out += s["passed"].get<bool>() ? "" : "failed: ";
    out += s["text"].get<std::string>() + "\n";
  }
  out += verdictLine(a);
  for (const json& note : a["notes"]) out += "note: " + note.get<std::string>() + "\n";
  for (const json& o : a["output"]) {
    out += "to " + o["to"].get<std::string>() + ", " + std::to_string(o["length"].get<int>()) +
           " bytes:\n";
    dumpHex(out, o["hex"].get<std::string>());
  }
  return out;
}

}  // namespace Ctl
