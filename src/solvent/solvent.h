// The record of the bulk solvent.
#pragma once

#include "solvent/mask.h"

#include <quorix/solvent.h>

struct qxsolvent {
  double probe = 1.1;    // Angstrom
  double shrink = 0.9;   // Angstrom
  double spacing = 0.6;  // Angstrom, at most
  double cutoff = 3.0;   // Angstrom
  qx::MaskGrid grid = {};
  std::uint8_t* mask = nullptr;  // 1 where the model is
  double fraction = 0.0;         // of the cell, solvent
  std::int32_t nref = 0;         // length of re and im
  double* re = nullptr;
  double* im = nullptr;
};

struct qxrefdata;

namespace qx {

// Releases what was made with other settings or another model.
Status drop_solvent_mask(qxsolvent* solvent);
Status drop_solvent_factors(qxsolvent* solvent);

// Structure factors of the points that are 0 in a mask on the solvent's grid.
Status mask_factors(const qxsolvent& solvent, const std::uint8_t* mask, const qxrefdata& data,
                    double* re, double* im);
// The share of 0 in the mask, as it is now.
void measure_fraction(qxsolvent* solvent);

}  // namespace qx
