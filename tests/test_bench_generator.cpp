// The benchmark's document generator: what it writes loads, holds the counts asked for,
// and is the same bytes for the same seed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

// The number after "key": in the generator's one-line JSON; -1 when the key is missing.
long JsonNumber(const std::string& json, const std::string& key) {
  const std::string k = "\"" + key + "\":";
  const size_t at = json.find(k);
  return at == std::string::npos ? -1 : std::strtol(json.c_str() + at + k.size(), nullptr, 10);
}

class BenchGenerator : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("python3 -c 'import zipfile' > /dev/null 2>&1") != 0) {
      GTEST_SKIP() << "python3 is not available: the benchmark generator cannot run";
    }
  }
  // Runs the generator and returns what it printed; `env` goes before the command.
  std::string Generate(const std::string& args, const std::string& out, const std::string& env = "") {
    const std::string json = out + ".json";
    const std::string command = env + "python3 '" + KAL_SOURCE_DIR + "/bench/gen_vorla.py' " + args +
                                " '" + out + "' > '" + json + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return kaltest::FileExists(json) ? kaltest::ReadFile(json) : std::string();
  }
  kaltest::TempDir _Dir;
};

constexpr const char* kSmall = "--instances 300 --depth 3 --fanout 4 --seed 7";

TEST_F(BenchGenerator, DocumentLoadsWithTheCountsAskedFor) {
  const std::string path = _Dir.File("small.vorla");
  const std::string json = Generate(kSmall, path);
  ASSERT_FALSE(json.empty());
  EXPECT_EQ(JsonNumber(json, "instances"), 300);

  auto parser = std::make_unique<KalVorlaParser>();
  ASSERT_EQ(parser->InitParsing(path.c_str()), S_OK);
  int count = -1;
  ASSERT_EQ(parser->GetNumberOfInstances(count), S_OK);
  EXPECT_EQ(count, 300);
  ASSERT_EQ(parser->GetNumberOfReferences(count), S_OK);
  EXPECT_EQ(count, JsonNumber(json, "references"));
  ASSERT_EQ(parser->GetNumberOfRepresentations(count), S_OK);
  EXPECT_EQ(count, JsonNumber(json, "rep_formats"));

  KalLightXmlElementItf* root = nullptr;
  ASSERT_EQ(parser->GetProductStructureRootReference(&root), S_OK);
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(std::atol(root->GetAttribute("id").ConvertToChar()), JsonNumber(json, "root_reference_id"));
  const long first = JsonNumber(json, "first_instance_id");
  const long last = JsonNumber(json, "last_instance_id");
  for (long id : {first, (first + last) / 2, last}) {
    KalLightXmlElementItf* instance = nullptr;
    EXPECT_EQ(parser->GetInstance3DFromLocalID(static_cast<int>(id), &instance), S_OK) << id;
    EXPECT_NE(instance, nullptr) << id;
  }
}

TEST_F(BenchGenerator, SameSeedGivesSameBytes) {
  const std::string a = _Dir.File("a.vorla"), b = _Dir.File("b.vorla"), c = _Dir.File("c.vorla");
  // A day apart in local time, so that a timestamp taken from the clock would show.
  ASSERT_FALSE(Generate(kSmall, a, "TZ=UTC+12 ").empty());
  ASSERT_FALSE(Generate(kSmall, b, "TZ=UTC-12 ").empty());
  ASSERT_FALSE(Generate("--instances 300 --depth 3 --fanout 4 --seed 8", c).empty());
  const std::string bytes = kaltest::ReadFile(a);
  EXPECT_TRUE(bytes == kaltest::ReadFile(b)) << "two runs with seed 7 differ";
  EXPECT_FALSE(bytes == kaltest::ReadFile(c)) << "seeds 7 and 8 gave the same archive";
}

}  // namespace
