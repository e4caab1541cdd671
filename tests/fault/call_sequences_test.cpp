// Public routines in any order: what one deletes another may ask for. Whatever happens is a report,
// never a use of what is gone (the sanitizers watch).
#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/random_model.h"

#include <quorix/quorix.h>

#include <cstdlib>
#include <iterator>
#include <random>

namespace qx::test {
namespace {

template <auto Routine>
void call() {
  (void)Routine();
}
// A getter whose result is not looked at.
template <auto Getter>
void get() {
  (void)(Getter() == nullptr);
}

using Call = void (*)();

constexpr Call removals[] = {
    call<qx_delete_qxmodel>,      call<qx_delete_molsys>,      call<qx_delete_qxatomb>,
    call<qx_delete_qxatomocc>,    call<qx_delete_qxsyspart>,   call<qx_delete_xmolformfact>,
    call<qx_delete_qxradcut>,     call<qx_delete_qxexptab>,    call<qx_delete_qxelecden>,
    call<qx_delete_qxstructfact>, call<qx_delete_qxsincostab>, call<qx_delete_qxcross>,
    call<qx_delete_qxmap>,        call<qx_delete_xgrid>,       call<qx_delete_qxrefdata>,
    call<qx_delete_qxcell>,       call<qx_delete_qxspg>,       call<qx_delete_qxxcry>,
    call<qx_delete_qxfft>,        call<qx_delete_xmolsys>,     call<qx_delete_refsys>,
    call<qx_delete_qxverbsys>,    call<qx_delete_qxharvest>,   call<qx_terminate_quorix>,
};

constexpr Call uses[] = {
    call<qx_new_qxmodel>,
    call<qx_new_molsys>,
    call<qx_new_qxatomb>,
    call<qx_new_xmolformfact>,
    call<qx_new_qxradcut>,
    call<qx_new_qxexptab>,
    call<qx_new_qxstructfact>,
    call<qx_new_qxcross>,
    call<qx_new_qxmap>,
    call<qx_new_qxelecden>,
    call<qx_create_atombfact>,
    call<qx_create_atomocc>,
    call<qx_make_molformfact>,
    call<qx_run_atfrmfactbase_checker>,
    call<qx_update_qxradcut>,
    call<qx_set_pre_factor>,
    call<qx_calc_system_struct_factor>,
    call<qx_scale_model_structure_factor>,
    call<qx_replace_refdata_fc>,
    call<qx_set_rfactor_bins>,
    call<qx_set_work_free_reflection_by_seed>,
    call<qx_set_refdata_s>,
    call<qx_set_centric>,
    call<qx_set_epsilon>,
    call<qx_set_hklmax>,
    call<qx_run_qxrefdata_checker>,
    call<qx_run_qxcell_checker>,
    call<qx_run_qxspg_checker>,
    call<qx_run_qxasu_checker>,
    call<qx_build_ASU>,
    call<qx_calc_ref2gind>,
    call<qx_run_qxsubgrid_checker>,
    call<qx_set_map_default>,
    call<qx_set_map_bound>,
    call<qx_generate_map>,
    call<qx_init_qxsincostab>,
    get<qx_open_qxelecden_box>,
    get<qx_get_qxrefdata>,
    get<qx_get_molsys>,
    get<qx_get_molsys_omapper>,
    get<qx_get_molsys_imapper>,
};

// An engine with crystal, model, grid and structure factors.
void set_up() {
  ASSERT_EQ(qx_create_quorix(), ok);
  set_up_crystal("P 21 21 21", "12 14 16 90 90 90", 3.0, 20);
  set_up_model(random_atoms(5, true, 1));
  for (const char* text :
       {"xgrid\nfrac 0.33\nxend\n", "xfft\nmemory 40\nxend\n", "xcut\necut 0.01\nxend\n",
        "xfcc\ncalc\nreplace\nxend\n", "xcross\nparam percent 20\nxend\n"}) {
    ASSERT_TRUE(run_section_text(text)) << text;
  }
}

TEST(CallSequences, everyRemovalBeforeEveryUse) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  const ScratchDirectory scratch;
  const auto here = std::filesystem::current_path();
  std::filesystem::current_path(scratch.path());  // the asymmetric unit writes a report
  (void)captured([] {
    for (const Call remove : removals) {
      for (const Call use : uses) {
        set_up();
        remove();
        use();
        qx_terminate_quorix();
      }
    }
  });
  std::filesystem::current_path(here);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST(CallSequences, atRandom) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  const ScratchDirectory scratch;
  const auto here = std::filesystem::current_path();
  std::filesystem::current_path(scratch.path());
  std::mt19937 random(7);
  (void)captured([&] {
    for (int sequence = 0; sequence < 1500; ++sequence) {
      if (sequence % 3 == 0) {
        (void)qx_create_quorix();
      } else {
        set_up();
      }
      for (int step = 0; step < 12; ++step) {
        // Uses more often than removals: an engine that is gone tells nothing new.
        const bool remove = random() % 4 == 0;
        const Call next = remove ? removals[random() % (std::size(removals) - 1)]
                                 : uses[random() % std::size(uses)];
        next();
      }
      qx_terminate_quorix();
    }
  });
  std::filesystem::current_path(here);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

}  // namespace
}  // namespace qx::test
