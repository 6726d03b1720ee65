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
  // hashIsKey: records compare equal exactly when their hashes are equal, as in a table keyed
  // on an id the hash gives back unchanged. Records whose hashes fall in a dense enough run
  // are then also held in a direct array, so that Locate reads one slot instead of a bucket
  // and its chain, and calls neither callback.
  KalHashTable(KalHashFunction hash, KalCompareFunction compare, int bucketCount,
               bool hashIsKey = false);
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
  // Makes the direct array cover `hash` when that keeps it dense and in step with the table;
  // false when the hash is left to the chains.
  bool CoverDirect(unsigned int hash);

  KalHashFunction _Hash;
  KalCompareFunction _Compare;
  int _InitialBuckets;
  bool _HashIsKey;
  std::vector<int> _Buckets;  // head entry index per bucket, -1 when empty
  std::vector<Entry> _Entries;
  // The last record inserted under each hash from _DirectLow on, null for none. Hashes from
  // _DirectBlocked on were left to the chains, so the array never grows over them.
  std::vector<void*> _Direct;
  unsigned int _DirectLow = 0;
  unsigned int _DirectBlocked = ~0u;
};

#endif
