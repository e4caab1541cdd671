#include "map/blobs.h"

#include "crystal/cell_geometry.h"
#include "map/interpolate.h"
#include "solvent/sphere_rows.h"

#include <cmath>
#include <cstddef>
#include <utility>

namespace qx {

namespace {

bool is_whole(const qx_density_box& box, int axis) noexcept {
  return box.counts[axis] == box.intervals[axis];
}

std::size_t row_number(const qx_density_box& box, std::int32_t y, std::int32_t z) noexcept {
  return static_cast<std::size_t>(z) * static_cast<std::size_t>(box.counts[1]) +
         static_cast<std::size_t>(y);
}

// Calls each_run(x, count) for what lies beyond the level in a row.
template <class EachRun>
void for_runs_of_row(const qx_density_box& box, double level, const std::uint8_t* mask,
                     std::size_t row, EachRun each_run) noexcept {
  const std::int32_t nx = box.counts[0];
  const std::size_t start = row * static_cast<std::size_t>(nx);
  const double* values = box.density + start;
  const double sign = level < 0.0 ? -1.0 : 1.0;
  const double least = sign * level;
  const auto beyond = [&](std::int32_t x) {
    return sign * values[x] >= least && !(mask && mask[start + static_cast<std::size_t>(x)]);
  };
  for (std::int32_t x = 0; x < nx; ++x) {
    if (!beyond(x)) continue;
    const std::int32_t first = x;
    while (x + 1 < nx && beyond(x + 1)) ++x;
    each_run(first, x + 1 - first);
  }
}

template <class EachRow>
void for_rows(const qx_density_box& box, EachRow each_row) noexcept {
  std::size_t row = 0;
  for (std::int32_t z = 0; z < box.counts[2]; ++z) {
    for (std::int32_t y = 0; y < box.counts[1]; ++y) each_row(y, z, row++);
  }
}

struct Root {
  std::int64_t run;
  std::int32_t cell[3];  // of the run asked for, from the root's
};

void add_cell(std::int32_t (&to)[3], const std::int32_t (&from)[3]) noexcept {
  for (int axis = 0; axis < 3; ++axis) to[axis] += from[axis];
}

Root root_of(qx_density_run* runs, std::int64_t i) noexcept {
  Root root = {i, {0, 0, 0}};
  while (runs[root.run].blob != root.run) {
    qx_density_run& run = runs[root.run];
    const qx_density_run& parent = runs[run.blob];
    if (parent.blob != run.blob) {
      add_cell(run.cell, parent.cell);
      run.blob = parent.blob;
    }
    add_cell(root.cell, run.cell);
    root.run = run.blob;
  }
  return root;
}

// Run b touches run a when it is `step` periods further along the axis. The root is the first run.
void join(qx_density_run* runs, std::int64_t a, std::int64_t b, int axis,
          std::int32_t step) noexcept {
  const Root first = root_of(runs, a);
  const Root second = root_of(runs, b);
  if (first.run == second.run) return;
  const std::int32_t sign = first.run < second.run ? 1 : -1;
  qx_density_run& child = runs[sign > 0 ? second.run : first.run];
  for (int k = 0; k < 3; ++k) {
    child.cell[k] = sign * (first.cell[k] - second.cell[k] + (k == axis ? step : 0));
  }
  child.blob = sign > 0 ? first.run : second.run;
}

struct RunsOfRow {
  std::int64_t first, end;
};

// Joins runs of neighbouring rows that have an x in common.
void join_rows(qx_density_run* runs, RunsOfRow a, RunsOfRow b, int axis,
               std::int32_t step) noexcept {
  while (a.first < a.end && b.first < b.end) {
    const std::int32_t end_a = runs[a.first].at[0] + runs[a.first].count;
    const std::int32_t end_b = runs[b.first].at[0] + runs[b.first].count;
    if (runs[a.first].at[0] < end_b && runs[b.first].at[0] < end_a) {
      join(runs, a.first, b.first, axis, step);
    }
    ++(end_a < end_b ? a.first : b.first);
  }
}

// Of the point of a run that is `k` behind its first, the blob in one piece.
std::int32_t index_of(const qx_density_box& box, const qx_density_run& run, int axis,
                      std::int32_t k) noexcept {
  return box.starts[axis] + run.at[axis] + run.cell[axis] * box.intervals[axis] +
         (axis == 0 ? k : 0);
}

}  // namespace

MaskGrid mask_grid(const qx_density_box& box, const double* cell) noexcept {
  const CellAngles angles = cell_angles(cell[3], cell[4], cell[5]);
  const double height = std::sqrt(relative_volume_squared(angles)) / angles.sin_gamma * cell[2];
  double m[9] = {};
  standard_frac2orth(cell, angles, height, m);
  const auto& n = box.intervals;
  return {n[0],        n[1],        n[2],        m[0] / n[0], m[1] / n[1],
          m[4] / n[1], m[2] / n[2], m[5] / n[2], m[8] / n[2]};
}

void mask_place(const qx_density_box& box, const MaskGrid& grid, const double (&place)[3],
                double radius, std::uint8_t* mask) noexcept {
  const auto from_origin = [&](int axis) { return is_whole(box, axis) && box.starts[axis] == 0; };
  if (from_origin(0) && from_origin(1) && from_origin(2)) {
    return mark_sphere(grid, place, radius, mask);
  }
  const double at[3] = {place[0] * grid.nx, place[1] * grid.ny, place[2] * grid.nz};
  for_each_run(grid, at, radius,
               [&](std::int32_t iz, std::int32_t iy, std::int32_t first, std::int32_t last) {
                 const std::int32_t z = place_in_box(box, 2, iz);
                 const std::int32_t y = place_in_box(box, 1, iy);
                 if (z < 0 || y < 0) return;
                 std::uint8_t* row =
                     mask + row_number(box, y, z) * static_cast<std::size_t>(box.counts[0]);
                 for (std::int32_t ix = first; ix <= last; ++ix) {
                   const std::int32_t x = place_in_box(box, 0, ix);
                   if (x >= 0) row[x] = 1;
                 }
               });
}

std::int64_t count_runs(const qx_density_box& box, double level,
                        const std::uint8_t* mask) noexcept {
  std::int64_t n = 0;
  for_rows(box, [&](std::int32_t, std::int32_t, std::size_t row) {
    for_runs_of_row(box, level, mask, row, [&](std::int32_t, std::int32_t) { ++n; });
  });
  return n;
}

void collect_runs(const qx_density_box& box, double level, const std::uint8_t* mask,
                  std::int64_t* rows, qx_density_run* runs) noexcept {
  std::int64_t n = 0;
  for_rows(box, [&](std::int32_t y, std::int32_t z, std::size_t row) {
    rows[row] = n;
    for_runs_of_row(box, level, mask, row, [&](std::int32_t x, std::int32_t count) {
      runs[n] = {{x, y, z}, count, {0, 0, 0}, n};
      ++n;
    });
    rows[row + 1] = n;
  });
}

std::int64_t join_runs(const qx_density_box& box, const std::int64_t* rows,
                       qx_density_run* runs) noexcept {
  const auto runs_of = [&](std::int32_t y, std::int32_t z) {
    const std::size_t row = row_number(box, y, z);
    return RunsOfRow{rows[row], rows[row + 1]};
  };
  for_rows(box, [&](std::int32_t y, std::int32_t z, std::size_t) {
    const RunsOfRow own = runs_of(y, z);
    if (own.first == own.end) return;
    const qx_density_run& last = runs[own.end - 1];
    const bool closed = is_whole(box, 0) && runs[own.first].at[0] == 0;
    if (closed && last.at[0] + last.count == box.counts[0]) {
      join(runs, own.end - 1, own.first, 0, 1);
    }
    if (y > 0) join_rows(runs, own, runs_of(y - 1, z), 1, 0);
    if (z > 0) join_rows(runs, own, runs_of(y, z - 1), 2, 0);
    if (y + 1 == box.counts[1] && is_whole(box, 1)) {
      join_rows(runs, own, runs_of(0, z), 1, 1);
    }
    if (z + 1 == box.counts[2] && is_whole(box, 2)) {
      join_rows(runs, own, runs_of(y, 0), 2, 1);
    }
  });
  const std::int64_t n = rows[row_number(box, 0, box.counts[2])];
  for (std::int64_t i = 0; i < n; ++i) {
    const Root root = root_of(runs, i);
    runs[i].blob = root.run;
    for (int axis = 0; axis < 3; ++axis) runs[i].cell[axis] = root.cell[axis];
  }
  std::int64_t blobs = 0;  // roots are first: their numbers replace them as they come
  for (std::int64_t i = 0; i < n; ++i) {
    const std::int64_t root = runs[i].blob;
    runs[i].blob = root == i ? blobs++ : runs[root].blob;
  }
  return blobs;
}

void measure_blobs(const qx_density_box& box, std::int64_t nruns, const qx_density_run* runs,
                   std::int64_t nblobs, qx_density_blob* blobs) noexcept {
  const auto values_of = [&](const qx_density_run& run) {
    return box.density +
           row_number(box, run.at[1], run.at[2]) * static_cast<std::size_t>(box.counts[0]) +
           run.at[0];
  };
  for (std::int64_t i = 0; i < nblobs; ++i) blobs[i] = {};
  for (std::int64_t i = 0; i < nruns; ++i) {
    qx_density_blob& blob = blobs[runs[i].blob];
    const double* values = values_of(runs[i]);
    double sum = 0.0;
    double moment = 0.0;  // about the run's first point, along x
    for (std::int32_t k = 0; k < runs[i].count; ++k) {
      sum += values[k];
      moment += k * values[k];
      if (std::fabs(values[k]) <= std::fabs(blob.peak)) continue;
      blob.peak = values[k];
      for (int axis = 0; axis < 3; ++axis) blob.indices[axis] = index_of(box, runs[i], axis, k);
    }
    blob.points += runs[i].count;
    blob.sum += sum;
    blob.centroid[0] += moment;
    for (int axis = 0; axis < 3; ++axis) {
      blob.centroid[axis] += sum * index_of(box, runs[i], axis, 0);
    }
  }
  for (std::int64_t i = 0; i < nblobs; ++i) {
    for (int axis = 0; axis < 3; ++axis) {
      blobs[i].centroid[axis] /= blobs[i].sum * box.intervals[axis];
    }
  }
}

}  // namespace qx
