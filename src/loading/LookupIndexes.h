// Indexes behind the lookups that would otherwise scan a list or a container on every call.
// Each is built on first use from the same sequence the scan walks and answers exactly as the
// scan would: the first match where the scan stops at it, every match in order where the scan
// goes on, and a null entry ending the sequence where the scan meets it.
#ifndef KAL_VORLA_LOOKUP_INDEXES_H
#define KAL_VORLA_LOOKUP_INDEXES_H

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
                   EntriesByKey<Key>* index, bool& built, KalLightXmlElementItf*& match) {
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
    IndexChildren(container, *index, keyOf);
  }
  if (const auto* found = index->Find(wanted)) {
    match = found->front();
    return WalkEnd::kStopped;
  }
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
  kalvorla::EntriesByKey<std::string_view> aspectsByOwner;
  std::unordered_map<int, int> materialPositions;           // id -> first 1-based position
  kalvorla::EntriesByKey<unsigned int> representationsById;  // "%u", 0 when not a number
  kalvorla::EntriesByKey<unsigned int> techRepsById;
  kalvorla::EntriesByKey<unsigned int> representationsBySignedId;  // "%d", carried over
  kalvorla::EntriesByKey<std::string> representationsByIdText;     // id as written
};

#endif
