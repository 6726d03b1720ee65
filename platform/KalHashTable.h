// Hash table of record pointers, keyed through caller-supplied callbacks.
#ifndef KAL_HASH_TABLE_H
#define KAL_HASH_TABLE_H

#include <cstddef>
#include <vector>

typedef unsigned int (*KalHashFunction)(const void* record);
// 0 means equal.
typedef int (*KalCompareFunction)(const void* a, const void* b);
typedef int (*KalApplyFunction)(void* record);

// The table never owns its records: deleting or emptying it leaves them alone (callers
// release them with ApplyGlobalFunct first). Records that compare equal are all kept, so a
// record handed to Insert is never dropped; Locate gives the one inserted last. The bucket
// count given is where the table starts; it grows so that lookups stay short.
class KalHashTable {
 public:
  KalHashTable(KalHashFunction hash, KalCompareFunction compare, int bucketCount);
  ~KalHashTable();
  KalHashTable(const KalHashTable&) = delete;
  KalHashTable& operator=(const KalHashTable&) = delete;

  // 0 when stored; negative for a null record or when memory runs out (the record is then
  // not stored and still belongs to the caller).
  int Insert(void* record);
  // The stored record that compares equal to the probe, or null.
  void* Locate(const void* probe) const;
  // Calls fn on every record once, in insertion order. Returns the number of records.
  int ApplyGlobalFunct(KalApplyFunction fn) const;
  void RemoveAll();
  int Size() const { return static_cast<int>(_Entries.size()); }
  int GetBucketCount() const { return static_cast<int>(_Buckets.size()); }

 private:
  struct Entry {
    void* record;
    unsigned int hash;
    int next;  // index in _Entries of the next entry of the same bucket, -1 at the end
  };
  void Rehash(size_t bucketCount);

  KalHashFunction _Hash;
  KalCompareFunction _Compare;
  int _InitialBuckets;
  std::vector<int> _Buckets;  // head entry index per bucket, -1 when empty
  std::vector<Entry> _Entries;
};

#endif
