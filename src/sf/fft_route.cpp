#include "sf/fft_route.h"

#include "core/constants.h"
#include "core/object.h"
#include "core/parallel.h"
#include "core/report.h"
#include "core/require.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "fft/transform_half.h"
#include "grid/grid.h"

#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/fft.h>
#include <quorix/grid.h>
#include <quorix/memory.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

Status fetch_table(SinCosTable& table) {
  if (!qx_get_qxsincostab()) QX_TRY(qx_new_qxsincostab());
  const qxsincostab* object = qx_get_qxsincostab();
  if (!object) return failed;
  if (!object->sine) QX_TRY(qx_init_qxsincostab());
  table = {qxsincostab::n, object->sine, object->cosine};
  return ok;
}

// Reflections in parts, whatever the number of threads: each sum is one part's, operator by
// operator.
struct ReflectionParts {
  static constexpr std::int32_t size = 2048;
  std::int32_t n;

  [[nodiscard]] std::int32_t count() const { return n / size + (n % size > 0 ? 1 : 0); }
  [[nodiscard]] MillerIndices of(const qxrefdata& data, std::int32_t part) const {
    const std::int32_t first = part * size;
    return {std::min(size, n - first), data.h + first, data.k + first, data.l + first};
  }
};

// `each`: operations of a reflection and an operator.
std::int32_t threads_for_mates(const FftRoute& route, double each) {
  return threads_worth(each * route.nops * route.data->nreflections);
}

// How many h of each k the mates of some reflections, or their Friedel opposites, lie at.
void mark_columns(const FftRoute& route, const MillerIndices& reflections, std::int32_t* columns) {
  const qxgrid& grid = *route.grid;
  for (std::int32_t op = 0; op < route.nops; ++op) {
    const IndexOperator& r = route.operators[static_cast<std::size_t>(op)];
    for (std::int32_t i = 0; i < reflections.n; ++i) {
      const RotatedIndex mate = mate_of(r, reflections.h[i], reflections.k[i], reflections.l[i]);
      const std::int32_t ix = wrapped(mate.h, grid.nx);
      const std::int32_t iy = wrapped(mate.k, grid.ny);
      const bool stored = 2 * ix <= grid.nx;
      std::int32_t& count = columns[stored || iy == 0 ? iy : grid.ny - iy];
      count = std::max(count, (stored ? ix : grid.nx - ix) + 1);
    }
  }
}

// The largest of what the workers found. What stays does not grow with their number: memory in use
// decides on the boxes.
Status count_columns(FftRoute& route) {
  const auto ny = static_cast<std::size_t>(route.grid->ny);
  route.columns = Tagged<std::int32_t>(ny, "pcs_columns");
  if (!route.columns) return failed;
  const std::int32_t threads = threads_for_mates(route, 10.0);
  const Tagged<std::int32_t> found(
      allocate_zeroed<std::int32_t>(ny * static_cast<std::size_t>(threads), "pcs_found"));
  if (!found) return failed;
  const ReflectionParts parts = {route.data->nreflections};
  parallel(parts.count(), threads, [&](std::int32_t part, std::int32_t worker) {
    mark_columns(route, parts.of(*route.data, part),
                 found.get() + ny * static_cast<std::size_t>(worker));
  });
  std::int32_t* columns = route.columns.get();
  std::copy_n(found.get(), ny, columns);
  for (std::size_t i = ny; i < ny * static_cast<std::size_t>(threads); ++i) {
    columns[i % ny] = std::max(columns[i % ny], found[i]);
  }
  route.hmax = std::max(0, *std::max_element(columns, columns + ny) - 1);
  return ok;
}

Status plan_planes(std::int32_t nz, std::int32_t planes, std::int32_t shift,
                   Tagged<PlaneTurn>& of_l) {
  of_l = Tagged<PlaneTurn>(static_cast<std::size_t>(nz), "pcs_turn");
  if (!of_l) return failed;
  const std::int64_t first = wrapped(shift, nz);
  for (std::int32_t l = 0; l < nz; ++l) {
    const double angle = two_pi * static_cast<double>(l * first % nz) / nz;
    of_l[static_cast<std::size_t>(l)] = {std::cos(angle), std::sin(angle), l % planes};
  }
  return ok;
}

Status add_operators(const FftRoute& route, const Transform& transform, std::int32_t shift,
                     PartSums& sums) {
  const qxrefdata& data = *route.data;
  const std::int32_t nz = route.grid->nz;
  Tagged<PlaneTurn> of_l;
  QX_TRY(plan_planes(nz, transform.half.nz, shift, of_l));
  const BoxPlanes planes = {nz, wrapped(shift, nz) != 0, of_l.get()};
  const ReflectionParts parts = {data.nreflections};
  const auto add = [&](std::int32_t part, std::int32_t) {
    const std::ptrdiff_t first = std::ptrdiff_t{part} * ReflectionParts::size;
    for (std::int32_t op = 0; op < route.nops; ++op) {
      add_mates(transform, route.operators[static_cast<std::size_t>(op)], planes, route.table,
                parts.of(data, part), sums.re + first, sums.im + first);
    }
  };
  parallel(parts.count(), threads_for_mates(route, 30.0), add);
  return ok;
}

// The general way: the whole spectrum in two further arrays.
Status add_whole(const FftRoute& route, std::int32_t planes, std::int32_t shift, double*** density,
                 PartSums& sums) {
  const qxgrid& grid = *route.grid;
  double*** re = xopen_3d_double(planes, grid.ny, grid.nx, "pcs_fr");
  if (!re) return failed;
  double*** im = xopen_3d_double(planes, grid.ny, grid.nx, "pcs_fi");
  if (!im) return failed;
  QX_TRY(qx_forward_rfft_3D(planes, grid.ny, grid.nx, density, re, im));
  QX_TRY(add_operators(route, {{grid.nx, grid.ny, planes, -1}, re[0][0], im[0][0]}, shift, sums));
  QX_TRY(xfree_3d_double(re));
  return xfree_3d_double(im);
}

}  // namespace

Status fetch_operators(const char* heading, Tagged<IndexOperator>& operators, std::int32_t& n) {
  const qxspg* group = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxspg, group, "qxspg object has not been created yet."));
  n = group->nops;
  if (n < 1) return ok;
  operators = Tagged<IndexOperator>(static_cast<std::size_t>(n), "pcs_ops");
  if (!operators) return failed;
  for (std::int32_t i = 0; i < n; ++i) {
    operators[static_cast<std::size_t>(i)] = index_operator(group->ops[i]);
  }
  return ok;
}

bool FftRoute::in_place() const { return layout(grid->nz).rows_fit(); }

HalfLayout FftRoute::layout(std::int32_t planes) const {
  return {grid->nx, grid->ny, planes, hmax};
}

Status prepare_route(const char* heading, FftRoute& route) {
  QX_TRY(qx::require(heading, qx_get_qxrefdata, route.data,
                     "qxrefdata object has not been created yet."));
  route.grid = qx_get_qxgrid();
  if (!route.grid || route.grid->nx < 1) {
    return fail(heading, "qxgrid object has not been created yet.");
  }
  QX_TRY(fetch_operators(heading, route.operators, route.nops));
  QX_TRY(fetch_table(route.table));
  return count_columns(route);
}

Status add_box(const FftRoute& route, std::int32_t planes, std::int32_t shift, double*** density,
               PartSums& sums) {
  if (!route.in_place()) return add_whole(route, planes, shift, density, sums);
  const HalfLayout half = route.layout(planes);
  double* block = density[0][0];
  QX_TRY(forward_half_3d(half, route.columns.get(), block));
  return add_operators(route, {half, block, nullptr}, shift, sums);
}

}  // namespace qx

using qx::fail;
using qx::ok;
using qx::Status;

Status qx_calc_sf_by_fft_eden(std::int32_t part, std::int32_t /*set*/, std::int32_t shift,
                              double*** density) {
  constexpr const char* heading = "qx_calc_sf_by_fft_eden():";
  const qxsubgrid* box = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxsubgrid, box, "qxsubgrid object has not been created yet."));
  const qxrefdata* data = nullptr;
  QX_TRY(
      qx::require(heading, qx_get_qxrefdata, data, "qxrefdata object has not been created yet."));
  if (!qx_get_qxelecden()) return fail(heading, "qxelecden object has not been created yet.");
  qx::FftRoute route;
  QX_TRY(qx::prepare_route(heading, route));
  qxstructfact* sf = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxstructfact, sf,
                     "qxstructfact object has not been created yet."));
  if (part < -1 || part >= sf->nparts) {
    return fail(heading, "There is no part %d of the system.", part);
  }
  if (data->nreflections < 1) return ok;
  QX_TRY(qx::open_sums(sf, part, data->nreflections));
  const std::int32_t planes = box->one_box ? route.grid->nz : box->points[2];
  return qx::add_box(route, planes, shift, density, part < 0 ? sf->separate : sf->parts[part]);
}
