// One control request line, as a client sends it, answered by the same code that serves
// the control socket, against an entity manager that holds nothing mounted (so applied
// state is kept pending, within its bound).
//
// The invariants beyond "no crash": every line gets exactly one answer, an object with a
// boolean "ok", and that answer can be written back as one line of text whatever bytes
// the request held.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "platform/statehub/ControlRequests.h"
#include "platform/statehub/DocumentText.h"
#include "platform/statehub/EntityManager.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Lum::Ptr<Statehub::EntityManager> em(new Statehub::EntityManager);
  static Statehub::ControlRequests requests(*em);
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  nlohmann::json answer;
  try {
    answer = requests.answerOf(line, 7);
  } catch (const std::exception& e) {
    std::cerr << "a request line escaped with an exception: " << e.what() << "\n";
    std::abort();
  }
  const auto ok = answer.find("ok");
  if (!answer.is_object() || ok == answer.end() || !ok->is_boolean()) {
    std::cerr << "answer without a boolean \"ok\"\n";
    std::abort();
  }
  const std::string text = Statehub::DocumentText::dump(answer);
  if (text.find('\n') != std::string::npos) {
    std::cerr << "answer spans more than one line\n";
    std::abort();
  }
  return 0;
}
