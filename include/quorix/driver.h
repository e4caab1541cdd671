// Front-end routines: one section through the engine, and the map run as five sections.
#pragma once

#include <quorix/api.h>

QX_C_BEGIN

// Runs one section held as `nlines` text slots of 1024 bytes, each NUL-terminated. Failures are
// reported and followed by die; qx_get_die_count() tells.
QX_API void qx_run_section_job(int32_t nlines, const char* buffer);

// A map of the whole cell from an MTZ file. `cell` is a, b, c (Angstrom), alpha, beta, gamma
// (degrees); resolutions in Angstrom, those below 0.01 become 1.0 (high) and 50.0 (low); a null or
// blank `fom_label` means no figure of merit. Texts of any length. Stops at the first section that
// failed and gives `failed` then.
QX_API qx_status quorix_zenvi_driver2(const char* space_group, const double cell[6],
                                      const char* reflection_file, const char* ampl_label,
                                      const char* phase_label, const char* fom_label,
                                      const char* map_file, double reso_high, double reso_low);

QX_C_END
