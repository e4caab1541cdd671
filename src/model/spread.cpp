#include "model/spread.h"

#include "model/spread_kernels.h"
#include "model/spread_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace qx {

namespace {

// Whole registers from any of n places on.
constexpr std::int32_t padded(std::int32_t n) noexcept {
  return (n + 2 * spread_padding - 2) / spread_padding * spread_padding;
}

// How far rows shift for each Angstrom of y, and what that makes of a circle's width in points.
double shift_of_rows(const SpreadGrid& grid) noexcept { return grid.bx / grid.by; }
double widening(const SpreadGrid& grid) noexcept {
  const double shift = shift_of_rows(grid);
  return std::sqrt(1.0 + shift * shift) * (1.0 + 1e-9);
}

std::int32_t most_points(double half, double step, std::int32_t n) noexcept {
  const double count = std::ceil(2.0 * half / step) + 2.0;
  return padded(count < n ? static_cast<std::int32_t>(count) : n);
}
std::int32_t most_lanes(const SpreadGrid& grid, double radius) noexcept {
  return most_points(radius * widening(grid), grid.ax, grid.nx);
}
std::int32_t most_rows(const SpreadGrid& grid, double radius) noexcept {
  return most_points(radius, grid.by, grid.ny);
}

// An axis at right angles to another has a component of some 1e-16 left along it.
bool is_nothing(double component, double step) noexcept {
  return std::fabs(component) < 1e-11 * step;
}

// An atom's Gaussians in whole registers; what is beyond the last adds nothing.
struct Heights {
  alignas(64) double amplitude[spread_padding] = {};
  alignas(64) double exponent[spread_padding] = {};
};

Heights heights_of(const Gaussians& atom) noexcept {
  Heights out;
  std::copy_n(atom.amplitude, atom.n, out.amplitude);
  std::copy_n(atom.exponent, atom.n, out.exponent);
  return out;
}

// Where the atom lies: centre in grid steps, and the arrays that every plane of it may use.
struct Place {
  double gx, gy, gz, radius;
  IndexRange planes;
  std::int32_t lanes, rows;  // room
  double *x, *x_squared, *y, *y_squared, *offset, *more;

  Place(const SpreadGrid& grid, const double centre[3], double r, double* scratch) noexcept
      : gx(centre[0] * grid.nx),
        gy(centre[1] * grid.ny),
        gz(centre[2] * grid.nz),
        radius(r),
        planes(planes_within(grid, centre, r * (1.0 + 1e-9))),  // the rest decides
        lanes(most_lanes(grid, r)),
        rows(most_rows(grid, r)) {
    const auto address = reinterpret_cast<std::uintptr_t>(scratch);
    x = reinterpret_cast<double*>((address + 63) & ~std::uintptr_t{63});
    x_squared = x + lanes;
    y = x_squared + lanes;
    y_squared = y + rows;
    offset = y_squared + rows;
    more = offset + rows;
  }
};

// Coordinates first * step + offset, ... and their squares.
void lay_points(IndexRange range, double step, double offset, double* x, double* squares) noexcept {
  const std::int32_t n = range.last - range.first + 1;
  for (std::int32_t i = 0; i < n; ++i) x[i] = (range.first + i) * step + offset;
  for (std::int32_t i = n; i < padded(n); ++i) x[i] = off_the_row;
  for (std::int32_t i = 0; i < padded(n); ++i) squares[i] = x[i] * x[i];
}

// Calls layer(plane, dz in steps, z, radius^2 - z^2) for each plane that cuts the sphere.
template <class Layer>
void for_each_plane(const SpreadGrid& grid, const Place& place, Layer layer) noexcept {
  for (std::int32_t plane = place.planes.first; plane <= place.planes.last; ++plane) {
    const double dz = grid.z_first + plane * grid.z_step - place.gz;
    const double z = dz * grid.cz;
    const double rest = place.radius * place.radius - z * z;
    if (rest >= 0.0) layer(plane, dz, z, rest);
  }
}

// Values along one axis at the points about the atom, found again when the axis' offset moves.
class Comb {
 public:
  Comb(const Gaussians& atom, double radius, double step, std::int32_t n, std::int32_t room,
       double* x, double* squares, double* values) noexcept
      : atom_(atom),
        radius_(radius),
        step_(step),
        n_(n),
        room_(room),
        x_(x),
        squares_(squares),
        values_(values) {}

  // False when no point is in the cell.
  bool stand(double offset) noexcept {
    if (offset == offset_) return range_.first <= range_.last;
    offset_ = offset;
    range_ = indices_within(radius_, 1.0 / step_, offset, n_);
    if (range_.last < range_.first) return false;
    lay_points(range_, step_, offset, x_, squares_);
    spread_kernels().comb(atom_.n, atom_.exponent, range_.last - range_.first + 1, x_, values_,
                          room_);
    return true;
  }
  [[nodiscard]] IndexRange range() const noexcept { return range_; }

 private:
  const Gaussians& atom_;
  double radius_, step_;
  std::int32_t n_, room_;
  double *x_, *squares_, *values_;
  double offset_ = std::numeric_limits<double>::quiet_NaN();
  IndexRange range_ = {0, -1};
};

// Isotropic, rows not shifted within a plane: values along x times values along y times a height.
void spread_products(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept {
  const SpreadKernels& kernels = spread_kernels();
  const Heights terms = heights_of(atom);
  double* along_x = place.more;
  double* along_y = along_x + most_gaussians * place.lanes;
  Comb comb_x(atom, place.radius, grid.ax, grid.nx, place.lanes, place.x, place.x_squared, along_x);
  Comb comb_y(atom, place.radius, grid.by, grid.ny, place.rows, place.y, place.y_squared, along_y);
  const double per_x = 1.0 / grid.ax;
  const double per_y = 1.0 / grid.by;
  const double cx = is_nothing(grid.cx, grid.ax) ? 0.0 : grid.cx;
  const double cy = is_nothing(grid.cy, grid.by) ? 0.0 : grid.cy;
  for_each_plane(grid, place, [&](std::int32_t plane, double dz, double z, double rest) {
    const double x_offset = dz * cx - place.gx * grid.ax;
    const double y_offset = dz * cy - place.gy * grid.by;
    const double circle = std::sqrt(rest);
    const IndexRange rows = indices_within(circle, per_y, y_offset, grid.ny);
    const IndexRange lanes = indices_within(circle, per_x, x_offset, grid.nx);
    if (rows.last < rows.first || lanes.last < lanes.first || !comb_x.stand(x_offset) ||
        !comb_y.stand(y_offset)) {
      return;
    }
    const std::int32_t left = lanes.first - comb_x.range().first;
    const std::int32_t skipped = rows.first - comb_y.range().first;
    alignas(64) double heights[spread_padding];
    kernels.heights(terms.amplitude, terms.exponent, z, heights);
    kernels.add_combs(
        {grid.row(plane, rows.first) + lanes.first, grid.nx, rows.last - rows.first + 1,
         lanes.last - lanes.first + 1, rest, place.y_squared + skipped},
        {atom.n, place.x_squared + left, along_x + left, place.lanes, along_y + skipped,
         place.rows},
        heights);
  });
}

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

// Every other row of a grid whose rows shift by half a step: in these the same points, one on from
// row to row, lie at the same x, so that values are products there as well.
struct HalfOfRows {
  std::int32_t first_row, rows, first_lane, lanes;  // lanes of the first row; may lie beyond it
  double x_offset, y_offset;                        // of that row, and of its lane 0
  double *x, *x_squared, *y, *y_squared, *along_x, *along_y;
};

// True when no row of the sphere is cut by the cell's end.
bool keeps_within_rows(const SpreadGrid& grid, const Place& place) noexcept {
  const double reach = place.radius * widening(grid) / grid.ax + 1.0;
  return place.gx - reach >= 0.0 && place.gx + reach <= grid.nx - 1;
}

HalfOfRows half_of_rows(const SpreadGrid& grid, const Gaussians& atom, const Place& place,
                        IndexRange rows, std::int32_t parity) noexcept {
  HalfOfRows half = {};
  half.first_row = rows.first + parity;
  half.rows = (rows.last - half.first_row + 2) / 2;
  half.y_offset = (half.first_row - place.gy) * grid.by;
  half.x_offset = (half.first_row - place.gy) * grid.bx - place.gx * grid.ax;
  half.first_lane =
      static_cast<std::int32_t>(std::floor((-place.radius - half.x_offset) / grid.ax));
  half.lanes = static_cast<std::int32_t>(2.0 * place.radius / grid.ax) + 3;
  half.x_offset += half.first_lane * grid.ax;
  const std::int32_t size = 2 + most_gaussians;
  half.x = place.x_squared + parity * size * (place.lanes + place.rows);
  half.x_squared = half.x + place.lanes;
  half.along_x = half.x_squared + place.lanes;
  half.y = half.along_x + most_gaussians * place.lanes;
  half.y_squared = half.y + place.rows;
  half.along_y = half.y_squared + place.rows;
  const SpreadKernels& kernels = spread_kernels();
  lay_points({0, half.lanes - 1}, grid.ax, half.x_offset, half.x, half.x_squared);
  lay_points({0, half.rows - 1}, 2.0 * grid.by, half.y_offset, half.y, half.y_squared);
  kernels.comb(atom.n, atom.exponent, half.lanes, half.x, half.along_x, place.lanes);
  kernels.comb(atom.n, atom.exponent, half.rows, half.y, half.along_y, place.rows);
  return half;
}

void add_half(const SpreadGrid& grid, const Gaussians& atom, const Place& place,
              const HalfOfRows& half, std::int32_t plane, double rest,
              const double* heights) noexcept {
  const double circle = std::sqrt(rest);
  const IndexRange rows = indices_within(circle, 0.5 / grid.by, half.y_offset, half.rows);
  const IndexRange lanes = indices_within(circle, 1.0 / grid.ax, half.x_offset, half.lanes);
  if (rows.last < rows.first || lanes.last < lanes.first) return;
  const std::ptrdiff_t lane = std::ptrdiff_t{half.first_lane} + lanes.first + rows.first;
  spread_kernels().add_combs(
      {grid.row(plane, half.first_row + 2 * rows.first) + lane, 2 * std::ptrdiff_t{grid.nx} + 1,
       rows.last - rows.first + 1, lanes.last - lanes.first + 1, rest, half.y_squared + rows.first},
      {atom.n, half.x_squared + lanes.first, half.along_x + lanes.first, place.lanes,
       half.along_y + rows.first, place.rows},
      heights);
}

void spread_by_halves(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept {
  const IndexRange rows = indices_within(place.radius, 1.0 / grid.by, -place.gy * grid.by, grid.ny);
  if (rows.last < rows.first) return;
  const Heights terms = heights_of(atom);
  const HalfOfRows halves[] = {half_of_rows(grid, atom, place, rows, 0),
                               half_of_rows(grid, atom, place, rows, 1)};
  for_each_plane(grid, place, [&](std::int32_t plane, double, double z, double rest) {
    alignas(64) double heights[spread_padding];
    spread_kernels().heights(terms.amplitude, terms.exponent, z, heights);
    for (const HalfOfRows& half : halves) {
      add_half(grid, atom, place, half, plane, rest, heights);
    }
  });
}

// Isotropic, rows shifted: the planes differ by a height where the third axis stands upright.
void spread_shifted(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept {
  const bool leaning = !is_nothing(grid.cx, grid.ax) || !is_nothing(grid.cy, grid.by);
  if (!leaning && is_nothing(2.0 * grid.bx + grid.ax, grid.ax) && keeps_within_rows(grid, place)) {
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
