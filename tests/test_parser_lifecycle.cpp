// Identity, construction, destruction and the process-wide locale switch of KalVorlaParser.
#include <gtest/gtest.h>

#include <clocale>
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
  EXPECT_STREQ(KalVorlaParser::ClassName(), "KalVorlaParser");
  EXPECT_STREQ(meta->GetComponentName(), "KalVorlaImportTools");
  EXPECT_STREQ(meta->_ExtraName, "KalNull");
  EXPECT_EQ(meta->_ClassKind, 1);
  EXPECT_EQ(meta->GetBaseMetaObject(), KalBaseUnknown::MetaObject());
  EXPECT_EQ(KalVorlaParser::ClassId(), meta->GetClassId());
  EXPECT_EQ(KalVorlaParser::CreateItself(), nullptr);

  std::unique_ptr<KalBaseUnknown> object(new KalVorlaParser());
  EXPECT_STREQ(object->IsA(), "KalVorlaParser");
  EXPECT_EQ(object->GetMetaObject(), meta);
  EXPECT_NE(object->IsAKindOf("KalBaseUnknown"), 0);
  EXPECT_EQ(object->IsAKindOf("KalVorlaNodeAndId"), 0);
}

TEST(ParserConstruction, FreshParserHasFiveEmptyTablesAndNoFilePath) {
  KalVorlaParser parser;
  const int buckets[] = {4096, 4096, 256, 256, 256};  // instances to extensions
  for (int t = Inspector::kInstances; t <= Inspector::kExtensions; ++t) {
    KalHashTable* table = Inspector::TableOf(parser, static_cast<Inspector::Table>(t));
    ASSERT_NE(table, nullptr) << t;
    EXPECT_EQ(table->Size(), 0);
    EXPECT_EQ(table->GetBucketCount(), buckets[t]);
  }
  EXPECT_EQ(Inspector::TableOf(parser, Inspector::kViews), nullptr);
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
  std::string _Original;
};

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

// A parser that did not open the archive leaves it open when it goes.
TEST_F(ParserLocale, DeletingAnUnloadedParserLeavesAnotherParsersArchiveOpen) {
  kaltest::TempDir dir;
  const std::string archive = dir.File("pack.vorla");
  kaltest::WriteVorlaArchive(archive, "root.xml",
                             kaltest::VorlaXml("<ProductStructure root=\"1\"/>"));
  auto owner = std::make_unique<KalVorlaParser>();
  ASSERT_EQ(owner->InitParsing(archive.c_str()), S_OK);
  std::make_unique<KalVorlaParser>().reset();
  EXPECT_EQ(CurrentLocale(), "C");
  EXPECT_TRUE(Inspector::ArchiveOpen());
  EXPECT_EQ(Inspector::EntryCount(), 2u);
  owner.reset();
  EXPECT_EQ(CurrentLocale(), "C.UTF-8");
  EXPECT_FALSE(Inspector::ArchiveOpen());
}

}  // namespace
