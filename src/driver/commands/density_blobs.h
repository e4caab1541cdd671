// Blobs of a density: connected regions beyond a level, one of each orbit, by the model.
#pragma once

#include "driver/commands/surroundings.h"

#include <quorix/density_box.h>

#include <cstdint>
#include <vector>

namespace qx {

struct BlobCriteria {
  double level = 0.0;                        // in the map's unit; below 0: holes
  double min_volume = 0.0, min_score = 0.0;  // A^3; map's unit times A^3
};

struct DensityBlobSite : DensitySite {  // of the centroid
  double volume = 0.0;                  // A^3
  double score = 0.0;                   // the integral: electrons, of a map in e/A^3
  double peak = 0.0, peak_in_rms = 0.0;
  double peak_xyz[3] = {};  // Angstrom
};

// The points that atoms of the model other than those of water occupy, a byte each.
std::vector<std::uint8_t> mask_near_model(const qx_density_box& box, const DensityCrystal& crystal,
                                          double radius, const Coordinates& model);

// The largest score first. Without a `mask` all points are looked at.
std::vector<DensityBlobSite> find_density_blobs(const qx_density_box& box,
                                                const DensityCrystal& crystal,
                                                const BlobCriteria& criteria, double rms,
                                                const Coordinates* model, const std::uint8_t* mask);

}  // namespace qx
