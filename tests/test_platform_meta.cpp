// Meta-object service and the common base class.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "KalBaseUnknown.h"

namespace {

// Class names used here are unique to this file, so other tests cannot have registered them.
KalMetaClass* Register(const char* name, KalMetaClass* base) {
  return fct_RetrieveMetaObject(name, 1, base, "KalNull", "KalPlatformTests", 8);
}

TEST(KalMetaObject, BaseUnknownDescribesItself) {
  KalMetaClass* meta = KalBaseUnknown::MetaObject();
  ASSERT_NE(meta, nullptr);
  EXPECT_STREQ(meta->GetClassName(), "KalBaseUnknown");
  EXPECT_STREQ(KalBaseUnknown::ClassName(), "KalBaseUnknown");
  EXPECT_EQ(meta->_ClassKind, 1);
  EXPECT_EQ(meta->GetBaseMetaObject(), nullptr);
  EXPECT_STREQ(meta->_ExtraName, "KalNull");
  EXPECT_STREQ(meta->GetComponentName(), "KalPlatform");
  EXPECT_EQ(meta->_InstanceSize, sizeof(KalBaseUnknown));
  EXPECT_GE(KalBaseUnknown::ClassId(), 1u);
  EXPECT_EQ(KalBaseUnknown::ClassId(), meta->GetClassId());
  EXPECT_EQ(KalBaseUnknown::MetaObject(), meta);

  const KalBaseUnknown object;
  EXPECT_EQ(object.GetMetaObject(), meta);
  EXPECT_STREQ(object.IsA(), "KalBaseUnknown");
  EXPECT_EQ(object.IsAKindOf("KalBaseUnknown"), 1);
  EXPECT_EQ(object.IsAKindOf("KalVorlaParser"), 0);
  EXPECT_EQ(object.IsAKindOf(nullptr), 0);
}

TEST(KalMetaObject, CreateItselfGivesANewBaseObjectEachTime) {
  std::unique_ptr<KalBaseUnknown> first(KalBaseUnknown::CreateItself());
  std::unique_ptr<KalBaseUnknown> second(KalBaseUnknown::CreateItself());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first.get(), second.get());
  EXPECT_STREQ(first->IsA(), "KalBaseUnknown");
}

TEST(KalMetaObject, SameNameGivesTheSameObjectWhateverTheOtherArguments) {
  KalMetaClass* first =
      fct_RetrieveMetaObject("MetaTestSameName", 1, nullptr, "KalNull", "KalPlatformTests", 16);
  KalMetaClass* again = fct_RetrieveMetaObject("MetaTestSameName", 2, KalBaseUnknown::MetaObject(),
                                               "Other", "Other", 32);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(again, first);
  EXPECT_EQ(first->_ClassKind, 1);
  EXPECT_EQ(first->GetBaseMetaObject(), nullptr);
  EXPECT_EQ(first->_InstanceSize, 16u);
  EXPECT_STREQ(first->GetComponentName(), "KalPlatformTests");
}

TEST(KalMetaObject, NamesAreCopiedSoTemporaryTextIsFine) {
  char name[] = "MetaTestCopiedName";
  char component[] = "TemporaryComponent";
  KalMetaClass* meta = fct_RetrieveMetaObject(name, 1, nullptr, nullptr, component, 4);
  ASSERT_NE(meta, nullptr);
  std::memset(name, 'x', sizeof(name) - 1);
  std::memset(component, 'y', sizeof(component) - 1);
  EXPECT_STREQ(meta->GetClassName(), "MetaTestCopiedName");
  EXPECT_STREQ(meta->GetComponentName(), "TemporaryComponent");
  EXPECT_EQ(meta->_ExtraName, nullptr);
  EXPECT_EQ(fct_RetrieveMetaObject("MetaTestCopiedName", 1, nullptr, nullptr, nullptr, 0), meta);
}

TEST(KalMetaObject, ClassIdsFollowRegistrationOrder) {
  const KalClassId baseId = KalBaseUnknown::ClassId();
  KalMetaClass* first = Register("MetaTestOrderFirst", nullptr);
  KalMetaClass* second = Register("MetaTestOrderSecond", nullptr);
  KalMetaClass* third = Register("MetaTestOrderThird", nullptr);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  ASSERT_NE(third, nullptr);
  EXPECT_GE(first->GetClassId(), 1u);
  EXPECT_EQ(second->GetClassId(), first->GetClassId() + 1);
  EXPECT_EQ(third->GetClassId(), second->GetClassId() + 1);
  EXPECT_GT(first->GetClassId(), baseId);
  // Looking a class up again hands out no new id.
  Register("MetaTestOrderFirst", nullptr);
  EXPECT_EQ(Register("MetaTestOrderFourth", nullptr)->GetClassId(), third->GetClassId() + 1);
}

TEST(KalMetaObject, IsAKindOfWalksTheWholeBaseChain) {
  KalMetaClass* shape = Register("MetaTestShape", KalBaseUnknown::MetaObject());
  KalMetaClass* circle = Register("MetaTestCircle", shape);
  ASSERT_NE(circle, nullptr);
  EXPECT_EQ(circle->GetBaseMetaObject(), shape);
  EXPECT_EQ(circle->IsAKindOf("MetaTestCircle"), 1);
  EXPECT_EQ(circle->IsAKindOf("MetaTestShape"), 1);
  EXPECT_EQ(circle->IsAKindOf("KalBaseUnknown"), 1);
  EXPECT_EQ(circle->IsAKindOf("MetaTestSquare"), 0);
  EXPECT_EQ(circle->IsAKindOf("MetaTest"), 0);
  EXPECT_EQ(circle->IsAKindOf(nullptr), 0);
  EXPECT_EQ(shape->IsAKindOf("MetaTestCircle"), 0);
}

// A class that supplies only its meta-object; the base's IsA and IsAKindOf must use it.
class MetaTestDerived : public KalBaseUnknown {
 public:
  KalMetaClass* GetMetaObject() const override {
    return Register("MetaTestDerived", KalBaseUnknown::MetaObject());
  }
};

TEST(KalMetaObject, BaseQueriesAnswerForTheDynamicClass) {
  MetaTestDerived derived;
  const KalBaseUnknown& asBase = derived;
  EXPECT_STREQ(asBase.IsA(), "MetaTestDerived");
  EXPECT_EQ(asBase.IsAKindOf("MetaTestDerived"), 1);
  EXPECT_EQ(asBase.IsAKindOf("KalBaseUnknown"), 1);
  EXPECT_STREQ(KalBaseUnknown::ClassName(), "KalBaseUnknown");
}

}  // namespace
