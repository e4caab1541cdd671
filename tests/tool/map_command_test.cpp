// quorix map as a user meets it: names, labels, warnings, and maps that are those of quorix-map.
#include "tool/map_command.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <zlib.h>

namespace qx::test {
namespace {

const std::string example = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz";

std::string map_tool(const std::string& high, const std::string& amplitude,
                     const std::string& phase) {
  const ProgramResult result =
      run_program("quorix-map", {"P 21 21 21", "50.84", "42.77", "28.95", "90", "90", "90", high,
                                 "50", example, amplitude, phase, "", "tool.ccp4"});
  EXPECT_EQ(result.status, 0) << result.output;
  return read_file("tool.ccp4");
}

std::string data_of(const std::string& path) {
  const std::string bytes = read_file(path);
  std::int32_t symmetry = 0;
  if (bytes.size() < 1024) return {};
  std::memcpy(&symmetry, bytes.data() + 92, 4);
  return bytes.substr(1024 + static_cast<std::size_t>(symmetry));
}

std::vector<float> values_of(const std::string& path) {
  const std::string data = data_of(path);
  std::vector<float> values(data.size() / 4);
  std::memcpy(values.data(), data.data(), 4 * values.size());
  return values;
}

void pack(const std::string& from, const std::string& to) {
  const std::string bytes = read_file(from);
  gzFile file = gzopen(to.c_str(), "wb");
  ASSERT_EQ(gzwrite(file, bytes.data(), static_cast<unsigned>(bytes.size())),
            static_cast<int>(bytes.size()));
  gzclose(file);
}

std::size_t lines_in(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST_F(MapCommand, makesBothMapsOfAFileFromItsNameAlone) {
  const ProgramResult result = map({example});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(lines_in(result.output), 13U) << result.output;  // six each, one between
  for (const char* said : {"50.84 42.77 28.95", "P 21 21 21", "1.800 - 32.73", "6224 of 6224",
                           "90 x 72 x 48", "rms 0.51622"}) {
    EXPECT_NE(result.output.find(said), std::string::npos) << said;
  }
  EXPECT_EQ(data_of("1ubq_2mFo-DFc.ccp4"), map_tool("1.8", "FWT", "PHWT").substr(1024));
  EXPECT_EQ(data_of("1ubq_mFo-DFc.ccp4"), map_tool("1.8", "DELFWT", "PHDELWT").substr(1024));
}

TEST_F(MapCommand, isTheMapToolByteByByteWithAPlainHeader) {
  ASSERT_EQ(map({example, "plain.ccp4", "--plain-header"}).status, 0);
  EXPECT_EQ(read_file("plain.ccp4"), map_tool("1.8", "FWT", "PHWT"));
  ASSERT_EQ(
      map({example, "fc.ccp4", "--plain-header", "--f", "FC", "--phi", "PHIC", "--dmin", "2.5"})
          .status,
      0);
  EXPECT_EQ(read_file("fc.ccp4"), map_tool("2.5", "FC", "PHIC"));
}

// Every text that is printed makes, fed back, the files of the command that printed it.
TEST_F(MapCommand, printsTheSectionsThatItRuns) {
  std::filesystem::create_directory("in");
  std::filesystem::copy(example, "in/1ubq.mtz");
  pack(example, "in/packed.mtz.gz");
  write_file("in/other.mtz", two_columns("FWT", "PHWT").bytes());
  std::vector<Arguments> runs = {
      {"in/1ubq.mtz", "a.ccp4", "--dmax", "15", "--spacing", "0.7", "--extent", "frac", "-0.1",
       "0.5", "0", "1", "0.25", "0.5"},
      {"in/1ubq.mtz"},
      {"in/1ubq.mtz", "in/other.mtz", "in/packed.mtz.gz"},
      {"in/1ubq.mtz", "b.ccp4.gz", "--difference", "--no-scale", "--plain-header"},
      {"in/1ubq.mtz", "--grid", "40", "40", "40", "--provenance", "--extent", "asu"},
      {"in/1ubq.mtz", "--prefix", std::string(200, 'p') + "#", "--provenance", "--memory", "1"},
      {"in/1ubq.mtz", "c.ccp4", "--f", "FC", "--phi", "PHIC", "--spacegroup", "P 1", "--cell",
       "51",          "43",     "29",  "90", "90",    "90",   "--extent",     "box", "0",
       "10",          "-4",     "5",   "1",  "2"}};
  const std::string gemmi = find_program("gemmi");
  if (!gemmi.empty() &&
      std::system((gemmi + " mtz2cif '" + example + "' in/sf.cif").c_str()) == 0) {
    runs.push_back({"in/sf.cif"});
  }
  setenv("SOURCE_DATE_EPOCH", "86400", 1);
  for (const Arguments& run : runs) {
    std::map<std::string, std::string> made[2];
    for (auto& files : made) {
      Arguments arguments = run;
      if (&files != made) arguments.emplace_back("--print-sections");
      const ProgramResult result = map(arguments);
      ASSERT_EQ(result.status, 0) << result.errors;
      if (&files != made) {
        const ProgramResult again = run_program("quorix", {"run"}, result.output);
        EXPECT_EQ(again.status, 0) << result.output << again.errors;
      }
      for (const auto& entry : std::filesystem::directory_iterator(".")) {
        if (!entry.is_regular_file()) continue;
        files[entry.path().filename()] = read_file(entry.path().string());
        std::filesystem::remove(entry.path());
      }
    }
    EXPECT_FALSE(made[0].empty());
    EXPECT_TRUE(made[0] == made[1]) << run.front() << ' ' << made[0].size() << made[1].size();
  }
  unsetenv("SOURCE_DATE_EPOCH");
}

TEST_F(MapCommand, readsPackedFilesAndWritesToAPipe) {
  const std::string map_file = "whole.ccp4";
  ASSERT_EQ(map({example, map_file}).status, 0);
  const std::string whole = read_file(map_file);
  pack(example, "packed");  // told by its content
  ASSERT_EQ(map({"packed", map_file}).status, 0);
  EXPECT_EQ(read_file(map_file), whole);
  const ProgramResult piped = map({example, "-"});
  EXPECT_EQ(piped.status, 0);
  EXPECT_TRUE(piped.output == whole);
  EXPECT_NE(piped.errors.find("rms 0.51622"), std::string::npos);

  const std::string bytes = read_file("packed");
  write_file("cut.gz", bytes.substr(0, bytes.size() / 2));
  const ProgramResult cut = map({"cut.gz", "cut.ccp4"});
  EXPECT_EQ(cut.status, 2);
  EXPECT_NE(cut.errors.find("cut.gz is a damaged gzip file"), std::string::npos) << cut.errors;
  EXPECT_FALSE(std::filesystem::exists("cut.ccp4"));
}

TEST_F(MapCommand, readsStructureFactorMmcif) {
  const std::string gemmi = find_program("gemmi");
  if (gemmi.empty()) GTEST_SKIP() << "gemmi is not installed";
  ASSERT_EQ(std::system((gemmi + " mtz2cif '" + example + "' sf.cif").c_str()), 0);
  ASSERT_EQ(map({example}).status, 0);
  const ProgramResult result = map({"sf.cif"});
  ASSERT_EQ(result.status, 0) << result.errors;
  for (const char* kind : {"_2mFo-DFc.ccp4", "_mFo-DFc.ccp4"}) {
    const std::vector<float> a = values_of(std::string("1ubq") + kind);
    const std::vector<float> b = values_of(std::string("sf") + kind);
    ASSERT_EQ(a.size(), b.size());
    // The text holds fewer digits.
    for (std::size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 0.01) << i;
  }
}

TEST_F(MapCommand, dropsWhatTheGridCannotHoldAndCountsIt) {
  const ProgramResult result = map({example, "small.ccp4", "--grid", "40", "40", "40", "--json"});
  ASSERT_EQ(result.status, 0) << result.errors;
  const auto json = nlohmann::json::parse(result.output).at(0);
  const double limit = json["resolution"][0];
  const int used = json["reflections_used"];
  EXPECT_NEAR(50.84 / limit, 20.0, 0.2);  // h of 20 would be its own opposite
  EXPECT_NE(json["warnings"].back().get<std::string>().find(std::to_string(6224 - used) +
                                                            " reflections beyond take no part"),
            std::string::npos);
  // The same terms on a grid that holds more.
  ASSERT_EQ(map({example, "fine.ccp4", "--grid", "80", "80", "80", "--dmin", std::to_string(limit)})
                .status,
            0);
  const std::vector<float> coarse = values_of("small.ccp4");
  const std::vector<float> fine = values_of("fine.ccp4");
  ASSERT_EQ(coarse.size(), 40U * 40 * 40);
  ASSERT_EQ(fine.size(), 80U * 80 * 80);
  for (std::size_t z = 0; z < 40; ++z) {
    for (std::size_t x = 0; x < 40; ++x) {
      const std::size_t y = (3 * x + z) % 40;
      ASSERT_NEAR(coarse[(z * 40 + y) * 40 + x], fine[(2 * z * 80 + 2 * y) * 80 + 2 * x], 1e-4);
    }
  }
}

// First point and number of points on each axis, from the header.
std::vector<std::int32_t> box_of(const std::string& path) {
  const std::string bytes = read_file(path);
  std::vector<std::int32_t> box(6);
  std::memcpy(box.data(), bytes.data() + 16, 12);
  std::memcpy(box.data() + 3, bytes.data(), 12);
  return box;
}

TEST_F(MapCommand, coversWhatItIsAskedToCover) {
  const auto box = [](Arguments extent) {
    extent.insert(extent.begin(), {example, "box.ccp4", "-q", "--extent"});
    EXPECT_EQ(map(extent).status, 0);
    return box_of("box.ccp4");
  };
  using Box = std::vector<std::int32_t>;
  EXPECT_EQ(box({"cell"}), (Box{0, 0, 0, 90, 72, 48}));
  EXPECT_EQ(box({"frac", "-0.1", "0.5", "0", "1", "0.25", "0.5"}), (Box{-9, 0, 12, 55, 73, 13}));
  // 5.084, 4.277 and 2.895 A are a tenth of the cell: 9, 7.2 and 4.8 points.
  EXPECT_EQ(box({"box", "-5.084", "5.084", "0", "4.277", "0", "2.895"}), (Box{-9, 0, 0, 19, 8, 6}));

  const std::string model = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.pdb";
  const double edges[3] = {50.84, 42.77, 28.95};
  const int counts[3] = {90, 72, 48};
  double low[3] = {1e9, 1e9, 1e9};
  double high[3] = {-1e9, -1e9, -1e9};
  std::istringstream lines(read_file(model));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("ATOM", 0) != 0 && line.rfind("HETATM", 0) != 0) continue;
    for (std::size_t a = 0; a < 3; ++a) {
      const double x = std::stod(line.substr(30 + 8 * a, 8));
      low[a] = std::min(low[a], x);
      high[a] = std::max(high[a], x);
    }
  }
  const Box around = box({"model", model, "--cushion", "3"});
  for (std::size_t a = 0; a < 3; ++a) {
    const double points = counts[a] / edges[a];
    EXPECT_NEAR(around[a], (low[a] - 3) * points, 0.51);
    EXPECT_NEAR(around[a] + around[a + 3] - 1, (high[a] + 3) * points, 0.51);
  }
}

TEST_F(MapCommand, opensWithOtherPeoplesPrograms) {
  if (find_program("gemmi").empty()) GTEST_SKIP() << "gemmi is not installed";
  Arguments files = {example};
  if (!real_data().empty()) {
    for (const char* name : {"1g8a_P21_omit.mtz", "1rx2_P212121.mtz", "5orl_P6122.mtz",
                             "5wkd_C2.mtz.gz", "hewl_ssad_P43212.mtz", "poor_map_P1.mtz"}) {
      files.push_back((real_data() / name).string());
    }
  }
  for (const std::string& file : files) {
    const ProgramResult result = map({file, "--json"});
    ASSERT_EQ(result.status, 0) << file << result.errors;
    for (const auto& made : nlohmann::json::parse(result.output)) {
      // Where the data contradict the group, it matters which mate counts.
      const bool forbidden =
          made["warnings"].dump().find("phases that the group forbids") != std::string::npos;
      const std::string command = "/usr/bin/python3 '" + std::string(QUORIX_SOURCE_DIR) +
                                  "/tests/tool/check_map.py' '" + made["map"].get<std::string>() +
                                  "' '" + file + "' " + made["labels"][0].get<std::string>() + " " +
                                  made["labels"][1].get<std::string>() +
                                  (forbidden ? " 0.01" : " 5e-5") + " >log 2>&1";
      EXPECT_EQ(std::system(command.c_str()), 0) << file << read_file("log");
    }
  }
}

// The unique set in its group and the same structure expanded to P 1 have one density.
TEST_F(MapCommand, findsTheSettingOfEveryGroup) {
  if (real_data().empty()) GTEST_SKIP();
  int pairs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(real_data() / "sg_pairs")) {
    const std::string path = entry.path().string();
    const std::size_t at = path.rfind("_p1.mtz");
    if (at == std::string::npos) continue;
    const std::string unique = path.substr(0, at) + ".mtz";
    const Arguments labels = {"--f", "FMODEL", "--phi", "PHIFMODEL", "--no-scale", "--json"};
    Arguments first = {unique, "unique.ccp4"};
    first.insert(first.end(), labels.begin(), labels.end());
    const ProgramResult result = map(first);
    ASSERT_EQ(result.status, 0) << unique << result.errors << result.output;
    const auto json = nlohmann::json::parse(result.output).at(0);
    Arguments second = {path, "p1.ccp4", "--grid"};
    for (const int n : json["grid"]) second.push_back(std::to_string(n));
    second.insert(second.end(), labels.begin(), labels.end());
    ASSERT_EQ(map(second).status, 0) << path;
    const std::vector<float> a = values_of("unique.ccp4");
    const std::vector<float> b = values_of("p1.ccp4");
    ASSERT_EQ(a.size(), b.size()) << path;
    const double rms = json["rms_about_zero"];
    for (std::size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-4 * rms) << path << i;
    ++pairs;
  }
  EXPECT_EQ(pairs, 32);
}

// ---- what is refused, and with which words

TEST_F(MapCommand, listsTheCandidatesInsteadOfChoosingOne) {
  MtzMaker maker = two_columns("FMODEL", "PHIFMODEL");
  const std::vector<float> values(maker.rows(), 1.0F);
  maker.add("FP", 'F', values).add("SIGFP", 'Q', values).add("FC", 'F', values);
  maker.add("PHIC", 'P', values).add("FWT", 'F', values);  // no PHWT: not complete
  make(maker);
  const ProgramResult none = map({"in.mtz"});
  EXPECT_EQ(none.status, 2);
  EXPECT_NE(none.errors.find("phases in the file: FMODEL/PHIFMODEL, FC/PHIC.\n"), std::string::npos)
      << none.errors;
  EXPECT_NE(none.errors.find("quorix map in.mtz --f 'FMODEL' --phi 'PHIFMODEL'"),
            std::string::npos);
  const ProgramResult half = map({"in.mtz", "--f", "FC", "--phi", "PHIX"});
  EXPECT_EQ(half.status, 2);
  EXPECT_NE(half.errors.find("in.mtz has no column PHIX"), std::string::npos);
  EXPECT_NE(half.errors.find("--f 'FC' --phi 'PHIC'"), std::string::npos) << half.errors;
  EXPECT_EQ(map({"in.mtz", "--f", "FC", "--phi", "PHIC"}).status, 0);
  EXPECT_TRUE(std::filesystem::exists("in_FC.ccp4"));
}

TEST_F(MapCommand, asksWhichOfTwoColumnsOfOneNameIsMeant) {
  MtzMaker maker = two_columns("FWT", "PHWT");
  maker.datasets.push_back({2, "project", "other", "data", 1.0});
  maker.add("FWT", 'F', std::vector<float>(maker.rows(), 5.0F), 2);
  maker.add("PHWT", 'P', std::vector<float>(maker.rows(), 5.0F), 2);
  make(maker);
  const ProgramResult result = map({"in.mtz", "out.ccp4"});
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.errors.find("more than one column FWT: crystal/data/FWT other/data/FWT"),
            std::string::npos)
      << result.errors;
  EXPECT_EQ(map({"in.mtz", "out.ccp4", "--f", "other/data/FWT", "--phi", "other/data/PHWT"}).status,
            0);
}

TEST_F(MapCommand, differenceMapsAreMadeOnlyOfDifferences) {
  make(two_columns("FOFCWT", "PHFOFCWT"));
  EXPECT_EQ(map({"in.mtz", "out.ccp4"}).status, 2);
  EXPECT_FALSE(std::filesystem::exists("out.ccp4"));
  EXPECT_EQ(map({"in.mtz", "out.ccp4", "--difference"}).status, 0);
  EXPECT_EQ(map({"in.mtz"}).status, 0);
  EXPECT_TRUE(std::filesystem::exists("in_mFo-DFc.ccp4"));
}

struct Refusal {
  const char* name;
  Arguments arguments;
  const char* text;
};

class MapCommandRefusals : public MapCommand, public ::testing::WithParamInterface<Refusal> {};

TEST_P(MapCommandRefusals, sayWhy) {
  make(two_columns("FWT", "PHWT"));
  write_file("text", "no reflections");
  const ProgramResult result = map(GetParam().arguments);
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.errors.find(GetParam().text), std::string::npos) << result.errors;
  EXPECT_EQ(result.output, "");
  EXPECT_FALSE(std::filesystem::exists("out.ccp4"));
}

INSTANTIATE_TEST_SUITE_P(
    options, MapCommandRefusals,
    ::testing::Values(
        Refusal{"weight", {"in.mtz", "out.ccp4", "--weight", "FOM"}, "could be weighted"},
        Refusal{"noFile", {"none.mtz", "out.ccp4"}, "there is no file none.mtz"},
        Refusal{"folder", {"/", "out.ccp4"}, "/ is not a regular file"},
        Refusal{"noFormat", {"text", "out.ccp4"}, "neither an MTZ nor an mmCIF file"},
        Refusal{"group", {"in.mtz", "out.ccp4", "--spacegroup", "P 1 #2"}, "must not hold #"},
        Refusal{"extent", {"in.mtz", "out.ccp4", "--extent", "sphere"}, "not 'sphere'"},
        Refusal{"swallowed", {"in.mtz", "--extent", "asu", "out.ccp4"}, "takes 0 values, not 1"},
        Refusal{"limit",
                {"in.mtz", "out.ccp4", "--extent", "frac", "0", "x", "0", "1", "0", "1"},
                "'x' is no number"},
        Refusal{"twoGrids", {"in.mtz", "out.ccp4", "--frac", "0.3", "--spacing", "1"}, "excludes"},
        Refusal{"pipeAndJson", {"in.mtz", "-", "--json"}, "standard output"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace qx::test
