// The spectrum of a map: coefficients under the group's symmetry, on a grid.
#pragma once

#include "core/tagged.h"
#include "fft/half_spectrum.h"
#include "map/synthesis.h"

namespace qx {

struct GridCounts {
  std::int32_t nx, ny, nz;
  [[nodiscard]] std::size_t points() const {
    return static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny) *
           static_cast<std::size_t>(nz);
  }
};

// A list of coefficients under the symmetry, and what was measured of it.
class Spectrum {
 public:
  Status open(const CoefficientList& list, bool add_opposites, const GridCounts& grid);
  // The part of half a spectrum that can be non-zero.
  [[nodiscard]] HalfSpectrum half() const {
    const Index3 largest = extent.largest;
    return {{grid_.nx, grid_.ny, grid_.nz, largest.h}, largest.k, largest.l, columns_.get()};
  }
  // How many h from 0 on have a term, per k of the grid.
  [[nodiscard]] const std::int32_t* columns() const { return columns_.get(); }
  [[nodiscard]] const Expansion& expansion() const { return expansion_; }
  // Frees what only the expansion needed.
  void close_expansion() { counts_.reset(); }

  SpectrumExtent extent;

 private:
  Status open_symmetry();
  Status open_scratch(Index3 bounds);
  Status fold_columns(const std::int32_t* columns, std::int32_t kmax);

  GridCounts grid_ = {};
  Symmetry symmetry_;
  IndexSet seen_;
  Expansion expansion_ = {};
  Tagged<MateOperator> operators_;
  Tagged<Index3> mates_;
  Tagged<std::uint8_t> counts_;
  Tagged<std::uint64_t> seen_words_;
  Tagged<std::int32_t> columns_;  // per k of the grid
};

}  // namespace qx
