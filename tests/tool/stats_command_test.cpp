// quorix stats on made data, whose counts, statistics and columns are known.
#include "support/engine.h"
#include "support/mtz_columns.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

namespace qx::test {
namespace {

using Json = nlohmann::json;

constexpr float nan_value = NAN;

class StatsCommand : public ::testing::Test {
 protected:
  // A P 1 cell of 10 x 20 x 30 A.
  static double s2_of(const std::vector<int>& hkl) {
    return hkl[0] * hkl[0] / 100.0 + hkl[1] * hkl[1] / 400.0 + hkl[2] * hkl[2] / 900.0;
  }
  // Wilson's intensities, or the sums of two of them, with sigma 1.
  static MtzMaker intensities(bool twinned, double b22 = 0.0) {
    const auto indices = half_sphere(8, 16, 24);
    MtzMaker maker(indices);
    std::mt19937 random(11);
    std::exponential_distribution<double> wilson(1.0);
    std::vector<float> values;
    for (const auto& hkl : indices) {
      const double z = twinned ? 0.5 * (wilson(random) + wilson(random)) : wilson(random);
      const double along = hkl[1] * hkl[1] / 400.0;
      values.push_back(static_cast<float>(1000.0 * z * std::exp(-0.5 * b22 * along)));
    }
    maker.add("IMEAN", 'J', values);
    maker.add("SIGIMEAN", 'Q', std::vector<float>(indices.size(), 1.0F));
    return maker;
  }
  std::string save(const MtzMaker& maker, const std::string& name = "data.mtz") {
    write_file(scratch_.file(name), maker.bytes());
    return scratch_.file(name);
  }
  static ProgramResult stats(std::vector<std::string> words) {
    words.insert(words.begin(), "stats");
    return run_program("quorix", words);
  }
  static Json json_of(std::vector<std::string> words) {
    words.emplace_back("--json");
    const ProgramResult r = stats(words);
    EXPECT_EQ(r.status, 0) << r.output << r.errors;
    return r.status == 0 ? Json::parse(r.output) : Json();
  }

  ScratchDirectory scratch_;
};

TEST_F(StatsCommand, countsWhatIsThereAndWhatIsNot) {
  auto indices = half_sphere(3, 6, 9);
  constexpr double dmin = 3.4;  // the whole sphere lies within the indices
  std::size_t possible = 0;
  for (const auto& hkl : indices) possible += s2_of(hkl) <= 1.0 / (dmin * dmin) ? 1 : 0;
  // The last row of the sphere goes, the first comes again as its Friedel opposite.
  const auto inside = [&](const auto& hkl) { return s2_of(hkl) <= 1.0 / (dmin * dmin); };
  const auto gone = std::find_if(indices.rbegin(), indices.rend(), inside);
  indices.erase(std::next(gone).base());
  const auto first = std::find_if(indices.begin(), indices.end(), inside) - indices.begin();
  const std::vector<int> mate = indices[static_cast<std::size_t>(first)];
  indices.push_back({-mate[0], -mate[1], -mate[2]});
  MtzMaker maker(indices);
  std::vector<float> f(indices.size(), 20.0F);
  std::vector<float> sigma(indices.size(), 2.0F);
  const auto second =
      std::find_if(indices.begin() + first + 1, indices.end(), inside) - indices.begin();
  f[static_cast<std::size_t>(second)] = nan_value;
  const auto third =
      std::find_if(indices.begin() + second + 1, indices.end(), inside) - indices.begin();
  sigma[static_cast<std::size_t>(third)] = 0.0F;
  maker.add("FP", 'F', f).add("SIGFP", 'Q', sigma);
  const Json json = json_of({save(maker), "--dmin", "3.4", "--shells", "4"});
  ASSERT_FALSE(json.is_null());
  EXPECT_EQ(json["reflections"]["rows"], possible);
  EXPECT_EQ(json["reflections"]["missing"], 1);
  EXPECT_EQ(json["reflections"]["without_error"], 1);
  EXPECT_EQ(json["reflections"]["repeated"], 1);
  EXPECT_EQ(json["overall"]["possible"], possible);
  EXPECT_EQ(json["overall"]["measured"], possible - 2);
  EXPECT_NEAR(json["overall"]["mean_over_sigma"].get<double>(), 10.0, 1e-6);
  std::size_t sum = 0;
  for (const Json& shell : json["shells"]) sum += shell["possible"].get<std::size_t>();
  EXPECT_EQ(sum, possible);
  EXPECT_EQ(json["warnings"].size(), 1U) << json["warnings"];
}

TEST_F(StatsCommand, knowsWilsonsIntensitiesFromThoseOfATwin) {
  const std::string single = save(intensities(false), "single.mtz");
  const std::string twin = save(intensities(true), "twin.mtz");
  const Json one = json_of({single});
  EXPECT_NEAR(one["l_test"]["mean_l"].get<double>(), 0.5, 0.01);
  EXPECT_LT(one["anisotropy"]["spread"].get<double>(), 1.5);
  const Json falling = json_of({save(intensities(false, 30.0), "falling.mtz")});
  // B11 and B33 rise by what the curve of resolution takes of B22.
  const auto b = falling["anisotropy"]["b_cart"].get<std::vector<double>>();
  EXPECT_NEAR(b[1] - 0.5 * (b[0] + b[2]), 30.0, 2.0);
  EXPECT_NEAR(falling["anisotropy"]["spread"].get<double>(), 30.0, 3.0);
  const Json two = json_of({twin});
  EXPECT_NEAR(two["l_test"]["mean_l"].get<double>(), 0.375, 0.01);
  EXPECT_NEAR(two["moments"]["acentric"]["z2"].get<double>(), 1.5, 0.05);
  EXPECT_EQ(stats({single}).output.find("WARNING"), std::string::npos);
  EXPECT_NE(stats({twin}).output.find("twinned, or weak intensities overestimated"),
            std::string::npos);
}

TEST_F(StatsCommand, amplitudesStandBesideAllOtherColumns) {
  MtzMaker maker = intensities(false);
  const std::size_t n = maker.rows();
  std::vector<float> number;
  std::vector<float> flags;
  for (std::size_t i = 0; i < n; ++i) {
    number.push_back(static_cast<float>(i));
    flags.push_back(static_cast<float>(i % 20));
  }
  maker.columns[3].values[7] = nan_value;  // no intensity
  maker.columns[4].values[11] = 0.0F;      // no error
  maker.add("NUMBER", 'R', number).add("FREE", 'I', flags).add("F", 'F', number);
  const std::string data = save(maker);
  const std::string out = scratch_.file("f.mtz");
  const ProgramResult r = stats({data, "--amplitudes", out, "--dmax", "8"});
  ASSERT_EQ(r.status, 0) << r.output << r.errors;
  EXPECT_NE(r.errors.find("F of " + data + " is replaced"), std::string::npos) << r.errors;
  const auto f = column_of(out, "F");
  const auto sigma = column_of(out, "SIGF");
  const auto kept = column_of(out, "NUMBER");
  const auto free = column_of(out, "FREE");
  const auto sigi = column_of(out, "SIGIMEAN");
  ASSERT_EQ(kept.size(), f.size());
  ASSERT_EQ(free.size(), f.size());
  ASSERT_EQ(sigi.size(), f.size());
  ASSERT_GT(f.size(), n / 2);
  ASSERT_LT(f.size(), n);
  for (std::size_t i = 0; i < f.size(); ++i) {
    const auto row = static_cast<std::size_t>(kept[i]);
    ASSERT_EQ(free[i], flags[row]);
    const float intensity = maker.columns[3].values[row];
    if (row == 7 || row == 11) {
      EXPECT_TRUE(std::isnan(f[i]) && std::isnan(sigma[i]));
    } else if (intensity > 50.0F) {
      ASSERT_NEAR(f[i], std::sqrt(intensity), 1e-3F * f[i]);
      ASSERT_NEAR(sigma[i], 0.5F / f[i], 2e-2F * sigma[i]);
    } else {
      ASSERT_GT(f[i], 0.0F);
    }
  }
}

TEST_F(StatsCommand, itsSectionsRunByThemselves) {
  const std::string data = save(intensities(false));
  const std::string plot = scratch_.file("wilson.svg");
  const ProgramResult r = stats({data, "--plot", plot});
  ASSERT_EQ(r.status, 0) << r.errors;
  const std::string svg = read_file(plot);
  EXPECT_EQ(svg.compare(0, 4, "<svg"), 0);
  EXPECT_EQ(svg.find("nan"), std::string::npos);
  const ProgramResult sections = stats({data, "--print-sections"});
  ASSERT_EQ(sections.status, 0) << sections.errors;
  const ProgramResult again = run_program("quorix", {"run", "-"}, sections.output);
  ASSERT_EQ(again.status, 0) << again.output << again.errors;
  for (const char* what : {"Wilson plot  ", "Acentric moments", "L test", "Anisotropy"}) {
    const std::size_t at = r.output.find(what);
    ASSERT_NE(at, std::string::npos) << what;
    const std::string line = r.output.substr(at, r.output.find('\n', at) - at);
    EXPECT_NE(again.output.find(line), std::string::npos) << line;
  }
}

TEST_F(StatsCommand, odd) {
  const auto indices = half_sphere(4, 6, 8);
  const auto with = [&](const std::vector<std::vector<int>>& hkl, float f, float sigma) {
    MtzMaker maker(hkl);
    maker.add("I", 'J', std::vector<float>(hkl.size(), f));
    maker.add("SIGI", 'Q', std::vector<float>(hkl.size(), sigma));
    return save(maker);
  };
  const auto expect_result = [&](const std::string& data) {
    const ProgramResult r = stats({data, "--json"});
    ASSERT_EQ(r.status, 0) << r.output << r.errors;
    EXPECT_EQ(r.output.find("nan"), std::string::npos) << r.output;
  };
  const auto expect_refusal = [&](const std::vector<std::string>& words, int status,
                                  const std::string& text) {
    const ProgramResult r = stats(words);
    EXPECT_EQ(r.status, status) << r.output << r.errors;
    EXPECT_NE((r.output + r.errors).find(text), std::string::npos) << r.output << r.errors;
    EXPECT_FALSE(std::filesystem::exists(scratch_.file("out.mtz")));
  };
  const std::string out = scratch_.file("out.mtz");
  expect_result(with({{1, 2, 3}}, 5.0F, 1.0F));
  expect_result(with(indices, 5.0F, 0.0F));
  expect_refusal({with(indices, 0.0F, 0.0F), "--amplitudes", out}, 1, "");
  expect_refusal({with(indices, nan_value, 1.0F)}, 2, "none of the reflections was measured");
  MtzMaker amplitudes(indices);
  amplitudes.add("FP", 'F', std::vector<float>(indices.size(), 1.0F));
  expect_refusal({save(amplitudes), "--amplitudes", out}, 2, "are made of intensities");
  MtzMaker unmerged(indices);
  unmerged.add("I", 'J', std::vector<float>(indices.size(), 1.0F));
  unmerged.batches.push_back({1, "one", {}, {}});
  expect_refusal({save(unmerged)}, 2, "merge them first");
  expect_refusal({save(intensities(false)), "--spacegroup", "P 99"}, 2, "unknown space group");
}

}  // namespace
}  // namespace qx::test
