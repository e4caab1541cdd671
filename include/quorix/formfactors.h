// Atomic form factors: f(s) = sum of a_i exp(-b_i s^2 / 4), s = 1/d in 1/Angstrom, a_i in electrons
// (X-rays) or fm (neutrons), b_i in Angstrom^2.
#pragma once

#include <quorix/api.h>

struct xmolformfact;
struct qxatformfacthash;
struct atfrmfactbase;
struct ioafrmfact;
struct molformfact;

extern "C" {

// The container with the two type tables, the base, the user settings and the pick-up object.
QX_API qx::Status qx_new_xmolformfact();
QX_API qx::Status qx_delete_xmolformfact();
QX_API xmolformfact* qx_get_xmolformfact();
QX_API qx::Status qx_set_xmolformfact(xmolformfact* object);
// Members; null without a report when absent.
QX_API atfrmfactbase* qx_get_atfrmfactbase();
QX_API qx::Status qx_set_atfrmfactbase(atfrmfactbase* object);
QX_API ioafrmfact* qx_get_ioafrmfact();
QX_API qx::Status qx_set_ioafrmfact(ioafrmfact* object);
QX_API molformfact* qx_get_molformfact();
QX_API qx::Status qx_set_molformfact(molformfact* object);
QX_API qxatformfacthash* qx_get_qxatformfacthash5();
QX_API qx::Status qx_set_qxatformfacthash5(qxatformfacthash* object);
QX_API qxatformfacthash* qx_get_qxatformfacthash2();
QX_API qx::Status qx_set_qxatformfacthash2(qxatformfacthash* object);

// Reads the two files of a method (0 electron, 1 neutron) into the base and the tables. Replaces
// what an earlier fill left.
QX_API qx::Status qx_fill_atfrmfactbase(std::int32_t method);
// Fills the base with its stored method if it holds nothing yet.
QX_API qx::Status qx_run_atfrmfactbase_checker();
QX_API qx::Status qx_set_atfrmfactbase_diffmethod(std::int32_t method);
QX_API qx::Status qx_set_ioafrmfact_diffraction(std::int32_t method);
QX_API qx::Status qx_set_ioafrmfact_b0(double b0);
// Forces 2 or 5 Gaussians for a type.
QX_API qx::Status qx_insert_ioafrmfact_aff(const char* type, std::int32_t ngauss);
// Index into the base of an atom type, and its number of Gaussians; -1 after a report.
QX_API std::int32_t qx_pickup_afrmfactbase_index(const char* type, std::int32_t* ngauss);
// Per-atom arrays for all atoms of the molecular system. Replaces them.
QX_API qx::Status qx_make_molformfact();
QX_API qx::Status qx_update_molformfact_with_waters();

// Atom-type tables: keys of at most 4 characters, compared exactly; the newest entry of a key wins.
QX_API qx::Status qx_insert_qxatformfacthash_kv(qxatformfacthash* table, const char* key,
                                                std::int32_t value);
QX_API std::int32_t qx_get_qxatformfacthash_kv(const qxatformfacthash* table, const char* key,
                                               std::int32_t* value);
QX_API void qx_print_qxatformfacthash(const qxatformfacthash* table);
QX_API void qx_print_atfrmfactbase();
QX_API void qx_print_ioafrmfact();

}  // extern "C"
