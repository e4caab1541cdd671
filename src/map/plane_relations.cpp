#include "map/plane_relations.h"

#include "core/wrapped.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qx {

namespace {

constexpr double steps_tolerance = 1e-4;

// Column X and row Y of a plane come from column (xx X + xy Y + x0), row (yx X + yy Y + y0).
struct PlaneMove {
  std::int32_t xx, xy, x0;
  std::int32_t yx, yy, y0;
};

bool whole_number(double value, std::int32_t& number) noexcept {
  const double rounded = std::nearbyint(value);
  if (!(std::abs(value - rounded) < steps_tolerance) || std::abs(rounded) > 1e6) return false;
  number = static_cast<std::int32_t>(rounded);
  return true;
}

std::int32_t within(std::int64_t index, std::int32_t n) noexcept {
  return static_cast<std::int32_t>(wrapped(static_cast<std::ptrdiff_t>(index), n));
}

PlaneMove move_of(const PlaneRelations& relations, const GridOperator& op,
                  std::int32_t iz) noexcept {
  const std::int32_t nx = relations.counts[0];
  const std::int32_t ny = relations.counts[1];
  return {
      within(op.m[0], nx), within(op.m[1], nx), within(std::int64_t{op.m[2]} * iz + op.t[0], nx),
      within(op.m[3], ny), within(op.m[4], ny), within(std::int64_t{op.m[5]} * iz + op.t[1], ny)};
}

std::int32_t plane_under(const PlaneRelations& relations, const GridOperator& op,
                         std::int32_t iz) noexcept {
  return within(std::int64_t{op.m[8]} * iz + op.t[2], relations.counts[2]);
}

bool keeps_rows(const GridOperator& op) noexcept { return op.m[3] == 0; }

// True for operators that take every plane to itself and rows to rows.
bool relates_rows(const GridOperator& op) noexcept {
  return op.m[8] == 1 && op.t[2] == 0 && op.m[2] == 0 && op.m[5] == 0 && keeps_rows(op) &&
         std::abs(op.m[4]) == 1;
}

std::int32_t row_under(const PlaneRelations& relations, const GridOperator& op,
                       std::int32_t iy) noexcept {
  return within(std::int64_t{op.m[4]} * iy + op.t[1], relations.counts[1]);
}

// Whether op says more cheaply than `other` (-1: nothing) where a plane comes from.
bool is_better(const PlaneRelations& relations, std::int32_t op, std::int32_t other) noexcept {
  return other < 0 ||
         (keeps_rows(relations.operators[op]) && !keeps_rows(relations.operators[other]));
}

void relate_planes(PlaneRelations& relations) noexcept {
  for (std::int32_t iz = 0; iz < relations.counts[2]; ++iz) {
    std::int32_t found = -1;
    std::int32_t from = iz;
    for (std::int32_t op = 0; op < relations.noperators; ++op) {
      const std::int32_t source = plane_under(relations, relations.operators[op], iz);
      if (source >= iz || relations.plane_source[source] != source) continue;
      if (!is_better(relations, op, found)) continue;
      found = op;
      from = source;
    }
    relations.plane_source[iz] = from;
    relations.plane_operator[iz] = found;
    if (found < 0) relations.planes[relations.nplanes++] = iz;
  }
}

void relate_rows(PlaneRelations& relations) noexcept {
  for (std::int32_t iy = 0; iy < relations.counts[1]; ++iy) {
    relations.row_source[iy] = iy;
    relations.row_operator[iy] = -1;
    for (std::int32_t op = 0; op < relations.noperators; ++op) {
      if (!relates_rows(relations.operators[op])) continue;
      const std::int32_t source = row_under(relations, relations.operators[op], iy);
      if (source >= iy || relations.row_source[source] != source) continue;
      relations.row_source[iy] = source;
      relations.row_operator[iy] = op;
      break;
    }
    if (relations.row_operator[iy] < 0) relations.rows[relations.nrows++] = iy;
  }
}

// Planes by their sources.
void list_images(PlaneRelations& relations) noexcept {
  std::int32_t next = 0;
  for (std::int32_t i = 0; i < relations.nplanes; ++i) {
    relations.first_image[i] = next;
    for (std::int32_t iz = relations.planes[i]; iz < relations.counts[2]; ++iz) {
      if (relations.plane_source[iz] == relations.planes[i]) relations.images[next++] = iz;
    }
  }
  relations.first_image[relations.nplanes] = next;
}

// A row whose column X is column (step X + x0) of `source`, step 1 or nx - 1 (that is, -1).
template <class T>
void copy_row(const T* source, std::int32_t nx, std::int32_t step, std::int32_t x0,
              T* row) noexcept {
  if (step == 1) {
    std::copy_n(source + x0, nx - x0, row);
    std::copy_n(source, x0, row + (nx - x0));
    return;
  }
  std::reverse_copy(source, source + x0 + 1, row);
  std::reverse_copy(source + x0 + 1, source + nx, row + x0 + 1);
}

template <class T>
void copy_rows(const PlaneMove& move, std::int32_t nx, std::int32_t ny, const T* source,
               T* plane) noexcept {
  for (std::int32_t iy = 0; iy < ny; ++iy) {
    const std::int32_t from = within(std::int64_t{move.yy} * iy + move.y0, ny);
    const std::int32_t x0 = within(std::int64_t{move.xy} * iy + move.x0, nx);
    copy_row(source + std::ptrdiff_t{from} * nx, nx, move.xx, x0, plane + std::ptrdiff_t{iy} * nx);
  }
}

// Columns of one plane are rows of the other.
bool turns_rows_to_columns(const PlaneMove& move) noexcept { return move.xx == 0 && move.yy == 0; }

constexpr std::int32_t tile = 16;

// Where a tile of the source that becomes rows y0 .. and columns x0 .. is.
template <class T>
struct TransposedTile {
  const T* rows[tile];         // by column of the target
  std::int32_t columns[tile];  // by its row
};

template <class T>
void transpose(const PlaneMove& move, std::int32_t nx, std::int32_t ny, const T* source,
               T* plane) noexcept {
  TransposedTile<T> from;
  for (std::int32_t x0 = 0; x0 < nx; x0 += tile) {
    const std::int32_t width = std::min(tile, nx - x0);
    for (std::int32_t i = 0; i < width; ++i) {
      const std::int32_t row = within(std::int64_t{move.yx} * (x0 + i) + move.y0, ny);
      from.rows[i] = source + std::ptrdiff_t{row} * nx;
    }
    for (std::int32_t y0 = 0; y0 < ny; y0 += tile) {
      const std::int32_t height = std::min(tile, ny - y0);
      for (std::int32_t j = 0; j < height; ++j) {
        from.columns[j] = within(std::int64_t{move.xy} * (y0 + j) + move.x0, nx);
      }
      for (std::int32_t j = 0; j < height; ++j) {
        T* row = plane + std::ptrdiff_t{y0 + j} * nx + x0;
        for (std::int32_t i = 0; i < width; ++i) row[i] = from.rows[i][from.columns[j]];
      }
    }
  }
}

// Tile by tile, so that the rows read stay in cache while they are walked across.
template <class T>
void gather_points(const PlaneMove& move, std::int32_t nx, std::int32_t ny, const T* source,
                   T* plane) noexcept {
  for (std::int32_t y0 = 0; y0 < ny; y0 += tile) {
    for (std::int32_t x0 = 0; x0 < nx; x0 += tile) {
      const std::int32_t xend = std::min(x0 + tile, nx);
      for (std::int32_t iy = y0; iy < std::min(y0 + tile, ny); ++iy) {
        std::int32_t x =
            within(std::int64_t{move.xx} * x0 + std::int64_t{move.xy} * iy + move.x0, nx);
        std::int32_t y =
            within(std::int64_t{move.yx} * x0 + std::int64_t{move.yy} * iy + move.y0, ny);
        T* row = plane + std::ptrdiff_t{iy} * nx;
        for (std::int32_t ix = x0; ix < xend; ++ix) {
          row[ix] = source[std::ptrdiff_t{y} * nx + x];
          x += move.xx;
          if (x >= nx) x -= nx;
          y += move.yx;
          if (y >= ny) y -= ny;
        }
      }
    }
  }
}

}  // namespace

bool grid_operator(const double (&matrix)[16], const std::int32_t (&counts)[3],
                   GridOperator& op) noexcept {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      if (!whole_number(matrix[4 * i + j] * counts[i] / counts[j], op.m[3 * i + j])) return false;
    }
    std::int32_t steps = 0;
    if (!whole_number(matrix[4 * i + 3] * counts[i], steps)) return false;
    op.t[i] = within(steps, counts[i]);
  }
  return op.m[6] == 0 && op.m[7] == 0 && std::abs(op.m[8]) == 1;
}

void relate(PlaneRelations& relations, std::int32_t* block) noexcept {
  const auto ny = static_cast<std::size_t>(relations.counts[1]);
  const auto nz = static_cast<std::size_t>(relations.counts[2]);
  const auto part_of = [&block](std::size_t n) {
    std::int32_t* part = block;
    block += n;
    return part;
  };
  relations.plane_source = part_of(nz);
  relations.plane_operator = part_of(nz);
  relations.planes = part_of(nz);
  relations.images = part_of(nz);
  relations.first_image = part_of(nz + 1);
  relations.row_source = part_of(ny);
  relations.row_operator = part_of(ny);
  relations.rows = part_of(ny);
  relations.nplanes = relations.nrows = 0;
  relate_planes(relations);
  relate_rows(relations);
  list_images(relations);
}

template <class T>
void fill_rows(const PlaneRelations& relations, T* plane) noexcept {
  const std::int32_t nx = relations.counts[0];
  for (std::int32_t iy = 0; iy < relations.counts[1]; ++iy) {
    if (relations.row_operator[iy] < 0) continue;
    const PlaneMove move = move_of(relations, relations.operators[relations.row_operator[iy]], 0);
    const std::int32_t x0 = within(std::int64_t{move.xy} * iy + move.x0, nx);
    copy_row(plane + std::ptrdiff_t{relations.row_source[iy]} * nx, nx, move.xx, x0,
             plane + std::ptrdiff_t{iy} * nx);
  }
}

template <class T>
void make_image(const PlaneRelations& relations, std::int32_t iz, const T* source,
                T* plane) noexcept {
  const GridOperator& op = relations.operators[relations.plane_operator[iz]];
  const PlaneMove move = move_of(relations, op, iz);
  const std::int32_t nx = relations.counts[0];
  const std::int32_t ny = relations.counts[1];
  if (move.yx == 0 && (move.xx == 1 || move.xx == nx - 1)) {
    copy_rows(move, nx, ny, source, plane);
  } else if (turns_rows_to_columns(move)) {
    transpose(move, nx, ny, source, plane);
  } else {
    gather_points(move, nx, ny, source, plane);
  }
}

template void fill_rows<float>(const PlaneRelations&, float*) noexcept;
template void fill_rows<double>(const PlaneRelations&, double*) noexcept;
template void make_image<float>(const PlaneRelations&, std::int32_t, const float*, float*) noexcept;
template void make_image<double>(const PlaneRelations&, std::int32_t, const double*,
                                 double*) noexcept;

}  // namespace qx
