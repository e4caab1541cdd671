// The parts that the model's structure factors are the sum of: the atoms, as one part or by entries
// of the model, then partial structure factors that the data bring. Numbers from 0; the solvent is
// the last part, and its scale is that of the overall scale's fit.
#pragma once

#include <quorix/api.h>

QX_C_BEGIN

// 0: all atoms are one part; 1: each entry of the model is one. Structure factors that were
// calculated before are dropped.
QX_API qx_status qx_set_qxsyspart_by(int32_t by);
// 1: FPART and PHIP (electrons, degrees) of the data set are a part; they are copied. 0: they are
// not. Structure factors that were calculated before are dropped.
QX_API qx_status qx_set_qxsyspart_fpart(int32_t with);
// The part counts as scale exp(-b s^2 / 4) F, from now on.
QX_API qx_status qx_set_qxsyspart_scale(int32_t part, double scale, double b);
// How many parts there are, the solvent included, as the molecular system stands.
QX_API qx_status qx_get_qxsyspart_count(int32_t* count);
// A line for each part.
QX_API qx_status qx_print_qxsyspart(void);

QX_C_END
