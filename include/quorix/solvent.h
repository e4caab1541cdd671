// The flat bulk solvent: a mask of the cell and its structure factors.
#pragma once

#include <quorix/api.h>

typedef struct qxsolvent qxsolvent;

QX_C_BEGIN

// Settings, mask and structure factors; the getter gives null without a report when absent.
QX_API qx_status qx_new_qxsolvent(void);
QX_API qx_status qx_delete_qxsolvent(void);
QX_API qxsolvent* qx_get_qxsolvent(void);
QX_API qx_status qx_set_qxsolvent(qxsolvent* object);

// Radius of the probe added to every atom's, distance taken back, largest step of the mask's grid,
// resolution beyond which the solvent scatters nothing: all Angstrom, the steps and the resolution
// above 0, the others at least 0. A change makes the mask anew at its next use.
QX_API qx_status qx_set_qxsolvent_probe(double probe);
QX_API qx_status qx_set_qxsolvent_shrink(double shrink);
QX_API qx_status qx_set_qxsolvent_spacing(double spacing);
QX_API qx_status qx_set_qxsolvent_cutoff(double cutoff);

// Mask of the molecular system: 1 where neither an atom of occupancy above 0 (hydrogens never) nor
// what the probe cannot reach stands (Jiang & Bruenger, J. Mol. Biol. 243, 100, 1994). Reports a
// missing cell, group, molecular system or a van der Waals radius that is not above 0. Replaces the
// mask and its structure factors.
QX_API qx_status qx_make_solvent_mask(void);
// Structure factors of the mask at the reflections of the data set, electrons per (e/A^3), 0 beyond
// the cutoff; makes the mask when there is none. Replaces them.
QX_API qx_status qx_calc_solvent_structure_factor(void);
// The share of the cell that is solvent; 0 without a mask.
QX_API double qx_get_solvent_fraction(void);
// The mask as a CCP4 map of the whole cell, 1 solvent and 0 model.
QX_API qx_status qx_write_solvent_mask(const char* path);

QX_C_END
