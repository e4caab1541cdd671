#include "map/coefficients.h"

#include "core/refsys.h"
#include "core/report.h"
#include "crystal/reflections.h"

#include <quorix/engine.h>

#include <cmath>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr double least_fom = 1e-5;

// Kept: the figure of merit only decides whether a reflection takes part; it never multiplies.
bool takes_part(const float* fom, std::int32_t i) { return !fom || fom[i] >= least_fom; }

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
  const float* fom = set->fom ? set->fom : set->map_fom;
  for (std::int32_t i = 0; i < set->nreflections; ++i) {
    const double a = set->map_coeff_amplitude[i];
    const double p = set->map_coeff_phase[i];
    const bool used = takes_part(fom, i) && std::isfinite(a) && std::isfinite(p);
    amplitude[i] = used ? a : 0.0;
    phase[i] = used ? p : 0.0;
  }
  return ok;
}

// u |Fo| - v |Fc| with the phase of Fc, and the weighted kinds of it. Until structure factors can
// be calculated, every kind ends at the first object that it misses.
Status qx_set_map_coef(double* /*amplitude*/, double* /*phase*/) {
  constexpr auto here = "qx_set_map_coef():";
  const refsys* system = qx_get_refsys();
  if (!system) return failed;
  const qxmap* map = qx_get_qxmap();
  if (!map) return fail(here, "qxmap object has not been created yet.");
  if (!system->structfact) return fail(here, "qxstructfact object has not been created yet ");
  if (map->type != qx::unweighted_map) return fail(here, "qxml object has not been created yet.");
  return fail(here, "qxscale object has not been created ");
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
