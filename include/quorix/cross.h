// Cross-validation: working and free sets, resolution bins, the seeded generator.
#pragma once

#include <quorix/api.h>

typedef struct qxcross qxcross;

// A column of free-set flags.
typedef struct qx_flag_tally {
  int32_t usable;  // 0: fractions, or too many values to be flags; then the rest means nothing
  int32_t n;       // distinct values, in increasing order, and how often each occurs
  int32_t values[256];
  int64_t counts[256];
  int64_t flags, missing;  // rows with and without a value
  int32_t has_free;        // 1: the next one marks the free set
  int32_t free_value;
} qx_flag_tally;

QX_C_BEGIN

QX_API qx_status qx_new_qxcross(void);
QX_API qx_status qx_delete_qxcross(void);
// Null without a report when no cross-validation section has run.
QX_API qxcross* qx_get_qxcross(void);
QX_API qx_status qx_set_qxcross(qxcross* object);

QX_API qx_status qx_set_qxcross_percent(double percent);
// A negative seed reloads the generator with its absolute value at the next draw.
QX_API qx_status qx_set_qxcross_seed(int32_t seed);
QX_API qx_status qx_set_qxcross_nbin(int32_t nbin);

// Splits the data set by its flags (use_flags 1) or at random, evenly over resolution, and builds
// the bins. Replaces all lists.
QX_API qx_status qx_set_work_free_reflection(int32_t use_flags, int32_t flag_value);
QX_API qx_status qx_set_work_free_reflection_by_read(int32_t flag_value);
QX_API qx_status qx_set_work_free_reflection_by_seed(void);
// Bins of equal count in order of resolution. Replaces the bin arrays.
QX_API qx_status qx_set_rfactor_bins(void);

// The free list and its length; null and 0 when there is none.
QX_API const int32_t* qx_get_qxcross_free(int32_t* n);

// The bin table (d in Angstrom); the second only when the verb_binr switch is at least 1.
QX_API void qx_print_bin_rfactor(void);
QX_API void qx_fprint_bin_rfactor_(void);
QX_API void qx_fprint_bin_rfactor_mid_(void);

// Park-Miller minimal standard generator, one state for the process, loaded from `seed` on the
// first call and whenever `seed` is negative; `seed` receives the state. In (0, 1).
QX_API double qx_get_random_double01(int32_t* seed);
QX_API int32_t qx_get_random_int(int32_t* seed, int32_t lo, int32_t hi);
QX_API double qx_get_random_double(int32_t* seed, double lo, double hi);
QX_API void qx_get_frandom_int_(int32_t* seed, const int32_t* lo, const int32_t* hi,
                                int32_t* result);
QX_API void qx_get_frandom_double_(int32_t* seed, const double* lo, const double* hi,
                                   double* result);

// Counts the flags of `n` rows, NaN where missing, and tells by the counts, and where they do not
// decide by the column's label, which value marks the free set: files disagree on it.
QX_API void qx_tally_free_flags(int64_t n, const float* column, const char* label,
                                qx_flag_tally* tally);

QX_C_END
