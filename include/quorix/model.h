// The molecular system: atoms, their B factors and occupancies.
#pragma once

#include <quorix/api.h>

extern "C" {

// Blurring B in Angstrom^2 that is added to every atom's density and taken off its structure
// factors.
QX_API qx::Status qx_set_qxatomb_B0(double b0);

}  // extern "C"
