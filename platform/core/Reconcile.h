// Lum::reconcileKey / Lum::reconcileAll: how a state machine follows a directory of
// entities with one element per entry (a machine per tunnel interface, per hardware
// status entry, per VRF, ...).
//
// The directory tells two kinds of news: one entry changed (created, replaced or
// deleted), and the whole collection changed (or the directory itself was replaced,
// which a reactor learns as a new notifier). The first calls for reconcileKey, the
// second for reconcileAll; both leave the elements matching the entries:
//
//   void onVtiStatus(const Wire::IntfId& id) override {
//     Lum::reconcileKey(vtiStatusSm_, id, dir->vtiStatus(id));
//   }
//   void onVtiStatus() override {
//     Lum::reconcileAll(vtiStatusSm_, dir->vtiStatusIterator(),
//                       [&](const Wire::IntfId& id) { return dir->vtiStatus(id); });
//   }
//
// `elements` is a keyed collection with is(entry) (find or create the element of an
// entry; an element around another entity of the same key takes the new one),
// del(key) and iterator() (operator bool, ++, key()) - Lum::Collection is one. Deleting
// while walking is safe there: its iterator moves on by key. `entries` walks the
// directory (operator bool, ++, ptr()); `present(key)` tells whether the directory
// still has an entry of that key.
#pragma once

namespace Lum {

// One entry: an element for `entry` when it is there, none for `key` when it is not.
template <class Elements, class Key, class Entry>
void reconcileKey(Elements& elements, const Key& key, const Entry& entry) {
  if (entry) {
    elements.is(entry);
  } else {
    elements.del(key);
  }
}

// The whole directory: an element for every entry, and none whose entry has gone.
template <class Elements, class Entries, class Present>
void reconcileAll(Elements& elements, Entries entries, const Present& present) {
  for (; entries; ++entries) elements.is(entries.ptr());
  for (auto it = elements.iterator(); it; ++it) {
    if (!present(it.key())) elements.del(it.key());
  }
}

}  // namespace Lum
