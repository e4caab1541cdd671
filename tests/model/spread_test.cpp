// Every table of kernels against the sum of Gaussians, point by point.
#include "model/spread.h"

#include "model/spread_kernels.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

using qx::AnisoGaussians;
using qx::Gaussians;
using qx::SpreadGrid;

struct Cell {
  const char* name;
  double bx, by, cx, cy, cz;  // of a step, Angstrom
};
constexpr Cell cells[] = {
    {"right angles", 4e-17, 0.61, 0, 3e-17, 0.58}, {"hexagonal", -0.325, 0.5629, 0, 0, 0.7},
    {"monoclinic", 0, 0.6, -0.3, 0, 0.55},         {"upright a", 0, 0.6, 0, 0.2, 0.55},
    {"triclinic", -0.2, 0.6, -0.1, 0.15, 0.6},     {"sharp angles", 0.45, 0.44, 0.5, 0.2, 0.4}};

class Spreading : public ::testing::TestWithParam<const qx::SpreadKernels*> {
 protected:
  void SetUp() override { qx::force_spread_kernels(GetParam()); }
  void TearDown() override { qx::force_spread_kernels(nullptr); }

  static constexpr std::int32_t nx = 27, ny = 25, nz = 26;
  std::vector<double> map_ = std::vector<double>(std::size_t{nx} * ny * nz);

  SpreadGrid grid(const Cell& cell, std::vector<double>& map) const {
    return {nx, ny, nz, 0, 1, nz, 0.65, cell.bx, cell.by, cell.cx, cell.cy, cell.cz, map.data()};
  }
  SpreadGrid grid(const Cell& cell) { return grid(cell, map_); }
};

// Blunt and sharp: with the latter, values at the radius are beyond the smallest double.
AnisoGaussians terms(int n, double sharpest, bool aniso) {
  AnisoGaussians out;
  out.n = n;
  for (int i = 0; i < n; ++i) {
    const double p = sharpest / (1 << (2 * i));
    const double spread[6] = {1, 0.7, 1.2, 0.3, -0.35, 0.25};
    out.amplitude[i] = 1.0 + i - 0.3 * i * i;
    for (int j = 0; j < 6; ++j) out.precision[i][j] = p * (aniso ? spread[j] : j < 3);
  }
  return out;
}

Gaussians isotropic(const AnisoGaussians& from) {
  Gaussians out;
  out.n = from.n;
  for (int i = 0; i < from.n; ++i) {
    out.amplitude[i] = from.amplitude[i];
    out.exponent[i] = 0.5 * from.precision[i][0];
  }
  return out;
}

void spread(const SpreadGrid& grid, const AnisoGaussians& atom, bool aniso, const double at[3],
            double radius) {
  std::vector<double> scratch(qx::spread_scratch_size(grid, radius));
  if (aniso) {
    qx::spread_aniso(grid, atom, at, radius, scratch.data());
  } else {
    qx::spread_iso(grid, isotropic(atom), at, radius, scratch.data());
  }
}

// The sum itself; `touched` tells of points at the very radius that they may have either.
double sum_at(const SpreadGrid& g, const AnisoGaussians& atom, const double at[3], double radius,
              const int (&i)[3], int& touched) {
  const double d[3] = {i[0] - at[0] * g.nx, i[1] - at[1] * g.ny, i[2] - at[2] * g.nz};
  const double x = d[0] * g.ax + d[1] * g.bx + d[2] * g.cx;
  const double y = d[1] * g.by + d[2] * g.cy;
  const double z = d[2] * g.cz;
  const double r = std::sqrt(x * x + y * y + z * z);
  touched = std::fabs(r - radius) < 1e-12 ? -1 : int(r < radius);
  double sum = 0.0;
  for (int k = 0; k < atom.n; ++k) {
    const double(&p)[6] = atom.precision[k];
    const double q = p[0] * x * x + p[1] * y * y + p[2] * z * z +
                     2.0 * (p[3] * x * y + p[4] * x * z + p[5] * y * z);
    sum += atom.amplitude[k] * std::exp(-0.5 * q);
  }
  return sum;
}

TEST_P(Spreading, isTheSumOfGaussiansWithinTheRadiusAndTouchesNothingElse) {
  constexpr double untouched = 1e3;
  constexpr double centres[][3] = {{0.5, 0.52, 0.49}, {0.013, 0.99, 0.02}, {1.05, -0.04, 0.6}};
  int n = 0;
  for (const Cell& cell : cells) {
    for (const double radius : {0.2, 2.6, 5.3, 8.0}) {
      for (const double sharpest : {0.9, 90.0}) {
        for (const bool aniso : {false, true}) {
          n = n % qx::most_gaussians + 1;
          const AnisoGaussians atom = terms(n, sharpest, aniso);
          const double(&at)[3] = centres[n % 3];
          std::fill(map_.begin(), map_.end(), untouched);
          const SpreadGrid g = grid(cell);
          spread(g, atom, aniso, at, radius);
          for (int z = 0, p = 0; z < nz; ++z) {
            for (int y = 0; y < ny; ++y) {
              for (int x = 0; x < nx; ++x, ++p) {
                int touched = 0;
                const double want = sum_at(g, atom, at, radius, {x, y, z}, touched);
                if (touched < 0) continue;
                ASSERT_NEAR(map_[std::size_t(p)] - untouched, touched ? want : 0.0, 2e-12)
                    << cell.name << " " << radius << " " << sharpest << (aniso ? " aniso" : "")
                    << " at " << x << " " << y << " " << z;
              }
            }
          }
        }
      }
    }
  }
}

TEST_P(Spreading, aPlaneIsTheSameInEveryBoxAndComesOffAgain) {
  const double at[3] = {0.31, 0.44, 0.53};
  for (const Cell& cell : cells) {
    for (const bool aniso : {false, true}) {
      AnisoGaussians atom = terms(5, 2.0, aniso);
      std::fill(map_.begin(), map_.end(), 0.0);
      const SpreadGrid whole = grid(cell);
      spread(whole, atom, aniso, at, 4.1);
      std::vector<double> parts(map_.size());
      for (const std::int32_t first : {0, 1}) {  // planes alternate between two boxes, of two slabs
        for (const std::int32_t slab : {0, 1}) {
          SpreadGrid part = grid(cell, parts);
          part.z_step = 2;
          part.z_first = first + slab * 14;
          part.nplanes = slab == 0 ? 7 : 6;
          std::vector<double> box(std::size_t{nx} * ny * 7);
          part.data = box.data();
          spread(part, atom, aniso, at, 4.1);
          for (std::int32_t k = 0; k < part.nplanes; ++k) {
            std::copy_n(box.data() + std::ptrdiff_t{k} * nx * ny, nx * ny,
                        parts.data() + std::ptrdiff_t{part.z_first + 2 * k} * nx * ny);
          }
        }
      }
      EXPECT_EQ(parts, map_) << cell.name;
      for (std::int32_t i = 0; i < atom.n; ++i) atom.amplitude[i] = -atom.amplitude[i];
      spread(whole, atom, aniso, at, 4.1);
      EXPECT_EQ(map_, std::vector<double>(map_.size())) << cell.name;
    }
  }
}

#if defined(__x86_64__)
// Arithmetic with one denormal number takes as long as with a hundred others.
TEST_P(Spreading, meetsNoDenormalNumberLeftInScratch) {
  constexpr unsigned met_denormal = 2;  // of the control and status register
  for (const Cell& cell : cells) {
    for (const bool aniso : {false, true}) {
      for (const double u : {0.02, 0.5, 0.53}) {
        const SpreadGrid g = grid(cell);
        const double at[3] = {u, 0.41, 0.46};
        std::vector<double> scratch(qx::spread_scratch_size(g, 3.3), 1e-310);
        const AnisoGaussians atom = terms(5, 3.0, aniso);
        _mm_setcsr(_mm_getcsr() & ~met_denormal);
        if (aniso) {
          qx::spread_aniso(g, atom, at, 3.3, scratch.data());
        } else {
          qx::spread_iso(g, isotropic(atom), at, 3.3, scratch.data());
        }
        EXPECT_EQ(_mm_getcsr() & met_denormal, 0U) << cell.name << (aniso ? " aniso" : "");
      }
    }
  }
}
#endif

std::vector<const qx::SpreadKernels*> available() {
  const qx::SpreadKernels* tables[3];
  return {tables, tables + qx::list_spread_kernels(tables)};
}

INSTANTIATE_TEST_SUITE_P(kernels, Spreading, ::testing::ValuesIn(available()),
                         [](const auto& row) { return std::string(row.param->name); });

}  // namespace
