// What the routines that put atoms on the grid share: the objects they need, where atoms lie, and
// one atom spread over the box.
#pragma once

#include "core/tagged.h"
#include "model/atom_terms.h"

#include <algorithm>
#include <cmath>

struct qxcell;
struct qxrecicell;

namespace qx {

enum class Box { full, sub };

// What spreading needs, and where it goes.
struct DensityJob {
  const char* heading = nullptr;
  AtomSources atoms;
  const qxradcut* cut = nullptr;
  const qxcell* cell = nullptr;
  const qxrecicell* reciprocal = nullptr;
  SpreadGrid grid = {};
  double sign = 1.0;  // -1 takes density off
};

// Fetches the objects and lays the box out: all planes, or those of the sub-box `shift`.
Status prepare_job(DensityJob& job, const char* heading, Box box, std::int32_t shift,
                   double*** density);
// Fractional position of an atom, brought into the cell.
Status position(const DensityJob& job, std::int32_t atom, double (&out)[3]);
// Tensor of an atom in the standard frame: Q U Q^T, Q the turn from the frame of the coordinates.
void standard_tensor(const DensityJob& job, std::int32_t atom, double (&out)[6]) noexcept;
// The fractional position of an atom that check_atom let pass, and its Gaussians put on a grid,
// which is the job's or a slab of it; these are for work in parts.
void place_atom(const DensityJob& job, std::int32_t atom, double (&out)[3]) noexcept;
void spread_checked(const DensityJob& job, const SpreadGrid& grid, std::int32_t atom,
                    const double (&centre)[3], double* scratch) noexcept;
// Reports what keeps an atom's density from being finite, as the routines for one atom do.
Status check_atom(const DensityJob& job, std::int32_t atom);
Status check_terms(const DensityJob& job, std::int32_t atom);  // without the occupancy
Status check_kind(const DensityJob& job, std::int32_t atom, bool aniso);
Status open_scratch(const DensityJob& job, Tagged<double>& scratch);
// Adds the atom, or takes it off, centred at its position in the cell.
Status spread_atom(const DensityJob& job, std::int32_t atom, const double (&centre)[3],
                   double* scratch);
Status spread_atom(const DensityJob& job, std::int32_t atom, double* scratch);
// How far the lattice copies of a centre reach that touch the cell; the box itself does not wrap.
struct Copies {
  int low[3], high[3];
};
Copies copies_of(const DensityJob& job, const double (&centre)[3], double radius) noexcept;

// Every lattice copy of a centre whose sphere can reach the cell.
template <class Spread>
void for_each_copy(const DensityJob& job, const double (&centre)[3], double radius, Spread spread) {
  const Copies n = copies_of(job, centre, radius);
  for (int k = n.low[2]; k <= n.high[2]; ++k) {
    for (int j = n.low[1]; j <= n.high[1]; ++j) {
      for (int i = n.low[0]; i <= n.high[0]; ++i) {
        const double copy[3] = {centre[0] + i, centre[1] + j, centre[2] + k};
        spread(copy);
      }
    }
  }
}

}  // namespace qx
