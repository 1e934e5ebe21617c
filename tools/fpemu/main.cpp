// vxrelay-fpemu: plays a switch's forwarding plane for the agent on a Linux machine
// without one. It runs in the switch's network namespace until SIGINT or SIGTERM and
// then prints its counters (also on SIGUSR1) and exits 0; a bad configuration or a
// device it cannot open ends it at once with one line, `vxrelay-fpemu: <reason>`, and
// status 1.
//
//   vxrelay-fpemu --port host0:access:10 --port trunk1:trunk:10,20 --vxlan vxlan-p
//   vxrelay-fpemu --port host0:access:10 --txraw txraw-p
//   vxrelay-fpemu --port host0:access:10 --fabric fabric-p --vni 5010:10
//   vxrelay-fpemu --config ports.json
#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "tools/cli/CliParse.h"
#include "tools/fpemu/FpConfig.h"
#include "tools/fpemu/FpEmulator.h"

namespace {

int fail(const std::string& why) {
  std::cerr << "vxrelay-fpemu: " << why << "\n";
  return 1;
}

Fpemu::EmulatorConfig configFrom(const std::string& file, const std::vector<std::string>& ports,
                                 const std::string& vxlan, const std::string& txraw) {
  Fpemu::EmulatorConfig config;
  if (!file.empty()) {
    std::ifstream in(file);
    if (!in) throw std::invalid_argument("cannot read " + file);
    config = Fpemu::configOf(nlohmann::json::parse(in, nullptr, true));
  }
  for (const std::string& text : ports) config.ports.push_back(Fpemu::portOf(text));
  if (!vxlan.empty()) config.vxlanDevice = vxlan;
  if (!txraw.empty()) config.txRawDevice = txraw;
  Fpemu::check(config);
  return config;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vxrelay-fpemu: a switch's forwarding plane between host ports and the agent"};
  app.footer(
      "Examples:\n"
      "  vxrelay-fpemu --port ha:access:10 --vxlan vxlan-p --txraw txraw-p\n"
      "  vxrelay-fpemu --port ha:access:10 --underlay underlay --vtep 10.99.0.1 --r2l-port 16");
  std::string file;
  std::vector<std::string> ports;
  std::string vxlan;
  std::string txraw;
  app.add_option("--config", file, "JSON file with the ports and devices");
  app.add_option("--port", ports, "NAME:MODE:VLANS, MODE access, trunk or dot1q-tunnel");
  app.add_option("--vxlan", vxlan, "device to write local frames into (default vxlan-p)");
  app.add_option("--txraw", txraw, "device to read the agent's frames from (default txraw-p)");
  std::string underlay;
  std::string vtep;
  uint16_t vxlanPort = 4789;
  std::optional<uint16_t> r2lPort;
  app.add_option("--underlay", underlay,
                 "trap ARP inside VXLAN for the VTEP arriving on this device (with --vtep)");
  app.add_option("--vtep", vtep, "the VTEP address whose ARP is trapped");
  app.add_option("--vxlan-port", vxlanPort, "the VTEP's UDP port (default 4789)");
  app.add_option("--r2l-port", r2lPort,
                 "port id of the agent's decapsulated frames; their ARP is the trap's and dropped");
  std::string fabric;
  std::vector<std::string> vnis;
  app.add_option("--fabric", fabric,
                 "device to read the agent's whole datagrams from, decapsulated here");
  app.add_option("--vni", vnis, "VNI:VLAN, the VLAN of a VNI for what comes on --fabric");
  if (const std::optional<int> done = Cli::parse(app, "vxrelay-fpemu", argc, argv)) return *done;

  Fpemu::EmulatorConfig config;
  try {
    config = configFrom(file, ports, vxlan, txraw);
    if (!underlay.empty()) {
      in_addr a{};
      if (::inet_pton(AF_INET, vtep.c_str(), &a) != 1) {
        throw std::invalid_argument("--underlay needs --vtep with an IPv4 address");
      }
      config.underlayDevice = underlay;
      config.vtepAddr = a.s_addr;
      config.vxlanUdpPort = vxlanPort;
      config.r2lPortId = r2lPort;
    }
    config.fabricDevice = fabric;
    for (const std::string& text : vnis) Fpemu::vniMapEntryOf(text, config.vniToVlan);
    Fpemu::check(config);
  } catch (const std::exception& e) {
    return fail(e.what());
  }
  Lum::EventLoop& loop = Lum::eventLoop();
  try {
    Fpemu::FpEmulator emulator(config, loop, std::cout);
    std::cout << "vxrelay-fpemu: " << config.ports.size() << " ports, local frames to "
              << config.vxlanDevice << ", agent frames from " << config.txRawDevice;
    if (!config.underlayDevice.empty()) {
      std::cout << ", ARP for " << vtep << " trapped on " << config.underlayDevice;
    }
    std::cout << std::endl;
    loop.run();
    emulator.counters().print(std::cout);
  } catch (const std::exception& e) {
    return fail(e.what());
  }
  return 0;
}
