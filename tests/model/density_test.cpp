// Density on the grid against the plain sum of Gaussians at every point of the cell.
#include "model/density.h"

#include "crystal/cell.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "model/formfactors.h"
#include "model/molsys.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/cell.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/grid.h>
#include <quorix/memory.h>
#include <quorix/model.h>
#include <quorix/spacegroup.h>

#include <cmath>
#include <numbers>
#include <random>

namespace qx::test {
namespace {

constexpr double pi = std::numbers::pi;

using Vector = std::array<double, 3>;
using Matrix = std::array<Vector, 3>;

Matrix tensor_matrix(const double* u) {
  return {{{u[0], u[3], u[4]}, {u[3], u[1], u[5]}, {u[4], u[5], u[2]}}};
}

double determinant(const Matrix& m) {
  return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
         m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// r^T m^-1 r by Cramer's rule.
double inverse_form(const Matrix& m, const Vector& r) {
  double sum = 0.0;
  for (std::size_t i = 0; i < 3; ++i) {
    Matrix replaced = m;
    for (std::size_t row = 0; row < 3; ++row) replaced[row][i] = r[row];
    sum += r[i] * determinant(replaced) / determinant(m);
  }
  return sum;
}

// One atom's density at an offset from its centre, from the records' values alone.
double density_of(std::int32_t atom, const Vector& r) {
  const atfrmfactbase& base = *qx_get_atfrmfactbase();
  const qxatomb& b = *qx_get_qxatomb();
  const std::int32_t entry = qx_get_molformfact()->index[atom];
  double sum = 0.0;
  for (std::int32_t i = 0; i < qx_get_molformfact()->ngauss[atom]; ++i) {
    double u[6] = {};
    if (b.index[atom] < 0) std::copy_n(b.u_aniso[~b.index[atom]], 6, u);
    const double iso = b.index[atom] < 0 ? 0.0 : b.b_iso[b.index[atom]];
    for (int j = 0; j < 3; ++j) u[j] += (base.b[entry][i] + iso + b.b0) / (8 * pi * pi);
    const Matrix m = tensor_matrix(u);
    sum += base.a[entry][i] * std::exp(-0.5 * inverse_form(m, r)) /
           std::sqrt(std::pow(2 * pi, 3) * determinant(m));
  }
  return qx_get_qxatomocc()->occupancy[atom] * sum;
}

struct Expected {
  double value = 0.0;
  bool touched = false;   // within the radius of some copy
  bool doubtful = false;  // at the very radius of one
};

// Sum over all atoms and lattice copies of a grid point, `reach` cells to each side.
Expected expected_at(const Vector& point, int reach) {
  const molsys& system = *qx_get_molsys();
  const double* to_frac = qx_get_qxcell()->orth2frac;
  const double* to_orth = qx_get_qxcell()->frac2orth;
  Expected out;
  for (std::int32_t atom = 0; atom < system.natom; ++atom) {
    const double x[3] = {system.x[atom], system.y[atom], system.z[atom]};
    Vector apart{};
    for (std::size_t i = 0; i < 3; ++i) {
      const double* m = to_frac + 4 * i;
      const double f = m[0] * x[0] + m[1] * x[1] + m[2] * x[2] + m[3];
      apart[i] = point[i] - (f - std::floor(f));
    }
    const double radius = qx_get_qxradcut()->radius[atom];
    for (int i = -reach; i <= reach; ++i) {
      for (int j = -reach; j <= reach; ++j) {
        for (int k = -reach; k <= reach; ++k) {
          const Vector f = {apart[0] + i, apart[1] + j, apart[2] + k};
          Vector r{};
          for (std::size_t row = 0; row < 3; ++row) {
            for (std::size_t c = 0; c < 3; ++c) r[row] += to_orth[4 * row + c] * f[c];
          }
          const double distance = std::hypot(r[0], r[1], r[2]);
          if (std::fabs(distance - radius) < 1e-9) out.doubtful = true;
          if (distance > radius) continue;
          out.touched = true;
          out.value += density_of(atom, r);
        }
      }
    }
  }
  return out;
}

class Density : public Engine {
 protected:
  // Radii and tables for what the sections before have set up; the grid has the given counts.
  static void prepare(const std::string& counts, const char* ecut, const char* memory = "1000") {
    const SectionResult grid = section("xgrid\nngrid " + counts + "\nxend\n");
    ASSERT_TRUE(grid.ok) << grid.output;
    ASSERT_TRUE(section(std::string("xfft\nmemory ") + memory + "\nxend\n").ok);
    ASSERT_TRUE(section(std::string("xcut\necut ") + ecut + "\nxend\n").ok);
    ASSERT_EQ(qx_make_molformfact(), ok);
    if (!qx_get_qxexptab()) {
      ASSERT_EQ(qx_new_qxexptab(), ok);
    }
    captured([] { ASSERT_EQ(qx_update_qxradcut(), ok); });
  }
  // The map of all atoms, flat.
  static std::vector<double> map(std::int32_t shift = 0) {
    double*** box = qx_open_qxelecden_box();
    EXPECT_EQ(qx_calc_elec_den_map(shift, box), ok);
    return flat(box);
  }
  static std::vector<double> flat(double*** box) {
    const qxelecden& e = *qx_get_qxelecden();
    const auto n = static_cast<std::size_t>(e.nx) * static_cast<std::size_t>(e.ny) *
                   static_cast<std::size_t>(e.nz);
    return {box[0][0], box[0][0] + n};
  }
  static void simple_model(bool aniso, int n = 6) {
    set_up_crystal("P 1", "13 14 15 75 85 95", 4.0, 10);
    auto atoms = random_atoms(n, aniso, 21);
    set_up_model(atoms);
  }
};

struct Shape {
  const char* name;
  const char* cell;  // and further lines of the crystal section
  const char* counts;
  const char* ecut;
  int reach;  // lattice copies a side that can matter
};

class DensityInEveryCell : public Density, public ::testing::WithParamInterface<Shape> {};

TEST_P(DensityInEveryCell, isTheSumOfGaussiansWithinTheRadii) {
  const Shape& shape = GetParam();
  set_up_crystal("P 1", shape.cell, 4.0, 10);
  set_up_model(random_atoms(7, true, 5));
  prepare(shape.counts, shape.ecut);
  const std::vector<double> got = map();
  const qxgrid& n = *qx_get_qxgrid();
  std::size_t at = 0;
  std::size_t untouched = 0;
  double peak = 0.0;
  for (const double v : got) peak = std::max(peak, std::fabs(v));
  for (int z = 0; z < n.nz; ++z) {
    for (int y = 0; y < n.ny; ++y) {
      for (int x = 0; x < n.nx; ++x, ++at) {
        const Expected want =
            expected_at({x / double(n.nx), y / double(n.ny), z / double(n.nz)}, shape.reach);
        if (want.doubtful) continue;
        if (!want.touched) {
          ++untouched;
          ASSERT_EQ(got[at], 0.0) << x << " " << y << " " << z;
        }
        ASSERT_NEAR(got[at], want.value, 3e-7 * peak) << x << " " << y << " " << z;
      }
    }
  }
  if (shape.reach < 3) {
    EXPECT_GT(untouched, 0U);
  }
}

INSTANTIATE_TEST_SUITE_P(
    shapes, DensityInEveryCell,
    ::testing::Values(
        Shape{"orthorhombic", "16 18 20 90 90 90", "nx=16 ny=20 nz=18", "0.02", 1},
        Shape{"hexagonal", "18 18 15 90 90 120", "nx=18 ny=18 nz=16", "0.02", 2},
        Shape{"monoclinic", "16 14 19 90 112 90", "nx=16 ny=16 nz=20", "0.02", 2},
        Shape{"triclinic", "17 16 18 65 72 80", "nx=18 ny=16 nz=18", "0.02", 2},
        Shape{"sharpAngles", "24 25 26 40 50 45", "nx=20 ny=24 nz=20", "0.05", 2},
        Shape{"unevenCounts", "20 16 14 100 110 95", "nx=32 ny=10 nz=14", "0.02", 2},
        Shape{"cellSmallerThanTheAtoms", "4 3.5 4.5 70 80 100", "nx=6 ny=4 nz=6", "1e-4", 4},
        Shape{"ownFrame",
              "16 18 20 90 90 90\north 0 0.0625 0 0.1 -0.0555555555556 0 0 0.2 0 0 0.05 0.3",
              "nx=16 ny=18 nz=20", "0.02", 1}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Density, subBoxesAreTheInterleavedPlanesOfTheWhole) {
  simple_model(true);
  prepare("nx=20 ny=18 nz=24", "0.005");
  const std::vector<double> whole = map();
  const std::size_t plane = 20 * 18;
  prepare("nx=20 ny=18 nz=24", "0.005", "0");
  const std::int32_t boxes = qx_get_qxsubgrid()->boxes[2];
  ASSERT_GT(boxes, 1);
  for (std::int32_t shift = 0; shift < boxes; ++shift) {
    const std::vector<double> part = map(shift);
    ASSERT_EQ(part.size(), whole.size() / static_cast<std::size_t>(boxes));
    for (std::size_t i = 0; i < part.size(); ++i) {
      const std::size_t z =
          i / plane * static_cast<std::size_t>(boxes) + static_cast<std::size_t>(shift);
      ASSERT_NEAR(part[i], whole[z * plane + i % plane], 1e-12);
    }
  }
}

TEST_F(Density, takingAtomsOffLeavesNothing) {
  simple_model(true);
  for (const char* memory : {"1000", "0"}) {
    prepare("nx=20 ny=18 nz=24", "0.005", memory);
    const bool one_box = qx_get_qxsubgrid()->one_box != 0;
    const std::int32_t shift = one_box ? 0 : 1;
    const std::vector<double> whole = map(shift);
    ASSERT_GT(*std::max_element(whole.begin(), whole.end()), 0.01);
    double*** box = qx_get_qxelecden()->density;
    for (std::int32_t atom = 0; atom < 6; ++atom) {
      ASSERT_EQ(
          one_box ? qx_remove_eden_atom(atom, box) : qx_remove_subg_eden_atom(atom, shift, box),
          ok);
    }
    for (const double value : flat(box)) ASSERT_NEAR(value, 0.0, 1e-12);
  }
}

TEST_F(Density, theOmitRegionTakesOffTheAtomsWithin) {
  simple_model(true);
  prepare("nx=20 ny=18 nz=24", "0.005");
  map();
  double*** box = qx_get_qxelecden()->density;
  const double half[6] = {0.0, 0.5, 0.0, 1.0, 0.0, 1.0};
  ASSERT_EQ(qx_remove_elec_den_from_omit_region(half, box), ok);
  const std::vector<double> omitted = flat(box);
  const double* m = qx_get_qxcell()->orth2frac;
  const molsys& s = *qx_get_molsys();
  std::int32_t inside = 0;
  for (std::int32_t i = 0; i < s.natom; ++i) {
    const double f = m[0] * s.x[i] + m[1] * s.y[i] + m[2] * s.z[i];
    if (f - std::floor(f) > 0.5) continue;
    qx_get_qxatomocc()->occupancy[i] = 0.0;
    ++inside;
  }
  ASSERT_GT(inside, 0);
  ASSERT_LT(inside, s.natom);
  const std::vector<double> others = map();
  for (std::size_t i = 0; i < others.size(); ++i) ASSERT_NEAR(omitted[i], others[i], 1e-12);
}

TEST_F(Density, listedAtomsAreAddedToWhatIsThere) {
  simple_model(true);
  prepare("nx=20 ny=18 nz=24", "0.005");
  const std::vector<double> all = map();
  double*** box = qx_get_qxelecden()->density;
  std::fill_n(box[0][0], all.size(), 1.0);
  const std::int32_t iso[] = {1, 2, 4, 5};
  const std::int32_t aniso[] = {0, 3};
  ASSERT_EQ(qx_calc_eden_atom_iso(4, iso, box), ok);
  ASSERT_EQ(qx_calc_eden_atom_aniso(2, aniso, box), ok);
  const std::vector<double> added = flat(box);
  for (std::size_t i = 0; i < all.size(); ++i) ASSERT_NEAR(added[i], 1.0 + all[i], 1e-12);
}

TEST_F(Density, sharpAtomsStayFinite) {
  set_up_crystal("P 1", "20 20 20 90 90 120", 4.0, 10);
  auto atoms = random_atoms(9, false, 8);
  for (std::size_t i = 0; i < atoms.size(); ++i) atoms[i].b = 1e-6 + 0.05 * double(i);
  set_up_model(atoms);
  ASSERT_EQ(qx_set_qxatomb_B0(0.0), ok);
  prepare("nx=20 ny=20 nz=20", "0.005");
  for (const double value : map()) ASSERT_TRUE(std::isfinite(value));
}

// Derivatives of the sum of map x density against central differences.
TEST_F(Density, gradientsAreTheFiniteDifferences) {
  set_up_crystal("P 1", "13 14 15 75 85 95\n", 4.0, 10);
  set_up_model(random_atoms(6, true, 21));
  prepare("nx=20 ny=20 nz=24", "1e-9");
  double*** box = qx_open_qxelecden_box();
  const std::size_t n = map().size();
  std::mt19937 random(3);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  double*** weights = xopen_3d_double(24, 20, 20, "test");
  std::generate_n(weights[0][0], n, [&] { return uniform(random); });
  const std::int32_t atom = 3;
  const auto sum = [&] {
    std::fill_n(box[0][0], n, 0.0);
    EXPECT_EQ(qx_calc_eden_atom_aniso(1, &atom, box), ok);
    double total = 0.0;
    for (std::size_t i = 0; i < n; ++i) total += weights[0][0][i] * box[0][0][i];
    return total;
  };
  molsys& system = *qx_get_molsys();
  double* u = qx_get_qxatomb()->u_aniso[1];
  double* parameters[10] = {&system.x[atom], &system.y[atom],
                            &system.z[atom], &u[0],
                            &u[1],           &u[2],
                            &u[3],           &u[4],
                            &u[5],           &qx_get_qxatomocc()->occupancy[atom]};
  double gradient[10];
  ASSERT_EQ(qx_calc_geden_atom_aniso(atom, weights, gradient), ok);
  for (int i = 0; i < 10; ++i) {
    const double step = 1e-4;
    *parameters[i] += step;
    const double above = sum();
    *parameters[i] -= 2 * step;
    const double below = sum();
    *parameters[i] += step;
    EXPECT_NEAR(gradient[i], (above - below) / (2 * step), 1e-5 * (1 + std::fabs(gradient[i])))
        << i;
  }
  ASSERT_EQ(xfree_3d_double(weights), ok);
}

TEST(Tensors, eigenvaluesInverseAndDeterminantBelongTogether) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  for (int i = 0; i < 50; ++i) {
    double u[6];
    for (double& value : u) value = uniform(random);
    double values[3];
    ASSERT_EQ(qx_calc_U_eigen_value(u, values), 0);
    EXPECT_LE(values[0], values[1]);
    EXPECT_LE(values[1], values[2]);
    EXPECT_NEAR(values[0] + values[1] + values[2], u[0] + u[1] + u[2], 1e-12);
    EXPECT_NEAR(values[0] * values[1] * values[2], qx_get_determinant_u(u), 1e-12);
    for (const double v : values) {
      const double shifted[6] = {u[0] - v, u[1] - v, u[2] - v, u[3], u[4], u[5]};
      EXPECT_NEAR(qx_get_determinant_u(shifted), 0.0, 1e-12);
    }
    double inverse[6];
    ASSERT_EQ(qx_get_inverse_u(u, inverse), 0);
    const Matrix a = tensor_matrix(u);
    const Matrix b = tensor_matrix(inverse);
    for (std::size_t r = 0; r < 3; ++r) {
      for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(a[r][0] * b[0][c] + a[r][1] * b[1][c] + a[r][2] * b[2][c], r == c, 1e-9);
      }
    }
  }
  double untouched[6] = {9, 9, 9, 9, 9, 9};
  const double singular[6] = {1, 1, 0, 1, 0, 0};
  EXPECT_EQ(qx_get_inverse_u(singular, untouched), 1);
  EXPECT_EQ(untouched[2], 9.0);
  const double nan[6] = {NAN, 1, 1, 0, 0, 0};
  double values[3];
  // Numbers whose squares are none, a degenerate tensor, and mixed terms that are next to nothing.
  const double tensors[3][6] = {
      {3e300, 1e300, 2e300, 0, 0, 0}, {2e-300, 2e-300, 2e-300, 0, 0, 0}, {1, 3, 2, 0, 1e-310, 0}};
  for (const auto& u : tensors) {
    ASSERT_EQ(qx_calc_U_eigen_value(u, values), 0);
    double sorted[3] = {u[0], u[1], u[2]};
    std::sort(sorted, sorted + 3);
    for (int i = 0; i < 3; ++i) EXPECT_DOUBLE_EQ(values[i], sorted[i]);
  }
  EXPECT_NE(qx_calc_U_eigen_value(nan, values), 0);
}

// A mate's damping of h is the atom's own of hR.
TEST_F(Density, tensorsTurnWithTheOperators) {
  for (const auto& [group, cell] :
       {std::pair{"P 31 2 1", "33 33 41 90 90 120"}, std::pair{"P 43 21 2", "31 31 42 90 90 90"},
        std::pair{"C 1 2 1", "40 21 25 90 99 90"}}) {
    set_up_crystal(group, cell, 8.0, 10);
    const double* o = qx_get_qxcell()->orth2frac;
    const auto damping = [o](const Vector& h, const double* u) {
      Vector s{};
      for (std::size_t j = 0; j < 3; ++j) {
        for (std::size_t i = 0; i < 3; ++i) s[j] += h[i] * o[4 * i + j];
      }
      const Matrix m = tensor_matrix(u);
      double sum = 0.0;
      for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) sum += s[i] * m[i][j] * s[j];
      }
      return sum;
    };
    const double u[6] = {0.3, 0.2, 0.5, 0.04, -0.06, 0.1};
    const qxspg& spg = *qx_get_qxspg();
    for (std::int32_t op = 0; op < spg.nops; ++op) {
      double turned[6];
      ASSERT_EQ(qx_transform_aniso_u_to_oper(op, u, turned), ok);
      for (const Vector& h : {Vector{1, 0, 0}, Vector{2, -3, 4}, Vector{0, 5, -1}}) {
        Vector hr{};
        for (std::size_t j = 0; j < 3; ++j) {
          for (std::size_t i = 0; i < 3; ++i) hr[j] += h[i] * spg.ops[op][4 * i + j];
        }
        EXPECT_NEAR(damping(h, turned), damping(hr, u), 1e-9) << group << " " << op;
      }
    }
  }
}

struct Fault {
  const char* name;
  Status (*run)(double*** box);  // on a prepared model
  const char* report;
};

class DensityFault : public Density, public ::testing::WithParamInterface<Fault> {};

TEST_P(DensityFault, isReportedAndEndsTheEngine) {
  simple_model(true);
  prepare("nx=20 ny=18 nz=24", "0.005");
  double*** box = qx_open_qxelecden_box();
  const std::string output = captured([&] { EXPECT_EQ(GetParam().run(box), failed); });
  EXPECT_NE(output.find(GetParam().report), std::string::npos) << output;
  EXPECT_EQ(qx_exist_quorix(), 0);
}

constexpr std::int32_t first = 0;
constexpr std::int32_t second = 1;
constexpr std::int32_t beyond = 6;

INSTANTIATE_TEST_SUITE_P(
    each, DensityFault,
    ::testing::Values(
        Fault{"anisotropicAmongIsotropic",
              [](double*** box) { return qx_calc_eden_atom_iso(1, &first, box); },
              "\nqx_calc_eden_atom_iso():\nThis is an anisotropic atom 0.\n"},
        Fault{"isotropicAmongAnisotropic",
              [](double*** box) { return qx_calc_eden_atom_aniso(1, &second, box); },
              "This is an isotropic atom 1.\n"},
        Fault{"noSuchAtom", [](double*** box) { return qx_calc_eden_atom_iso(1, &beyond, box); },
              "There is no atom 6.\n"},
        Fault{"removalOfNoAtom", [](double*** box) { return qx_remove_eden_atom(-1, box); },
              "There is no atom -1.\n"},
        Fault{"shiftBeyondTheBoxes",
              [](double*** box) { return qx_calc_subg_eden_atom_iso(1, &second, 7, box); },
              "Invalid sub-box 7 \n"},
        Fault{"noBox", [](double***) { return qx_calc_elec_den_map(0, nullptr); },
              "qxelecden object has not been created yet.\n"},
        Fault{"negativeTensor",
              [](double*** box) {
                qx_get_qxatomb()->u_aniso[1][2] = -1.0;
                return qx_calc_elec_den_map(0, box);
              },
              "The anisotropic tensor of atom 4 ("},
        Fault{"bBelowTheBlurring",
              [](double*** box) {
                qx_get_qxatomb()->b_iso[1] = -100.0;
                return qx_calc_elec_den_map(0, box);
              },
              "The B factor -100.000000 of atom 3 ("},
        Fault{"coordinateIsNoNumber",
              [](double*** box) {
                qx_get_molsys()->y[2] = NAN;
                return qx_calc_elec_den_map(0, box);
              },
              "The coordinates of atom 3 are not numbers: "},
        Fault{"radiiOfAnEarlierModel",
              [](double*** box) {
                set_up_model(random_atoms(60, false, 2));
                EXPECT_EQ(qx_make_molformfact(), ok);
                return qx_calc_elec_den_map(0, box);
              },
              "\nqx_calc_elec_den_map():\nqxradcut object has not been created yet.\n"},
        Fault{"radiusOverAThousandCells",
              [](double*** box) {
                qx_get_qxradcut()->largest = 2e4;
                return qx_calc_elec_den_map(0, box);
              },
              "The cut-off radius 20000.000000 reaches over "},
        Fault{"noFormFactors",
              [](double*** box) {
                EXPECT_EQ(qx_fill_atfrmfactbase(0), ok);  // takes the pick-up with it
                return qx_calc_elec_den_map(0, box);
              },
              "molformfact object has not been created yet.\n"},
        Fault{"noB",
              [](double*** box) {
                EXPECT_EQ(qx_new_qxatomb(), ok);
                return qx_calc_elec_den_map(0, box);
              },
              "qxatomb object has not been created yet.\n"},
        Fault{"noOccupancies",
              [](double*** box) {
                EXPECT_EQ(qx_new_qxatomocc(), ok);
                return qx_calc_elec_den_map(0, box);
              },
              "qxatomocc object has not been created yet.\n"},
        Fault{"noTable",
              [](double*** box) {
                EXPECT_EQ(qx_delete_qxexptab(), ok);
                return qx_calc_elec_den_map(0, box);
              },
              "qxexptab object has not been created yet.\n"},
        Fault{"gradientOfAnIsotropicAtom",
              [](double*** box) {
                double gradient[10];
                return qx_calc_geden_atom_aniso(1, box, gradient);
              },
              "\nqx_calc_geden_atom_aniso():\nThis is an isotropic atom 1.\n"},
        Fault{"noSuchOperator",
              [](double***) {
                double u[6] = {};
                return qx_transform_aniso_u_to_oper(1, u, u);
              },
              "\nqx_transform_aniso_u_to_oper():\n"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace qx::test
