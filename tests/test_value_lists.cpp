// Blank-separated value lists: the list reader, vectors, matrices and the tag count of the
// product structure. A list of one number without any blank, read from start 0, never
// returns (the blank-skipping loop repeats for ever by design), so no test reads one.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "KalVorlaParser.h"
#include "ParserInspector.h"
#include "TestDocuments.h"

namespace {

constexpr float kStaleFloat = -777.0f;
constexpr double kStaleDouble = -777.0;

// Loads a document whose root holds the texts in elements V0, V1, ... and returns those.
class ValueLists : public ::testing::Test {
 protected:
  std::vector<KalLightXmlElementItf*> Load(const std::vector<std::string>& texts) {
    std::string body = "<ProductStructure/>";
    for (size_t i = 0; i < texts.size(); ++i)
      body += "<V" + std::to_string(i) + ">" + texts[i] + "</V" + std::to_string(i) + ">";
    const std::string path = _Dir.File("values.xml");
    kaltest::WriteFile(path, kaltest::VorlaXml(body));
    EXPECT_EQ(_Parser.InitParsing(path.c_str()), S_OK);
    KalLightXmlElementItf* root = nullptr;
    _Parser.GetVorlaRootNode(&root);
    std::vector<KalLightXmlElementItf*> out;
    for (size_t i = 0; i < texts.size(); ++i)
      out.push_back(kaltest::ChildByTag(root, "V" + std::to_string(i)));
    return out;
  }

  kaltest::TempDir _Dir;
  KalVorlaParser _Parser;
};

// Blanks before the value are skipped; next is the blank after it, -1 at the end. A piece
// that does not convert (also the empty piece at the end) still gives S_OK, and the int and
// double outputs keep what they held.
TEST_F(ValueLists, ReaderCutsOneValueAndReportsTheBlankAfterItInAllThreeTypes) {
  const struct {
    const char* list;
    int start;
    int value;  // 42: the piece does not convert
    int next;
  } cases[] = {{"1 2 3", 0, 1, 1}, {"1 2 3", 4, 3, -1}, {"  7 8", 0, 7, 3}, {"1  2", 1, 2, -1},
               {"12 34", 1, 2, 2}, {"5 ", 0, 5, 1},     {"a b", 0, 42, 1},  {"1 2", 3, 42, -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string("\"") + c.list + "\" from " + std::to_string(c.start));
    KalUnicodeString list(c.list);
    int asInt = 42, intNext = -9, doubleNext = -9, floatNext = -9;
    double asDouble = 42;
    float asFloat = 0;
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asInt, intNext), S_OK);
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asDouble, doubleNext), S_OK);
    EXPECT_EQ(_Parser.GetNextValueInList(list, c.start, asFloat, floatNext), S_OK);
    EXPECT_EQ(asInt, c.value);
    EXPECT_EQ(asDouble, c.value);
    EXPECT_TRUE(c.value == 42 || asFloat == c.value) << asFloat;  // else unspecified
    EXPECT_EQ((std::vector<int>{intNext, doubleNext, floatNext}), std::vector<int>(3, c.next));
  }
}

// Reading goes on from next + 1, so a short list wraps around to its start; only the blank
// separates, so a tab stays inside a piece.
TEST_F(ValueLists, VectorReadsThreeValuesWrappingAroundShortLists) {
  const std::vector<std::string> texts = {"1 2 3 4", " 1  2 3 ", "1 2", " 5", "1\t2 3"};
  const float expected[][3] = {{1, 2, 3}, {1, 2, 3}, {1, 2, 1}, {5, 5, 5}, {1, 3, 1}};
  const std::vector<KalLightXmlElementItf*> elements = Load(texts);
  ASSERT_EQ(elements.size(), texts.size());
  for (size_t i = 0; i < elements.size(); ++i) {
    SCOPED_TRACE(texts[i]);
    float values[4] = {kStaleFloat, kStaleFloat, kStaleFloat, kStaleFloat};
    EXPECT_EQ(_Parser.ConvertVector(elements[i], values), S_OK);
    EXPECT_EQ(std::vector<float>(values, values + 4),
              (std::vector<float>{expected[i][0], expected[i][1], expected[i][2], kStaleFloat}));
  }
}

// The double matrix converts each text directly, not through float; a thirteenth value is
// ignored and a short list repeats from the start. An empty text fails, writing nothing.
TEST_F(ValueLists, MatrixReadsTwelveFloatsOrDoublesInTextOrder) {
  const std::vector<KalLightXmlElementItf*> elements =
      Load({"0.1 -2.5 3e-3 4 0.7 6.25 -0 8.125 1e10 10 0.333 12 13", "0.1 2 3", ""});
  ASSERT_EQ(elements.size(), 3u);
  const double exact[2][12] = {{0.1, -2.5, 3e-3, 4, 0.7, 6.25, -0.0, 8.125, 1e10, 10, 0.333, 12},
                               {0.1, 2, 3, 0.1, 2, 3, 0.1, 2, 3, 0.1, 2, 3}};
  for (int e = 0; e < 3; ++e) {
    SCOPED_TRACE(e);
    float floats[13];
    double doubles[13];
    std::fill(floats, floats + 13, kStaleFloat);
    std::fill(doubles, doubles + 13, kStaleDouble);
    EXPECT_EQ(_Parser.ConvertMatrix(elements[e], floats), e < 2 ? S_OK : E_FAIL);
    EXPECT_EQ(_Parser.ConvertMatrix(elements[e], doubles), e < 2 ? S_OK : E_FAIL);
    for (int k = 0; k < 13; ++k) {
      const double want = e < 2 && k < 12 ? exact[e][k] : kStaleDouble;
      EXPECT_EQ(doubles[k], want) << "entry " << k;
      EXPECT_EQ(floats[k], static_cast<float>(want)) << "entry " << k;
    }
  }
  float vector[3] = {kStaleFloat, kStaleFloat, kStaleFloat};
  EXPECT_EQ(_Parser.ConvertVector(elements[2], vector), E_FAIL);
  EXPECT_EQ(vector[0], kStaleFloat);
  EXPECT_EQ(_Parser.ConvertVector(nullptr, vector), E_INVALIDARG);
  EXPECT_EQ(_Parser.ConvertMatrix(elements[0], static_cast<float*>(nullptr)), E_INVALIDARG);
  double doubles[12] = {};
  EXPECT_EQ(_Parser.ConvertMatrix(nullptr, doubles), E_INVALIDARG);
}

// Only direct children count, compared by whole tag; null children are skipped.
TEST(ValueListsWithoutDocument, CountOccurencesCountsDirectChildrenByTag) {
  KalVorlaParser parser;
  kaltest::FakeElement nested("Instance3D"), b("Instance3D"), a("Instance3D", {&nested});
  kaltest::FakeElement prefixed("x:Instance3D"), childless("ProductStructure");
  kaltest::FakeElement structure("ProductStructure", {&a, nullptr, &prefixed, nullptr, &b});
  const struct {
    KalLightXmlElementItf* structure;
    const char* tag;
    int count;
  } cases[] = {{&structure, "Instance3D", 2},
               {&structure, "x:Instance3D", 1},
               {&structure, "instance3d", 0},
               {&childless, "Instance3D", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tag);
    KalVorlaParserInspector::SetStructure(parser, c.structure);
    int count = 99;
    EXPECT_EQ(parser.CountOccurences(c.tag, count), S_OK);
    EXPECT_EQ(count, c.count);
  }
  KalVorlaParserInspector::SetStructure(parser, nullptr);
}

}  // namespace
