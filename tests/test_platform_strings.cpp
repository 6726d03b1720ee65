// KalUnicodeString: ownership, concatenation, comparison, searching and number conversion.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "KalUnicodeString.h"

namespace {

std::string Text(const KalUnicodeString& s) {
  return std::string(s.ConvertToChar(), static_cast<size_t>(s.GetLengthInChar()));
}

TEST(KalUnicodeString, ConstructionGivesTheTextAndItsLength) {
  KalUnicodeString empty;
  EXPECT_STREQ(empty.ConvertToChar(), "");
  EXPECT_EQ(empty.GetLengthInChar(), 0);

  KalUnicodeString fromNull(static_cast<const char*>(nullptr));
  EXPECT_EQ(fromNull.GetLengthInChar(), 0);

  KalUnicodeString word("Reference3D");
  EXPECT_STREQ(word.ConvertToChar(), "Reference3D");
  EXPECT_EQ(word.GetLengthInChar(), 11);

  // Lengths count UTF-8 bytes: "é" is two.
  EXPECT_EQ(KalUnicodeString("caf\xc3\xa9").GetLengthInChar(), 5);

  KalUnicodeString prefix("abcdef", 3);
  EXPECT_STREQ(prefix.ConvertToChar(), "abc");
  EXPECT_EQ(KalUnicodeString("abc", -1).GetLengthInChar(), 0);
}

TEST(KalUnicodeString, CopiesAndAssignmentsOfOwnedStringsAreIndependent) {
  KalUnicodeString source("first");
  KalUnicodeString copy(source);
  KalUnicodeString assigned("a much longer previous value");
  assigned = source;
  source = "changed";
  source += " more";
  EXPECT_EQ(copy, "first");
  EXPECT_EQ(assigned, "first");
  EXPECT_EQ(source, "changed more");

  KalUnicodeString& alias = assigned;
  assigned = alias;
  EXPECT_EQ(assigned, "first");
}

TEST(KalUnicodeString, MovesCarryTheTextAndLeaveAUsableSource) {
  KalUnicodeString source("moved text");
  KalUnicodeString target(std::move(source));
  EXPECT_EQ(target, "moved text");
  source = "reused";
  EXPECT_EQ(source, "reused");

  KalUnicodeString other("old");
  other = std::move(target);
  EXPECT_EQ(other, "moved text");
  target = "again";
  EXPECT_EQ(target, "again");
}

TEST(KalUnicodeString, CopiesOfBorrowedTextOwnItAndSurviveTheBufferChanging) {
  char buffer[] = "borrowed";
  KalUnicodeString borrowed = KalUnicodeString::Borrow(buffer, 8);
  EXPECT_EQ(borrowed.ConvertToChar(), buffer);

  KalUnicodeString copy(borrowed);
  KalUnicodeString assigned("x");
  assigned = borrowed;
  KalUnicodeString moved(KalUnicodeString::Borrow(buffer, 8));
  KalUnicodeString copyOfMoved(moved);

  std::memcpy(buffer, "REPLACED", 8);
  EXPECT_EQ(copy, "borrowed");
  EXPECT_EQ(assigned, "borrowed");
  EXPECT_EQ(copyOfMoved, "borrowed");
  EXPECT_NE(copy.ConvertToChar(), buffer);
  EXPECT_EQ(borrowed, "REPLACED");
}

TEST(KalUnicodeString, ChangingABorrowedStringNeverWritesIntoTheBorrowedText) {
  char buffer[16] = "ab";
  KalUnicodeString appended = KalUnicodeString::Borrow(buffer, 2);
  appended += "cd";
  EXPECT_EQ(appended, "abcd");

  KalUnicodeString reassigned = KalUnicodeString::Borrow(buffer, 2);
  reassigned = "xy";
  EXPECT_EQ(reassigned, "xy");

  KalUnicodeString emptied = KalUnicodeString::Borrow(buffer, 2);
  emptied = "";
  EXPECT_EQ(emptied.GetLengthInChar(), 0);

  EXPECT_STREQ(buffer, "ab");
  EXPECT_EQ(buffer[3], '\0');
}

TEST(KalUnicodeString, ConcatenationInEveryForm) {
  KalUnicodeString dir("/data/");
  KalUnicodeString name("part.vorla");
  EXPECT_EQ(dir + name, "/data/part.vorla");
  EXPECT_EQ(dir + "x", "/data/x");
  EXPECT_EQ("urn:" + name, "urn:part.vorla");
  EXPECT_EQ(dir, "/data/");

  KalUnicodeString doubled("ab");
  doubled += doubled;
  EXPECT_EQ(doubled, "abab");

  KalUnicodeString grown;
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    grown += (i % 2 == 0) ? "xy" : "z";
    expected += (i % 2 == 0) ? "xy" : "z";
  }
  EXPECT_EQ(grown.GetLengthInChar(), static_cast<int>(expected.size()));
  EXPECT_EQ(Text(grown), expected);
  EXPECT_EQ(grown.ConvertToChar()[grown.GetLengthInChar()], '\0');
}

TEST(KalUnicodeString, AssigningAPartOfItselfKeepsTheRightText) {
  KalUnicodeString s("hello world");
  s = s.ConvertToChar() + 6;
  EXPECT_EQ(s, "world");
  s += s.ConvertToChar() + 2;
  EXPECT_EQ(s, "worldrld");
}

TEST(KalUnicodeString, ComparisonCoversEveryByteIncludingEmbeddedNuls) {
  const KalUnicodeString withNul("ab\0c", 4);
  EXPECT_EQ(withNul.GetLengthInChar(), 4);
  EXPECT_EQ(withNul, KalUnicodeString("ab\0c", 4));
  EXPECT_NE(withNul, KalUnicodeString("ab\0d", 4));
  EXPECT_NE(withNul, KalUnicodeString("ab"));
  EXPECT_NE(withNul, "ab");
  EXPECT_TRUE(KalUnicodeString("ab") < withNul);
  EXPECT_TRUE(KalUnicodeString("ab\0c", 4) < KalUnicodeString("ab\0d", 4));

  EXPECT_EQ(KalUnicodeString("id"), "id");
  EXPECT_NE(KalUnicodeString("id"), "ID");
  EXPECT_NE(KalUnicodeString("id"), "idx");
  EXPECT_NE(KalUnicodeString("idx"), KalUnicodeString("id"));
}

TEST(KalUnicodeString, ForwardSearchStartsAtTheGivenPosition) {
  const KalUnicodeString path("a/b/c");
  EXPECT_EQ(path.SearchSubString("/", 0, 1), 1);
  EXPECT_EQ(path.SearchSubString("/", 1, 1), 1);
  EXPECT_EQ(path.SearchSubString("/", 2, 1), 3);
  EXPECT_EQ(path.SearchSubString("/", 4, 1), -1);
  EXPECT_EQ(path.SearchSubString("/", -3, 1), 1);
  EXPECT_EQ(path.SearchSubString("/", 99, 1), -1);
  EXPECT_EQ(path.SearchSubString("#", 0, 1), -1);
  EXPECT_EQ(path.SearchSubString("a/b/c/d", 0, 1), -1);

  const KalUnicodeString urn("urn:VORLA:rep.vorla#12");
  EXPECT_EQ(urn.SearchSubString(KalUnicodeString("urn:VORLA:"), 0, 1), 0);
  EXPECT_EQ(urn.SearchSubString("#", 0, 1), 19);
  EXPECT_EQ(urn.SearchSubString("r", 2, 1), 10);
  EXPECT_EQ(urn.SearchSubString("r", 11, 1), 16);
  EXPECT_EQ(urn.SearchSubString("vorla", 0, 1), 14);
  EXPECT_EQ(urn.SearchSubString("VORLA", 5, 1), -1);
}

TEST(KalUnicodeString, BackwardSearchFindsTheLastOccurrence) {
  const KalUnicodeString path("dir/sub/file.xml");
  EXPECT_EQ(path.SearchSubString("/", 0, 2), 7);
  EXPECT_EQ(path.SearchSubString(".", 0, 2), 12);
  EXPECT_EQ(path.SearchSubString("#", 0, 2), -1);

  // A positive start leaves that many characters off the end.
  const KalUnicodeString abc("a/b/c");
  EXPECT_EQ(abc.SearchSubString("/", 1, 2), 3);
  EXPECT_EQ(abc.SearchSubString("/", 2, 2), 1);
  EXPECT_EQ(abc.SearchSubString("/", 4, 2), -1);

  const KalUnicodeString twice("abcabc");
  EXPECT_EQ(twice.SearchSubString("bc", 0, 2), 4);
  EXPECT_EQ(twice.SearchSubString("bc", 1, 2), 1);
  EXPECT_EQ(twice.SearchSubString("abcabcabc", 0, 2), -1);
}

TEST(KalUnicodeString, SubStringClampsInsteadOfFailing) {
  const KalUnicodeString s("abcdef");
  EXPECT_EQ(s.SubString(1, 3), "bcd");
  EXPECT_EQ(s.SubString(-2, 3), "abc");
  EXPECT_EQ(s.SubString(2, -1), "");
  EXPECT_EQ(s.SubString(4, 10), "ef");
  EXPECT_EQ(s.SubString(6, 1), "");
  EXPECT_EQ(s.SubString(60, 2), "");
  EXPECT_EQ(s.SubString(0, 6), "abcdef");

  const KalUnicodeString withNul("x\0yz", 4);
  EXPECT_EQ(withNul.SubString(0, 3), KalUnicodeString("x\0y", 3));

  KalUnicodeString borrowedPart;
  {
    char buffer[] = "name#7";
    borrowedPart = KalUnicodeString::Borrow(buffer, 6).SubString(5, 1);
    buffer[5] = '9';
  }
  EXPECT_EQ(borrowedPart, "7");
}

TEST(KalUnicodeString, ConvertToNumReadsDecimalIntegers) {
  int value = 0;
  EXPECT_GE(KalUnicodeString("007").ConvertToNum(&value, "%d"), 0);
  EXPECT_EQ(value, 7);
  EXPECT_GE(KalUnicodeString(" 12").ConvertToNum(&value, "%d"), 0);
  EXPECT_EQ(value, 12);
  EXPECT_GE(KalUnicodeString("12abc").ConvertToNum(&value, "%d"), 0);
  EXPECT_EQ(value, 12);
  EXPECT_GE(KalUnicodeString("-42").ConvertToNum(&value, "%d"), 0);
  EXPECT_EQ(value, -42);
  EXPECT_GE(KalUnicodeString("0x1F").ConvertToNum(&value, "%d"), 0);
  EXPECT_EQ(value, 0);
}

TEST(KalUnicodeString, ConvertToNumLeavesTheOutputAloneWhenNothingConverts) {
  for (const char* text : {"abc", "", "   ", "-", "+x"}) {
    int i = 99;
    unsigned int u = 99;
    double d = 9.5;
    EXPECT_LT(KalUnicodeString(text).ConvertToNum(&i, "%d"), 0) << text;
    EXPECT_LT(KalUnicodeString(text).ConvertToNum(&u, "%u"), 0) << text;
    EXPECT_LT(KalUnicodeString(text).ConvertToNum(&d, "%le"), 0) << text;
    EXPECT_EQ(i, 99) << text;
    EXPECT_EQ(u, 99u) << text;
    EXPECT_EQ(d, 9.5) << text;
  }
}

TEST(KalUnicodeString, ConvertToNumUnsignedWrapsNegativeTextLikeScanf) {
  unsigned int value = 0;
  EXPECT_GE(KalUnicodeString("-1").ConvertToNum(&value, "%u"), 0);
  EXPECT_EQ(value, 4294967295u);
  EXPECT_GE(KalUnicodeString("4294967295").ConvertToNum(&value, "%u"), 0);
  EXPECT_EQ(value, 4294967295u);
  EXPECT_GE(KalUnicodeString(" 17 ").ConvertToNum(&value, "%u"), 0);
  EXPECT_EQ(value, 17u);
}

TEST(KalUnicodeString, ConvertToNumReadsDoublesWithBothFormats) {
  double value = 0;
  EXPECT_GE(KalUnicodeString("1.5e3").ConvertToNum(&value, "%le"), 0);
  EXPECT_DOUBLE_EQ(value, 1500.0);
  EXPECT_GE(KalUnicodeString(" -0.25 rest").ConvertToNum(&value, "%le"), 0);
  EXPECT_DOUBLE_EQ(value, -0.25);
  EXPECT_GE(KalUnicodeString("42").ConvertToNum(&value, "%le"), 0);
  EXPECT_DOUBLE_EQ(value, 42.0);
  // The precision does not round what is read.
  EXPECT_GE(KalUnicodeString("3.14159").ConvertToNum(&value, "%.2le"), 0);
  EXPECT_DOUBLE_EQ(value, 3.14159);
  EXPECT_GE(KalUnicodeString("1e-2").ConvertToNum(&value, "%.2le"), 0);
  EXPECT_DOUBLE_EQ(value, 0.01);
}

}  // namespace
