// Maps of a crystal without a part of its model. Scale, solvent mask and likelihood stay those of
// the whole model: what is left out of F is the scattering of the atoms. A region repeats with the
// crystal's symmetry: an atom is in it when a mate of it is.
#pragma once

#include <quorix/api.h>

typedef struct qxomit qxomit;

QX_C_BEGIN

// The getter gives null without a report when absent; creating replaces.
QX_API qx_status qx_new_qxomit(void);
QX_API qx_status qx_delete_qxomit(void);
QX_API qxomit* qx_get_qxomit(void);
QX_API qx_status qx_set_qxomit(qxomit* object);

// Regions, in any number: what they hold is left out together. Low and high of x, y and z in
// fractions of the cell, or in Angstrom (the smallest fractional box that holds those corners); a
// sphere about a point, Angstrom; atoms by their number in the full system, from 0.
QX_API qx_status qx_add_omit_frac(const double limits[6]);
QX_API qx_status qx_add_omit_box(const double limits[6]);
QX_API qx_status qx_add_omit_sphere(const double centre[3], double radius);
QX_API qx_status qx_add_omit_atoms(int32_t n, const int32_t* atoms);
// A composite map instead: the atoms are halved along their longest axis again and again until
// there are that many groups, at most one for each atom. Each point of the map is taken from the
// map without the group that it is nearest to.
QX_API qx_status qx_set_qxomit_boxes(int32_t boxes);
// Atoms within `rim` Angstrom of a box, a sphere or the atoms of a group are left out as well
// (1.5).
QX_API qx_status qx_set_qxomit_rim(double rim);
// 1: the region, of listed atoms and of groups what lies within 3 A of them, holds no solvent
// either. 0: the solvent stays as it is.
QX_API qx_status qx_set_qxomit_mask(int32_t clear);

// The density of the map object's box and kind, in the place of an earlier one; prints how many
// atoms were left out.
QX_API qx_status qx_generate_omit_map(void);
// Leaves the atoms of the regions out of all that is calculated from here on, what has been
// calculated included; scale and likelihood stay. Until the molecular system is built anew.
QX_API qx_status qx_exclude_omit_atoms(void);
// Takes all atoms in again.
QX_API qx_status qx_restore_omit_atoms(void);

QX_C_END
