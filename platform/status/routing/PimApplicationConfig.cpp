#include "platform/status/routing/PimApplicationConfig.h"

namespace Routing::Pim::Application {

const Lum::TypeInfo& Config::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Routing::Pim::Application::Config", "Lum::Entity")
        .attribute("intfMode", kIntfMode,
                   Lum::mapAttr<Lum::reader(&Config::intfMode), &Config::intfModeIs,
                                &Config::intfModeDel>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new Config(Lum::Name(a[0].second)));
        }));

}  // namespace Routing::Pim::Application
