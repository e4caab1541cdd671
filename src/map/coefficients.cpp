#include "map/coefficients.h"

#include "core/constants.h"
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "map/kick.h"
#include "scaling/coefficients.h"
#include "scaling/scale.h"

#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>
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
  const qxmap* map = nullptr;
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
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

// A zero F has phase 0; phases in [0, 360).
double phase_of(double re, double im) {
  if (re == 0.0 && im == 0.0) return 0.0;
  const double phase = std::atan2(im, re) * 180.0 / qx::pi;
  return phase < 0.0 ? phase + 360.0 : phase;
}

// u |Fo| - v |Fc| with the phase of Fc; a reflection that was not observed takes no part.
void plain_differences(const qxmap& map, const qxrefdata& data, const qx::ComplexF& f,
                       const float* fom, double* amplitude, double* phase) {
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double fo = data.fobs[i];
    const bool used = takes_part(fom, i) && std::isfinite(fo);
    const double observed = used ? map.u * weight_of(map, fom, i) * fo : 0.0;
    amplitude[i] = used ? observed - map.v * f.amplitude(i) : 0.0;
    phase[i] = used ? phase_of(f.re[at], f.im[at]) : 0.0;
  }
}

qx::CoefficientKind kind_of(std::int32_t type) {
  if (type == qx::combined_map) return qx::CoefficientKind::combined;
  return type == qx::expected_map ? qx::CoefficientKind::expected : qx::CoefficientKind::sigmaa;
}

// What the weighted kinds rest on, in the order in which it is missed.
Status check_weighted(const char* here) {
  const qxml* ml = nullptr;
  const qxscale* scale = nullptr;
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_qxml, ml, "qxml object has not been created yet."),
      qx::need(qx_get_qxscale, scale, "qxscale object has not been created ")));
  return ok;
}

// The figure of merit is part of these coefficients: one near 0 drops nothing here, since what was
// not observed has none and counts as D F.
Status weighted(const char* here, const qxmap& map, const qxrefdata& data, const qx::ComplexF& f,
                double* amplitude, double* phase) {
  const qxml* ml = qx_get_qxml();
  if (!ml) return failed;
  const qx::CoefficientChoice choice = {kind_of(map.type), map.u, map.v, ml->fill_free,
                                        ml->fill_missing};
  qx::ComplexF out;
  QX_TRY(qx::weighted_coefficients(here, choice, data, f, out));
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    amplitude[i] = out.amplitude(i);
    phase[i] = phase_of(out.re[at], out.im[at]);
  }
  return ok;
}

}  // namespace

namespace qx {

Status fetch_calculated(const char* here, const qxmap*& map, const qxrefdata*& set) {
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  if (!qx_get_qxstructfact()) return fail(here, "qxstructfact object has not been created yet ");
  if (map->type != qx::unweighted_map) QX_TRY(check_weighted(here));
  if (!qx_get_molsys()) return fail(here, "molsys object has not been created yet ");
  set = map_refdata();
  if (!set) return failed;
  if (!set->fobs) return fail(here, "There is no observed amplitude data defined yet.");
  if (set != qx_get_qxrefdata()) {
    return fail(here, "The model's structure factors are not those of the reflections of the map.");
  }
  return ok;
}

Status calculated_factors(const qxrefdata& data, ComplexF& f) {
  QX_TRY(open_f(data.nreflections, f));
  const qxscale* scale = qx_get_qxscale();
  if (!qx_exist_quorix()) return failed;
  if (scale && scale->fitted && scale->nref == data.nreflections) {
    return qx_calc_total_structure_factor(f.re.get(), f.im.get());
  }
  return qx_calc_model_structure_factor(f.re.get(), f.im.get());
}

Status coefficients_from(const char* here, const qxmap& map, const qxrefdata& set,
                         const ComplexF& f, double* amplitude, double* phase) {
  if (map.type != unweighted_map) return weighted(here, map, set, f, amplitude, phase);
  const float* fom = nullptr;
  QX_TRY(take_fom(here, map, set, fom));
  plain_differences(map, set, f, fom, amplitude, phase);
  return ok;
}

}  // namespace qx

Status qx_set_map_coef(double* amplitude, double* phase) {
  constexpr auto here = "qx_set_map_coef():";
  const qxmap* map = nullptr;
  const qxrefdata* set = nullptr;
  QX_TRY(qx::fetch_calculated(here, map, set));
  qx::ComplexF f;
  QX_TRY(qx::calculated_factors(*set, f));
  return qx::coefficients_from(here, *map, *set, f, amplitude, phase);
}

namespace qx {

Status map_coefficients(const qxmap& map, double* amplitude, double* phase) {
  if (map.amplitude_source == input_source || map.phase_source == input_source) {
    return qx_assemble_input_map_coeff(amplitude, phase);
  }
  if (map.kick == kicked) return kicked_coefficients(map, amplitude, phase);
  if (qx_set_map_coef(amplitude, phase) == ok) return ok;
  return fail("qx_generate_map():", "There is no way to get map coefficients.");
}

}  // namespace qx
