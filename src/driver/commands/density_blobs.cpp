#include "driver/commands/density_blobs.h"

#include "driver/commands/density_peaks.h"
#include "driver/commands/info/map_symmetry.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

// Runs of all blobs of a box, in its order, and where each row begins.
struct Runs {
  const qx_density_box& box;
  std::vector<std::int64_t> rows;
  std::vector<qx_density_run> runs;
  std::int64_t blobs = 0;

  Runs(const qx_density_box& of, double level, const std::uint8_t* mask)
      : box(of),
        rows(static_cast<std::size_t>(of.counts[1]) * static_cast<std::size_t>(of.counts[2]) + 1),
        runs(static_cast<std::size_t>(qx_count_density_runs(&of, level, mask))) {
    blobs = qx_find_density_runs(&box, level, mask, rows.data(), runs.data());
  }

  [[nodiscard]] std::vector<qx_density_blob> measured() const {
    std::vector<qx_density_blob> list(static_cast<std::size_t>(blobs));
    qx_measure_density_blobs(&box, static_cast<std::int64_t>(runs.size()), runs.data(), blobs,
                             list.data());
    return list;
  }

  // The blob that holds a point of the cell's grid; -1: none.
  [[nodiscard]] std::int64_t blob_at(const GridPoint& point) const {
    std::int64_t at[3] = {};
    for (std::size_t a = 0; a < 3; ++a) {
      const std::int64_t n = box.intervals[a];
      at[a] = ((point.at(a) - box.starts[a]) % n + n) % n;
      if (at[a] >= box.counts[a]) return -1;
    }
    const auto row = static_cast<std::size_t>(at[2] * box.counts[1] + at[1]);
    const auto end = runs.begin() + rows[row + 1];
    const auto after =
        std::upper_bound(runs.begin() + rows[row], end, at[0],
                         [](std::int64_t x, const qx_density_run& run) { return x < run.at[0]; });
    if (after == runs.begin() + rows[row]) return -1;
    const qx_density_run& run = *(after - 1);
    return at[0] < run.at[0] + run.count ? run.blob : -1;
  }
};

void drop_mates(const Runs& runs, const qx_density_blob& blob, std::int64_t number,
                const DensityCrystal& crystal, std::vector<bool>& dropped) {
  const GridPoint point = {blob.indices[0], blob.indices[1], blob.indices[2]};
  for (const gemmi::Op& op : crystal.operators) {
    GridPoint mate = {};
    if (!mate_of(op, point, runs.box.intervals, mate)) continue;
    const std::int64_t other = runs.blob_at(mate);
    if (other >= 0 && other != number) dropped[static_cast<std::size_t>(other)] = true;
  }
}

// The peak goes where the centroid went.
void move_peak(const qx_density_blob& blob, const gemmi::Op& op, const DensityCrystal& crystal,
               const std::int32_t (&intervals)[3], DensityBlobSite& site) {
  const auto centre = op.apply_to_xyz({blob.centroid[0], blob.centroid[1], blob.centroid[2]});
  std::array<double, 3> peak = {};
  for (std::size_t a = 0; a < 3; ++a) {
    peak.at(a) = static_cast<double>(blob.indices[a]) / intervals[a];
  }
  const auto mate = op.apply_to_xyz(peak);
  const gemmi::Position place = crystal.cell.orthogonalize(
      {mate[0] + site.fractional[0] - centre[0], mate[1] + site.fractional[1] - centre[1],
       mate[2] + site.fractional[2] - centre[2]});
  site.peak_xyz[0] = place.x;
  site.peak_xyz[1] = place.y;
  site.peak_xyz[2] = place.z;
}

DensityBlobSite site_of(const qx_density_blob& blob, double point_volume,
                        const Surroundings& surroundings, const DensityCrystal& crystal,
                        const std::int32_t (&intervals)[3], double rms) {
  const gemmi::Op* moved = nullptr;
  DensityBlobSite site = {surroundings.nearest(blob.centroid, &moved)};
  site.volume = static_cast<double>(blob.points) * point_volume;
  site.score = blob.sum * point_volume;
  site.peak = blob.peak;
  site.peak_in_rms = blob.peak / rms;
  move_peak(blob, *moved, crystal, intervals, site);
  return site;
}

}  // namespace

std::vector<std::uint8_t> mask_near_model(const qx_density_box& box, const DensityCrystal& crystal,
                                          double radius, const Coordinates& model) {
  std::vector<std::array<double, 3>> places;
  const std::vector<std::array<double, 3>> atoms = model.positions();
  const std::vector<bool> waters = model.waters();
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (waters[i]) continue;
    const gemmi::Fractional at =
        crystal.cell.fractionalize(gemmi::Position(atoms[i][0], atoms[i][1], atoms[i][2]));
    for (const gemmi::Op& op : crystal.operators) {
      places.push_back(op.apply_to_xyz({at.x, at.y, at.z}));
    }
  }
  std::vector<std::uint8_t> mask(static_cast<std::size_t>(box.counts[0]) *
                                 static_cast<std::size_t>(box.counts[1]) *
                                 static_cast<std::size_t>(box.counts[2]));
  const gemmi::UnitCell& c = crystal.cell;
  const double cell[6] = {c.a, c.b, c.c, c.alpha, c.beta, c.gamma};
  qx_mask_density_box(&box, cell, radius, static_cast<std::int64_t>(places.size()),
                      reinterpret_cast<const double(*)[3]>(places.data()), mask.data());
  return mask;
}

std::vector<DensityBlobSite> find_density_blobs(const qx_density_box& box,
                                                const DensityCrystal& crystal,
                                                const BlobCriteria& criteria, double rms,
                                                const Coordinates* model,
                                                const std::uint8_t* mask) {
  const Runs runs(box, criteria.level, mask);
  const std::vector<qx_density_blob> blobs = runs.measured();
  const auto& n = box.intervals;
  const double point_volume = crystal.cell.volume / n[0] / n[1] / n[2];
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    const bool large = static_cast<double>(blobs[i].points) * point_volume >= criteria.min_volume;
    const bool dense = std::fabs(blobs[i].sum) * point_volume >= criteria.min_score;
    if (large && dense) order.push_back(i);
  }
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return std::fabs(blobs[a].sum) > std::fabs(blobs[b].sum);
  });
  const Surroundings surroundings(crystal, model);
  std::vector<bool> dropped(blobs.size());
  std::vector<DensityBlobSite> sites;
  for (const std::size_t i : order) {
    if (dropped[i]) continue;
    drop_mates(runs, blobs[i], static_cast<std::int64_t>(i), crystal, dropped);
    sites.push_back(site_of(blobs[i], point_volume, surroundings, crystal, n, rms));
  }
  add_names(sites, model);
  return sites;
}

}  // namespace qx
