#include "crystal/cell.h"

#include "crystal/matrix.h"
#include "support/engine.h"

#include <quorix/cell.h>
#include <quorix/crystal.h>
#include <quorix/memory.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>

namespace qx::test {
namespace {

using Cell = std::array<float, 6>;

class CellTest : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    ASSERT_EQ(qx_new_qxxcry(), ok);
  }
  static const qxcell& check(const Cell& constants) {
    EXPECT_EQ(qx_set_qxcell_cell(constants.data()), ok);
    EXPECT_EQ(qx_run_qxcell_checker(), ok);
    return *qx_get_qxcell();
  }
};

class Cells : public CellTest, public ::testing::WithParamInterface<Cell> {};

// Lengths and angles of the orthogonalised axes are the cell's own, whatever the formulas say.
TEST_P(Cells, axesInTheOrthogonalFrameHaveTheCellsShape) {
  const qxcell& cell = check(GetParam());
  const double* m = cell.frac2orth;
  const auto axis_dot = [&](int i, int j) {
    return m[i] * m[j] + m[4 + i] * m[4 + j] + m[8 + i] * m[8 + j];
  };
  const double edges[3] = {cell.a, cell.b, cell.c};
  const double degrees[3] = {cell.alpha, cell.beta, cell.gamma};
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(std::sqrt(axis_dot(i, i)), edges[i], 1e-9 * edges[i]);
    const int j = (i + 1) % 3;
    const int k = (i + 2) % 3;
    EXPECT_NEAR(axis_dot(j, k) / (edges[j] * edges[k]), std::cos(degrees[i] * M_PI / 180), 1e-9);
    for (int n = 0; n < 3; ++n)
      EXPECT_NEAR(cell.metric[3 * i + n], axis_dot(i, n), 1e-8 * edges[i] * edges[n]);
  }
  const double box[3][3] = {{m[0], m[4], m[8]}, {m[1], m[5], m[9]}, {m[2], m[6], m[10]}};
  double cross[3];
  qx_v3_x_v3(box[0], box[1], cross);
  EXPECT_NEAR(cross[0] * box[2][0] + cross[1] * box[2][1] + cross[2] * box[2][2], cell.volume,
              1e-9 * cell.volume);
  EXPECT_EQ(m[4], 0.0);  // a along x, b in the x-y plane
  EXPECT_EQ(m[8], 0.0);
  EXPECT_EQ(m[9], 0.0);
}

// 1/d is the length of the reciprocal vector, which the rows of orth2frac span.
TEST_P(Cells, resolutionCoefficientsGiveTheLengthOfTheReciprocalVector) {
  const qxcell& cell = check(GetParam());
  const qxrecicell& r = *qx_get_qxrecicell();
  const double* f = cell.orth2frac;
  for (int h = -3; h <= 3; ++h) {
    for (int k = -3; k <= 3; ++k) {
      for (int l = -3; l <= 3; ++l) {
        double squared = 0;
        for (int i = 0; i < 3; ++i) squared += std::pow(h * f[i] + k * f[4 + i] + l * f[8 + i], 2);
        const double* c = r.resolution;
        EXPECT_NEAR(
            h * h * c[0] + k * k * c[1] + l * l * c[2] + h * k * c[3] + h * l * c[4] + k * l * c[5],
            squared, 1e-9);
      }
    }
  }
  double product[9];
  qx_mat33_x_mat33(product, cell.metric, r.metric);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(product[i], i % 4 == 0, 1e-8);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, Cells,
    ::testing::Values(Cell{10, 10, 10, 90, 90, 90}, Cell{34, 45, 98, 90, 90, 90},
                      Cell{50.3F, 4.8F, 14.7F, 90, 101.7F, 90}, Cell{81, 81, 175, 90, 90, 120},
                      Cell{60, 60, 60, 55, 55, 55}, Cell{30, 40, 50, 70, 100, 110}));

TEST_F(CellTest, anglesOfZeroBecomeRightWithAWarning) {
  const std::string output = captured([] { check({10, 20, 30, 0, 0, 0}); });
  EXPECT_EQ(output, "WARNING: alpha, beta and gamma angles will be assigned 90 degree. \n");
  EXPECT_NEAR(qx_get_qxcell()->volume, 6000.0, 1e-9);
  double point[3] = {0, 0, 0};
  ASSERT_EQ(qx_shift_model_by_unit_(point), ok);
  EXPECT_NEAR(point[0], 0, 1e-12);
  EXPECT_NEAR(point[1], 20, 1e-12);
  EXPECT_NEAR(point[2], 0, 1e-12);
}

TEST_F(CellTest, aNewCellGetsItsOwnFrameUnlessAMatrixWasGiven) {
  check({10, 20, 30, 90, 90, 90});
  EXPECT_NEAR(check({20, 20, 30, 90, 90, 90}).frac2orth[0], 20, 1e-12);
  const float given[12] = {0, 0.1F, 0, 0.5F, 0.05F, 0, 0, 0, 0, 0, 0.02F, 0};
  ASSERT_EQ(qx_set_qxcell_orth2frac(given), ok);
  for (int again = 0; again < 2; ++again) {
    const qxcell& cell = check({20, 10, 50, 90, 90, 90});
    const double orth[3] = {3, 4, 5};
    double frac[3];
    double back[3];
    apply_affine(cell.orth2frac, orth, frac);
    EXPECT_NEAR(frac[0], 0.1 * 4 + 0.5, 1e-7);
    apply_affine(cell.frac2orth, frac, back);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], orth[i], 1e-9);
    double unit[9];
    multiply33(cell.q, cell.q_inverse, unit);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(unit[i], i % 4 == 0, 1e-9);
    EXPECT_GT(std::fabs(cell.q[1]), 0.5);  // the user's frame is turned against the standard one
  }
  const float none[12] = {};
  ASSERT_EQ(qx_set_qxcell_orth2frac(none), ok);
  EXPECT_NEAR(check({20, 10, 50, 90, 90, 90}).q[0], 1, 1e-9);
}

class ImpossibleCells : public CellTest, public ::testing::WithParamInterface<Cell> {};

TEST_P(ImpossibleCells, areReportedOnceAndNotComputedOn) {
  ASSERT_EQ(qx_set_qxcell_cell(GetParam().data()), ok);
  const auto before = qx_get_die_count();
  const std::string output = captured([] { EXPECT_EQ(qx_run_qxcell_checker(), failed); });
  EXPECT_EQ(output.rfind("\nqx_run_qxcell_checker():\n Failed to set up cell. \n", 0), 0U)
      << output;
  EXPECT_EQ(qx_get_die_count(), before + 1);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();
INSTANTIATE_TEST_SUITE_P(
    Cells, ImpossibleCells,
    ::testing::Values(Cell{0, 0, 0, 0, 0, 0}, Cell{-10, 20, 30, 90, 90, 90},
                      Cell{nan_value, 20, 30, 90, 90, 90}, Cell{10, 20, infinite, 90, 90, 90},
                      Cell{10, 20, 30, 90, nan_value, 90}, Cell{10, 20, 30, 0, 90, 90},
                      Cell{10, 20, 30, 90, 90, 180}, Cell{10, 20, 30, 20, 90, 150},
                      Cell{10, 10, 10, 120, 120, 120}, Cell{10, 20, 30, 90, 90, 450}));

TEST_F(CellTest, aSingularUserMatrixIsReported) {
  for (const float element : {1.0F, nan_value, infinite}) {
    ASSERT_EQ(qx_create_quorix(), ok);
    ASSERT_EQ(qx_new_qxxcry(), ok);
    float rows[12];
    std::fill_n(rows, 12, element);
    const Cell cell = {10, 20, 30, 90, 90, 90};
    ASSERT_EQ(qx_set_qxcell_cell(cell.data()), ok);
    ASSERT_EQ(qx_set_qxcell_orth2frac(rows), ok);
    const std::string output = captured([] { EXPECT_EQ(qx_run_qxcell_checker(), failed); });
    EXPECT_EQ(output,
              "\nqx_set_qxcell_frac2orth():\nFailed to inverse orthogonal-to-fraction matrix \n");
  }
}

TEST_F(CellTest, routinesWithoutACrystalReportTheContainerFirst) {
  ASSERT_EQ(qx_delete_qxxcry(), ok);
  double out[6];
  const std::string output = captured([&] { EXPECT_EQ(qx_get_cell_data_(out), failed); });
  EXPECT_EQ(output.rfind("\nqx_get_qxxcry():\n qxxcry object has not been created yet\n"
                         "\nqx_get_cell_data_():\nqxcell object has not been created yet.\n",
                         0),
            0U)
      << output;
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(CellTest, deletingTheContainerReleasesEverything) {
  ASSERT_EQ(qx_delete_qxxcry(), ok);
  const double before = qx_get_xmalloc_memory_size();
  ASSERT_EQ(qx_new_qxxcry(), ok);
  ASSERT_EQ(qx_new_qxxcry(), ok);  // replaces
  check({10, 20, 30, 90, 90, 90});
  EXPECT_EQ(captured([] { EXPECT_EQ(qx_delete_qxxcry(), ok); }), "");
  EXPECT_DOUBLE_EQ(qx_get_xmalloc_memory_size(), before);
}

TEST(Matrix, inversesAndTensorTransformsAgreeWithTheirDefinition) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> uniform(-1, 1);
  for (int trial = 0; trial < 50; ++trial) {
    double m[16];
    for (double& element : m) element = uniform(random);
    double inverse[16];
    double product[16];
    ASSERT_EQ(qx_matrix4_inverse(m, inverse), 0);
    qx_mat44_x_mat44(product, m, inverse);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(product[i], i % 5 == 0, 1e-9);
    ASSERT_EQ(qx_matrix3_inverse(m, inverse), 0);
    qx_mat33_x_mat33(product, m, inverse);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(product[i], i % 4 == 0, 1e-9);

    const double u[6] = {m[9], m[10], m[11], m[12], m[13], m[14]};
    const double full[3][3] = {{u[0], u[3], u[4]}, {u[3], u[1], u[5]}, {u[4], u[5], u[2]}};
    constexpr int row[6] = {0, 1, 2, 0, 0, 1};
    constexpr int column[6] = {0, 1, 2, 1, 2, 2};
    double rurt[36];
    double rtur[36];
    qx_calc_U_tran_matrix_rurt(m, rurt);
    qx_calc_U_tran_matrix_rtur(m, rtur);
    for (int n = 0; n < 6; ++n) {
      double want_rurt = 0;
      double want_rtur = 0;
      for (int k = 0; k < 3; ++k) {
        for (int l = 0; l < 3; ++l) {
          want_rurt += m[3 * row[n] + k] * full[k][l] * m[3 * column[n] + l];
          want_rtur += m[3 * k + row[n]] * full[k][l] * m[3 * l + column[n]];
        }
      }
      double got_rurt = 0;
      double got_rtur = 0;
      for (int i = 0; i < 6; ++i) {
        got_rurt += rurt[6 * n + i] * u[i];
        got_rtur += rtur[6 * n + i] * u[i];
      }
      EXPECT_NEAR(got_rurt, want_rurt, 1e-12);
      EXPECT_NEAR(got_rtur, want_rtur, 1e-12);
    }
  }
}

TEST(Matrix, theSelfCheckPrintsEachTensorTwice) {
  const std::string output = captured(qx_calc_U_tran_matrix_tester);
  const std::size_t tensor = 3 * 40;  // three lines
  ASSERT_EQ(output.size(), 4 * tensor);
  EXPECT_EQ(output.substr(0, tensor), output.substr(tensor, tensor));
  EXPECT_EQ(output.substr(2 * tensor, tensor), output.substr(3 * tensor));
}

TEST(Matrix, singularOnesAreRefusedOrBecomeTheIdentity) {
  const double zero[16] = {};
  double out[16] = {7};
  EXPECT_EQ(qx_matrix3_inverse(zero, out), 1);
  EXPECT_EQ(out[0], 7);
  EXPECT_EQ(qx_matrix4_inverse(zero, out), 0);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(out[i], i % 5 == 0);
}

}  // namespace
}  // namespace qx::test
