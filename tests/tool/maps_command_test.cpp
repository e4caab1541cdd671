// quorix maps and quorix validate on the shipped example, as a user runs them.
#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"

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

TEST_F(MapsCommand, refusesWhatItCannotUse) {
  const std::string out = scratch_.file("maps.mtz");
  const auto expect = [&](std::vector<std::string> words, const std::string& text) {
    const ProgramResult r = run(words);
    EXPECT_EQ(r.status, 2) << r.output << r.errors;
    EXPECT_NE(r.errors.find(text), std::string::npos) << r.errors;
    EXPECT_FALSE(std::filesystem::exists(out));
  };
  MtzMaker maker(half_sphere(3, 3, 3));
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
