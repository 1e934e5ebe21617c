#include "tools/ctl/TraceView.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <regex>

namespace Ctl {

namespace {

// The "YYYY-MM-DD HH:MM:SS.ffffff" of a decoded line (its third and fourth words);
// empty when the line has none. Such stamps sort as text.
std::string stampOf(const std::string& line) {
  size_t at = line.find(' ');
  if (at != std::string::npos) at = line.find(' ', at + 1);
  if (at == std::string::npos || line.size() < at + 27) return "";
  const std::string stamp = line.substr(at + 1, 26);
  return std::isdigit(static_cast<unsigned char>(stamp[0])) && stamp[4] == '-' && stamp[10] == ' '
             ? stamp
             : "";
}

}  // namespace

std::string withErrnoText(const std::string& line) {
  static const std::regex errnoWord(R"(errno (\d{1,4})\b)");
  std::string out;
  auto from = line.cbegin();
  for (std::sregex_iterator it(line.begin(), line.end(), errnoWord), end; it != end; ++it) {
    const std::smatch& m = *it;
    out.append(from, m[0].second);
    out += " (" + std::string(std::strerror(std::stoi(m[1].str()))) + ")";
    from = m[0].second;
  }
  out.append(from, line.cend());
  return out;
}

std::vector<std::string> mergedByTime(
    const std::vector<std::pair<std::string, std::vector<std::string>>>& files) {
  struct Entry {
    std::string stamp;
    std::string text;
  };
  std::vector<Entry> all;
  for (const auto& [name, lines] : files) {
    // A line without a stamp takes the stamp of the next one of its file.
    std::string next;
    std::vector<Entry> entries;
    for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
      const std::string stamp = stampOf(*it);
      if (!stamp.empty()) next = stamp;
      entries.push_back({next, (files.size() > 1 ? name + ": " : "") + withErrnoText(*it)});
    }
    all.insert(all.end(), entries.rbegin(), entries.rend());
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const Entry& a, const Entry& b) { return a.stamp < b.stamp; });
  std::vector<std::string> out;
  out.reserve(all.size());
  for (Entry& e : all) out.push_back(std::move(e.text));
  return out;
}

}  // namespace Ctl
