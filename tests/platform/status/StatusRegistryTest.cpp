// Every status type declared with an attribute table, walked through the type
// registry as the state database reaches it: from each type that is mounted by name
// down through its collections and owned entities.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "platform/status/StatusModel.h"
#include "tests/support/Throws.h"

namespace {

using Lum::AttributeInfo;
using Lum::AttrKind;
using Lum::Entity;
using Lum::GenericRef;
using Lum::Ptr;

// Texts that the status key and value types read, each canonical for its type, and
// some that most of them refuse (the empty text, then the others separated by blanks).
// Every attribute is tried with every text.
const std::vector<std::string> kTexts = [] {
  std::vector<std::string> texts = {""};
  std::istringstream in(
      "false true 7 99 256 5000 0 10.0.0.1 0.0.0.0 10.0.0.1/24 10.1.1.5/32 10.1.1.5 Ethernet1 "
      "Port-Channel1 00:11:22:33:44:55 00:11:22:33:44:55/10 0.0.0.0,239.1.1.1 2,10 "
      "10.1.1.5/32,5000,00:11:22:33:44:55 10.1.1.5,5000,00:11:22:33:44:55");
  for (std::string t; in >> t;) texts.push_back(t);
  return texts;
}();

bool accepted(const std::function<void()>& f) {
  return !TestSupport::thrown<std::exception>(f);
}

class RegistryWalk {
 public:
  std::set<std::string> walked;

  // For each attribute of `e`: the registry's check and the write agree on every text (a document
  // checked whole is then never refused half-way); a text written reads back the same; a change is
  // notified once, an equal write not at all; keyed entries are deleted again, with a notification.
  void walk(const Ptr<Entity>& e) {
    std::vector<int> seen;
    Ptr<Lum::ReactorBase> watcher = e->fwkType().watch(*e, [&](int id) { seen.push_back(id); });
    ASSERT_TRUE(watcher) << e->fwkType().fullName();
    for (const Lum::TypeInfo* t = &e->fwkType(); t; t = t->base()) {
      walked.insert(t->fullName());
      for (const AttributeInfo& a : t->ownAttributes()) {
        if (a.id == Entity::kAttrName) continue;
        SCOPED_TRACE(t->fullName() + "::" + a.name);
        walkAttribute(e, a, seen);
      }
    }
  }

 private:
  void walkValue(const GenericRef& ref, const AttributeInfo& a, std::vector<int>& seen) {
    const Lum::TextAccess& acc = a.access;
    const std::vector<int> once{a.id};
    const std::string before = ref.attribute(a.name);
    if (!acc.set) {
      EXPECT_THROW(ref.attributeIs(a.name, before), Lum::Exception);
      return;
    }
    std::string chosen;
    for (const std::string& t : kTexts) {
      const bool checked = accepted([&] { acc.checkValue(t); });
      const bool written = accepted([&] { ref.attributeIs(a.name, t); });
      EXPECT_EQ(checked, written) << '"' << t << '"';
      if (checked && written && chosen.empty() && t != before) chosen = t;
    }
    ASSERT_FALSE(chosen.empty()) << "no text fits";
    ref.attributeIs(a.name, before);
    seen.clear();
    ref.attributeIs(a.name, chosen);
    ref.attributeIs(a.name, chosen);
    EXPECT_EQ(ref.attribute(a.name), chosen);
    EXPECT_EQ(seen, once);
  }

  void walkAttribute(const Ptr<Entity>& e, const AttributeInfo& a, std::vector<int>& seen) {
    const Lum::TextAccess& acc = a.access;
    GenericRef ref{e};
    const std::vector<int> once{a.id}, twice{a.id, a.id};
    if (acc.kind == AttrKind::child) {
      std::optional<GenericRef> child = ref.child(a.name);
      ASSERT_TRUE(child);
      EXPECT_EQ(child->entity()->parent(), e.ptr());
      if (!walked.count(child->entity()->fwkType().fullName())) walk(acc.child(*e));
      return;
    }
    if (acc.kind == AttrKind::value) return walkValue(ref, a, seen);
    ASSERT_TRUE(acc.kind == AttrKind::map || acc.kind == AttrKind::collection);
    const bool isMap = acc.kind == AttrKind::map;
    std::optional<std::pair<std::string, std::string>> chosen;
    for (const std::string& k : kTexts) {
      for (const std::string& v : isMap ? kTexts : std::vector<std::string>{""}) {
        const bool checked = accepted([&] {
          acc.checkKey(k);
          if (isMap) acc.checkEntry(k, v);
        });
        const bool written = accepted([&] { ref.entryIs(a.name, k, v); });
        EXPECT_EQ(checked, written) << k << " = " << v;
        if (checked && written && !chosen) chosen.emplace(k, v);
      }
    }
    for (const std::string& k : ref.keys(a.name)) {  // elements of a derived type too
      Ptr<Entity> elem = isMap ? nullptr : acc.element(*e, k);
      if (elem && !walked.count(elem->fwkType().fullName())) walk(elem);
      ref.entryDel(a.name, k);
    }
    EXPECT_TRUE(ref.keys(a.name).empty());
    ASSERT_TRUE(chosen) << "no key fits";
    const auto& [key, value] = *chosen;
    seen.clear();
    ref.entryIs(a.name, key, value);
    ref.entryIs(a.name, key, value);
    EXPECT_EQ(seen, once);
    if (isMap) {
      EXPECT_EQ(ref.entry(a.name, key), value);
    } else {
      Ptr<Entity> elem = acc.element(*e, key);
      ASSERT_TRUE(elem);
      EXPECT_EQ(elem->parent(), e.ptr());
    }
    ref.entryDel(a.name, key);
    EXPECT_EQ(seen, twice);
    EXPECT_TRUE(ref.keys(a.name).empty());
  }
};

// Guards every attribute of every status type at once (see RegistryWalk::walk), and
// that no type declared with a table is left out of the walk.
TEST(StatusRegistryTest, EveryAttributeOfEveryTypeByText) {
  RegistryWalk w;
  for (const std::string& name : Lum::TypeRegistry::typeNames()) {
    const Lum::TypeInfo* t = Lum::TypeRegistry::type(name);
    Ptr<Entity> root;
    if (!t->hasWatcher() || !accepted([&] { root = t->construct({{"name", "walk"}}); })) continue;
    SCOPED_TRACE(name);
    w.walk(root);
  }
  for (const std::string& name : Lum::TypeRegistry::typeNames()) {
    const bool declaredWithTable = Lum::TypeRegistry::type(name)->hasWatcher();
    EXPECT_TRUE(!declaredWithTable || w.walked.count(name)) << name;
  }
  EXPECT_GE(w.walked.size(), 40u);
}

}  // namespace
