// The record of what is omitted, and its atoms and points.
#pragma once

#include "core/tagged.h"
#include "map/omit_region.h"
#include "model/molsys.h"

#include <quorix/omit.h>

struct qxcell;
struct qxspg;

struct qxomit {
  std::int32_t boxes = 0;  // regions of a composite map; 0: the regions given
  double rim = 1.5;        // Angstrom: how much farther atoms are left out than the region reaches
  bool clear_mask = false;
  std::int32_t nregions = 0, capacity = 0;
  qx::OmitRegion* regions = nullptr;
  std::int32_t nlisted = 0;  // length of `listed`: atoms of the full system
  std::uint8_t* listed = nullptr;
};

namespace qx {

// Crystal and atoms that regions are laid over.
struct OmitSetting {
  const qxomit* omit = nullptr;
  const ::molsys* system = nullptr;
  const qxcell* cell = nullptr;
  const qxspg* group = nullptr;
  CellFrame frame = {};

  // Reports under `heading` what is missing.
  Status fetch(const char* heading);
  void fractional(std::int32_t atom, double (&out)[3]) const;
};

// Marks (1) the computed atoms any symmetry mate of which a region holds, the rim included, beside
// those that are marked.
void mark_regions(const OmitSetting& setting, const OmitRegion* regions, std::int32_t n,
                  std::int32_t* marks);
// Marks those listed and no others.
void mark_listed(const OmitSetting& setting, std::int32_t* marks);

bool has_regions(const qxomit& omit);
Status check_regions(const char* heading, const qxomit& omit);  // reports that there is none
// Marks of the atoms that the regions leave out, and of those that were listed alone.
Status mark_atoms(const OmitSetting& setting, Tagged<std::int32_t>& marks,
                  Tagged<std::int32_t>& listed);
// Takes the marks off what is left out already and scatters nothing; gives how many are left.
std::int32_t drop_excluded(const ::molsys& system, std::int32_t* marks);

// Sets the points of the regions, without the rim, to 1 on a mask of the cell.
void mark_points(const OmitSetting& setting, const OmitRegion* regions, std::int32_t n,
                 const MaskGrid& grid, std::uint8_t* mask);
// The same of what lies within 3 A of atoms whose mark is `wanted`.
void mark_points_near(const OmitSetting& setting, const std::int32_t* marks, std::int32_t wanted,
                      const MaskGrid& grid, std::uint8_t* mask);

}  // namespace qx
