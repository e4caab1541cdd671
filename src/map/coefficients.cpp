#include "map/coefficients.h"

#include "core/constants.h"
#include "core/report.h"
#include "core/tagged.h"
#include "crystal/reflections.h"

#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/structfact.h>

#include <cmath>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr double least_fom = 1e-5;

// Kept: unless a weighted map is asked for, the figure of merit only decides whether a reflection
// takes part.
bool takes_part(const float* fom, std::int32_t i) { return !fom || fom[i] >= least_fom; }

double weight_of(const qxmap& map, const float* fom, std::int32_t i) {
  return map.weighted ? static_cast<double>(fom[i]) : 1.0;
}

// Null is right only for a map without weights.
Status take_fom(const char* here, const qxmap& map, const qxrefdata& set, const float*& fom) {
  fom = set.fom ? set.fom : set.map_fom;
  if (map.weighted && !fom) return fail(here, "There is no figure of merit defined yet.");
  return ok;
}

}  // namespace

Status qx_assemble_input_map_coeff(double* amplitude, double* phase) {
  constexpr auto here = "qx_assemble_input_map_coeff():";
  const qxmap* map = qx_get_qxmap();
  if (!map) return fail(here, "qxmap object has not been created yet.");
  const bool input_amplitude = map->amplitude_source == qx::input_source;
  const bool input_phase = map->phase_source == qx::input_source;
  if (!input_amplitude) {
    return fail(here, "Can not assemble input map coefficients from the same source.");
  }
  if (!input_phase) return fail(here, "Donot know how to assemble input map phases.");
  const qxrefdata* set = qx::map_refdata();
  if (!set) return failed;
  if (!set->map_coeff_amplitude) {
    return fail(here, "There is no input amplitude data defined yet.");
  }
  if (!set->map_coeff_phase) return fail(here, "There is no input phase data defined yet.");
  const float* fom = nullptr;
  QX_TRY(take_fom(here, *map, *set, fom));
  for (std::int32_t i = 0; i < set->nreflections; ++i) {
    const double a = set->map_coeff_amplitude[i];
    const double p = set->map_coeff_phase[i];
    const bool used = takes_part(fom, i) && std::isfinite(a) && std::isfinite(p);
    amplitude[i] = used ? a * weight_of(*map, fom, i) : 0.0;
    phase[i] = used ? p : 0.0;
  }
  return ok;
}

namespace {

struct ModelF {
  qx::Tagged<double> re;
  qx::Tagged<double> im;
};

// A zero F has phase 0; phases in [0, 360).
double phase_of(double re, double im) {
  if (re == 0.0 && im == 0.0) return 0.0;
  const double phase = std::atan2(im, re) * 180.0 / qx::pi;
  return phase < 0.0 ? phase + 360.0 : phase;
}

Status calculate(std::int32_t n, ModelF& f) {
  f.re = qx::Tagged<double>(static_cast<std::size_t>(n), "pmc_re");
  if (!f.re) return failed;
  f.im = qx::Tagged<double>(static_cast<std::size_t>(n), "pmc_im");
  if (!f.im) return failed;
  return qx_calc_model_structure_factor(f.re.get(), f.im.get());
}

}  // namespace

// u |Fo| - v |Fc| with the phase of Fc; a reflection that was not observed takes no part. The
// weighted kinds end at the first object that they miss.
Status qx_set_map_coef(double* amplitude, double* phase) {
  constexpr auto here = "qx_set_map_coef():";
  const qxmap* map = qx_get_qxmap();
  if (!map) return fail(here, "qxmap object has not been created yet.");
  if (!qx_get_qxstructfact()) return fail(here, "qxstructfact object has not been created yet ");
  if (map->type != qx::unweighted_map) return fail(here, "qxml object has not been created yet.");
  if (!qx_get_molsys()) return fail(here, "molsys object has not been created yet ");
  const qxrefdata* set = qx::map_refdata();
  if (!set) return failed;
  if (!set->fobs) return fail(here, "There is no observed amplitude data defined yet.");
  if (set != qx_get_qxrefdata()) {
    return fail(here, "The model's structure factors are not those of the reflections of the map.");
  }
  const float* fom = nullptr;
  QX_TRY(take_fom(here, *map, *set, fom));
  const std::int32_t n = set->nreflections;
  ModelF f;
  QX_TRY(calculate(n, f));
  for (std::int32_t i = 0; i < n; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double fo = set->fobs[i];
    const bool used = takes_part(fom, i) && std::isfinite(fo);
    const double observed = used ? map->u * weight_of(*map, fom, i) * fo : 0.0;
    amplitude[i] = used ? observed - map->v * std::hypot(f.re[at], f.im[at]) : 0.0;
    phase[i] = used ? phase_of(f.re[at], f.im[at]) : 0.0;
  }
  return ok;
}

namespace qx {

Status map_coefficients(const qxmap& map, double* amplitude, double* phase) {
  if (map.amplitude_source == input_source || map.phase_source == input_source) {
    return qx_assemble_input_map_coeff(amplitude, phase);
  }
  if (qx_set_map_coef(amplitude, phase) == ok) return ok;
  return fail("qx_generate_map():", "There is no way to get map coefficients.");
}

}  // namespace qx
