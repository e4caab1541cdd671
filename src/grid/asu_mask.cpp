#include "grid/asu_mask.h"

#include "core/wrapped.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

struct Point {
  std::int32_t x, y, z;
  friend bool operator<(const Point& a, const Point& b) noexcept {
    if (a.z != b.z) return a.z < b.z;
    return a.y != b.y ? a.y < b.y : a.x < b.x;
  }
};

}  // namespace

bool grid_operator(const double op[16], const std::int32_t n[3], std::int32_t rotation[9],
                   std::int32_t translation[3]) noexcept {
  for (int row = 0; row < 3; ++row) {
    const double shift = op[4 * row + 3] * n[row];
    translation[row] = static_cast<std::int32_t>(std::lround(shift));
    if (std::fabs(shift - translation[row]) > 1e-3) return false;
    for (int column = 0; column < 3; ++column) {
      const double element = op[4 * row + column];
      rotation[3 * row + column] = static_cast<std::int32_t>(std::lround(element));
      if (rotation[3 * row + column] != 0 && n[row] != n[column]) return false;
    }
  }
  return true;
}

void move_point(const GridOperators& ops, std::int32_t op, const std::int32_t period[3],
                const std::int32_t point[3], std::int32_t out[3]) noexcept {
  const std::int32_t* r = ops.rotations[op];
  const std::int32_t* t = ops.translations[op];
  for (int row = 0; row < 3; ++row, r += 3) {
    const std::int64_t moved = std::int64_t{r[0]} * point[0] + std::int64_t{r[1]} * point[1] +
                               std::int64_t{r[2]} * point[2];
    out[row] = wrapped(moved + t[row], period[row]);
  }
}

namespace {

constexpr std::int32_t stretch = 64;

// The first mates of up to `stretch` points from `start` on along x. An operator moves its mates by
// the same step from point to point, so only their start needs a division.
void first_mates(const GridOperators& ops, const std::int32_t period[3],
                 const std::int32_t start[3], std::int32_t count, Point* first) noexcept {
  for (std::int32_t i = 0; i < count; ++i) first[i] = {start[0] + i, start[1], start[2]};
  for (std::int32_t op = 0; op < ops.count; ++op) {
    std::int32_t mate[3];
    std::int32_t step[3];
    move_point(ops, op, period, start, mate);
    for (int axis = 0; axis < 3; ++axis)
      step[axis] = wrapped(ops.rotations[op][3 * axis], period[axis]);
    for (std::int32_t i = 0; i < count; ++i) {
      first[i] = std::min(first[i], Point{mate[0], mate[1], mate[2]});
      for (int axis = 0; axis < 3; ++axis) {
        mate[axis] += step[axis];
        if (mate[axis] >= period[axis]) mate[axis] -= period[axis];
      }
    }
  }
}

}  // namespace

AsuSummary mark_asymmetric_unit(const GridOperators& ops, View3<char> mask,
                                View3<std::int16_t> counts) noexcept {
  const std::int32_t period[3] = {static_cast<std::int32_t>(mask.n2),
                                  static_cast<std::int32_t>(mask.n1),
                                  static_cast<std::int32_t>(mask.n0)};
  std::fill_n(mask.data, mask.size(), '\0');
  std::fill_n(counts.data, counts.size(), std::int16_t{0});
  AsuSummary summary;
  Point first[stretch];
  std::int32_t start[3];
  for (start[2] = 0; start[2] < period[2]; ++start[2]) {
    for (start[1] = 0; start[1] < period[1]; ++start[1]) {
      for (start[0] = 0; start[0] < period[0]; start[0] += stretch) {
        const std::int32_t count = std::min(stretch, period[0] - start[0]);
        first_mates(ops, period, start, count, first);
        for (std::int32_t i = 0; i < count; ++i) {
          mask(first[i].z, first[i].y, first[i].x) = 1;
          ++counts(first[i].z, first[i].y, first[i].x);
        }
      }
    }
  }
  for (std::int32_t z = 0; z < period[2]; ++z) {
    for (std::int32_t y = 0; y < period[1]; ++y) {
      for (std::int32_t x = 0; x < period[0]; ++x) {
        if (!mask(z, y, x)) continue;
        ++summary.points;
        if (counts(z, y, x) < ops.count) ++summary.special;
        summary.extent[0] = std::max(summary.extent[0], x + 1);
        summary.extent[1] = std::max(summary.extent[1], y + 1);
        summary.extent[2] = z + 1;
      }
    }
  }
  return summary;
}

bool find_mate(const GridOperators& ops, const std::int32_t box[3], const std::int32_t period[3],
               const char* const* const* mask, const std::int32_t point[3],
               std::int32_t out[3]) noexcept {
  const auto passes = [&](const std::int32_t p[3]) {
    for (int axis = 0; axis < 3; ++axis) {
      if (p[axis] < 0 || p[axis] >= box[axis]) return false;
    }
    return !mask || mask[p[2]][p[1]][p[0]] != 0;
  };
  std::copy_n(point, 3, out);
  if (passes(out)) return true;
  for (std::int32_t op = 1; op < ops.count; ++op) {
    move_point(ops, op, period, point, out);
    if (passes(out)) return true;
  }
  return false;
}

}  // namespace qx
