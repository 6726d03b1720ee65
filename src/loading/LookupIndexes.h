// Indexes behind the lookups that would otherwise scan a list or a container on every call.
// Each is built on first use from the same sequence the scan walks and answers exactly as the
// scan would: the first match where the scan stops at it, every match in order where the scan
// goes on, and a null entry ending the sequence where the scan meets it.
#ifndef KAL_VORLA_LOOKUP_INDEXES_H
#define KAL_VORLA_LOOKUP_INDEXES_H

#include <cstdint>
#include <functional>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "ChildWalk.h"
#include "KalLightXmlElementItf.h"
#include "KalUnicodeString.h"

namespace kalvorla {

// What every index records of the sequence it was built from.
struct IndexState {
  bool built = false;       // filled on first use
  bool endsAtNull = false;  // the scan meets a null entry after the last indexed one
  bool empty = true;        // the sequence has no entry at all
};

// Every entry of a sequence under its key, in sequence order, up to its first null entry.
template <class Key>
struct EntriesByKey : IndexState {
  using KeyType = Key;
  std::unordered_map<Key, std::vector<KalLightXmlElementItf*>> entries;

  void Add(const Key& key, KalLightXmlElementItf* element) { entries[key].push_back(element); }
  const std::vector<KalLightXmlElementItf*>* Find(const Key& key) const {
    auto found = entries.find(key);
    return found == entries.end() ? nullptr : &found->second;
  }
};

// The first entry under each key, in one flat table: a lookup reads one or two slots and
// compares keys only when the stored hashes agree. Lookups in a walk mostly miss, which a
// node-based map pays with a cache miss or two each.
template <class Key>
class FlatFirst : public IndexState {
 public:
  using KeyType = Key;
  // Records `element` under `key` unless the key already has one. A key that refers to text
  // must outlive the index.
  void Add(const Key& key, KalLightXmlElementItf* element) {
    if ((_Count + 1) * 2 > _Slots.size()) Grow();
    if (Place(key, Hash(key), element)) ++_Count;
  }
  KalLightXmlElementItf* Find(const Key& key) const {
    if (_Slots.empty()) return nullptr;
    const size_t hash = Hash(key);
    for (size_t i = hash & _Mask;; i = (i + 1) & _Mask) {
      const Slot& slot = _Slots[i];
      if (slot.element == nullptr) return nullptr;
      if (slot.hash == hash && slot.key == key) return slot.element;
    }
  }

 private:
  struct Slot {
    size_t hash = 0;
    Key key{};
    KalLightXmlElementItf* element = nullptr;  // null: the slot is free
  };
  // Integers are spread with a multiplication: their own values would crowd nearby slots.
  static size_t Hash(const Key& key) {
    if constexpr (std::is_integral_v<Key>) {
      return static_cast<size_t>((static_cast<uint64_t>(key) + 1) * 0x9E3779B97F4A7C15ull >> 17);
    } else {
      return std::hash<Key>()(key);
    }
  }
  // False when the key was already there.
  bool Place(const Key& key, size_t hash, KalLightXmlElementItf* element) {
    for (size_t i = hash & _Mask;; i = (i + 1) & _Mask) {
      Slot& slot = _Slots[i];
      if (slot.element == nullptr) {
        slot = {hash, key, element};
        return true;
      }
      if (slot.hash == hash && slot.key == key) return false;
    }
  }
  void Grow() {
    std::vector<Slot> old(_Slots.empty() ? 16 : _Slots.size() * 2);
    old.swap(_Slots);
    _Mask = _Slots.size() - 1;
    for (const Slot& slot : old) {
      if (slot.element != nullptr) Place(slot.key, slot.hash, slot.element);
    }
  }

  std::vector<Slot> _Slots;
  size_t _Mask = 0;
  size_t _Count = 0;
};

// A string's text as a key, without a copy.
inline std::string_view TextOf(const KalUnicodeString& s) {
  return {s.ConvertToChar(), static_cast<size_t>(s.GetLengthInChar())};
}

// Fills `index` on first use with the direct children of `container` under
// `keyOf(child, key)` (false: no key), up to the first null child, where a scan would stop.
template <class Index, class KeyOf>
Index& IndexChildren(const KalLightXmlElementItf* container, Index& index, KeyOf&& keyOf) {
  if (index.built) return index;
  index.built = true;
  const WalkEnd end = WalkChildren(container, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    typename Index::KeyType key{};
    if (keyOf(*c, key)) index.Add(key, c);
    return false;
  });
  index.empty = end == WalkEnd::kNoChildren;
  index.endsAtNull = end == WalkEnd::kNullChild;
  return index;
}

// The first direct child of `container` whose key equals `wanted`: kStopped with `match`, or
// how a scan ends without one. With an index, the children are walked once for all lookups;
// without one (null), they are scanned.
template <class Key, class KeyOf>
WalkEnd FirstByKey(const KalLightXmlElementItf* container, const Key& wanted, KeyOf&& keyOf,
                   FlatFirst<Key>* index, KalLightXmlElementItf*& match) {
  if (index == nullptr) {
    return WalkChildren(container, NullChild::kFail, [&](KalLightXmlElementItf* c) {
      Key key{};
      if (!keyOf(*c, key) || !(key == wanted)) return false;
      match = c;
      return true;
    });
  }
  IndexChildren(container, *index, keyOf);
  match = index->Find(wanted);
  if (match != nullptr) return WalkEnd::kStopped;
  if (index->endsAtNull) return WalkEnd::kNullChild;
  return index->empty ? WalkEnd::kNoChildren : WalkEnd::kExhausted;
}

}  // namespace kalvorla

// The parser's lookup indexes; each is filled on first use.
struct KalVorlaLookupIndexes {
  kalvorla::EntriesByKey<int> formatsByOwner;  // owner carried over
  // The text keys point into the document, which outlives the index.
  kalvorla::FlatFirst<std::string_view> aspectsByOwner;   // "aspectOwner" as written
  kalvorla::FlatFirst<unsigned int> representationsById;  // "%u", 0 when not a number
  kalvorla::FlatFirst<unsigned int> techRepsById;
  kalvorla::FlatFirst<unsigned int> representationsBySignedId;       // "%d", carried over
  kalvorla::EntriesByKey<std::string_view> representationsByIdText;  // id as written
  bool materialsBuilt = false;
  std::unordered_map<int, int> materialPositions;  // id -> first 1-based position
};

#endif
