// quorix fcalc and the observations: which reflections are free, in which files they come.
#include "driver/commands/coordinates.h"
#include "driver/commands/group_name.h"
#include "support/mtz_maker.h"
#include "tool/fcalc_command.h"

#include <algorithm>
#include <cmath>
#include <gemmi/reciproc.hpp>
#include <gemmi/symmetry.hpp>
#include <nlohmann/json.hpp>

namespace qx::test {
namespace {

// The reflections of the example with flags of another convention.
class FcalcData : public ::testing::Test {
 protected:
  std::string with_flags(const std::string& label, const std::vector<float>& flags) const {
    std::vector<std::vector<int>> indices;
    for (std::size_t i = 0; i < in_.at("H").size(); ++i) {
      indices.push_back({static_cast<int>(in_.at("H")[i]), static_cast<int>(in_.at("K")[i]),
                         static_cast<int>(in_.at("L")[i])});
    }
    MtzMaker maker(indices);
    maker.cell = "50.84 42.77 28.95 90 90 90";
    maker.symmetry = "4 4 P 19 'P 21 21 21' PG222";
    maker.operators = {"x,y,z", "-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2", "x+1/2,-y+1/2,-z"};
    maker.add("FP", 'F', in_.at("FP")).add("SIGFP", 'Q', in_.at("SIGFP")).add(label, 'I', flags);
    write_file(scratch_.file("in.mtz"), maker.bytes());
    return scratch_.file("in.mtz");
  }
  std::vector<float> changed(const std::function<float(std::size_t, bool)>& flag) const {
    std::vector<float> flags;
    for (std::size_t i = 0; i < in_.at("FREE").size(); ++i) {
      flags.push_back(flag(i, in_.at("FREE")[i] == 0.0F));
    }
    return flags;
  }
  ProgramResult run(Arguments arguments) const {
    arguments.insert(arguments.begin(), {model, "-o", scratch_.file("out.mtz")});
    return fcalc(arguments);
  }
  // "Working set ..." and the lines behind it.
  static std::string agreement(const ProgramResult& result) {
    const std::size_t at = result.output.find("Overall");
    const std::size_t end = result.output.rfind("\n/");  // the name of the output
    return at == std::string::npos ? result.errors : result.output.substr(at, end - at);
  }

  ScratchDirectory scratch_;
  Columns in_ = read_columns(data);
};

TEST_F(FcalcData, takesTheFreeSetOfEveryConvention) {
  const std::string expected = agreement(run({"--hkl", data}));
  EXPECT_NE(expected.find("(298 reflections)"), std::string::npos) << expected;
  struct Convention {
    const char* label;
    std::vector<float> flags;
    const char* line;
  };
  const Convention conventions[] = {
      {"R-free-flags", changed([](std::size_t, bool free) { return free ? 1.0F : 0.0F; }),
       "R-free-flags = 1, 305 of 6224 reflections (4.9 %)"},
      {"FreeR_flag", changed([](std::size_t, bool free) { return free ? 1.0F : 0.0F; }),
       "FreeR_flag = 1, 305 of"},
      {"FREER", changed([](std::size_t, bool free) { return free ? -1.0F : 1.0F; }),
       "FREER = -1, 305 of"},
      {"FreeR_flag", changed([](std::size_t i, bool free) {
         return free ? 0.0F : 1.0F + static_cast<float>(i % 19);
       }),
       "FreeR_flag = 0, 305 of"}};
  for (const Convention& row : conventions) {
    const ProgramResult result = run({"--hkl", with_flags(row.label, row.flags)});
    EXPECT_NE(result.output.find(row.line), std::string::npos) << result.output << result.errors;
    EXPECT_EQ(agreement(result), expected) << row.line;
    if (row.label == std::string("FREER")) continue;  // a -1 is a missing flag to the data set
    EXPECT_EQ(read_columns(scratch_.file("out.mtz")).at(row.label), row.flags);
  }
}

TEST_F(FcalcData, takesTheFreeSetThatIsAskedFor) {
  const std::string file =
      with_flags("FREE", changed([](std::size_t i, bool) { return static_cast<float>(i % 4); }));
  const ProgramResult third = run({"--hkl", file, "--free-value", "3"});
  EXPECT_NE(third.output.find("FREE = 3, 1556 of 6224"), std::string::npos) << third.output;
  const ProgramResult ninth = run({"--hkl", file, "--free-value", "9"});
  EXPECT_EQ(ninth.status, 2);
  EXPECT_NE(ninth.errors.find("column FREE holds 0 (1556), 1 (1556), 2 (1556), 3 (1556)"),
            std::string::npos)
      << ninth.errors;
}

TEST_F(FcalcData, saysThatThereIsNoFreeSet) {
  const std::string file = with_flags("FREE", std::vector<float>(in_.at("FREE").size(), 1.0F));
  const ProgramResult result = run({"--hkl", file});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.errors.find("column FREE holds only 1: all reflections count as working"),
            std::string::npos)
      << result.errors;
  EXPECT_NE(result.output.find("All reflections"), std::string::npos) << result.output;
}

TEST_F(FcalcData, passesOnAmplitudesThatTellNothing) {
  for (const float value : {0.0F, -1.0F, NAN}) {
    in_["FP"].assign(in_.at("FP").size(), value);
    const std::string file = with_flags("FREE", in_.at("FREE"));
    const ProgramResult result = run({"--hkl", file});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("FP holds no amplitude above 0"), std::string::npos)
        << result.errors;
    EXPECT_EQ(read_columns(scratch_.file("out.mtz")).count("FC_ALL"), 0U);
    const ProgramResult maps = run({"--hkl", file, "--map-fofc", scratch_.file("m.ccp4")});
    EXPECT_EQ(maps.status, 2) << maps.output;
  }
}

// The same reflections in other formats, between limits.
TEST_F(FcalcData, readsReflectionsAsMapsDo) {
  const Columns plain = calculated({model, "--hkl", data, "--dmin", "2.5", "--dmax", "8"});
  const std::string packed = scratch_.file("in.mtz.gz");
  ASSERT_EQ(std::system(("gzip -c '" + data + "' >'" + packed + "'").c_str()), 0);
  const Columns unpacked = calculated({model, "--hkl", packed, "--dmin", "2.5", "--dmax", "8"});
  for (const char* label : {"H", "K", "L", "FC", "PHIC", "FREE"}) {
    EXPECT_EQ(unpacked.at(label), plain.at(label)) << label;
  }
  std::size_t within = 0;
  for (std::size_t i = 0; i < in_.at("H").size(); ++i) {
    const double s =
        std::hypot(in_.at("H")[i] / 50.84, in_.at("K")[i] / 42.77, in_.at("L")[i] / 28.95);
    if (s >= 1 / 8.0 && s <= 1 / 2.5) ++within;
  }
  EXPECT_EQ(plain.at("FC").size(), within);
  if (find_program("gemmi").empty()) GTEST_SKIP() << "gemmi is not installed";
  const std::string cif = scratch_.file("in.cif");
  ASSERT_EQ(std::system(("gemmi mtz2cif '" + data + "' '" + cif + "' >/dev/null 2>&1").c_str()), 0);
  const ProgramResult result = run({"--hkl", cif});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_NE(agreement(result).find("(298 reflections)"), std::string::npos) << result.output;
}

TEST_F(FcalcData, uniqueSetBetweenLimits) {
  const Columns all = calculated({model, "--dmin", "3"});
  const Columns outer = calculated({model, "--dmin", "3", "--dmax", "6"});
  const Columns inner = calculated({model, "--dmin", "6"});
  EXPECT_NEAR(static_cast<double>(outer.at("H").size() + inner.at("H").size()),
              static_cast<double>(all.at("H").size()), 2.0);
  const ProgramResult none = fcalc({model, "--dmin", "3", "--dmax", "2", "-o", "x.mtz"});
  EXPECT_EQ(none.status, 2);
  EXPECT_NE(none.errors.find("no reflection lies between --dmin 3 and --dmax 2 A"),
            std::string::npos);
}

TEST_F(FcalcData, tellsWhatItFoundAsJsonOrNothing) {
  const ProgramResult quiet = run({"--hkl", data, "-q"});
  EXPECT_EQ(quiet.output + quiet.errors, "");
  const ProgramResult lines = run({"--hkl", data});
  const ProgramResult result = run({"--hkl", data, "--cell", "52", "42.77", "28.95", "90", "90",
                                    "90", "--map-fofc", scratch_.file("d.ccp4"), "--json"});
  EXPECT_EQ(result.errors, "");
  const auto json = nlohmann::json::parse(result.output);
  EXPECT_EQ(json["atoms"], 660);
  EXPECT_EQ(json["labels"]["free_reflections"], 305);
  EXPECT_EQ(json["maps"].size(), 1U);
  ASSERT_EQ(json["warnings"].size(), 1U);
  EXPECT_NE(json["warnings"][0].get<std::string>().find("the model's is used"), std::string::npos);
  const double d = json["resolution"][0];
  EXPECT_NEAR(json["b0"].get<double>(), 6 * d * d, 1e-3);
  // The numbers of the lines, of the same crystal.
  const auto same = nlohmann::json::parse(run({"--hkl", data, "--json"}).output)["scaling"];
  char text[200];
  std::snprintf(text, sizeof text,
                "Free set                    : R = %7.4f  correlation = %7.4f  (%d",
                same["free"]["r"].get<double>(), same["free"]["correlation"].get<double>(),
                same["free"]["reflections"].get<int>());
  EXPECT_NE(lines.output.find(text), std::string::npos) << text;
  ASSERT_EQ(same["bins"].size(), 10U);
  std::snprintf(text, sizeof text, "  %6.3f  %6.3f  %6.3f  %6.3f\n",
                same["bins"][4]["free"]["r"].get<double>(),
                same["bins"][4]["work"]["r"].get<double>(),
                same["bins"][4]["free"]["correlation"].get<double>(),
                same["bins"][4]["work"]["correlation"].get<double>());
  EXPECT_NE(lines.output.find(text), std::string::npos) << text;
}

TEST_F(FcalcData, anEngineFailureLeavesStandardOutputToJson) {
  const std::string heavy = scratch_.file("es.pdb");
  write_file(heavy, "CRYST1   20.000   20.000   30.000  90.00  90.00 120.00 P 31 2 1      6\n" +
                        atom_record("Es", 7, {1.0, 2.0, 3.0}));
  const ProgramResult result =
      fcalc({heavy, "--dmin", "3", "--json", "-o", scratch_.file("out.mtz")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_NE(result.errors.find("atom type \"Es\". Atom A/LIG 7/Es (serial 7) has no form factor."),
            std::string::npos)
      << result.errors;
}

TEST_F(FcalcData, aReflectionCostsSeventyBytesBesideTheDensity) {
  const auto without_density = [&](const char* dmin) {
    const auto json = nlohmann::json::parse(
        fcalc({model, "--dmin", dmin, "--memory", "1", "--json", "-o", scratch_.file("o.mtz")})
            .output);
    return std::pair(
        json["reflections"].get<double>(),
        1e6 * (json["engine_megabytes"].get<double>() - json["box_megabytes"].get<double>()));
  };
  const auto [few, small] = without_density("1.1");
  const auto [many, large] = without_density("0.7");
  ASSERT_GT(many, 3.0 * few);
  EXPECT_LT((large - small) / (many - few), 70.0);
}

TEST(UniqueIndices, areThoseOfGemmiInEverySetting) {
  for (const gemmi::SpaceGroup& group : gemmi::spacegroup_tables::main) {
    Crystal crystal;
    crystal.space_group = group.xhm();
    if (find_space_group(crystal.space_group) != &group) continue;
    const gemmi::UnitCell cell(13, 11, 17, 90, 90, 90);  // of whatever symmetry
    std::copy_n(std::array{13, 11, 17, 90, 90, 90}.begin(), 6, crystal.cell);
    std::vector<std::int32_t> want;
    for (const gemmi::Miller& hkl : gemmi::make_miller_vector(cell, &group, 2.9, 9.0)) {
      want.insert(want.end(), hkl.begin(), hkl.end());
    }
    ASSERT_EQ(unique_indices(crystal, 2.9, 9.0), want) << group.xhm();
  }
}

}  // namespace
}  // namespace qx::test
