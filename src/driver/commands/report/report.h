// quorix report: what its page shows of a map, as JSON.
#pragma once

#include "driver/commands/reflection_file.h"

#include <quorix/map.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace qx {

// Counts of the density between its extremes, or between 12 and 20 rms about zero where those lie
// further out.
nlohmann::ordered_json density_histogram(const qx_ccp4_map& map, double rms);

// The points that the page holds: the map, or a box of it.
struct ShownBox {
  std::int32_t first[3], counts[3];  // within the map's own points
  bool whole = true;
};

// The whole map if it has at most `most` points; else the box of that size about the grid point
// `centre`.
ShownBox shown_box(const qx_ccp4_map& map, const double (&centre)[3], double most);

// The box in steps of a tenth of the rms, a byte a point, gzipped, in base 64.
nlohmann::ordered_json packed_density(const qx_ccp4_map& map, const ShownBox& box, double rms);

// Shells of equal volume in reciprocal space. From the map's own Fourier coefficients, which needs
// the whole cell; null after a report.
nlohmann::ordered_json completeness_of_map(const qx_ccp4_map& map,
                                           const std::vector<std::string>& records);
// From a column of a reflection file; an empty label takes the usual one of such a map.
nlohmann::ordered_json completeness_of_data(const ReflectionFile& file, const std::string& label,
                                            bool difference);

}  // namespace qx
