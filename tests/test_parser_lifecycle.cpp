// Identity, construction, destruction and the process-wide locale switch of KalVorlaParser.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <memory>
#include <string>

#include "KalVorlaParser.h"
#include "ParserInspector.h"
#include "TestDocuments.h"

namespace {

using Inspector = KalVorlaParserInspector;

std::string CurrentLocale() { return std::setlocale(LC_ALL, nullptr); }

TEST(ParserIdentity, MetaObjectNamesTheClassItsBaseAndComponent) {
  KalMetaClass* meta = KalVorlaParser::MetaObject();
  ASSERT_NE(meta, nullptr);
  EXPECT_EQ(KalVorlaParser::MetaObject(), meta);
  EXPECT_STREQ(KalVorlaParser::ClassName(), "KalVorlaParser");
  EXPECT_STREQ(meta->GetClassName(), "KalVorlaParser");
  EXPECT_STREQ(meta->GetComponentName(), "KalVorlaImportTools");
  EXPECT_STREQ(meta->_ExtraName, "KalNull");
  EXPECT_EQ(meta->_ClassKind, 1);
  EXPECT_EQ(meta->_InstanceSize, sizeof(KalVorlaParser));
  EXPECT_EQ(meta->GetBaseMetaObject(), KalBaseUnknown::MetaObject());
  EXPECT_EQ(KalVorlaParser::ClassId(), meta->GetClassId());
  EXPECT_NE(KalVorlaParser::ClassId(), KalBaseUnknown::ClassId());
}

TEST(ParserIdentity, InstanceAnswersThroughTheBaseInterface) {
  std::unique_ptr<KalBaseUnknown> object(new KalVorlaParser());
  EXPECT_STREQ(object->IsA(), "KalVorlaParser");
  EXPECT_EQ(object->GetMetaObject(), KalVorlaParser::MetaObject());
  EXPECT_NE(object->IsAKindOf("KalVorlaParser"), 0);
  EXPECT_NE(object->IsAKindOf("KalBaseUnknown"), 0);
  EXPECT_EQ(object->IsAKindOf("KalVorlaImportTools"), 0);
  EXPECT_EQ(object->IsAKindOf("KalVorlaNodeAndId"), 0);
}

TEST(ParserIdentity, CannotBeCreatedThroughItsMetaObject) {
  EXPECT_EQ(KalVorlaParser::CreateItself(), nullptr);
}

TEST(ParserConstruction, FreshParserHasEmptyTablesAndNoDocument) {
  KalVorlaParser parser;
  const struct {
    Inspector::Table table;
    int buckets;
  } tables[] = {{Inspector::kInstances, 4096},
                {Inspector::kReferences, 4096},
                {Inspector::kInstanceReps, 256},
                {Inspector::kReferenceReps, 256},
                {Inspector::kExtensions, 256}};
  for (const auto& t : tables) {
    SCOPED_TRACE(t.table);
    KalHashTable* table = Inspector::TableOf(parser, t.table);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->Size(), 0);
    EXPECT_EQ(table->GetBucketCount(), t.buckets);
  }
  EXPECT_EQ(Inspector::TableOf(parser, Inspector::kViews), nullptr);
  EXPECT_FALSE(Inspector::OwnsArchive(parser));
  EXPECT_EQ(Inspector::TempDirectory(parser), "");
  EXPECT_EQ(Inspector::DocumentDirectory(parser), "");
  EXPECT_EQ(Inspector::GraphicProperties(parser).Size(), 0);
  EXPECT_EQ(Inspector::RepFormats(parser).Size(), 0);
  EXPECT_EQ(Inspector::GraphicMaterials(parser).Size(), 0);
  EXPECT_EQ(Inspector::GraphicMaterialIds(parser).Size(), 0);
}

TEST(ParserConstruction, FilePathOfFreshParserIsEmpty) {
  KalVorlaParser parser;
  KalUnicodeString path("stale");
  EXPECT_EQ(parser.GetFilePath(path), S_OK);
  EXPECT_EQ(kaltest::Str(path), "");
}

// Every test starts from a real named locale and gives the process its own locale back.
class ParserLocale : public ::testing::Test {
 protected:
  void SetUp() override {
    _Original = CurrentLocale();
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
  }
  void TearDown() override { std::setlocale(LC_ALL, _Original.c_str()); }

 private:
  std::string _Original;
};

TEST_F(ParserLocale, SwitchesToCAndRestoresTheSavedNameOnDestruction) {
  auto parser = std::make_unique<KalVorlaParser>();
  EXPECT_EQ(CurrentLocale(), "C");
  ASSERT_NE(Inspector::SavedLocale(*parser), nullptr);
  EXPECT_STREQ(Inspector::SavedLocale(*parser), "C.UTF-8");
  parser.reset();
  EXPECT_EQ(CurrentLocale(), "C.UTF-8");
}

TEST_F(ParserLocale, SavesAndRestoresAMixedLocaleAsAWhole) {
  ASSERT_NE(std::setlocale(LC_NUMERIC, "C"), nullptr);
  const std::string mixed = CurrentLocale();
  ASSERT_NE(mixed, "C.UTF-8");
  {
    KalVorlaParser parser;
    EXPECT_EQ(CurrentLocale(), "C");
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
  }
  EXPECT_EQ(CurrentLocale(), mixed);
  EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8");
  EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
}

// The second parser saves the "C" set by the first, so the order of destruction decides
// which locale the process is left in.
TEST_F(ParserLocale, TwoParsersRestoreWhatEachSavedInEitherDestructionOrder) {
  const struct {
    bool firstCreatedDiesFirst;
    const char* afterFirstDeletion;
    const char* afterSecondDeletion;
  } cases[] = {{false, "C", "C.UTF-8"}, {true, "C.UTF-8", "C"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.firstCreatedDiesFirst ? "creation order" : "reverse order");
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    auto first = std::make_unique<KalVorlaParser>();
    auto second = std::make_unique<KalVorlaParser>();
    EXPECT_STREQ(Inspector::SavedLocale(*first), "C.UTF-8");
    EXPECT_STREQ(Inspector::SavedLocale(*second), "C");
    EXPECT_EQ(CurrentLocale(), "C");
    (c.firstCreatedDiesFirst ? first : second).reset();
    EXPECT_EQ(CurrentLocale(), c.afterFirstDeletion);
    (c.firstCreatedDiesFirst ? second : first).reset();
    EXPECT_EQ(CurrentLocale(), c.afterSecondDeletion);
  }
}

TEST_F(ParserLocale, DeletingAnUnloadedParserLeavesAnotherParsersArchiveOpen) {
  kaltest::TempDir dir;
  const std::string archive = dir.File("pack.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml",
                             kaltest::VorlaXml("<ProductStructure root=\"1\"/>"));
  auto owner = std::make_unique<KalVorlaParser>();
  ASSERT_EQ(owner->InitParsing(archive.c_str()), S_OK);
  ASSERT_TRUE(Inspector::ArchiveOpen());

  auto unloaded = std::make_unique<KalVorlaParser>();
  unloaded.reset();
  EXPECT_EQ(CurrentLocale(), "C");
  EXPECT_TRUE(Inspector::ArchiveOpen());
  EXPECT_EQ(Inspector::EntryCount(), 2u);

  owner.reset();
  EXPECT_EQ(CurrentLocale(), "C.UTF-8");
  EXPECT_FALSE(Inspector::ArchiveOpen());
}

}  // namespace
