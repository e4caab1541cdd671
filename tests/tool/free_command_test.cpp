// quorix free on made data: shares, symmetry, what is kept, and what it refuses.
#include "support/mtz_columns.h"
#include "support/mtz_command.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace qx::test {
namespace {

using Json = nlohmann::json;
using Index = std::vector<int>;
using Flags = std::map<Index, float>;

// A tetragonal lattice, so that P 2 data are those of a possible twin.
class FreeCommand : public MtzCommand {
 protected:
  FreeCommand() : MtzCommand("free") {}
  static MtzMaker data(int reach, const std::string& cell = "40 40 60 90 90 90") {
    std::vector<Index> indices;
    for (int h = -reach; h <= reach; ++h) {
      for (int k = 0; k <= reach; ++k) {
        for (int l = 0; l <= reach; ++l) {
          if (h * h + k * k + l * l < 1 || h * h + k * k + l * l > reach * reach) continue;
          if ((l == 0 && h < 0) || (k == 0 && l == 0 && h < 1)) continue;
          indices.push_back({h, k, l});
        }
      }
    }
    MtzMaker maker(indices);
    maker.cell = cell;
    maker.symmetry = "2 2 P 3 'P 1 2 1' PG2";
    maker.operators = {"X,Y,Z", "-X,Y,-Z"};
    maker.history = {"first line", "second line"};
    maker.add("FP", 'F', std::vector<float>(indices.size(), 7.5F));
    maker.add("SIGFP", 'Q', std::vector<float>(indices.size(), NAN));
    return maker;
  }
  static Flags flags_of(const std::string& path, const std::string& label = "FreeR_flag") {
    const auto h = column_of(path, "H"), k = column_of(path, "K"), l = column_of(path, "L");
    const auto values = column_of(path, label);
    Flags flags;
    for (std::size_t i = 0; i < values.size(); ++i) {
      const auto index = [i](const std::vector<float>& axis) { return static_cast<int>(axis[i]); };
      flags[{index(h), index(k), index(l)}] = values[i];
    }
    return flags;
  }
  // What the tetragonal lattice makes equal.
  static Index orbit(const Index& hkl) {
    const int h = std::abs(hkl[0]), k = std::abs(hkl[1]);
    return {std::max(h, k), std::min(h, k), std::abs(hkl[2])};
  }
  static std::map<Index, float> by_orbit(const Flags& flags) {
    std::map<Index, float> orbits;
    for (const auto& [hkl, flag] : flags) {
      EXPECT_EQ(orbits.try_emplace(orbit(hkl), flag).first->second, flag) << hkl[0] << hkl[1];
    }
    return orbits;
  }
  static std::size_t count(const std::map<Index, float>& flags, float value) {
    return static_cast<std::size_t>(std::count_if(
        flags.begin(), flags.end(), [value](const auto& flag) { return flag.second == value; }));
  }
};

TEST_F(FreeCommand, drawsEquallyInThinShellsAndForRelativesByTheLattice) {
  const std::string in = save(data(14), "in.mtz");
  const std::string out = scratch_.file("out.mtz");
  const Json json = json_of({in, "-o", out});
  const auto orbits = by_orbit(flags_of(out));
  std::vector<std::pair<double, float>> ordered;
  for (const auto& [hkl, flag] : orbits) {
    ordered.emplace_back((hkl[0] * hkl[0] + hkl[1] * hkl[1]) / 1600.0 + hkl[2] * hkl[2] / 3600.0,
                         flag);
  }
  std::sort(ordered.begin(), ordered.end());
  // The data are a part of a sphere in the reciprocal space of this cell: look where all is there.
  const auto end = std::find_if(ordered.begin(), ordered.end(),
                                [](const auto& o) { return o.first > 14 * 14 / 3600.0; });
  const auto n = static_cast<std::size_t>(end - ordered.begin()) / 100;
  ASSERT_GE(n, 2U);
  for (std::size_t shell = 0; shell < n; ++shell) {
    for (const float value : {0.0F, 7.0F, 19.0F}) {
      const auto first = ordered.begin() + static_cast<std::ptrdiff_t>(100 * shell);
      const auto members =
          std::count_if(first, first + 100, [value](const auto& o) { return o.second == value; });
      EXPECT_NEAR(static_cast<double>(members), 5.0, 2.0);  // a group may end within
    }
  }
  EXPECT_EQ(json["free_value"], 0);
  EXPECT_EQ(json["convention"], "groups");
  EXPECT_EQ(json["lattice_rotations"], 8);
  EXPECT_EQ(json["drawn"], column_of(in, "FP").size());
  // The same set on any machine, whoever draws it.
  const std::vector<float> some = {orbits.at({1, 0, 0}), orbits.at({2, 1, 1}), orbits.at({3, 0, 4}),
                                   orbits.at({5, 5, 5}), orbits.at({6, 2, 3})};
  EXPECT_EQ(some, (std::vector<float>{19, 14, 17, 9, 6}));
  const std::string other = scratch_.file("other.mtz");
  json_of({in, "-o", other, "--seed", "138"});
  EXPECT_NE(flags_of(other), flags_of(out));
}

TEST_F(FreeCommand, keepsEverythingElse) {
  const std::string in = save(data(6), "in.mtz");
  const std::string out = scratch_.file("out.mtz.gz");
  const ProgramResult r = run({in, "-o", out, "--values", "binary", "--percent", "10"});
  ASSERT_EQ(r.status, 0) << r.errors;
  EXPECT_NE(r.output.find("FreeR_flag: 1 free, 0 works"), std::string::npos) << r.output;
  const auto facts = [](const std::string& path) {
    return Json::parse(run_program("quorix", {"info", path, "--json"}).output);
  };
  const Json before = facts(in);
  const Json after = facts(out);
  for (const char* key : {"cell", "space_group", "datasets", "reflections", "title", "operators"}) {
    EXPECT_EQ(before[key], after[key]) << key;
  }
  ASSERT_EQ(after["columns"].size(), 6U);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(before["columns"][i], after["columns"][i]);
  EXPECT_EQ(after["columns"][5]["type"], "I");
  ASSERT_EQ(after["history"].size(), 3U);
  EXPECT_EQ(after["history"][2], "second line");
  EXPECT_NE(after["history"][0].get<std::string>().find("quorix free: FreeR_flag, 10 %"),
            std::string::npos);
}

TEST_F(FreeCommand, aSecondCrystalKeepsTheSetOfTheFirst) {
  const std::string first = save(data(8), "first.mtz");
  const std::string second = save(data(12, "40.3 40.2 60.5 90 90.2 90"), "second.mtz");
  const std::string old = scratch_.file("old.mtz");
  const std::string out = scratch_.file("out.mtz");
  json_of({first, "-o", old, "--seed", "5", "--label", "FREE"});
  const auto kept = by_orbit(flags_of(old, "FREE"));
  Json json = json_of({second, "-o", out, "--like", old});
  EXPECT_EQ(json["warnings"].size(), 1U);
  EXPECT_EQ(json["drawn"], 0);
  json = json_of({second, "-o", out, "--like", old, "--extend"});
  const auto flags = by_orbit(flags_of(out, "FREE"));
  for (const auto& [hkl, flag] : kept) EXPECT_EQ(flags.at(hkl), flag);
  const auto n = flags.size() - kept.size();
  ASSERT_GT(n, 200U);
  EXPECT_NEAR(static_cast<double>(count(flags, 0) - count(kept, 0)), static_cast<double>(n) / 20,
              4);
  EXPECT_EQ(json["flagged"], json["reflections"]);
  EXPECT_EQ(json["like"]["follows_lattice"], true);
  // Flags of two values stay so, and a set that grows by itself is the same as one from afar.
  const std::string binary = scratch_.file("binary.mtz");
  json_of({first, "-o", binary, "--values", "binary", "--percent", "10"});
  json = json_of({second, "-o", out, "--like", binary, "--extend", "--complete"});
  EXPECT_EQ(json["convention"], "binary");
  EXPECT_EQ(json["free_value"], 1);
  EXPECT_NEAR(json["percent"].get<double>(), 10.0, 2.0);
  EXPECT_GT(json["added"], 0);
  const std::string again = scratch_.file("again.mtz");
  json = json_of({out, "-o", again, "--extend"});
  EXPECT_EQ(json["drawn"], 0);
  EXPECT_EQ(flags_of(again), flags_of(out));
}

TEST_F(FreeCommand, refusesWhatMeansNothing) {
  const std::string in = save(data(6), "in.mtz");
  const std::string out = scratch_.file("out.mtz");
  const std::string flagged = scratch_.file("flagged.mtz");
  ASSERT_EQ(run({in, "-o", flagged}).status, 0);
  MtzMaker group = data(6);
  group.symmetry = "1 1 P 1 'P 1' PG1";
  group.operators = {"X,Y,Z"};
  group.add("FREE", 'I', std::vector<float>(group.rows(), 1.0F));
  MtzMaker unmerged = data(3);
  unmerged.batches = {{1, "one", std::vector<std::int32_t>(29), std::vector<float>(156)}};
  const std::string bytes = read_file(in);
  const struct {
    std::vector<std::string> words;
    const char* text;
  } cases[] = {
      {{in, "-o", out, "--percent", "0"}, "--percent 0: a free set is above 0 and at most 50 %"},
      {{in, "-o", out, "--percent", "0.01"}, "would be free"},
      {{in, "-o", in}, "is an input"},
      {{flagged, "-o", out}, "has free flags already, FreeR_flag"},
      {{in, "-o", out, "--label", "SIGFP"}, "has a column SIGFP"},
      {{in, "-o", out, "--like", in}, "no free flags under a usual name"},
      {{in, "-o", out, "--extend", "--like-label", "NONE"}, "has no column NONE"},
      {{save(data(6, "40 44 60 90 90 90"), "cell.mtz"), "-o", out, "--like", flagged},
       "other cells"},
      {{in, "-o", out, "--like", save(group, "group.mtz")}, "other symmetry"},
      {{save(unmerged, "unmerged.mtz"), "-o", out}, "unmerged data (1 batches)"},
      {{save(MtzMaker(std::vector<Index>()), "empty.mtz"), "-o", out}, "no reflections"}};
  for (const auto& c : cases) {
    const ProgramResult r = run(c.words);
    EXPECT_NE(r.status, 0) << c.text;
    EXPECT_NE(r.errors.find(c.text), std::string::npos) << c.text << '\n' << r.errors << r.output;
    EXPECT_FALSE(std::filesystem::exists(out)) << c.text;
  }
  EXPECT_EQ(read_file(in), bytes);
  EXPECT_EQ(run({flagged, "-o", out, "--replace", "--seed", "1"}).status, 0);
  EXPECT_NE(flags_of(out), flags_of(flagged));
}

}  // namespace
}  // namespace qx::test
