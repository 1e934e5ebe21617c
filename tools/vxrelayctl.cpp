// vxrelayctl: the operator's tool for a running vxrelay agent.
//
//   vxrelayctl counters [-a] [-i N] [-j]  the counter tables, from shared memory
//   vxrelayctl clear vxlan|varp           zero a table through the command channel
//   vxrelayctl state get [-j] PATH        an entity of the state database, as JSON
//   vxrelayctl state apply [--strict] FILE  apply a state document (all or nothing)
//   vxrelayctl state list [-j]            the mounted paths
//   vxrelayctl trace set LEVELS           the running agent's trace levels, as VXRELAY_TRACE
//                                         takes them (FACILITY/LEVELS,...)
//   vxrelayctl trace decode FILE...       trace ring files as text, merged by time
//   vxrelayctl show [-j]                  every VTI and a short virtual ARP section
//   vxrelayctl show interface [NAME] [-j] the VTIs (or one): devices, sockets, tables,
//                                         and why a direction does not forward
//   vxrelayctl show arp [-j]              pending lists, VRFs, MLAG sync, replication
//   vxrelayctl trace packet [-j] HEX|--pcap FILE [--index N] [--direction auto|r2l|l2r]
//              [--vti NAME] [--vlan N [--port IFINDEX]]
//                                         what the running agent would do with one frame:
//                                         each decision, the verdict, the counter it moves
//                                         and the bytes that would leave (nothing is sent)
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>

#include "agent/CounterTableReader.h"
#include "platform/ringdecode/RingLogDecoder.h"
#include "platform/statehub/ControlClient.h"
#include "platform/statehub/ControlServer.h"
#include "platform/statehub/DocumentText.h"
#include "platform/statehub/RuntimeDir.h"
#include "platform/trace/RingLog.h"
#include "platform/types/ValueText.h"
#include "tools/cli/CliParse.h"
#include "tools/ctl/CounterView.h"
#include "tools/ctl/JsonEnvelope.h"
#include "tools/ctl/PacketTraceView.h"
#include "tools/ctl/PcapFrame.h"
#include "tools/ctl/ShowView.h"
#include "tools/ctl/TraceView.h"

namespace {

using nlohmann::json;

struct Options {
  std::string agent = "vxrelay";
  std::string control;  // empty: the agent's socket in the default runtime folder
  std::string cell = "cell/1";
};

int printCounters(const Options& o, bool asJson, bool all, double interval) {
  Vxlan::CounterTableReader reader(o.agent);
  Vxlan::CounterTablesReading r = reader.counts();
  if (asJson) {
    json out = Ctl::envelope(o.agent, Ctl::hostRunning(o.control));
    out["vxlanCounter"] = json::array();
    out["varpCounter"] = json::array();
    for (const auto& c : r.vxlan) {
      out["vxlanCounter"].push_back({{"id", int(c.id)}, {"name", c.name}, {"count", c.count}});
    }
    for (const auto& c : r.varp) {
      out["varpCounter"].push_back({{"id", int(c.id)}, {"name", c.name}, {"count", c.count}});
    }
    std::cout << out.dump(2) << "\n";
    return 0;
  }
  std::cout << Ctl::counterView(r, all) << std::flush;
  // Like watch and ip -s: what moved in each interval, until Ctrl-C.
  while (interval > 0) {
    std::this_thread::sleep_for(std::chrono::duration<double>(interval));
    Vxlan::CounterTablesReading now = reader.counts();
    std::cout << "\n" << Ctl::counterView(now, all, Ctl::Since{&r, interval}) << std::flush;
    r = std::move(now);
  }
  return 0;
}

// Sends one request and prints the answer's error, if any; returns the answer.
json request(const Options& o, const json& req) {
  json answer = Statehub::ControlClient(o.control).request(req);
  if (!answer.value("ok", false)) {
    throw std::runtime_error(answer.value("error", std::string("request refused")));
  }
  return answer;
}

// `what`: "" (everything), "interface" or "arp". The answers go into one document
// behind the envelope, which also says when the host does not answer at all.
int show(const Options& o, const std::string& what, const std::string& vti, bool asJson) {
  json out = Ctl::envelope(o.agent, Ctl::hostRunning(o.control));
  if (!out["running"].get<bool>()) {
    if (asJson) {
      std::cout << out.dump(2) << "\n";
    } else {
      std::cerr << "vxrelayctl: agent " << o.agent << " is not running (no answer on " << o.control
                << ")\n";
    }
    return 1;
  }
  const json args = vti.empty() ? json::object() : json{{"name", vti}};
  if (what != "arp") {
    out["interfaces"] =
        request(o, {{"op", "query"}, {"name", "interfaces"}, {"args", args}})["answer"];
  }
  if (what != "interface") out["arp"] = request(o, {{"op", "query"}, {"name", "arp"}})["answer"];
  std::cout << (asJson ? out.dump(2) + "\n" : Ctl::showView(out, what.empty()));
  return 0;
}

// A state document as the host reads its --state file: comments are allowed, so that
// a file the host starts with can also be applied to a running host.
json stateDocument(const std::string& file) {
  return Statehub::DocumentText::readFile(file);
}

// A document whose paths nothing mounts is kept by the host for a later mount: said
// as a warning, or with `strict` refused before anything is applied.
int applyState(const Options& o, const json& doc, bool strict) {
  if (strict) {
    const json listed = request(o, {{"op", "list"}});
    const std::vector<std::string> mounted = listed["paths"].get<std::vector<std::string>>();
    for (const auto& [path, content] : doc.items()) {
      const std::string p = path.starts_with('/') ? path.substr(1) : path;
      if (std::find(mounted.begin(), mounted.end(), p) == mounted.end()) {
        throw std::runtime_error(p + ": not mounted (nothing applied)");
      }
    }
  }
  const json answer = request(o, {{"op", "apply"}, {"state", doc}});
  for (const auto& p : answer.value("pending", json::array())) {
    std::cerr << "vxrelayctl: warning: nothing mounts " << p.get<std::string>()
              << "; its state is kept\n";
  }
  return 0;
}

// An entity as JSON (its document, as `state apply` takes it), or with `asJson` behind
// the envelope: {"agent", "time", "running", "path", "state"}.
int printState(const Options& o, const std::string& path, bool asJson) {
  const std::string entity = path.starts_with('/') ? path.substr(1) : path;
  const json state = request(o, {{"op", "get"}, {"path", entity}})["state"];
  if (!asJson) {
    std::cout << state.dump(2) << "\n";
    return 0;
  }
  json out = Ctl::envelope(o.agent, true);
  out["path"] = entity;
  out["state"] = state;
  std::cout << out.dump(2) << "\n";
  return 0;
}

int printMounts(const Options& o, bool asJson) {
  const json answer = request(o, {{"op", "list"}});
  if (asJson) {
    json out = Ctl::envelope(o.agent, true);
    out["paths"] = answer["paths"];
    out["pending"] = answer["pending"];
    std::cout << out.dump(2) << "\n";
    return 0;
  }
  for (const auto& p : answer["paths"]) std::cout << p.get<std::string>() << "\n";
  for (const auto& p : answer["pending"]) {
    std::cout << p.get<std::string>() << " (not mounted; its state is kept)\n";
  }
  return 0;
}

uint64_t tableSum(const Options& o, bool vxlan) {
  const Vxlan::CounterTablesReading r = Vxlan::CounterTableReader(o.agent).counts();
  uint64_t sum = 0;
  if (vxlan) {
    for (const auto& c : r.vxlan) sum += c.count;
  } else {
    for (const auto& c : r.varp) sum += c.count;
  }
  return sum;
}

// Asks the agent to zero the table, then waits (a few seconds at most) until its
// counts have come down: the command channel only queues the request.
int clear(const Options& o, const std::string& table) {
  const bool vxlan = table == "vxlan";
  const std::string text = vxlan ? "clear vxlan counters software" : "clearVarpCtr";
  const uint64_t before = tableSum(o, vxlan);
  request(o, {{"op", "command"},
              {"path", o.cell + "/agent/commandRequest/config/vxlan"},
              {"type", "vxlan"},
              {"command", text}});
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  for (;;) {
    const uint64_t sum = tableSum(o, vxlan);
    if (sum == 0 || sum < before) break;
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("the agent did not clear the " + table + " counters within 3 s");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::cout << "cleared the " << table << " counters (" << before << " counted before)\n";
  return 0;
}

// What `trace packet` asks about: the frame and where it is to be traced.
struct PacketArgs {
  std::vector<std::string> hex;  // the words of HEX, joined
  std::string pcap;
  unsigned index = 1;
  std::string direction = "auto";
  std::string vti;
  int64_t vlan = -1;  // -1: none given
  uint32_t port = 0;
  bool json = false;
};

CLI::App* addTracePacket(CLI::App& trace, PacketArgs& p) {
  CLI::App* cmd = trace.add_subcommand(
      "packet", "what the running agent would do with one frame (nothing is sent)");
  CLI::Option* hex =
      cmd->add_option("hex", p.hex, "the frame in hex; spaces, colons and a leading 0x allowed");
  cmd->add_option("--pcap", p.pcap, "take the frame from a pcap file")
      ->check(CLI::ExistingFile)
      ->excludes(hex);
  cmd->add_option("--index", p.index, "frame N of the pcap file (from 1)")
      ->check(CLI::PositiveNumber);
  cmd->add_option("--direction", p.direction, "auto, r2l or l2r")
      ->check(CLI::IsMember({"auto", "r2l", "l2r"}))
      ->capture_default_str();
  cmd->add_option("--vti", p.vti, "the tunnel interface (default: the first)");
  cmd->add_option("--vlan", p.vlan, "a user frame that came in on this VLAN (local-to-remote)");
  cmd->add_option("--port", p.port, "... and from this port (kernel index)");
  cmd->add_flag("-j,--json", p.json, "as JSON");
  return cmd;
}

// A HEX that is no frame is a usage error, told as Cli::parse tells one.
int tracePacket(const Options& o, const PacketArgs& p) {
  std::string hex;
  if (!p.pcap.empty()) {
    const std::vector<uint8_t> frame = Ctl::pcapFrame(p.pcap, p.index);
    hex = Lum::hexText(frame.data(), frame.size());
  } else {
    std::string words;
    for (const std::string& w : p.hex) words += w + " ";
    try {
      hex = Ctl::frameHex(words);
    } catch (const std::invalid_argument& e) {
      std::cerr << "vxrelayctl: " << e.what() << "\n"
                << "Try 'vxrelayctl --help' for more information.\n";
      return Cli::kUsageError;
    }
  }
  json args = {{"hex", hex}, {"direction", p.direction}};
  if (!p.vti.empty()) args["vti"] = p.vti;
  if (p.vlan >= 0) args["vlan"] = p.vlan, args["port"] = p.port;
  const json answer = request(o, {{"op", "query"}, {"name", "packet"}, {"args", args}})["answer"];
  if (p.json) {
    json out = Ctl::envelope(o.agent, true);
    out.update(answer);
    std::cout << out.dump(2) << "\n";
  } else {
    std::cout << Ctl::packetTraceView(answer);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vxrelay operator tool"};
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "Examples:\n"
      "  vxrelayctl counters                    the rows that moved\n"
      "  vxrelayctl --agent sw1 counters -i 1   what moved each second, until Ctrl-C\n"
      "  vxrelayctl clear varp                  zero the virtual ARP counters\n"
      "  vxrelayctl state get /mlag/status      an entity as JSON\n"
      "  vxrelayctl trace set VirtualArpSm/0-9  the running agent's trace levels\n"
      "  vxrelayctl show interface Vxlan1       a VTI, and why it does not forward\n"
      "  vxrelayctl show arp -j                 virtual ARP's state as JSON\n"
      "  vxrelayctl trace packet 001c73000001...  what the agent would do with this frame\n"
      "  vxrelayctl trace packet --pcap in.pcap --index 3 -j   frame 3 of a capture, as JSON");
  Options o;
  app.add_option("--agent", o.agent, "agent name (names its counter table)")->capture_default_str();
  app.add_option("--control", o.control,
                 "the agent host's control socket (default: the one of --agent)");
  app.add_option("--cell", o.cell, "the agent's cell path")->capture_default_str();

  bool asJson = false;
  bool all = false;
  double interval = 0;
  CLI::App* counters = app.add_subcommand("counters", "show both counter tables");
  counters->add_flag("-j,--json", asJson, "as JSON, every counter");
  counters->add_flag("-a,--all", all, "the rows that are zero too");
  counters->add_option("-i,--interval", interval, "print what moved every N seconds, until Ctrl-C")
      ->check(CLI::PositiveNumber);

  std::string table;
  CLI::App* clearCmd = app.add_subcommand("clear", "zero a counter table");
  clearCmd->add_option("table", table, "vxlan or varp")
      ->required()
      ->check(CLI::IsMember({"vxlan", "varp"}));

  std::string path;
  std::string file;
  CLI::App* state = app.add_subcommand("state", "read or change the state database");
  state->require_subcommand(1);
  CLI::App* get = state->add_subcommand("get", "an entity as JSON");
  get->add_option("path", path, "entity path, e.g. interface/status/eth/vxlan")->required();
  CLI::App* apply = state->add_subcommand("apply", "apply a state document");
  apply->add_option("file", file, "JSON state document")->required()->check(CLI::ExistingFile);
  bool strict = false;
  apply->add_flag("--strict", strict, "refuse a document with a path that nothing mounts");
  CLI::App* list = state->add_subcommand("list", "the mounted paths, and state kept for others");
  for (CLI::App* cmd : {get, list}) {
    cmd->add_flag("-j,--json", asJson, "behind the agent's name, the time and whether it runs");
  }

  CLI::App* traceCmd =
      app.add_subcommand("trace", "the running agent's trace levels, and trace ring files");
  traceCmd->require_subcommand(1);
  std::string traceSpec;
  CLI::App* traceSet = traceCmd->add_subcommand("set", "the running agent's trace levels");
  traceSet->add_option("levels", traceSpec, "FACILITY/LEVELS,... e.g. VirtualArpSm/0-9")
      ->required();
  std::vector<std::string> ringFiles;
  CLI::App* decode =
      traceCmd->add_subcommand("decode", "ring files as text, merged by time, errno as text");
  decode->add_option("files", ringFiles, "ring files (.rl)")->required()->check(CLI::ExistingFile);

  CLI::App* showCmd = app.add_subcommand("show", "what the running agent does, and why not");
  showCmd->add_flag("-j,--json", asJson, "as JSON, behind the agent's name and the time");
  std::string vti;
  CLI::App* showIntf = showCmd->add_subcommand("interface", "the VTIs, or one");
  showIntf->add_option("name", vti, "a VTI, e.g. Vxlan1");
  CLI::App* showArp = showCmd->add_subcommand("arp", "virtual ARP and ARP reply replication");
  PacketArgs packet;
  CLI::App* tracePacketCmd = addTracePacket(*traceCmd, packet);

  if (const std::optional<int> done = Cli::parse(app, "vxrelayctl", argc, argv)) return *done;
  if (o.control.empty()) o.control = Statehub::RuntimeDir::controlSocket(o.agent);
  try {
    if (*counters) return printCounters(o, asJson, all, interval);
    if (*clearCmd) return clear(o, table);
    if (*showCmd) return show(o, *showIntf ? "interface" : *showArp ? "arp" : "", vti, asJson);
    if (*get) return printState(o, path, asJson);
    if (*apply) return applyState(o, stateDocument(file), strict);
    if (*list) return printMounts(o, asJson);
    if (*traceSet) {
      request(o, {{"op", "trace"}, {"set", traceSpec}});
      return 0;
    }
    if (*tracePacketCmd) return tracePacket(o, packet);
    if (*decode) {
      std::vector<std::pair<std::string, std::vector<std::string>>> rings;
      for (const std::string& f : ringFiles) {
        rings.emplace_back(std::filesystem::path(f).filename().string(), RingLog::decodeFile(f));
      }
      for (const std::string& line : Ctl::mergedByTime(rings)) std::cout << line << "\n";
      return 0;
    }
  } catch (const std::exception& e) {
    std::cerr << "vxrelayctl: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
