#include "KalRawColl.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <unordered_set>

namespace {

// Shared by both arrays: positions are 1-based at the interface, 0-based inside.
template <typename T>
bool InRange(const std::vector<T>& items, int index) {
  return index >= 1 && index <= static_cast<int>(items.size());
}

template <typename T>
int LocateIn(const std::vector<T>& items, T value, int from) {
  if (from < 1) from = 1;
  for (size_t i = static_cast<size_t>(from) - 1; i < items.size(); ++i) {
    if (items[i] == value) return static_cast<int>(i) + 1;
  }
  return 0;
}

template <typename T>
void Release(std::vector<T>& items, int freeStorage) {
  if (freeStorage == 0) {
    items.clear();
  } else {
    std::vector<T>().swap(items);
  }
}

// Keeps the first occurrence of each value in a single pass; the others go to `dropped`.
template <typename T>
void KeepFirstOccurrences(std::vector<T>& items, std::vector<T>& dropped) {
  std::unordered_set<T> seen;
  seen.reserve(items.size());
  size_t kept = 0;
  for (size_t i = 0; i < items.size(); ++i) {
    if (seen.insert(items[i]).second) {
      items[kept++] = items[i];
    } else {
      dropped.push_back(items[i]);
    }
  }
  items.resize(kept);
}

template <typename T>
bool AllFoundIn(const std::vector<T>& items, const std::vector<T>& other) {
  std::unordered_set<T> members(other.begin(), other.end());
  for (const T& item : items) {
    if (members.count(item) == 0) return false;
  }
  return true;
}

// qsort is given no null base, even for an empty array: glibc declares it non-null.
template <typename T>
void SortWith(std::vector<T>& items, int (*compare)(const void*, const void*)) {
  if (items.size() < 2) return;
  std::qsort(items.data(), items.size(), sizeof(T), compare);
}

}  // namespace

// ---------------------------------------------------------------------------------------
// KalRawCollPV

KalRawCollPV::KalRawCollPV(int initialSize) {
  if (initialSize > 0) _Items.reserve(static_cast<size_t>(initialSize));
}

KalRawCollPV::KalRawCollPV(void** array, int count) {
  if (array != nullptr && count > 0) _Items.assign(array, array + count);
}

void* KalRawCollPV::operator[](int index) const {
  return InRange(_Items, index) ? _Items[static_cast<size_t>(index) - 1] : nullptr;
}

int KalRawCollPV::Set(int index, void* value) {
  if (!InRange(_Items, index)) return -1;
  _Items[static_cast<size_t>(index) - 1] = value;
  return 0;
}

void KalRawCollPV::Append(void* value) { _Items.push_back(value); }

int KalRawCollPV::RemoveIndex(int index) {
  if (!InRange(_Items, index)) return -1;
  _Items.erase(_Items.begin() + (index - 1));
  return 0;
}

void KalRawCollPV::RemoveAll(int freeStorage) { Release(_Items, freeStorage); }

int KalRawCollPV::Locate(void* value, int from) const { return LocateIn(_Items, value, from); }

void KalRawCollPV::QuickSort(int (*compare)(const void* a, const void* b)) {
  if (compare == nullptr) {
    // std::less gives a total order on unrelated pointers, which operator< does not promise.
    std::sort(_Items.begin(), _Items.end(), std::less<void*>());
  } else {
    SortWith(_Items, compare);
  }
}

void KalRawCollPV::RemoveDuplicates(KalRawCollPV* removed) {
  std::vector<void*> dropped;
  KeepFirstOccurrences(_Items, dropped);
  if (removed != nullptr) {
    removed->_Items.insert(removed->_Items.end(), dropped.begin(), dropped.end());
  }
}

int KalRawCollPV::Compare(const KalRawCollPV& a, const KalRawCollPV& b,
                          int (*compare)(void* item, const KalRawCollPV& other)) {
  if (a.Size() != b.Size()) return 1;
  if (compare == nullptr) {
    return AllFoundIn(a._Items, b._Items) && AllFoundIn(b._Items, a._Items) ? 0 : 1;
  }
  for (void* item : a._Items) {
    if (compare(item, b) != 0) return 1;
  }
  for (void* item : b._Items) {
    if (compare(item, a) != 0) return 1;
  }
  return 0;
}

// ---------------------------------------------------------------------------------------
// KalRawCollint

KalRawCollint::KalRawCollint(int initialSize) {
  if (initialSize > 0) _Items.reserve(static_cast<size_t>(initialSize));
}

KalRawCollint::KalRawCollint(const int* array, int count) {
  if (array != nullptr && count > 0) _Items.assign(array, array + count);
}

int KalRawCollint::operator[](int index) const {
  return InRange(_Items, index) ? _Items[static_cast<size_t>(index) - 1] : 0;
}

int KalRawCollint::Set(int index, int value) {
  if (!InRange(_Items, index)) return -1;
  _Items[static_cast<size_t>(index) - 1] = value;
  return 0;
}

void KalRawCollint::Append(int value) { _Items.push_back(value); }

int KalRawCollint::RemoveIndex(int index) {
  if (!InRange(_Items, index)) return -1;
  _Items.erase(_Items.begin() + (index - 1));
  return 0;
}

void KalRawCollint::RemoveAll(int freeStorage) { Release(_Items, freeStorage); }

int KalRawCollint::Locate(int value, int from) const { return LocateIn(_Items, value, from); }

void KalRawCollint::QuickSort(int (*compare)(const void* a, const void* b)) {
  if (compare == nullptr) {
    // Lists sorted by an earlier call are common; checking costs one pass.
    if (!std::is_sorted(_Items.begin(), _Items.end())) std::sort(_Items.begin(), _Items.end());
  } else {
    SortWith(_Items, compare);
  }
}

void KalRawCollint::RemoveDuplicates(KalRawCollint* removed) {
  std::vector<int> dropped;
  KeepFirstOccurrences(_Items, dropped);
  if (removed != nullptr) {
    removed->_Items.insert(removed->_Items.end(), dropped.begin(), dropped.end());
  }
}

int KalRawCollint::Compare(const KalRawCollint& a, const KalRawCollint& b,
                           int (*compare)(int item, const KalRawCollint& other)) {
  if (a.Size() != b.Size()) return 1;
  if (compare == nullptr) {
    return AllFoundIn(a._Items, b._Items) && AllFoundIn(b._Items, a._Items) ? 0 : 1;
  }
  for (int item : a._Items) {
    if (compare(item, b) != 0) return 1;
  }
  for (int item : b._Items) {
    if (compare(item, a) != 0) return 1;
  }
  return 0;
}
