// Growable arrays of the platform, indexed from 1.
#ifndef KAL_RAW_COLL_H
#define KAL_RAW_COLL_H

#include <vector>

class KalRawCollPV {
 public:
  explicit KalRawCollPV(int initialSize = 0);
  KalRawCollPV(const KalRawCollPV& other) = default;
  KalRawCollPV(void** array, int count);
  KalRawCollPV& operator=(const KalRawCollPV& other) = default;
  ~KalRawCollPV() = default;

  int Size() const { return static_cast<int>(_Items.size()); }
  // 1-based; an index out of range gives null.
  void* operator[](int index) const;
  // 1-based; returns 0 when the index is in range, -1 otherwise.
  int Set(int index, void* value);
  void Append(void* value);
  // Removes the entry at a 1-based index; -1 when out of range.
  int RemoveIndex(int index);
  // Empties the array; releases its storage unless freeStorage is 0.
  void RemoveAll(int freeStorage = 1);
  // 1-based index of the first entry equal to value at or after `from`, 0 when none.
  int Locate(void* value, int from = 1) const;
  // Sorts with a qsort-style comparison of two entries (pointers to void*); by address
  // when compare is null.
  void QuickSort(int (*compare)(const void* a, const void* b) = nullptr);
  // Keeps the first occurrence of each pointer, in order; the dropped entries are appended
  // to `removed` when it is given.
  void RemoveDuplicates(KalRawCollPV* removed = nullptr);
  // 0 when a and b hold the same entries: the same count, every entry of one found in the
  // other by `compare` (which returns 0 for "found"; membership by address when null).
  // 1 otherwise.
  static int Compare(const KalRawCollPV& a, const KalRawCollPV& b,
                     int (*compare)(void* item, const KalRawCollPV& other) = nullptr);

 private:
  std::vector<void*> _Items;
};

class KalRawCollint {
 public:
  explicit KalRawCollint(int initialSize = 0);
  KalRawCollint(const KalRawCollint& other) = default;
  KalRawCollint(const int* array, int count);
  KalRawCollint& operator=(const KalRawCollint& other) = default;
  ~KalRawCollint() = default;

  int Size() const { return static_cast<int>(_Items.size()); }
  // 1-based; an index out of range gives 0.
  int operator[](int index) const;
  int Set(int index, int value);
  void Append(int value);
  int RemoveIndex(int index);
  void RemoveAll(int freeStorage = 1);
  int Locate(int value, int from = 1) const;
  // Ascending when compare is null; otherwise qsort-style on pointers to int.
  void QuickSort(int (*compare)(const void* a, const void* b) = nullptr);
  void RemoveDuplicates(KalRawCollint* removed = nullptr);
  static int Compare(const KalRawCollint& a, const KalRawCollint& b,
                     int (*compare)(int item, const KalRawCollint& other) = nullptr);

 private:
  std::vector<int> _Items;
};

#endif
