// quorix fcalc as a user meets it: inputs, options, what it writes, what it says when it cannot.
#include "tool/fcalc_command.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace qx::test {
namespace {

TEST(Fcalc, keepsTheIndicesAndTheirOrderAndPassesTheObservationsOn) {
  const Columns in = read_columns(data);
  const Columns out = calculated({model, "--hkl", data});
  ASSERT_EQ(out.size(), 10U);
  for (const char* label : {"H", "K", "L", "FP", "SIGFP", "FREE"}) {
    ASSERT_EQ(in.at(label).size(), out.at(label).size());
    for (std::size_t i = 0; i < in.at(label).size(); ++i) {
      const float a = in.at(label)[i];
      const float b = out.at(label)[i];
      // a missing amplitude stays missing; its standard deviation becomes 0
      ASSERT_TRUE(a == b || (std::isnan(a) && (std::isnan(b) || label == std::string("SIGFP"))))
          << label << " " << i;
    }
  }
  EXPECT_EQ(calculated({model, "--hkl", data, "--labels", "FC"}).count("FREE"), 0U);
}

TEST(Fcalc, reportsTheAgreementAndScalesWhenAsked) {
  const ScratchDirectory scratch;
  const ProgramResult result =
      fcalc({model, "--hkl", data, "--scale", "--solvent", "none", "-o", scratch.file("a.mtz")});
  ASSERT_EQ(result.status, 0) << result.errors;
  for (const char* text :
       {"Overall scale of Fc         : k = ", "Working set                 : R = ",
        "Free set                    : R = ", "   10          622 ", "a.mtz written\n"}) {
    EXPECT_NE(result.output.find(text), std::string::npos) << result.output;
  }
  EXPECT_EQ(result.errors, "");
  const Columns scaled = read_columns(scratch.file("a.mtz"));
  // what was not measured takes no part
  int work = 0;
  int free = 0;
  std::sscanf(std::strchr(result.output.c_str() + result.output.find("Working"), '('), "(%d",
              &work);
  std::sscanf(std::strchr(result.output.c_str() + result.output.find("Free set"), '('), "(%d",
              &free);
  const Columns absolute = calculated({model, "--hkl", data});
  const auto& fp = absolute.at("FP");
  EXPECT_EQ(work + free,
            std::count_if(fp.begin(), fp.end(), [](float f) { return !std::isnan(f); }));
  double k = 0.0;
  double b = 0.0;
  ASSERT_EQ(
      std::sscanf(result.output.c_str() + result.output.find("k = "), "k = %lf B = %lf", &k, &b),
      2);
  for (std::size_t i = 0; i < 6224; i += 97) {
    const double h = scaled.at("H")[i] / 50.84;
    const double kk = scaled.at("K")[i] / 42.77;
    const double l = scaled.at("L")[i] / 28.95;
    const double factor = k * std::exp(-b * (h * h + kk * kk + l * l) / 4);
    EXPECT_NEAR(scaled.at("FC")[i], factor * absolute.at("FC")[i],
                1e-4 * absolute.at("FC")[i] + 1e-3);
    EXPECT_EQ(scaled.at("PHIC")[i], absolute.at("PHIC")[i]);
  }
}

// R as its definition reads, of the reflections whose flag is free, or is not.
double r_of(const Columns& columns, const char* label, bool free) {
  double over = 0.0;
  double under = 0.0;
  for (std::size_t i = 0; i < columns.at("FP").size(); ++i) {
    const auto fo = static_cast<double>(columns.at("FP")[i]);
    if (!(fo > 0.0) || (columns.at("FREE")[i] == 0.0F) != free) continue;
    over += std::fabs(fo - static_cast<double>(columns.at(label)[i]));
    under += fo;
  }
  return over / under;
}

TEST(Fcalc, scalesTheModelWithItsSolventBesideTheAtomsAlone) {
  const ScratchDirectory scratch;
  const std::string out = scratch.file("a.mtz");
  const ProgramResult result = fcalc({model, "--hkl", data, "--solvent", "exp", "-o", out});
  ASSERT_EQ(result.status, 0) << result.errors;
  const Columns columns = read_columns(out);
  const Columns alone = calculated({model, "--hkl", data, "--solvent", "none"});
  EXPECT_EQ(alone.size(), 8U);
  for (const char* label : {"FC", "PHIC"}) EXPECT_EQ(columns.at(label), alone.at(label)) << label;
  char text[80];
  std::snprintf(text, sizeof text, "Working set                 : R = %7.4f",
                r_of(columns, "FC_ALL", false));
  EXPECT_NE(result.output.find(text), std::string::npos) << text << result.output;
  std::snprintf(text, sizeof text, "Free set                    : R = %7.4f",
                r_of(columns, "FC_ALL", true));
  EXPECT_NE(result.output.find(text), std::string::npos) << text << result.output;
  EXPECT_NE(result.output.find("Bulk solvent (exp)"), std::string::npos) << result.output;
  // On the scale of the observations both columns differ by the solvent alone, at low resolution.
  const Columns scaled = calculated({model, "--hkl", data, "--solvent", "exp", "--scale"});
  for (std::size_t i = 0; i < scaled.at("FC").size(); i += 53) {
    const double s2 = std::pow(scaled.at("H")[i] / 50.84, 2) +
                      std::pow(scaled.at("K")[i] / 42.77, 2) +
                      std::pow(scaled.at("L")[i] / 28.95, 2);
    if (s2 < 1 / 9.0) continue;
    EXPECT_NEAR(scaled.at("FC")[i], scaled.at("FC_ALL")[i], 1e-4 * scaled.at("FC")[i]) << i;
  }
}

TEST(Fcalc, countsTheRowsThatItLeavesOut) {
  const ScratchDirectory scratch;
  const auto said = [&](const Arguments& more) {
    Arguments all = {model, "--hkl", data, "-o", scratch.file("out.mtz")};
    all.insert(all.end(), more.begin(), more.end());
    return fcalc(all).output;
  };
  EXPECT_EQ(said({}).find("not written"), std::string::npos);
  const std::string cut = said({"--dmin", "3"});
  const auto rows =
      read_columns(data).at("H").size() - read_columns(scratch.file("out.mtz")).at("H").size();
  EXPECT_NE(cut.find("\nReflections of the input not written: " + std::to_string(rows) + " ("),
            std::string::npos)
      << cut;
}

TEST(Fcalc, makesTheUniqueSet) {
  const Columns out = calculated({model, "--dmin", "3"});
  EXPECT_EQ(out.size(), 5U);
  const auto& h = out.at("H");
  std::size_t count = 0;
  for (int i = 0; i <= 16; ++i) {
    for (int j = 0; j <= 14; ++j) {
      for (int l = 0; l <= 9; ++l) {
        const double s2 = std::pow(i / 50.84, 2) + std::pow(j / 42.77, 2) + std::pow(l / 28.95, 2);
        const bool absent = (i == 0) + (j == 0) + (l == 0) == 2 && (i + j + l) % 2 == 1;
        if (s2 > 0 && s2 <= 1 / 9.0 && !absent) ++count;
      }
    }
  }
  EXPECT_EQ(h.size(), count);
}

TEST(Fcalc, drawsAFreeSet) {
  const Columns drawn = calculated({model, "--dmin", "3", "--free", "10,7"});
  const auto& flags = drawn.at("FREE");
  const auto n = static_cast<std::ptrdiff_t>(flags.size());
  EXPECT_EQ(std::count(flags.begin(), flags.end(), 0.0F), n / 10);
  EXPECT_EQ(std::count(flags.begin(), flags.end(), 1.0F), n - n / 10);
  EXPECT_EQ(calculated({model, "--dmin", "3", "--free", "10,7"}).at("FREE"), flags);
  // A list ends with its word: what follows is the model.
  EXPECT_EQ(calculated({"--dmin", "3", "--free", "10,7", model}).at("FREE"), flags);
  EXPECT_NE(calculated({model, "--dmin", "3", "--free", "10,8"}).at("FREE"), flags);
}

TEST(Fcalc, makesMapsOfTheRefinement) {
  const ScratchDirectory scratch;
  const ProgramResult result =
      fcalc({model, "--hkl", data, "--map-2fofc", scratch.file("2.ccp4"), "--map-fofc",
             scratch.file("1.ccp4"), "-o", scratch.file("a.mtz")});
  ASSERT_EQ(result.status, 0) << result.output << result.errors;
  for (const char* name : {"1.ccp4", "2.ccp4"}) {
    const std::string map = read_file(scratch.file(name));
    ASSERT_GT(map.size(), 100000U);
    EXPECT_EQ(map.substr(208, 4), "MAP ");
    // Four operators behind the header, and no blanks where readers look for an origin.
    EXPECT_EQ(map.substr(92, 4), std::string("\x40\x01\0\0", 4));
    EXPECT_EQ(map.substr(196, 12), std::string(12, '\0'));
  }
}

// Coordinates through other formats give the same file but for its date.
TEST(Fcalc, readsMmcifAndCompressedFiles) {
  if (!gemmi_module()) GTEST_SKIP() << "gemmi's Python module is not installed";
  const ScratchDirectory scratch;
  const Columns reference = calculated({model, "--dmin", "4"});
  for (const char* name : {"m.cif", "m.cif.gz", "m.pdb.gz"}) {
    const std::string path = scratch.file(name);
    if (std::string(name) == "m.pdb.gz") {
      ASSERT_EQ(std::system(("gzip -c '" + model + "' >'" + path + "'").c_str()), 0);
    } else {
      ASSERT_EQ(script("convert '" + model + "' '" + path + "'"), "");
    }
    EXPECT_EQ(calculated({path, "--dmin", "4"}).at("FC"), reference.at("FC")) << name;
  }
}

struct Agreement {
  const char* name;
  Arguments options;
  const char* most_r = "5e-4";
  const char* scattering = "xray";
  bool sharp = false;  // atoms with B down to 2 A^2, as neutrons and high resolution see them
};

// Atoms of all B factors from 2 to 12 A^2 in a crooked cell: what blurring and grid have to bear.
std::string sharp_model() {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::string text = "CRYST1   21.000   24.000   27.000  80.00  95.00 110.00 P 1           1\n";
  constexpr const char* elements[] = {"C", "N", "O", "S", "FE", "ZN"};
  for (int i = 1; i <= 60; ++i) {
    const char* element = elements[random() % std::size(elements)];
    const double b = 2.0 + 10.0 * unit(random) * unit(random);
    text += atom_record(element, i, {21 * unit(random), 20 * unit(random), 26 * unit(random)}, b);
  }
  return text;
}

class FcalcAgreement : public ::testing::TestWithParam<Agreement> {};

TEST_P(FcalcAgreement, withDirectSums) {
  if (!gemmi_module()) GTEST_SKIP() << "gemmi's Python module is not installed";
  const ScratchDirectory scratch;
  const std::string out = scratch.file("out.mtz");
  const std::string atoms = GetParam().sharp ? scratch.file("sharp.pdb") : model;
  if (GetParam().sharp) write_file(atoms, sharp_model());
  Arguments arguments = GetParam().options;
  arguments.insert(arguments.begin(), {atoms, "-o", out});
  ASSERT_EQ(fcalc(arguments).status, 0);
  EXPECT_EQ(
      script("'" + atoms + "' '" + out + "' " + GetParam().most_r + " " + GetParam().scattering),
      "");
}

// By default the error is below 5e-4 at every resolution; --gaussians 2 and a rough cut-off cost.
INSTANTIATE_TEST_SUITE_P(
    options, FcalcAgreement,
    ::testing::Values(
        Agreement{"at0point8", {"--dmin", "0.8"}}, Agreement{"at1", {"--dmin", "1"}},
        Agreement{"at1point2", {"--dmin", "1.2"}}, Agreement{"at1point5", {"--dmin", "1.5"}},
        Agreement{"at2", {"--dmin", "2"}}, Agreement{"at3", {"--dmin", "3"}},
        Agreement{"at5", {"--dmin", "5"}},
        Agreement{"sharpAt0point8", {"--dmin", "0.8"}, "5e-4", "xray", true},
        Agreement{"sharpAt2", {"--dmin", "2"}, "5e-4", "xray", true},
        Agreement{"sharpAt4", {"--dmin", "4"}, "5e-4", "xray", true},
        Agreement{"sharpNeutronsAt1", {"--dmin", "1", "--neutron"}, "5e-4", "neutron", true},
        Agreement{"sharpNeutronsAt4", {"--dmin", "4", "--neutron"}, "1e-3", "neutron", true},
        Agreement{"twoGaussians", {"--dmin", "2", "--gaussians", "2"}, "4e-3"},
        Agreement{"roughCutOff", {"--dmin", "2", "--ecut", "1e-3"}, "5e-3"},
        Agreement{"inSubBoxes", {"--dmin", "2", "--memory", "0.2"}},
        Agreement{"neutrons", {"--dmin", "2", "--neutron"}, "5e-4", "neutron"}),
    [](const auto& row) { return std::string(row.param.name); });

// Small models: what crystal, hydrogens and warnings do.
class FcalcModel : public ::testing::Test {
 protected:
  static std::string atom(const std::string& element, int serial, double x) {
    return atom_record(element, serial, {x, 2.0, 3.0});
  }
  std::string write(const std::string& name, const std::string& text) const {
    write_file(scratch_.file(name), text);
    return scratch_.file(name);
  }
  std::string out() const { return scratch_.file("out.mtz"); }
  static constexpr const char* crystal =
      "CRYST1   20.000   20.000   30.000  90.00  90.00 120.00 P 31 2 1      6\n";

 private:
  ScratchDirectory scratch_;
};

TEST_F(FcalcModel, takesCellAndGroupFromTheOptionsOrTheFile) {
  const std::string bare = write("bare.pdb", atom("C", 1, 1.000));
  const std::string full = write("full.pdb", crystal + atom("C", 1, 1.000));
  const Columns from_file = calculated({full, "--dmin", "3"});
  const Columns from_options = calculated({bare, "--dmin", "3", "--spacegroup", "P 31 2 1",
                                           "--cell", "20", "20", "30", "90", "90", "120"});
  EXPECT_EQ(from_options, from_file);
  for (const char* group : {"152", "P3(1)21", "P 3_1 2 1", "p3121"}) {
    EXPECT_EQ(calculated({bare, "--dmin", "3", "--spacegroup", group, "--cell", "20", "20", "30",
                          "90", "90", "120"}),
              from_file)
        << group;
  }
  EXPECT_NE(calculated({full, "--dmin", "3", "--spacegroup", "P 32 2 1"}).at("FC"),
            from_file.at("FC"));
}

TEST_F(FcalcModel, leavesHydrogensOutAndWarnsOfUnknownElements) {
  const std::string with = write("with.pdb", crystal + atom("C", 1, 1.000) + atom("H", 2, 1.9));
  const std::string without = write("without.pdb", crystal + atom("C", 1, 1.000));
  const Columns carbon = calculated({without, "--dmin", "3"});
  EXPECT_EQ(calculated({with, "--dmin", "3"}), carbon);
  EXPECT_NE(calculated({with, "--dmin", "3", "--hydrogens"}), carbon);
  const std::string odd = write("odd.pdb", crystal + atom("C", 1, 1.000) + atom("X", 2, 1.9));
  const ProgramResult result = fcalc({odd, "--dmin", "3", "-o", out()});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.errors.find("1 atoms of unknown element take no part"), std::string::npos);
  EXPECT_EQ(read_columns(out()), carbon);
}

// As the file names it: chain, residue, atom, serial.
TEST_F(FcalcModel, namesTheAtomThatCannotBeUsed) {
  struct Case {
    std::string atom;
    const char* report;
    int status;
  };
  const std::string carbon = atom("C", 1, 1.0);
  const Case cases[] = {
      {atom("Es", 2, 9.0),
       "for atom type \"Es\" \n\nqx_make_molformfact():\nAtom A/LIG 2/Es (serial 2) has no form",
       1},
      {atom_record("N", 2, {9.0, 2.0, 3.0}, -500), "of atom A/LIG 2/N (serial 2) (N) leaves no", 1},
      {atom("O", 2, 9.0) +
           "ANISOU    2  O   LIG A   2    -9000   1000   1000      0      0      0       O\n",
       "tensor of atom A/LIG 2/O (serial 2) (O) is not positive", 1},
      {atom("X", 2, 9.0), "1 atoms of unknown element take no part, the first of them A/LIG 2/X",
       0},
      {atom_record("C", 2, {9.0, 2.0, 3.0}, 999), "1 atoms are so wide that they are cut off", 0}};
  for (const Case& row : cases) {
    const std::string file = write("odd.pdb", crystal + carbon + row.atom);
    const ProgramResult result = fcalc({file, "--dmin", "3", "--ecut", "1e-8", "-o", out()});
    EXPECT_EQ(result.status, row.status);
    EXPECT_NE((result.output + result.errors).find(row.report), std::string::npos)
        << row.report << '\n'
        << result.output << result.errors;
  }
}

// Neutrons see hydrogens without being asked to; deuterium has a length of its own; a site that
// both share comes as two atoms or as a fraction.
TEST_F(FcalcModel, neutronsSeeHydrogenAndDeuterium) {
  if (!gemmi_module()) GTEST_SKIP() << "gemmi's Python module is not installed";
  std::string text = crystal;
  for (int i = 0; i < 12; ++i) {
    const std::array<double, 3> at = {1.0 + 1.7 * i, 2.0 + 0.9 * i * (i % 3), 3.0 + 2.3 * i};
    const std::array<double, 3> near = {at[0] + 1.0, at[1], at[2]};
    text += atom_record("C", 3 * i + 1, at) + atom_record("H", 3 * i + 2, near, 25, 0.35) +
            atom_record("D", 3 * i + 3, near, 25, 0.65);
  }
  const std::string half = write("half.pdb", text);
  ASSERT_EQ(fcalc({half, "--dmin", "2", "--neutron", "-o", out()}).status, 0);
  EXPECT_EQ(script("'" + half + "' '" + out() + "' 5e-4 neutron"), "");
  const Columns shared = read_columns(out());
  EXPECT_NE(calculated({half, "--dmin", "2", "--neutron", "--no-hydrogens"}), shared);
  const std::string fraction = write("fraction.cif", "");
  ASSERT_EQ(script("fractions '" + half + "' '" + fraction + "'"), "");
  const Columns one_row = calculated({fraction, "--dmin", "2", "--neutron"});
  for (std::size_t i = 0; i < shared.at("FC").size(); ++i) {
    ASSERT_NEAR(one_row.at("FC")[i], shared.at("FC")[i], 1e-3) << i;
  }
  // To X-rays a deuterium is a hydrogen.
  ASSERT_EQ(fcalc({half, "--dmin", "2", "--hydrogens", "-o", out()}).status, 0);
  EXPECT_EQ(script("'" + half + "' '" + out() + "' 5e-4 xray"), "");
}

struct Fault {
  const char* name;
  Arguments arguments;  // %: a model of one atom without crystal, $: without atoms
  int status;
  const char* report;
};

class FcalcFault : public FcalcModel, public ::testing::WithParamInterface<Fault> {};

TEST_P(FcalcFault, endsWithStatusAndReason) {
  Arguments arguments = GetParam().arguments;
  for (std::string& argument : arguments) {
    if (argument == "%") argument = write("bare.pdb", atom("C", 1, 1.000));
    if (argument == "$") argument = write("empty.pdb", crystal);
    if (argument == "^") argument = write("h.pdb", crystal + atom("H", 1, 1.000));
  }
  arguments.insert(arguments.end(), {"-o", out()});
  const ProgramResult result = fcalc(arguments);
  EXPECT_EQ(result.status, GetParam().status) << result.output << result.errors;
  EXPECT_NE((result.output + result.errors).find(GetParam().report), std::string::npos)
      << result.output << result.errors;
  EXPECT_FALSE(std::filesystem::exists(out()));
}

INSTANTIATE_TEST_SUITE_P(
    each, FcalcFault,
    ::testing::Values(
        Fault{"noModel", {"/no/such.pdb", "--dmin", "2"}, 2, "cannot read /no/such.pdb"},
        Fault{"noReflections", {model}, 2, "give the reflections: --hkl FILE or --dmin D"},
        Fault{"noSuchReflections", {model, "--hkl", "/no.mtz"}, 2, "cannot read reflections from"},
        Fault{"notAnMtz", {model, "--hkl", model}, 2, "neither an MTZ nor an mmCIF file"},
        Fault{"noCell", {"%", "--dmin", "2"}, 2, "the model names no unit cell"},
        Fault{"noGroup",
              {"%", "--dmin", "2", "--cell", "20", "20", "20", "90", "90", "90"},
              2,
              "the model names no space group"},
        Fault{"unknownGroup",
              {model, "--dmin", "2", "--spacegroup", "P 99"},
              1,
              "Failed to get proper space group"},
        Fault{"impossibleCell",
              {model, "--dmin", "2", "--cell", "20", "20", "20", "170", "170", "170"},
              1,
              "No cell has the constants"},
        Fault{"noAtoms", {"$", "--dmin", "2"}, 2, "holds no atom"},
        Fault{"onlyHydrogens", {"^", "--dmin", "2"}, 1, "There is no atom defined"},
        Fault{"unknownLabel", {model, "--hkl", data, "--labels", "FX"}, 2, "has no column FX"},
        Fault{"labelThatIsAComment", {model, "--hkl", data, "--labels", "F#"}, 2, "no column F#"},
        Fault{"mapsWithoutData", {model, "--dmin", "2", "--map-fofc", "x"}, 2, "maps need"},
        Fault{"freeWord", {model, "--dmin", "2", "--free", "some"}, 2, "--free takes"},
        Fault{"freeSeed", {model, "--dmin", "2", "--free", "5,0"}, 2, "--free takes"},
        Fault{"freeOfThree", {model, "--dmin", "2", "--free", "5,1,2"}, 2, "--free takes"},
        Fault{"freeAll", {model, "--dmin", "2", "--free", "100"}, 2, "--free takes"},
        Fault{"freeTooFew", {model, "--dmin", "9", "--free", "0.001"}, 1, "no reflection left"},
        Fault{
            "gaussians", {model, "--dmin", "2", "--gaussians", "3"}, 2, "--gaussians takes 2 or 5"},
        Fault{"absurdResolution", {model, "--dmin", "0.01"}, 2, "too many reflections"},
        Fault{"negativeResolution", {model, "--dmin", "-1"}, 2, "--dmin"},
        Fault{"fraction", {model, "--dmin", "2", "--frac", "3"}, 2, "--frac"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Fcalc, needsAnOutputAndWritesNoneWhereItCannot) {
  EXPECT_EQ(fcalc({model, "--dmin", "2"}).status, 2);
  EXPECT_EQ(fcalc({"--help"}).status, 0);
  const ProgramResult result = fcalc({model, "--dmin", "4", "-o", "/no/such/folder/a.mtz"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("Failed to open file /no/such/folder/a.mtz"), std::string::npos);
}

}  // namespace
}  // namespace qx::test
