#include "crystal/asu.h"

#include "core/memory_system.h"
#include "crystal/spacegroup.h"
#include "grid/asu_mask.h"
#include "support/engine.h"

#include <quorix/asu.h>
#include <quorix/cell.h>
#include <quorix/crystal.h>
#include <quorix/grid.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>
#include <vector>

namespace qx::test {
namespace {

// A crystal with a grid, in a directory of its own (the mask leaves a report there).
class Asu : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    home_ = std::filesystem::current_path();
    std::filesystem::current_path(scratch_.path());
  }
  void TearDown() override {
    std::filesystem::current_path(home_);
    Engine::TearDown();
  }
  static void set_up(const char* name, int nx, int ny, int nz) {
    ASSERT_EQ(qx_create_quorix(), ok);
    ASSERT_EQ(qx_new_qxxcry(), ok);
    const float cell[6] = {30, 30, 30, 90, 90, 90};
    ASSERT_EQ(qx_set_qxcell_cell(cell), ok);
    ASSERT_EQ(qx_run_qxcell_checker(), ok);
    ASSERT_EQ(qx_set_qxspg_spgname(name), ok);
    ASSERT_EQ(qx_run_qxspg_checker(), ok);
    ASSERT_EQ(qx_new_xgrid(), ok);
    ASSERT_EQ(qx_init_qxgrid_nxyz(nx, ny, nz), ok);
    ASSERT_EQ(qx_get_ideal_fftgrid(), ok);
  }
  ScratchDirectory scratch_;

 private:
  std::filesystem::path home_;
};

TEST_F(Asu, limitsOfEachAxisAreItsOwn) {
  set_up("P 1", 40, 60, 80);
  ASSERT_EQ(qx_set_qxasu_limit(0.0F, 0.5F, 0.0F, 0.25F, 0.0F, 0.75F), ok);
  ASSERT_EQ(qx_set_qxasu_int_limit(), ok);
  const qxasu& asu = *qx_get_qxasu();
  EXPECT_EQ(asu.grid_high[0], 21);
  EXPECT_EQ(asu.grid_high[1], 16);
  EXPECT_EQ(asu.grid_high[2], 61);
}

TEST_F(Asu, p1IsItsOwnAsymmetricUnit) {
  set_up("P 1", 4, 5, 6);
  ASSERT_EQ(qx_build_ASU(), ok);
  for (int i = 0; i < 120; ++i) {
    EXPECT_EQ(qx_get_qxasu()->mask[0][0][i], 1);
    EXPECT_EQ(qx_get_qxasu()->counts[0][0][i], 1);
  }
  const std::string once =
      "space group number: 1 \nspace group name  : P1\nASU boundary               : 4/4  5/5  6/6 "
      "\n"
      "number of special points   : 0 \nnumber of ASU grid points  : 120 \nnumber of cell grid "
      "points : 120 \n"
      "number of symmetry operat. : 1 \nratio(ASU/cell grid points): 1.000000000 \n"
      "1/number-of-symmetry-oper  : 1.000000000 \n";
  EXPECT_EQ(read_file(scratch_.file("spg.data")), once);
  ASSERT_EQ(qx_build_ASU(), ok);
  EXPECT_EQ(read_file(scratch_.file("spg.data")), once + once);
}

// Orbit by orbit, with operators applied to fractions rather than grid indices.
TEST_F(Asu, marksTheFirstPointOfEachOrbitAndCountsIt) {
  for (const char* name : {"P 21 21 21", "P -1", "P 41 21 2", "P 31 2 1", "R 3 :H", "I 2 3"}) {
    set_up(name, 12, 12, 12);
    ASSERT_EQ(qx_build_ASU(), ok);
    const qxspg& spg = *qx_get_qxspg();
    const qxasu& asu = *qx_get_qxasu();
    std::int64_t special = 0;
    for (int n = 0; n < 1728; ++n) {
      const int x = n % 12;
      const int y = n / 12 % 12;
      const int z = n / 144;
      std::vector<int> orbit;
      for (int i = 0; i < spg.nops; ++i) {
        int mate[3];
        for (int row = 0; row < 3; ++row) {
          const double* r = spg.ops[i] + 4 * row;
          const double moved = (r[0] * x + r[1] * y + r[2] * z) / 12.0 + r[3];
          mate[row] = static_cast<int>(std::lround(12 * (moved - std::floor(moved + 1e-9)))) % 12;
        }
        orbit.push_back((mate[2] * 12 + mate[1]) * 12 + mate[0]);
      }
      std::sort(orbit.begin(), orbit.end());
      const auto size = std::unique(orbit.begin(), orbit.end()) - orbit.begin();
      ASSERT_EQ(asu.mask[z][y][x] != 0, orbit[0] == n) << name << ' ' << n;
      ASSERT_EQ(asu.counts[z][y][x], orbit[0] == n ? size : 0) << name << ' ' << n;
      special += orbit[0] == n && size < spg.nops;
      std::int32_t mate[3];
      ASSERT_EQ(qx_get_asu_grid_point(asu.nops, asu.rotations, asu.translations, 12, 12, 12, 12, 12,
                                      12, asu.mask, x, y, z, &mate[0], &mate[1], &mate[2]),
                ok);
      ASSERT_EQ((mate[2] * 12 + mate[1]) * 12 + mate[0], orbit[0]);
    }
    EXPECT_NE(read_file(scratch_.file("spg.data"))
                  .find("special points   : " + std::to_string(special) + " \n"),
              std::string::npos)
        << name;
    EXPECT_EQ(qx_check_asu_consistent(), ok);
    asu.mask[0][0][1] ^= 1;
    EXPECT_NE(captured([] {
                EXPECT_EQ(qx_check_asu_consistent(), failed);
              }).find("qx_check_asu_consistent():"),
              std::string::npos);
    std::filesystem::remove(scratch_.file("spg.data"));
  }
}

TEST_F(Asu, limitsOnTheGridIncludeTheirBounds) {
  set_up("P 1", 48, 50, 5);
  ASSERT_EQ(qx_set_qxasu_limit(0.25F, 0.50001F, 0, 0.49999F, 0.1F, 0.5F), ok);
  ASSERT_EQ(qx_run_qxasu_checker(), ok);
  const qxasu& asu = *qx_get_qxasu();
  EXPECT_EQ(asu.low[0], 0);
  EXPECT_EQ(asu.grid_high[0], 25);
  EXPECT_EQ(asu.grid_high[1], 26);
  EXPECT_EQ(asu.grid_high[2], 3);  // 2.5 goes to the even 2
  double box[6];
  ASSERT_EQ(qx_calc_box_with_asu(&box[0], &box[1], &box[2], &box[3], &box[4], &box[5], 3.0), ok);
  EXPECT_NEAR(box[0], -0.1, 1e-12);
  EXPECT_NEAR(box[1], 0.60001, 1e-7);
  EXPECT_NEAR(box[5], 0.6, 1e-7);
}

TEST_F(Asu, densitiesAreClearedOutsideTheUnit) {
  set_up("P 21 21 21", 8, 8, 8);
  double*** cell = xopen_3d_double(8, 8, 8, "t");
  double*** part = xopen_3d_double(3, 4, 5, "t");
  std::fill_n(cell[0][0], 512, 1.0);
  std::fill_n(part[0][0], 60, 1.0);
  ASSERT_EQ(qx_clean_non_ASU_gridpoints(cell), ok);
  ASSERT_EQ(qx_clean_non_ASU_sub_gridpoints(part, -2, 6, 15, 5, 4, 3), ok);
  const qxasu& asu = *qx_get_qxasu();
  double left = 0;
  for (int i = 0; i < 512; ++i) {
    EXPECT_EQ(cell[0][0][i], asu.mask[0][0][i]);
    left += cell[0][0][i];
  }
  EXPECT_EQ(left, 128);
  for (int z = 0; z < 3; ++z) {
    for (int y = 0; y < 4; ++y) {
      for (int x = 0; x < 5; ++x)
        EXPECT_EQ(part[z][y][x], cell[(z + 15) % 8][(y + 6) % 8][(x + 6) % 8]);
    }
  }
  std::vector<std::int64_t> order(512);
  std::int64_t unique = 0;
  ASSERT_EQ(qx_sortout_ASU_grid_points(order.data(), &unique), ok);
  EXPECT_EQ(unique, 128);
  for (std::int64_t i = 0; i < 512; ++i) {
    EXPECT_EQ(cell[0][0][order[static_cast<std::size_t>(i)]], i < unique ? 1.0 : 0.0);
  }
}

TEST_F(Asu, pointsWithoutAMateAreReported) {
  set_up("P -1", 6, 6, 6);
  ASSERT_EQ(qx_build_ASU(), ok);
  const qxasu* asu = qx_get_qxasu();
  std::int32_t mate[3];
  ASSERT_EQ(qx_get_asubox_grid_point(asu->nops, asu->rotations, asu->translations, 6, 6, 4, 6, 6, 6,
                                     -1, -1, -1, &mate[0], &mate[1], &mate[2]),
            ok);
  EXPECT_EQ(mate[0], 1);
  EXPECT_EQ(captured([&] {
              EXPECT_EQ(qx_get_asubox_grid_point(asu->nops, asu->rotations, asu->translations, 1, 1,
                                                 1, 6, 6, 6, 2, 3, 4, &mate[0], &mate[1], &mate[2]),
                        failed);
            }),
            "\n qx_get_asubox_grid_point(): \nCan not find symmetry grid point inside the ASU box "
            "for (2 3 4) \n");
  set_up("P 1", 6, 6, 6);
  ASSERT_EQ(qx_build_ASU(), ok);
  asu = qx_get_qxasu();
  EXPECT_EQ(captured([&] {
              EXPECT_EQ(qx_get_asu_grid_point(1, asu->rotations, asu->translations, 6, 6, 6, 6, 6,
                                              6, asu->mask, -1, 0, 0, &mate[0], &mate[1], &mate[2]),
                        failed);
            }),
            "\n qx_get_asu_grid_point(): \nFailed to get the ASU grid point for non-ASU grid point "
            "-1 0 0 \n");
}

TEST_F(Asu, gridsThatTheSymmetryDoesNotKeepAreReported) {
  set_up("P 4", 12, 16, 12);
  const std::string output = captured([] { EXPECT_EQ(qx_build_ASU(), failed); });
  EXPECT_NE(output.find("The symmetry does not map the grid of 12 x 16 x 12 points onto itself"),
            std::string::npos)
      << output;
}

std::int64_t allocations_left = 0;

void* failing_allocator(std::size_t size) {
  return allocations_left-- > 0 ? std::malloc(size) : nullptr;
}

TEST_F(Asu, everyFailedAllocationEndsTheRun) {
  Status status = failed;
  for (std::int64_t n = 0; status != ok; ++n) {
    ASSERT_LT(n, 100);
    set_up("P 21", 4, 4, 4);
    allocations_left = n;
    const SystemAllocator usual = set_system_allocator(failing_allocator);
    (void)captured([&] { status = qx_build_ASU(); });
    set_system_allocator(usual);
    EXPECT_EQ(qx_exist_quorix(), status == ok ? 1 : 0) << n;
  }
}

TEST_F(Asu, aMissingGridIsReported) {
  ASSERT_EQ(qx_new_qxxcry(), ok);
  const std::string output = captured([] { EXPECT_EQ(qx_build_ASU(), failed); });
  EXPECT_NE(output.find("\nqx_build_ASU():\nqxgrid object has not been created yet \n"),
            std::string::npos)
      << output;
}

}  // namespace
}  // namespace qx::test
