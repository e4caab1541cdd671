// What quorix map does beyond the map: provenance in its labels, the check against a direct sum,
// scripts for viewers.
#include "driver/commands/map/check.h"
#include "tool/map_command.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

namespace qx::test {
namespace {

using Json = nlohmann::json;

const std::string example = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz";

std::vector<std::string> labels_of(const std::string& path) {
  const std::string bytes = read_file(path);
  std::int32_t count = 0;
  std::memcpy(&count, bytes.data() + 220, 4);
  std::vector<std::string> labels;
  for (std::int32_t i = 0; i < count && i < 10; ++i) {
    std::string label = bytes.substr(224 + 80 * static_cast<std::size_t>(i), 80);
    label.erase(label.find_last_not_of(' ') + 1);
    labels.push_back(label);
  }
  return labels;
}

// Sets a variable of the environment while it lives.
class Environment {
 public:
  Environment(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() { unsetenv(name_); }

 private:
  const char* name_;
};

TEST_F(MapCommand, provenanceTellsWhatTheMapWasMadeOf) {
  ASSERT_EQ(map({example, "plain.ccp4"}).status, 0);
  EXPECT_EQ(labels_of("plain.ccp4").size(), 2U);
  const Environment date("SOURCE_DATE_EPOCH", "86400");
  ASSERT_EQ(map({example, "out.ccp4", "--dmin", "2", "--provenance"}).status, 0);
  const std::vector<std::string> labels = labels_of("out.ccp4");
  ASSERT_EQ(labels.size(), 10U);
  EXPECT_TRUE(labels[2].ends_with("examples/1ubq.mtz")) << labels[2];
  EXPECT_EQ(labels[3], "Columns: FWT PHWT");
  EXPECT_TRUE(std::regex_match(
      labels[4], std::regex("Resolution: 2\\.00[0-9] to 32\\.7[0-9]* A, [0-9]{4} reflections")))
      << labels[4];
  EXPECT_EQ(labels[5], "Space group: P 21 21 21");
  EXPECT_TRUE(labels[6].starts_with("Grid: ")) << labels[6];
  EXPECT_TRUE(labels[7].starts_with("Density: scaled to rms 1 from 0.")) << labels[7];
  EXPECT_EQ(labels[9], "Written: 1970-01-02 00:00:00 UTC");

  ASSERT_EQ(map({example, "raw.ccp4", "--dmin", "2", "--provenance", "--no-scale"}).status, 0);
  EXPECT_EQ(labels_of("raw.ccp4").at(7), "Density: e/A^3, not scaled");
}

TEST_F(MapCommand, provenanceKeepsTheEndOfALongNameAndNothingRunsOver) {
  const std::string deep = "a-folder-with-a-long-name/and-another-one-inside-of-it-with-one/";
  std::filesystem::create_directories(deep);
  std::filesystem::copy(example, deep + "the-file.mtz");
  ASSERT_EQ(map({deep + "the-file.mtz", "out.ccp4", "--provenance"}).status, 0);
  const std::string label = labels_of("out.ccp4").at(2);
  EXPECT_TRUE(label.starts_with("Input: ...")) << label;
  EXPECT_TRUE(label.ends_with("-with-one/the-file.mtz")) << label;
  EXPECT_EQ(label.size(), 80U);
  EXPECT_EQ(labels_of("out.ccp4").at(3), "Columns: FWT PHWT");
}

TEST_F(MapCommand, checkComparesTheFileWithADirectSum) {
  for (const Arguments& more :
       {Arguments{}, Arguments{"--no-scale", "--extent", "asu"},
        Arguments{"--extent", "frac", "-0.3", "0.2", "0.1", "1.4", "0.5", "0.75"},
        Arguments{"--grid", "24", "24", "24"}}) {
    Arguments arguments = {example, "out.ccp4", "--check", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProgramResult result = map(arguments);
    ASSERT_EQ(result.status, 0) << result.errors;
    const Json check = Json::parse(result.output).at(0).at("check");
    EXPECT_EQ(check["points"], 100);
    EXPECT_GT(check["largest_deviation_rms"], 0.0);  // single precision in the file
    EXPECT_LT(check["largest_deviation_rms"], 2e-6);
  }
  const ProgramResult told = map({example, "out.ccp4", "--check"});
  EXPECT_NE(told.output.find("of a direct sum at 100 points"), std::string::npos) << told.output;
}

// The file with a thousandth of an rms added everywhere.
TEST_F(MapCommand, checkFailsForAMapThatIsNotTheSum) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  qx::Engine engine(false);
  engine.run(
      SectionText("xcry")
          .line("spgname P 21 21 21")
          .line("cell 50.84 42.77 28.95")
          .line("read refl mtz file \"" + example + "\" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT"));
  engine.run(SectionText("xgrid").line("frac 0.33"));
  engine.run(SectionText("xfft"));
  engine.run(SectionText("xmap")
                 .line("mapdef generated with amplitude input phase input")
                 .line("param type unweighted u 1 v 0 scale yes")
                 .line("generate")
                 .line("write ccp4 file \"out.ccp4\""));
  EXPECT_TRUE(check_map(engine, "out.ccp4").passed());
  std::string bytes = read_file("out.ccp4");
  for (std::size_t at = 1024; at < bytes.size(); at += 4) {
    float value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    value += 1e-3F;
    std::memcpy(bytes.data() + at, &value, 4);
  }
  write_file("out.ccp4", bytes);
  const MapCheck check = check_map(engine, "out.ccp4");
  EXPECT_FALSE(check.passed());
  EXPECT_NEAR(check.largest, 1e-3, 2e-6);
}

TEST_F(MapCommand, checkHoldsForPairsOfOppositesAndForbiddenTerms) {
  // A row for an index and one for its opposite: the first counts. 0 0 3 is extinct under 2(1).
  MtzMaker maker({{1, 2, 3}, {-1, -2, -3}, {0, 0, 2}, {0, 0, 3}, {2, 0, 1}});
  maker.operators = {"x,y,z", "-x,-y,z+1/2"};
  maker.symmetry = "2 2 P 4 'P 1 1 21' PG2";
  maker.add("FWT", 'F', {10, 20, 30, 40, 50}).add("PHWT", 'P', {30, 60, 71, 20, 110});
  make(maker);
  const ProgramResult result = map({"in.mtz", "out.ccp4", "--check", "--spacing", "1"});
  EXPECT_EQ(result.status, 0) << result.errors << result.output;
  EXPECT_NE(result.output.find("check       read back"), std::string::npos) << result.output;
}

TEST_F(MapCommand, scriptsLoadTheMapsInViewers) {
  const ProgramResult result = map({example, "--scripts"});
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_NE(result.output.find("coot --script 1ubq_coot.py"), std::string::npos);
  const std::string cxc = read_file("1ubq_chimerax.cxc");
  const std::string here = std::filesystem::current_path().string();
  EXPECT_NE(cxc.find("open \"" + here + "/1ubq_2mFo-DFc.ccp4\" format ccp4\n"), std::string::npos);
  EXPECT_NE(cxc.find("volume #2 style mesh step 1 level 3 color green level -3 color red\n"),
            std::string::npos)
      << cxc;
  const std::string command = "/usr/bin/python3 '" + std::string(QUORIX_SOURCE_DIR) +
                              "/tests/tool/run_viewer_scripts.py' 1ubq_coot.py 1ubq_pymol.py >said";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const Json said = Json::parse(read_file("said"));
  const std::string main_map = here + "/1ubq_2mFo-DFc.ccp4";
  const std::string difference = here + "/1ubq_mFo-DFc.ccp4";
  EXPECT_EQ(said["coot"], Json({{"handle_read_ccp4_map", main_map, 0},
                                {"set_contour_level_in_sigma", 7, 1.5},
                                {"handle_read_ccp4_map", difference, 1},
                                {"set_contour_level_in_sigma", 7, 3.0}}));
  EXPECT_EQ(said["pymol"].size(), 9U);
  EXPECT_EQ(said["pymol"][1][1], main_map);

  EXPECT_EQ(map({example, "-", "--scripts"}).status, 2);
}

}  // namespace
}  // namespace qx::test
