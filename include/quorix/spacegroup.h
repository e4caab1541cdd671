// Space groups: selection, operators, zones. Operator matrices are 4 x 4 row-major, acting on
// fractional columns, with the last row (0 0 0 1).
#pragma once

#include <quorix/api.h>

typedef struct qxspg qxspg;
typedef struct symoperstrmat symoperstrmat;

QX_C_BEGIN

// Creation replaces what is there; deleting releases every text and matrix.
QX_API qx_status qx_new_qxspg(void);
QX_API qx_status qx_delete_qxspg(void);
QX_API qxspg* qx_get_qxspg(void);
QX_API qx_status qx_set_qxspg(qxspg* object);

// The user's choice: a name, or operators such as -x,y+1/2,-z. Texts are copied.
QX_API qx_status qx_set_qxspg_spgname(const char* name);
QX_API qx_status qx_insert_qxspg_symop_prim(const char* text);
QX_API qx_status qx_insert_qxspg_symop_cent(const char* text);
// Turns the choice into a complete group; a group that is complete stays.
QX_API qx_status qx_run_qxspg_checker(void);

// Selection from a database file (as it stands, else in the data directory). The first record that
// matches is taken. Operators that match none are the group themselves; a number or a name that
// matches none is fatal.
QX_API qx_status qx_set_spg_by_spgid(const char* file, int32_t id);
QX_API qx_status qx_set_spg_by_spgname(const char* file, const char* name);
QX_API qx_status qx_set_spg_by_symoper_strs(const char* file, int32_t ncent,
                                            const char* const* cent_strings, int32_t nprim,
                                            const char* const* prim_strings);
QX_API qx_status qx_set_spg_by_symoper_mats(const char* file, int32_t ncent,
                                            const double (*cent)[16], int32_t nprim,
                                            const double (*prim)[16]);
// By `id` if not 0, else by `name` if not null, else by the full list of operators; `denominators`
// holds those of each operator's translations, per row.
QX_API qx_status qx_set_spg_guts(const char* file, int32_t id, const char* name, int32_t nmats,
                                 const double (*mats)[16], const int32_t (*denominators)[3]);
// Releases a list of operators and sets its count to 0.
QX_API qx_status qx_delete_symoperstrmats(symoperstrmat** list, int32_t* count);

// Operator text to matrix and the denominators of its translations (1 without one, 0 for one that
// is no fraction).
QX_API qx_status qx_parse_spg_symm_oper(const char* string, double* matrix,
                                        int32_t denominators[3]);
// Limits such as 0<=x<=1/2, 1e-5 outside an inclusive bound and inside others.
QX_API qx_status qx_parse_asu_limits(const char* string, float* low, float* high,
                                     int32_t denominators[2]);
// Translations into [0, 1), snapped to k/24.
QX_API void qx_normalize_translation(double* matrix);
// Text of an operator; `out` holds 64 characters.
QX_API qx_status qx_get_string_oper_by_matrix(const double* matrix, char* out);

// Screw axes as some write them, 2_1 and 2(1), become 21 as the database has them, in place; gives
// 1 to 230 for a name that is such a number, else 0.
QX_API int32_t qx_plain_group_name(char* name);
// Quotes become blanks, in place. 1 if two names agree apart from case, quotes and blanks, else 0.
QX_API void qx_proc_spg_names(char* name);
QX_API int32_t qx_match_spg_names(const char* a, const char* b);

// Zones on which centric reflections and epsilon factors are decided.
QX_API qx_status qx_set_qxspg_centric_oper(void);
QX_API qx_status qx_set_qxspg_epsilon_zone(void);
// 1 for a centric reflection, else 0; the epsilon factor (exact for indices below 500).
QX_API int32_t qx_calc_centric_ref(int32_t h, int32_t k, int32_t l);
QX_API int32_t qx_calc_epsilon_ref(int32_t h, int32_t k, int32_t l);

QX_API qx_status qx_print_qxspg(void);
// The short name, padded with blanks to 10 and not ended; a longer one is copied whole. `len`
// is 10.
QX_API qx_status qx_get_space_group_name_(char* out, int32_t* len);
QX_API void qx_get_z_value_(int32_t* z);

QX_C_END
