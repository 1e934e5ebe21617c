#include "platform/types/SourceGroup.h"

#include <ostream>

#include "platform/core/Exception.h"
#include "platform/types/ValueText.h"

namespace Routing::Igmp {

SourceGroup SourceGroup::fromString(std::string_view text) {
  const size_t comma = text.find(',');
  if (comma == std::string_view::npos) Lum::throwMalformedText(kTypeName, text);
  // The parts' own errors would name IpAddr and only half the text; report the whole.
  try {
    return SourceGroup(Wire::IpAddr::fromString(text.substr(0, comma)),
                       Wire::IpAddr::fromString(text.substr(comma + 1)));
  } catch (const Lum::RangeException&) {
    Lum::throwMalformedText(kTypeName, text);
  }
}

std::ostream& operator<<(std::ostream& os, SourceGroup sg) {
  return os << sg.source() << ',' << sg.group();
}

}  // namespace Routing::Igmp
