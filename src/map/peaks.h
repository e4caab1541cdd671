// K. Local maxima of a density.
#pragma once

#include <quorix/density_box.h>

#include <cstdint>

namespace qx {

// As qx_find_density_peaks.
std::int64_t find_peaks(const qx_density_box& box, double level, std::int64_t capacity,
                        qx_density_peak* peaks) noexcept;

}  // namespace qx
