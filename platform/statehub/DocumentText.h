// Statehub::DocumentText: state documents and control requests from their text, with
// the limits that keep a hostile or broken input from taking the host down.
//
//   nlohmann::json doc = Statehub::DocumentText::readFile("/etc/vxrelay/switch.json");
//   nlohmann::json req = Statehub::DocumentText::parse(line, "request");
//
// Limits: a document nests at most kMaxDepth levels (a real one needs fewer than ten;
// a deeper one is refused while it is parsed, before anything walks it recursively);
// a file is a regular file of at most kMaxFileBytes (a directory, a FIFO or a device
// is refused by name, without reading). Comments are allowed, so that a file the host
// starts with can also be applied to a running host. Every refusal is a StateError
// naming the source and what is wrong.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace Statehub {

class DocumentText {
 public:
  static constexpr int kMaxDepth = 64;
  static constexpr size_t kMaxFileBytes = 64u << 20;

  // Parses `text`; `source` names it in errors (a file name, "request").
  static nlohmann::json parse(std::string_view text, std::string_view source);
  // Reads and parses the regular file at `path`.
  static nlohmann::json readFile(const std::string& path);
  // A JSON text of `value` that never throws: bytes that are not UTF-8 (in a string
  // that came from outside) are replaced, so that every request gets its answer.
  static std::string dump(const nlohmann::json& value);
};

}  // namespace Statehub
