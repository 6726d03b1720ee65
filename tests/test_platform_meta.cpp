// Meta-object service and the common base class.
#include <gtest/gtest.h>

#include "KalBaseUnknown.h"

namespace {

// Class names used here are unique to this file, so other tests cannot have registered them.
KalMetaClass* Register(const char* name, KalMetaClass* base) {
  return fct_RetrieveMetaObject(name, 1, base, "KalNull", "KalPlatformTests", 8);
}

// Supplies only its meta-object; the base's IsA and IsAKindOf must use it.
struct MetaTestDerived : KalBaseUnknown {
  KalMetaClass* GetMetaObject() const override {
    return Register("MetaTestDerived", Register("MetaTestShape", KalBaseUnknown::MetaObject()));
  }
};

TEST(KalMetaObject, NamesGiveOneCopiedObjectNewNamesTheNextIdIsAKindOfWalksTheBaseChain) {
  char name[] = "MetaTestSameName";
  KalMetaClass* first = fct_RetrieveMetaObject(name, 1, nullptr, nullptr, "KalPlatformTests", 16);
  name[0] = 'X';  // the name was copied
  EXPECT_EQ(Register("MetaTestSameName", first), first);
  EXPECT_STREQ(first->GetClassName(), "MetaTestSameName");
  EXPECT_EQ(first->GetBaseMetaObject(), nullptr) << "the first registration stands";
  EXPECT_EQ(Register("MetaTestOtherName", nullptr)->GetClassId(), first->GetClassId() + 1);
  const KalBaseUnknown& asBase = MetaTestDerived();
  EXPECT_STREQ(KalBaseUnknown().IsA(), "KalBaseUnknown");
  EXPECT_STREQ(asBase.IsA(), "MetaTestDerived");
  for (const char* kind : {"MetaTestDerived", "MetaTestShape", "KalBaseUnknown"})
    EXPECT_EQ(asBase.IsAKindOf(kind), 1) << kind;
  for (const char* kind : {"MetaTestSquare", "MetaTest", static_cast<const char*>(nullptr)})
    EXPECT_EQ(asBase.IsAKindOf(kind), 0) << (kind ? kind : "null");
  EXPECT_EQ(Register("MetaTestShape", nullptr)->IsAKindOf("MetaTestDerived"), 0);
}

}  // namespace
