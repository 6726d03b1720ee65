// KalUnicodeString: ownership of borrowed text, aliasing, comparison, searching and numbers.
#include <cstring>

#include "KalUnicodeString.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

TEST(KalUnicodeString, CopiesOfBorrowedTextOwnItAndChangesNeverWriteIntoIt) {
  char buffer[16] = "borrowed";
  auto borrow = [&buffer](int length) { return KalUnicodeString::Borrow(buffer, length); };
  const KalUnicodeString borrowed = borrow(8);
  ASSERT_EQ(borrowed.ConvertToChar(), buffer);
  KalUnicodeString assigned("x"), source = borrow(8);
  assigned = borrowed;
  KalUnicodeString copy(borrowed), moved(std::move(source)), copyOfMoved(moved);
  KalUnicodeString appended = borrow(2), reassigned = borrow(2), emptied = borrow(2);
  appended += "cd", reassigned = "xy", emptied = "";
  EXPECT_STREQ(buffer, "borrowed") << "a change to a borrowed string wrote into its text";
  std::memcpy(buffer, "REPLACED", 8);
  for (const KalUnicodeString* s : {&copy, &assigned, &copyOfMoved}) EXPECT_EQ(*s, "borrowed");
  EXPECT_EQ(borrowed, "REPLACED");
  EXPECT_EQ(appended + "|" + reassigned + "|" + emptied, "bocd|xy|");
}

TEST(KalUnicodeString, OwnTextAssignedOrAppendedGrowthComparisonAndSubStringKeepEveryByte) {
  KalUnicodeString s("hello world"), grown;
  s = s.ConvertToChar() + 6;   // "world"
  s += s.ConvertToChar() + 2;  // "worldrld"
  s += s;
  EXPECT_EQ(s, "worldrldworldrld");
  std::string expected;
  for (int i = 0; i < 1000; ++i) grown += std::to_string(i).c_str(), expected += std::to_string(i);
  EXPECT_EQ(std::string(grown.ConvertToChar(), grown.GetLengthInChar()), expected);
  const KalUnicodeString withNul("ab\0c", 4), withNulD("ab\0d", 4);
  EXPECT_TRUE(withNul != withNulD && withNul != "ab" && KalUnicodeString("id") != "idx");
  EXPECT_TRUE(KalUnicodeString("ab") < withNul && withNul < withNulD);
  EXPECT_EQ(withNul.SubString(1, 3), KalUnicodeString("b\0c", 3));
  s = "abcdef";
  EXPECT_EQ(s.SubString(1, 3) + "|" + s.SubString(-2, 3) + "|" + s.SubString(2, -1) + "|" +
                s.SubString(4, 10) + "|" + s.SubString(6, 1) + "|" + s.SubString(60, 2),
            "bcd|abc||ef||");
}

TEST(KalUnicodeString, SearchForwardFromStartOrBackwardLeavingStartCharactersOff) {
  const KalUnicodeString path("a/b/c"), urn("urn:VORLA:rep#1"), twice("abcabc");
  std::vector<int> found;
  for (int start : {-3, 0, 2, 4, 99}) found.push_back(path.SearchSubString("/", start, 1));
  for (int start : {0, 2, 4}) found.push_back(path.SearchSubString("/", start, 2));
  EXPECT_EQ(found, (std::vector<int>{1, 1, 3, -1, -1, 3, 1, -1}));
  EXPECT_EQ((std::vector<int>{path.SearchSubString("a/b/c/d", 0, 1), urn.SearchSubString("r", 2, 1),
                              urn.SearchSubString("VORLA", 5, 1), twice.SearchSubString("bc", 0, 2),
                              twice.SearchSubString("bc", 1, 2),
                              twice.SearchSubString("abcabcabc", 0, 2)}),
            (std::vector<int>{-1, 10, -1, 4, 1, -1}));
}

// "result:output " of converting `text` into an output that held 99.
template <typename T>
std::string Convert(const char* text, const char* format) {
  T value = 99;
  std::ostringstream out;
  out << KalUnicodeString(text).ConvertToNum(&value, format) << ":" << value << " ";
  return out.str();
}

TEST(KalUnicodeString, ConvertToNumReadsEachFormatAndLeavesTheOutputAloneOnFailure) {
  // The precision of a format does not round what is read.
  EXPECT_EQ(Convert<int>(" 12abc", "%d") + Convert<int>("-42", "%d") + Convert<int>("0x1F", "%d") +
                Convert<unsigned int>("-1", "%u") + Convert<double>(" -0.25 rest", "%le") +
                Convert<double>("3.14159", "%.2le"),
            "1:12 1:-42 1:0 1:4294967295 1:-0.25 1:3.14159 ");
  // Runs of digits around the short path's limit keep the low bits of what strtoll and
  // strtoull give, clamping included.
  for (const char* text : {"007", "4294967297", "123456789012345678", "1234567890123456789",
                           "99999999999999999999", "12 34"})
    EXPECT_EQ(Convert<int>(text, "%d") + Convert<unsigned int>(text, "%u"),
              "1:" + std::to_string(static_cast<int>(std::strtoll(text, nullptr, 10))) + " 1:" +
                  std::to_string(static_cast<unsigned int>(std::strtoull(text, nullptr, 10))) + " ")
        << text;
  for (const char* text : {"abc", "", "   ", "-", "+x"})
    EXPECT_EQ(
        Convert<int>(text, "%d") + Convert<unsigned int>(text, "%u") + Convert<double>(text, "%le"),
        "-1:99 -1:99 -1:99 ")
        << text;
}

}  // namespace
}  // namespace kaltest
