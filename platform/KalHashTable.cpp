#include "KalHashTable.h"

#include <algorithm>
#include <new>

namespace {

// Past this the bucket array stops doubling; chains then just get longer.
constexpr size_t kMaxBuckets = size_t{1} << 28;

}  // namespace

KalHashTable::KalHashTable(KalHashFunction hash, KalCompareFunction compare, int bucketCount,
                           bool hashIsKey)
    : _Hash(hash),
      _Compare(compare),
      _InitialBuckets(bucketCount > 0 ? bucketCount : 1),
      _HashIsKey(hashIsKey && hash != nullptr),
      _Buckets(static_cast<size_t>(_InitialBuckets), -1) {}

KalHashTable::~KalHashTable() = default;

int KalHashTable::Insert(void* record) {
  if (record == nullptr) return -1;
  try {
    // Growing first means a failed allocation leaves the table exactly as it was.
    if (_Entries.size() + 1 > 2 * _Buckets.size() && _Buckets.size() < kMaxBuckets) {
      Rehash(_Buckets.size() * 2);
    }
    const unsigned int hash = _Hash != nullptr ? _Hash(record) : 0u;
    const bool direct = _HashIsKey && CoverDirect(hash);
    const size_t bucket = hash % _Buckets.size();
    _Entries.push_back(Entry{record, hash, _Buckets[bucket]});
    _Buckets[bucket] = static_cast<int>(_Entries.size() - 1);
    if (direct) _Direct[hash - _DirectLow] = record;
  } catch (const std::bad_alloc&) {
    return -2;
  }
  return 0;
}

void* KalHashTable::Locate(const void* probe) const {
  if (probe == nullptr) return nullptr;
  const unsigned int hash = _Hash != nullptr ? _Hash(probe) : 0u;
  if (hash - _DirectLow < _Direct.size()) return _Direct[hash - _DirectLow];
  // Chains run from the newest entry, so the first match is the record inserted last.
  for (int i = _Buckets[hash % _Buckets.size()]; i >= 0;
       i = _Entries[static_cast<size_t>(i)].next) {
    const Entry& entry = _Entries[static_cast<size_t>(i)];
    if (entry.hash != hash) continue;
    const bool equal =
        _Compare != nullptr ? _Compare(entry.record, probe) == 0 : entry.record == probe;
    if (equal) return entry.record;
  }
  return nullptr;
}

int KalHashTable::ApplyGlobalFunct(KalApplyFunction fn) const {
  const int count = Size();
  if (fn == nullptr) return count;
  // Indexed so that a callback which empties the table ends the walk instead of crashing it.
  for (size_t i = 0; i < _Entries.size(); ++i) fn(_Entries[i].record);
  return count;
}

bool KalHashTable::CoverDirect(unsigned int hash) {
  if (_Direct.empty()) {
    // Ids mostly come in ascending order: start a little below the first that gets a slot.
    // Any record inserted before has the hash ~0u, which no run reaches.
    _DirectLow = hash - std::min(hash, 64u);
  }
  if (hash < _DirectLow) return false;
  const size_t offset = hash - _DirectLow;
  if (offset < _Direct.size()) return true;
  // Grown past a hash left to the chains, the array would answer null for it; grown far past
  // the records it holds, it would cost more memory than the table.
  if (hash >= _DirectBlocked || offset >= 4 * (_Entries.size() + 1) + 4096) {
    _DirectBlocked = std::min(_DirectBlocked, hash);
    return false;
  }
  _Direct.resize(offset + 1, nullptr);  // may throw: the table is then left as it was
  return true;
}

void KalHashTable::RemoveAll() {
  std::vector<void*>().swap(_Direct);
  _DirectLow = 0;
  _DirectBlocked = ~0u;
  std::vector<Entry>().swap(_Entries);
  try {
    std::vector<int>(static_cast<size_t>(_InitialBuckets), -1).swap(_Buckets);
  } catch (const std::bad_alloc&) {
    std::fill(_Buckets.begin(), _Buckets.end(), -1);
  }
}

void KalHashTable::Rehash(size_t bucketCount) {
  std::vector<int> buckets(bucketCount, -1);
  // Relinking in insertion order puts the newest entry at the head of every chain.
  for (size_t i = 0; i < _Entries.size(); ++i) {
    int& head = buckets[_Entries[i].hash % bucketCount];
    _Entries[i].next = head;
    head = static_cast<int>(i);
  }
  _Buckets.swap(buckets);
}
