// Cross-validation: working and free sets, resolution bins, the seeded generator.
#pragma once

#include <quorix/api.h>

struct qxcross;

extern "C" {

QX_API qx::Status qx_new_qxcross();
QX_API qx::Status qx_delete_qxcross();
// Null without a report when no cross-validation section has run.
QX_API qxcross* qx_get_qxcross();
QX_API qx::Status qx_set_qxcross(qxcross* object);

QX_API qx::Status qx_set_qxcross_percent(double percent);
// A negative seed reloads the generator with its absolute value at the next draw.
QX_API qx::Status qx_set_qxcross_seed(std::int32_t seed);
QX_API qx::Status qx_set_qxcross_nbin(std::int32_t nbin);

// Splits the data set by its flags (use_flags 1) or at random, evenly over resolution, and builds
// the bins. Replaces all lists.
QX_API qx::Status qx_set_work_free_reflection(std::int32_t use_flags, std::int32_t flag_value);
QX_API qx::Status qx_set_work_free_reflection_by_read(std::int32_t flag_value);
QX_API qx::Status qx_set_work_free_reflection_by_seed();
// Bins of equal count in order of resolution. Replaces the bin arrays.
QX_API qx::Status qx_set_rfactor_bins();

// The free list and its length; null and 0 when there is none.
QX_API const std::int32_t* qx_get_qxcross_free(std::int32_t* n);

// The bin table (d in Angstrom); the second only when the verb_binr switch is at least 1.
QX_API void qx_print_bin_rfactor();
QX_API void qx_fprint_bin_rfactor_();
QX_API void qx_fprint_bin_rfactor_mid_();

// Park-Miller minimal standard generator, one state for the process, loaded from `seed` on the
// first call and whenever `seed` is negative; `seed` receives the state. In (0, 1).
QX_API double qx_get_random_double01(std::int32_t* seed);
QX_API std::int32_t qx_get_random_int(std::int32_t* seed, std::int32_t lo, std::int32_t hi);
QX_API double qx_get_random_double(std::int32_t* seed, double lo, double hi);
QX_API void qx_get_frandom_int_(std::int32_t* seed, const std::int32_t* lo, const std::int32_t* hi,
                                std::int32_t* result);
QX_API void qx_get_frandom_double_(std::int32_t* seed, const double* lo, const double* hi,
                                   double* result);

}  // extern "C"
