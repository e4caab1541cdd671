#include "driver/commands/density_peaks.h"

#include "driver/commands/coordinates.h"

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

// The same for all grid points of an orbit.
std::int64_t orbit_of(const qx_density_peak& peak, const qx_density_box& box,
                      const std::vector<gemmi::Op>& operators) {
  const auto& n = box.intervals;
  const std::array<double, 3> at = {static_cast<double>(peak.indices[0]) / n[0],
                                    static_cast<double>(peak.indices[1]) / n[1],
                                    static_cast<double>(peak.indices[2]) / n[2]};
  std::int64_t least = std::numeric_limits<std::int64_t>::max();
  for (const gemmi::Op& op : operators) {
    const auto mate = op.apply_to_xyz(at);
    std::int64_t number = 0;
    for (std::size_t a = 0; a < 3; ++a) {
      std::int64_t i = std::llround(mate[a] * n[a]) % n[a];
      if (i < 0) i += n[a];
      number = number * n[a] + i;
    }
    least = std::min(least, number);
  }
  return least;
}

}  // namespace

std::vector<DensityPeakSite> find_density_peaks(const qx_density_box& box,
                                                const DensityCrystal& crystal, double level,
                                                double rms, const Coordinates* model) {
  std::vector<qx_density_peak> peaks = all_peaks(box, level);
  std::stable_sort(peaks.begin(), peaks.end(), [](const auto& a, const auto& b) {
    return std::fabs(a.height) > std::fabs(b.height);
  });
  const Surroundings surroundings(crystal, model);
  std::unordered_set<std::int64_t> seen;
  std::vector<DensityPeakSite> sites;
  std::vector<std::size_t> atoms;
  for (const qx_density_peak& peak : peaks) {
    if (!seen.insert(orbit_of(peak, box, crystal.operators)).second) continue;
    DensityPeakSite site = {surroundings.nearest(peak.fractional), peak.height, peak.height / rms};
    if (model) atoms.push_back(static_cast<std::size_t>(site.atom));
    sites.push_back(std::move(site));
  }
  if (!model) return sites;
  const std::vector<std::string> names = model->names_of_atoms(atoms);
  for (std::size_t i = 0; i < sites.size(); ++i) sites[i].name = names[i];
  return sites;
}

}  // namespace qx
