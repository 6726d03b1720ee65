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
  void Finish() {}
  const std::vector<KalLightXmlElementItf*>* Find(const Key& key) const {
    auto found = entries.find(key);
    return found == entries.end() ? nullptr : &found->second;
  }
};

// The first entry under each key. Keys that are small numbers (ids: integers, or text written
// in plain decimal) are answered without hashing: each sets one bit, and the elements sit in
// key order, found by counting the bits below their own. A walk asks for ids in about the order
// they were written, so a lookup reads a bit near the last one read and the element next to the
// last one returned, and never the key's own text. Other keys go to a table of 8-byte slots (a
// fingerprint of the hash and the entry's position), where keys are compared only when the
// fingerprints agree. Finish() must follow the last Add() and come before the first Find().
template <class Key>
class FlatFirst : public IndexState {
 public:
  using KeyType = Key;
  // Records `element` under `key` unless the key already has one. A key that refers to text
  // must outlive the index.
  void Add(const Key& key, KalLightXmlElementItf* element) {
    const uint32_t n = Small(key);
    if (n < kSmallLimit) {
      if (n / 64 >= _Bits.size()) _Bits.resize(n / 64 + 1, 0);
      const uint64_t bit = uint64_t{1} << (n % 64);
      if ((_Bits[n / 64] & bit) != 0) return;
      _Bits[n / 64] |= bit;
      _Pending.push_back({n, element});
      return;
    }
    if ((_Entries.size() + 1) * 2 > _Slots.size()) Grow();
    const size_t hash = Hash(key);
    for (size_t i = hash & _Mask;; i = (i + 1) & _Mask) {
      Slot& slot = _Slots[i];
      if (slot.position == 0) {
        _Entries.push_back({key, element});
        slot = {Fingerprint(hash), static_cast<uint32_t>(_Entries.size())};
        return;
      }
      if (slot.fingerprint == Fingerprint(hash) && _Entries[slot.position - 1].key == key) return;
    }
  }
  // Puts the small keys' elements in key order.
  void Finish() {
    _Ranks.resize(_Bits.size());
    uint32_t below = 0;
    for (size_t w = 0; w < _Bits.size(); ++w) {
      _Ranks[w] = below;
      below += static_cast<uint32_t>(__builtin_popcountll(_Bits[w]));
    }
    _Small.resize(_Pending.size());
    for (const Pending& p : _Pending) _Small[Rank(p.n)] = p.element;
    std::vector<Pending>().swap(_Pending);
  }
  KalLightXmlElementItf* Find(const Key& key) const {
    const uint32_t n = Small(key);
    if (n < kSmallLimit) {
      // Sized by Finish(), so an index whose build was cut short answers nothing.
      if (n / 64 >= _Ranks.size() || (_Bits[n / 64] >> (n % 64) & 1) == 0) return nullptr;
      const size_t rank = Rank(n);
      return rank < _Small.size() ? _Small[rank] : nullptr;
    }
    if (_Slots.empty()) return nullptr;
    const size_t hash = Hash(key);
    for (size_t i = hash & _Mask;; i = (i + 1) & _Mask) {
      const Slot& slot = _Slots[i];
      if (slot.position == 0) return nullptr;
      if (slot.fingerprint == Fingerprint(hash)) {
        const Entry& entry = _Entries[slot.position - 1];
        if (entry.key == key) return entry.element;
      }
    }
  }

 private:
  // Keys from this one on (a 2 MB bit set) are left to the table.
  static constexpr uint32_t kSmallLimit = uint32_t{1} << 24;
  // The number a key stands for when it is small: an integer below the limit, or text writing
  // it in plain decimal ("0", "17"; not "017", "+1" or " 1", which are other keys); else
  // kSmallLimit.
  static uint32_t Small(const Key& key) {
    if constexpr (std::is_integral_v<Key>) {
      static_assert(std::is_unsigned_v<Key>, "negative keys would need their own test");
      return key < kSmallLimit ? static_cast<uint32_t>(key) : kSmallLimit;
    } else {
      if (key.empty() || key.size() > 8 || (key[0] == '0' && key.size() > 1)) return kSmallLimit;
      uint32_t n = 0;
      for (char c : key) {
        if (c < '0' || c > '9') return kSmallLimit;
        n = n * 10 + static_cast<uint32_t>(c - '0');
      }
      return n;
    }
  }
  size_t Rank(uint32_t n) const {
    const uint64_t below = _Bits[n / 64] & ((uint64_t{1} << (n % 64)) - 1);
    return _Ranks[n / 64] + static_cast<size_t>(__builtin_popcountll(below));
  }
  struct Pending {
    uint32_t n;
    KalLightXmlElementItf* element;
  };
  struct Slot {
    uint32_t fingerprint = 0;
    uint32_t position = 0;  // 1-based in _Entries; 0: the slot is free
  };
  struct Entry {
    Key key;
    KalLightXmlElementItf* element;
  };
  // Integers are spread with a multiplication: their own values would crowd nearby slots.
  static size_t Hash(const Key& key) {
    if constexpr (std::is_integral_v<Key>) {
      return static_cast<size_t>((static_cast<uint64_t>(key) + 1) * 0x9E3779B97F4A7C15ull >> 17);
    } else {
      return std::hash<Key>()(key);
    }
  }
  // The slot is chosen by the low bits, so the fingerprint takes the high ones.
  static uint32_t Fingerprint(size_t hash) { return static_cast<uint32_t>(uint64_t{hash} >> 32); }
  void Grow() {
    _Slots.assign(_Slots.empty() ? 16 : _Slots.size() * 2, Slot{});
    _Mask = _Slots.size() - 1;
    for (size_t e = 0; e < _Entries.size(); ++e) {
      const size_t hash = Hash(_Entries[e].key);
      size_t i = hash & _Mask;
      while (_Slots[i].position != 0) i = (i + 1) & _Mask;
      _Slots[i] = {Fingerprint(hash), static_cast<uint32_t>(e + 1)};
    }
  }

  std::vector<uint64_t> _Bits;   // bit n set when the small key n is present
  std::vector<uint32_t> _Ranks;  // per word of _Bits: the bits set in the words before it
  std::vector<KalLightXmlElementItf*> _Small;  // the small keys' elements, in key order
  std::vector<Pending> _Pending;               // small keys in the order added, until Finish()
  std::vector<Slot> _Slots;
  std::vector<Entry> _Entries;
  size_t _Mask = 0;
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
  index.Finish();
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
