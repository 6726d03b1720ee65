// Growable arrays, the hash table and the typed element list.
#include "KalHashTable.h"
#include "KalListPtrKalLightXmlElementItf.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

// Records are ints; any non-zero difference, of either sign, means "not equal".
int Difference(const void* a, const void* b) {
  return *static_cast<const int*>(a) - *static_cast<const int*>(b);
}

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
  sorted.QuickSort([](const void* l, const void* r) { return Difference(r, l); });  // descending
  EXPECT_EQ(Items(sorted), (std::vector<int>{40, 5, 0, -2}));
}

// The records ApplyGlobalFunct visits, in order; it must return their count.
std::vector<const void*> Visits(const KalHashTable& table) {
  static std::vector<const void*> visited;
  visited.clear();
  const int count = table.ApplyGlobalFunct([](void* r) { return visited.push_back(r), 0; });
  EXPECT_EQ(count, static_cast<int>(visited.size()));
  return visited;
}

TEST(KalHashTable, LookupsSurviveGrowthApplyFollowsInsertionOrderAndEqualRecordsAreAllKept) {
  std::vector<int> records(100000);
  std::vector<const void*> inserted;
  KalHashTable table([](const void* r) { return *static_cast<const unsigned*>(r); }, Difference, 4);
  EXPECT_EQ(table.Insert(nullptr), -1);
  for (int& r : records) {
    r = static_cast<int>(inserted.size() * 7919 % records.size());  // not in bucket order
    ASSERT_EQ(table.Insert(&r), 0);
    inserted.push_back(&r);
  }
  for (int& r : records) ASSERT_EQ(table.Locate(&r), &r);
  EXPECT_EQ(table.Locate(nullptr), nullptr);
  EXPECT_TRUE(Visits(table) == inserted);
  table.RemoveAll();
  EXPECT_EQ(table.Size() + Visits(table).size(), 0u);
  EXPECT_EQ(table.Locate(&records[5]), nullptr);
  ASSERT_EQ(table.Insert(&records[5]), 0);
  EXPECT_EQ(table.Locate(&records[5]), &records[5]);

  // In one bucket every lookup compares: Locate gives the last of equal records.
  int first = 7, other = 8, second = 7, six = 6, nine = 9;
  KalHashTable one([](const void*) { return 42u; }, Difference, 0);
  for (int* r : {&first, &second, &other}) ASSERT_EQ(one.Insert(r), 0);
  EXPECT_EQ((std::vector<void*>{one.Locate(&first), one.Locate(&other), one.Locate(&six),
                                one.Locate(&nine)}),
            (std::vector<void*>{&second, &other, nullptr, nullptr}));
  EXPECT_EQ(Visits(one), (std::vector<const void*>{&first, &second, &other}));
}

// A table told that its hash is the key answers every lookup as the plain table does: ids in
// any order, repeated (the last inserted wins), far apart, below the first one, or after a
// far one that the others later reach; and again after RemoveAll.
TEST(KalHashTable, KeyedOnTheHashItAnswersAsThePlainTable) {
  using Record = std::pair<unsigned, int>;  // key, position
  const auto hash = [](const void* r) { return static_cast<const Record*>(r)->first; };
  const auto compare = [](const void* a, const void* b) {
    return static_cast<const Record*>(a)->first == static_cast<const Record*>(b)->first ? 0 : 1;
  };
  std::vector<std::vector<unsigned>> cases(4, std::vector<unsigned>{});
  for (unsigned k = 1; k <= 3000; ++k)
    cases[0].push_back(k), cases[1].push_back(3001 - k), cases[2].push_back(1000000000u + k * 7);
  for (unsigned k = 1; k <= 110000; ++k)
    cases[3].push_back(k == 51 ? 100000 : k == 100000 ? 51 : k);
  cases.push_back({4294967295u, 5, 5, 3, 5, 0, 70, 2, 4294967295u, 69, 1});
  for (const auto& keys : cases) {
    std::vector<Record> records;
    for (unsigned k : keys) records.emplace_back(k, static_cast<int>(records.size()));
    KalHashTable keyed(hash, compare, 4, true), plain(hash, compare, 4);
    for (int round = 0; round < 2; ++round, keyed.RemoveAll(), plain.RemoveAll()) {
      for (Record& r : records) ASSERT_EQ(keyed.Insert(&r) + plain.Insert(&r), 0);
      std::vector<unsigned> probes = keys;
      probes.insert(probes.end(), {0u, 6u, 64u, 65u, 3001u, 99999u, 100001u, 4294967294u});
      for (unsigned k : probes) {
        const Record probe{k, -1};
        ASSERT_EQ(keyed.Locate(&probe), plain.Locate(&probe)) << keys.size() << ": " << k;
      }
    }
  }
}

using ElementList = KalListPtrKalLightXmlElementItf;

int FindSameTag(Element* item, const ElementList& other) {
  for (int i = 1; i <= other.Size(); ++i)
    if (other[i]->GetType() == item->GetType()) return 0;
  return 1;
}
int gOuterCalls = 0;
// Compares lists from inside a comparison; the outer callback must stay in force.
int CountOuterAndNest(Element* item, const ElementList& other) {
  ++gOuterCalls;
  Element* single[] = {item};
  ElementList::Compare(ElementList(single, 1), ElementList(single, 1),
                       [](Element*, const ElementList&) { return 1; });
  return FindSameTag(item, other);
}

TEST(KalListPtrKalLightXmlElementItf, ArrayConstructionAndCompareThroughNestedTypedCallbacks) {
  FakeElement a("A"), b("B"), otherA("A"), otherB("B"), c("C");
  Element *first[] = {&a, &b, &c}, *same[] = {&otherB, &otherA}, *reversed[] = {&b, &a},
          *twice[] = {&otherA, &otherA};
  const ElementList ab(first, 2), ba(reversed, 2), other(same, 2), aa(twice, 2);
  EXPECT_EQ(Items(ab), (std::vector<Element*>{&a, &b}));
  EXPECT_EQ(ElementList(nullptr, 4).Size() + ElementList(first, -1).Size(), 0);
  // Null compares addresses; every member of each list must be found in the other.
  EXPECT_EQ(
      (std::vector<int>{
          ElementList::Compare(ab, ba, nullptr), ElementList::Compare(ab, other, nullptr),
          ElementList::Compare(ab, other, FindSameTag), ElementList::Compare(ab, aa, FindSameTag),
          ElementList::Compare(aa, ab, FindSameTag),
          ElementList::Compare(ab, other, CountOuterAndNest)}),
      (std::vector<int>{0, 1, 0, 1, 1, 0}));
  EXPECT_EQ(gOuterCalls, 4);
}

}  // namespace
}  // namespace kaltest
