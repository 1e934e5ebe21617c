// The text of `vxrelayctl show` (Ctl::showView) over any JSON document, as if the
// agent's answers held it, in full and in brief. A field of the wrong type may be
// refused with the JSON library's exception, which the tool reports as its error;
// anything else escaping, or a crash, is a finding.
#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "tools/ctl/ShowView.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const nlohmann::json show = nlohmann::json::parse(data, data + size, nullptr, false);
  if (show.is_discarded()) return 0;
  for (bool brief : {false, true}) {
    try {
      Ctl::showView(show, brief);
    } catch (const nlohmann::json::exception&) {
    } catch (const std::exception& e) {
      std::cerr << "showView escaped with " << e.what() << "\n";
      std::abort();
    }
  }
  return 0;
}
