// Growable arrays, the hash table and the typed element list.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "KalHashTable.h"
#include "KalListPtrKalLightXmlElementItf.h"
#include "KalRawColl.h"

namespace {

// ---------------------------------------------------------------------------------------
// KalRawCollPV

TEST(KalRawCollPV, AccessIsOneBasedAndOutOfRangeGivesNull) {
  int a = 0, b = 0, c = 0;
  KalRawCollPV coll;
  coll.Append(&a);
  coll.Append(&b);
  coll.Append(&c);
  ASSERT_EQ(coll.Size(), 3);
  EXPECT_EQ(coll[1], &a);
  EXPECT_EQ(coll[2], &b);
  EXPECT_EQ(coll[3], &c);
  EXPECT_EQ(coll[0], nullptr);
  EXPECT_EQ(coll[4], nullptr);
  EXPECT_EQ(coll[-1], nullptr);
}

TEST(KalRawCollPV, SetAndRemoveIndexAcceptOnlyPositionsInRange) {
  int a = 0, b = 0, c = 0, x = 0;
  void* items[] = {&a, &b, &c};
  KalRawCollPV coll(items, 3);

  EXPECT_EQ(coll.Set(2, &x), 0);
  EXPECT_EQ(coll[2], &x);
  EXPECT_EQ(coll.Set(0, &x), -1);
  EXPECT_EQ(coll.Set(4, &x), -1);
  EXPECT_EQ(coll.Size(), 3);

  EXPECT_EQ(coll.RemoveIndex(1), 0);
  ASSERT_EQ(coll.Size(), 2);
  EXPECT_EQ(coll[1], &x);
  EXPECT_EQ(coll[2], &c);
  EXPECT_EQ(coll.RemoveIndex(3), -1);
  EXPECT_EQ(coll.RemoveIndex(0), -1);
  EXPECT_EQ(coll.Size(), 2);
}

TEST(KalRawCollPV, ArrayConstructorTakesTheFirstCountEntriesAndIgnoresBadInput) {
  int a = 0, b = 0, c = 0;
  void* items[] = {&a, &b, &c};
  KalRawCollPV two(items, 2);
  ASSERT_EQ(two.Size(), 2);
  EXPECT_EQ(two[1], &a);
  EXPECT_EQ(two[2], &b);

  EXPECT_EQ(KalRawCollPV(nullptr, 5).Size(), 0);
  EXPECT_EQ(KalRawCollPV(items, 0).Size(), 0);
  EXPECT_EQ(KalRawCollPV(items, -3).Size(), 0);
  EXPECT_EQ(KalRawCollPV(100).Size(), 0);
}

TEST(KalRawCollPV, CopiesAreIndependentOfTheirSource) {
  int a = 0, b = 0, c = 0;
  KalRawCollPV source;
  source.Append(&a);
  source.Append(&b);

  KalRawCollPV copy(source);
  KalRawCollPV assigned;
  assigned.Append(&c);
  assigned = source;
  source.Set(1, &c);
  source.Append(&c);

  ASSERT_EQ(copy.Size(), 2);
  EXPECT_EQ(copy[1], &a);
  ASSERT_EQ(assigned.Size(), 2);
  EXPECT_EQ(assigned[1], &a);
  EXPECT_EQ(assigned[2], &b);
}

TEST(KalRawCollPV, RemoveAllEmptiesWithOrWithoutReleasingStorage) {
  int a = 0;
  for (int freeStorage : {0, 1}) {
    KalRawCollPV coll;
    for (int i = 0; i < 50; ++i) coll.Append(&a);
    coll.RemoveAll(freeStorage);
    EXPECT_EQ(coll.Size(), 0);
    EXPECT_EQ(coll[1], nullptr);
    coll.Append(&a);
    EXPECT_EQ(coll.Size(), 1);
    EXPECT_EQ(coll[1], &a);
  }
}

TEST(KalRawCollPV, LocateFindsTheFirstMatchAtOrAfterTheStartPosition) {
  int a = 0, b = 0, missing = 0;
  void* items[] = {&a, &b, &a, &b};
  KalRawCollPV coll(items, 4);
  EXPECT_EQ(coll.Locate(&b), 2);
  EXPECT_EQ(coll.Locate(&b, 3), 4);
  EXPECT_EQ(coll.Locate(&a, 2), 3);
  EXPECT_EQ(coll.Locate(&a, -7), 1);
  EXPECT_EQ(coll.Locate(&a, 4), 0);
  EXPECT_EQ(coll.Locate(&a, 9), 0);
  EXPECT_EQ(coll.Locate(&missing), 0);
}

int CompareIntTargetsDescending(const void* a, const void* b) {
  const int x = **static_cast<int* const*>(a);
  const int y = **static_cast<int* const*>(b);
  return (y > x) - (y < x);
}

TEST(KalRawCollPV, QuickSortUsesTheComparisonOrElseAddresses) {
  int values[5] = {3, 9, 1, 7, 5};
  void* shuffled[] = {&values[3], &values[0], &values[4], &values[1], &values[2]};

  KalRawCollPV byValue(shuffled, 5);
  byValue.QuickSort(CompareIntTargetsDescending);
  const int expected[] = {9, 7, 5, 3, 1};
  for (int i = 1; i <= 5; ++i) EXPECT_EQ(*static_cast<int*>(byValue[i]), expected[i - 1]);

  KalRawCollPV byAddress(shuffled, 5);
  byAddress.QuickSort();
  for (int i = 1; i <= 5; ++i) EXPECT_EQ(byAddress[i], &values[i - 1]);

  KalRawCollPV empty;
  empty.QuickSort(CompareIntTargetsDescending);
  EXPECT_EQ(empty.Size(), 0);
}

TEST(KalRawCollPV, RemoveDuplicatesKeepsFirstOccurrencesInOrderAndAppendsTheRest) {
  int a = 0, b = 0, c = 0, previous = 0;
  void* items[] = {&b, &a, &b, &c, &a, &b};
  KalRawCollPV coll(items, 6);
  KalRawCollPV removed;
  removed.Append(&previous);

  coll.RemoveDuplicates(&removed);

  ASSERT_EQ(coll.Size(), 3);
  EXPECT_EQ(coll[1], &b);
  EXPECT_EQ(coll[2], &a);
  EXPECT_EQ(coll[3], &c);
  ASSERT_EQ(removed.Size(), 4);
  EXPECT_EQ(removed[1], &previous);
  EXPECT_EQ(removed[2], &b);
  EXPECT_EQ(removed[3], &a);
  EXPECT_EQ(removed[4], &b);

  KalRawCollPV withoutRemoved(items, 6);
  withoutRemoved.RemoveDuplicates();
  EXPECT_EQ(withoutRemoved.Size(), 3);
}

TEST(KalRawCollPV, RemoveDuplicatesOnALargeArrayKeepsFirstOccurrences) {
  const int distinct = 150000;
  std::vector<char> storage(distinct);
  KalRawCollPV coll;
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < distinct; ++i) coll.Append(&storage[i]);
  }
  KalRawCollPV removed;

  coll.RemoveDuplicates(&removed);

  ASSERT_EQ(coll.Size(), distinct);
  ASSERT_EQ(removed.Size(), distinct);
  EXPECT_EQ(coll[distinct], &storage[distinct - 1]);
  EXPECT_EQ(removed[1], &storage[0]);
}

TEST(KalRawCollPV, CompareByAddressNeedsSameCountAndSameMembers) {
  int a = 0, b = 0, c = 0;
  void* abc[] = {&a, &b, &c};
  void* cab[] = {&c, &a, &b};
  void* ab[] = {&a, &b};
  void* aa[] = {&a, &a};
  EXPECT_EQ(KalRawCollPV::Compare(KalRawCollPV(abc, 3), KalRawCollPV(cab, 3)), 0);
  EXPECT_EQ(KalRawCollPV::Compare(KalRawCollPV(abc, 3), KalRawCollPV(ab, 2)), 1);
  // Every entry of the first is in the second, but not the other way round.
  EXPECT_EQ(KalRawCollPV::Compare(KalRawCollPV(aa, 2), KalRawCollPV(ab, 2)), 1);
  EXPECT_EQ(KalRawCollPV::Compare(KalRawCollPV(ab, 2), KalRawCollPV(aa, 2)), 1);
  EXPECT_EQ(KalRawCollPV::Compare(KalRawCollPV(), KalRawCollPV()), 0);
}

// "Found" when the other list holds an entry pointing at an equal int.
int FindEqualTarget(void* item, const KalRawCollPV& other) {
  for (int i = 1; i <= other.Size(); ++i) {
    if (*static_cast<int*>(other[i]) == *static_cast<int*>(item)) return 0;
  }
  return 1;
}

TEST(KalRawCollPV, CompareWithCallbackTreatsZeroAsFound) {
  int one = 1, two = 2, otherOne = 1, otherTwo = 2, three = 3;
  void* first[] = {&one, &two};
  void* sameValues[] = {&otherTwo, &otherOne};
  void* differentValues[] = {&otherOne, &three};
  EXPECT_EQ(
      KalRawCollPV::Compare(KalRawCollPV(first, 2), KalRawCollPV(sameValues, 2), FindEqualTarget),
      0);
  EXPECT_EQ(KalRawCollPV::Compare(KalRawCollPV(first, 2), KalRawCollPV(differentValues, 2),
                                  FindEqualTarget),
            1);
  // Different addresses: equal only through the callback.
  EXPECT_EQ(KalRawCollPV::Compare(KalRawCollPV(first, 2), KalRawCollPV(sameValues, 2)), 1);
}

// ---------------------------------------------------------------------------------------
// KalRawCollint

TEST(KalRawCollint, AccessIsOneBasedAndOutOfRangeGivesZero) {
  const int values[] = {10, 20, 30};
  KalRawCollint coll(values, 3);
  ASSERT_EQ(coll.Size(), 3);
  EXPECT_EQ(coll[1], 10);
  EXPECT_EQ(coll[3], 30);
  EXPECT_EQ(coll[0], 0);
  EXPECT_EQ(coll[4], 0);
  EXPECT_EQ(coll.Set(3, 33), 0);
  EXPECT_EQ(coll[3], 33);
  EXPECT_EQ(coll.Set(4, 1), -1);
  EXPECT_EQ(coll.RemoveIndex(2), 0);
  EXPECT_EQ(coll[2], 33);
  EXPECT_EQ(coll.RemoveIndex(3), -1);
  EXPECT_EQ(KalRawCollint(nullptr, 3).Size(), 0);
}

TEST(KalRawCollint, LocateAndRemoveAll) {
  const int values[] = {4, 8, 4, 15};
  KalRawCollint coll(values, 4);
  EXPECT_EQ(coll.Locate(4), 1);
  EXPECT_EQ(coll.Locate(4, 2), 3);
  EXPECT_EQ(coll.Locate(16), 0);
  coll.RemoveAll(0);
  EXPECT_EQ(coll.Size(), 0);
  EXPECT_EQ(coll.Locate(4), 0);
  coll.Append(7);
  coll.RemoveAll();
  EXPECT_EQ(coll.Size(), 0);
}

int CompareIntsDescending(const void* a, const void* b) {
  const int x = *static_cast<const int*>(a);
  const int y = *static_cast<const int*>(b);
  return (y > x) - (y < x);
}

TEST(KalRawCollint, QuickSortIsAscendingByDefaultAndFollowsAComparison) {
  const int values[] = {5, -2, 40, 0, -2, 2147483647, -2147483647 - 1};
  KalRawCollint ascending(values, 7);
  ascending.QuickSort();
  const int sorted[] = {-2147483647 - 1, -2, -2, 0, 5, 40, 2147483647};
  for (int i = 1; i <= 7; ++i) EXPECT_EQ(ascending[i], sorted[i - 1]);

  KalRawCollint descending(values, 7);
  descending.QuickSort(CompareIntsDescending);
  for (int i = 1; i <= 7; ++i) EXPECT_EQ(descending[i], sorted[7 - i]);
}

TEST(KalRawCollint, RemoveDuplicatesKeepsFirstOccurrencesInOrder) {
  const int values[] = {3, 1, 3, 2, 1, 3};
  KalRawCollint coll(values, 6);
  KalRawCollint removed;
  coll.RemoveDuplicates(&removed);
  ASSERT_EQ(coll.Size(), 3);
  EXPECT_EQ(coll[1], 3);
  EXPECT_EQ(coll[2], 1);
  EXPECT_EQ(coll[3], 2);
  ASSERT_EQ(removed.Size(), 3);
  EXPECT_EQ(removed[1], 3);
  EXPECT_EQ(removed[2], 1);
  EXPECT_EQ(removed[3], 3);
}

int FindWithinOne(int item, const KalRawCollint& other) {
  for (int i = 1; i <= other.Size(); ++i) {
    if (other[i] - item <= 1 && item - other[i] <= 1) return 0;
  }
  return 1;
}

TEST(KalRawCollint, CompareBySameMembersOrByCallback) {
  const int first[] = {1, 2, 3};
  const int shuffled[] = {3, 1, 2};
  const int shifted[] = {2, 3, 4};
  const int repeated[] = {1, 1, 2};
  EXPECT_EQ(KalRawCollint::Compare(KalRawCollint(first, 3), KalRawCollint(shuffled, 3)), 0);
  EXPECT_EQ(KalRawCollint::Compare(KalRawCollint(first, 3), KalRawCollint(shifted, 3)), 1);
  EXPECT_EQ(KalRawCollint::Compare(KalRawCollint(first, 3), KalRawCollint(repeated, 3)), 1);
  EXPECT_EQ(KalRawCollint::Compare(KalRawCollint(first, 3), KalRawCollint(first, 2)), 1);
  EXPECT_EQ(
      KalRawCollint::Compare(KalRawCollint(first, 3), KalRawCollint(shifted, 3), FindWithinOne), 0);
}

// ---------------------------------------------------------------------------------------
// KalHashTable

struct Record {
  int id;
  int tag;
};

unsigned int HashById(const void* record) {
  return static_cast<unsigned int>(static_cast<const Record*>(record)->id);
}

int CompareById(const void* a, const void* b) {
  return static_cast<const Record*>(a)->id == static_cast<const Record*>(b)->id ? 0 : 1;
}

// Signed difference: non-zero results of either sign mean "different".
int CompareByIdDifference(const void* a, const void* b) {
  return static_cast<const Record*>(a)->id - static_cast<const Record*>(b)->id;
}

// Every record in one chain, so only the comparison tells records apart.
unsigned int HashToOneBucket(const void*) { return 42u; }

std::vector<const Record*> gVisited;
int RememberVisit(void* record) {
  gVisited.push_back(static_cast<const Record*>(record));
  return 0;
}

int gDeleted = 0;
int DeleteRecord(void* record) {
  delete static_cast<Record*>(record);
  ++gDeleted;
  return 0;
}

TEST(KalHashTable, LookupsByIdStayCorrectWhileTheTableGrows) {
  const int count = 100000;
  std::vector<Record> records(count);
  KalHashTable table(HashById, CompareById, 256);
  for (int i = 0; i < count; ++i) {
    records[i] = Record{i, i};
    ASSERT_EQ(table.Insert(&records[i]), 0) << i;
  }
  EXPECT_EQ(table.Size(), count);
  // Chains stay short: at most two records per bucket on average.
  EXPECT_GE(2 * table.GetBucketCount(), count);

  for (int i = 0; i < count; ++i) {
    Record probe{i, -1};
    ASSERT_EQ(table.Locate(&probe), &records[i]) << i;
  }
  Record absent{count, -1};
  EXPECT_EQ(table.Locate(&absent), nullptr);
  Record negative{-1, -1};
  EXPECT_EQ(table.Locate(&negative), nullptr);
}

TEST(KalHashTable, ApplyGlobalFunctVisitsEveryRecordOnceInInsertionOrder) {
  std::vector<Record> records(1000);
  KalHashTable table(HashById, CompareById, 4);
  for (int i = 0; i < 1000; ++i) {
    // Ids out of step with positions, so bucket order differs from insertion order.
    records[i] = Record{(i * 7919) % 1000, i};
    ASSERT_EQ(table.Insert(&records[i]), 0);
  }
  gVisited.clear();
  EXPECT_EQ(table.ApplyGlobalFunct(RememberVisit), 1000);
  ASSERT_EQ(gVisited.size(), 1000u);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(gVisited[i], &records[i]) << i;
}

TEST(KalHashTable, RecordsWithEqualKeysAreAllKeptAndTheLastInsertedIsFound) {
  KalHashTable table(HashById, CompareById, 16);
  Record* first = new Record{7, 1};
  Record* second = new Record{7, 2};
  Record* other = new Record{8, 3};
  ASSERT_EQ(table.Insert(first), 0);
  ASSERT_EQ(table.Insert(other), 0);
  ASSERT_EQ(table.Insert(second), 0);
  EXPECT_EQ(table.Size(), 3);

  Record probe{7, 0};
  EXPECT_EQ(table.Locate(&probe), second);

  gVisited.clear();
  table.ApplyGlobalFunct(RememberVisit);
  EXPECT_EQ(gVisited, (std::vector<const Record*>{first, other, second}));

  // The caller frees every record through the table, the duplicate included.
  gDeleted = 0;
  EXPECT_EQ(table.ApplyGlobalFunct(DeleteRecord), 3);
  EXPECT_EQ(gDeleted, 3);
  table.RemoveAll();
}

TEST(KalHashTable, NullRecordIsRefusedAndNotStored) {
  KalHashTable table(HashById, CompareById, 8);
  EXPECT_LT(table.Insert(nullptr), 0);
  EXPECT_EQ(table.Size(), 0);
  EXPECT_EQ(table.ApplyGlobalFunct(RememberVisit), 0);
  EXPECT_EQ(table.Locate(nullptr), nullptr);
}

TEST(KalHashTable, CompareResultZeroAloneMeansEqual) {
  Record records[] = {{1, 0}, {2, 0}, {3, 0}, {4, 0}};
  KalHashTable table(HashToOneBucket, CompareByIdDifference, 8);
  for (Record& r : records) ASSERT_EQ(table.Insert(&r), 0);
  for (Record& r : records) {
    Record probe{r.id, -1};
    EXPECT_EQ(table.Locate(&probe), &r) << r.id;
  }
  Record below{0, -1};
  Record above{5, -1};
  EXPECT_EQ(table.Locate(&below), nullptr);
  EXPECT_EQ(table.Locate(&above), nullptr);
}

TEST(KalHashTable, RemoveAllEmptiesTheTableAndLeavesRecordsToTheCaller) {
  std::vector<Record> records(600);
  {
    KalHashTable table(HashById, CompareById, 2);
    for (int i = 0; i < 600; ++i) {
      records[i] = Record{i, i};
      table.Insert(&records[i]);
    }
    table.RemoveAll();
    EXPECT_EQ(table.Size(), 0);
    Record probe{5, -1};
    EXPECT_EQ(table.Locate(&probe), nullptr);
    EXPECT_EQ(table.ApplyGlobalFunct(RememberVisit), 0);

    ASSERT_EQ(table.Insert(&records[5]), 0);
    EXPECT_EQ(table.Locate(&probe), &records[5]);
    EXPECT_EQ(table.Size(), 1);
  }
  EXPECT_EQ(records[5].tag, 5);
  EXPECT_EQ(records[599].id, 599);
}

TEST(KalHashTable, NonPositiveBucketCountStillGivesAWorkingTable) {
  for (int buckets : {0, -5}) {
    KalHashTable table(HashById, CompareById, buckets);
    EXPECT_GE(table.GetBucketCount(), 1);
    Record a{10, 0}, b{20, 0};
    ASSERT_EQ(table.Insert(&a), 0);
    ASSERT_EQ(table.Insert(&b), 0);
    Record probe{20, -1};
    EXPECT_EQ(table.Locate(&probe), &b);
  }
}

// ---------------------------------------------------------------------------------------
// KalListPtrKalLightXmlElementItf

// An element with a tag and nothing else; counts its destructions.
class TaggedElement : public KalLightXmlElementItf {
 public:
  explicit TaggedElement(const char* tag, int* destroyed = nullptr)
      : _Tag(tag), _pDestroyed(destroyed) {}
  ~TaggedElement() override {
    if (_pDestroyed != nullptr) ++*_pDestroyed;
  }
  int CopyFrom(const KalLightXmlElementItf*) override { return 0; }
  KalPosition GetHeadPosition() const override { return nullptr; }
  KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const override {
    cursor = nullptr;
    return nullptr;
  }
  const KalUnicodeString& GetType() const override { return _Tag; }
  const KalUnicodeString& GetAttribute(const KalUnicodeString&) const override {
    return KalUnicodeString::Empty();
  }
  const KalUnicodeString& GetValue() const override { return KalUnicodeString::Empty(); }

 private:
  KalUnicodeString _Tag;
  int* _pDestroyed;
};

TEST(KalListPtrKalLightXmlElementItf, HoldsTypedPointersOneBased) {
  TaggedElement a("A"), b("B"), c("C");
  KalLightXmlElementItf* items[] = {&a, &b, &c};
  KalListPtrKalLightXmlElementItf list(items, 2);
  ASSERT_EQ(list.Size(), 2);
  EXPECT_EQ(list[1], &a);
  EXPECT_EQ(list[2], &b);
  EXPECT_EQ(list[3], nullptr);
  EXPECT_EQ(list[0], nullptr);
  list.Append(&c);
  ASSERT_EQ(list.Size(), 3);
  EXPECT_EQ(list[3]->GetType(), "C");

  EXPECT_EQ(KalListPtrKalLightXmlElementItf(nullptr, 4).Size(), 0);
  EXPECT_EQ(KalListPtrKalLightXmlElementItf(items, -1).Size(), 0);
  EXPECT_EQ(KalListPtrKalLightXmlElementItf(10).Size(), 0);
}

TEST(KalListPtrKalLightXmlElementItf, CopyAndAssignmentHoldTheSamePointersInOrder) {
  TaggedElement a("A"), b("B"), c("C");
  KalLightXmlElementItf* items[] = {&b, &a, &c};
  KalListPtrKalLightXmlElementItf source(items, 3);

  KalListPtrKalLightXmlElementItf copy(source);
  KalListPtrKalLightXmlElementItf assigned;
  assigned.Append(&c);
  assigned = source;
  source.RemoveAll();

  for (const KalListPtrKalLightXmlElementItf* list : {&copy, &assigned}) {
    ASSERT_EQ(list->Size(), 3);
    EXPECT_EQ((*list)[1], &b);
    EXPECT_EQ((*list)[2], &a);
    EXPECT_EQ((*list)[3], &c);
  }

  KalListPtrKalLightXmlElementItf& alias = assigned;
  assigned = alias;
  ASSERT_EQ(assigned.Size(), 3);
  EXPECT_EQ(assigned[3], &c);
}

TEST(KalListPtrKalLightXmlElementItf, EmptyingOrDestroyingTheListLeavesElementsAlone) {
  int destroyed = 0;
  auto a = std::make_unique<TaggedElement>("A", &destroyed);
  auto b = std::make_unique<TaggedElement>("B", &destroyed);
  auto* list = new KalListPtrKalLightXmlElementItf;
  list->Append(a.get());
  list->Append(b.get());
  list->RemoveAll();
  EXPECT_EQ(destroyed, 0);
  list->Append(a.get());
  delete list;
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(a->GetType(), "A");
}

TEST(KalListPtrKalLightXmlElementItf, RemoveDuplicatesKeepsFirstOccurrences) {
  TaggedElement a("A"), b("B");
  KalLightXmlElementItf* items[] = {&a, &b, &a, &a};
  KalListPtrKalLightXmlElementItf list(items, 4);
  KalListPtrKalLightXmlElementItf removed;
  list.RemoveDuplicates(&removed);
  ASSERT_EQ(list.Size(), 2);
  EXPECT_EQ(list[1], &a);
  EXPECT_EQ(list[2], &b);
  ASSERT_EQ(removed.Size(), 2);
  EXPECT_EQ(removed[1], &a);
  EXPECT_EQ(removed[2], &a);

  KalListPtrKalLightXmlElementItf again(items, 4);
  again.RemoveDuplicates(nullptr);
  EXPECT_EQ(again.Size(), 2);
}

// "Found" when the other list holds an element with the same tag.
int FindSameTag(KalLightXmlElementItf* item, const KalListPtrKalLightXmlElementItf& other) {
  for (int i = 1; i <= other.Size(); ++i) {
    if (other[i]->GetType() == item->GetType()) return 0;
  }
  return 1;
}

TEST(KalListPtrKalLightXmlElementItf, CompareHandsTypedEntriesToTheCallback) {
  TaggedElement a("A"), b("B"), otherA("A"), otherB("B"), c("C");
  KalLightXmlElementItf* first[] = {&a, &b};
  KalLightXmlElementItf* sameTags[] = {&otherB, &otherA};
  KalLightXmlElementItf* differentTags[] = {&otherA, &c};
  const KalListPtrKalLightXmlElementItf one(first, 2);
  EXPECT_EQ(KalListPtrKalLightXmlElementItf::Compare(
                one, KalListPtrKalLightXmlElementItf(sameTags, 2), FindSameTag),
            0);
  EXPECT_EQ(KalListPtrKalLightXmlElementItf::Compare(
                one, KalListPtrKalLightXmlElementItf(differentTags, 2), FindSameTag),
            1);
  // Without a callback, membership is by address.
  EXPECT_EQ(KalListPtrKalLightXmlElementItf::Compare(
                one, KalListPtrKalLightXmlElementItf(sameTags, 2), nullptr),
            1);
  KalLightXmlElementItf* reversed[] = {&b, &a};
  EXPECT_EQ(KalListPtrKalLightXmlElementItf::Compare(
                one, KalListPtrKalLightXmlElementItf(reversed, 2), nullptr),
            0);
}

int gOuterCalls = 0;
int gInnerCalls = 0;

int CountInner(KalLightXmlElementItf*, const KalListPtrKalLightXmlElementItf&) {
  ++gInnerCalls;
  return 1;
}

// Compares other lists from inside a comparison; the outer callback must stay in force.
int CountOuterAndNest(KalLightXmlElementItf* item, const KalListPtrKalLightXmlElementItf& other) {
  ++gOuterCalls;
  KalLightXmlElementItf* single[] = {item};
  const KalListPtrKalLightXmlElementItf lonely(single, 1);
  KalListPtrKalLightXmlElementItf::Compare(lonely, lonely, CountInner);
  return FindSameTag(item, other);
}

TEST(KalListPtrKalLightXmlElementItf, CompareCalledFromACallbackDoesNotReplaceTheOuterCallback) {
  TaggedElement a("A"), b("B"), otherA("A"), otherB("B");
  KalLightXmlElementItf* first[] = {&a, &b};
  KalLightXmlElementItf* second[] = {&otherB, &otherA};
  gOuterCalls = 0;
  gInnerCalls = 0;
  EXPECT_EQ(KalListPtrKalLightXmlElementItf::Compare(KalListPtrKalLightXmlElementItf(first, 2),
                                                     KalListPtrKalLightXmlElementItf(second, 2),
                                                     CountOuterAndNest),
            0);
  EXPECT_EQ(gOuterCalls, 4);
  // Each nested comparison stops at its first "not found".
  EXPECT_EQ(gInnerCalls, 4);
}

}  // namespace
