// Growable arrays, the hash table and the typed element list.
#include <gtest/gtest.h>

#include <vector>

#include "KalHashTable.h"
#include "KalLightXmlElement.h"
#include "KalListPtrKalLightXmlElementItf.h"
#include "KalRawColl.h"

namespace {

// The entries of a 1-based collection, in order.
template <class Coll>
auto Items(const Coll& coll) {
  std::vector<decltype(coll[1])> items;
  for (int i = 1; i <= coll.Size(); ++i) items.push_back(coll[i]);
  return items;
}
using Ptrs = std::vector<void*>;

TEST(KalRawCollPV, AccessSetAndRemoveAreOneBasedAndRefuseOutOfRange) {
  int a = 0, b = 0, c = 0, x = 0;
  void* items[] = {&a, &b, &c};
  KalRawCollPV coll(items, 3);
  EXPECT_EQ(Items(coll), (Ptrs{&a, &b, &c}));
  for (int bad : {0, 4}) {
    EXPECT_EQ(coll[bad], nullptr);
    EXPECT_EQ(coll.Set(bad, &x), -1);
    EXPECT_EQ(coll.RemoveIndex(bad), -1);
  }
  EXPECT_EQ(coll.Set(2, &x), 0);
  EXPECT_EQ(coll.RemoveIndex(1), 0);
  EXPECT_EQ(coll.RemoveIndex(3), -1);
  EXPECT_EQ(Items(coll), (Ptrs{&x, &c}));
}

TEST(KalRawCollPV, LocateFromAPositionAndRemoveDuplicatesKeepingFirstOccurrences) {
  int a = 0, b = 0, c = 0, previous = 0;
  void* items[] = {&b, &a, &b, &c, &a, &b};
  KalRawCollPV coll(items, 6), removed;
  const std::vector<int> found = {coll.Locate(&b), coll.Locate(&b, 2), coll.Locate(&a, 6),
                                  coll.Locate(&previous)};
  EXPECT_EQ(found, (std::vector<int>{1, 3, 0, 0}));
  removed.Append(&previous);
  coll.RemoveDuplicates(&removed);
  EXPECT_EQ(Items(coll), (Ptrs{&b, &a, &c}));
  EXPECT_EQ(Items(removed), (Ptrs{&previous, &b, &a, &b}));
}

// "Found" when the other list holds an entry pointing at an equal int.
int FindEqualTarget(void* item, const KalRawCollPV& other) {
  for (int i = 1; i <= other.Size(); ++i) {
    if (*static_cast<int*>(other[i]) == *static_cast<int*>(item)) return 0;
  }
  return 1;
}

TEST(KalRawCollPV, CompareNeedsEveryMemberFoundInBothDirections) {
  int a = 1, b = 2, c = 3, otherA = 1, otherB = 2;
  void *abc[] = {&a, &b, &c}, *cab[] = {&c, &a, &b}, *ab[] = {&a, &b}, *aa[] = {&a, &a};
  void *ba2[] = {&otherB, &otherA}, *aa2[] = {&otherA, &otherA};
  using C = KalRawCollPV;
  EXPECT_EQ(C::Compare(C(abc, 3), C(cab, 3)), 0);
  EXPECT_EQ(C::Compare(C(abc, 3), C(ab, 2)), 1);
  EXPECT_EQ(C::Compare(C(aa, 2), C(ab, 2)), 1);
  EXPECT_EQ(C::Compare(C(ab, 2), C(aa, 2)), 1);
  // Through the callback: equal values at different addresses.
  EXPECT_EQ(C::Compare(C(ab, 2), C(ba2, 2)), 1);
  EXPECT_EQ(C::Compare(C(ab, 2), C(ba2, 2), FindEqualTarget), 0);
  EXPECT_EQ(C::Compare(C(ab, 2), C(aa2, 2), FindEqualTarget), 1);
  EXPECT_EQ(C::Compare(C(aa2, 2), C(ab, 2), FindEqualTarget), 1);
}

TEST(KalRawCollint, DuplicatesSortAndCompareInBothDirections) {
  const int values[] = {5, -2, 40, 5, 0, -2};
  KalRawCollint coll(values, 6), removed(values, 1);
  EXPECT_EQ(coll[0] + coll[7], 0);
  coll.RemoveDuplicates(&removed);
  EXPECT_EQ(Items(coll), (std::vector<int>{5, -2, 40, 0}));
  EXPECT_EQ(Items(removed), (std::vector<int>{5, 5, -2}));
  coll.QuickSort([](const void* l, const void* r) {  // descending
    return *static_cast<const int*>(r) - *static_cast<const int*>(l);
  });
  EXPECT_EQ(Items(coll), (std::vector<int>{40, 5, 0, -2}));
  const int shuffled[] = {0, 40, -2, 5}, partial[] = {5, 5, -2, 0};
  EXPECT_EQ(KalRawCollint::Compare(coll, KalRawCollint(shuffled, 4)), 0);
  EXPECT_EQ(KalRawCollint::Compare(KalRawCollint(partial, 4), coll), 1);
}

// Hash table records are ints keyed by value; a difference of either sign means "not equal".
unsigned int HashValue(const void* r) {
  return static_cast<unsigned int>(*static_cast<const int*>(r));
}
unsigned int HashToOneBucket(const void*) { return 42u; }
int Difference(const void* a, const void* b) {
  return *static_cast<const int*>(a) - *static_cast<const int*>(b);
}
std::vector<const int*> gVisited;
int RememberVisit(void* record) {
  gVisited.push_back(static_cast<const int*>(record));
  return 0;
}

TEST(KalHashTable, GrowingKeepsLookupsRightAndApplyVisitsEveryRecordInInsertionOrder) {
  const int count = 100000;
  std::vector<int> records(count);
  KalHashTable table(HashValue, Difference, 4);
  for (int i = 0; i < count; ++i) {
    records[i] = (i * 7919) % count;  // bucket order differs from insertion order
    ASSERT_EQ(table.Insert(&records[i]), 0) << i;
  }
  EXPECT_GE(2 * table.GetBucketCount(), count) << "chains stay short";
  auto find = [&table](int key) { return table.Locate(&key); };
  for (int i = 0; i < count; ++i) ASSERT_EQ(find(records[i]), &records[i]) << i;
  EXPECT_EQ(find(count), nullptr);
  gVisited.clear();
  EXPECT_EQ(table.ApplyGlobalFunct(RememberVisit), count);
  ASSERT_EQ(gVisited.size(), static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) ASSERT_EQ(gVisited[i], &records[i]) << i;
}

TEST(KalHashTable, EqualRecordsAreAllKeptLocateGivesTheLastAndOnlyZeroMeansEqual) {
  int first = 7, other = 8, second = 7;
  KalHashTable table(HashToOneBucket, Difference, 1);  // grows on the third record
  for (int* r : {&first, &second, &other}) ASSERT_EQ(table.Insert(r), 0);
  auto find = [&table](int key) { return table.Locate(&key); };
  EXPECT_EQ((Ptrs{find(7), find(8), find(6), find(9)}), (Ptrs{&second, &other, nullptr, nullptr}));
  gVisited.clear();
  table.ApplyGlobalFunct(RememberVisit);
  EXPECT_EQ(gVisited, (std::vector<const int*>{&first, &second, &other}));
}

TEST(KalHashTable, NullIsRefusedAndRemoveAllLeavesAWorkingTable) {
  for (int buckets : {0, 2}) {
    KalHashTable table(HashValue, Difference, buckets);
    EXPECT_LT(table.Insert(nullptr), 0);
    EXPECT_EQ(table.Size() + table.ApplyGlobalFunct(RememberVisit), 0);
    EXPECT_EQ(table.Locate(nullptr), nullptr);
    std::vector<int> records(50);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(table.Insert(&(records[i] = i)), 0);
    table.RemoveAll();
    EXPECT_EQ(table.Size() + table.ApplyGlobalFunct(RememberVisit), 0);
    EXPECT_EQ(table.Locate(&records[5]), nullptr);
    ASSERT_EQ(table.Insert(&records[5]), 0);
    EXPECT_EQ(table.Locate(&records[5]), &records[5]);
  }
}

// An element whose value tells it apart.
struct Tagged : KalLightXmlElement {
  explicit Tagged(const char* value) { _Value = value; }
};
using ElementList = KalListPtrKalLightXmlElementItf;

int FindSameValue(KalLightXmlElementItf* item, const ElementList& other) {
  for (int i = 1; i <= other.Size(); ++i) {
    if (other[i]->GetValue() == item->GetValue()) return 0;
  }
  return 1;
}

int gOuterCalls = 0;
int FindNothing(KalLightXmlElementItf*, const ElementList&) { return 1; }
// Compares other lists from inside a comparison; the outer callback must stay in force.
int CountOuterAndNest(KalLightXmlElementItf* item, const ElementList& other) {
  ++gOuterCalls;
  KalLightXmlElementItf* single[] = {item};
  ElementList::Compare(ElementList(single, 1), ElementList(single, 1), FindNothing);
  return FindSameValue(item, other);
}

TEST(KalListPtrKalLightXmlElementItf, ArrayConstructionAndCompareThroughNestedTypedCallbacks) {
  Tagged a("A"), b("B"), otherA("A"), otherB("B"), c("C");
  KalLightXmlElementItf *first[] = {&a, &b, &c}, *same[] = {&otherB, &otherA},
                        *reversed[] = {&b, &a};
  const ElementList one(first, 2);
  EXPECT_EQ(Items(one), (std::vector<KalLightXmlElementItf*>{&a, &b}));
  EXPECT_EQ(ElementList(nullptr, 4).Size() + ElementList(first, -1).Size(), 0);
  EXPECT_EQ(ElementList::Compare(one, ElementList(same, 2), FindSameValue), 0);
  EXPECT_EQ(ElementList::Compare(one, ElementList(same, 2), nullptr), 1);
  EXPECT_EQ(ElementList::Compare(one, ElementList(reversed, 2), nullptr), 0);
  gOuterCalls = 0;
  EXPECT_EQ(ElementList::Compare(one, ElementList(same, 2), CountOuterAndNest), 0);
  EXPECT_EQ(gOuterCalls, 4);
}

}  // namespace
