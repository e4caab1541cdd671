// The root object, its members, section dispatch and the fatal-error path.
#pragma once

#include <quorix/api.h>

typedef struct qxroot qxroot;
typedef struct qxmemmonitor qxmemmonitor;
typedef struct qxtimerfactory qxtimerfactory;
typedef struct qxparser qxparser;
typedef struct xmolsys xmolsys;
typedef struct refsys refsys;
typedef struct qxwater qxwater;
typedef struct qxminimizer qxminimizer;
typedef struct qxminparm qxminparm;
typedef struct qxharvest qxharvest;
typedef struct qxverbsys qxverbsys;
typedef struct qxwilson qxwilson;

QX_C_BEGIN

// The one root of the thread, null when none exists; every other object hangs from it. A thread has
// an engine of its own: it neither sees nor may touch what another one owns.
QX_API extern QX_PER_THREAD qxroot* quorix;
// 0 until the first die() of the thread, then 1.
QX_API extern QX_PER_THREAD int32_t die_reentrant;

// Creates a root with all members at their defaults; an existing root is deleted first.
QX_API qx_status qx_new_quorix(void);
QX_API qx_status qx_create_quorix(void);
// Crystal, model and whatever else sections made give way to defaults, as for the next job of a
// caller that has more than one; memory and text not yet run stay.
QX_API qx_status qx_renew_quorix(void);
// Releases the root and every tagged block; without a root, nothing happens.
QX_API void qx_delete_quorix(void);
QX_API void qx_terminate_quorix(void);
QX_API int32_t qx_exist_quorix(void);
QX_API qxroot* qx_get_quorix(void);
// Installs `root`; an existing root is deleted first.
QX_API void qx_set_quorix(qxroot* root);

// The engine's only reaction to a fault: tears the root down and returns to the caller, whose
// pointers into the engine are all invalid from then on. fdie_ is the same routine.
QX_API void die(void);
QX_API void fdie_(void);
// How often die() has run in this thread: front ends compare it before and after a section.
QX_API int64_t qx_get_die_count(void);

// Where what the engine prints goes from here on: `sink` is called with each piece, which no zero
// byte ends. It outlives the root, must not throw and must not call the engine. Null: standard
// output. Each thread has its own.
typedef void (*qx_output_sink)(void* context, const char* text, size_t size);
QX_API void qx_set_output(qx_output_sink sink, void* context);

// On how many threads this thread's engine may do heavy work. 0 (at first): as many as the
// environment says (QUORIX_THREADS, OMP_NUM_THREADS), else as there are processors for this
// process; the getter gives the number. Results do not depend on it.
QX_API void qx_set_threads(int32_t threads);
QX_API int32_t qx_get_threads(void);

// Runs one section of the loaded text through its controller. Always returns 0: whether the
// section failed shows in qx_get_die_count().
QX_API qx_status qx_quorix_ctrl(void);

// Members. Getters report, die and give null without a root. Setters keep the pointer and do not
// release what it replaces: creators delete first.
QX_API qxmemmonitor* qx_get_qxmemmonitor(void);
QX_API qxtimerfactory* qx_get_qxtimerfactory(void);
QX_API qxparser* qx_get_qxparser(void);
QX_API xmolsys* qx_get_xmolsys(void);
QX_API refsys* qx_get_refsys(void);
QX_API qxwater* qx_get_qxwater(void);
QX_API qxminimizer* qx_get_qxminimizer(void);
QX_API qxminparm* qx_get_qxminparm(void);
QX_API qxharvest* qx_get_qxharvest(void);
QX_API qxverbsys* qx_get_qxverbsys(void);
QX_API qxwilson* qx_get_qxwilson(void);
QX_API qx_status qx_set_qxmemmonitor(qxmemmonitor* object);
QX_API qx_status qx_set_qxtimerfactory(qxtimerfactory* object);
QX_API qx_status qx_set_qxparser(qxparser* object);
QX_API qx_status qx_set_xmolsys(xmolsys* object);
QX_API qx_status qx_set_refsys(refsys* object);
QX_API qx_status qx_set_qxwater(qxwater* object);
QX_API qx_status qx_set_qxminimizer(qxminimizer* object);
QX_API qx_status qx_set_qxminparm(qxminparm* object);
QX_API qx_status qx_set_qxharvest(qxharvest* object);
QX_API qx_status qx_set_qxverbsys(qxverbsys* object);
QX_API qx_status qx_set_qxwilson(qxwilson* object);

QX_API qx_status qx_new_xmolsys(void);
QX_API qx_status qx_new_refsys(void);
QX_API qx_status qx_new_qxwater(void);
QX_API qx_status qx_new_qxminimizer(void);
QX_API qx_status qx_new_qxminparm(void);
QX_API qx_status qx_new_qxharvest(void);
QX_API qx_status qx_new_qxverbsys(void);
QX_API qx_status qx_new_qxwilson(void);
QX_API qx_status qx_new_qxtimerfactory(void);
QX_API qx_status qx_delete_xmolsys(void);
QX_API qx_status qx_delete_refsys(void);
QX_API qx_status qx_delete_qxtimerfactory(void);
QX_API qx_status qx_delete_qxwater(void);
QX_API qx_status qx_delete_qxminimizer(void);
QX_API qx_status qx_delete_qxminparm(void);
QX_API qx_status qx_delete_qxharvest(void);
QX_API qx_status qx_delete_qxverbsys(void);
QX_API qx_status qx_delete_qxwilson(void);

// Verbosity switches; the getters report, die and give 0 when the record is missing.
QX_API int32_t qx_get_qxverbsys_verb_mtz(void);
QX_API int32_t qx_get_qxverbsys_verb_hkl(void);
QX_API int32_t qx_get_qxverbsys_verb_debug(void);
QX_API int32_t qx_get_qxverbsys_verb_mem(void);
QX_API int32_t qx_get_qxverbsys_verb_binr(void);
QX_API int32_t qx_get_qxverbsys_verb_ls(void);
QX_API int32_t qx_get_qxverbsys_verb_ml(void);
QX_API int32_t qx_get_qxverbsys_verb_cpu(void);
QX_API qx_status qx_set_qxverbsys_verb_mtz(int32_t level);
QX_API qx_status qx_set_qxverbsys_verb_hkl(int32_t level);
QX_API qx_status qx_set_qxverbsys_verb_debug(int32_t level);

// Statistics kept for the record of a run (resolutions in Angstrom, counts, fractions).
QX_API qx_status qx_set_hv_high_res(double d);
QX_API qx_status qx_set_hv_low_res(double d);
QX_API qx_status qx_set_hv_data_reject_sigma(double cut);
QX_API qx_status qx_set_hv_data_reject_rms(double cut);
QX_API qx_status qx_set_hv_data_reject_amplitude(double cut);
QX_API qx_status qx_set_hv_rfree_nrefl(int32_t count);
QX_API qx_status qx_set_hv_rfree_percent(double fraction);
QX_API qx_status qx_set_hv_r_work(double r);
QX_API qx_status qx_set_hv_r_free(double r);
QX_API qx_status qx_set_hv_k_sol(double k);
QX_API qx_status qx_set_hv_b_sol(double b);
QX_API qx_status qx_set_hv_wilson_b(double b);
QX_API qx_status qx_set_hv_fom(double fom);

// Path of a data file: the name itself if readable, else $ZENVI_DATA/xray/<name>. The caller frees
// the text with xfree. Null after a report when neither is readable.
QX_API char* qx_get_database_file(const char* name);

// Section controllers: each reads its commands up to "xend" from the loaded text and returns 0,
// also after a report; a controller that is not built yet returns 1.
QX_API qx_status qx_xcry_ctrl(void);
QX_API qx_status qx_xmod_ctrl(void);
QX_API qx_status qx_xrfactor_ctrl(void);
QX_API qx_status qx_xmol_ctrl(void);
QX_API qx_status qx_syspart_ctrl(void);
QX_API qx_status qx_target_ctrl(void);
QX_API qx_status qx_grid_ctrl(void);
QX_API qx_status qx_ffac_ctrl(void);
QX_API qx_status qx_water_ctrl(void);
QX_API qx_status qx_cross_validate_ctrl(void);
QX_API qx_status qx_xverbose_ctrl(void);
QX_API qx_status qx_xfft_ctrl(void);
QX_API qx_status qx_xfc_ctrl(void);
QX_API qx_status qx_map_generation_ctrl(void);
QX_API qx_status qx_fofomap_generation_ctrl(void);
QX_API qx_status qx_wilson_ctrl(void);
QX_API qx_status qx_xoverall_ctrl(void);
QX_API qx_status qx_xbulk_ctrl(void);
QX_API qx_status qx_xmlf_ctrl(void);
QX_API qx_status qx_xcut_ctrl(void);
QX_API qx_status qx_xomit_ctrl(void);
QX_API qx_status qx_xter_ctrl(void);

QX_C_END
