// K. Regions of a crystal that are left out of a model, and the points of a grid that belong to
// groups of atoms. Regions repeat with the lattice; fractional coordinates, lengths in Angstrom.
#pragma once

#include "solvent/mask.h"

#include <cstdint>

namespace qx {

enum class OmitShape : std::int32_t { box, sphere };

struct OmitRegion {
  OmitShape shape = OmitShape::box;
  double at[6] = {};  // low and high of x, y, z; or centre x, y, z and radius
};

// Fractional to orthogonal coordinates (upper triangular, a along x), and a*, b*, c*.
struct CellFrame {
  double matrix[9];
  double stars[3];
};

// Whether a lattice copy of the point lies in the region, or within `rim` of it.
bool region_holds(const OmitRegion& region, const CellFrame& frame, double rim,
                  const double (&point)[3]) noexcept;

// x' = R x + t of a 4 x 4 row-major operator.
inline void image(const double (&op)[16], const double (&point)[3], double (&out)[3]) noexcept {
  for (int i = 0; i < 3; ++i) {
    const double* row = op + 4 * i;
    out[i] = row[0] * point[0] + row[1] * point[1] + row[2] * point[2] + row[3];
  }
}

// Groups 0 .. groups - 1 of n >= groups atoms, by halving them again and again along their longest
// axis. `order` is scratch of n.
void halve_atoms(std::int32_t n, const double* const (&xyz)[3], std::int32_t groups,
                 std::int32_t* order, std::int32_t* group) noexcept;

// Atoms of a cell sorted into bins along its axes.
struct AtomBins {
  static constexpr std::int32_t most = 32;  // along an axis
  std::int32_t counts[3];
  std::int32_t* starts;  // counts[0] * counts[1] * counts[2] + 1
  std::int32_t* atoms;
  const double (*positions)[3];  // fractional, in the cell

  [[nodiscard]] std::int32_t bins() const noexcept { return counts[0] * counts[1] * counts[2]; }
};

// About a bin for each `length` Angstrom between the planes of the lattice.
void choose_bins(const CellFrame& frame, double length, AtomBins& bins) noexcept;
void sort_into_bins(const AtomBins& bins, std::int32_t natom) noexcept;
// Sets the marks of all atoms a lattice copy of which lies within `radius` of the point to 1.
void mark_near(const AtomBins& bins, const CellFrame& frame, const double (&point)[3],
               double radius, std::int32_t* marks) noexcept;

// To whom the points of a cell belong.
struct PointOwners {
  static constexpr std::uint16_t nobody = 65535;
  MaskGrid grid;
  std::uint16_t* owner;
  float* distance;  // squared; later beyond any
};

void clear_owners(const PointOwners& owners) noexcept;
// Points within `radius` of the centre become the group's that are nearer to it than to their
// owner.
void claim_near(const PointOwners& owners, const double (&centre)[3], double radius,
                std::uint16_t group) noexcept;
// Points without an owner take that of the nearest points that have one.
void claim_rest(const PointOwners& owners) noexcept;
// Mates have the same owner. False if the operators do not map the grid onto itself.
bool symmetrise_owners(const PointOwners& owners, std::int32_t nops,
                       const double (*ops)[16]) noexcept;

}  // namespace qx
