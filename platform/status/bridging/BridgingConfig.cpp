#include "platform/status/bridging/BridgingConfig.h"

namespace Bridging {

const Lum::TypeInfo& SwitchIntfConfig::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Bridging::SwitchIntfConfig", "Lum::Entity")
        .attribute("switchportModeAndNativeVlan", kSwitchportModeAndNativeVlan,
                   Lum::textAttr<&SwitchIntfConfig::switchportModeAndNativeVlan,
                                 &SwitchIntfConfig::switchportModeAndNativeVlanIs>()));

const Lum::TypeInfo& Config::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("Bridging::Config", "Lum::Entity")
        .attribute(
            "switchIntfConfig", kSwitchIntfConfig,
            Lum::collectionAttr<&Config::switchIntfConfig, &Config::switchIntfConfigIs,
                                &Config::switchIntfConfigDel, &Config::switchIntfConfigIterator>())
        .attribute("bridgeMacAddr", kBridgeMacAddr,
                   Lum::textAttr<&Config::bridgeMacAddr, &Config::bridgeMacAddrIs>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new Config(Lum::Name(a[0].second)));
        }));

Lum::Ptr<SwitchIntfConfig> Config::switchIntfConfigIs(const Wire::IntfId& id) {
  const size_t before = switchIntfConfig_.size();
  Lum::Ptr<SwitchIntfConfig> c = switchIntfConfig_.is(id);
  if (switchIntfConfig_.size() != before) {
    notify<Lum::keyed(&NotifieeConst::onSwitchIntfConfig)>(kSwitchIntfConfig, id);
  }
  return c;
}

void Config::switchIntfConfigDel(const Wire::IntfId& id) {
  if (switchIntfConfig_.del(id)) {
    notify<Lum::keyed(&NotifieeConst::onSwitchIntfConfig)>(kSwitchIntfConfig, id);
  }
}

}  // namespace Bridging
