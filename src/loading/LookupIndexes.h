// Indexes behind the lookups that would otherwise scan a list or a container on every call.
// Each is built on first use from the same sequence the scan walks and answers exactly as the
// scan would: the first match where the scan stops at it, every match in order where the scan
// goes on, and a null entry ending the sequence where the scan meets it.
#ifndef KAL_VORLA_LOOKUP_INDEXES_H
#define KAL_VORLA_LOOKUP_INDEXES_H

#include <functional>
#include <type_traits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ChildWalk.h"
#include "KalLightXmlElementItf.h"

namespace kalvorla {

// The entries of a sequence grouped by key, in sequence order, up to its first null entry.
template <class Key>
struct EntriesByKey {
  std::unordered_map<Key, std::vector<KalLightXmlElementItf*>> entries;
  bool endsAtNull = false;  // the scan meets a null entry after the last indexed one
  bool empty = true;        // the sequence has no entry at all

  const std::vector<KalLightXmlElementItf*>* Find(const Key& key) const {
    auto found = entries.find(key);
    return found == entries.end() ? nullptr : &found->second;
  }
};

// The first element recorded for each text, in one flat table: a lookup reads one or two
// slots, and touches a key's text only when the stored hashes agree. Lookups in a walk mostly
// miss, which a node-based map pays with a cache miss or two each.
template <class Key>
class FlatFirst {
 public:
  // Records `element` under `text` unless the text already has one. The text must outlive
  // the index.
  void Add(const Key& text, KalLightXmlElementItf* element) {
    if ((_Count + 1) * 2 > _Slots.size()) Grow();
    if (Place(text, Hash(text), element)) ++_Count;
  }
  KalLightXmlElementItf* Find(const Key& text) const {
    if (_Slots.empty()) return nullptr;
    const size_t hash = Hash(text);
    for (size_t i = hash & _Mask;; i = (i + 1) & _Mask) {
      const Slot& slot = _Slots[i];
      if (slot.element == nullptr) return nullptr;
      if (slot.hash == hash && slot.text == text) return slot.element;
    }
  }

 private:
  struct Slot {
    size_t hash = 0;
    Key text{};
    KalLightXmlElementItf* element = nullptr;
  };
  // Integers are spread with a multiplication: their own value would crowd nearby slots.
  static size_t Hash(const Key& text) {
    if constexpr (std::is_integral_v<Key>) {
      return static_cast<size_t>((static_cast<uint64_t>(text) + 1) * 0x9E3779B97F4A7C15ull >> 17);
    } else {
      return std::hash<Key>()(text);
    }
  }
  // False when the text was already there.
  bool Place(const Key& text, size_t hash, KalLightXmlElementItf* element) {
    for (size_t i = hash & _Mask;; i = (i + 1) & _Mask) {
      Slot& slot = _Slots[i];
      if (slot.element == nullptr) {
        slot = {hash, text, element};
        return true;
      }
      if (slot.hash == hash && slot.text == text) return false;
    }
  }
  void Grow() {
    std::vector<Slot> old;
    old.swap(_Slots);
    _Slots.resize(old.empty() ? 16 : old.size() * 2);
    _Mask = _Slots.size() - 1;
    for (const Slot& slot : old) {
      if (slot.element != nullptr) Place(slot.text, slot.hash, slot.element);
    }
  }

  std::vector<Slot> _Slots;
  size_t _Mask = 0;
  size_t _Count = 0;

 public:
  bool endsAtNull = false;  // the scan meets a null entry after the last indexed one
  bool empty = true;        // the sequence has no entry at all
};
using FirstByText = FlatFirst<std::string_view>;

// Indexes the direct children of `container` by `keyOf(child, key)` (false: no key), up to
// the first null child, where a scan would stop.
template <class Key, class KeyOf>
void IndexChildren(const KalLightXmlElementItf* container, EntriesByKey<Key>& index,
                   KeyOf&& keyOf) {
  const WalkEnd end = WalkChildren(container, NullChild::kFail, [&](KalLightXmlElementItf* c) {
    Key key{};
    if (keyOf(*c, key)) index.entries[key].push_back(c);
    return false;
  });
  index.empty = end == WalkEnd::kNoChildren;
  index.endsAtNull = end == WalkEnd::kNullChild;
}

// The first direct child of `container` whose key equals `wanted`: kStopped with `match`, or
// how a scan ends without one. With an index (built on first use), the children are not
// walked again; without one, they are scanned.
template <class Key, class KeyOf>
WalkEnd FirstByKey(const KalLightXmlElementItf* container, const Key& wanted, KeyOf&& keyOf,
                   FlatFirst<Key>* index, bool& built, KalLightXmlElementItf*& match) {
  if (index == nullptr) {
    return WalkChildren(container, NullChild::kFail, [&](KalLightXmlElementItf* c) {
      Key key{};
      if (!keyOf(*c, key) || !(key == wanted)) return false;
      match = c;
      return true;
    });
  }
  if (!built) {
    built = true;
    const WalkEnd end = WalkChildren(container, NullChild::kFail, [&](KalLightXmlElementItf* c) {
      Key key{};
      if (keyOf(*c, key)) index->Add(key, c);
      return false;
    });
    index->empty = end == WalkEnd::kNoChildren;
    index->endsAtNull = end == WalkEnd::kNullChild;
  }
  match = index->Find(wanted);
  if (match != nullptr) return WalkEnd::kStopped;
  if (index->endsAtNull) return WalkEnd::kNullChild;
  return index->empty ? WalkEnd::kNoChildren : WalkEnd::kExhausted;
}

}  // namespace kalvorla

// The parser's lookup indexes; all empty until first used.
struct KalVorlaLookupIndexes {
  bool formatsBuilt = false, aspectsBuilt = false, materialsBuilt = false;
  bool representationsBuilt = false, techRepsBuilt = false, signedIdsBuilt = false;
  bool bufferIdsBuilt = false;
  kalvorla::EntriesByKey<int> formatsByOwner;               // owner carried over
  // "aspectOwner" as written; the keys point into the document, which outlives the index.
  kalvorla::FirstByText aspectsByOwner;
  std::unordered_map<int, int> materialPositions;           // id -> first 1-based position
  kalvorla::FlatFirst<unsigned int> representationsById;  // "%u", 0 when not a number
  kalvorla::FlatFirst<unsigned int> techRepsById;
  kalvorla::FlatFirst<unsigned int> representationsBySignedId;  // "%d", carried over
  kalvorla::EntriesByKey<std::string> representationsByIdText;     // id as written
};

#endif
