// The root object, its members, section dispatch and the fatal-error path.
#pragma once

#include <quorix/api.h>

struct qxroot;
struct qxmemmonitor;
struct qxtimerfactory;
struct qxparser;
struct xmolsys;
struct refsys;
struct qxwater;
struct qxminimizer;
struct qxminparm;
struct qxharvest;
struct qxverbsys;
struct qxwilson;

extern "C" {

// The one root of the process, null when none exists; every other object hangs from it.
QX_API extern qxroot* quorix;
// 0 until the first die() of the process, then 1.
QX_API extern std::int32_t die_reentrant;

// Creates a root with all members at their defaults; an existing root is deleted first.
QX_API qx::Status qx_new_quorix();
QX_API qx::Status qx_create_quorix();
// Releases the root and every tagged block; without a root, nothing happens.
QX_API void qx_delete_quorix();
QX_API void qx_terminate_quorix();
QX_API std::int32_t qx_exist_quorix();
QX_API qxroot* qx_get_quorix();
// Installs `root`; an existing root is deleted first.
QX_API void qx_set_quorix(qxroot* root);

// The engine's only reaction to a fault: tears the root down and returns to the caller, whose
// pointers into the engine are all invalid from then on. fdie_ is the same routine.
QX_API void die();
QX_API void fdie_();
// How often die() has run in this process: front ends compare it before and after a section.
QX_API std::int64_t qx_get_die_count();

// Runs one section of the loaded text through its controller. Always returns 0: whether the
// section failed shows in qx_get_die_count().
QX_API qx::Status qx_quorix_ctrl();

// Members. Getters report, die and give null without a root. Setters keep the pointer and do not
// release what it replaces: creators delete first.
QX_API qxmemmonitor* qx_get_qxmemmonitor();
QX_API qxtimerfactory* qx_get_qxtimerfactory();
QX_API qxparser* qx_get_qxparser();
QX_API xmolsys* qx_get_xmolsys();
QX_API refsys* qx_get_refsys();
QX_API qxwater* qx_get_qxwater();
QX_API qxminimizer* qx_get_qxminimizer();
QX_API qxminparm* qx_get_qxminparm();
QX_API qxharvest* qx_get_qxharvest();
QX_API qxverbsys* qx_get_qxverbsys();
QX_API qxwilson* qx_get_qxwilson();
QX_API qx::Status qx_set_qxmemmonitor(qxmemmonitor* object);
QX_API qx::Status qx_set_qxtimerfactory(qxtimerfactory* object);
QX_API qx::Status qx_set_qxparser(qxparser* object);
QX_API qx::Status qx_set_xmolsys(xmolsys* object);
QX_API qx::Status qx_set_refsys(refsys* object);
QX_API qx::Status qx_set_qxwater(qxwater* object);
QX_API qx::Status qx_set_qxminimizer(qxminimizer* object);
QX_API qx::Status qx_set_qxminparm(qxminparm* object);
QX_API qx::Status qx_set_qxharvest(qxharvest* object);
QX_API qx::Status qx_set_qxverbsys(qxverbsys* object);
QX_API qx::Status qx_set_qxwilson(qxwilson* object);

QX_API qx::Status qx_new_xmolsys();
QX_API qx::Status qx_new_refsys();
QX_API qx::Status qx_new_qxwater();
QX_API qx::Status qx_new_qxminimizer();
QX_API qx::Status qx_new_qxminparm();
QX_API qx::Status qx_new_qxharvest();
QX_API qx::Status qx_new_qxverbsys();
QX_API qx::Status qx_new_qxwilson();
QX_API qx::Status qx_new_qxtimerfactory();
QX_API qx::Status qx_delete_xmolsys();
QX_API qx::Status qx_delete_refsys();
QX_API qx::Status qx_delete_qxtimerfactory();
QX_API qx::Status qx_delete_qxwater();
QX_API qx::Status qx_delete_qxminimizer();
QX_API qx::Status qx_delete_qxminparm();
QX_API qx::Status qx_delete_qxharvest();
QX_API qx::Status qx_delete_qxverbsys();
QX_API qx::Status qx_delete_qxwilson();

// Verbosity switches; the getters report, die and give 0 when the record is missing.
QX_API std::int32_t qx_get_qxverbsys_verb_mtz();
QX_API std::int32_t qx_get_qxverbsys_verb_hkl();
QX_API std::int32_t qx_get_qxverbsys_verb_debug();
QX_API std::int32_t qx_get_qxverbsys_verb_mem();
QX_API std::int32_t qx_get_qxverbsys_verb_binr();
QX_API std::int32_t qx_get_qxverbsys_verb_ls();
QX_API std::int32_t qx_get_qxverbsys_verb_ml();
QX_API std::int32_t qx_get_qxverbsys_verb_cpu();
QX_API qx::Status qx_set_qxverbsys_verb_mtz(std::int32_t level);
QX_API qx::Status qx_set_qxverbsys_verb_hkl(std::int32_t level);
QX_API qx::Status qx_set_qxverbsys_verb_debug(std::int32_t level);

// Statistics kept for the record of a run (resolutions in Angstrom, counts, fractions).
QX_API qx::Status qx_set_hv_high_res(double d);
QX_API qx::Status qx_set_hv_low_res(double d);
QX_API qx::Status qx_set_hv_data_reject_sigma(double cut);
QX_API qx::Status qx_set_hv_data_reject_rms(double cut);
QX_API qx::Status qx_set_hv_data_reject_amplitude(double cut);
QX_API qx::Status qx_set_hv_rfree_nrefl(std::int32_t count);
QX_API qx::Status qx_set_hv_rfree_percent(double fraction);
QX_API qx::Status qx_set_hv_r_work(double r);
QX_API qx::Status qx_set_hv_r_free(double r);
QX_API qx::Status qx_set_hv_k_sol(double k);
QX_API qx::Status qx_set_hv_b_sol(double b);
QX_API qx::Status qx_set_hv_wilson_b(double b);
QX_API qx::Status qx_set_hv_fom(double fom);

// Path of a data file: the name itself if readable, else $ZENVI_DATA/xray/<name>. The caller frees
// the text with xfree. Null after a report when neither is readable.
QX_API char* qx_get_database_file(const char* name);

// Section controllers: each reads its commands up to "xend" from the loaded text and returns 0,
// also after a report; a controller that is not built yet returns 1.
QX_API qx::Status qx_xcry_ctrl();
QX_API qx::Status qx_xmod_ctrl();
QX_API qx::Status qx_xrfactor_ctrl();
QX_API qx::Status qx_xmol_ctrl();
QX_API qx::Status qx_syspart_ctrl();
QX_API qx::Status qx_target_ctrl();
QX_API qx::Status qx_grid_ctrl();
QX_API qx::Status qx_ffac_ctrl();
QX_API qx::Status qx_water_ctrl();
QX_API qx::Status qx_cross_validate_ctrl();
QX_API qx::Status qx_xverbose_ctrl();
QX_API qx::Status qx_xfft_ctrl();
QX_API qx::Status qx_xfc_ctrl();
QX_API qx::Status qx_map_generation_ctrl();
QX_API qx::Status qx_fofomap_generation_ctrl();
QX_API qx::Status qx_wilson_ctrl();
QX_API qx::Status qx_xoverall_ctrl();
QX_API qx::Status qx_xbulk_ctrl();
QX_API qx::Status qx_xmlf_ctrl();
QX_API qx::Status qx_xcut_ctrl();
QX_API qx::Status qx_xomit_ctrl();
QX_API qx::Status qx_xter_ctrl();

}  // extern "C"
