#include "map/omit_region.h"

#include "core/wrapped.h"
#include "solvent/sphere_rows.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace qx {

namespace {

constexpr double tolerance = 1e-9;

// Whole numbers n with low <= point + n <= high.
StepRange copies_within(double low, double high, double point) noexcept {
  return {static_cast<std::int32_t>(std::ceil(low - point - tolerance)),
          static_cast<std::int32_t>(std::floor(high - point + tolerance))};
}

double square_length(const CellFrame& frame, const double (&d)[3]) noexcept {
  const double(&m)[9] = frame.matrix;
  const double x = m[0] * d[0] + m[1] * d[1] + m[2] * d[2];
  const double y = m[4] * d[1] + m[5] * d[2];
  const double z = m[8] * d[2];
  return x * x + y * y + z * z;
}

bool sphere_holds(const OmitRegion& sphere, const CellFrame& frame, double rim,
                  const double (&point)[3]) noexcept {
  const double radius = sphere.at[3] + rim;
  StepRange copies[3];
  for (int i = 0; i < 3; ++i) {
    const double reach = radius * frame.stars[i];
    copies[i] = copies_within(sphere.at[i] - reach, sphere.at[i] + reach, point[i]);
  }
  for (std::int32_t k = copies[2].first; k <= copies[2].last; ++k) {
    for (std::int32_t j = copies[1].first; j <= copies[1].last; ++j) {
      for (std::int32_t i = copies[0].first; i <= copies[0].last; ++i) {
        const double d[3] = {point[0] + i - sphere.at[0], point[1] + j - sphere.at[1],
                             point[2] + k - sphere.at[2]};
        if (square_length(frame, d) <= radius * radius + tolerance) return true;
      }
    }
  }
  return false;
}

}  // namespace

bool region_holds(const OmitRegion& region, const CellFrame& frame, double rim,
                  const double (&point)[3]) noexcept {
  if (region.shape == OmitShape::sphere) return sphere_holds(region, frame, rim, point);
  for (int i = 0; i < 3; ++i) {
    const double margin = rim * frame.stars[i];
    const StepRange copies =
        copies_within(region.at[2 * i] - margin, region.at[2 * i + 1] + margin, point[i]);
    if (copies.first > copies.last) return false;
  }
  return true;
}

namespace {

// Atoms order[begin] .. order[end - 1], to become `groups` groups from `first` on.
struct Share {
  std::int32_t begin, end, groups, first;
};

const double* longest_axis(const Share& share, const double* const (&xyz)[3],
                           const std::int32_t* order) noexcept {
  const double* longest = xyz[0];
  double length = -1.0;
  for (const double* axis : xyz) {
    const auto [low, high] =
        std::minmax_element(order + share.begin, order + share.end,
                            [&](std::int32_t a, std::int32_t b) { return axis[a] < axis[b]; });
    if (axis[*high] - axis[*low] <= length) continue;
    length = axis[*high] - axis[*low];
    longest = axis;
  }
  return longest;
}

}  // namespace

void halve_atoms(std::int32_t n, const double* const (&xyz)[3], std::int32_t groups,
                 std::int32_t* order, std::int32_t* group) noexcept {
  std::iota(order, order + n, 0);
  Share waiting[64] = {{0, n, groups, 0}};
  for (int count = 1; count > 0;) {
    const Share share = waiting[--count];
    if (share.groups == 1) {
      for (std::int32_t i = share.begin; i < share.end; ++i) group[order[i]] = share.first;
      continue;
    }
    const std::int32_t half = share.groups / 2;
    const std::int64_t atoms = share.end - share.begin;
    const auto middle = static_cast<std::int32_t>(share.begin + atoms * half / share.groups);
    const double* axis = longest_axis(share, xyz, order);
    std::nth_element(order + share.begin, order + middle, order + share.end,
                     [&](std::int32_t a, std::int32_t b) {
                       return axis[a] != axis[b] ? axis[a] < axis[b] : a < b;
                     });
    waiting[count++] = {share.begin, middle, half, share.first};
    waiting[count++] = {middle, share.end, share.groups - half, share.first + half};
  }
}

void choose_bins(const CellFrame& frame, double length, AtomBins& bins) noexcept {
  for (int i = 0; i < 3; ++i) {
    const double wanted = 1.0 / (std::max(length, 1.0) * frame.stars[i]);
    bins.counts[i] =
        static_cast<std::int32_t>(std::clamp(wanted, 1.0, static_cast<double>(AtomBins::most)));
  }
}

namespace {

std::int32_t bin_along(double x, std::int32_t count) noexcept {
  return std::clamp(static_cast<std::int32_t>(x * count), 0, count - 1);
}

std::int32_t bin_of(const AtomBins& bins, const double (&at)[3]) noexcept {
  return (bin_along(at[2], bins.counts[2]) * bins.counts[1] + bin_along(at[1], bins.counts[1])) *
             bins.counts[0] +
         bin_along(at[0], bins.counts[0]);
}

}  // namespace

void sort_into_bins(const AtomBins& bins, std::int32_t natom) noexcept {
  std::fill_n(bins.starts, bins.bins() + 1, 0);
  for (std::int32_t i = 0; i < natom; ++i) ++bins.starts[bin_of(bins, bins.positions[i]) + 1];
  std::partial_sum(bins.starts, bins.starts + bins.bins() + 1, bins.starts);
  // Backwards, each bin from its end: its start is left where it is.
  for (std::int32_t i = natom; i-- > 0;) {
    bins.atoms[--bins.starts[bin_of(bins, bins.positions[i]) + 1]] = i;
  }
  // What was each bin's end has become its start.
  for (std::int32_t bin = 0; bin < bins.bins(); ++bin) bins.starts[bin] = bins.starts[bin + 1];
  bins.starts[bins.bins()] = natom;
}

namespace {

// Atoms of a bin whose copies, shifted by whole cells, lie near the point.
void mark_in_bin(const AtomBins& bins, const CellFrame& frame, std::int32_t bin,
                 const double (&shifted)[3], double square, std::int32_t* marks) noexcept {
  for (std::int32_t j = bins.starts[bin]; j < bins.starts[bin + 1]; ++j) {
    const double(&at)[3] = bins.positions[bins.atoms[j]];
    const double d[3] = {at[0] - shifted[0], at[1] - shifted[1], at[2] - shifted[2]};
    if (square_length(frame, d) <= square) marks[bins.atoms[j]] = 1;
  }
}

}  // namespace

void mark_near(const AtomBins& bins, const CellFrame& frame, const double (&point)[3],
               double radius, std::int32_t* marks) noexcept {
  StepRange range[3];
  for (int i = 0; i < 3; ++i) {
    const double reach = radius * frame.stars[i] + tolerance;
    range[i] = {static_cast<std::int32_t>(std::floor((point[i] - reach) * bins.counts[i])),
                static_cast<std::int32_t>(std::floor((point[i] + reach) * bins.counts[i]))};
  }
  const double square = radius * radius + tolerance;
  const auto cell_of = [](std::int32_t bin, std::int32_t count) {
    return (bin - wrapped(bin, count)) / count;
  };
  const std::int32_t(&n)[3] = bins.counts;
  for (std::int32_t k = range[2].first; k <= range[2].last; ++k) {
    for (std::int32_t j = range[1].first; j <= range[1].last; ++j) {
      for (std::int32_t i = range[0].first; i <= range[0].last; ++i) {
        const double shifted[3] = {point[0] - cell_of(i, n[0]), point[1] - cell_of(j, n[1]),
                                   point[2] - cell_of(k, n[2])};
        const std::int32_t bin =
            (wrapped(k, n[2]) * n[1] + wrapped(j, n[1])) * n[0] + wrapped(i, n[0]);
        mark_in_bin(bins, frame, bin, shifted, square, marks);
      }
    }
  }
}

void clear_owners(const PointOwners& owners) noexcept {
  std::fill_n(owners.owner, owners.grid.points(), PointOwners::nobody);
  std::fill_n(owners.distance, owners.grid.points(), std::numeric_limits<float>::max());
}

void claim_near(const PointOwners& owners, const double (&centre)[3], double radius,
                std::uint16_t group) noexcept {
  const MaskGrid& grid = owners.grid;
  const double at[3] = {centre[0] * grid.nx, centre[1] * grid.ny, centre[2] * grid.nz};
  for_each_run(grid, at, radius, [&](int iz, int iy, int first, int last) {
    const std::size_t row = grid.row(wrapped(iz, grid.nz), wrapped(iy, grid.ny));
    const double dz = iz - at[2];
    const double dy = iy - at[1];
    const double y = dy * grid.by + dz * grid.cy;
    const double square = dz * grid.cz * dz * grid.cz + y * y;
    for (int ix = first; ix <= last; ++ix) {
      const double x = (ix - at[0]) * grid.ax + dy * grid.bx + dz * grid.cx;
      const auto distance = static_cast<float>(square + x * x);
      const std::size_t to = row + static_cast<std::size_t>(wrapped(ix, grid.nx));
      const bool nearer = distance < owners.distance[to] ||
                          (distance == owners.distance[to] && group < owners.owner[to]);
      if (!nearer) continue;
      owners.distance[to] = distance;
      owners.owner[to] = group;
    }
  });
}

namespace {

// The lowest owner among the neighbours that had one before this layer.
std::uint16_t owner_beside(const PointOwners& owners, std::int32_t iz, std::int32_t iy,
                           std::int32_t ix, float layer) noexcept {
  const MaskGrid& g = owners.grid;
  const std::int32_t around[6][3] = {{iz - 1, iy, ix}, {iz + 1, iy, ix}, {iz, iy - 1, ix},
                                     {iz, iy + 1, ix}, {iz, iy, ix - 1}, {iz, iy, ix + 1}};
  std::uint16_t lowest = PointOwners::nobody;
  for (const auto& at : around) {
    const std::size_t to = g.row(wrapped(at[0], g.nz), wrapped(at[1], g.ny)) +
                           static_cast<std::size_t>(wrapped(at[2], g.nx));
    if (owners.distance[to] < layer) lowest = std::min(lowest, owners.owner[to]);
  }
  return lowest;
}

// Adds a layer of points; false when none was left without an owner.
bool grow(const PointOwners& owners, float layer) noexcept {
  const MaskGrid& g = owners.grid;
  bool grew = false;
  std::size_t at = 0;
  for (std::int32_t iz = 0; iz < g.nz; ++iz) {
    for (std::int32_t iy = 0; iy < g.ny; ++iy) {
      for (std::int32_t ix = 0; ix < g.nx; ++ix, ++at) {
        if (owners.owner[at] != PointOwners::nobody) continue;
        const std::uint16_t found = owner_beside(owners, iz, iy, ix, layer);
        if (found == PointOwners::nobody) continue;
        owners.owner[at] = found;
        owners.distance[at] = layer;
        grew = true;
      }
    }
  }
  return grew;
}

}  // namespace

void claim_rest(const PointOwners& owners) noexcept {
  float layer = 1e9F;  // above any squared distance
  while (grow(owners, layer)) layer *= 1.001F;
}

bool symmetrise_owners(const PointOwners& owners, std::int32_t nops,
                       const double (*ops)[16]) noexcept {
  const MaskGrid& g = owners.grid;
  const std::int32_t n[3] = {g.nx, g.ny, g.nz};
  for (std::int32_t op = 0; op < nops; ++op) {
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 4; ++j) {
        const double step = ops[op][4 * i + j] * n[i] / (j < 3 ? n[j] : 1);
        if (std::fabs(step - std::nearbyint(step)) > 1e-6) return false;
      }
    }
  }
  std::size_t at = 0;
  for (std::int32_t iz = 0; iz < g.nz; ++iz) {
    for (std::int32_t iy = 0; iy < g.ny; ++iy) {
      for (std::int32_t ix = 0; ix < g.nx; ++ix, ++at) {
        const double point[3] = {static_cast<double>(ix) / g.nx, static_cast<double>(iy) / g.ny,
                                 static_cast<double>(iz) / g.nz};
        std::size_t first = at;
        for (std::int32_t op = 0; op < nops; ++op) {
          double mate[3];
          image(ops[op], point, mate);
          std::int32_t index[3];
          for (int i = 0; i < 3; ++i) {
            index[i] = wrapped(static_cast<std::int32_t>(std::lround(mate[i] * n[i])), n[i]);
          }
          first = std::min(first, g.row(index[2], index[1]) + static_cast<std::size_t>(index[0]));
        }
        owners.owner[at] = owners.owner[first];
      }
    }
  }
  return true;
}

}  // namespace qx
