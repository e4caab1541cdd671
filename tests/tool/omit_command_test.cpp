// quorix omit and quorix maps --omit on the shipped example, as a user runs them.
#include "support/engine.h"
#include "support/program.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace qx::test {
namespace {

std::string example(const char* name) {
  return (std::filesystem::path(QUORIX_SOURCE_DIR) / "examples" / name).string();
}

class OmitCommand : public ::testing::Test {
 protected:
  // At a low resolution, quick.
  ProgramResult run(const char* command, std::vector<std::string> words) {
    words.insert(words.begin(), {command, example("1ubq.pdb"), example("1ubq.mtz"), "--dmin", "3"});
    return run_program("quorix", words);
  }
  ScratchDirectory scratch_;
};

TEST_F(OmitCommand, writesMapsWithoutASelectionAndComposites) {
  const std::string map = scratch_.file("omit.ccp4");
  const std::string difference = scratch_.file("difference.ccp4.gz");
  const ProgramResult selected =
      run("omit", {"--select", "A/20-25", "-o", map, "--difference", difference});
  ASSERT_EQ(selected.status, 0) << selected.output << selected.errors;
  EXPECT_NE(selected.output.find("Omitted                     : 46 of 660 atoms\n"),
            std::string::npos)
      << selected.output;
  EXPECT_EQ(selected.output.find("Warning"), std::string::npos) << selected.output;
  EXPECT_EQ(read_file(difference).substr(0, 2), "\x1f\x8b");
  const std::string first = read_file(map);
  const ProgramResult composite = run("omit", {"--composite", "--boxes", "4", "-o", map, "--json"});
  ASSERT_EQ(composite.status, 0) << composite.errors;
  const nlohmann::json json = nlohmann::json::parse(composite.output);
  EXPECT_EQ(json["omit"]["composite"], 4);
  EXPECT_EQ(json["maps"].size(), 1U);
  EXPECT_EQ(read_file(map).size(), first.size());
  EXPECT_NE(read_file(map), first);
  EXPECT_NE(read_file(map).find("2mFo-DFc composite omit"), std::string::npos);
}

TEST_F(OmitCommand, coefficientsWithoutASelectionGiveTheSameMap) {
  const std::string map = scratch_.file("omit.ccp4");
  ASSERT_EQ(run("omit", {"--select", "A/20-25", "-o", map}).status, 0);
  const ProgramResult maps = run("maps", {"--omit", "A/20-25", "-o", scratch_.file("out.mtz"),
                                          "--maps", scratch_.file("maps")});
  ASSERT_EQ(maps.status, 0) << maps.output << maps.errors;
  EXPECT_NE(maps.output.find("Excluded                    : 46 of 660 atoms\n"), std::string::npos);
  const std::string a = read_file(map);
  const std::string b = read_file(scratch_.file("maps_2mFo-DFc.ccp4"));
  ASSERT_EQ(a.size(), b.size());
  const auto floats = [](const std::string& bytes) {
    std::vector<float> values((bytes.size() - 2048) / 4);  // behind the header, 4 records follow
    std::memcpy(values.data(), bytes.data() + bytes.size() - 4 * values.size(), 4 * values.size());
    return values;
  };
  const auto x = floats(a);
  const auto y = floats(b);
  double difference = 0.0, size = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    difference += std::pow(static_cast<double>(x[i] - y[i]), 2);
    size += std::pow(static_cast<double>(x[i]), 2);
  }
  EXPECT_GT(size, 1.0);
  EXPECT_LT(difference, 1e-8 * size);
}

TEST_F(OmitCommand, printsSectionsAndRefusesWhatMeansNothing) {
  const std::string map = scratch_.file("omit.ccp4");
  const ProgramResult text = run("omit", {"--select", "A/20-25", "-o", map, "--print-sections"});
  ASSERT_EQ(text.status, 0) << text.errors;
  EXPECT_NE(text.output.find("xomit\n  region atoms 150:195"), std::string::npos) << text.output;
  EXPECT_FALSE(std::filesystem::exists(map));
  const auto refused = [&](std::vector<std::string> words, const char* said) {
    words.insert(words.end(), {"-o", map});
    const ProgramResult r = run("omit", words);
    EXPECT_EQ(r.status, 2) << said;
    EXPECT_NE(r.errors.find(said), std::string::npos) << r.errors;
  };
  refused({}, "give --select SEL or --composite");
  refused({"--select", "Z"}, "is in --select Z");
  refused({"--select", "A", "--composite"}, "excludes");
  refused({"--select", "A", "--rim", "2"}, "requires --composite");
  refused({"--composite", "--boxes", "0"}, "--boxes");
  refused({"--select", "A", "--difference", example("1ubq.mtz")}, "is an input");
}

}  // namespace
}  // namespace qx::test
