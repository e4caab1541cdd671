#include "model/spread_products.h"

#include <limits>

namespace qx {

namespace {

// Few rows are all gone through in every plane: a loop whose length the processor cannot foresee
// costs more than rows without points.
bool are_few(std::int32_t rows) noexcept { return rows <= 10; }

// Values along one axis at the points about the atom. Where the third axis leans, points move by
// `lean` from plane to plane: the ratio of values in neighbouring planes changes by a constant.
class Comb {
 public:
  // The coordinate of index i in the plane dz from the centre: i step + dz lean - g step.
  struct Axis {
    double step, lean, g;
    std::int32_t n;  // points in the cell
  };
  struct Room {
    double *x, *squares, *values, *ratios;
    std::int32_t pitch;
  };

  Comb(const SpreadGrid& grid, const Gaussians& atom, const Place& place, const Axis& axis,
       const Room& room) noexcept
      : atom_(atom), axis_(axis), room_(room), per_step_(1.0 / axis.step) {
    const double slope = axis.lean / grid.cz;
    const double reach = place.radius * leaning_reach(slope);
    range_ = indices_within(reach, per_step_, -axis.g * axis.step, axis.n);
    if (range_.last < range_.first) return;
    // Planes are counted from the first of the sphere, whichever of them are in the box.
    at_ = static_cast<std::int32_t>(std::ceil(place.gz - place.radius * (1.0 + 1e-9) / grid.cz));
    lay_points(range_, axis.step, offset(0.0), room.x, room.squares);
    if (axis.lean == 0.0) {
      exponentials(room.x);
      return;
    }
    steady_ = exponents_are_small(place.radius,
                                  reach + place.radius * std::fabs(slope) + std::fabs(axis.lean));
    if (!steady_) return;
    spread_kernels().leaning_comb(atom.n, atom.exponent, points(),
                                  {room.x, (at_ - place.gz) * axis.lean, axis.lean, change_},
                                  room.values, room.ratios, room.pitch);
  }

  // Goes on to a plane of the cell.
  void stand(std::int32_t iz, double dz) noexcept {
    if (axis_.lean == 0.0) return;
    const double shift = dz * axis_.lean;
    spread_kernels().squares(points(), room_.x, shift, room_.squares);
    if (!steady_) {
      double* const at = room_.ratios;
      for (std::int32_t m = 0; m < padded(points()); ++m) at[m] = room_.x[m] + shift;
      return exponentials(at);
    }
    for (; at_ < iz; ++at_) {
      spread_kernels().lean(atom_.n, points(), change_, room_.values, room_.ratios, room_.pitch);
    }
  }

  // The points that a circle can hold in the plane, as places in the comb.
  [[nodiscard]] IndexRange within(double circle, double dz) const noexcept {
    return places_within(circle, per_step_, offset(dz) + range_.first * axis_.step, points());
  }
  [[nodiscard]] IndexRange all() const noexcept { return {0, points() - 1}; }
  [[nodiscard]] bool few() const noexcept { return are_few(points()); }
  [[nodiscard]] std::int32_t first() const noexcept { return range_.first; }
  [[nodiscard]] bool empty() const noexcept { return range_.last < range_.first; }

 private:
  [[nodiscard]] std::int32_t points() const noexcept { return range_.last - range_.first + 1; }
  [[nodiscard]] double offset(double dz) const noexcept {
    return dz * axis_.lean - axis_.g * axis_.step;
  }
  void exponentials(const double* x) const noexcept {
    spread_kernels().comb(atom_.n, ones, atom_.exponent, points(), x, room_.values, room_.pitch);
  }
  // No value in use is lost below the smallest double, and no product of values gets there.
  bool exponents_are_small(double radius, double farthest) const noexcept {
    constexpr double most = 470.0;
    double sharpest = 0.0;
    for (std::int32_t i = 0; i < atom_.n; ++i) sharpest = std::max(sharpest, atom_.exponent[i]);
    return sharpest * (radius * radius + farthest * farthest) <= most;
  }

  const Gaussians& atom_;
  Axis axis_;
  Room room_;
  double per_step_;
  IndexRange range_ = {0, -1};
  std::int32_t at_ = 0;
  bool steady_ = false;
  double change_[most_gaussians] = {};
};

// Every other row of a grid whose rows shift by half a step: in these the same points, one on from
// row to row, lie at the same x, so that values are products there as well.
struct HalfOfRows {
  std::int32_t first_row, rows, first_lane, lanes;  // lanes of the first row; may lie beyond it
  double x_offset, y_offset;                        // of that row, and of its lane 0
  double lanes_per_x, rows_per_y;
  double *x, *x_squared, *y, *y_squared, *along_x, *along_y;
};

std::int32_t lanes_of_half(const SpreadGrid& grid, double radius) noexcept {
  return static_cast<std::int32_t>(2.0 * radius / grid.ax) + 3;
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
  half.lanes_per_x = 1.0 / grid.ax;
  half.rows_per_y = 0.5 / grid.by;
  half.lanes = lanes_of_half(grid, place.radius);
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
  kernels.comb(atom.n, ones, atom.exponent, half.lanes, half.x, half.along_x, place.lanes);
  kernels.comb(atom.n, ones, atom.exponent, half.rows, half.y, half.along_y, place.rows);
  return half;
}

// What of a half lies in a plane, from this lane and row of it on.
struct HalfLayer {
  std::int32_t lane, row;
  SpreadLayer layer;
};

// Rows slant against the half's lanes, so that the ends of the cell cut each at another lane.
HalfLayer layer_of_half(const SpreadGrid& grid, const HalfOfRows& half, std::int32_t plane,
                        double circle, double rest) noexcept {
  const IndexRange rows = are_few(half.rows)
                              ? IndexRange{0, half.rows - 1}
                              : places_within(circle, half.rows_per_y, half.y_offset, half.rows);
  IndexRange lanes = places_within(circle, half.lanes_per_x, half.x_offset, half.lanes);
  const std::int32_t ahead = half.first_lane + rows.first;
  const std::int32_t slant = rows.last - rows.first;
  const IndexRange in_row = {-ahead, grid.nx - 1 - ahead};  // of the first
  const bool cut = lanes.first < in_row.first || lanes.last > in_row.last - slant;
  lanes.first = std::max(lanes.first, in_row.first - slant);
  lanes.last = std::min(lanes.last, in_row.last);
  const std::ptrdiff_t lane = std::ptrdiff_t{ahead} + lanes.first;
  return {lanes.first,
          rows.first,
          {grid.row(plane, half.first_row + 2 * rows.first) + lane, 2 * std::ptrdiff_t{grid.nx} + 1,
           slant + 1, lanes.last - lanes.first + 1, rest, half.y_squared + rows.first, cut,
           in_row.first - lanes.first, in_row.last - lanes.first}};
}

}  // namespace

void spread_products(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept {
  const SpreadKernels& kernels = spread_kernels();
  PlaneHeights heights(grid, atom, place);
  double* along_x = place.more;
  double* along_y = along_x + 2 * most_gaussians * place.lanes;
  const double cx = is_nothing(grid.cx, grid.ax) ? 0.0 : grid.cx;
  const double cy = is_nothing(grid.cy, grid.by) ? 0.0 : grid.cy;
  Comb comb_x(
      grid, atom, place, {grid.ax, cx, place.gx, grid.nx},
      {place.x, place.x_squared, along_x, along_x + most_gaussians * place.lanes, place.lanes});
  Comb comb_y(
      grid, atom, place, {grid.by, cy, place.gy, grid.ny},
      {place.y, place.y_squared, along_y, along_y + most_gaussians * place.rows, place.rows});
  if (comb_x.empty() || comb_y.empty()) return;
  for_each_plane(grid, place, [&](std::int32_t plane, double dz, double, double rest) {
    const double circle = std::sqrt(rest);
    const IndexRange rows = comb_y.few() ? comb_y.all() : comb_y.within(circle, dz);
    const IndexRange lanes = comb_x.within(circle, dz);
    if (rows.last < rows.first || lanes.last < lanes.first) return;
    comb_x.stand(grid.z_first + plane * grid.z_step, dz);
    comb_y.stand(grid.z_first + plane * grid.z_step, dz);
    kernels.add_combs({grid.row(plane, comb_y.first() + rows.first) + comb_x.first() + lanes.first,
                       grid.nx, rows.last - rows.first + 1, lanes.last - lanes.first + 1, rest,
                       place.y_squared + rows.first},
                      {atom.n, place.x_squared + lanes.first, along_x + lanes.first, place.lanes,
                       along_y + rows.first, place.rows},
                      heights.at(plane));
  });
}

bool halves_fit(const SpreadGrid& grid, double radius) noexcept {
  return lanes_of_half(grid, radius) <= grid.nx;
}

void spread_by_halves(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept {
  const IndexRange rows = indices_within(place.radius, 1.0 / grid.by, -place.gy * grid.by, grid.ny);
  if (rows.last < rows.first) return;
  PlaneHeights heights(grid, atom, place);
  const SpreadKernels& kernels = spread_kernels();
  const HalfOfRows halves[] = {half_of_rows(grid, atom, place, rows, 0),
                               half_of_rows(grid, atom, place, rows, 1)};
  for_each_plane(grid, place, [&](std::int32_t plane, double, double, double rest) {
    const double circle = std::sqrt(rest);
    for (const HalfOfRows& half : halves) {
      const HalfLayer at = layer_of_half(grid, half, plane, circle, rest);
      if (at.layer.lanes > 0 && at.layer.rows > 0) {
        kernels.add_combs(at.layer,
                          {atom.n, half.x_squared + at.lane, half.along_x + at.lane, place.lanes,
                           half.along_y + at.row, place.rows},
                          heights.at(plane));
      }
    }
  });
}

}  // namespace qx
