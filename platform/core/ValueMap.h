// Lum::ValueMap: the storage of a collection attribute of plain values (VLAN to VNI,
// a set of multicast groups as a map to bool, ...). Keys iterate in order, which is
// stable between changes. The owning entity notifies; the map only reports whether a
// write changed anything.
#pragma once

#include <map>
#include <optional>
#include <vector>

namespace Lum {

template <class K, class V>
class ValueMap {
 public:
  using Map = std::map<K, V>;

  // The value for `key`, or `none` when the key is absent.
  V operator()(const K& key, const V& none = V{}) const {
    auto it = map_.find(key);
    return it == map_.end() ? none : it->second;
  }
  std::optional<V> find(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? std::nullopt : std::optional<V>(it->second);
  }
  bool contains(const K& key) const { return map_.count(key) != 0; }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }

  // Returns true when the map changed.
  bool is(const K& key, const V& value) {
    auto [it, inserted] = map_.try_emplace(key, value);
    if (inserted) return true;
    if (it->second == value) return false;
    it->second = value;
    return true;
  }
  bool del(const K& key) { return map_.erase(key) != 0; }
  std::vector<K> delAll() {
    std::vector<K> gone = keys();
    map_.clear();
    return gone;
  }

  // A walk over the map may not change it; walk keys() to change it on the way.
  typename Map::const_iterator begin() const { return map_.begin(); }
  typename Map::const_iterator end() const { return map_.end(); }
  std::vector<K> keys() const {
    std::vector<K> k;
    k.reserve(map_.size());
    for (const auto& [key, value] : map_) k.push_back(key);
    return k;
  }

 private:
  Map map_;
};

}  // namespace Lum
