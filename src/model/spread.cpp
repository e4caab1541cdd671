#include "model/spread.h"

#include "model/spread_kernels.h"
#include "model/spread_place.h"
#include "model/spread_products.h"
#include "model/spread_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace qx {

namespace {

// The values of a plane, kept by rows.
class Slice {
 public:
  // `bound`: no exponent within the radius exceeds it.
  Slice(const SpreadGrid& grid, const Place& place, std::int32_t n, const double (*precision)[6],
        double bound) noexcept
      : grid_(grid),
        place_(place),
        slice_{n, place.x, place.offset, place.y, place.more, place.lanes},
        precision_(precision) {
    alignas(64) double ones[spread_padding];
    alignas(64) double forms[spread_padding] = {};
    std::fill_n(ones, spread_padding, 1.0);
    for (std::int32_t i = 0; i < n; ++i) {
      const double(&p)[6] = precision[i];
      forms[i] =
          p[0] * grid.bx * grid.bx + p[1] * grid.by * grid.by + 2.0 * p[3] * grid.bx * grid.by;
    }
    spread_kernels().heights(ones, forms, 1.0, change_);
    // In the first row a column may lie this much farther off than where it cuts the sphere.
    constexpr double most = 470.0;
    const double reach = 1.0 + 2.0 * std::fabs(shift_of_rows(grid));
    steady_ = bound * (1.0 + reach * reach) <= most;
  }

  // Values in the circle about the atom's axis at a height above it; false when none is in the
  // cell.
  bool fill(double circle, double dz, double z) noexcept {
    const double y_offset = dz * grid_.cy - place_.gy * grid_.by;
    rows_ = indices_within(circle, 1.0 / grid_.by, y_offset, grid_.ny);
    lanes_ = lanes_within(circle, dz, y_offset);
    if (rows_.last < rows_.first || lanes_.last < lanes_.first) return false;
    const std::int32_t n = rows_.last - rows_.first + 1;
    const std::int32_t width = lanes_.last - lanes_.first + 1;
    lay_points(lanes_, grid_.ax, 0.0, place_.x, place_.x_squared);
    lay_points(rows_, grid_.by, y_offset, place_.y, place_.y_squared);
    for (std::int32_t i = 0; i < n; ++i) {
      place_.offset[i] =
          (rows_.first + i - place_.gy) * grid_.bx + dz * grid_.cx - place_.gx * grid_.ax;
    }
    spread_kernels().fill_slice(slice_, {precision_, change_, z, grid_.bx, grid_.by, steady_}, n,
                                width);
    return true;
  }

  void add(std::int32_t plane, double dz, double rest, const double* heights) noexcept {
    const double circle = std::sqrt(rest);
    const double y_offset = dz * grid_.cy - place_.gy * grid_.by;
    const IndexRange rows = indices_within(circle, 1.0 / grid_.by, y_offset, grid_.ny);
    const IndexRange lanes = lanes_within(circle, dz, y_offset);
    if (rows.last < rows.first || lanes.last < lanes.first) return;
    const std::int32_t first = rows.first - rows_.first;
    const std::int32_t left = lanes.first - lanes_.first;
    SpreadSlice here = slice_;
    here.x += left;
    here.values += left;
    spread_kernels().add_slice(
        {grid_.row(plane, rows.first) + lanes.first, grid_.nx, rows.last - rows.first + 1,
         lanes.last - lanes.first + 1, rest, place_.y_squared + first},
        here, first, heights);
  }

 private:
  alignas(64) double change_[spread_padding];

  // Points that the circle can hold in any row.
  [[nodiscard]] IndexRange lanes_within(double circle, double dz, double y_offset) const noexcept {
    const double middle = dz * grid_.cx - place_.gx * grid_.ax - place_.gy * grid_.bx;
    return indices_within(circle * widening(grid_), 1.0 / grid_.ax,
                          middle - y_offset * shift_of_rows(grid_), grid_.nx);
  }

  const SpreadGrid& grid_;
  const Place& place_;
  SpreadSlice slice_;
  const double (*precision_)[6];
  bool steady_ = false;
  IndexRange rows_ = {0, -1};
  IndexRange lanes_ = {0, -1};
};

// Isotropic, rows shifted: the planes differ by a height where the third axis stands upright.
void spread_shifted(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept {
  const bool leaning = !is_nothing(grid.cx, grid.ax) || !is_nothing(grid.cy, grid.by);
  if (!leaning && is_nothing(2.0 * grid.bx + grid.ax, grid.ax) && halves_fit(grid, place.radius)) {
    return spread_by_halves(grid, atom, place);
  }
  const Heights terms = heights_of(atom);
  double precision[most_gaussians][6] = {};
  double sharpest = 0.0;
  for (std::int32_t i = 0; i < atom.n; ++i) {
    for (int j = 0; j < 3; ++j) precision[i][j] = 2.0 * atom.exponent[i];
    sharpest = std::max(sharpest, atom.exponent[i]);
  }
  Slice slice(grid, place, atom.n, precision, sharpest * place.radius * place.radius);
  if (!leaning && !slice.fill(place.radius, 0.0, 0.0)) return;
  for_each_plane(grid, place, [&](std::int32_t plane, double dz, double z, double rest) {
    if (leaning) {
      if (slice.fill(std::sqrt(rest), dz, z)) slice.add(plane, dz, rest, terms.amplitude);
      return;
    }
    alignas(64) double heights[spread_padding];
    spread_kernels().heights(terms.amplitude, terms.exponent, z, heights);
    slice.add(plane, 0.0, rest, heights);
  });
}

}  // namespace

std::size_t spread_scratch_size(const SpreadGrid& grid, double radius) noexcept {
  const auto lanes = static_cast<std::size_t>(most_lanes(grid, radius));
  const auto rows = static_cast<std::size_t>(most_rows(grid, radius));
  const std::size_t combs = 2 * (2 + most_gaussians) * (lanes + rows);  // two halves
  const std::size_t slice = 2 * lanes + 3 * rows + most_gaussians * lanes * rows;
  return 8 + lanes + std::max(combs, slice);
}

void spread_iso(const SpreadGrid& grid, const Gaussians& atom, const double centre[3],
                double radius, double* scratch) noexcept {
  const Place place(grid, centre, radius, scratch);
  if (place.planes.last < place.planes.first) return;  // between the planes of a sub-box
  if (is_nothing(grid.bx, grid.ax)) {
    spread_products(grid, atom, place);
  } else {
    spread_shifted(grid, atom, place);
  }
}

void spread_aniso(const SpreadGrid& grid, const AnisoGaussians& atom, const double centre[3],
                  double radius, double* scratch) noexcept {
  const Place place(grid, centre, radius, scratch);
  double sharpest = 0.0;
  for (std::int32_t i = 0; i < atom.n; ++i) {
    const double(&p)[6] = atom.precision[i];
    sharpest = std::max(sharpest, 0.5 * (p[0] + p[1] + p[2]));
  }
  Slice slice(grid, place, atom.n, atom.precision, sharpest * radius * radius);
  for_each_plane(grid, place, [&](std::int32_t plane, double dz, double z, double rest) {
    if (slice.fill(std::sqrt(rest), dz, z)) slice.add(plane, dz, rest, atom.amplitude);
  });
}

void moments_aniso(const SpreadGrid& grid, const AnisoGaussians& atom, const double centre[3],
                   double radius, double (*moments)[10]) noexcept {
  for_each_row(
      grid, centre, radius, [](double, double) {},
      [&](const SphereRow& row) {
        const double* map = grid.row(row.plane, row.iy);
        const double y = row.y;
        const double z = row.z;
        for (std::int32_t ix = row.ix.first; ix <= row.ix.last; ++ix) {
          const double x = ix * grid.ax + row.x_offset;
          const double basis[10] = {1, x, y, z, x * x, y * y, z * z, x * y, x * z, y * z};
          for (std::int32_t i = 0; i < atom.n; ++i) {
            const double(&p)[6] = atom.precision[i];
            const double q = p[0] * basis[4] + p[1] * basis[5] + p[2] * basis[6] +
                             2.0 * (p[3] * basis[7] + p[4] * basis[8] + p[5] * basis[9]);
            const double weight = map[ix] * atom.amplitude[i] * std::exp(-0.5 * q);
            for (std::int32_t j = 0; j < 10; ++j) moments[i][j] += weight * basis[j];
          }
        }
      });
}

}  // namespace qx
