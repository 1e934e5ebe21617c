#include "StatehubModel.h"

namespace StatehubTest {

const Lum::TypeInfo& TunnelSettings::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("StatehubTest::TunnelSettings", "Lum::Entity")
        .attribute("enabled", kEnabled,
                   Lum::textAttr<&TunnelSettings::enabled, &TunnelSettings::enabledIs>())
        .attribute("version", kVersion, Lum::textAttr<&TunnelSettings::version>()));

const Lum::TypeInfo& VtiDir::kType = Lum::TypeRegistry::add(
    Lum::TypeInfo("StatehubTest::VtiDir", "Lum::Entity")
        .attribute("label", kLabel, Lum::textAttr<&VtiDir::label, &VtiDir::labelIs>())
        .attribute("vtiStatus", kVtiStatus,
                   Lum::collectionAttr<&VtiDir::vtiStatus, &VtiDir::vtiStatusIs,
                                       &VtiDir::vtiStatusDel, &VtiDir::vtiStatusIterator>())
        .attribute("settings", kSettings, Lum::childAttr<&VtiDir::settings>())
        .constructor({"name"}, [](const Lum::TypeInfo::Args& a) -> Lum::Ptr<Lum::Entity> {
          return Lum::Ptr<Lum::Entity>(new VtiDir(Lum::Name(a[0].second)));
        }));

}  // namespace StatehubTest
