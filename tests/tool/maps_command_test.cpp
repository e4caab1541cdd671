// quorix maps and quorix validate on the shipped example, as a user runs them.
#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"
#include "tool/fcalc_command.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace qx::test {
namespace {

std::string example(const char* name) {
  return (std::filesystem::path(QUORIX_SOURCE_DIR) / "examples" / name).string();
}

class MapsCommand : public ::testing::Test {
 protected:
  ProgramResult run(std::vector<std::string> words) { return run_program("quorix", words); }
  ScratchDirectory scratch_;
};

TEST_F(MapsCommand, writesCoefficientsMapsAndScripts) {
  const std::string out = scratch_.file("maps.mtz");
  const ProgramResult r =
      run({"maps", example("1ubq.pdb"), example("1ubq.mtz"), "-o", out, "--dmin", "2.2", "--maps",
           scratch_.file("ubq"), "--scripts", "--all"});
  ASSERT_EQ(r.status, 0) << r.output << r.errors;
  EXPECT_NE(r.output.find("Free set"), std::string::npos) << r.output;
  for (const char* name : {"ubq_2mFo-DFc.ccp4", "ubq_mFo-DFc.ccp4"}) {
    EXPECT_GT(read_file(scratch_.file(name)).size(), 100000U) << name;
  }
  const ProgramResult info = run({"info", out});
  for (const char* label : {"FP", "SIGFP", "FREE", "FC_ALL", "PHIC_ALL", "FWT", "PHWT", "DELFWT",
                            "PHDELWT", "FOM", "KTOT", "WT", "FSOLV", "PHISOLV"}) {
    EXPECT_NE(info.output.find(label), std::string::npos) << label << info.output;
  }
}

TEST_F(MapsCommand, validateTellsTheSameAsJson) {
  const ProgramResult r = run({"validate", example("1ubq.pdb"), example("1ubq.mtz"), "--dmin",
                               "2.5", "--json", "--solvent", "exp"});
  ASSERT_EQ(r.status, 0) << r.errors;
  const nlohmann::json json = nlohmann::json::parse(r.output);
  const double r_work = json["r"]["work"]["r"];
  EXPECT_GT(r_work, 0.0);
  EXPECT_LT(r_work, 0.3);
  EXPECT_EQ(json["scale"]["solvent"]["mode"], "exp");
  EXPECT_GT(json["r"]["bins"].size(), 5U);
  EXPECT_GT(json["fom"].get<double>(), 0.3);
  EXPECT_EQ(json["scale"]["b_cart"].size(), 6U);
  EXPECT_GT(json["r"]["bins"][0]["cc_work"].get<double>(), 0.8);
  // Ubiquitin's 76 residues and its waters; the first is well defined.
  ASSERT_EQ(json["density"]["residues"].size(), 134U);
  EXPECT_EQ(json["density"]["residues"][0]["residue"], "A/MET 1");
  EXPECT_EQ(json["density"]["residues"][0]["atoms"], 8);
  EXPECT_GT(json["density"]["residues"][0]["correlation"].get<double>(), 0.8);
  const ProgramResult text = run({"validate", example("1ubq.pdb"), example("1ubq.mtz"), "--dmin",
                                  "2.5", "--solvent", "exp", "--worst", "3"});
  const std::size_t table = text.output.find("residue              atoms");
  ASSERT_NE(table, std::string::npos) << text.output;
  EXPECT_EQ(std::count(text.output.begin() + static_cast<long>(table), text.output.end(), '\n'), 4);
}

TEST_F(MapsCommand, makesAmplitudesOfIntensities) {
  const std::string out = scratch_.file("maps.mtz");
  ASSERT_EQ(
      run({"fcalc", example("1ubq.pdb"), "--dmin", "3", "-o", scratch_.file("fc.mtz")}).status, 0);
  // Squares of the model's own amplitudes, as a data file holds intensities.
  MtzMaker maker(half_sphere(12, 12, 8));
  maker.cell = "50.84 42.77 28.95 90 90 90";
  std::vector<float> intensities(maker.rows(), 4000.0F);
  for (std::size_t i = 0; i < intensities.size(); ++i) {
    intensities[i] += 100.0F * static_cast<float>(i % 37);
  }
  maker.add("IMEAN", 'J', intensities);
  maker.add("SIGIMEAN", 'Q', std::vector<float>(maker.rows(), 50.0F));
  const std::string data = scratch_.file("intensities.mtz");
  write_file(data, maker.bytes());
  const ProgramResult r =
      run({"maps", example("1ubq.pdb"), data, "-o", out, "--spacegroup", "P 1"});
  ASSERT_EQ(r.status, 0) << r.output << r.errors;
  EXPECT_NE(r.output.find("Amplitudes from intensities"), std::string::npos) << r.output;
  EXPECT_NE(run({"info", out}).output.find("SIGFP"), std::string::npos);
}

// Rows that the file lacks are DFc in FWT and nothing elsewhere; --fill no leaves out these and
// what was not observed. The pairs of Friedel mates give their differences, turned by -90 degrees.
TEST_F(MapsCommand, fillsWhatIsMissingAndTurnsAnomalousDifferences) {
  const Columns in = read_columns(example("1ubq.mtz"));
  std::vector<std::vector<int>> indices;
  std::vector<float> f, sigma, flags, plus, minus;
  for (std::size_t i = 0; i < in.at("H").size(); ++i) {
    if (i % 3 == 0) continue;
    const auto index = [&](const char* label) { return static_cast<int>(in.at(label)[i]); };
    indices.push_back({index("H"), index("K"), index("L")});
    f.push_back(in.at("FP")[i]);
    sigma.push_back(in.at("SIGFP")[i]);
    flags.push_back(in.at("FREE")[i]);
    plus.push_back(f.back() + static_cast<float>(i % 7) - 3.0F);
    minus.push_back(f.back());
  }
  MtzMaker maker(indices);
  maker.cell = "50.84 42.77 28.95 90 90 90";
  maker.symmetry = "4 4 P 19 'P 21 21 21' PG222";
  maker.operators = {"x,y,z", "-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2", "x+1/2,-y+1/2,-z"};
  maker.add("FP", 'F', f).add("SIGFP", 'Q', sigma).add("FREE", 'I', flags);
  maker.add("F(+)", 'G', plus).add("F(-)", 'G', minus);
  const std::string data = scratch_.file("in.mtz");
  write_file(data, maker.bytes());
  const std::string out = scratch_.file("out.mtz");
  const ProgramResult r = run({"maps", example("1ubq.pdb"), data, "-o", out, "--solvent", "exp"});
  ASSERT_EQ(r.status, 0) << r.output << r.errors;
  EXPECT_NE(r.errors.find("unique reflections between the data's limits were observed (6"),
            std::string::npos)
      << r.errors;
  const Columns filled = read_columns(out);
  const std::size_t rows = f.size();
  ASSERT_GT(filled.at("H").size(), rows + rows / 3);
  EXPECT_NE(r.output.find(std::to_string(filled.at("H").size() - rows) + " added to the file's"),
            std::string::npos)
      << r.output;
  std::size_t turned = 0;
  for (std::size_t i = 0; i < filled.at("H").size(); ++i) {
    const bool observed = i < rows && f[i] > 0.0F;
    EXPECT_GT(filled.at("FWT")[i], 0.0F);
    ASSERT_EQ(std::isnan(filled.at("FWT_nofill")[i]), !observed) << i;
    if (!observed) {
      EXPECT_EQ(filled.at("DELFWT")[i], 0.0F);
      EXPECT_TRUE(std::isnan(filled.at("FAN")[i]));
      continue;
    }
    EXPECT_EQ(filled.at("FWT_nofill")[i], filled.at("FWT")[i]);
    if (!(filled.at("FAN")[i] > 0.0F)) continue;
    ++turned;
    const float difference = plus[i] - minus[i];
    EXPECT_NEAR(filled.at("FAN")[i], filled.at("FOM")[i] * std::fabs(difference), 1e-3);
    const double turn =
        static_cast<double>(filled.at("PHAN")[i] - filled.at("PHIC_ALL")[i]) + 450.0;
    EXPECT_NEAR(std::remainder(turn - (difference < 0.0F ? 180.0 : 0.0), 360.0), 0.0, 0.01) << i;
  }
  EXPECT_GT(turned, rows / 2);
  ASSERT_EQ(run({"maps", example("1ubq.pdb"), data, "-o", out, "--solvent", "exp", "--fill", "no"})
                .status,
            0);
  const Columns bare = read_columns(out);
  EXPECT_EQ(bare.count("FWT_nofill"), 0U);
  ASSERT_EQ(bare.at("FWT").size(), rows);
  for (std::size_t i = 0; i < rows; ++i) {
    if (f[i] > 0.0F) {
      EXPECT_EQ(bare.at("FWT")[i], filled.at("FWT")[i]) << i;
    } else {
      EXPECT_TRUE(std::isnan(bare.at("FWT")[i]));
    }
  }
}

TEST_F(MapsCommand, printsTheSectionsThatItRuns) {
  const std::string out = scratch_.file("maps.mtz");
  const ProgramResult r = run({"maps", example("1ubq.pdb"), example("1ubq.mtz"), "-o", out,
                               "--print-sections", "--solvent", "smooth"});
  ASSERT_EQ(r.status, 0) << r.errors;
  EXPECT_FALSE(std::filesystem::exists(out));
  std::size_t at = 0;
  for (const char* text :
       {"xcry\n", "  fill\n", "xmod\n  # the 660 atoms", "xcross\n", "xfcc\n  calc", "xbulk\n",
        "param solvent smooth", "xmlf\n", "FWT_nofill PHWT_nofill\nxend\n"}) {
    at = r.output.find(text, at);
    ASSERT_NE(at, std::string::npos) << text << r.output;
  }
}

TEST_F(MapsCommand, refusesWhatItCannotUse) {
  const std::string out = scratch_.file("maps.mtz");
  const auto expect = [&](std::vector<std::string> words, const std::string& text) {
    const ProgramResult r = run(words);
    EXPECT_EQ(r.status, 2) << r.output << r.errors;
    EXPECT_NE(r.errors.find(text), std::string::npos) << r.errors;
    EXPECT_FALSE(std::filesystem::exists(out));
  };
  MtzMaker maker(half_sphere(3, 3, 3));
  maker.cell = "50.84 42.77 28.95 90 90 90";
  maker.add("FWT", 'F', std::vector<float>(maker.rows(), 1.0F));
  const std::string data = scratch_.file("none.mtz");
  write_file(data, maker.bytes());
  expect({"maps", example("1ubq.pdb"), data, "-o", out}, "has neither amplitudes nor intensities");
  expect({"maps", example("1ubq.pdb"), example("1ubq.mtz"), "-o", out, "--kick", "3"},
         "--kick is for CCP4 maps");
  expect({"maps", example("1ubq.pdb"), example("1ubq.mtz"), "-o", out, "--labels", "NO"},
         "has no column NO");
}

}  // namespace
}  // namespace qx::test
