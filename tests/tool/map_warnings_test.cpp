// What quorix map warns of: one line each, with the consequence, and nothing without a reason.
#include "tool/map_command.h"

#include <cmath>

namespace qx::test {
namespace {

class MapCommandWarnings : public MapCommand {
 protected:
  static void expect_warning(const Arguments& options, const std::string& text) {
    Arguments arguments = {"in.mtz", "out.ccp4"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ProgramResult result = map(arguments);
    EXPECT_EQ(result.status, 0) << result.errors << result.output;
    EXPECT_NE(result.errors.find("quorix map: FWT: " + text), std::string::npos) << text << '\n'
                                                                                 << result.errors;
  }
};

TEST_F(MapCommandWarnings, goodDataHaveNone) {
  make(two_columns("FWT", "PHWT"));
  EXPECT_EQ(map({"in.mtz", "out.ccp4"}).errors, "");
}

TEST_F(MapCommandWarnings, optionsAgainstTheFile) {
  make(two_columns("FWT", "PHWT"));
  expect_warning({"--cell", "11", "20", "30", "90", "90", "90"}, "the file's cell is 10 20 30 90");
  expect_warning({"--spacegroup", "P 2 2 2"}, "the file's group is P 1: as P 2 2 2");
  expect_warning({"--dmin", "1"}, "the data end at ");
  expect_warning({"--dmax", "40"}, "the data begin at 30.00 A");
  expect_warning({"--grid", "14", "14", "14"}, "a grid of 15 x 15 x 15 is used");
}

TEST_F(MapCommandWarnings, coefficientsThatAreOdd) {
  auto indices = half_sphere(2, 2, 2);
  indices.push_back({0, 0, 0});
  MtzMaker maker(indices);
  std::vector<float> f(indices.size(), 10.0F);
  f.back() = 3000.0F;
  f[f.size() - 2] = NAN;
  maker.add("FWT", 'F', f).add("PHWT", 'P', std::vector<float>(indices.size(), 30.0F));
  make(maker);
  // 3000 electrons in 6000 cubic Angstrom.
  expect_warning(
      {}, "F(0,0,0) = 3000 is left out: the mean over the cell is 0, the absolute density is 0.5");
  expect_warning({}, "1 of " + std::to_string(indices.size()) + " reflections have no FWT");
  maker.symmetry = "4 4 P 19 'P 21 21 21' PG222";
  maker.operators = {"X,Y,Z", "1/2-X,-Y,1/2+Z", "1/2+X,1/2-Y,-Z", "-X,1/2+Y,1/2-Z"};
  make(maker);
  expect_warning({}, "3 reflections that the group extinguishes have amplitudes");  // 100 010 001
  // 62 - 32 indices with a zero, less the three; 30 degrees where 90 or 270 are allowed.
  expect_warning({}, "27 centric reflections have phases that the group forbids (by up to 60 ");
  MtzMaker flat = two_columns("X", "Y");
  flat.add("FWT", 'R', std::vector<float>(flat.rows(), 0.0F));
  flat.add("PHWT", 'P', std::vector<float>(flat.rows(), 0.0F));
  make(flat);
  const ProgramResult result = map({"in.mtz", "out.ccp4", "--f", "FWT", "--phi", "PHWT"});
  EXPECT_NE(result.errors.find("every FWT is 0: the map is flat"), std::string::npos);
  EXPECT_NE(result.errors.find("column FWT is of type R, no amplitude"), std::string::npos);
}

TEST_F(MapCommandWarnings, rhombohedralAxes) {
  MtzMaker maker = two_columns("FWT", "PHWT");
  maker.cell = "40.0 40.0 40.0 80.0 80.0 80.0";
  maker.symmetry = "3 3 P 146 'R3' PG3";
  maker.operators = {"X,Y,Z", "Z,X,Y", "Y,Z,X"};
  make(maker);
  expect_warning({}, "the file's group R3 is on rhombohedral axes: R 3:R is used");
  expect_warning({"--spacegroup", "R 3"}, "R 3:H asks for hexagonal axes");
}

}  // namespace
}  // namespace qx::test
