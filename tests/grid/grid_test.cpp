// The grid section, its resolving rules and the reflection tables, on a crystal filled in by hand.
#include "grid/grid.h"

#include "core/constants.h"
#include "core/tagged.h"
#include "crystal/asu.h"
#include "crystal/cell.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "support/engine.h"

#include <quorix/memory.h>

#include <cmath>

namespace qx::test {
namespace {

class GridSection : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    ASSERT_EQ(qx_new_qxxcry(), ok);
    qxcell* cell = qx_get_qxcell();
    cell->a = 100;
    cell->b = 60;
    cell->c = 80.5;
    cell->alpha = cell->beta = cell->gamma = 90;
    qx_get_qxresol()->high = 2.0;
    give_divisors(2, {3});
  }
  static void give_divisors(int axis, std::initializer_list<std::int32_t> values) {
    Divisors& divisors = qx_get_qxspg()->translation_divisors[axis];
    divisors.values = allocate<std::int32_t>(values.size(), "test");
    divisors.count = static_cast<std::int32_t>(values.size());
    std::copy(values.begin(), values.end(), divisors.values);
  }
  static std::array<int, 3> counts() {
    const qxgrid* grid = qx_get_qxgrid();
    return {grid->nx, grid->ny, grid->nz};
  }
};

TEST_F(GridSection, fractionOfTheResolution) {
  const auto result = section("xgrid\nfrac 0.330000\nxend\n");
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.output, "");
  // 151, 90, 121 cut; the last a multiple of 3 as well.
  EXPECT_EQ(counts(), (std::array<int, 3>{160, 90, 135}));
  EXPECT_EQ(captured([] { (void)qx_print_qxgrid(); }),
            "grid: nx= 160 ny=  90 nz= 135 sx= 0.62500 sy= 0.66667 sz= 0.59630");
  const qxsubgrid* box = qx_get_qxsubgrid();
  EXPECT_EQ(box->points[2], 135);
  EXPECT_EQ(box->one_box, 1);
}

TEST_F(GridSection, threeSpellingsOfCountsAndSpacings) {
  for (const char* line :
       {"ngrid nx=48 ny=50 nz=60", "NGRID nx = 48 ny = 50 nz = 60", "ngri nz 60 ny 50 nx 48"}) {
    (void)qx_new_xgrid();
    EXPECT_TRUE(section(std::string("xgrid\n") + line + "\nxend\n").ok);
    EXPECT_EQ(counts(), (std::array<int, 3>{48, 50, 60}));
  }
  (void)qx_new_xgrid();
  EXPECT_TRUE(section("xgrid\nspace sx=1.0 sy = 1 sz 2.5\nxend\n").ok);
  EXPECT_EQ(counts(), (std::array<int, 3>{100, 60, 36}));
}

TEST_F(GridSection, withoutARequestAThirdOfTheResolutionOrSixTenths) {
  EXPECT_TRUE(section("xgrid\nxend\n").ok);
  EXPECT_EQ(counts(), (std::array<int, 3>{150, 90, 120}));
  (void)qx_new_xgrid();
  qx_get_qxresol()->high = 0;
  const auto result = section("xgrid\nxend\n");
  EXPECT_EQ(result.output,
            "WARNING: the high resolution has not been defined yet, \n"
            "0.6 A will be tried for the grid spacing. \n");
  EXPECT_EQ(counts(), (std::array<int, 3>{180, 100, 135}));
}

TEST_F(GridSection, laterSectionsWithOtherRequests) {
  EXPECT_TRUE(section("xgrid\nngrid nx=48 ny=50 nz=60\nxend\n").ok);
  EXPECT_EQ(section("xgrid\nspace sx=1 sy=1 sz=1\nxend\n").output,
            "Both space and ngrid command are defined unconsistently, \n"
            "grid spacing will be used. \n");
  EXPECT_EQ(counts(), (std::array<int, 3>{100, 60, 81}));
}

TEST_F(GridSection, resolvingTwiceChangesNothing) {
  qxcell* cell = qx_get_qxcell();
  std::uint32_t state = 1;
  const auto below = [&state](std::uint32_t n) { return (state = 1664525U * state + 7) / 64 % n; };
  for (int i = 0; i < 300; ++i) {
    (void)qx_new_xgrid();
    cell->a = 20.0 + below(100000) / 1000.0;
    cell->b = 20.0 + below(100000) / 997.0;
    const std::string line = "ngrid nx=" + std::to_string(30 + below(400)) + " ny=75 nz=90";
    ASSERT_TRUE(section("xgrid\n" + line + "\nxend\n").ok);
    const auto first = counts();
    EXPECT_EQ(section("xgrid\nxend\n").output, "") << cell->a << line;
    EXPECT_EQ(counts(), first);
  }
}

TEST_F(GridSection, newCountsDropWhatHangsOnTheOldOnes) {
  EXPECT_TRUE(section("xgrid\nngrid nx=48 ny=50 nz=60\nxend\n").ok);
  qxasu* asu = qx_get_qxasu();
  asu->mask = xopen_3d_char(1, 1, 1, "test");
  asu->grid_high[0] = 17;
  qx_get_qxgrid()->ref_ix = xopen_matrix_int(1, 1, "test");
  EXPECT_TRUE(section("xgrid\nxend\n").ok);
  EXPECT_NE(asu->mask, nullptr);
  EXPECT_NE(qx_get_qxgrid()->ref_ix, nullptr);
  EXPECT_TRUE(section("xgrid\nspace sx=1 sy=1 sz=1\nxend\n").ok);
  EXPECT_EQ(asu->mask, nullptr);
  EXPECT_NE(asu->grid_high[0], 17);
  EXPECT_EQ(qx_get_qxgrid()->ref_ix, nullptr);
}

TEST_F(GridSection, coarseGrid) {
  qxrefdata* set = qx_get_qxrefdata();
  set->hmax = 20;
  set->kmax = 20;
  set->lmax = 20;
  EXPECT_TRUE(section("xgrid\ncoarse no\nfrac 0.25\nxend\n").ok);
  const qxgrid* grid = qx_get_qxgrid();
  EXPECT_EQ(grid->coarse_in_use, 0);
  // Thirds of 2 A: 150, 90, 120; three quarters 112, 67, 90; fine 200, 120, 162.
  EXPECT_TRUE(section("xgrid\ncoarse yes\nxend\n").ok);
  grid = qx_get_qxgrid();
  EXPECT_EQ(std::vector<int>(grid->coarse_n, grid->coarse_n + 3), (std::vector<int>{120, 72, 90}));
  EXPECT_EQ(grid->coarse_in_use, 1);
  EXPECT_DOUBLE_EQ(grid->coarse_spacing[2], 80.5 / 90);
  set->hmax = 75;  // 151 points at least, where 150 would do for all but the last index
  EXPECT_TRUE(section("xgrid\nxend\n").ok);
  EXPECT_EQ(qx_get_qxgrid()->coarse_n[0], 160);
  set->hmax = 99;  // 199 points at least: too close to the fine grid
  EXPECT_TRUE(section("xgrid\nxend\n").ok);
  EXPECT_EQ(qx_get_qxgrid()->coarse_n[0], 200);
}

struct Fault {
  const char* lines;
  const char* text;
};

class GridFault : public GridSection, public ::testing::WithParamInterface<Fault> {};

TEST_P(GridFault, isReportedOnceAndEndsTheEngine) {
  const auto result = section(std::string("xgrid\n") + GetParam().lines + "\nxend\n");
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.output.find(GetParam().text), std::string::npos) << result.output;
  EXPECT_EQ(qx_exist_quorix(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, GridFault,
    ::testing::Values(
        Fault{"grid 5", "\nqx_grid_ctrl():\n*** Unknow xgrid task: GRID ***\n"},
        Fault{"ngrid nx=4 ny=4 nz=4\nngrid nx=4 ny=4 nz=4",
              "grid has been defined through ngrid\n"},
        Fault{"ngrid nx=4 ny=4 nz=4\nfrac 0.3", "grid has been defined through ngrid\n"},
        Fault{"ngrid nx=4 ny=4 nz=4\nspace sx=1 sy=1 sz=1",
              "grid has been defined through ngrid.\n"},
        Fault{"frac 0.3\nngrid nx=4 ny=4 nz=4", "grid has been defined through space or frac.\n"},
        Fault{"space sx=1 sy=1 sz=1\nfrac 0.3", "grid has been defined through space or frac.\n"},
        Fault{"ngrid nx=4 ny=4", "Failed to get nz value\n"},
        Fault{"ngrid nx=4 ny=0 nz=4", "Invalid ny value: 0\n"},
        Fault{"ngrid nxx=4 ny=4 nz=4", "Failed to get nx value\n"},
        Fault{"space sy=1 sz=1", "Failed to get sx value.\n"},
        Fault{"space sx=1 sz=1", "Failed to get sy value\n"},
        Fault{"space sx=1 sy=1 sz=-2", "Invalid sz value: -2.000000\n"},
        Fault{"frac x", "Invalid specification for frac: x\n"},
        Fault{"frac -0.1", "Invalid frac value: -0.1"}, Fault{"frac nan", "Invalid frac value: "},
        Fault{"frac 0", "invalid grid spacing (0.000000  0.000000  0.000000) \n"},
        Fault{"frac 1e-30", "Failed to set up a grid for FFT \n"},
        Fault{"ngrid nx=90000 ny=90000 nz=90000",
              "\nqx_set_grids():\nFailed to set up a grid for FFT \n"},
        Fault{"ngrid nx=2147483647 ny=1 nz=1", "Failed to set up a grid for FFT \n"},
        Fault{"space sx=1e9 sy=1 sz=1", "input fft grid sizes have not been defined yet \n"}));

TEST_F(GridSection, missingObjects) {
  qx_get_qxresol()->high = 0;
  EXPECT_NE(section("xgrid\nfrac 0.33\nxend\n")
                .output.find("Can not define spacing through fraction of high resolution.\n"
                             "Since the high resolution is: 0.000000 \n"),
            std::string::npos);
  (void)qx_create_quorix();
  EXPECT_NE(section("xgrid\nfrac 0.33\nxend\n")
                .output.find("\nqx_grid_ctrl():\nqxresol object has not been created yet.\n"),
            std::string::npos);
  (void)qx_create_quorix();
  EXPECT_NE(captured([] {
              (void)qx_run_qxsubgrid_checker();
            }).find("qxgrid object has not been created yet \n"),
            std::string::npos);
}

TEST_F(GridSection, endOfTextEndsTheSection) {
  const auto result = section("xgrid\nfrac 0.33\n");
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.output.find("\nqx_grid_ctrl():\nFailed to get quorix command. \n"),
            std::string::npos);
}

TEST_F(GridSection, divisorsThatNoGridHas) {
  give_divisors(0, {7});
  const auto result = section("xgrid\nxend\n");
  EXPECT_NE(result.output.find("divided by 7"), std::string::npos);
  EXPECT_NE(result.output.find("\nqx_set_grids():\nFailed to set up a grid for FFT \n"),
            std::string::npos);
}

// exp(2 pi i (l' j / nz + shift)) of every mate against its definition, whole cycles left out, on
// one box and on planes.
TEST_F(GridSection, reflectionTables) {
  qxspg* spg = qx_get_qxspg();
  spg->nops = 2;
  spg->ops = reinterpret_cast<double(*)[16]>(allocate_zeroed<double>(32, "test"));
  const double second[16] = {0, -1, 0, 0.25, 1, -1, 0, 0, 0, 0, 1, 1.0 / 3, 0, 0, 0, 1};
  for (int i = 0; i < 4; ++i) spg->ops[0][5 * i] = 1;
  std::copy_n(second, 16, spg->ops[1]);
  qxrefdata* set = qx_get_qxrefdata();
  set->nreflections = 2;
  set->h = allocate<std::int32_t>(2, "test");
  set->k = allocate<std::int32_t>(2, "test");
  set->l = allocate<std::int32_t>(2, "test");
  const std::int32_t hkl[2][3] = {{1, -2, 3}, {-40, 7, -61}};
  for (int i = 0; i < 2; ++i) {
    set->h[i] = hkl[i][0];
    set->k[i] = hkl[i][1];
    set->l[i] = hkl[i][2];
  }
  ASSERT_TRUE(section("xgrid\nngrid nx=30 ny=20 nz=60\nxend\n").ok);
  for (const double memory : {400.0, 0.5}) {
    qx_get_qxsubgrid()->memory = memory;
    ASSERT_EQ(qx_run_qxsubgrid_checker(), ok);
    ASSERT_EQ(qx_calc_ref2gind(), ok);
    const qxgrid* grid = qx_get_qxgrid();
    const int planes = memory > 1 ? 1 : 4;
    const int nz = 60 / planes;
    ASSERT_EQ(qx_get_qxsubgrid()->boxes[2], planes);
    for (int r = 0; r < 2; ++r) {
      const int h = hkl[r][0], k = hkl[r][1], l = hkl[r][2];
      EXPECT_EQ(grid->ref_ix[1][r], (k % 30 + 30) % 30);
      EXPECT_EQ(grid->ref_iy[1][r], ((-h - k) % 20 + 20) % 20);
      EXPECT_EQ(grid->ref_iz[1][r], (l % nz + nz) % nz);
      EXPECT_EQ(grid->ref_l[1][r], l);
      EXPECT_NEAR(grid->ref_shift[1][r], h * 0.25 + l / 3.0, 1e-12);
      for (int j = 0; j < planes; ++j) {
        const double cycles = l * j / 60.0 + h * 0.25 + l / 3.0;
        const double angle = 6.28318548202515 * (cycles - std::floor(cycles));
        EXPECT_NEAR(grid->cosine[j][1][r], std::cos(angle), 1e-12);
        EXPECT_NEAR(grid->sine[j][1][r], std::sin(angle), 1e-12);
      }
    }
  }
  ASSERT_EQ(qx_set_grid_sincosmem(0), ok);
  ASSERT_EQ(qx_calc_ref2gind(), ok);
  EXPECT_EQ(qx_get_qxgrid()->sine, nullptr);
}

TEST_F(GridSection, boundary) {
  (void)qx_new_xgrid();
  ASSERT_EQ(qx_define_qxboundary(0.1, 0.2, 0.3, 0.01, 0.02, 0.03), ok);
  const qxboundary* boundary = qx_get_qxboundary();
  const double inner[6] = {0.01, 0.99, 0.02, 0.98, 0.03, 0.97};
  const double outer[6] = {-0.1, 1.1, -0.2, 1.2, -0.3, 1.3};
  for (int i = 0; i < 6; ++i) {
    EXPECT_DOUBLE_EQ(boundary->inner[i], inner[i]);
    EXPECT_DOUBLE_EQ(boundary->outer[i], outer[i]);
  }
}

}  // namespace
}  // namespace qx::test
