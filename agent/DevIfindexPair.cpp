#include "agent/DevIfindexPair.h"

#include <ostream>
#include <string>

#include "platform/core/Exception.h"
#include "platform/types/ValueStrep.h"

namespace Vxlan {

DevIfindexPair::DevIfindexPair(Lum::String8::IteratorConst& pos, Lum::String8::IteratorConst end) {
  for (const char* head : {" Value", " (", " 'Vxlan::DevIfindexPair'", " ,", " **", " {"}) {
    Lum::needString(pos, end, head);
  }
  for (bool first = true;; first = false) {
    Lum::needString(pos, end, " ");
    if (pos == end) Lum::throwRangeException("premature end of value type DevIfindexPair");
    if (*pos == '}') {
      Lum::needString(pos, end, "} ");
      Lum::needString(pos, end, ") ");
      return;
    }
    if (!first) Lum::needString(pos, end, ", ");
    const Lum::String8 name = Lum::sequenceToValue<Lum::String8>(pos, end);
    Lum::needString(pos, end, " : ");
    if (name.view() == "devname") {
      Lum::deserializeAttr(pos, end, name.view(), devname_);
    } else if (name.view() == "ifindex") {
      try {
        ifindex_ = Lum::sequenceToValue<uint32_t>(pos, end);
      } catch (const Lum::RangeException& e) {
        Lum::rethrowFromDeserializeAttr(name.view(), e);
      }
    } else {
      Lum::throwRangeException("DevIfindexPair has no such attribute: " + name.str());
    }
  }
}

DevIfindexPair DevIfindexPair::fromString(std::string_view text) {
  DevIfindexPair v;
  Lum::strepToValue(Lum::String8(text), v);
  return v;
}

Lum::String8 valueToStrep(const DevIfindexPair& v) {
  return Lum::String8("Value('Vxlan::DevIfindexPair', ** {'devname': ") +
         Lum::valueToStrep(v.devname()).view() +
         ", 'ifindex': " + Lum::valueToStrep(uint64_t{v.ifindex()}).view() + "})";
}

std::ostream& operator<<(std::ostream& os, const DevIfindexPair& v) {
  return os << valueToStrep(v);
}

}  // namespace Vxlan
