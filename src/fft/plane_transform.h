// Planes of a real density from the disc that holds half its spectrum: first all columns along z,
// then, plane by plane and in any order, columns along y and pairs of rows along x. What a thread
// writes into meanwhile it brings itself; nothing here changes once it is open.
#pragma once

#include "core/tagged.h"
#include "fft/disc_spectrum.h"
#include "fft/kernels.h"

#include <quorix/api.h>
#include <quorix/fft.h>

namespace qx {

// Of one thread; made of one block by PlaneTransform::scratch().
struct PlaneScratch {
  double** pointers = nullptr;  // four lists: in and out, real and imaginary parts
  double* zeros = nullptr;      // stand for rows outside the sphere
  double* spare = nullptr;      // takes what nobody asked for
  double* plane = nullptr;      // [y][real parts, imaginary parts] of the plane in work
  double* woven = nullptr;      // [y][even and odd h] of a cache line of columns, for lattices
  double* line = nullptr;       // a pair of rows
  FftScratch fft = {};
};

class PlaneTransform {
 public:
  // Fetches plans from the engine's cache; `failed` after a report. `disc` stays the caller's.
  Status open(const DiscLayout& disc);
  [[nodiscard]] std::size_t scratch_doubles() const noexcept;
  [[nodiscard]] PlaneScratch scratch(double* block) const noexcept;

  // The columns along z of one row, iy in [0, ny): from the planes |l| <= lmax to those that are
  // wanted. place[iz]: where plane iz goes among the planes of the block, -1: nowhere.
  void transform_z(double* block, std::int32_t iy, const std::int32_t* place,
                   const PlaneScratch& scratch) const noexcept;
  // The columns along y of the plane that is kept at `place`.
  void open_plane(const double* block, std::int32_t place,
                  const PlaneScratch& scratch) const noexcept;
  // Two rows of the plane that was opened, one behind the other; iy_b = -1: the first alone.
  [[nodiscard]] const double* rows(std::int32_t iy_a, std::int32_t iy_b,
                                   const PlaneScratch& scratch) const noexcept;

 private:
  [[nodiscard]] std::ptrdiff_t plane_rows() const noexcept {
    return disc_.alternates ? disc_.ny / 2 : disc_.ny;
  }
  void open_lattice_plane(double* plane, const PlaneScratch& scratch) const noexcept;
  void weave(std::ptrdiff_t first, const PlaneScratch& scratch) const noexcept;

  DiscLayout disc_;
  const FftKernels* kernels_ = nullptr;
  const qxfftplan* x_plan_ = nullptr;
  const qxfftplan* y_plan_ = nullptr;
  const qxfftplan* z_plan_ = nullptr;
  Tagged<double> half_turns_;  // of a lattice: cos, sin of 2 pi y / ny, y < ny / 2
};

}  // namespace qx
