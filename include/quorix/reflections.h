// The reflection data set: columns, filtering, derived values; reading and writing commands.
#pragma once

#include <quorix/api.h>

typedef struct qxrefdata qxrefdata;
typedef struct qxrefreject qxrefreject;
typedef struct qxmtz qxmtz;

// Unique reflections between the limits of the data, Friedel opposites as one: all that the group
// does not extinguish, those that the data set has a row of, those of them that were observed, and
// the rows that qx_fill_refdata added.
typedef struct qx_completeness {
  int32_t possible, present, observed, added;
} qx_completeness;

QX_C_BEGIN

// Creates the container's data set (an earlier one is deleted first) / deletes it with its readers.
QX_API qx_status qx_new_qxrefdata(void);
QX_API qx_status qx_delete_qxrefdata(void);
QX_API qxrefdata* qx_get_qxrefdata(void);
QX_API qx_status qx_set_qxrefdata(qxrefdata* object);
// The same for a data set outside the container, which the caller owns; null after a report.
QX_API qxrefdata* qx_new_qxrefdata_obj(void);
QX_API qx_status qx_delete_qxrefdata_obj(qxrefdata* refdata);

// Reader objects of the file formats; the data set owns them.
QX_API qxmtz* qx_get_refdata_mtz(void);
QX_API void* qx_get_refdata_hkl(void);
QX_API void* qx_get_refdata_dtrek(void);
QX_API void* qx_get_refdata_scalepack(void);
QX_API void* qx_get_refdata_mmcif(void);
QX_API void* qx_get_refdata_cns(void);
QX_API qx_status qx_set_refdata_mtz(qxmtz* reader);
QX_API qx_status qx_set_refdata_hkl(void* reader);
QX_API qx_status qx_set_refdata_dtrek(void* reader);
QX_API qx_status qx_set_refdata_scalepack(void* reader);
QX_API qx_status qx_set_refdata_mmcif(void* reader);
QX_API qx_status qx_set_refdata_cns(void* reader);

// Replace the names; the text is copied.
QX_API qx_status qx_set_refdata_crystalname(const char* name);
QX_API qx_status qx_set_refdata_projectname(const char* name);
QX_API qx_status qx_set_refdata_datasetname(const char* name);

// Number (1-40) of a column word, any case; an unknown word is fatal.
QX_API qx_status qx_get_string_coid(const char* word, int32_t* number);
// The array behind a number: one of the three is set (null if the data set lacks the column), the
// others are null. Numbers outside 1-40 are fatal.
QX_API qx_status qx_get_col_based_coid(const qxrefdata* refdata, int32_t number, int32_t** indices,
                                       int16_t** flags, float** values);

// Copies the chosen columns of the file that was read into `refdata`, leaving out (0,0,0) and what
// the limits of the container's resolution object exclude, and, when `apply` is not 0, what the
// thresholds of `reject` exclude. Replaces every array of the data set. Prints the counts.
QX_API qx_status qx_build_qxrefdata(qxrefdata* refdata, const qxrefreject* reject, int32_t apply);
QX_API qx_status qx_build_qxrefdata_mtz(qxrefdata* refdata, const qxrefreject* reject,
                                        int32_t apply);
QX_API qx_status qx_build_qxrefdata_hkl(qxrefdata* refdata, const qxrefreject* reject,
                                        int32_t apply);
QX_API qx_status qx_build_qxrefdata_cns(qxrefdata* refdata, const qxrefreject* reject,
                                        int32_t apply);
QX_API qx_status qx_build_qxrefdata_scalepack(qxrefdata* refdata, const qxrefreject* reject,
                                              int32_t apply);
QX_API qx_status qx_build_qxrefdata_dtrek(qxrefdata* refdata, const qxrefreject* reject,
                                          int32_t apply);
QX_API qx_status qx_build_qxrefdata_mmcif(qxrefdata* refdata, const qxrefreject* reject,
                                          int32_t apply);

// Builds the container's data set from the file that was read, completes it and narrows the
// resolution limits to the data. Without a file nothing happens. Replaces every array.
QX_API qx_status qx_run_qxrefdata_checker(void);

// d in Angstrom of one reflection; m is the row-major rotation of the cell's orth2frac.
QX_API double qx_calc_ref_res(int32_t h, int32_t k, int32_t l, const double m[9]);

// Derived values of the container's data set; each replaces its arrays.
QX_API qx_status qx_set_refdata_s(void);
QX_API qx_status qx_set_centric(void);
QX_API qx_status qx_set_epsilon(void);
QX_API qx_status qx_set_hklmax(void);
// Releases the scattering vectors; their lengths stay. Nothing in the engine needs the vectors.
QX_API qx_status qx_release_refdata_s(void);
// Replaces the rejection flags by n flags of 0, and 1 at each of the listed indices.
QX_API qx_status qx_set_refl_reject_info(int32_t n, int32_t nrejected, const int32_t* indices,
                                         qxrefdata* refdata);

// Makes the container's data set from n Miller indices (h, k, l of each in turn) instead of a file,
// with derived values and no columns. The cell and the space group must be complete. Replaces every
// array.
QX_API qx_status qx_set_refdata_indices(int32_t n, const int32_t* hkl);
// Gives every unique reflection between the limits of the data that the data set lacks a row behind
// the others, without an observation; `added` receives their number. Derived values are made anew.
QX_API qx_status qx_fill_refdata(int32_t* added);
QX_API qx_status qx_calc_completeness(qx_completeness* out);
// Replaces the free-set flags by n given ones, n the number of reflections.
QX_API qx_status qx_set_refdata_test(int32_t n, const int16_t* flags);

// Reads the rest of a `read refl` command into `refdata`, which may stand outside the container.
// `mode` is 0. The data set is built later, by a checker or qx_build_qxrefdata.
QX_API qx_status qx_read_refdata_ctrl(qxrefdata* refdata, int32_t mode);
// Carries out the rest of a `write refl` command: format word, file, optional coid list. A file
// that could not be written is reported and gives `failed`, but leaves the engine standing.
QX_API qx_status qx_write_refdata_ctrl(void);

QX_C_END
