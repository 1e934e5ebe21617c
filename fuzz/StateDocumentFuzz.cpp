// State documents as the host reads them from a file or a control request: the text is
// parsed with its limits, then each top-level key that names a registered entity type
// with a name constructor gets a fresh instance, and its description is checked and,
// when the check accepts it, applied:
//   {"Vxlan::VtiStatusDir": {"vtiStatus": {"Vxlan1": {"udpPort": 4789}}}}
//
// The invariant beyond "no crash": a description that check() accepts is applied
// without an error. Anything else would leave a request half applied.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "platform/core/Entity.h"
#include "platform/core/Exception.h"
#include "platform/core/TypeRegistry.h"
#include "platform/statehub/DocumentText.h"
#include "platform/statehub/StateDocument.h"
// Names the status types so that their registrations are linked in.
#include "platform/status/StatusModel.h"

namespace {

Lum::Ptr<Lum::Entity> freshInstance(const Lum::TypeInfo& type) {
  try {
    return type.construct({{"name", "fuzz"}});
  } catch (const Lum::Exception&) {
    return {};  // a type without a name constructor is not a document root
  }
}

void checkThenApply(const nlohmann::json& content, const Lum::TypeInfo& type) {
  Lum::Ptr<Lum::Entity> entity = freshInstance(type);
  if (!entity) return;
  try {
    Statehub::StateDocument::check(content, type, entity.ptr(), type.fullName());
  } catch (const Lum::Exception&) {
    return;  // refused whole: fine
  }
  try {
    Statehub::StateDocument::apply(content, *entity, type.fullName());
    (void)Statehub::StateDocument::of(*entity);
  } catch (const std::exception& e) {
    std::cerr << "checked description refused when applied: " << e.what() << "\n";
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  (void)Vxlan::VtiStatusDir::kType;
  nlohmann::json doc;
  try {
    doc = Statehub::DocumentText::parse(std::string_view(reinterpret_cast<const char*>(data), size),
                                        "fuzz");
  } catch (const Lum::Exception&) {
    return 0;
  }
  if (!doc.is_object()) return 0;
  for (const auto& [typeName, content] : doc.items()) {
    if (const Lum::TypeInfo* type = Lum::TypeRegistry::type(typeName)) {
      checkThenApply(content, *type);
    }
  }
  return 0;
}
