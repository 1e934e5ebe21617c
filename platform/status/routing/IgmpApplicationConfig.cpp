#include "platform/status/routing/IgmpApplicationConfig.h"

namespace Routing::Igmp::Application {

const Lum::TypeInfo& IntfConfig::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Routing::Igmp::Application::IntfConfig", "Lum::Entity")
        .attribute("group", kGroup,
                   Lum::mapAttr<Lum::reader(&IntfConfig::group), &IntfConfig::groupIs,
                                &IntfConfig::groupDel>()));

const Lum::TypeInfo& Config::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Routing::Igmp::Application::Config", "Lum::Entity")
        .attribute("intfConfig", kIntfConfig,
                   Lum::collectionAttr<&Config::intfConfig, &Config::intfConfigIs,
                                       &Config::intfConfigDel, &Config::intfConfigIterator>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new Config(Lum::Name(a[0].second)));
        }));

Lum::Ptr<IntfConfig> Config::intfConfigIs(const Wire::IntfId& id) {
  const size_t before = intfConfig_.size();
  Lum::Ptr<IntfConfig> c = intfConfig_.is(id);
  if (intfConfig_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onIntfConfig)>(kIntfConfig, id);
  }
  return c;
}

void Config::intfConfigDel(const Wire::IntfId& id) {
  if (intfConfig_.del(id)) notify<Lum::keyed(&NotifieeConst::onIntfConfig)>(kIntfConfig, id);
}

void Config::intfConfigDelAll() {
  if (intfConfig_.empty()) return;
  intfConfig_.delAll();
  notify<Lum::whole(&NotifieeConst::onIntfConfig)>(kIntfConfig);
}

}  // namespace Routing::Igmp::Application
