// Atomic form factors: f(s) = sum of a_i exp(-b_i s^2 / 4), s = 1/d in 1/Angstrom, a_i in electrons
// (X-rays) or fm (neutrons), b_i in Angstrom^2.
#pragma once

#include <quorix/api.h>

typedef struct xmolformfact xmolformfact;
typedef struct qxatformfacthash qxatformfacthash;
typedef struct atfrmfactbase atfrmfactbase;
typedef struct ioafrmfact ioafrmfact;
typedef struct molformfact molformfact;

QX_C_BEGIN

// The container with the two type tables, the base, the user settings and the pick-up object.
QX_API qx_status qx_new_xmolformfact(void);
QX_API qx_status qx_delete_xmolformfact(void);
QX_API xmolformfact* qx_get_xmolformfact(void);
QX_API qx_status qx_set_xmolformfact(xmolformfact* object);
// Members; null without a report when absent.
QX_API atfrmfactbase* qx_get_atfrmfactbase(void);
QX_API qx_status qx_set_atfrmfactbase(atfrmfactbase* object);
QX_API ioafrmfact* qx_get_ioafrmfact(void);
QX_API qx_status qx_set_ioafrmfact(ioafrmfact* object);
QX_API molformfact* qx_get_molformfact(void);
QX_API qx_status qx_set_molformfact(molformfact* object);
QX_API qxatformfacthash* qx_get_qxatformfacthash5(void);
QX_API qx_status qx_set_qxatformfacthash5(qxatformfacthash* object);
QX_API qxatformfacthash* qx_get_qxatformfacthash2(void);
QX_API qx_status qx_set_qxatformfacthash2(qxatformfacthash* object);

// Reads the two files of a method (0 electron, 1 neutron) into the base and the tables. Replaces
// what an earlier fill left.
QX_API qx_status qx_fill_atfrmfactbase(int32_t method);
// Fills the base with its stored method if it holds nothing yet.
QX_API qx_status qx_run_atfrmfactbase_checker(void);
QX_API qx_status qx_set_atfrmfactbase_diffmethod(int32_t method);
QX_API qx_status qx_set_ioafrmfact_diffraction(int32_t method);
QX_API qx_status qx_set_ioafrmfact_b0(double b0);
// Forces 2 or 5 Gaussians for a type.
QX_API qx_status qx_insert_ioafrmfact_aff(const char* type, int32_t ngauss);
// Index into the base of an atom type, and its number of Gaussians; -1 after a report.
QX_API int32_t qx_pickup_afrmfactbase_index(const char* type, int32_t* ngauss);
// Per-atom arrays for all atoms of the molecular system. Replaces them.
QX_API qx_status qx_make_molformfact(void);
QX_API qx_status qx_update_molformfact_with_waters(void);

// Atom-type tables: keys of at most 4 characters, compared exactly; the newest entry of a key wins.
QX_API qx_status qx_insert_qxatformfacthash_kv(qxatformfacthash* table, const char* key,
                                               int32_t value);
QX_API int32_t qx_get_qxatformfacthash_kv(const qxatformfacthash* table, const char* key,
                                          int32_t* value);
QX_API void qx_print_qxatformfacthash(const qxatformfacthash* table);
QX_API void qx_print_atfrmfactbase(void);
QX_API void qx_print_ioafrmfact(void);

QX_C_END
