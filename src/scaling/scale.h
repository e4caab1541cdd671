// Records of the overall scale and of the likelihood's parameters.
#pragma once

#include "stats/overall_scale.h"
#include "stats/sigmaa.h"

#include <quorix/scaling.h>

struct qxscale {
  // Settings. The mode follows the number of reflections until somebody chooses one.
  bool mode_chosen = false;
  qx::SolventMode mode = qx::binned_solvent;
  bool anisotropic = true;
  double k_sol = -1.0;  // given when not negative
  double b_sol = -1.0;
  // The fit.
  bool fitted = false;
  std::int32_t nref = 0;  // of the data set it was made for
  qx::ScaleFit fit;
  // The last R factors.
  bool compared = false;
  double high = 0.0, low = 99999.0;  // Angstrom
  qx_agreement work = {}, free = {};
};

namespace qx {
enum LikelihoodSet : std::int32_t { use_free_set, use_working_set, use_all };
}  // namespace qx

struct qxml {
  // Settings.
  qx::LikelihoodMode mode = qx::continuous_likelihood;
  qx::LikelihoodSet use = qx::use_free_set;
  std::int32_t nodes = 0;    // 0: by the number of reflections
  bool errors = false;       // sigma of the amplitudes counts
  bool fill_free = false;    // maps take reflections of the free set as not observed
  bool fill_missing = true;  // what was not observed is D F in maps of full density
  // The fit; D and S hold for amplitudes times mean_scale / k_tot.
  bool fitted = false;
  std::int32_t nref = 0;
  qx::SigmaaFit fit;
  double mean_scale = 1.0;  // <k_tot>
  std::int32_t used = 0;    // reflections of the likelihood
  double mean_fom = 0.0;    // over the observed reflections
};
