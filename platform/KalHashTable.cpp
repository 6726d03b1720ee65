#include "KalHashTable.h"

#include <algorithm>
#include <new>

namespace {

// Past this the bucket array stops doubling; chains then just get longer.
constexpr size_t kMaxBuckets = size_t{1} << 28;

}  // namespace

KalHashTable::KalHashTable(KalHashFunction hash, KalCompareFunction compare, int bucketCount)
    : _Hash(hash),
      _Compare(compare),
      _InitialBuckets(bucketCount > 0 ? bucketCount : 1),
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
    const size_t bucket = hash % _Buckets.size();
    _Entries.push_back(Entry{record, hash, _Buckets[bucket]});
    _Buckets[bucket] = static_cast<int>(_Entries.size() - 1);
  } catch (const std::bad_alloc&) {
    return -2;
  }
  return 0;
}

void* KalHashTable::Locate(const void* probe) const {
  if (probe == nullptr) return nullptr;
  const unsigned int hash = _Hash != nullptr ? _Hash(probe) : 0u;
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

void KalHashTable::RemoveAll() {
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
