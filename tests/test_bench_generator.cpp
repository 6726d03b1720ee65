// The benchmark's document generator: what it writes loads with the instances asked for, and
// the seed alone decides its bytes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "KalVorlaParser.h"
#include "TestDocuments.h"

namespace {

// Runs the generator after `env` and gives the bytes it wrote.
std::string Generate(const std::string& env, int seed, const std::string& out) {
  const std::string command = env + " python3 '" KAL_SOURCE_DIR "/bench/gen_vorla.py' --seed " +
                              std::to_string(seed) + " --instances 300 --depth 3 --fanout 4 '" +
                              out + "' > /dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return kaltest::ReadFile(out);
}

TEST(BenchGenerator, DocumentLoadsWithTheInstancesAskedForAndTheSeedAloneDecidesTheBytes) {
  if (std::system("python3 -c 'import zipfile' > /dev/null 2>&1") != 0)
    GTEST_SKIP() << "python3 is not available: the benchmark generator cannot run";
  kaltest::TempDir dir;
  // A day apart in local time, so that a timestamp taken from the clock would show.
  const std::string bytes = Generate("TZ=UTC+12", 7, dir.File("a.vorla"));
  EXPECT_TRUE(bytes == Generate("TZ=UTC-12", 7, dir.File("b.vorla"))) << "seed 7 twice differs";
  EXPECT_FALSE(bytes == Generate("", 8, dir.File("c.vorla"))) << "seeds 7 and 8 gave the same";

  KalVorlaParser parser;
  ASSERT_EQ(parser.InitParsing(dir.File("a.vorla").c_str()), S_OK);
  int instances = -1;
  KalLightXmlElementItf* root = nullptr;
  EXPECT_EQ(parser.GetNumberOfInstances(instances), S_OK);
  EXPECT_EQ(instances, 300);
  EXPECT_EQ(parser.GetProductStructureRootReference(&root), S_OK);
  EXPECT_NE(root, nullptr);
}

}  // namespace
