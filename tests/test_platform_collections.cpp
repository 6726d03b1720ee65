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

// Both arrays: Locate counts from a position, Compare needs equal sizes and membership both
// ways, duplicates go after what `removed` held, out-of-range positions give `none` or -1.
template <class Coll, class T>
void CheckArray(T a, T b, T c, T x, T none) {
  T items[] = {b, a, b, c, a, b}, abc[] = {a, b, c}, cab[] = {c, a, b}, ab[] = {a, b},
    aa[] = {a, a};
  Coll coll(items, 6), removed;
  EXPECT_EQ((std::vector<int>{
                coll.Locate(b), coll.Locate(b, 2), coll.Locate(a, 6), coll.Locate(x),
                Coll::Compare(Coll(abc, 3), Coll(cab, 3)), Coll::Compare(Coll(abc, 3), Coll(ab, 2)),
                Coll::Compare(Coll(aa, 2), Coll(ab, 2)), Coll::Compare(Coll(ab, 2), Coll(aa, 2))}),
            (std::vector<int>{1, 3, 0, 0, 0, 1, 1, 1}));
  removed.Append(x);
  coll.RemoveDuplicates(&removed);
  EXPECT_EQ(Items(coll), (std::vector<T>{b, a, c}));
  EXPECT_EQ(Items(removed), (std::vector<T>{x, b, a, b}));
  EXPECT_EQ((std::vector<T>{coll[0], coll[4]}), (std::vector<T>{none, none}));
  EXPECT_EQ(
      (std::vector<int>{coll.Set(0, x), coll.RemoveIndex(0), coll.Set(4, x), coll.RemoveIndex(4),
                        coll.Set(2, x), coll.RemoveIndex(1), coll.RemoveIndex(3)}),
      (std::vector<int>{-1, -1, -1, -1, 0, 0, -1}));
  EXPECT_EQ(Items(coll), (std::vector<T>{x, c}));
}

TEST(KalRawColl, PointerAndIntArraysFollowTheSameRules) {
  int a = 0, b = 0, c = 0, x = 0;
  CheckArray<KalRawCollPV, void*>(&a, &b, &c, &x, nullptr);
  CheckArray<KalRawCollint, int>(5, -2, 40, 7, 0);
  const int values[] = {5, -2, 40, 0};
  KalRawCollint sorted(values, 4);
  sorted.QuickSort([](const void* l, const void* r) {  // descending
    return *static_cast<const int*>(r) - *static_cast<const int*>(l);
  });
  EXPECT_EQ(Items(sorted), (std::vector<int>{40, 5, 0, -2}));
}

// Hash table records are ints keyed by value; a difference of either sign means "not equal".
unsigned int HashValue(const void* r) { return *static_cast<const unsigned int*>(r); }
unsigned int HashToOneBucket(const void*) { return 42u; }
int Difference(const void* a, const void* b) {
  return *static_cast<const int*>(a) - *static_cast<const int*>(b);
}
std::vector<const void*> gVisited;
int RememberVisit(void* record) {
  gVisited.push_back(record);
  return 0;
}
std::vector<const void*> Visits(const KalHashTable& table) {
  gVisited.clear();
  const int count = table.ApplyGlobalFunct(RememberVisit);
  EXPECT_EQ(count, static_cast<int>(gVisited.size()));
  return gVisited;
}

TEST(KalHashTable, LookupsSurviveGrowthApplyFollowsInsertionOrderAndEqualRecordsAreAllKept) {
  const int count = 100000;
  std::vector<int> records(count);
  std::vector<const void*> inserted;
  KalHashTable table(HashValue, Difference, 4);
  EXPECT_EQ(table.Insert(nullptr), -1);
  for (int& r : records) {
    r = static_cast<int>(inserted.size() * 7919 % count);  // not in bucket order
    ASSERT_EQ(table.Insert(&r), 0);
    inserted.push_back(&r);
  }
  for (int& r : records) ASSERT_EQ(table.Locate(&r), &r);
  EXPECT_EQ(table.Locate(&count), nullptr);
  EXPECT_EQ(table.Locate(nullptr), nullptr);
  EXPECT_TRUE(Visits(table) == inserted);
  table.RemoveAll();
  EXPECT_EQ(table.Size() + Visits(table).size(), 0u);
  EXPECT_EQ(table.Locate(&records[5]), nullptr);
  ASSERT_EQ(table.Insert(&records[5]), 0);
  EXPECT_EQ(table.Locate(&records[5]), &records[5]);

  // Equal records are all kept, Locate gives the last; only a zero difference means equal.
  int first = 7, other = 8, second = 7, six = 6, nine = 9;
  KalHashTable one(HashToOneBucket, Difference, 0);  // one bucket, grows on the third record
  for (int* r : {&first, &second, &other}) ASSERT_EQ(one.Insert(r), 0);
  EXPECT_EQ((std::vector<void*>{one.Locate(&first), one.Locate(&other), one.Locate(&six),
                                one.Locate(&nine)}),
            (std::vector<void*>{&second, &other, nullptr, nullptr}));
  EXPECT_EQ(Visits(one), (std::vector<const void*>{&first, &second, &other}));
}

// An element whose value tells it apart.
struct Tagged : KalLightXmlElement {
  explicit Tagged(const char* value) { _Value = value; }
};
using ElementList = KalListPtrKalLightXmlElementItf;

int FindSameValue(KalLightXmlElementItf* item, const ElementList& other) {
  for (int i = 1; i <= other.Size(); ++i)
    if (other[i]->GetValue() == item->GetValue()) return 0;
  return 1;
}
int FindNothing(KalLightXmlElementItf*, const ElementList&) { return 1; }
int gOuterCalls = 0;
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
                        *reversed[] = {&b, &a}, *twice[] = {&otherA, &otherA};
  const ElementList ab(first, 2), ba(reversed, 2), other(same, 2), aa(twice, 2);
  EXPECT_EQ(Items(ab), (std::vector<KalLightXmlElementItf*>{&a, &b}));
  EXPECT_EQ(ElementList(nullptr, 4).Size() + ElementList(first, -1).Size(), 0);
  // Null compares addresses; every member of each list must be found in the other.
  EXPECT_EQ(
      (std::vector<int>{
          ElementList::Compare(ab, ba, nullptr), ElementList::Compare(ab, other, nullptr),
          ElementList::Compare(ab, other, FindSameValue),
          ElementList::Compare(ab, aa, FindSameValue), ElementList::Compare(aa, ab, FindSameValue),
          ElementList::Compare(ab, other, CountOuterAndNest)}),
      (std::vector<int>{0, 1, 0, 1, 1, 0}));
  EXPECT_EQ(gOuterCalls, 4);
}

}  // namespace
