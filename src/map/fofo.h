// The record of the differences of two sets.
#pragma once

#include "stats/pair_scale.h"

#include <quorix/fofo.h>

struct qxrefdata;

namespace qx {
enum FofoScale : std::int32_t { fofo_unscaled, fofo_isotropic, fofo_anisotropic };
enum FofoWeight : std::int32_t { fofo_unweighted, fofo_q };
}  // namespace qx

struct qxfofo {
  // Settings.
  qx::FofoScale scale = qx::fofo_anisotropic;
  qx::FofoWeight weight = qx::fofo_q;
  double alpha = 0.05;
  double reject = 0.0;  // differences above so many rms stay out; 0: none
  qxrefdata* second = nullptr;
  // Differences by reflection of the crystal's set; not a number where there is none.
  bool known = false;
  std::int32_t nref = 0;
  float *difference = nullptr, *error = nullptr, *weights = nullptr;
  qx::PairScale fit;
  qx::PairDifferences means;
  std::int32_t pairs = 0, first_only = 0, second_only = 0, negative = 0, rejected = 0;
  double mean_weight = 0.0;
};

namespace qx {

// Forgets the differences: settings or sets have changed.
Status drop_differences(qxfofo& fofo);

}  // namespace qx
