#include "driver/commands/density_peaks.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

namespace qx {

namespace {

std::vector<qx_density_peak> all_peaks(const qx_density_box& box, double level) {
  std::vector<qx_density_peak> peaks(1024);
  const std::int64_t n =
      qx_find_density_peaks(&box, level, static_cast<std::int64_t>(peaks.size()), peaks.data());
  const bool more = n > static_cast<std::int64_t>(peaks.size());
  peaks.resize(static_cast<std::size_t>(n));
  if (more) (void)qx_find_density_peaks(&box, level, n, peaks.data());
  return peaks;
}

std::size_t place_of(const qx_density_peak& peak, const qx_density_box& box) {
  std::size_t place = 0;
  for (int axis = 2; axis >= 0; --axis) {
    place = place * static_cast<std::size_t>(box.counts[axis]) +
            static_cast<std::size_t>(peak.indices[axis] - box.starts[axis]);
  }
  return place;
}

}  // namespace

std::int64_t orbit_of(const std::int32_t (&indices)[3], const std::int32_t (&n)[3],
                      const std::vector<gemmi::Op>& operators) {
  const std::array<double, 3> at = {static_cast<double>(indices[0]) / n[0],
                                    static_cast<double>(indices[1]) / n[1],
                                    static_cast<double>(indices[2]) / n[2]};
  std::int64_t least = std::numeric_limits<std::int64_t>::max();
  for (const gemmi::Op& op : operators) {
    const auto mate =
        op.apply_to_xyz(at);  // the nearest point, on grids that do not suit the group
    std::int64_t number = 0;
    for (std::size_t a = 0; a < 3; ++a) {
      const std::int64_t i = std::llround(mate.at(a) * n[a]) % n[a];
      number = number * n[a] + (i < 0 ? i + n[a] : i);
    }
    least = std::min(least, number);
  }
  return least;
}

std::vector<DensityPeakSite> find_density_peaks(const qx_density_box& box,
                                                const DensityCrystal& crystal, double level,
                                                double rms, const Coordinates* model,
                                                const std::uint8_t* mask) {
  std::vector<qx_density_peak> peaks = all_peaks(box, level);
  std::stable_sort(peaks.begin(), peaks.end(), [](const auto& a, const auto& b) {
    return std::fabs(a.height) > std::fabs(b.height);
  });
  const Surroundings surroundings(crystal, model);
  std::unordered_set<std::int64_t> seen;
  std::vector<DensityPeakSite> sites;
  for (const qx_density_peak& peak : peaks) {
    if (mask && mask[place_of(peak, box)]) continue;
    if (!seen.insert(orbit_of(peak.indices, box.intervals, crystal.operators)).second) continue;
    sites.push_back({surroundings.nearest(peak.fractional), peak.height, peak.height / rms});
  }
  add_names(sites, model);
  return sites;
}

}  // namespace qx
