// Blank-separated value lists: the list reader, vectors, matrices and the tag count of the
// product structure.
//
// A list holding one number and no blank at all, read from start 0, never returns (the
// blank-skipping loop repeats for ever by design). No test here calls the reader on such a
// list, directly or through a vector or matrix, because it would hang the test run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "KalVorlaParser.h"
#include "ParserInspector.h"
#include "TestDocuments.h"

namespace {

using Inspector = KalVorlaParserInspector;
using kaltest::FakeElement;

constexpr float kStaleFloat = -777.0f;
constexpr double kStaleDouble = -777.0;

// Loads a document whose root holds one <V> element per text, after the product
// structure, and returns those elements in order.
class ValueLists : public ::testing::Test {
 protected:
  std::vector<KalLightXmlElementItf*> Load(
      const std::vector<std::string>& texts,
      const std::string& structure = "<ProductStructure root=\"1\"/>") {
    std::string body = structure;
    for (const std::string& t : texts) body += "<V>" + t + "</V>";
    const std::string path = _Dir.File("values.xml");
    kaltest::WriteFile(path, kaltest::VorlaXml(body));
    std::vector<KalLightXmlElementItf*> out;
    EXPECT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
    KalLightXmlElementItf* root = nullptr;
    _Parser.GetVorlaRootNode(&root);
    for (KalLightXmlElementItf* child : kaltest::Children(root))
      if (child != nullptr && kaltest::Str(child->GetType()) == "V") out.push_back(child);
    EXPECT_EQ(out.size(), texts.size());
    return out;
  }

  kaltest::TempDir _Dir;
  KalVorlaParser _Parser;
};

struct ReadCase {
  const char* list;
  int start;
  int value;
  int next;
};

const ReadCase kReads[] = {
    {"1 2 3", 0, 1, 1}, {"1 2 3", 2, 2, 3}, {"1 2 3", 4, 3, -1},
    {"  7 8", 0, 7, 3},  // leading blanks skipped
    {"1  2", 1, 2, -1},  // starting on a run of blanks
    {"12 34", 1, 2, 2},  // starting inside a number reads its tail
    {" 5", 0, 5, -1},   {"5 ", 0, 5, 1},    {"-4 9", 0, -4, 2},
};

TEST_F(ValueLists, ReaderCutsOneValueAndReportsTheBlankAfterItInAllThreeTypes) {
  for (const ReadCase& c : kReads) {
    SCOPED_TRACE(std::string("\"") + c.list + "\" from " + std::to_string(c.start));
    KalUnicodeString list(c.list);
    int asInt = 0, next = -9;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asInt, next), S_OK);
    EXPECT_EQ(asInt, c.value);
    EXPECT_EQ(next, c.next);
    float asFloat = 0;
    next = -9;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asFloat, next), S_OK);
    EXPECT_EQ(asFloat, static_cast<float>(c.value));
    EXPECT_EQ(next, c.next);
    double asDouble = 0;
    next = -9;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asDouble, next), S_OK);
    EXPECT_EQ(asDouble, static_cast<double>(c.value));
    EXPECT_EQ(next, c.next);
  }
}

TEST_F(ValueLists, ReadingFromNextPlusOneVisitsEveryValueInOrder) {
  KalUnicodeString list(" 1  2 3");
  std::vector<double> values;
  int start = 0, next = 0;
  do {
    double value = 0;
    ASSERT_EQ(_Parser.GetNextValueInList(list, start, value, next), S_OK);
    values.push_back(value);
    start = next + 1;
  } while (next != -1 && values.size() < 10);
  EXPECT_EQ(values, (std::vector<double>{1, 2, 3}));
}

TEST_F(ValueLists, ReaderConvertsPerTypeDoubleKeepsFullPrecision) {
  KalUnicodeString list("0.1 2.7 x");
  double asDouble = 0;
  float asFloat = 0;
  int asInt = 0, next = 0;
  EXPECT_EQ(_Parser.GetNextValueInList(list, 0, asDouble, next), S_OK);
  EXPECT_EQ(asDouble, 0.1);
  EXPECT_EQ(_Parser.GetNextValueInList(list, 0, asFloat, next), S_OK);
  EXPECT_EQ(asFloat, static_cast<float>(0.1));
  EXPECT_EQ(_Parser.GetNextValueInList(list, 4, asInt, next), S_OK);
  EXPECT_EQ(asInt, 2);
  EXPECT_EQ(next, 7);
}

// A piece that is not a number, or an empty piece at the end of the list, is no failure;
// the int and double outputs keep what they held.
TEST_F(ValueLists, ReaderSucceedsOnPiecesThatDoNotConvert) {
  const struct {
    const char* list;
    int start;
    int next;
  } cases[] = {{"a b", 0, 1}, {"1 2", 3, -1}, {"1 x", 2, -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string("\"") + c.list + "\" from " + std::to_string(c.start));
    KalUnicodeString list(c.list);
    int asInt = 42, next = -9;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asInt, next), S_OK);
    EXPECT_EQ(asInt, 42);
    EXPECT_EQ(next, c.next);
    double asDouble = 4.5;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asDouble, next), S_OK);
    EXPECT_EQ(asDouble, 4.5);
    float asFloat = 0;
    next = -9;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asFloat, next), S_OK);
    EXPECT_EQ(next, c.next);
  }
}

TEST_F(ValueLists, VectorReadsThreeValuesWrappingAroundShortLists) {
  const struct {
    const char* text;
    double expected[3];
  } cases[] = {
      {"1 2 3", {1, 2, 3}},
      {"1 2 3 4", {1, 2, 3}},
      {" 1  2 3 ", {1, 2, 3}},
      {"1 2", {1, 2, 1}},
      {" 5", {5, 5, 5}},
      {"1\t2 3", {1, 3, 1}},  // the tab is inside the piece "1\t2"
      {"-1.5 2e3 .25", {-1.5, 2000, 0.25}},
      {"0.1 0.2 0.3", {0.1, 0.2, 0.3}},
  };
  std::vector<std::string> texts;
  for (const auto& c : cases) texts.push_back(c.text);
  const std::vector<KalLightXmlElementItf*> elements = Load(texts);
  ASSERT_EQ(elements.size(), texts.size());
  for (size_t i = 0; i < elements.size(); ++i) {
    SCOPED_TRACE(texts[i]);
    float values[4] = {kStaleFloat, kStaleFloat, kStaleFloat, kStaleFloat};
    EXPECT_EQ(_Parser.ConvertVector(elements[i], values), S_OK);
    for (int k = 0; k < 3; ++k)
      EXPECT_EQ(values[k], static_cast<float>(cases[i].expected[k])) << "entry " << k;
    EXPECT_EQ(values[3], kStaleFloat);
  }
}

// Texts of the twelve entries, and the values the decimal texts stand for.
const char* const kMatrixTexts[12] = {"0.1", "-2.5",  "3e-3", "4",  "0.7",   "6.25",
                                      "-0",  "8.125", "1e10", "10", "0.333", "12"};

std::string MatrixText(int count, const char* separator = " ") {
  std::string text;
  for (int k = 0; k < count; ++k) text += std::string(k ? separator : "") + kMatrixTexts[k % 12];
  return text;
}

TEST_F(ValueLists, MatrixReadsTwelveValuesInTextOrder) {
  const std::vector<KalLightXmlElementItf*> elements =
      Load({MatrixText(12), " " + MatrixText(12, "  ") + " ", MatrixText(12) + " 13"});
  ASSERT_EQ(elements.size(), 3u);
  for (KalLightXmlElementItf* element : elements) {
    SCOPED_TRACE(kaltest::Str(element->GetValue()));
    float floats[13];
    double doubles[13];
    std::fill(floats, floats + 13, kStaleFloat);
    std::fill(doubles, doubles + 13, kStaleDouble);
    EXPECT_EQ(_Parser.ConvertMatrix(element, floats), S_OK);
    EXPECT_EQ(_Parser.ConvertMatrix(element, doubles), S_OK);
    for (int k = 0; k < 12; ++k) {
      const double exact = std::strtod(kMatrixTexts[k], nullptr);
      EXPECT_EQ(doubles[k], exact) << "entry " << k;
      EXPECT_EQ(floats[k], static_cast<float>(exact)) << "entry " << k;
    }
    // The doubles are converted directly, not narrowed through float.
    EXPECT_NE(doubles[0], static_cast<double>(0.1f));
    EXPECT_EQ(floats[12], kStaleFloat);
    EXPECT_EQ(doubles[12], kStaleDouble);
  }
}

TEST_F(ValueLists, MatrixOfAShortListRepeatsItFromTheStart) {
  const std::vector<KalLightXmlElementItf*> elements = Load({"1 2 3"});
  ASSERT_EQ(elements.size(), 1u);
  float floats[12];
  double doubles[12];
  ASSERT_EQ(_Parser.ConvertMatrix(elements[0], floats), S_OK);
  ASSERT_EQ(_Parser.ConvertMatrix(elements[0], doubles), S_OK);
  for (int k = 0; k < 12; ++k) {
    EXPECT_EQ(floats[k], static_cast<float>(k % 3 + 1)) << "entry " << k;
    EXPECT_EQ(doubles[k], static_cast<double>(k % 3 + 1)) << "entry " << k;
  }
}

TEST_F(ValueLists, EmptyTextFailsWithoutTouchingTheValues) {
  const std::vector<KalLightXmlElementItf*> elements = Load({""});
  ASSERT_EQ(elements.size(), 1u);
  float floats[12];
  double doubles[12];
  std::fill(floats, floats + 12, kStaleFloat);
  std::fill(doubles, doubles + 12, kStaleDouble);
  EXPECT_EQ(_Parser.ConvertVector(elements[0], floats), E_FAIL);
  EXPECT_EQ(_Parser.ConvertMatrix(elements[0], floats), E_FAIL);
  EXPECT_EQ(_Parser.ConvertMatrix(elements[0], doubles), E_FAIL);
  for (int k = 0; k < 12; ++k) {
    EXPECT_EQ(floats[k], kStaleFloat);
    EXPECT_EQ(doubles[k], kStaleDouble);
  }
}

TEST_F(ValueLists, NullElementOrArrayIsAnInvalidArgument) {
  const std::vector<KalLightXmlElementItf*> elements = Load({"1 2 3"});
  ASSERT_EQ(elements.size(), 1u);
  float floats[12] = {};
  double doubles[12] = {};
  EXPECT_EQ(_Parser.ConvertVector(nullptr, floats), E_INVALIDARG);
  EXPECT_EQ(_Parser.ConvertVector(elements[0], nullptr), E_INVALIDARG);
  EXPECT_EQ(_Parser.ConvertMatrix(nullptr, floats), E_INVALIDARG);
  EXPECT_EQ(_Parser.ConvertMatrix(elements[0], static_cast<float*>(nullptr)), E_INVALIDARG);
  EXPECT_EQ(_Parser.ConvertMatrix(nullptr, doubles), E_INVALIDARG);
  EXPECT_EQ(_Parser.ConvertMatrix(elements[0], static_cast<double*>(nullptr)), E_INVALIDARG);
}

TEST_F(ValueLists, CountOccurencesCountsDirectProductStructureChildrenByTag) {
  Load({"1 2 3"},
       "<ProductStructure root=\"1\">"
       "<Reference3D xsi:type=\"Reference3DType\" id=\"1\"/>"
       "<Instance3D xsi:type=\"Instance3DType\" id=\"2\">"
       "<IsAggregatedBy>1</IsAggregatedBy><Instance3D/></Instance3D>"
       "<Instance3D id=\"3\"/>"
       "<Thing xsi:type=\"Instance3DType\" id=\"4\"/>"
       "<x:Instance3D/>"
       "<RepFormat/><RepFormat/>"
       "</ProductStructure>"
       "<Instance3D/>");
  const struct {
    const char* tag;
    int count;
  } cases[] = {{"Instance3D", 2}, {"x:Instance3D", 1}, {"RepFormat", 2},  {"Reference3D", 1},
               {"Thing", 1},      {"Missing", 0},      {"instance3d", 0}, {"V", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tag);
    int count = -5;
    EXPECT_EQ(_Parser.CountOccurences(c.tag, count), S_OK);
    EXPECT_EQ(count, c.count);
  }
}

TEST_F(ValueLists, CountOccurencesOnAChildlessProductStructureIsZero) {
  Load({});
  int count = 99;
  EXPECT_EQ(_Parser.CountOccurences("Instance3D", count), S_OK);
  EXPECT_EQ(count, 0);
}

TEST(ValueListsWithoutDocument, CountOccurencesNeedsAProductStructure) {
  KalVorlaParser parser;
  int count = 99;
  EXPECT_EQ(parser.CountOccurences("Instance3D", count), E_FAIL);
  EXPECT_EQ(count, 99);
}

TEST(ValueListsWithoutDocument, CountOccurencesSkipsNullChildren) {
  KalVorlaParser parser;
  FakeElement a("Instance3D"), b("Instance3D"), other("Reference3D");
  FakeElement structure("ProductStructure");
  structure.Add(&a).Add(nullptr).Add(&other).Add(nullptr).Add(&b);
  Inspector::SetProductStructureNode(parser, &structure);
  int count = 99;
  EXPECT_EQ(parser.CountOccurences("Instance3D", count), S_OK);
  EXPECT_EQ(count, 2);
  Inspector::SetProductStructureNode(parser, nullptr);
}

}  // namespace
