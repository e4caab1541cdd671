// Peaks of a density as people look at them: one of each orbit, by the model, the nearest atom
// told.
#pragma once

#include "driver/commands/coordinates.h"
#include "driver/commands/surroundings.h"

#include <quorix/density_box.h>

#include <vector>

namespace qx {

struct DensityPeakSite : DensitySite {
  double value = 0.0;   // in the map's unit
  double in_rms = 0.0;  // of the map that the caller means
};

// The point of the whole cell's grid that stands for a point and its mates.
std::int64_t orbit_of(const std::int32_t (&indices)[3], const std::int32_t (&n)[3],
                      const std::vector<gemmi::Op>& operators);

// Writes the names of the nearest atoms.
template <class Site>
void add_names(std::vector<Site>& sites, const Coordinates* model) {
  if (!model) return;
  std::vector<std::size_t> atoms;
  for (const Site& site : sites) atoms.push_back(static_cast<std::size_t>(site.atom));
  const std::vector<std::string> names = model->names_of_atoms(atoms);
  for (std::size_t i = 0; i < sites.size(); ++i) sites[i].name = names[i];
}

// Peaks of at least `level` (holes of at most it, if it is below 0; in the map's unit), the highest
// (deepest) first; by the model, if there is one. `rms` is what heights are told in besides. With a
// `mask`, a byte for each point of the box, peaks in it are left out.
std::vector<DensityPeakSite> find_density_peaks(const qx_density_box& box,
                                                const DensityCrystal& crystal, double level,
                                                double rms, const Coordinates* model,
                                                const std::uint8_t* mask = nullptr);

}  // namespace qx
