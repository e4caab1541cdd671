// MTZ reflection files, version MTZ:V1.1.
#pragma once

#include <quorix/api.h>

#include <stdio.h>

typedef struct qxmtz qxmtz;
typedef struct qxrefdata qxrefdata;

QX_C_BEGIN

// Creates an empty MTZ object in the container's data set / in `refdata` (an earlier one is deleted
// first), or deletes it with all its arrays.
QX_API qx_status qx_new_refdata_mtz(void);
QX_API qx_status qx_delete_refdata_mtz(void);
QX_API qx_status qx_new_refdata_mtz_obj(qxrefdata* refdata);
QX_API qx_status qx_delete_refdata_mtz_obj(qxrefdata* refdata);

// Reads a whole file, all columns, into the MTZ object of the container's data set / of `refdata`;
// an earlier object is deleted first. `path` must outlive a die: no engine memory.
QX_API qx_status qx_read_refdata_mtz_file(const char* path);
QX_API qx_status qx_read_refdata_mtz_file_obj(qxrefdata* refdata, const char* path);
// No more than the header: columns without their values, for a look.
QX_API qx_status qx_read_refdata_mtz_header_obj(qxrefdata* refdata, const char* path);
// Keeps the file that `refdata` has read until the engine goes or its object is deleted by name: a
// `read refl` of the same path takes what is there, unless the file has changed, and several data
// sets may have it at a time.
QX_API qx_status qx_hold_refdata_mtz(const qxrefdata* refdata);
QX_API void qx_print_refdata_mtz(void);
// What `refdata` has read leaves the engine: it is the caller's, who ends it with qx_end_mtz on any
// thread, and `refdata` has no file from then on. Null, without a report, if there is none.
QX_API qxmtz* qx_take_refdata_mtz(qxrefdata* refdata);
QX_API void qx_end_mtz(qxmtz* mtz);
// While this thread's engine lives, a `read refl` of `path` takes what was taken elsewhere instead,
// whatever the file holds by then. Several engines may have it at a time; both arguments outlive
// them. A later call takes the place of an earlier one.
QX_API void qx_lend_mtz(const char* path, const qxmtz* mtz);

// Items read from the stream, fewer at its end; words are converted from number format `code`
// (4 little-endian, 1 big-endian). 0 after a report.
QX_API size_t qx_read_mtz_char(FILE* stream, char* buffer, size_t n);
QX_API size_t qx_read_mtz_int(FILE* stream, int32_t* buffer, size_t n, int32_t code);
QX_API size_t qx_read_mtz_float(FILE* stream, float* buffer, size_t n, int32_t code);

// Splits "label" or "crystal/dataset/label" (the first two empty for a bare label). Each output
// holds as many bytes as `name`, terminator included. "M/ISYM" is a label.
QX_API qx_status qx_get_mtz_cry_ds_col_name(const char* name, char* crystal, char* dataset,
                                            char* column);
// Positions (from 0, -1 when absent) of a crystal and of its data set in the container's MTZ
// object, names in any case.
QX_API qx_status qx_get_mtz_cry_ds_pos(const char* crystal, const char* dataset,
                                       int32_t* crystal_position, int32_t* dataset_position);
// Position (from 0, -1 when absent) of the column that `name` means, as in a coid list.
QX_API qx_status qx_get_mtz_col_pos(const qxmtz* mtz, const char* name, int32_t* position);
// Positions (from 1, 0 when absent) of up to five labels, counted over the whole file.
QX_API void qx_get_mtz_col_order(const qxmtz* mtz, int32_t nwanted, const char* const* labels,
                                 int32_t* order);

// A new MTZ object with the columns of `refdata`: H, K, L and each column number n (1-40) for which
// labels[n] is not null (a null `labels`: every column). Without a label, or with an empty one, a
// column keeps that of the file it was read from, else its word. The caller owns the object.
QX_API qxmtz* qx_make_mtz_obj(const qxrefdata* refdata, const char* const* labels);
// The same, and behind them the columns of the file that were not read as any of these, at its
// kept reflections; a column whose label is taken by then is left out.
QX_API qxmtz* qx_make_mtz_with_others_obj(const qxrefdata* refdata, const char* const* labels);
QX_API qx_status qx_delete_mtz_obj(qxmtz* mtz);

// Writers: 0, or not 0 after a report that leaves the engine standing. The file appears at `path`
// only when it is whole.
QX_API int32_t qx_write_refdata_mtz_file(const char* path, const qxmtz* mtz);
// Reads a file of one format and writes all its columns as another, each named as in `read refl`
// ("MTZ", "CNS", "HKL", "SCA", "DTR", "CIF"). What the other format cannot hold is told. The text
// formats and mmCIF have no operators: an MTZ file made of one names the group alone.
QX_API qx_status qx_convert_reflections(const char* from_format, const char* from,
                                        const char* to_format, const char* to);
QX_API int32_t qx_write_mtz_char(FILE* stream, const char* buffer, size_t n);
QX_API int32_t qx_write_mtz_int(FILE* stream, const int32_t* buffer, size_t n);
QX_API int32_t qx_write_mtz_float(FILE* stream, const float* buffer, size_t n);
// Pads to 80 characters; a longer record is refused.
QX_API int32_t qx_write_mtz_record(FILE* stream, const char* record);
QX_API int32_t qx_write_mtz_machine_arch(FILE* stream);

QX_C_END
