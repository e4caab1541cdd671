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
  ASSERT_EQ(labels_of("plain.ccp4").size(), 3U);
  EXPECT_EQ(labels_of("plain.ccp4")[2], "Density: scaled to rms 1 from 0.51622 e/A^3");
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

// What the programs are told by the scripts in `folder`, run from somewhere else.
Json said_by_scripts(const std::string& folder, const std::string& stem) {
  const std::string start = std::filesystem::absolute(folder).string() + "/" + stem;
  const std::string command = "cd / && /usr/bin/python3 '" + std::string(QUORIX_SOURCE_DIR) +
                              "/tests/tool/run_viewer_scripts.py' '" + start + "_coot.py' '" +
                              start + "_pymol.py' >'" + start + "_said'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  return Json::parse(read_file(start + "_said"));
}

TEST_F(MapCommand, takesAGroupThatNobodyNamesByItsOperators) {
  MtzMaker maker({{1, 2, 3}, {3, 1, 2}, {0, 0, 2}, {2, 0, 1}, {4, 2, 1}});
  maker.add("FWT", 'F', {10, 20, 30, 50, 40}).add("PHWT", 'P', {30, 60, 71, 110, 20});
  maker.symmetry = "4 2 P 0 'odd' PG2";
  maker.operators = {"x,y,z", "-x+1/4,-y,z+1/2", "x+1/2,y+1/2,z", "-x+3/4,-y+1/2,z+1/2"};
  make(maker);
  const ProgramResult result = map({"in.mtz", "out.ccp4", "--check", "--spacing", "1"});
  EXPECT_EQ(result.status, 0) << result.errors << result.output;
  EXPECT_NE(result.output.find("group       odd, by its operators\n"), std::string::npos)
      << result.output;
  std::int32_t bytes = 0;
  std::memcpy(&bytes, read_file("out.ccp4").data() + 92, 4);
  EXPECT_EQ(bytes, 4 * 80);
}

TEST_F(MapCommand, scriptsLoadMapsAndModelWhereverTheyAreMoved) {
  std::filesystem::create_directory("made");
  std::filesystem::copy(std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.pdb", "m.pdb");
  const ProgramResult result =
      map({example, "m.pdb", "--prefix", "made/", "--extent", "cell", "--scripts"});
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_NE(result.output.find("coot --script 1ubq_coot.py"), std::string::npos);
  const std::string cxc = read_file("made/1ubq_chimerax.cxc");
  EXPECT_NE(cxc.find("open \"1ubq_2mFo-DFc.ccp4\" format ccp4\n"), std::string::npos) << cxc;
  EXPECT_NE(cxc.find("volume #2 style mesh step 1 level 3 color green level -3 color red\n"),
            std::string::npos)
      << cxc;
  std::filesystem::rename("made", "moved");
  const Json said = said_by_scripts("moved", "1ubq");
  const std::string there = std::filesystem::absolute("moved").string() + "/";
  EXPECT_EQ(said["coot"], Json({{"handle_read_ccp4_map", there + "1ubq_2mFo-DFc.ccp4", 0},
                                {"set_contour_level_absolute", 7, 1.5},
                                {"handle_read_ccp4_map", there + "1ubq_mFo-DFc.ccp4", 1},
                                {"set_contour_level_absolute", 7, 3.0},
                                {"read_pdb", there + "../m.pdb"}}));
  EXPECT_EQ(said["pymol"].size(), 10U);
  EXPECT_EQ(said["pymol"][2][1], there + "1ubq_2mFo-DFc.ccp4");

  EXPECT_EQ(map({example, "-", "--scripts"}).status, 2);
}

std::vector<float> values_of(const std::string& path) {
  const std::string bytes = read_file(path);
  std::int32_t symmetry = 0;
  std::memcpy(&symmetry, bytes.data() + 92, 4);
  const std::size_t start = 1024 + static_cast<std::size_t>(symmetry);
  std::vector<float> values((bytes.size() - start) / 4);
  std::memcpy(values.data(), bytes.data() + start, 4 * values.size());
  return values;
}

TEST_F(MapCommand, oneScaleForTheCellAndItsParts) {
  ASSERT_EQ(map({example, "whole.ccp4"}).status, 0);
  const std::vector<float> whole = values_of("whole.ccp4");
  const Arguments part = {example, "part.ccp4", "--extent", "frac", "0",      "0.49",
                          "0",     "0.49",      "0",        "0.49", "--check"};
  const ProgramResult told = map(part);
  ASSERT_EQ(told.status, 0) << told.errors;
  EXPECT_NE(told.output.find("rms 0.51622 e/A^3 of the whole cell, scaled to 1 (0.974 in"),
            std::string::npos)
      << told.output;
  const std::vector<float> box = values_of("part.ccp4");
  ASSERT_EQ(box.size(), 45U * 36 * 25);
  for (std::size_t i = 0; i < box.size(); ++i) {
    const std::size_t x = i % 45;
    const std::size_t y = i / 45 % 36;
    ASSERT_NEAR(box[i], whole[(i / 45 / 36 * 72 + y) * 90 + x], 1e-5F) << i;
  }
  EXPECT_EQ(labels_of("part.ccp4").at(1), "Map type: 2mFo-DFc (FWT/PHWT), in rms of the cell");
  // In e/A^3 the levels still count in rms of the cell.
  Arguments raw = part;
  raw.insert(raw.end(), {"--no-scale", "--scripts"});
  ASSERT_EQ(map(raw).status, 0);
  const double level = said_by_scripts(".", "part")["coot"][1][2];
  EXPECT_NEAR(level, 1.5 * 0.51622, 1e-5);
}

TEST_F(MapCommand, coversTheAtomsThatAreSelected) {
  const std::string model = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.pdb";
  const std::string all = read_file(model);
  std::string five;
  for (std::size_t at = 0, end = 0; at < all.size(); at = end + 1) {
    end = all.find('\n', at);
    const std::string line = all.substr(at, end - at + 1);
    const int residue = line.starts_with("ATOM") ? std::stoi(line.substr(22, 4)) : 0;
    if (line.starts_with("CRYST1") || (residue >= 40 && residue <= 44)) five += line;
  }
  write_file("five.pdb", five);
  ASSERT_EQ(map({example, "five.pdb", "a.ccp4"}).status, 0);
  const ProgramResult result = map({example, model, "b.ccp4", "--select", "A/40-44"});
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_NE(result.output.find("atoms       45 of "), std::string::npos) << result.output;
  EXPECT_TRUE(read_file("a.ccp4") == read_file("b.ccp4"));
  // One number is one residue; a range may be left open.
  for (const auto& [selection, atoms] :
       {std::pair{"A/68", "10 of"}, std::pair{"68/CA,CB", "2 of"}, std::pair{"A/76-", "63 of"}}) {
    const ProgramResult told = map({example, model, "one.ccp4", "--select", selection});
    EXPECT_NE(told.output.find(format("atoms       %s", atoms)), std::string::npos) << told.output;
  }
  for (const auto& [selection, text] : {std::pair{"(LIG)", "no atom of "},
                                        std::pair{"A/x", "--select: Invalid selection syntax"}}) {
    const ProgramResult refused = map({example, model, "c.ccp4", "--select", selection});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.errors.find(text), std::string::npos) << refused.errors;
  }
  EXPECT_EQ(map({example, "c.ccp4", "--select", "A"}).status, 2);
}

}  // namespace
}  // namespace qx::test
