// quorix fofo on pairs whose difference is known.
#include "support/engine.h"
#include "support/mtz_columns.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

namespace qx::test {
namespace {

using Json = nlohmann::json;

std::string example(const char* name) {
  return (std::filesystem::path(QUORIX_SOURCE_DIR) / "examples" / name).string();
}

class FofoCommand : public ::testing::Test {
 protected:
  static ProgramResult fofo(std::vector<std::string> words) {
    words.insert(words.begin(), "fofo");
    return run_program("quorix", words);
  }
  std::string save(const MtzMaker& maker, const std::string& name) {
    write_file(scratch_.file(name), maker.bytes());
    return scratch_.file(name);
  }
  // In P 1 2 1, where (-h, k, -l) is the mate of (h, k, l).
  static MtzMaker monoclinic(const std::vector<std::vector<int>>& indices) {
    MtzMaker maker(indices);
    maker.cell = "20 25 30 90 100 90";
    maker.symmetry = "2 2 P 3 'P 1 2 1' PG2";
    maker.operators = {"x,y,z", "-x,y,-z"};
    return maker;
  }
  static std::vector<std::vector<int>> unique() {
    auto indices = half_sphere(6, 7, 8);
    std::erase_if(indices, [](const auto& i) {
      return i[1] < 0 || i[2] < 0 || (i[2] == 0 && i[0] < 0) || (i[0] < 0 && i[1] == 0);
    });
    return indices;
  }
  struct Pair {
    MtzMaker off, on;
    std::vector<float> f;
  };
  // Amplitudes of the second half as large again and falling with B, in another order, as mates or
  // Friedel opposites; row 5 of the first is larger by 30, row 9 smaller by 20, row 11 not there.
  static Pair pair() {
    const auto indices = unique();
    std::mt19937 random(3);
    std::uniform_real_distribution<float> amplitude(50.0F, 150.0F);
    std::vector<float> f, phases;
    for (std::size_t i = 0; i < indices.size(); ++i) {
      f.push_back(amplitude(random));
      phases.push_back(amplitude(random));
    }
    MtzMaker off = monoclinic(indices);
    off.add("FP", 'F', f).add("SIGFP", 'Q', std::vector<float>(f.size(), 2.0F));
    off.add("PHI", 'P', phases);
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < indices.size(); ++i) {
      if (i != 11) order.push_back(i);
    }
    std::shuffle(order.begin(), order.end(), random);
    std::vector<std::vector<int>> others;
    std::vector<float> g;
    for (const std::size_t i : order) {
      std::vector<int> hkl = indices[i];
      if (i % 2 == 0) hkl = {-hkl[0], hkl[1], -hkl[2]};
      if (i % 3 == 0) hkl = {-hkl[0], -hkl[1], -hkl[2]};
      others.push_back(hkl);
      const float changed = i == 5 ? f[i] + 30.0F : i == 9 ? f[i] - 20.0F : f[i];
      g.push_back(1.5F * changed);
    }
    MtzMaker on = monoclinic(others);
    on.add("FP", 'F', g).add("SIGFP", 'Q', std::vector<float>(g.size(), 3.0F));
    return {off, on, f};
  }

  ScratchDirectory scratch_;
};

TEST_F(FofoCommand, differencesStandAtTheReflectionsTheyBelongTo) {
  const Pair made = pair();
  const std::string off = save(made.off, "off.mtz");
  const std::string on = save(made.on, "on.mtz");
  const std::string out = scratch_.file("out.mtz");
  const ProgramResult r = fofo({on, off, "--phases", "PHI", "-o", out, "--json"});
  ASSERT_EQ(r.status, 0) << r.output << r.errors;
  const Json json = Json::parse(r.output);
  EXPECT_EQ(json["difference"], "on minus off");
  EXPECT_EQ(json["reflections"]["both"], made.f.size() - 1);
  EXPECT_EQ(json["reflections"]["only_off"], 1);
  EXPECT_NEAR(json["scale"]["k"].get<double>(), 1.0 / 1.5, 1e-3);
  const auto d = column_of(out, "DF");
  const auto sigma = column_of(out, "SIGDF");
  const auto w = column_of(out, "W");
  const auto f = column_of(out, "FOFOWT");
  const auto phi = column_of(out, "PHFOFOWT");
  const auto phase = column_of(out, "PHI");
  ASSERT_EQ(d.size(), made.f.size());
  ASSERT_EQ(phase.size(), made.f.size());
  for (std::size_t i = 0; i < d.size(); ++i) {
    const float expected = i == 5 ? 30.0F : i == 9 ? -20.0F : 0.0F;
    if (i == 11) {
      EXPECT_TRUE(std::isnan(d[i]) && std::isnan(w[i]) && std::isnan(f[i]));
      continue;
    }
    ASSERT_NEAR(d[i], expected, 0.1F) << i;
    ASSERT_NEAR(sigma[i], std::sqrt(8.0F), 0.01F);
    if (expected == 0.0F) continue;
    EXPECT_LT(w[i], w[1]);
    EXPECT_NEAR(f[i], w[i] * std::fabs(d[i]), 1e-3F);
    const double turned = std::remainder(phi[i] - phase[i] - (d[i] < 0.0F ? 180.0 : 0.0), 360.0);
    EXPECT_NEAR(turned, 0.0, 1e-2);
  }
  // The other way round every sign is the other.
  MtzMaker with_phases = made.on;
  with_phases.add("PHI", 'P', std::vector<float>(made.on.rows(), 40.0F));
  const std::string swapped = scratch_.file("swapped.mtz");
  ASSERT_EQ(fofo({off, save(with_phases, "with.mtz"), "--phases", "PHI", "-o", swapped}).status, 0);
  const auto back = column_of(swapped, "DF");
  EXPECT_NEAR(*std::min_element(back.begin(), back.end()), -45.0F, 0.2F);
  EXPECT_NEAR(*std::max_element(back.begin(), back.end()), 30.0F, 0.2F);
}

TEST_F(FofoCommand, itsSectionsRunByThemselves) {
  const Pair made = pair();
  const std::string off = save(made.off, "off.mtz");
  const std::string on = save(made.on, "on.mtz");
  const std::string map = scratch_.file("out.ccp4");
  const std::vector<std::string> words = {
      on, off, "--phases", "PHI", "--map", map, "-o", scratch_.file("out.mtz"), "--reject", "4"};
  ASSERT_EQ(fofo(words).status, 0);
  const std::string bytes = read_file(map);
  std::filesystem::remove(map);
  auto printing = words;
  printing.emplace_back("--print-sections");
  const ProgramResult sections = fofo(printing);
  ASSERT_EQ(sections.status, 0) << sections.errors;
  EXPECT_FALSE(std::filesystem::exists(map));
  ASSERT_EQ(run_program("quorix", {"run", "-"}, sections.output).status, 0);
  EXPECT_EQ(read_file(map), bytes);
  EXPECT_NE(bytes.find("Map type: Fo - Fo"), std::string::npos);
  // The labels are ones that a map is made of without being told.
  const std::string again = scratch_.file("again.ccp4");
  const ProgramResult r =
      run_program("quorix", {"map", scratch_.file("out.mtz"), again, "--difference"});
  EXPECT_EQ(r.status, 0) << r.output << r.errors;
}

// Value of a map of the whole cell at fractional coordinates, from the file's bytes.
float value_at(const std::string& path, const std::array<double, 3>& place) {
  const std::string bytes = read_file(path);
  const auto word = [&](std::size_t i) {
    std::int32_t value = 0;
    std::memcpy(&value, bytes.data() + 4 * i, 4);
    return value;
  };
  std::size_t index = 0;
  for (const std::size_t axis : {2U, 1U, 0U}) {
    const int n = word(axis);
    const int i = static_cast<int>(std::lround(place[axis] * n)) % n;
    index = index * static_cast<std::size_t>(n) + static_cast<std::size_t>((i + n) % n);
  }
  float value = 0.0F;
  std::memcpy(&value, bytes.data() + 1024 + word(23) + 4 * index, 4);
  return value;
}

TEST_F(FofoCommand, aWaterOfOneCrystalStandsInTheMap) {
  std::ifstream in(example("1ubq.pdb"));
  std::ofstream out(scratch_.file("dry.pdb"));
  std::vector<std::array<double, 3>> waters;
  for (std::string line; std::getline(in, line);) {
    const bool water = line.starts_with("HETATM") && line.substr(17, 3) == "HOH";
    if (water && waters.size() < 3) {
      waters.push_back({std::stod(line.substr(30, 8)) / 50.84,
                        std::stod(line.substr(38, 8)) / 42.77,
                        std::stod(line.substr(46, 8)) / 28.95});
      continue;
    }
    out << line << '\n';
  }
  out.close();
  ASSERT_EQ(waters.size(), 3U);
  const auto calculate = [&](const std::string& model, const char* name) {
    const std::string path = scratch_.file(name);
    EXPECT_EQ(run_program("quorix", {"fcalc", model, "--dmin", "2.2", "-o", path}).status, 0);
    return path;
  };
  const std::string on = calculate(example("1ubq.pdb"), "on.mtz");
  const std::string off = calculate(scratch_.file("dry.pdb"), "off.mtz");
  const std::string map = scratch_.file("map.ccp4");
  const ProgramResult r = fofo({on, off, "--model", scratch_.file("dry.pdb"), "--labels", "FC",
                                "--map", map, "--solvent", "none", "--json"});
  ASSERT_EQ(r.status, 0) << r.output << r.errors;
  const Json json = Json::parse(r.output);
  const double rms = json["map"]["rms"];
  for (const auto& place : waters) EXPECT_GT(value_at(map, place), 6.0 * rms);
  EXPECT_LT(json["r"].get<double>(), 0.1);
  EXPECT_NE(json["warnings"].dump().find("errors are not known"), std::string::npos);
}

// The crystal is the model's and ON fits it; OFF is another's.
TEST_F(FofoCommand, refusesAModelsCrystalForAnothersData) {
  const std::string other = save(pair().off, "other.mtz");
  const std::string out = scratch_.file("out.mtz");
  const ProgramResult r =
      fofo({example("1ubq.mtz"), other, "--model", example("1ubq.pdb"), "-o", out});
  EXPECT_EQ(r.status, 2) << r.output << r.errors;
  EXPECT_NE(r.errors.find("crystal form"), std::string::npos) << r.errors;
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(FofoCommand, refusesWhatIsNotAPair) {
  const Pair made = pair();
  const std::string off = save(made.off, "off.mtz");
  const std::string out = scratch_.file("out.mtz");
  const auto expect = [&](const std::string& on, int status, const std::string& text) {
    const ProgramResult r = fofo({on, off, "--phases", "PHI", "-o", out});
    EXPECT_EQ(r.status, status) << r.output << r.errors;
    EXPECT_NE((r.output + r.errors).find(text), std::string::npos) << r.output << r.errors;
    EXPECT_FALSE(std::filesystem::exists(out));
  };
  MtzMaker other = made.on;
  other.symmetry = "2 2 P 4 'P 1 21 1' PG2";
  other.operators = {"x,y,z", "-x,y+1/2,-z"};
  expect(save(other, "group.mtz"), 1, "of another space group: P 1 21 1");
  other = made.on;
  other.cell = "20 28 30 90 100 90";
  expect(save(other, "cell.mtz"), 1, "that of another crystal form");
  MtzMaker apart = monoclinic({{9, 1, 1}});
  apart.add("FP", 'F', {10.0F});
  expect(save(apart, "apart.mtz"), 1, "");
  other = made.on;
  other.columns[3].values.assign(other.rows(), NAN);
  expect(save(other, "empty.mtz"), 1, "have no observed reflection in common");
  other = made.on;
  std::reverse(other.columns[3].values.begin(), other.columns[3].values.end());
  const ProgramResult strange =
      fofo({save(other, "strange.mtz"), off, "--phases", "PHI", "-o", out, "--reject", "3"});
  EXPECT_EQ(strange.status, 0) << strange.output;
  // A slightly other cell, errors of 0, one pair: results.
  other = made.on;
  other.cell = "20.2 25.1 30.1 90 100.4 90";
  other.columns[4].values.assign(other.rows(), 0.0F);
  const ProgramResult slight =
      fofo({save(other, "slight.mtz"), off, "--phases", "PHI", "-o", scratch_.file("s.mtz")});
  EXPECT_EQ(slight.status, 0) << slight.output << slight.errors;
  EXPECT_NE(slight.errors.find("has the cell 20.2"), std::string::npos) << slight.errors;
  MtzMaker single = monoclinic({{1, 2, 3}});
  single.add("FP", 'F', {90.0F});
  const ProgramResult one =
      fofo({save(single, "one.mtz"), off, "--phases", "PHI", "-o", scratch_.file("one_out.mtz")});
  EXPECT_EQ(one.status, 0) << one.output << one.errors;
}

}  // namespace
}  // namespace qx::test
