// Half a spectrum of a real density against the general transform of the whole.
#include "core/tagged.h"
#include "fft/transform_half.h"
#include "support/engine.h"

#include <quorix/fft.h>
#include <quorix/memory.h>

#include <cmath>
#include <random>
#include <tuple>

namespace qx::test {
namespace {

using Size = std::tuple<int, int, int, int>;  // nx, ny, nz, hmax

class ForwardHalf3d : public Engine, public ::testing::WithParamInterface<Size> {};

// Rows and planes that hold nothing, as between the atoms, take a way of their own.
bool is_empty(int iz, int iy) { return iz % 5 == 2 || (iy + iz) % 7 > 3; }

TEST_P(ForwardHalf3d, isTheGeneralTransformWhereItIsAskedFor) {
  const auto [nx, ny, nz, hmax] = GetParam();
  double*** density = xopen_3d_double(nz, ny, nx, "rho");
  double*** re = xopen_3d_double(nz, ny, nx, "re");
  double*** im = xopen_3d_double(nz, ny, nx, "im");
  const auto n = static_cast<std::size_t>(nx * ny * nz);
  Tagged<double> block(n, "block");
  std::mt19937 random(17);
  std::normal_distribution<double> normal;
  for (std::size_t i = 0; i < n; ++i) {
    const int row = static_cast<int>(i) / nx;
    density[0][0][i] = block[i] = is_empty(row / ny, row % ny) ? 0.0 : normal(random);
  }
  ASSERT_EQ(qx_forward_rfft_3D(nz, ny, nx, density, re, im), ok);

  std::vector<std::int32_t> columns(static_cast<std::size_t>(ny));
  for (std::size_t iy = 0; iy < columns.size(); ++iy) {
    columns[iy] = static_cast<std::int32_t>(random() % static_cast<unsigned>(hmax + 2));
  }
  ASSERT_EQ(forward_half_3d({nx, ny, nz, hmax}, columns.data(), block.get()), ok);
  const double bar = 1e-14 * std::sqrt(static_cast<double>(n)) * 10;
  for (int iz = 0; iz < nz; ++iz) {
    for (int iy = 0; iy < ny; ++iy) {
      const double* row = block.get() + (iz * ny + iy) * nx;
      for (int h = 0; h < columns[static_cast<std::size_t>(iy)]; ++h) {
        ASSERT_NEAR(row[h], re[iz][iy][h], bar) << iz << " " << iy << " " << h;
        ASSERT_NEAR(row[hmax + 1 + h], im[iz][iy][h], bar) << iz << " " << iy << " " << h;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(sizes, ForwardHalf3d,
                         ::testing::Values(Size{2, 1, 1, 0}, Size{4, 3, 2, 1}, Size{8, 5, 1, 3},
                                           Size{9, 10, 15, 3}, Size{30, 24, 20, 9},
                                           Size{48, 45, 64, 23}, Size{25, 27, 16, 11}));

TEST_F(ForwardHalf3d, refusesWhatDoesNotFit) {
  double block[8] = {};
  const std::int32_t columns[1] = {1};
  const std::string output = captured([&] {
    EXPECT_EQ(forward_half_3d({8, 1, 1, 4}, columns, block), failed);
  });
  EXPECT_NE(output.find("does not fit into the grid."), std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

}  // namespace
}  // namespace qx::test
